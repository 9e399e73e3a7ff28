// engine_bench.cpp - posting to an engine, how fast it hears and drains, and what it costs idle
//
//     engine_bench PORT IDLE-SECONDS       all of it
//     engine_bench post WORKDIR SYMBOL N   one posting process: prints its timings
//
// PORT is that of a mail server on 127.0.0.1 that takes everything.

#include <condition_variable>
#include <cstring>
#include <dirent.h>
#include <fstream>
#include <mutex>
#include <sstream>
#include <sys/resource.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "bench/engine.h"
#include "bench/mail.h"
#include "bench/work_dir.h"
#include "platform/notification.h"

namespace
{

constexpr int burst = 500;

// ------------------------------------------------------------------ eml_post

int post_many(char const* workdir, char const* symbol, int count)
{
    void* const msg = make_mail();
    for (int i = 0; i < count; ++i) {
        auto const start  = bench_clock::now();
        int const  status = eml_post_with_stocksymbol(workdir, symbol, msg);
        std::printf("%.3f\n", microseconds_since(start));
        if (status != 0) {
            return 1;
        }
    }
    eml_msg_destroy(msg);
    return 0;
}

// Runs posting processes at once; returns the times of all their posts.
std::vector<double> post_from(int processes, char const* self, std::string const& workdir,
                              char const* symbol, int count)
{
    std::string const command =
        std::string(self) + " post '" + workdir + "' '" + symbol + "' " + std::to_string(count);
    std::vector<FILE*> pipes;
    for (int i = 0; i < processes; ++i) {
        pipes.push_back(::popen(command.c_str(), "r"));
    }
    std::vector<double> times;
    for (FILE* const pipe : pipes) {
        double time = 0;
        while (std::fscanf(pipe, "%lf", &time) == 1) {
            times.push_back(time);
        }
        if (::pclose(pipe) != 0) {
            throw std::runtime_error("a posting process failed");
        }
    }
    return times;
}

// ------------------------------------------------------------------ a burst

// Adds what each mail of a burst takes.
void add_burst(std::vector<double>& times, std::string const& workdir, char const* self)
{
    engine running(workdir, "bench burst");
    post_from(1, self, workdir, "bench burst", burst);
    running.seen.wait_for(burst);
    if (running.seen.failed != 0) {
        throw std::runtime_error("mails of the burst were refused");
    }
    auto const each = running.seen.microseconds_each();
    times.insert(times.end(), each.begin(), each.end());
}

// Adds what as many synchronous sends take.
void add_sync(std::vector<double>& times, std::string const& workdir)
{
    for (int i = 0; i < burst; ++i) {
        times.push_back(microseconds([&] {
            if (send_mail(workdir) != 0) {
                throw std::runtime_error("eml_post_sync failed");
            }
        }));
    }
}

// By turns, as the machine may have other work to do.
bool bursts(std::string const& workdir, char const* self)
{
    constexpr double    limit = 0.95;
    std::vector<double> sync_times;
    std::vector<double> burst_times;
    for (int turn = 0; turn < 3; ++turn) {
        add_sync(sync_times, workdir);
        add_burst(burst_times, workdir, self);
    }
    figures const in_a_row = summarise(sync_times);
    figures const queued   = summarise(burst_times);
    print("eml_post_sync, in a row", in_a_row);
    print("a mail of a burst of 500", queued);
    double const rate = in_a_row.median / queued.median;
    std::printf("an engine sends %.2f times as many as eml_post_sync (at least %.2f)\n", rate,
                limit);
    return rate >= limit;
}

// ------------------------------------------------------------------ notifications

struct latency {
    std::mutex              guard;
    std::condition_variable changed;
    bench_clock::time_point heard;
    bool                    fresh = false;
};

void hear(zelieml::platform::notification_center*, void* observer,
          zelieml::platform::notification_text const*, zelieml::platform::notification_text const*,
          zelieml::platform::notification_info const*)
{
    auto&                             to = *static_cast<latency*>(observer);
    std::lock_guard<std::mutex> const hold(to.guard);
    to.heard = bench_clock::now();
    to.fresh = true;
    to.changed.notify_all();
}

std::vector<double> notification_times(int rounds)
{
    namespace platform = zelieml::platform;
    latency to;
    if (platform::add_observer("bench", "latency", hear, &to) != 0) {
        throw std::runtime_error("no observer");
    }
    std::vector<double> times;
    for (int i = 0; i < rounds; ++i) {
        auto const start = bench_clock::now();
        platform::post_notification("bench", "latency", "key", "/a/path/to/a/file.sme");
        std::unique_lock<std::mutex> hold(to.guard);
        to.changed.wait(hold, [&] { return to.fresh; });
        to.fresh = false;
        times.push_back(std::chrono::duration<double, std::micro>(to.heard - start).count());
    }
    platform::remove_observer("bench", "latency", &to);
    return times;
}

// ------------------------------------------------------------------ an idle engine

// The times that the process's other threads have woken up.
long wake_ups()
{
    long       sum = 0;
    DIR* const all = ::opendir("/proc/self/task");
    while (dirent const* const entry = all != nullptr ? ::readdir(all) : nullptr) {
        if (entry->d_name[0] == '.' || std::atoi(entry->d_name) == ::getpid()) {
            continue;
        }
        std::ifstream status(std::string("/proc/self/task/") + entry->d_name + "/status");
        std::string   word;
        while (status >> word) {
            long count = 0;
            if (word == "voluntary_ctxt_switches:" && status >> count) {
                sum += count;
            }
        }
    }
    if (all != nullptr) {
        ::closedir(all);
    }
    return sum;
}

long resident_kilobytes()
{
    std::ifstream statm("/proc/self/statm");
    long          total    = 0;
    long          resident = 0;
    statm >> total >> resident;
    return resident * (::sysconf(_SC_PAGESIZE) / 1024);
}

double cpu_milliseconds()
{
    rusage usage = {};
    ::getrusage(RUSAGE_SELF, &usage);
    auto const ms = [](timeval const& t) {
        return static_cast<double>(t.tv_sec) * 1e3 + static_cast<double>(t.tv_usec) / 1e3;
    };
    return ms(usage.ru_utime) + ms(usage.ru_stime);
}

bool idle(std::string const& workdir, int seconds)
{
    long const   before_memory = resident_kilobytes();
    engine const running(workdir, "bench idle");
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    long const   before_wake_ups = wake_ups();
    double const before_cpu      = cpu_milliseconds();
    std::this_thread::sleep_for(std::chrono::seconds(seconds));
    double const per_second = static_cast<double>(wake_ups() - before_wake_ups) / seconds;
    std::printf(
        "idle for %d s: %.2f wake-ups a second (1 of them the worker's, "
        "0.2 the listener's), %.2f ms of CPU, %ld KB resident, %ld KB of it for the engine\n",
        seconds, per_second, cpu_milliseconds() - before_cpu, resident_kilobytes(),
        resident_kilobytes() - before_memory);
    return per_second <= 1.25;
}

int all(char const* self, char const* port, int idle_seconds)
{
    work_dir const place;
    ::setenv("ZELIEML_NOTIFICATION_ROOT", place.path().c_str(), 1);
    std::filesystem::create_directory(place.path() + "/tmp");
    std::string const workdir = place.path() + "/work";
    std::filesystem::create_directory(workdir);
    write_settings(workdir, port);

    print("notification, post to proc", summarise(notification_times(5000)));
    for (int const processes : {1, 4}) {
        engine const      running(workdir, "bench post");
        std::string const name = "eml_post, " + std::to_string(processes) + " process(es)";
        print(name.c_str(), summarise(post_from(processes, self, workdir, "bench post", 100)));
    }

    bool const fast  = bursts(workdir, self);
    bool const quiet = idle(workdir, idle_seconds);
    return fast && quiet ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv)
try {
    if (argc == 5 && std::strcmp(argv[1], "post") == 0) {
        return post_many(argv[2], argv[3], std::atoi(argv[4]));
    }
    if (argc != 3) {
        std::fprintf(stderr, "use: engine_bench PORT IDLE-SECONDS\n");
        return 2;
    }
    return all(argv[0], argv[1], std::atoi(argv[2]));
} catch (std::exception const& error) {
    std::fprintf(stderr, "engine_bench: %s\n", error.what());
    return 1;
}
