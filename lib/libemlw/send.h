// send.h - from a message file to a result
//
// Runs the send driver on a message file, writes the send log, and deletes the file when it is
// done with.

#ifndef ZELIEML_LIBEMLW_SEND_H
#define ZELIEML_LIBEMLW_SEND_H

#include <string>

namespace zelieml
{

// send_sync - send one message file now and delete it, whatever the result
//
// dir     work directory, whose settings file is used
// file    full path of the message file
// detail  receives the server's last reply
//
// Returns the send driver's result number; send_other_failure when memory was lacking on the way.
// Any thread.
int send_sync(char const* dir, char const* file, std::string& detail);

// write_log - add an attempt to the send log, if log_yes allows
//
// dir     work directory
// file    full path of the message file, loaded for its From and Subject
// code    result number of the attempt
// detail  the server's last reply; left out of the line when empty
//
// Writes nothing when the file cannot be loaded. Reports nothing. Any thread.
void write_log(char const* dir, std::string const& file, int code, std::string const& detail);

// log_yes - whether the send log is written
//
// dir  work directory, not looked at; may be null
//
// Returns false.
bool log_yes(char const* dir);

}  // namespace zelieml

#endif
