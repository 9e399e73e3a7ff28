/*
 * post - hand one mail to an engine that runs in another program
 *
 *     post WORKDIR STOCK-SYMBOL field=value... < body
 *
 * WORKDIR is the engine's work directory (see engine.c). The fields are from, to, cc, subject,
 * replyto, messageid and encoding ("utf-8" or "iso-2022-jp"); the body comes from the standard
 * input. The result is the engine's to report. Exit status: 0 posted, 1 not posted, 2 wrong use.
 */

#include <stdio.h>

#include <zelieml.h>

#include "mail_fields.h"

int main(int argc, char **argv)
{
    void *msg;
    int   status;

    if (argc < 3) {
        fprintf(stderr, "use: post WORKDIR STOCK-SYMBOL field=value... < body\n");
        return 2;
    }
    msg = mail_from_arguments(argc - 3, argv + 3);
    if (msg == NULL) {
        return 2;
    }
    status = eml_post_with_stocksymbol(argv[1], argv[2], msg) == 0 ? 0 : 1;
    if (status != 0) {
        fprintf(stderr, "post: the message could not be saved in %s\n", argv[1]);
    }
    eml_msg_destroy(msg);
    return status;
}
