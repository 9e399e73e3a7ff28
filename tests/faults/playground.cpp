// playground.cpp - see playground.h

#include "tests/faults/playground.h"

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <filesystem>
#include <poll.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace zelieml::test
{

namespace
{

constexpr int   limit_ms = 20000;  // the longest documented wait, 15 s for a reply, and some more
constexpr uid_t nobody   = 65534;

constexpr char disk_size[] = "size=128k";

int entries(char const* directory)
{
    int        count = 0;
    DIR* const open  = ::opendir(directory);
    while (open != nullptr && ::readdir(open) != nullptr) {
        ++count;
    }
    if (open != nullptr) {
        ::closedir(open);
    }
    return count;
}

// A thread that has been joined may still be listed for a moment.
int threads_left(int before)
{
    int more = 0;
    for (int i = 0; i < 200 && (more = entries("/proc/self/task") - before) > 0; ++i) {
        ::usleep(5000);
    }
    return more;
}

// Returns false when the process had to be killed. Throws std::system_error when there is no way to
// wait for so long and no longer.
bool wait_for(pid_t child, int& status)
{
    int const  process = static_cast<int>(::syscall(SYS_pidfd_open, child, 0));
    int const  error   = errno;
    pollfd     entry   = {process, POLLIN, 0};
    bool const ended   = process >= 0 && ::poll(&entry, 1, limit_ms) > 0;
    if (!ended) {
        ::kill(child, SIGKILL);
    }
    ::close(process);
    ::waitpid(child, &status, 0);
    if (process < 0) {
        throw std::system_error(error, std::generic_category(), "pidfd_open");
    }
    return ended;
}

mailserver::options options_of(stage const& set_up)
{
    mailserver::options options;
    options.faults = set_up.faults;
    return options;
}

template <std::size_t size>
void set(char (&out)[size], std::string const& text)
{
    if (text.size() >= size) {
        throw std::length_error(text);
    }
    std::memcpy(out, text.c_str(), text.size() + 1);
}

}  // namespace

std::string allow_small_disks()
{
    temp_dir const somewhere;
    bool const     possible = ::unshare(CLONE_NEWNS) == 0 &&
                          ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                          ::mount("none", somewhere.path().c_str(), "tmpfs", 0, disk_size) == 0 &&
                          ::umount(somewhere.path().c_str()) == 0;
    return possible ? "" : std::strerror(errno);
}

playground::playground(stage const& set_up, bool small_disk)
    : small_disk_(small_disk), server_(options_of(set_up))
{
    if (small_disk && ::mount("none", root().c_str(), "tmpfs", 0, disk_size) != 0) {
        throw std::system_error(errno, std::generic_category(), "mount");
    }
    set(scene_.work, directory_.file("work"));
    set(scene_.settings, directory_.file("work/zelismes.cf"));
    set(scene_.aside, directory_.file("aside"));
    scene_.smtp_port = server_.smtp_port();
    scene_.pop_port  = server_.pop_port();
    ::chmod(directory_.path().c_str(), 0755);
    ::mkdir(directory_.file("tmp").c_str(), 0777);
    ::chmod(directory_.file("tmp").c_str(), 01777);
    ::mkdir(scene_.work, 0755);
    ::mkdir(scene_.aside, 0755);
    if (!set_up.no_settings) {
        write_file(scene_.settings,
                   "smtp_server = 127.0.0.1\r\nsmtp_port = " + std::to_string(scene_.smtp_port) +
                       "\r\npop_server = 127.0.0.1\r\npop_port = " +
                       std::to_string(scene_.pop_port) + "\r\n" + set_up.settings);
    }
    for (auto const& [name, contents] : set_up.files) {
        write_file(std::string(scene_.work) + "/" + name, contents);
    }
    for (std::string const& mail : set_up.mailbox) {
        server_.put(mail);
    }
}

playground::~playground()
{
    if (small_disk_) {
        ::umount2(root().c_str(), MNT_DETACH);
    }
}

void playground::fill_disk(int pages_free) const
{
    int const  file = ::open((root() + "/full").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    char const page[page_size] = {};
    off_t      size            = 0;
    while (::write(file, page, sizeof page) == static_cast<ssize_t>(sizeof page)) {
        size += page_size;
    }
    bool const full = errno == ENOSPC && ::ftruncate(file, size - pages_free * page_size) == 0;
    ::close(file);
    if (!full) {
        throw std::runtime_error("the disk cannot be filled");
    }
}

sighting playground::play(trial const& what)
{
    *report_ = report();
    if (what.lack.pages >= 0) {
        fill_disk(what.lack.pages);
    }
    pid_t const child = ::fork();
    if (child < 0) {
        throw std::system_error(errno, std::generic_category(), "fork");
    }
    if (child == 0) {
        play_here(what);
    }
    sighting seen;
    seen.hung   = !wait_for(child, seen.status);
    seen.told   = report_->told;
    seen.record = report_->record;
    server_.sessions();  // waits for their ends
    ::chmod(scene_.work, 0755);
    return seen;
}

void playground::limit(shortage const& lack) const
{
    if (lack.read_only) {
        ::chmod(scene_.work, 0555);
        if (::geteuid() == 0 && (::setresgid(nobody, nobody, nobody) != 0 ||
                                 ::setresuid(nobody, nobody, nobody) != 0)) {
            ::_exit(1);
        }
        // Which the change of the user has undone.
        ::prctl(PR_SET_DUMPABLE, 1);
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    }
    if (lack.descriptors >= 0) {
        int const next = ::dup(0);
        ::close(next);
        rlimit limit = {};
        ::getrlimit(RLIMIT_NOFILE, &limit);
        limit.rlim_cur = static_cast<rlim_t>(next + lack.descriptors);
        ::setrlimit(RLIMIT_NOFILE, &limit);
    }
    if (lack.file_size >= 0) {
        rlimit const limit = {static_cast<rlim_t>(lack.file_size),
                              static_cast<rlim_t>(lack.file_size)};
        ::signal(SIGXFSZ, SIG_IGN);
        ::setrlimit(RLIMIT_FSIZE, &limit);
    }
}

void playground::play_here(trial const& what) const
{
    rlimit const no_core = {0, 0};
    ::setrlimit(RLIMIT_CORE, &no_core);
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    ::setenv("ZELIEML_NOTIFICATION_ROOT", directory_.path().c_str(), 1);
    report& shared        = *report_;
    shared.told.result[0] = not_called;
    shared.told.result[1] = not_called;
    shared.told.started   = not_called;
    shared.told.code      = not_called;

    int const descriptors = entries("/proc/self/fd");
    int const threads     = entries("/proc/self/task");
    rlimit    plenty      = {};
    ::getrlimit(RLIMIT_NOFILE, &plenty);
    limit(what.lack);
    begin_counting(&what.plan, &shared.record);
    what.body(&scene_, &shared.told);
    end_counting();
    ::setrlimit(RLIMIT_NOFILE, &plenty);  // for what looks into directories here
    shared.told.descriptors = entries("/proc/self/fd") - descriptors;
    shared.told.threads     = threads_left(threads);
    shared.told.finished    = 1;
    ::_exit(0);
}

std::vector<int> playground::copies() const
{
    std::vector<int> counts(2);
    for (mailserver::mail const& mail : server_.mails()) {
        for (std::string const& recipient : mail.recipients) {
            if (recipient == "one@office.test" || recipient == "two@office.test") {
                ++counts[recipient == "one@office.test" ? 0 : 1];
            }
        }
    }
    return counts;
}

std::string playground::account_of(outcome const& told) const
{
    std::string account;
    auto const  add = [&](char const* what, std::vector<int> const& values, int nothing) {
        if (std::any_of(values.begin(), values.end(),
                         [=](int value) { return value != nothing; })) {
            account += std::string(account.empty() ? "" : ", ") + what;
            for (int const value : values) {
                account += value == not_called ? " -" : " " + std::to_string(value);
            }
        }
    };
    int messages = 0;
    for (auto const& [name, contents] : files()) {
        messages += is_message(name) ? 1 : 0;
    }
    add("started", {told.started}, not_called);
    add("results", {told.result[0], told.result[1]}, not_called);
    add("code", {told.code}, not_called);
    add("records", {told.has_record}, 0);
    add("reports", {told.reports, told.reports + std::max(told.report_count, 0)}, not_called);
    add("senders", {told.senders[0], told.senders[1]}, 0);
    add("mails", {mails()}, 0);
    add("sent", copies(), 0);
    add("messages", {messages}, 0);
    account += told.value[0] != '\0' ? std::string(", value ") + told.value : "";
    return account;
}

std::map<std::string, std::string> playground::files() const
{
    std::map<std::string, std::string> found;
    for (std::string const& name : list_directory(scene_.work)) {
        found[name] = read_file(std::string(scene_.work) + "/" + name);
    }
    for (std::string const& name : list_directory(root())) {
        if (name.find('\\') != std::string::npos) {
            found[name] = read_file(root() + "/" + name);
        }
    }
    return found;
}

std::vector<std::string> playground::sockets() const
{
    std::vector<std::string> found;
    for (auto const& entry : std::filesystem::recursive_directory_iterator(root())) {
        if (entry.is_socket()) {
            found.push_back(entry.path().string());
        }
    }
    return found;
}

char const message_end[] = "This is the second line.\n.\n";

bool ends_with(std::string const& text, std::string const& end)
{
    return text.size() >= end.size() &&
           text.compare(text.size() - end.size(), end.size(), end) == 0;
}

bool is_message(std::string const& name)
{
    return name.find(".sme") != std::string::npos;
}

long long in_parallel(int count, std::function<long long(int)> const& work)
{
    struct progress {
        std::atomic<int>       next{0};
        std::atomic<long long> sum{0};
    };
    shared<progress>   state;
    int const          processes = static_cast<int>(std::thread::hardware_concurrency()) + 1;
    std::vector<pid_t> children;
    std::fflush(stdout);
    for (int i = 0; i < processes; ++i) {
        pid_t const child = ::fork();
        if (child == 0) {
            ::prctl(PR_SET_PDEATHSIG, SIGKILL);
            for (int next = state->next++; next < count; next = state->next++) {
                state->sum += work(next);
            }
            std::fflush(stdout);
            ::_exit(0);
        }
        children.push_back(child);
    }
    for (pid_t const child : children) {
        int status = 0;
        if (::waitpid(child, &status, 0) < 0 || status != 0) {
            throw std::runtime_error("a process of this program has failed");
        }
    }
    return state->sum;
}

}  // namespace zelieml::test
