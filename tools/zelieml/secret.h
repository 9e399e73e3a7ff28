// secret.h - passwords, which never come from the command line

#ifndef ZELIEML_TOOLS_ZELIEML_SECRET_H
#define ZELIEML_TOOLS_ZELIEML_SECRET_H

#include <string>

namespace zelieml::program
{

// read_secret - a password from a prompt or a descriptor
//
// prompt      asked for on the terminal of the process, which shows nothing of the answer
// descriptor  read to its end instead of asking; one line break at the end does not count. Below 0:
//             ask; where there is no terminal, the descriptor is 0.
//
// Bytes are taken as they are. Throws a failure: EX_NOINPUT when there is nothing to read from,
// EX_DATAERR for an empty password, one with a NUL or a line break in it, or one of more than
// 1023 bytes. The terminal shows what is typed again afterwards, also when a signal ends the
// process meanwhile.
std::string read_secret(std::string const& prompt, int descriptor);

}  // namespace zelieml::program

#endif
