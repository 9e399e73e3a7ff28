// callback.h - result callbacks, and from result numbers to result records
//
// The send driver, the POP3 client and posting return result numbers (send_result, pop_result).
// What the caller of the library sees is one of the four codes of eml_send_e, in a result record,
// which goes to the procedures that he registered.
//
// Threads: the list of procedures may be changed on any thread while the worker calls them. An
// attempt calls the procedures that were registered when it began to report; a change takes effect
// for the next one.

#ifndef ZELIEML_LIBEMLW_CALLBACK_H
#define ZELIEML_LIBEMLW_CALLBACK_H

#include <string>

#include "zelieml.h"

namespace zelieml
{

struct _s_iemlw;

// A registered procedure, and what it is called with.
struct c_cb_param {
    int (*proc)(void* result, void* user);
    void* user;
};

// Equal when the procedures are; user takes no part.
bool operator==(c_cb_param const& a, c_cb_param const& b);

// set_callback_raw - register a procedure, after those there are
//
// One that is registered already stays as it is, with the user it was registered with.
//
// Returns 0. Throws std::bad_alloc, leaving the list as it was, when there is no memory.
int set_callback_raw(_s_iemlw* engine, int (*proc)(void*, void*), void* user);

// reset_callback_raw - remove a procedure; the others keep their order
//
// Returns 0, also when it was not registered. Throws as set_callback_raw does.
int reset_callback_raw(_s_iemlw* engine, int (*proc)(void*, void*));

// call_callback_raw - report an attempt to all registered procedures, in order
//
// message  result text
// result   result number
//
// The record that the procedures get dies when this returns. What they return, or throw, is not
// looked at. In a child that one of them forked, and returned from, the others are not called.
//
// Returns 0, or -1, with nobody called, when there is no memory for the record.
int call_callback_raw(_s_iemlw* engine, std::string const& message, int result);

// get_callback_code - the code of a result number; eml_send_error_other for an unknown one
eml_send_e get_callback_code(int result);

// get_callback_code_str - the text of a result number's code, as the send log writes it
char const* get_callback_code_str(int result);

// create_callback_info - a new result record
//
// result   result number
// message  result text
//
// Returns the handle, the caller's to free with cb_destroy, or null when there is no memory.
void* create_callback_info(int result, std::string const& message);

}  // namespace zelieml

#endif
