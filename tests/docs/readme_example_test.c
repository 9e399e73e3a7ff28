/* Runs README's examples where there is no server: they say so and leave nothing behind. */

#include <stdio.h>
#include <unistd.h>

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
    return access("/nonexistent", F_OK) == 0 ? 1 : 0;
}
