// surroundings.h - what a test changes around a run of the program, for as long as it wants it

#ifndef ZELIEML_TESTS_TOOLS_ZELIEML_SURROUNDINGS_H
#define ZELIEML_TESTS_TOOLS_ZELIEML_SURROUNDINGS_H

#include <clocale>
#include <cstdlib>
#include <fcntl.h>
#include <optional>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <sysexits.h>
#include <unistd.h>
#include <vector>

#include "support/unique_fd.h"
#include "tests/support/files.h"
#include "tests/support/workplace.h"
#include "tests/tools/zelieml/zelieml_program.h"

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

// Whether any user may start a program, which can be in a directory of root's own.
inline bool all_may_start(std::string const& program)
{
    for (std::size_t end = program.size(); end != program.npos && end > 0;
         end             = program.rfind('/', end - 1)) {
        struct stat status = {};
        if (::stat(program.substr(0, end).c_str(), &status) != 0 ||
            (status.st_mode & S_IXOTH) == 0) {
            return false;
        }
    }
    return true;
}

// Runs the program as one who may enter the work directory and not write to it. Root becomes another
// user with all of his ids: a sanitizer cannot look for leaks otherwise.
inline outcome run_without_rights(workplace const& work, std::vector<std::string> const& arguments,
                                  std::string const& input)
{
    temp_dir const dir;
    write_file(dir.file("in"), input);
    unique_fd const in(::open(dir.file("in").c_str(), O_RDONLY));
    unique_fd const out(::open(dir.file("out").c_str(), O_WRONLY | O_CREAT, 0600));
    unique_fd const err(::open(dir.file("err").c_str(), O_WRONLY | O_CREAT, 0600));

    std::vector<std::string> words = zelieml_command(arguments);
    std::vector<char*>       argv;
    for (std::string& word : words) {
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);

    ::chmod(work.outside().c_str(), 0755);
    ::chmod(work.path(), 0555);
    constexpr uid_t another_user = 65534;
    bool const      is_root      = ::geteuid() == 0;
    pid_t const     child        = ::fork();
    if (child == 0) {
        bool const ready =
            ::dup2(in.get(), 0) == 0 && ::dup2(out.get(), 1) == 1 && ::dup2(err.get(), 2) == 2 &&
            (!is_root || (::setgid(another_user) == 0 && ::setuid(another_user) == 0));
        if (ready) {
            ::execv(argv[0], argv.data());
        }
        ::_exit(EX_OSERR);
    }
    int status = -1;
    ::waitpid(child, &status, 0);
    ::chmod(work.path(), 0755);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, read_file(dir.file("out")),
            read_file(dir.file("err"))};
}

// A locale whose charset is not UTF-8.
inline constexpr char eucjp_locale[] = "ja_JP.eucJP";

// Makes it where the system has not got it. Debian's package "locales" has the files for that.
inline bool make_locale(std::string const& path)
{
    bool const there = std::setlocale(LC_CTYPE, eucjp_locale) != nullptr;
    std::setlocale(LC_CTYPE, "C");
    return there || (::access("/usr/bin/localedef", X_OK) == 0 &&
                     run_program({"/usr/bin/localedef", "-f", "EUC-JP", "-i", "ja_JP", path}) == 0);
}

}  // namespace zelieml::test

#endif
