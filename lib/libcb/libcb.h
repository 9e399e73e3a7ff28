// libcb.h - the result record: how an attempt to send ended
//
// Any thread. Whoever holds the handle owns the record.

#ifndef ZELIEML_LIBCB_LIBCB_H
#define ZELIEML_LIBCB_LIBCB_H

#include <string>

#include "zelieml_ext.h"

namespace zelieml
{

// The path of a file has at most 399 bytes: an engine takes no longer one.
struct _s_cb {
    eml_send_e  code;
    std::string message;      // the server's last reply, or empty
    int         number  = 0;  // the result number
    int         attempt = 0;  // 1 or 2; 0 when there was none
    double      seconds = 0;  // that it took
    std::string reason;       // why the mail was not sent, or empty
    eml_cause   cause     = eml_cause_none;
    char const* step      = "";      // that failed, of step_names.h, or empty
    char        file[400] = {'\0'};  // the message file, or empty
};

// cb_create - make a record
//
// cb       receives the handle, which the caller frees with cb_destroy; untouched on failure
// message  copied
//
// Returns 0, or -1 when an argument is null or there is no memory.
int cb_create(void** cb, eml_send_e code, char const* message);

// cb_destroy - free a record; null is accepted. Returns 0.
int cb_destroy(void* cb);

// cb_duplicate - copy a record, whole
//
// copy  receives the handle of the copy, freed on its own; untouched on failure
//
// Returns 0, or -1 when an argument is null or there is no memory.
int cb_duplicate(void* cb, void** copy);

// cb_get_code - read the code. Returns 0, or -1 for a null argument.
int cb_get_code(void* cb, eml_send_e* code);

// cb_get_message - copy the message
//
// size  bytes at buf, the NUL included
//
// Returns 0. Returns -1, leaving buf unchanged, for a null argument or when the message and its NUL
// do not fit.
int cb_get_message(void* cb, char* buf, int size);

// cb_get_number, cb_get_attempt, cb_get_seconds - read a number. Return 0, or -1 for a null argument.
int cb_get_number(void* cb, int* number);
int cb_get_attempt(void* cb, int* attempt);
int cb_get_seconds(void* cb, double* seconds);

// cb_get_cause - read the cause. Returns 0, or -1 for a null argument.
int cb_get_cause(void* cb, eml_cause* cause);

// cb_get_file, cb_get_reason, cb_get_step - copy a string; arguments and result as for cb_get_message
int cb_get_file(void* cb, char* buf, int size);
int cb_get_reason(void* cb, char* buf, int size);
int cb_get_step(void* cb, char* buf, int size);

}  // namespace zelieml

#endif
