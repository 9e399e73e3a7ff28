#include "tests/tools/zelieml/terminal_program.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <system_error>
#include <termios.h>

#include "tests/support/wait_until.h"

namespace zelieml::test
{

namespace
{

constexpr int limit_ms = 20000;

[[noreturn]] void fail(char const* what)
{
    throw std::system_error(errno, std::generic_category(), what);
}

void make_pipe(unique_fd& out, unique_fd& in)
{
    int ends[2];
    if (::pipe(ends) != 0) {
        fail("pipe");
    }
    out.reset(ends[0]);
    in.reset(ends[1]);
    for (int const end : ends) {
        ::fcntl(end, F_SETFD, FD_CLOEXEC);
    }
}

// Reads so many bytes if they come in time.
bool read_in_time(int fd, void* into, std::size_t size)
{
    pollfd entry = {fd, POLLIN, 0};
    return ::poll(&entry, 1, limit_ms) == 1 && ::read(fd, into, size) == static_cast<ssize_t>(size);
}

void open_as(char const* path, int flags, int fd)
{
    ::dup2(::open(path, flags, 0600), fd);
}

}  // namespace

terminal_program::terminal_program(std::vector<std::string> const& words)
    : keyboard_(::posix_openpt(O_RDWR | O_NOCTTY))
{
    if (!keyboard_ || ::grantpt(keyboard_.get()) != 0 || ::unlockpt(keyboard_.get()) != 0) {
        fail("posix_openpt");
    }
    ::fcntl(keyboard_.get(), F_SETFD, FD_CLOEXEC);
    std::string const terminal = ::ptsname(keyboard_.get());
    make_pipe(reports_, shells_end_);
    make_pipe(shells_orders_, continue_);

    std::vector<std::string> copies = words;
    std::vector<char*>       argv;
    for (std::string& word : copies) {
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);

    shell_ = ::fork();
    if (shell_ < 0) {
        fail("fork");
    }
    if (shell_ == 0) {
        run_shell(argv.data(), terminal.c_str());
    }
    if (!read_in_time(reports_.get(), &program_, sizeof program_)) {
        fail("the shell");
    }
    ::fcntl(keyboard_.get(), F_SETFL, O_NONBLOCK);
}

void terminal_program::run_shell(char** argv, char const* terminal) const
{
    rlimit const none = {0, 0};
    ::setrlimit(RLIMIT_CORE, &none);
    ::signal(SIGTTOU, SIG_IGN);
    ::setsid();
    open_as(terminal, O_RDWR, STDIN_FILENO);
    ::ioctl(STDIN_FILENO, TIOCSCTTY, 0);

    pid_t const program = ::fork();
    if (program == 0) {
        ::setpgid(0, 0);
        ::tcsetpgrp(STDIN_FILENO, ::getpid());
        ::signal(SIGTTOU, SIG_DFL);
        open_as(dir_.file("out").c_str(), O_WRONLY | O_CREAT | O_APPEND, STDOUT_FILENO);
        open_as(dir_.file("err").c_str(), O_WRONLY | O_CREAT | O_APPEND, STDERR_FILENO);
        ::execv(argv[0], argv);
        ::_exit(127);
    }
    ::setpgid(program, program);
    [[maybe_unused]] auto done   = ::write(shells_end_.get(), &program, sizeof program);
    int                   status = 0;
    while (::waitpid(program, &status, WUNTRACED) == program && WIFSTOPPED(status)) {
        ::tcsetpgrp(STDIN_FILENO, ::getpgrp());
        char byte = 's';
        done      = ::write(shells_end_.get(), &byte, 1);
        done      = ::read(shells_orders_.get(), &byte, 1);
        ::tcsetpgrp(STDIN_FILENO, program);
        ::kill(-program, SIGCONT);
    }
    // The terminal outlives the program, so that the test can look at it.
    char byte = 'e';
    done      = ::write(shells_end_.get(), &byte, 1);
    done      = ::read(shells_orders_.get(), &byte, 1);
    ::_exit(WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status));
}

terminal_program::~terminal_program()
{
    if (shell_ > 0) {
        ::kill(program_, SIGKILL);
        ::kill(shell_, SIGKILL);
        ::waitpid(shell_, nullptr, 0);
    }
}

void terminal_program::type(std::string const& text) const
{
    EXPECT_EQ(::write(keyboard_.get(), text.data(), text.size()),
              static_cast<ssize_t>(text.size()));
}

std::string const& terminal_program::shown()
{
    char    piece[1024];
    ssize_t got = 0;
    while ((got = ::read(keyboard_.get(), piece, sizeof piece)) > 0) {
        shown_.append(piece, static_cast<std::size_t>(got));
    }
    return shown_;
}

bool terminal_program::wait_for(std::string const& text, int times)
{
    bool const came = wait_until([&] {
        std::string const& all  = shown();
        std::size_t        from = 0;
        for (int found = 0; found < times; ++found) {
            from = all.find(text, from);
            if (from == all.npos) {
                return false;
            }
            from += text.size();
        }
        return true;
    });
    EXPECT_TRUE(came) << times << " times " << text << " in " << shown_ << err();
    return came;
}

bool terminal_program::echoes() const
{
    termios state = {};
    EXPECT_EQ(::tcgetattr(keyboard_.get(), &state), 0);
    return (state.c_lflag & ECHO) != 0;
}

void terminal_program::signal(int number) const
{
    ::kill(program_, number);
}

bool terminal_program::wait_for_stop()
{
    char byte = 0;
    return read_in_time(reports_.get(), &byte, 1) && byte == 's';
}

void terminal_program::resume() const
{
    EXPECT_EQ(::write(continue_.get(), "", 1), 1);
}

int terminal_program::wait()
{
    char byte = 0;
    EXPECT_TRUE(read_in_time(reports_.get(), &byte, 1)) << shown();
    EXPECT_EQ(byte, 'e');
    EXPECT_TRUE(echoes());
    shown();
    resume();
    int status = 0;
    ::waitpid(shell_, &status, 0);
    shell_ = 0;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

}  // namespace zelieml::test
