/*
 * test_settings - try out the servers, accounts and switches that a user has typed in
 *
 *     test_settings [--trust] field=value...
 *
 * Logs in to the POP3 server that is named by pop_server, then to the SMTP server that is named by
 * smtp_server; no mail is sent, read or deleted. See server_fields.h for all fields. With
 * pop_before_smtp=on the SMTP test logs in to the POP3 server once more, and waits.
 *
 * With --trust the servers' last replies are printed. The servers decide how long these are, and
 * the library writes them into the buffer without a check: without --trust it is given none.
 *
 * Exit status: 0 good, 1 a test failed, 2 wrong use. Other users of the machine can see passwords
 * on a command line: a program for everyday use asks for them.
 */

#include <stdio.h>
#include <string.h>

#include <zelieml.h>

#include "server_fields.h"

/* Far more than a few lines of 512 bytes, the longest that RFC 2449 and RFC 5321 allow. */
static char answer[256 * 1024];

/* Prints one result. Returns 0 when it is good, 1 when not. */
static int print_result(const char *protocol, eml_send_e code, const char *text)
{
    static const char *const words[] = {"accepted", "failed", "no connection", "login refused"};

    printf("%s: %s\n", protocol, words[code]);
    if (text != NULL) {
        printf("server said: %s", text[0] != '\0' ? text : "nothing\n");
    }
    return code == eml_send_ok ? 0 : 1;
}

int main(int argc, char **argv)
{
    char      **arguments = argv + 1;
    char       *text      = NULL;
    const char *pop;
    const char *smtp;
    void       *server;
    int         status = 0;

    if (argc > 1 && strcmp(*arguments, "--trust") == 0) {
        text = answer;
        ++arguments;
    }
    pop  = server_field(arguments, "pop_server");
    smtp = server_field(arguments, "smtp_server");
    if (pop[0] == '\0' && smtp[0] == '\0') {
        fprintf(stderr, "use: test_settings [--trust] pop_server=HOST smtp_server=HOST "
                        "field=value...\n");
        return 2;
    }
    server = server_from_arguments(arguments);
    if (server == NULL) {
        return 2;
    }
    if (pop[0] != '\0') {
        eml_send_e code = test_pop_auth(server, text);
        status |= print_result("POP3", code, text);
    }
    if (smtp[0] != '\0') {
        eml_send_e code = test_smtp_auth(server, server_field(arguments, "pop_before_smtp"), text);
        status |= print_result("SMTP", code, text);
    }
    server_info_destroy(server);
    return status;
}
