// message_body.h - the body of a long message, which stays in its file until it is sent
//
// What the file gives is as it was when the headers were loaded: a file that changes meanwhile
// cannot be read.

#ifndef ZELIEML_LIBMSG_MESSAGE_BODY_H
#define ZELIEML_LIBMSG_MESSAGE_BODY_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>

#include "libmsg/message_lines.h"

namespace zelieml
{

class message_body
{
public:
    // load - make a record from a file, as msg_load does, but without the body
    //
    // file  the caller keeps it open and where it is as long as the body is read
    //
    // The whole file is read. Result and errno are those of msg_load. Once only.
    int load(void** msg, message_file const& file);

    // How many bytes the body has at most.
    std::int64_t most() const { return most_; }

    // read - the next bytes
    //
    // out    receives them; they contain no NUL
    // size   their number
    // count  receives how many there were: fewer only at the end of the body
    //
    // Allocates nothing.
    //
    // Returns false with errno when the file cannot be read, 0 when it has changed: the end of the
    // body is only given if nothing has.
    bool read(char* out, std::size_t size, std::size_t& count);

private:
    std::unique_ptr<char[]>      buffer_;
    std::optional<message_lines> lines_;
    message_part                 part_;  // what is left of it
    reading                      loaded_;
    std::int64_t                 most_ = 0;
};

}  // namespace zelieml

#endif
