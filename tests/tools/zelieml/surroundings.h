// surroundings.h - what a test changes around a run of the program, for as long as it wants it

#ifndef ZELIEML_TESTS_TOOLS_ZELIEML_SURROUNDINGS_H
#define ZELIEML_TESTS_TOOLS_ZELIEML_SURROUNDINGS_H

#include <cstdlib>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/support/workplace.h"

namespace zelieml::test
{

// A variable of the environment.
class set_for_now
{
public:
    set_for_now(char const* name, std::string const& value) : name_(name)
    {
        if (char const* const before = std::getenv(name)) {
            before_ = before;
        }
        ::setenv(name, value.c_str(), 1);
    }
    ~set_for_now() { before_ ? ::setenv(name_, before_->c_str(), 1) : ::unsetenv(name_); }
    set_for_now(set_for_now const&)            = delete;
    set_for_now& operator=(set_for_now const&) = delete;

private:
    char const* const          name_;
    std::optional<std::string> before_;
};

// A work directory that this process, and what it starts, can enter but not write to: root becomes
// another user.
class not_to_be_written_to
{
public:
    explicit not_to_be_written_to(workplace const& work) : path_(work.path()), user_(::geteuid())
    {
        ::chmod(work.outside().c_str(), 0755);
        ::chmod(path_.c_str(), 0555);
        if (user_ == 0) {
            EXPECT_EQ(::seteuid(65534), 0);
        }
    }
    ~not_to_be_written_to()
    {
        EXPECT_EQ(::seteuid(user_), 0);
        ::chmod(path_.c_str(), 0755);
    }
    not_to_be_written_to(not_to_be_written_to const&)            = delete;
    not_to_be_written_to& operator=(not_to_be_written_to const&) = delete;

    // Whether that user may start this program, which can be in a directory of root's own.
    static bool may_start(char const* program)
    {
        return ::faccessat(AT_FDCWD, program, X_OK, AT_EACCESS) == 0;
    }

private:
    std::string const path_;
    uid_t const       user_;
};

}  // namespace zelieml::test

#endif
