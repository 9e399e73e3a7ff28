/*
 * why - send one mail now, and print all that is known when it does not arrive
 *
 *     why WORKDIR field=value... < body
 *
 * WORKDIR has the settings file "zelismes.cf" (see configure.c), the fields are those of
 * send_and_wait.c. Exit status: 0 sent, 1 not sent, 2 wrong use.
 */

#include <stdio.h>

#include <zelieml_ext.h>

#include "mail_fields.h"

static void print_result(void *result)
{
    eml_send_e code    = eml_send_error_other;
    int        number  = 0;
    int        attempt = 0;
    double     seconds = 0;
    char       file[4096];
    char       reason[EML_REASON_SIZE];

    if (eml_cb_get_code(result, &code) != 0) {
        printf("not sent: there was no memory for a result\n");
        return;
    }
    eml_cb_get_number(result, &number);
    eml_cb_get_attempt(result, &attempt);
    eml_cb_get_seconds(result, &seconds);
    if (eml_cb_get_file(result, file, (int)sizeof file) != 0) {
        file[0] = '\0'; /* a path that is longer */
    }
    if (eml_cb_get_reason(result, reason, (int)sizeof reason) != 0) {
        reason[0] = '\0';
    }
    printf("code:    %d\n", (int)code);
    printf("number:  %d\n", number);
    printf("attempt: %d, %.3f s\n", attempt, seconds);
    printf("file:    %s\n", file[0] != '\0' ? file : "none");
    printf("reason:  %s\n", reason[0] != '\0' ? reason : code == eml_send_ok ? "sent" : "unknown");
}

int main(int argc, char **argv)
{
    void *result = NULL;
    void *msg;
    int   status;

    if (argc < 2) {
        fprintf(stderr, "use: why WORKDIR field=value... < body\n");
        return 2;
    }
    msg = mail_from_arguments(argc - 2, argv + 2);
    if (msg == NULL) {
        return 2;
    }
    printf("library: %s\n", eml_version());
    status = eml_post_sync(argv[1], msg, &result) == 0 ? 0 : 1;
    print_result(result);
    eml_cb_delete(result);
    eml_msg_destroy(msg);
    return status;
}
