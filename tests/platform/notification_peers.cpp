#include "tests/platform/notification_peers.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <sstream>
#include <sys/prctl.h>
#include <sys/wait.h>

#include "tests/support/hex.h"
#include "tests/support/notification_room.h"

namespace zelieml::test
{

std::string hex(std::string const& text)
{
    return text.empty() ? "-" : to_hex(text.data(), text.size());
}

notification_peer::notification_peer(surroundings const& around)
{
    std::signal(SIGPIPE, SIG_IGN);  // a peer may be dead when it is told something
    int to_peer[2]   = {-1, -1};
    int from_peer[2] = {-1, -1};
    // Opened here: another user may have no way to the build's folder.
    unique_fd const program(::open(NOTIFICATION_PEER, O_RDONLY | O_CLOEXEC));
    if (!program || ::pipe2(to_peer, O_CLOEXEC) != 0 || ::pipe2(from_peer, O_CLOEXEC) != 0) {
        ADD_FAILURE() << "no program or no pipe for a peer";
        return;
    }
    std::vector<char*> environment;
    environment.reserve(around.environment.size() + 1);
    for (std::string const& variable : around.environment) {
        environment.push_back(const_cast<char*>(variable.c_str()));
    }
    environment.push_back(nullptr);
    char        name[]      = "notification_peer";
    char* const arguments[] = {name, nullptr};

    process_ = ::fork();
    if (process_ == 0) {
        bool const ready = ::dup2(to_peer[0], 0) == 0 && ::dup2(from_peer[1], 1) == 1 &&
                           (around.user == ::geteuid() ||
                            (::setgroups(0, nullptr) == 0 && ::setgid(around.user) == 0 &&
                             ::setuid(around.user) == 0)) &&
                           ::chdir(around.directory.c_str()) == 0 &&
                           ::prctl(PR_SET_PDEATHSIG, SIGKILL) == 0;  // a stopped one as well
        if (ready) {
            ::fexecve(program.get(), arguments, environment.data());
        }
        ::_exit(127);
    }
    ::close(to_peer[0]);
    ::close(from_peer[1]);
    commands_.reset(to_peer[1]);
    answers_.reset(from_peer[0]);
}

notification_peer::~notification_peer()
{
    if (process_ <= 0) {
        return;
    }
    // It ends by itself, so that a build that measures coverage sees it.
    commands_.reset();
    ::kill(process_, SIGCONT);
    for (int tries = 0; tries < 400; ++tries) {
        if (::waitpid(process_, nullptr, WNOHANG) != 0) {
            return;
        }
        ::usleep(5000);
    }
    ::kill(process_, SIGKILL);
    ::waitpid(process_, nullptr, 0);
}

void notification_peer::tell(std::string const& command)
{
    std::string const line = command + "\n";
    if (::write(commands_.get(), line.data(), line.size()) != static_cast<ssize_t>(line.size())) {
        ADD_FAILURE() << "the peer takes no command: " << command;
    }
}

std::string notification_peer::answer()
{
    for (;;) {
        std::size_t const end = unread_.find('\n');
        if (end != std::string::npos) {
            std::string line = unread_.substr(0, end);
            unread_.erase(0, end + 1);
            return line;
        }
        char          bytes[65536];
        ssize_t const count = ::read(answers_.get(), bytes, sizeof bytes);
        if (count <= 0) {
            ADD_FAILURE() << "the peer has ended";
            return {};
        }
        unread_.append(bytes, static_cast<std::size_t>(count));
    }
}

std::string notification_peer::ask(std::string const& command)
{
    tell(command);
    return answer();
}

std::string notification_peer::observe(std::string const& object, int id)
{
    return ask("observe " + std::to_string(id) + " " + hex(test_name) + " " + hex(object));
}

std::string notification_peer::remove(int id)
{
    return ask("remove " + std::to_string(id));
}

std::size_t notification_peer::wait_for(std::size_t count, int id)
{
    return std::stoul("0" + ask("wait " + std::to_string(id) + " " + std::to_string(count)));
}

std::vector<std::string> notification_peer::values(int id)
{
    std::istringstream       words(ask("values " + std::to_string(id)));
    std::vector<std::string> all;
    for (std::string word; words >> word;) {
        all.push_back(from_hex(word));
    }
    return all;
}

notification_peer::posted notification_peer::post(std::string const& object,
                                                  std::string const& value)
{
    std::istringstream words(
        ask("post " + hex(test_name) + " " + hex(object) + " " + hex(test_key) + " " + hex(value)));
    posted outcome = {-2, -1};
    words >> outcome.result >> outcome.ms;
    return outcome;
}

void notification_peer::begin_burst(std::string const& object, std::string const& tag, int count)
{
    tell("burst " + hex(test_name) + " " + hex(object) + " " + hex(test_key) + " " + hex(tag) +
         " " + std::to_string(count));
}

void notification_peer::signal(int number) const
{
    ASSERT_GT(process_, 0);
    ASSERT_EQ(::kill(process_, number), 0);
    if (number == SIGSTOP) {
        int status = 0;
        ASSERT_EQ(::waitpid(process_, &status, WUNTRACED), process_);
        ASSERT_TRUE(WIFSTOPPED(status));
    }
    if (number == SIGKILL) {
        // Ended, and still to be waited for.
        siginfo_t ended = {};
        ASSERT_EQ(::waitid(P_PID, static_cast<id_t>(process_), &ended, WEXITED | WNOWAIT), 0);
    }
}

}  // namespace zelieml::test
