/*
 * string_fields.h - the strings of a message record, for tests in C and in C++
 */

#ifndef ZELIEML_TESTS_API_STRING_FIELDS_H
#define ZELIEML_TESTS_API_STRING_FIELDS_H

#include "zelieml.h"

static const struct string_field {
    char const* name;
    int (*set)(void* msg, char const* string);
    int (*get)(void* msg, char* buf, int size);
} string_fields[] = {
    {"from", eml_msg_set_from, eml_msg_get_from},
    {"to", eml_msg_set_to, eml_msg_get_to},
    {"cc", eml_msg_set_cc, eml_msg_get_cc},
    {"subject", eml_msg_set_subject, eml_msg_get_subject},
    {"replyto", eml_msg_set_replyto, eml_msg_get_replyto},
    {"messageid", eml_msg_set_messageid, eml_msg_get_messageid},
    {"body", eml_msg_set_body, eml_msg_get_body},
};

#endif
