// callback.h - result callbacks, and the codes and records of result numbers
//
// The send driver, the POP3 client and posting return result numbers (send_result, pop_result).
// Users of the library get one of the four codes of eml_send_e instead, in a result record that is
// passed to the callbacks they registered.
//
// Threads: callbacks may be registered and removed on any thread while the worker calls them. An
// attempt is reported to the callbacks that were registered when reporting began; a change takes
// effect with the next attempt.

#ifndef ZELIEML_LIBEMLW_CALLBACK_H
#define ZELIEML_LIBEMLW_CALLBACK_H

#include <string>

#include "zelieml.h"

namespace zelieml
{

struct _s_iemlw;

// A registered callback and its user data.
struct c_cb_param {
    int (*proc)(void* result, void* user);
    void* user;
};

// Compares the callbacks only: the user data does not count.
bool operator==(c_cb_param const& a, c_cb_param const& b);

// set_callback_raw - register a callback, after those already registered
//
// A callback that is registered already keeps its place and its first user data.
//
// Returns 0. Throws std::bad_alloc, leaving the list unchanged, when there is no memory.
int set_callback_raw(_s_iemlw* engine, int (*proc)(void*, void*), void* user);

// reset_callback_raw - remove a callback; the others keep their order
//
// Returns 0, also when it was not registered. Throws as set_callback_raw does.
int reset_callback_raw(_s_iemlw* engine, int (*proc)(void*, void*));

// call_callback_raw - report an attempt to all registered callbacks, in order
//
// message  result text
// result   result number
//
// The record passed to the callbacks is freed when this returns. What they return or throw is
// ignored. When a callback forks and returns in the child, the remaining ones are not called there.
//
// Returns 0, or -1, without calling any, when there is no memory for the record.
int call_callback_raw(_s_iemlw* engine, std::string const& message, int result);

// get_callback_code - the code of a result number; eml_send_error_other for an unknown one
eml_send_e get_callback_code(int result);

// get_callback_code_str - the name of a result number's code, as written to the send log
char const* get_callback_code_str(int result);

// create_callback_info - a new result record
//
// result   result number
// message  result text
//
// The attempt and its reason come from the current note (support/attempt_note.h); without memory for
// them the record has none.
//
// Returns the handle, which the caller frees with cb_destroy, or null when there is no memory.
void* create_callback_info(int result, std::string const& message);

}  // namespace zelieml

#endif
