// playground.h - a work directory and a mail server, and child processes that play a scenario there

#ifndef ZELIEML_TESTS_FAULTS_PLAYGROUND_H
#define ZELIEML_TESTS_FAULTS_PLAYGROUND_H

#include <cerrno>
#include <functional>
#include <map>
#include <new>
#include <stdexcept>
#include <string>
#include <sys/mman.h>
#include <system_error>
#include <utility>
#include <vector>

#include "tests/faults/calls.h"
#include "tests/faults/scenarios.h"
#include "tests/support/files.h"
#include "tests/support/mail_server.h"

namespace zelieml::test
{

constexpr long page_size = 4096;  // of a disk

// What a process may run out of.
struct shortage {
    int  descriptors = -1;     // as many are left; negative: enough
    long file_size   = -1;     // no file may become longer; negative: any
    int  pages       = -1;     // are free on the disk; negative: enough
    bool read_only   = false;  // the work directory cannot be written to
};

struct trial {
    scenario_body* body = nullptr;
    call_plan      plan = {};
    shortage       lack = {};
};

// Lets playgrounds have small disks, from here to the end of this process and its children.
//
// Returns why that is impossible; empty: it is possible.
std::string allow_small_disks();

// What came of a trial.
struct sighting {
    bool        hung   = false;
    int         status = 0;  // of the process, as waitpid has it
    outcome     told   = {};
    call_record record = {};
};

// Runs the scenario of this name, or all when it is empty.
//
// run  plays one and returns how many faults it found
//
// Returns their sum. Throws std::invalid_argument when there is no such scenario.
template <class Scenarios, class Run>
int run_scenarios(Scenarios const& scenarios, std::string const& name, Run&& run)
{
    int  found = 0;
    bool known = false;
    for (auto const& which : scenarios) {
        if (name.empty() || name == which.name) {
            known = true;
            found += run(which);
        }
    }
    if (!known) {
        throw std::invalid_argument("there is no scenario " + name);
    }
    return found;
}

// Memory that a child shares with its parent.
template <class T>
class shared
{
public:
    shared()
        : memory_(
              ::mmap(nullptr, sizeof(T), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0))
    {
        if (memory_ == MAP_FAILED) {
            throw std::system_error(errno, std::generic_category(), "mmap");
        }
        new (memory_) T();
    }
    ~shared() { ::munmap(memory_, sizeof(T)); }
    shared(shared const&)            = delete;
    shared& operator=(shared const&) = delete;

    T* operator->() const { return static_cast<T*>(memory_); }
    T& operator*() const { return *static_cast<T*>(memory_); }

private:
    void* memory_;
};

// What a scenario finds.
struct stage {
    std::string                                      settings;  // besides the servers and ports
    std::vector<std::string>                         mailbox     = {};
    std::vector<std::pair<std::string, std::string>> files       = {};     // name and contents
    std::vector<mailserver::fault>                   faults      = {};     // of the server
    bool                                             no_settings = false;  // no settings file
};

class playground
{
public:
    // small_disk  everything lies on a disk of its own, see allow_small_disks; throws
    //             std::system_error when that is impossible
    explicit playground(stage const& set_up, bool small_disk = false);
    ~playground();

    // Plays it in a process of its own, and waits until the server has heard all of it.
    sighting play(trial const& what);

    // How many mails came for "one@office.test" and "two@office.test".
    std::vector<int> copies() const;

    // How many mails came, for whomever.
    int mails() const { return static_cast<int>(server_.mails().size()); }

    // The files of the work directory by their names. A name with a backslash lies beside it.
    std::map<std::string, std::string> files() const;

    // The paths of the socket files of engines.
    std::vector<std::string> sockets() const;

    // What the scenario was told, and what has come of it, without what says nothing:
    // "started 0, results 0 0, reports 0 0, mails 2, sent 1 1".
    std::string account_of(outcome const& told) const;

    // What was said to the server and by it, see mail_server.h.
    std::vector<std::string> sessions() const { return server_.sessions(); }

    std::size_t        mails_in_mailbox() { return server_.mailbox().size(); }
    scene const&       where() const { return scene_; }
    std::string const& root() const { return directory_.path(); }

private:
    struct report {
        outcome     told   = {};
        call_record record = {};
    };

    [[noreturn]] void play_here(trial const& what) const;
    void              limit(shortage const& lack) const;
    void              fill_disk(int pages_free) const;

    temp_dir const directory_;
    bool const     small_disk_;
    mail_server    server_;
    scene          scene_ = {};
    shared<report> report_;
};

bool ends_with(std::string const& text, std::string const& end);

// Whether a file of that name in a work directory is a message.
bool is_message(std::string const& name);

// What a message file of these scenarios ends with.
extern char const message_end[];

// Calls work(i) for all i below count, in several processes at once. What it returns is summed.
long long in_parallel(int count, std::function<long long(int)> const& work);

}  // namespace zelieml::test

#endif
