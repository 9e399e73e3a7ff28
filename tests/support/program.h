// program.h - another program, as a test starts it

#ifndef ZELIEML_TESTS_SUPPORT_PROGRAM_H
#define ZELIEML_TESTS_SUPPORT_PROGRAM_H

#include <string>
#include <sys/types.h>
#include <vector>

#include "support/unique_fd.h"
#include "tests/support/files.h"
#include "tests/support/wait_until.h"

namespace zelieml::test
{

class program
{
public:
    // Starts it; its standard input is a pipe that the test holds open. Throws std::system_error
    // when it cannot be started.
    explicit program(std::vector<std::string> const& words);

    // Kills it if it still runs.
    ~program();
    program(program const&)            = delete;
    program& operator=(program const&) = delete;

    pid_t pid() const { return pid_; }

    // Writes to its standard input, and says that there is no more.
    void tell(std::string const& text) const;
    void tell_the_end() { input_.reset(); }

    void signal(int number) const;

    // Waits for the end, if need be after telling the end of the input. Returns the exit status, or
    // minus the signal that ended it.
    int wait();

    // What it has written so far.
    std::string out() const;
    std::string err() const;

    // Waits until standard output has the text so many times; fails the running test when that does
    // not come.
    bool wait_for(std::string const& text, int times = 1) const;

private:
    temp_dir  dir_;
    unique_fd input_;
    pid_t     pid_ = 0;
};

// Runs a program with this input to its end. Returns the exit status, or minus the signal.
int run_program(std::vector<std::string> const& words, std::string const& input = "");

}  // namespace zelieml::test

#endif
