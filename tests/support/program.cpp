#include "tests/support/program.h"

#include <csignal>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

extern char** environ;

namespace zelieml::test
{

program::program(std::vector<std::string> const& words)
{
    std::vector<std::string> copies = words;
    std::vector<char*>       argv;
    for (std::string& word : copies) {
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);

    int ends[2];
    if (::pipe(ends) != 0) {
        throw std::system_error(errno, std::generic_category(), "pipe");
    }
    unique_fd const its_end(ends[0]);
    input_.reset(ends[1]);
    for (int const end : ends) {
        ::fcntl(end, F_SETFD, FD_CLOEXEC);
    }

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, its_end.get(), 0);
    posix_spawn_file_actions_addopen(&actions, 1, dir_.file("out").c_str(),
                                     O_WRONLY | O_CREAT | O_APPEND, 0600);
    posix_spawn_file_actions_addopen(&actions, 2, dir_.file("err").c_str(),
                                     O_WRONLY | O_CREAT | O_APPEND, 0600);
    int const error = ::posix_spawn(&pid_, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0) {
        throw std::system_error(error, std::generic_category(), argv[0]);
    }
}

program::~program()
{
    if (pid_ > 0) {
        ::kill(pid_, SIGKILL);
        ::waitpid(pid_, nullptr, 0);
    }
}

void program::tell(std::string const& text) const
{
    std::size_t done = 0;
    while (done < text.size()) {
        ssize_t const count = ::write(input_.get(), text.data() + done, text.size() - done);
        ASSERT_GT(count, 0) << err();
        done += static_cast<std::size_t>(count);
    }
}

void program::signal(int number) const
{
    ::kill(pid_, number);
}

int program::wait()
{
    tell_the_end();
    int status = 0;
    ::waitpid(pid_, &status, 0);
    pid_ = 0;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

std::string program::out() const
{
    return file_exists(dir_.file("out")) ? read_file(dir_.file("out")) : "";
}

std::string program::err() const
{
    return file_exists(dir_.file("err")) ? read_file(dir_.file("err")) : "";
}

bool program::wait_for(std::string const& text, int times) const
{
    bool const came = wait_until([&] {
        std::string const all  = out();
        std::size_t       from = 0;
        for (int found = 0; found < times; ++found) {
            from = all.find(text, from);
            if (from == all.npos) {
                return false;
            }
            from += text.size();
        }
        return true;
    });
    EXPECT_TRUE(came) << times << " times " << text << " in " << out() << err();
    return came;
}

int run_program(std::vector<std::string> const& words, std::string const& input)
{
    program p(words);
    p.tell(input);
    int const status = p.wait();
    EXPECT_GE(status, 0) << p.err();
    return status;
}

}  // namespace zelieml::test
