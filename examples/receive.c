/*
 * receive - empty a mailbox and print sender and subject of its mails
 *
 *     receive --delete pop_server=HOST field=value...
 *
 * THE MAILS ARE DELETED ON THE SERVER, also those that are not printed: --delete confirms it. See
 * server_fields.h for the fields. domains=LIST names the sender domains whose mails are printed,
 * separated by commas; do not put a comma at an end of the list, since an empty entry allows all.
 *
 * Exit status: 0 the mailbox is empty, 1 it may not be, 2 wrong use.
 */

#include <stdio.h>
#include <string.h>

#include <zelieml.h>

#include "server_fields.h"

static void print_mails(void *list)
{
    int count = eml_receive_msg_count(list);
    int i;

    printf("mails: %d\n", count);
    for (i = 0; i < count; ++i) {
        /* Always enough, and the size is checked: nothing is written past these buffers. */
        char from[4096]    = "";
        char subject[4096] = "";
        eml_receive_msg_get_from(list, i, from, sizeof from);
        eml_receive_msg_get_subject(list, i, subject, sizeof subject);
        printf("From: %s\nSubject: %s\n", from, subject);
    }
}

/* Returns 0 when the mailbox has been emptied, 1 when something failed. */
static int receive(void *server, const char *domains)
{
    void *list   = NULL;
    int   status = 1;

    /* A login that reads nothing: a wrong password shows before the first mail is deleted. Without
     * a buffer for the server's reply, because its length is not checked. */
    if (test_pop_auth(server, NULL) != eml_send_ok) {
        fprintf(stderr, "receive: no login; no mail was touched\n");
        return 1;
    }
    /* Made before anything is deleted. */
    if (eml_receive_msg_create(&list) != 0) {
        fprintf(stderr, "receive: no memory\n");
        return 1;
    }
    if (eml_receive_mails(server, list, domains) == 0) {
        print_mails(list);
        status = 0;
    } else {
        fprintf(stderr, "receive: failed; mails fetched before that are lost\n");
    }
    eml_receive_msg_destroy(list);
    return status;
}

int main(int argc, char **argv)
{
    char **arguments = argv + 2;
    void  *server;
    int    status;

    if (argc < 3 || strcmp(argv[1], "--delete") != 0 ||
        server_field(arguments, "pop_server")[0] == '\0') {
        fprintf(stderr, "use: receive --delete pop_server=HOST field=value...\n");
        return 2;
    }
    server = server_from_arguments(arguments);
    if (server == NULL) {
        return 2;
    }
    status = receive(server, server_field(arguments, "domains"));
    server_info_destroy(server);
    return status;
}
