#include "mail_fields.h"

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

/* Reads a stream to its end. Returns a string to be freed, or null. */
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

void *mail_from_arguments(int count, char **arguments)
{
    void *msg = NULL;
    char *body;
    int   i;

    if (eml_msg_create(&msg) != 0) {
        fprintf(stderr, "no memory for a message\n");
        return NULL;
    }
    for (i = 0; i < count; ++i) {
        if (set_field(msg, arguments[i]) != 0) {
            fprintf(stderr, "not a field of a mail: %s\n", arguments[i]);
            eml_msg_destroy(msg);
            return NULL;
        }
    }
    body = read_all(stdin);
    if (body == NULL || eml_msg_set_body(msg, body) != 0) {
        fprintf(stderr, "no memory for the body\n");
        eml_msg_destroy(msg);
        msg = NULL;
    }
    free(body);
    return msg;
}
