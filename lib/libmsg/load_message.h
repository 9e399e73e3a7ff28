// load_message.h - the steps of msg_load, for whatever becomes of the body

#ifndef ZELIEML_LIBMSG_LOAD_MESSAGE_H
#define ZELIEML_LIBMSG_LOAD_MESSAGE_H

#include <cerrno>
#include <exception>

#include "liblog/trace.h"
#include "libmsg/libmsg.h"
#include "libmsg/message_lines.h"
#include "support/no_cancellation.h"

namespace zelieml
{

// set_header - put a part of a header into a record
inline void set_header(message_part const& part, _s_msg& msg)
{
    std::string& text = msg.*part.header->text;
    if (part.begins) {
        text = part.text;
    } else {
        text += part.text;
    }
}

// load_message - make a record and fill it from a file; what msg_load does
//
// read  called with the new record; returns whether the file could be read
template <class Read>
int load_message(void** msg, message_file const& file, Read&& read)
{
    if (msg_create(msg) != 0) {
        errno = ENOMEM;
        return -1;
    }
    no_cancellation const shielded;
    bool                  loaded = false;
    try {
        loaded = file && read(*static_cast<_s_msg*>(*msg));
    } catch (std::exception const&) {
        errno = ENOMEM;  // traced below, like a file that cannot be read
    }
    if (!loaded) {
        trace_msg("error:ifstream(%s)");
        return -1;
    }
    return 0;
}

}  // namespace zelieml

#endif
