// notification_peer.cpp - another process, which observes and posts as it is told
//
// Reads commands from its standard input, one a line, and answers each with one line. Strings are
// written as hexadecimal digits, a missing one as "-".
//
//     observe ID NAME OBJECT           what add_observer returned; ID is 0 to 7
//     observe-and-fork ID NAME OBJECT  the same; its callback forks, and notes how the child ended
//     remove ID                        what remove_observer returned
//     wait ID COUNT                    how many it has heard, when there are COUNT or after 20 s
//     values ID                        what it has heard
//     post NAME OBJECT KEY VALUE       what post_notification returned, and the milliseconds
//     burst NAME OBJECT KEY TAG COUNT  posts "TAG 0", "TAG 1", ...
//     fork                             leaves a child that outlives it; the child's process id,
//                                      its number of sockets, and what removing observer 0 returned
//     forks COUNT                      forks while two threads add and remove observers; the number
//                                      of children that had a socket

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <iostream>
#include <mutex>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "platform/notification.h"
#include "tests/support/hex.h"

namespace zelieml::test
{
namespace
{

struct observer {
    std::string              name;
    std::string              object;
    bool                     forks = false;
    std::mutex               guard;
    std::condition_variable  changed;
    std::vector<std::string> values;
};

std::array<observer, 8> observers;

std::string text(std::string const& word)
{
    return word == "-" ? "" : from_hex(word);
}

// Async-signal-safe: what a child of a program with threads may do.
int count_sockets()
{
    int count = 0;
    for (int fd = 0; fd < 256; ++fd) {
        struct stat status = {};
        if (::fstat(fd, &status) == 0 && S_ISSOCK(status.st_mode)) {
            ++count;
        }
    }
    return count;
}

// Ends the process with the thread, when it is to.
struct last_of_thread {
    bool ends_process = false;
    ~last_of_thread()
    {
        if (ends_process) {
            ::_exit(0);
        }
    }
};

thread_local last_of_thread last;

std::string end_of(pid_t child)
{
    int status = 0;
    ::waitpid(child, &status, 0);
    return status == 0 ? "the child ended" : "the child died";
}

void proc(platform::notification_center* /*center*/, void* context,
          platform::notification_text const* /*name*/,
          platform::notification_text const* /*object*/, platform::notification_info const* info)
{
    auto* const self        = static_cast<observer*>(context);
    char        value[4096] = "(no value)";
    platform::notification_value(info, "the key", value, sizeof value);
    std::string noted = value;
    if (self->forks) {
        pid_t const child = ::fork();
        if (child == 0) {
            if (count_sockets() != 0) {
                ::_exit(1);
            }
            ::alarm(60);  // if it does not end
            last.ends_process = true;
            return;  // in the child as in the parent
        }
        noted = end_of(child);
    }
    std::lock_guard<std::mutex> const hold(self->guard);
    self->values.push_back(noted);
    self->changed.notify_all();
}

int observe(std::istream& words, bool forks)
{
    std::size_t id = 0;
    std::string name;
    std::string object;
    words >> id >> name >> object;
    observer& made = observers.at(id);
    made.name      = text(name);
    made.object    = text(object);
    made.forks     = forks;
    return platform::add_observer(made.name.c_str(), made.object.c_str(), proc, &made);
}

int remove(std::istream& words)
{
    std::size_t id = 0;
    words >> id;
    observer& old = observers.at(id);
    return platform::remove_observer(old.name.c_str(), old.object.c_str(), &old);
}

std::size_t wait(std::istream& words)
{
    std::size_t id    = 0;
    std::size_t count = 0;
    words >> id >> count;
    observer&                    heard = observers.at(id);
    std::unique_lock<std::mutex> hold(heard.guard);
    heard.changed.wait_for(hold, std::chrono::seconds(20),
                           [&] { return heard.values.size() >= count; });
    return heard.values.size();
}

std::string values(std::istream& words)
{
    std::size_t id = 0;
    words >> id;
    observer&                         heard = observers.at(id);
    std::lock_guard<std::mutex> const hold(heard.guard);
    std::string                       all;
    for (std::string const& value : heard.values) {
        all += to_hex(value.data(), value.size()) + " ";
    }
    return all;
}

// count  below 0: one post, of the value itself
std::string post(std::istream& words, int count)
{
    std::string name;
    std::string object;
    std::string key;
    std::string value;
    words >> name >> object >> key >> value;
    if (count >= 0) {
        words >> count;
    }
    int        result = 0;
    auto const start  = std::chrono::steady_clock::now();
    auto const tell   = [&](char const* told) {
        result |= platform::post_notification(text(name).c_str(), text(object).c_str(),
                                                text(key).c_str(), told);
    };
    if (count < 0) {
        tell(value == "-" ? nullptr : text(value).c_str());
    }
    for (int i = 0; i < count; ++i) {
        tell((text(value) + " " + std::to_string(i)).c_str());
    }
    auto const time = std::chrono::duration_cast<std::chrono::milliseconds>(
        std::chrono::steady_clock::now() - start);
    return std::to_string(result) + " " + std::to_string(time.count());
}

std::string leave_a_child()
{
    int ends[2] = {};
    if (::pipe(ends) != 0) {
        return "no pipe";
    }
    pid_t const child = ::fork();
    if (child == 0) {
        observer& first       = observers[0];
        int const findings[2] = {
            count_sockets(),
            platform::remove_observer(first.name.c_str(), first.object.c_str(), &first)};
        if (::write(ends[1], findings, sizeof findings) != sizeof findings) {
            ::_exit(1);
        }
        ::alarm(60);  // however the test ends
        for (;;) {
            ::pause();
        }
    }
    int findings[2] = {};
    if (::read(ends[0], findings, sizeof findings) != sizeof findings) {
        return "no child";
    }
    ::close(ends[0]);
    ::close(ends[1]);
    return std::to_string(child) + " " + std::to_string(findings[0]) + " " +
           std::to_string(findings[1]);
}

int fork_amid_changes(std::istream& words)
{
    int count = 0;
    words >> count;
    std::atomic<bool>        enough{false};
    std::vector<std::thread> threads;
    for (int i = 0; i < 2; ++i) {
        threads.emplace_back([&enough, i] {
            observer own;
            own.name   = "any";
            own.object = std::to_string(i);
            while (!enough) {
                platform::add_observer(own.name.c_str(), own.object.c_str(), proc, &own);
                platform::remove_observer(own.name.c_str(), own.object.c_str(), &own);
            }
        });
    }
    int with_sockets = 0;
    for (int i = 0; i < count; ++i) {
        pid_t const child = ::fork();
        if (child == 0) {
            ::_exit(count_sockets());
        }
        int status = 0;
        ::waitpid(child, &status, 0);
        with_sockets += status != 0 ? 1 : 0;
    }
    enough = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
    return with_sockets;
}

std::string answer(std::string const& line)
{
    std::istringstream words(line);
    std::string        command;
    words >> command;
    if (command == "observe" || command == "observe-and-fork") {
        return std::to_string(observe(words, command == "observe-and-fork"));
    }
    if (command == "remove") {
        return std::to_string(remove(words));
    }
    if (command == "wait") {
        return std::to_string(wait(words));
    }
    if (command == "values") {
        return values(words);
    }
    if (command == "post" || command == "burst") {
        return post(words, command == "post" ? -1 : 0);
    }
    if (command == "fork") {
        return leave_a_child();
    }
    if (command == "forks") {
        return std::to_string(fork_amid_changes(words));
    }
    return "what?";
}

// No callback may run when the program ends.
void remove_all()
{
    for (observer& heard : observers) {
        platform::remove_observer(heard.name.c_str(), heard.object.c_str(), &heard);
    }
}

}  // namespace
}  // namespace zelieml::test

int main()
{
    std::string line;
    while (std::getline(std::cin, line)) {
        std::cout << zelieml::test::answer(line) << std::endl;
    }
    zelieml::test::remove_all();
    return 0;
}
