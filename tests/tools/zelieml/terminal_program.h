// terminal_program.h - a program at a terminal of its own, as a shell starts it
//
// Its standard input is the terminal, which controls it; its output goes to files. It is a job of
// its own, which can be stopped and continued.

#ifndef ZELIEML_TESTS_TOOLS_ZELIEML_TERMINAL_PROGRAM_H
#define ZELIEML_TESTS_TOOLS_ZELIEML_TERMINAL_PROGRAM_H

#include <string>
#include <sys/types.h>
#include <vector>

#include "support/unique_fd.h"
#include "tests/support/files.h"

namespace zelieml::test
{

class terminal_program
{
public:
    // Throws std::system_error when there is no terminal to be had.
    explicit terminal_program(std::vector<std::string> const& words);

    // Kills it if it still runs.
    ~terminal_program();
    terminal_program(terminal_program const&)            = delete;
    terminal_program& operator=(terminal_program const&) = delete;

    // Types on the keyboard; "\x03" is an interrupt.
    void type(std::string const& text) const;

    // What the terminal has shown.
    std::string const& shown();
    // Waits until it shows the text so many times; fails the running test when that does not come.
    bool wait_for(std::string const& text, int times = 1);

    // Whether the terminal shows what is typed.
    bool echoes() const;

    void signal(int number) const;
    // Waits until it is stopped; false when it ends, or does not stop in time.
    bool wait_for_stop();
    void resume() const;

    // Waits for the end. Returns the exit status, or 128 and the signal that ended it.
    int wait();

    std::string out() const { return read_file(dir_.file("out")); }
    std::string err() const { return read_file(dir_.file("err")); }

private:
    // The shell: runs the program in the foreground. Does not return.
    void run_shell(char** argv, char const* terminal) const;

    temp_dir    dir_;
    unique_fd   keyboard_;  // and screen
    unique_fd   reports_;   // from the shell: the program's number, then a byte for each stop
    unique_fd   shells_end_;
    unique_fd   continue_;  // to the shell: a byte to continue
    unique_fd   shells_orders_;
    pid_t       shell_   = 0;
    pid_t       program_ = 0;
    std::string shown_;
};

}  // namespace zelieml::test

#endif
