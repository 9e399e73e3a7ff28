// service_program.h - the service, run by a test that is its service manager
//
// ZELIEML_PROGRAM is the program as it is shipped. QUICK_PROGRAM is the same with an engine whose
// second lasts a millisecond. HOURS_PROGRAM is that with an engine whose half hour lasts a second or
// two, and it tries a message that failed again after a second.

#ifndef ZELIEML_TESTS_TOOLS_ZELIEML_SERVICE_PROGRAM_H
#define ZELIEML_TESTS_TOOLS_ZELIEML_SERVICE_PROGRAM_H

#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <vector>

#include "support/unique_fd.h"
#include "tests/support/contains.h"
#include "tests/support/files.h"
#include "tests/support/program.h"
#include "tests/support/wait_until.h"
#include "tests/support/workplace.h"
#include "tests/tools/zelieml/surroundings.h"

namespace zelieml::test
{

// What a service tells its manager.
class manager_socket
{
public:
    // name  of the socket; "@..." is no file's
    explicit manager_socket(std::string const& name = "")
        : name_(name.empty() ? dir_.file("n") : name)
    {
        sockaddr_un address = {};
        address.sun_family  = AF_UNIX;
        EXPECT_LT(name_.size(), sizeof address.sun_path);
        name_.copy(address.sun_path, sizeof address.sun_path - 1);
        if (name_[0] == '@') {
            address.sun_path[0] = '\0';
        }
        socket_.reset(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
        EXPECT_EQ(::bind(socket_.get(), reinterpret_cast<sockaddr*>(&address),
                         static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name_.size())),
                  0);
        ::chmod(name_.c_str(), 0777);
        ::chmod(dir_.path().c_str(), 0755);
    }

    std::string const& name() const { return name_; }

    // Sends itself what nobody asks for until there is no more room.
    void stuff() const
    {
        sockaddr_un address = {};
        socklen_t   size    = sizeof address;
        EXPECT_EQ(::getsockname(socket_.get(), reinterpret_cast<sockaddr*>(&address), &size), 0);
        unique_fd const sender(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
        while (::sendto(sender.get(), "x", 1, 0, reinterpret_cast<sockaddr*>(&address), size) ==
               1) {
        }
    }

    // All that it has been told so far, with LF after each message.
    std::string const& told()
    {
        char    message[1024];
        ssize_t got = 0;
        while ((got = ::recv(socket_.get(), message, sizeof message, 0)) > 0) {
            told_.append(message, static_cast<std::size_t>(got)).append("\n");
        }
        return told_;
    }

    bool hears(std::string const& text, int times = 1)
    {
        return wait_until([&] {
            std::size_t from = 0;
            for (int found = 0; found < times; ++found) {
                from = told().find(text, from);
                if (from == told_.npos) {
                    return false;
                }
                from += text.size();
            }
            return true;
        });
    }

private:
    temp_dir    dir_;
    std::string name_;
    unique_fd   socket_;
    std::string told_;
};

// A service that is ready, unless it has ended.
class service_program
{
public:
    service_program(std::string const& path, std::string const& workdir,
                    strings const& arguments = {"--json"})
    {
        set_for_now const told("NOTIFY_SOCKET", manager.name());
        strings           words = {path, "engine", "-w", workdir};
        words.insert(words.end(), arguments.begin(), arguments.end());
        run_ = std::make_unique<program>(words);
    }

    bool is_ready() { return manager.hears("READY=1"); }

    program&       run() { return *run_; }
    program const& run() const { return *run_; }

    // How often it has sent a mail so far.
    int sent() const { return count_of(run_->out(), "\"code\":0,"); }

    // Its exit status when it is told to end.
    int end()
    {
        run_->signal(SIGTERM);
        return run_->wait();
    }

    manager_socket manager;

private:
    std::unique_ptr<program> run_;
};

// The files that a service has taken from a work directory, and not given up.
inline strings held_in(std::string const& workdir)
{
    std::string const folder = workdir + "/.zelieml/sending";
    return file_exists(folder) ? list_directory(folder) : strings();
}

// The messages that wait in a work directory, taken by a service or not, by the names that they were
// posted under.
inline strings waiting_in(std::string const& workdir)
{
    strings names;
    for (std::string const& name : list_directory(workdir)) {
        if (name.find(".sme") != name.npos) {
            names.push_back(name);
        }
    }
    for (std::string const& file : held_in(workdir)) {
        names.push_back(file.substr(0, file.rfind('~')));
    }
    return sorted(names);
}

// Why an attempt at a message that waits failed, as the service has kept it.
inline std::string kept_reason(std::string const& workdir, std::string const& name)
{
    std::string const folder = workdir + "/.zelieml/reasons/waiting";
    for (std::string const& key : list_directory(folder)) {
        if (key.substr(0, key.rfind('~')) == name) {
            return read_file(folder + "/" + key);
        }
    }
    return "";
}

// Posts as a program with the library does.
inline void post(workplace const& work, std::string const& subject)
{
    EXPECT_EQ(post_mail(work.path(), "zelieml_stocksymbol", subject), 0);
}

// A message file, as a program writes it that does not know the library.
inline void write_message(std::string const& path, std::string const& subject)
{
    write_file(path, "from: tim@a.test\nto: anna@b.test\nsubject: " + subject +
                         "\nencoding: UTF-8\n\nThe tray is empty.\n");
}

}  // namespace zelieml::test

#endif
