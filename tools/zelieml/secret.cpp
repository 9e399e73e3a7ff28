// secret.cpp - passwords from a prompt or a descriptor

#include "tools/zelieml/secret.h"

#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <new>
#include <optional>
#include <sys/select.h>
#include <sysexits.h>
#include <termios.h>
#include <unistd.h>

#include "tools/descriptor.h"
#include "tools/zelieml/failure.h"
#include "tools/zelieml/usage.h"
#include "zelieml.h"

namespace zelieml::program
{

namespace
{

// Those that end or stop a process at a terminal.
constexpr std::array<int, 5> signals = {SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGTSTP};

volatile std::sig_atomic_t caught = 0;

extern "C" void note_signal(int number)
{
    caught = number;
}

// Bytes as they come in.
struct room {
    // A CR LF, and one to see that there are too many.
    char        bytes[secret::most + 3] = {};
    std::size_t size                    = 0;

    room() = default;
    ~room() { overwrite(bytes, sizeof bytes); }
    room(room const&)            = delete;
    room& operator=(room const&) = delete;

    bool is_full() const { return size == sizeof bytes; }
    bool has_line() const { return size > 0 && bytes[size - 1] == '\n'; }
};

// Returns what read returns.
ssize_t read_piece(int fd, room& into)
{
    ssize_t const got = ::read(fd, into.bytes + into.size, sizeof into.bytes - into.size);
    if (got > 0) {
        into.size += static_cast<std::size_t>(got);
    }
    return got;
}

secret password_in(room const& from)
{
    std::string_view text(from.bytes, from.size);
    if (!text.empty() && text.back() == '\n') {
        text.remove_suffix(1);
        if (!text.empty() && text.back() == '\r') {
            text.remove_suffix(1);
        }
    }
    if (text.empty()) {
        throw failure(EX_DATAERR, "the password is empty: type or pass one");
    }
    if (text.find_first_of(std::string_view("\0\r\n", 3)) != text.npos) {
        throw failure(EX_DATAERR, "the password has a line break or a NUL in it: pass it alone");
    }
    if (text.size() > secret::most) {
        throw failure(EX_DATAERR, "the password is longer than " + std::to_string(secret::most) +
                                      " bytes: choose a shorter one");
    }
    return secret(text);
}

secret read_to_end(int fd)
{
    room    all;
    ssize_t got = 0;
    do {
        got = read_piece(fd, all);
    } while ((got > 0 && !all.is_full()) || (got < 0 && errno == EINTR));
    if (got < 0) {
        throw failure(EX_NOINPUT, "the password, from descriptor " + std::to_string(fd), errno,
                      "name a descriptor that is open, or type the password at a terminal");
    }
    return password_in(all);
}

// The terminal with its echo off; the signals are caught while it is waited for. As before when the
// object goes.
class hushed_terminal
{
public:
    explicit hushed_terminal(int fd) : fd_(fd)
    {
        caught = 0;
        sigset_t set;
        ::sigemptyset(&set);
        for (int const number : signals) {
            ::sigaddset(&set, number);
        }
        ::sigprocmask(SIG_BLOCK, &set, &mask_before_);
        struct sigaction noted = {};
        noted.sa_handler       = note_signal;
        for (std::size_t i = 0; i < signals.size(); ++i) {
            ::sigaction(signals[i], nullptr, &actions_before_[i]);
            if (actions_before_[i].sa_handler != SIG_IGN) {
                ::sigaction(signals[i], &noted, nullptr);
            }
        }
        if (::tcgetattr(fd, &before_) == 0) {
            termios hushed = before_;
            hushed.c_lflag &= ~static_cast<tcflag_t>(ECHO | ECHONL);
            hushed_ = ::tcsetattr(fd, TCSAFLUSH, &hushed) == 0;
        }
        error_ = errno;
    }

    ~hushed_terminal()
    {
        // In the background it is somebody else's.
        if (hushed_ && ::tcgetpgrp(fd_) == ::getpgrp()) {
            ::tcsetattr(fd_, TCSAFLUSH, &before_);
        }
        for (std::size_t i = 0; i < signals.size(); ++i) {
            ::sigaction(signals[i], &actions_before_[i], nullptr);
        }
        ::sigprocmask(SIG_SETMASK, &mask_before_, nullptr);
    }
    hushed_terminal(hushed_terminal const&)            = delete;
    hushed_terminal& operator=(hushed_terminal const&) = delete;

    bool is_hushed() const { return hushed_; }
    // Why it is not.
    int error() const { return error_; }

    // Shows the prompt and reads one line. Returns nothing when a signal came before its end.
    std::optional<secret> ask(std::string const& prompt)
    {
        show(prompt);
        room line;
        while (!line.has_line() && !line.is_full()) {
            fd_set ready;
            FD_ZERO(&ready);
            FD_SET(fd_, &ready);
            ssize_t got   = ::pselect(fd_ + 1, &ready, nullptr, nullptr, nullptr, &mask_before_);
            int     error = errno;
            if (got < 0) {
                show("");  // the thread sanitizer runs handlers in calls that it knows
            }
            if (caught != 0) {
                show("\n");
                return std::nullopt;
            }
            if (got > 0) {
                got   = read_piece(fd_, line);
                error = errno;
            }
            if (got == 0 || (got < 0 && error != EINTR)) {
                show("\n");
                if (line.size > 0) {
                    break;
                }
                throw failure(EX_NOINPUT, "no password was typed: type one, or pass it with "
                                          "--password-fd");
            }
        }
        if (line.has_line()) {
            show("\n");
        }
        return password_in(line);
    }

private:
    void show(std::string const& text) const
    {
        // If it cannot be shown, the reading fails as well.
        [[maybe_unused]] auto const written = ::write(fd_, text.data(), text.size());
    }

    int                                          fd_;
    bool                                         hushed_ = false;
    int                                          error_  = 0;
    termios                                      before_ = {};
    sigset_t                                     mask_before_;
    std::array<struct sigaction, signals.size()> actions_before_;
};

bool equal(secret const& one, secret const& other)
{
    return std::strcmp(one.text(), other.text()) == 0;
}

// Returns nothing when a signal came.
std::optional<secret> ask_hushed(int terminal, std::string const& prompt, asked times)
{
    hushed_terminal hushed(terminal);
    if (!hushed.is_hushed()) {
        throw failure(EX_NOINPUT, "the terminal", hushed.error(),
                      "pass the password with --password-fd");
    }
    std::optional<secret> password = hushed.ask(prompt);
    if (!password || times == asked::once) {
        return password;
    }
    std::optional<secret> const again = hushed.ask("The same again: ");
    if (!again) {
        return std::nullopt;
    }
    if (!equal(*password, *again)) {
        throw failure(EX_DATAERR, "the two passwords differ: start again");
    }
    return password;
}

secret ask(int terminal, std::string const& prompt, asked times)
{
    for (;;) {
        std::optional<secret> password = ask_hushed(terminal, prompt, times);
        if (password) {
            return std::move(*password);
        }
        ::raise(caught);  // ends the process, or stops it until it may ask again
    }
}

}  // namespace

void overwrite(void* memory, std::size_t size)
{
    auto* const bytes = static_cast<unsigned char volatile*>(memory);
    for (std::size_t i = 0; i < size; ++i) {
        bytes[i] = 0;
    }
}

secret::secret(std::string_view bytes) : bytes_(bytes.size() + 1)
{
    bytes.copy(bytes_.data(), bytes.size());
}

secret::~secret()
{
    overwrite(bytes_.data(), bytes_.size());
}

secret read_secret(std::string const& prompt, int fd, asked times)
{
    int const from = fd < 0 ? STDIN_FILENO : fd;
    if (::isatty(from) == 0) {
        return read_to_end(from);
    }
    descriptor const own(::open("/dev/tty", O_RDWR | O_NOCTTY | O_CLOEXEC));
    int const        terminal = own ? own.get() : from;
    if (terminal >= FD_SETSIZE) {
        throw failure(EX_NOINPUT, "the terminal", EMFILE, "close descriptors before the program");
    }
    return ask(terminal, prompt, times);
}

void add_password_fd(CLI::App& command, int& fd)
{
    command
        .add_option("--password-fd", fd,
                    "Read the password from this descriptor, to its end, instead of asking")
        ->type_name("N")
        ->check(number_from(0, INT_MAX));
}

std::string encrypted(secret const& password)
{
    // The library only reads it.
    auto* const bytes = reinterpret_cast<unsigned char*>(const_cast<char*>(password.text()));
    std::unique_ptr<unsigned char, decltype(&eml_encrypt_free_passwd)> const stored(
        eml_encrypt_passwd(bytes), eml_encrypt_free_passwd);
    if (stored == nullptr) {
        throw std::bad_alloc();
    }
    return reinterpret_cast<char const*>(stored.get());
}

secret decrypted(std::string const& stored, std::string const& key)
{
    if (stored.empty() || stored.size() % 2 != 0 ||
        stored.find_first_not_of("0123456789ABCDEFabcdef") != stored.npos) {
        throw failure(EX_CONFIG, key +
                                     " is no encrypted password: set it anew (zelieml settings "
                                     "set " +
                                     key + ")");
    }
    std::string                                                              text = stored;
    std::unique_ptr<unsigned char, decltype(&eml_decrypt_free_passwd)> const clear(
        eml_decrypt_passwd(reinterpret_cast<unsigned char*>(text.data())), eml_decrypt_free_passwd);
    if (clear == nullptr) {
        throw std::bad_alloc();
    }
    char* const       bytes = reinterpret_cast<char*>(clear.get());
    std::size_t const size  = std::strlen(bytes);
    secret            password{std::string_view(bytes, size)};
    overwrite(bytes, size);
    return password;
}

}  // namespace zelieml::program
