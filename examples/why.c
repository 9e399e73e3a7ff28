/*
 * why - check a mail and the settings, send it all the same, and print all that is known
 *
 *     why WORKDIR field=value... < body
 *
 * WORKDIR has the settings file "zelismes.cf" (see configure.c), the fields are those of
 * send_and_wait.c. A finding keeps nothing from being sent: the server has the last word. Exit
 * status: 0 sent, 1 not sent, 2 wrong use.
 */

#include <stdio.h>

#include <zelieml_ext.h>

#include "mail_fields.h"

static void print_finding(const eml_finding *finding, void *user)
{
    const char *what = user;

    printf("%s: %s", what,
           finding->severity == eml_severity_error  ? "error"
           : finding->severity == eml_severity_note ? "note"
                                                    : "warning");
    if (finding->field[0] != '\0') {
        printf(", %s", finding->field);
    }
    if (finding->line != 0) {
        printf(", line %d", finding->line);
    }
    printf(": %s\n", finding->text);
}

static void print_findings(const char *workdir, void *msg)
{
    static char message[] = "message";
    static char setting[] = "setting";
    char        path[4096];

    if (eml_msg_check(msg, print_finding, message) < 0) {
        printf("message: not checked\n");
    }
    if (snprintf(path, sizeof path, "%s/zelismes.cf", workdir) >= (int)sizeof path ||
        eml_settings_check(path, print_finding, setting) < 0) {
        printf("setting: not checked\n");
    }
}

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
    print_findings(argv[1], msg);
    fflush(stdout); /* sending can take long */
    status = eml_post_sync(argv[1], msg, &result) == 0 ? 0 : 1;
    print_result(result);
    eml_cb_delete(result);
    eml_msg_destroy(msg);
    return status;
}
