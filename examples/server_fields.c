#include "server_fields.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <zelieml_ext.h>

enum kind {
    any_text,
    number,
    pop_or_apop,
    on_or_off,
    kind_of_tls
};

struct field {
    const char *name;
    const char *unset;
    enum kind   kind;
};

static const struct field fields[] = {
    {"pop_server", "", any_text},    {"pop_port", "110", number},
    {"pop_account", "", any_text},   {"pop_passwd", "", any_text},
    {"pop_wait_time", "0", number},  {"pop_auth_type", "pop", pop_or_apop},
    {"smtp_server", "", any_text},   {"smtp_port", "25", number},
    {"smtp_account", "", any_text},  {"smtp_passwd", "", any_text},
    {"smtp_auth", "off", on_or_off}, {"pop_before_smtp", "off", on_or_off},
    {"smtp_tls", "no", kind_of_tls}, {"pop_tls", "no", kind_of_tls},
    {"tls_ca_file", "", any_text},   {"domains", "", any_text},
};

/* The value in an argument that sets the field, or null when it sets another. */
static const char *value_in(const char *argument, const char *name)
{
    size_t length = strlen(name);

    return strncmp(argument, name, length) == 0 && argument[length] == '=' ? argument + length + 1
                                                                           : NULL;
}

static int is_of_kind(const char *value, enum kind kind)
{
    switch (kind) {
    case number:
        return value[0] != '\0' && value[strspn(value, "0123456789")] == '\0' &&
               strlen(value) <= 5 && atoi(value) <= 65535;
    case pop_or_apop:
        /* Nothing else: the library's functions differ in what they take another string for. */
        return strcmp(value, "pop") == 0 || strcmp(value, "apop") == 0;
    case on_or_off:
        return strcmp(value, "on") == 0 || strcmp(value, "off") == 0;
    case kind_of_tls:
        return strcmp(value, "no") == 0 || strcmp(value, "starttls") == 0 ||
               strcmp(value, "tls") == 0;
    default:
        return 1;
    }
}

static int sets_a_field(const char *argument)
{
    size_t i;

    for (i = 0; i < sizeof fields / sizeof fields[0]; ++i) {
        const char *value = value_in(argument, fields[i].name);
        if (value != NULL) {
            return is_of_kind(value, fields[i].kind);
        }
    }
    return 0;
}

static int number_of(char **arguments, const char *name)
{
    return atoi(server_field(arguments, name));
}

const char *server_field(char **arguments, const char *name)
{
    size_t i;

    for (; *arguments != NULL; ++arguments) {
        const char *value = value_in(*arguments, name);
        if (value != NULL) {
            return value;
        }
    }
    for (i = 0; i < sizeof fields / sizeof fields[0]; ++i) {
        if (strcmp(fields[i].name, name) == 0) {
            return fields[i].unset;
        }
    }
    return NULL;
}

void *server_from_arguments(char **arguments)
{
    const char *ca_file = server_field(arguments, "tls_ca_file");
    void       *server  = NULL;
    char      **argument;

    for (argument = arguments; *argument != NULL; ++argument) {
        if (!sets_a_field(*argument)) {
            fprintf(stderr, "not a field of a server: %s\n", *argument);
            return NULL;
        }
    }
    if (server_info_create(&server) != 0) {
        fprintf(stderr, "no memory for a server record\n");
        return NULL;
    }
    server_info_set_pop(
        server, server_field(arguments, "pop_server"), server_field(arguments, "pop_account"),
        server_field(arguments, "pop_passwd"), server_field(arguments, "pop_auth_type"),
        number_of(arguments, "pop_port"), number_of(arguments, "pop_wait_time"));
    server_info_set_smtp(server, server_field(arguments, "smtp_server"),
                         server_field(arguments, "smtp_account"),
                         server_field(arguments, "smtp_passwd"),
                         server_field(arguments, "smtp_auth"), number_of(arguments, "smtp_port"));
    if (server_info_set_tls(server, server_field(arguments, "smtp_tls"),
                            server_field(arguments, "pop_tls"),
                            ca_file[0] != '\0' ? ca_file : NULL) != 0) {
        fprintf(stderr, "no memory for a server record\n");
        server_info_destroy(server);
        return NULL;
    }
    return server;
}
