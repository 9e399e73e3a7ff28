/*
 * header.c - the public header zelieml.h alone, in every language that can include it
 *
 * Compiled by each compiler for each standard, as C and as C++; never run.
 */

#include "zelieml.h"

/* 32 bits whatever the compiler does with small enumerations. */
typedef char eml_encoding_has_32_bits[sizeof(eml_encoding) == 4 ? 1 : -1];
typedef char eml_send_e_has_32_bits[sizeof(eml_send_e) == 4 ? 1 : -1];

int use_the_header(void** msg, void** result);

int use_the_header(void** msg, void** result)
{
    if (eml_msg_create(msg) != 0 || eml_msg_set_encoding(*msg, eml_encoding_iso2022jp) != 0) {
        return -1;
    }
    if (eml_msg_set_from(*msg, KeyFrom) != 0) {
        return -1;
    }
    return eml_post_sync("w", *msg, result);
}
