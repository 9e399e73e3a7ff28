/*
 * probe - try out the settings of a work directory, without sending a mail
 *
 *     probe WORKDIR [SENDER RECIPIENT]
 *
 * Talks to the servers that WORKDIR/zelismes.cf names as a mail would, and prints a line for each
 * step: what became of it, how long it took, and why it failed, with the number that a mail would
 * get, or what there is to know. With a sender and a recipient the server is asked whether it takes
 * them.
 *
 * Exit status: 0 good, 1 a step failed, 2 wrong use.
 */

#include <stdio.h>

#include <zelieml_ext.h>

static void print_step(const eml_probe_step *step, void *user)
{
    int        *steps = user;
    const char *word  = step->outcome == eml_probe_ok       ? "ok"
                        : step->outcome == eml_probe_failed ? "FAILED"
                                                            : "remark";

    ++*steps;
    printf("%-12s %-6s %6.2f s", step->name, word, step->seconds);
    if (step->number != 0) {
        printf("  %d", step->number);
    }
    if (step->reason[0] != '\0') {
        printf("  %s", step->reason);
    }
    printf("\n");
    fflush(stdout); /* a step can take long */
}

int main(int argc, char **argv)
{
    const char *sender    = NULL;
    const char *recipient = NULL;
    int         steps     = 0;
    int         status;

    if (argc != 2 && argc != 4) {
        fprintf(stderr, "use: probe WORKDIR [SENDER RECIPIENT]\n");
        return 2;
    }
    if (argc == 4) {
        sender    = argv[2];
        recipient = argv[3];
    }
    status = eml_probe(argv[1], sender, recipient, print_step, &steps);
    if (steps == 0) {
        fprintf(stderr, "probe: not begun\n");
    }
    return status == 0 ? 0 : 1;
}
