/*
 * engine - a daemon that sends what other programs post
 *
 *     engine WORKDIR [STOCK-SYMBOL]
 *
 * WORKDIR has the settings file "zelismes.cf" (see configure.c). THE START DELETES ITS MESSAGE FILES.
 * Prints "ready" when the engine runs, then a line for the result of each attempt, until it gets
 * SIGTERM or SIGINT. Exit status: 0 ended, 1 not started, 2 wrong use.
 */

#define _POSIX_C_SOURCE 200809L

#include <signal.h>
#include <stdio.h>
#include <string.h>

#include <zelieml.h>

#include "wait_for_end.h"

/* Called on the engine's worker thread after each attempt; the record is valid until it returns. */
static int print_result(void *result, void *user)
{
    static const char *const names[] = {"sent", "not sent", "no connection", "login refused"};
    eml_send_e               code    = eml_send_error_other;
    char                     text[1024];

    (void)user;
    eml_cb_get_code(result, &code);
    if (eml_cb_get_message(result, text, sizeof text) != 0) {
        strcpy(text, "(a long answer)");
    }
    text[strcspn(text, "\r\n")] = '\0';
    printf("result %d (%s): %s\n", (int)code, names[code], text);
    fflush(stdout);
    return 0;
}

int main(int argc, char **argv)
{
    void    *eml = NULL;
    sigset_t ends;
    int      status;

    if (argc < 2 || argc > 3) {
        fprintf(stderr, "use: engine WORKDIR [STOCK-SYMBOL]\n");
        return 2;
    }
    /* Blocked before any thread starts, and taken by wait_for_end: no handler is needed. */
    sigemptyset(&ends);
    sigaddset(&ends, SIGTERM);
    sigaddset(&ends, SIGINT);
    sigprocmask(SIG_BLOCK, &ends, NULL);

    status =
        argc == 3 ? eml_start_with_stocksymbol(argv[1], argv[2], &eml) : eml_start(argv[1], &eml);
    if (status != 0) {
        fprintf(stderr, "engine: not started for %s\n", argv[1]);
        return 1;
    }
    eml_set_callback(eml, print_result, NULL);
    printf("ready\n");
    fflush(stdout);

    wait_for_end(&ends);
    eml_stop(eml); /* finishes the mail that is being sent */
    return 0;
}
