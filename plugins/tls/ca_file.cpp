// ca_file.cpp - the file with certificates of authorities

#include "plugins/tls/ca_file.h"

#include <cerrno>
#include <fcntl.h>

#include "platform/error_text.h"
#include "plugins/tls/failure.h"

namespace zelieml::tls
{

namespace
{

constexpr std::size_t most_bytes = 16 << 20;

[[noreturn]] void unreadable(std::string const& path, char const* why)
{
    throw failure{eml_cause_settings, "the authorities in " + path + " cannot be read: " + why};
}

}  // namespace

unique_fd open_ca_file(std::string const& path, struct stat& is)
{
    unique_fd file =
        above_standard(unique_fd(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC)));
    if (!file || ::fstat(file.get(), &is) != 0) {
        unreadable(path, platform::error_text(errno).c_str());
    }
    if (!S_ISREG(is.st_mode)) {
        unreadable(path, "it is not a regular file");
    }
    return file;
}

std::string read_ca_file(unique_fd const& file, std::string const& path)
{
    std::string text;
    char        piece[16384];
    while (text.size() <= most_bytes) {
        ssize_t const got = ::read(file.get(), piece, sizeof piece);
        if (got == 0) {
            return text;
        }
        if (got > 0) {
            text.append(piece, static_cast<std::size_t>(got));
        } else if (errno != EINTR) {
            unreadable(path, platform::error_text(errno).c_str());
        }
    }
    unreadable(path, "it has more than 16 MiB");
}

void no_certificates(std::string const& path)
{
    throw failure{eml_cause_settings, "there is no certificate in PEM in " + path};
}

void damaged_certificate(std::string const& path)
{
    throw failure{eml_cause_settings, "a certificate in " + path + " cannot be read"};
}

}  // namespace zelieml::tls
