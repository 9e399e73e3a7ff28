/*
 * send_and_wait - send one mail and print how it went
 *
 *     send_and_wait WORKDIR field=value... < body
 *
 * WORKDIR has the settings file "zelismes.cf" (see configure.c). The fields are from, to, cc,
 * subject, replyto, messageid and encoding ("utf-8" or "iso-2022-jp"); the body comes from the
 * standard input. Exit status: 0 sent, 1 not sent, 2 wrong use.
 */

#include <stdio.h>
#include <stdlib.h>

#include <zelieml.h>

#include "mail_fields.h"

/* Copies the server's last reply, whatever its length. Returns it, to be freed, or null. */
static char *text_of(void *result)
{
    int   size = 256;
    char *text = malloc((size_t)size);

    while (text != NULL && eml_cb_get_message(result, text, size) != 0) {
        free(text);
        size *= 2;
        text = size < 1000000 ? malloc((size_t)size) : NULL;
    }
    return text;
}

static void print_result(void *result)
{
    eml_send_e code = eml_send_error_other;
    char      *text = text_of(result);

    eml_cb_get_code(result, &code);
    printf("result code: %d\n", (int)code);
    printf("server said: %s", text != NULL && text[0] != '\0' ? text : "nothing\n");
    free(text);
}

int main(int argc, char **argv)
{
    void *result = NULL;
    void *msg;
    int   status;

    if (argc < 2) {
        fprintf(stderr, "use: send_and_wait WORKDIR field=value... < body\n");
        return 2;
    }
    msg = mail_from_arguments(argc - 2, argv + 2);
    if (msg == NULL) {
        return 2;
    }
    status = eml_post_sync(argv[1], msg, &result) == 0 ? 0 : 1;
    print_result(result);
    eml_cb_delete(result);
    eml_msg_destroy(msg);
    return status;
}
