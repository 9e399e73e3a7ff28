// main.cpp - zelieml-soak [SECONDS]: a long mixed load, and whether it leaves anything
//
// This process uses nothing of the library. It starts the others, watches whether they go on, and
// compares what they wrote down with what had to happen.

#include <cinttypes>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <set>
#include <stdexcept>
#include <string>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <system_error>
#include <vector>

#include "tests/soak/books.h"
#include "tests/soak/engine_clock.h"
#include "tests/soak/guests.h"
#include "tests/soak/host.h"
#include "tests/soak/posters.h"
#include "tests/soak/server.h"
#include "tests/soak/site.h"
#include "tests/support/workplace.h"

// The first data race ends its process, wherever it is.
extern "C" char const* __tsan_default_options();
char const*            __tsan_default_options()
{
    return "halt_on_error=1";
}

namespace zelieml::test
{

namespace fs = std::filesystem;

namespace
{

constexpr unsigned usual_mails = 10000;
constexpr unsigned warm_mails  = 500;
constexpr int      max_seconds = 3600;
constexpr int      hang_ms     = 60000;
constexpr int      half_hour_s = 1800;

// What is in use moves a little with the threads that have run last and keep freed memory.
constexpr std::size_t memory_noise = 64 * 1024;

// A file that the engine finds by itself may be sent before its poster announces it, which makes
// two more failed attempts (docs/ENGINE.md, known limits).
constexpr unsigned late_for_each_scan = 2;

place make_place(std::string const& root, std::string const& name, std::uint16_t port)
{
    place const made = {root + "/" + name, "engine of " + name};
    fs::create_directory(made.work);
    std::ofstream(made.settings()) << settings_for(port);
    return made;
}

// ------------------------------------------------------------------ processes

class processes
{
public:
    ~processes()
    {
        for (auto const& [pid, of] : running_) {
            ::kill(pid, SIGKILL);
            ::waitpid(pid, nullptr, 0);
        }
    }

    pid_t start(char const* name, std::function<void()> const& body, int end = 0)
    {
        pid_t const child = ::fork();
        if (child == 0) {
            ::prctl(PR_SET_PDEATHSIG, SIGKILL);
            body();
            ::_exit(0);
        }
        if (child < 0) {
            throw std::system_error(errno, std::generic_category(), "fork");
        }
        running_[child] = {name, end};
        return child;
    }

    bool runs(pid_t child) const { return running_.count(child) != 0; }

    // Takes those that have ended. Throws std::runtime_error when one did not end as it should.
    void look()
    {
        int   status = 0;
        pid_t ended  = 0;
        while ((ended = ::waitpid(-1, &status, WNOHANG)) > 0) {
            entry const was = running_[ended];
            running_.erase(ended);
            if (status != was.end) {
                throw std::runtime_error(
                    std::string(was.name) + ", process " + std::to_string(ended) + ", ended with " +
                    (WIFSIGNALED(status) ? "signal " + std::to_string(WTERMSIG(status))
                                         : "status " + std::to_string(WEXITSTATUS(status))));
            }
        }
    }

private:
    struct entry {
        char const* name = nullptr;
        int         end  = 0;  // as waitpid has it
    };
    std::map<pid_t, entry> running_;
};

// ------------------------------------------------------------------ what had to happen

struct story {
    int attempts;
    int delivered;
    int failed;
};

story story_of(fate end)
{
    switch (end) {
    case fate::refused_once:
    case fate::text_refused_once:
        return {2, 1, 1};
    case fate::refused_twice:
        return {2, 0, 2};
    case fate::hung_up_once:
        return {2, 1, 0};  // the failure is a nameless one
    default:
        return {1, 1, 0};
    }
}

std::string text_of(mail_account const& mail)
{
    char text[160];
    std::snprintf(text, sizeof text,
                  "way %d, fate %d: %d attempts, %d delivered, reported sent %d and %d, failed %d "
                  "and %d",
                  static_cast<int>(mail.sender.load()), static_cast<int>(mail.end.load()),
                  mail.attempts.load(), mail.delivered.load(), mail.sent[0].load(),
                  mail.sent[1].load(), mail.failed[0].load(), mail.failed[1].load());
    return text;
}

bool is_as_it_had_to_be(mail_account const& mail)
{
    if (mail.sender == way::perhaps) {
        return mail.delivered <= 1 && mail.attempts == mail.delivered &&
               mail.sent[0] <= mail.delivered;
    }
    story const wanted = story_of(mail.end);
    bool const  heard  = mail.sender != way::poster;
    bool const  copied = mail.sender == way::main_engine;
    int const   sent   = heard ? wanted.delivered : 0;
    int const   failed = heard ? wanted.failed : 0;
    return mail.attempts == wanted.attempts && mail.delivered == wanted.delivered &&
           mail.sent[0] == sent && mail.sent[1] == (copied ? sent : 0) &&
           mail.failed[0] == failed && mail.failed[1] == (copied ? failed : 0);
}

void compare_mails()
{
    for (unsigned i = 0; i < book->mails; ++i) {
        if (!is_as_it_had_to_be(book->account[i])) {
            report_failure("mail " + std::to_string(i) + ", " + text_of(book->account[i]));
        }
    }
}

// Failures that no mail is named in: those of the server's hanging up, and few others.
unsigned late_attempts(unsigned scans)
{
    expect(book->nameless[0] == book->nameless[1], "copies of reports are missing");
    unsigned const nameless = book->nameless[0];
    unsigned const hang_ups = book->hang_ups;
    if (nameless < hang_ups || nameless > hang_ups + scans * late_for_each_scan) {
        report_failure(std::to_string(nameless) + " failures without a reply, after " +
                       std::to_string(hang_ups) + " connections that were ended so");
    }
    return nameless - hang_ups;
}

void look_for_message_files(site const& where)
{
    for (place const& one : where.all()) {
        for (std::string const& name : one.messages()) {
            report_failure("left: " + one.file(name));
        }
    }
}

void compare_holdings(unsigned mails)
{
    holdings const& before = book->measured[0];
    holdings const& after  = book->measured[1];
    expect(after.descriptors == before.descriptors, "the number of descriptors has changed");
    expect(after.threads == before.threads, "the number of threads has changed");
    if (*ZELIEML_SANITIZERS == '\0' && after.memory > before.memory + memory_noise) {
        report_failure("memory has grown by " + std::to_string(after.memory - before.memory) +
                       " bytes during " + std::to_string(mails) + " mails");
    }
}

// ------------------------------------------------------------------ the load

// What the kernel says of a thread.
std::string said_of(fs::path const& task, char const* file)
{
    std::string   line;
    std::ifstream in(task / file);
    std::getline(in, line);
    return line;
}

// What its threads do in the kernel and, if there is gdb, in the program.
void show_threads(pid_t process)
{
    std::error_code gone;
    fs::path const  tasks = "/proc/" + std::to_string(process) + "/task";
    for (fs::directory_entry const& task : fs::directory_iterator(tasks, gone)) {
        std::fprintf(stderr, "    thread %s: %s, system call %s\n", task.path().filename().c_str(),
                     said_of(task, "wchan").c_str(), said_of(task, "syscall").c_str());
    }
    std::string const gdb = "gdb -p " + std::to_string(process) +
                            " -batch -ex 'thread apply all backtrace' 2>/dev/null |"
                            " grep -E '^(Thread|#)' >&2";
    int const status = std::system(gdb.c_str());
    (void)status;
}

void tell_where_it_hangs(char const* waiting_for, pid_t host)
{
    std::fprintf(stderr, "zelieml-soak: nothing moves for %d s while this process waits for %s\n",
                 hang_ms / 1000, waiting_for);
    std::set<pid_t> processes = {host};
    for (int i = 0; i < actor_count; ++i) {
        actor_state const& actor = book->actors[i];
        char const* const  step  = actor.step;
        if (step != nullptr) {
            std::fprintf(stderr, "  %s, process %d, for %" PRId64 " ms: %s\n", actor_names[i],
                         static_cast<int>(actor.process), now_ms() - actor.since_ms, step);
            processes.insert(actor.process);
        }
    }
    for (pid_t const process : processes) {
        std::fprintf(stderr, "  process %d\n", static_cast<int>(process));
        show_threads(process);
    }
    int shown = 0;
    for (unsigned i = 0; i < book->mails && shown < 10; ++i) {
        if (book->account[i].sender != way::perhaps && !is_as_it_had_to_be(book->account[i])) {
            std::fprintf(stderr, "  mail %u, %s\n", i, text_of(book->account[i]).c_str());
            ++shown;
        }
    }
}

class soak
{
public:
    soak(site const& where, mailserver::listener const& door, int seconds)
        : where_(where), seconds_(seconds)
    {
        all_.start("the mail server", [&] { serve(door); });
        host_ = all_.start("the host", [&] { run_host(where); });
    }

    // Returns the seconds that it took.
    int run()
    {
        std::int64_t const begin = now_ms();
        wait("the first mails", [&] { return is_warm(); });
        measure();
        book->now             = stage::load;
        unsigned const before = book->settled;
        wait("the last mails", [&] {
            bool const enough =
                seconds_ == 0 ? book->settled >= usual_mails : now_ms() - begin >= seconds_ * 1000;
            return enough && book->settled >= before + warm_mails;
        });
        measure();
        int const took = static_cast<int>((now_ms() - begin) / 1000);
        mails_between_ = book->settled - before;

        book->now = stage::over;
        wait("the end of all processes", [&] { return !all_.runs(host_) && nobody_acts(); });
        pid_t const last = all_.start("the last of the engines that are killed",
                                      [&] { live_as_stranger(where_, false); });
        wait("the end of the last engine", [&] { return !all_.runs(last); });
        return took;
    }

    unsigned mails_between() const { return mails_between_; }
    int      posters() const { return posters_; }
    int      killed() const { return strangers_ / 2; }

private:
    static bool is_warm()
    {
        return book->settled >= warm_mails && book->rounds[0] >= kinds_of_lives &&
               book->rounds[1] >= kinds_of_lives;
    }

    static bool nobody_acts()
    {
        for (actor_state const& actor : book->actors) {
            if (actor.step != nullptr) {
                return false;
            }
        }
        return true;
    }

    // Lets everything come to rest, and the host measure what it holds.
    void measure()
    {
        book->now = stage::pause;
        wait("all mails to be settled", [&] { return nobody_acts() && book->in_flight == 0; });
        int const wanted = ++book->measures_wanted;
        wait("the host to measure", [&] { return book->measures_taken == wanted; });
    }

    // Keeps the load going until it holds. Throws std::runtime_error when nothing moves any more.
    template <class Condition>
    void wait(char const* what, Condition&& holds)
    {
        std::int64_t last_move = now_ms();
        unsigned     settled   = book->settled;
        while (!holds()) {
            all_.look();
            replace_those_that_ended();
            if (settled != book->settled) {
                settled   = book->settled;
                last_move = now_ms();
            }
            if (now_ms() - last_move > hang_ms || somebody_hangs()) {
                tell_where_it_hangs(what, host_);
                look_for_message_files(where_);
                throw std::runtime_error("hangs");
            }
            ::usleep(5000);
        }
    }

    static bool somebody_hangs()
    {
        for (actor_state const& actor : book->actors) {
            if (actor.step != nullptr && now_ms() - actor.since_ms > hang_ms) {
                return true;
            }
        }
        return false;
    }

    void replace_those_that_ended()
    {
        if (book->now != stage::load) {
            return;
        }
        for (int i = 0; i < 2; ++i) {
            if (!all_.runs(poster_[i])) {
                auto const self = static_cast<actor>(actor_poster + i);
                poster_[i]      = all_.start("a posting process", [=] { post_some(self, where_); });
                ++posters_;
            }
        }
        if (!all_.runs(stranger_)) {
            bool const dies = strangers_ % 2 == 0;
            stranger_       = all_.start(
                      "an engine of another process", [=] { live_as_stranger(where_, dies); },
                dies ? SIGKILL : 0);
            ++strangers_;
        }
    }

    site const& where_;
    int const   seconds_;
    processes   all_;
    pid_t       host_          = 0;
    pid_t       poster_[2]     = {};
    pid_t       stranger_      = 0;
    int         posters_       = 0;
    int         strangers_     = 0;
    unsigned    mails_between_ = 0;
};

int run_soak(int seconds)
{
    start_engine_clock();
    open_books();
    std::int64_t const         begin = engine_clock_ms();
    temp_dir const             directory;
    notification_root const    notifications;
    mailserver::listener const door(0);
    site const                 where(directory.path(), door.port());
    soak                       load(where, door, seconds);

    int const      took  = load.run();
    auto const     scans = static_cast<unsigned>((engine_clock_ms() - begin) / 1000 / half_hour_s);
    unsigned const late  = late_attempts(1 + scans);
    compare_mails();
    compare_holdings(load.mails_between());
    look_for_message_files(where);
    for (std::string const& path : notifications.sockets()) {
        report_failure("left: " + path);
    }

    holdings const& before = book->measured[0];
    holdings const& after  = book->measured[1];
    std::printf("%u mails by the main engine and its posters, %u in all, in %d s (%u/s); "
                "%u engines started and stopped, %d killed, %u forks, %d posting processes, "
                "%u half-hours, %u late attempts; "
                "descriptors %d -> %d, threads %d -> %d",
                book->settled.load(), book->mails.load(), took,
                book->settled / static_cast<unsigned>(took > 0 ? took : 1), book->engines.load(),
                load.killed(), book->forks.load(), load.posters(), scans, late, before.descriptors,
                after.descriptors, before.threads, after.threads);
    if (*ZELIEML_SANITIZERS == '\0') {
        std::printf(", memory %zu -> %zu bytes", before.memory, after.memory);
    }
    std::printf("\n%s\n", book->failures == 0 ? "all is well" : "faults were found");
    return book->failures == 0 ? 0 : 1;
}

}  // namespace

std::vector<std::string> place::messages() const
{
    return messages_in(work);
}

site::site(std::string const& root, std::uint16_t port)
    : main(make_place(root, "main", port)), guests{make_place(root, "guest", port),
                                                   make_place(root, "guest 2", port)},
      forked{make_place(root, "forked", port), make_place(root, "forked 2", port)},
      stranger(make_place(root, "stranger", port))
{
}

std::vector<place> site::all() const
{
    return {main, guests[0], guests[1], forked[0], forked[1], stranger};
}

}  // namespace zelieml::test

int main(int count, char** arguments)
{
    char*      end     = nullptr;
    long const seconds = count > 1 ? std::strtol(arguments[1], &end, 10) : 0;
    if (count > 2 ||
        (count == 2 && (*end != '\0' || seconds < 1 || seconds > zelieml::test::max_seconds))) {
        std::fprintf(stderr, "use: zelieml-soak [SECONDS], %d at most\n",
                     zelieml::test::max_seconds);
        return 2;
    }
    try {
        return zelieml::test::run_soak(static_cast<int>(seconds));
    } catch (std::exception const& error) {
        std::fprintf(stderr, "zelieml-soak: %s\n", error.what());
    }
    return 1;
}
