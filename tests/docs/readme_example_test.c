/*
 * Runs README's examples where there is no server: they say so and leave nothing behind. Both headers
 * are those of the library.
 */

#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <zelieml_ext.h>

int send_status(const char *workdir, const char *to, const char *text);
int print_new_mails(const char *host, int port, const char *user, const char *password);

int main(void)
{
    if (send_status("/nonexistent", "anna@office.test", "ready") != -1) {
        fprintf(stderr, "sent, from a directory that does not exist\n");
        return 1;
    }
    if (print_new_mails("127.0.0.1", 0, "anna", "secret") != -1) {
        fprintf(stderr, "received, from no port\n");
        return 1;
    }
    if (strcmp(eml_version(), EML_VERSION) != 0) {
        fprintf(stderr, "a header of %s, a library of %s\n", EML_VERSION, eml_version());
        return 1;
    }
    return access("/nonexistent", F_OK) == 0 ? 1 : 0;
}
