// send.h - from a message file to a result
//
// Runs the send driver on message files, reports to the callbacks and the send log, and deletes a
// file once it has been sent or has failed twice.

#ifndef ZELIEML_LIBEMLW_SEND_H
#define ZELIEML_LIBEMLW_SEND_H

#include <optional>
#include <string>
#include <sys/types.h>

#include "libemlw/engine_record.h"
#include "libmsg/message_file.h"

namespace zelieml
{

// send_queue - one pass: try the files that are due
//
// try_count, interval  select the entries; see iqmgr::get
//
// All entries that are due count as tried from the start of the pass. When the engine is asked to
// stop, the entries not reached stay queued. The engine's mutex is held while the queue is read,
// not while sending.
//
// Returns the result number of the last attempt; 0 when nothing was due or the pass was stopped.
// Throws std::bad_alloc when there is no memory for the list; then no entry counts as tried. Worker
// thread.
int send_queue(_s_iemlw* engine, unsigned int try_count, unsigned int interval);

// send_sync - send one message file now and delete it, whatever the result
//
// dir     work directory, whose settings file is used
// file    full path of the message file
// detail  receives the server's last reply
//
// Returns the send driver's result number; send_other_failure when memory ran out. Any thread.
int send_sync(char const* dir, char const* file, std::string& detail);

// send_sync - the same for a message file that is open
//
// file     its full path
// message  the open file
int send_sync(char const* dir, char const* file, message_file const& message, std::string& detail);

// The steps of send_queue and send_sync.

// _send_queue - one attempt for one file: send it, report the result, delete the file or keep it
// queued
//
// try_count  0: after a failed attempt the file stays queued. Otherwise the file is deleted and
//            leaves the queue whether or not the attempt failed.
// owner      the user whom the file must belong to; nothing: anybody
//
// The file is opened once, see open_message_file. One that is refused there cannot be loaded.
//
// Returns the result number; send_other_failure when memory ran out during the attempt. Throws
// std::bad_alloc when there is no memory to begin with, before any attempt; or when the file is
// deleted but its entry could not leave the queue. Worker thread.
int _send_queue(_s_iemlw* engine, std::string const& file, unsigned int try_count,
                std::optional<uid_t> owner = {});

// write_log - add an attempt to the send log, if log_yes allows
//
// dir     work directory
// file    full path of the message file, loaded for its From and Subject
// code    result number of the attempt
// detail  the server's last reply; left out of the line when empty
//
// Writes nothing when the file cannot be loaded; no failure is reported. Throws std::bad_alloc when
// there is no memory. Any thread.
void write_log(char const* dir, std::string const& file, int code, std::string const& detail);

// log_yes - whether the send log is written
//
// dir  work directory; not used, may be null
//
// Returns false.
bool log_yes(char const* dir);

}  // namespace zelieml

#endif
