// callback.h - from result numbers to result records
//
// The send driver, the POP3 client and posting return result numbers (send_result, pop_result).
// What the caller of the library sees is one of the four codes of eml_send_e, in a result record.
//
// Any thread.

#ifndef ZELIEML_LIBEMLW_CALLBACK_H
#define ZELIEML_LIBEMLW_CALLBACK_H

#include <string>

#include "zelieml.h"

namespace zelieml
{

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
