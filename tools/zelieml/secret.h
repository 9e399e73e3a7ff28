// secret.h - passwords, which never come from the command line

#ifndef ZELIEML_TOOLS_ZELIEML_SECRET_H
#define ZELIEML_TOOLS_ZELIEML_SECRET_H

#include <CLI/CLI.hpp>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace zelieml::program
{

// A password. Its bytes are overwritten when it goes. Of one that was asked for there is no second
// copy; what reads, encrypts or stores one may leave copies in memory.
class secret
{
public:
    static constexpr std::size_t most = 1023;  // bytes

    explicit secret(std::string_view bytes);
    secret(secret&& other) noexcept            = default;
    secret& operator=(secret&& other) noexcept = delete;
    ~secret();

    // With a NUL at its end.
    char const* text() const { return bytes_.data(); }
    std::size_t size() const { return bytes_.size() - 1; }

private:
    std::vector<char> bytes_;
};

// overwrite - for memory that held a password
void overwrite(void* memory, std::size_t size);

enum class asked : char {
    once,
    twice  // where a slip would not be noticed
};

// read_secret - a password from a prompt or a descriptor
//
// prompt  asked for on the terminal of the process, which shows nothing of the answer
// fd      read to its end instead of asking; one line break at the end does not count. Below 0: 0.
//         A terminal is never read so: it means to ask.
// times   how often to ask
//
// Bytes are taken as they are. Throws a failure: EX_NOINPUT when there is nothing to read from,
// EX_DATAERR for an empty password, one with a NUL or a line break in it, one of more than 1023
// bytes, or two answers that differ. The terminal shows what is typed again afterwards, also when a
// signal stops or ends the process meanwhile.
secret read_secret(std::string const& prompt, int fd, asked times = asked::once);

// add_password_fd - the option --password-fd
//
// fd  receives the descriptor; unchanged when the option is not given
//
// A password given to the command otherwise, as --password, as a word too many or as the value of an
// option, is refused and not repeated.
void add_password_fd(CLI::App& command, int& fd);

// encrypted, decrypted - a password as the settings file holds it
//
// decrypted throws a failure (EX_CONFIG), naming the key, for what is no encrypted password.
std::string encrypted(secret const& password);
secret      decrypted(std::string const& stored, std::string const& key);

}  // namespace zelieml::program

#endif
