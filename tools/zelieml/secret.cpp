// secret.cpp - passwords from a prompt or a descriptor

#include "tools/zelieml/secret.h"

#include <cerrno>
#include <sysexits.h>
#include <unistd.h>

#include "tools/zelieml/failure.h"

namespace zelieml::program
{

std::string read_secret(std::string const& /*prompt*/, int descriptor)
{
    std::string text;
    char        piece[1024];
    ssize_t     got = 0;
    while ((got = ::read(descriptor < 0 ? STDIN_FILENO : descriptor, piece, sizeof piece)) > 0) {
        text.append(piece, static_cast<std::size_t>(got));
    }
    if (got < 0) {
        throw failure(EX_NOINPUT, "the password", errno, "name a descriptor that is open");
    }
    return text;
}

}  // namespace zelieml::program
