/*
 * header_ext.c - the public header zelieml_ext.h, twice, in every language that can include it
 *
 * Compiled as header.c is; never run.
 */

#include "zelieml_ext.h"

#include <stddef.h>

#include "zelieml.h"
#include "zelieml_ext.h"

#if EML_VERSION_MAJOR * 10000 + EML_VERSION_MINOR * 100 + EML_VERSION_PATCH < 10000
#error "the preprocessor can compare versions"
#endif

/* 32 bits whatever the compiler does with small enumerations. */
typedef char eml_probe_outcome_has_32_bits[sizeof(eml_probe_outcome) == 4 ? 1 : -1];
typedef char eml_cause_has_32_bits[sizeof(eml_cause) == 4 ? 1 : -1];
typedef char eml_severity_has_32_bits[sizeof(eml_severity) == 4 ? 1 : -1];

/* The structures as other languages declare them, with plain types. */
struct plain_probe_step {
    unsigned int struct_size;
    int          outcome;
    int          number;
    char const*  name;
    char const*  server;
    double       seconds;
    char const*  reply;
    char const*  reason;
    int          cause;
};
struct plain_preview {
    unsigned int       struct_size;
    char const*        sender;
    char const* const* recipients;
    int                recipient_count;
    char const*        text;
    size_t             text_size;
};
struct plain_finding {
    unsigned int struct_size;
    int          severity;
    int          line;
    char const*  field;
    char const*  text;
};
#define SAME_SIZE(name, plain)                                                                     \
    typedef char name##_has_its_size[sizeof(name) == sizeof(struct plain) ? 1 : -1]
#define SAME_MEMBER(name, plain, member)                                                           \
    typedef char name##_##member##_is_in_its_place[offsetof(name, member) ==                       \
                                                               offsetof(struct plain, member) &&   \
                                                           sizeof(((name*)0)->member) ==           \
                                                               sizeof(((struct plain*)0)->member)  \
                                                       ? 1                                         \
                                                       : -1]
SAME_SIZE(eml_probe_step, plain_probe_step);
SAME_MEMBER(eml_probe_step, plain_probe_step, struct_size);
SAME_MEMBER(eml_probe_step, plain_probe_step, outcome);
SAME_MEMBER(eml_probe_step, plain_probe_step, number);
SAME_MEMBER(eml_probe_step, plain_probe_step, name);
SAME_MEMBER(eml_probe_step, plain_probe_step, server);
SAME_MEMBER(eml_probe_step, plain_probe_step, seconds);
SAME_MEMBER(eml_probe_step, plain_probe_step, reply);
SAME_MEMBER(eml_probe_step, plain_probe_step, reason);
SAME_MEMBER(eml_probe_step, plain_probe_step, cause);
SAME_SIZE(eml_preview, plain_preview);
SAME_MEMBER(eml_preview, plain_preview, struct_size);
SAME_MEMBER(eml_preview, plain_preview, sender);
SAME_MEMBER(eml_preview, plain_preview, recipients);
SAME_MEMBER(eml_preview, plain_preview, recipient_count);
SAME_MEMBER(eml_preview, plain_preview, text);
SAME_MEMBER(eml_preview, plain_preview, text_size);
SAME_SIZE(eml_finding, plain_finding);
SAME_MEMBER(eml_finding, plain_finding, struct_size);
SAME_MEMBER(eml_finding, plain_finding, severity);
SAME_MEMBER(eml_finding, plain_finding, line);
SAME_MEMBER(eml_finding, plain_finding, field);
SAME_MEMBER(eml_finding, plain_finding, text);

char const* use_the_second_header(void);

char const* use_the_second_header(void)
{
    return eml_version() != 0 ? EML_VERSION : KeyFrom;
}
