// message_head.h - what a list shows of a message file
//
// Any user may write to a work directory, so a message file can be anything.

#ifndef ZELIEML_TOOLS_ZELIEML_MESSAGE_HEAD_H
#define ZELIEML_TOOLS_ZELIEML_MESSAGE_HEAD_H

#include <string>

namespace zelieml::program
{

// In UTF-8 where the message is what its encoding says.
struct message_head {
    std::string from;
    std::string to;
    std::string cc;
    std::string subject;
    std::string fault;  // why the file was not read, or is no message; or empty
};

// read_head - of the message file with this path
//
// Links, pipes, files with a second name and those of more than 64 MiB are not read, and of the
// others the first 64 KiB. A field is cut to 1 KiB. What is opened is looked at, not what has its
// name afterwards.
message_head read_head(std::string const& path);

}  // namespace zelieml::program

#endif
