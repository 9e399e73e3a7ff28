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
#include <string.h>

#include <zelieml.h>

struct field {
    const char *name;
    int (*set)(void *msg, const char *text);
};

static int set_encoding(void *msg, const char *text)
{
    if (strcmp(text, "utf-8") == 0) {
        return eml_msg_set_encoding(msg, eml_encoding_utf8);
    }
    if (strcmp(text, "iso-2022-jp") == 0) {
        return eml_msg_set_encoding(msg, eml_encoding_iso2022jp);
    }
    return -1;
}

static const struct field fields[] = {
    {"from", eml_msg_set_from},       {"to", eml_msg_set_to},
    {"cc", eml_msg_set_cc},           {"subject", eml_msg_set_subject},
    {"replyto", eml_msg_set_replyto}, {"messageid", eml_msg_set_messageid},
    {"encoding", set_encoding},
};

/* Sets the field of an argument "field=value". Returns 0 or -1. */
static int set_field(void *msg, const char *argument)
{
    const char *value = strchr(argument, '=');
    size_t      i;

    if (value == NULL) {
        return -1;
    }
    for (i = 0; i < sizeof fields / sizeof fields[0]; ++i) {
        size_t length = strlen(fields[i].name);
        if (length == (size_t)(value - argument) &&
            strncmp(argument, fields[i].name, length) == 0) {
            return fields[i].set(msg, value + 1);
        }
    }
    return -1;
}

/* Reads a stream to its end. Returns a text to be freed, or null. */
static char *read_all(FILE *in)
{
    size_t size = 0;
    size_t room = 4096;
    char  *text = malloc(room);

    while (text != NULL) {
        size_t got = fread(text + size, 1, room - size - 1, in);
        char  *larger;
        size += got;
        if (got == 0) {
            text[size] = '\0';
            return text;
        }
        if (size < room - 1) {
            continue;
        }
        larger = realloc(text, room * 2);
        if (larger == NULL) {
            free(text);
        }
        text = larger;
        room *= 2;
    }
    return NULL;
}

/* Copies the text of a result record, however long it is. Returns it, to be freed, or null. */
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
    void *msg    = NULL;
    void *result = NULL;
    char *body   = NULL;
    int   status = 2;
    int   i;

    if (argc < 2 || eml_msg_create(&msg) != 0) {
        fprintf(stderr, "use: send_and_wait WORKDIR field=value... < body\n");
        return 2;
    }
    for (i = 2; i < argc; ++i) {
        if (set_field(msg, argv[i]) != 0) {
            fprintf(stderr, "send_and_wait: not a field of a mail: %s\n", argv[i]);
            goto done;
        }
    }
    body = read_all(stdin);
    if (body == NULL || eml_msg_set_body(msg, body) != 0) {
        fprintf(stderr, "send_and_wait: no memory for the body\n");
        goto done;
    }

    status = eml_post_sync(argv[1], msg, &result) == 0 ? 0 : 1;
    print_result(result);

done:
    free(body);
    eml_cb_delete(result);
    eml_msg_destroy(msg);
    return status;
}
