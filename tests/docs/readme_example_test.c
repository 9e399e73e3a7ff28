/* Runs README's example where nothing can be sent: it says so and leaves nothing behind. */

#include <stdio.h>
#include <unistd.h>

int send_status(const char *workdir, const char *to, const char *text);

int main(void)
{
    if (send_status("/nonexistent", "anna@office.test", "ready") != -1) {
        fprintf(stderr, "sent, from a directory that does not exist\n");
        return 1;
    }
    return access("/nonexistent", F_OK) == 0 ? 1 : 0;
}
