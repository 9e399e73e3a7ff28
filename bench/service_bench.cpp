// service_bench.cpp - what the service costs beside the library's engine as it is
//
//     service_bench ZELIEML PORT IDLE-SECONDS
//
// Runs "ZELIEML engine" and "ZELIEML engine --bare" by turns. PORT is that of a mail server on
// 127.0.0.1 that takes everything.

#include <array>
#include <csignal>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <fstream>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "bench/mail.h"
#include "bench/work_dir.h"

namespace
{

constexpr int burst = 400;
constexpr int turns = 3;

// What one kind of service was seen to need.
struct costs {
    std::vector<double> posts;     // microseconds of each
    std::vector<double> mails;     // microseconds of each, while it was sending
    double              wake_ups;  // a second, when idle
    long                resident;  // KB, when idle after a burst
};

// A number in a file of /proc, after this word.
long number_after(std::string const& path, std::string const& word)
{
    std::ifstream file(path);
    std::string   read;
    long          number = 0;
    while (file >> read) {
        if (read == word && file >> number) {
            return number;
        }
    }
    return 0;
}

class service
{
public:
    service(char const* program, std::string const& workdir, bool bare)
        : socket_path_(workdir + "/../notify")
    {
        ::unlink(socket_path_.c_str());
        sockaddr_un address = {};
        address.sun_family  = AF_UNIX;
        socket_path_.copy(address.sun_path, sizeof address.sun_path - 1);
        int const manager = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        int       ends[2] = {-1, -1};
        if (::bind(manager, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
            ::pipe(ends) != 0) {
            throw std::runtime_error("no socket and no pipe");
        }
        process_ = ::fork();
        if (process_ == 0) {
            ::dup2(ends[1], STDOUT_FILENO);
            ::close(ends[0]);
            ::close(ends[1]);
            ::setenv("NOTIFY_SOCKET", socket_path_.c_str(), 1);
            ::execl(program, program, "engine", "-w", workdir.c_str(), "--json",
                    bare ? "--bare" : nullptr, nullptr);
            ::_exit(127);
        }
        ::close(ends[1]);
        out_         = ends[0];
        pollfd ready = {manager, POLLIN, 0};
        if (::poll(&ready, 1, 20000) != 1) {
            throw std::runtime_error("the service is not ready");
        }
        ::close(manager);
    }
    ~service()
    {
        ::kill(process_, SIGTERM);
        ::waitpid(process_, nullptr, 0);
        ::close(out_);
    }
    service(service const&)            = delete;
    service& operator=(service const&) = delete;

    // The microseconds of each of so many mails; the pauses between the engine's passes do not
    // count.
    std::vector<double> take(int count) const
    {
        std::vector<double> each;
        auto                last  = bench_clock::now();
        bool                first = true;
        for (int seen = 0; seen < count;) {
            std::array<char, 65536> piece;
            ssize_t const           got = ::read(out_, piece.data(), piece.size());
            if (got <= 0) {
                throw std::runtime_error("the service has ended");
            }
            auto const   now   = bench_clock::now();
            auto const   lines = std::count(piece.data(), piece.data() + got, '\n');
            double const gap   = std::chrono::duration<double, std::micro>(now - last).count();
            if (!first && gap < 500000 && lines > 0) {
                each.insert(each.end(), static_cast<std::size_t>(lines),
                            gap / static_cast<double>(lines));
            }
            if (lines > 0) {
                first = false;
                last  = now;
            }
            seen += static_cast<int>(lines);
        }
        return each;
    }

    // How often its threads have woken up.
    long wake_ups() const
    {
        std::string const tasks = "/proc/" + std::to_string(process_) + "/task";
        long              sum   = 0;
        DIR* const        all   = ::opendir(tasks.c_str());
        while (dirent const* const entry = all != nullptr ? ::readdir(all) : nullptr) {
            if (entry->d_name[0] != '.') {
                sum += number_after(tasks + "/" + entry->d_name + "/status",
                                    "voluntary_ctxt_switches:");
            }
        }
        if (all != nullptr) {
            ::closedir(all);
        }
        return sum;
    }

    long resident_kilobytes() const
    {
        return number_after("/proc/" + std::to_string(process_) + "/status", "VmRSS:");
    }

private:
    std::string socket_path_;
    pid_t       process_ = 0;
    int         out_     = -1;
};

void measure(costs& of, char const* program, std::string const& workdir, bool bare,
             double idle_seconds)
{
    service const running(program, workdir, bare);
    void* const   msg = make_mail();
    for (int i = 0; i < burst; ++i) {
        of.posts.push_back(microseconds([&] {
            if (eml_post(workdir.c_str(), msg) != 0) {
                throw std::runtime_error("eml_post failed");
            }
        }));
    }
    eml_msg_destroy(msg);
    auto const each = running.take(burst);
    of.mails.insert(of.mails.end(), each.begin(), each.end());

    std::this_thread::sleep_for(std::chrono::seconds(1));
    long const before = running.wake_ups();
    std::this_thread::sleep_for(std::chrono::duration<double>(idle_seconds));
    of.wake_ups += static_cast<double>(running.wake_ups() - before) / idle_seconds / turns;
    of.resident = std::max(of.resident, running.resident_kilobytes());
}

void print(char const* name, costs const& of)
{
    print((std::string(name) + ", eml_post").c_str(), summarise(of.posts));
    print((std::string(name) + ", a mail").c_str(), summarise(of.mails));
    std::printf("%s: %.0f posts a second, %.2f wake-ups a second when idle, %ld KB resident\n",
                name, 1e6 / summarise(of.posts).median, of.wake_ups, of.resident);
}

int all(char const* program, char const* port, double idle_seconds)
{
    work_dir const place;
    ::setenv("ZELIEML_NOTIFICATION_ROOT", place.path().c_str(), 1);
    std::filesystem::create_directory(place.path() + "/tmp");
    std::filesystem::create_directory(place.path() + "/run");
    costs full = {};
    costs bare = {};
    for (int turn = 0; turn < turns; ++turn) {
        for (bool const is_bare : {false, true}) {
            std::string const workdir = place.path() + (is_bare ? "/bare" : "/full");
            std::filesystem::create_directory(workdir);
            write_settings(workdir, port);
            measure(is_bare ? bare : full, program, workdir, is_bare, idle_seconds / turns);
        }
    }
    print("service", full);
    print("bare engine", bare);

    double const slower = summarise(full.mails).median / summarise(bare.mails).median;
    double const busier = full.wake_ups - bare.wake_ups;
    long const   larger = full.resident - bare.resident;
    std::printf(
        "the service takes %.2f times as long for a mail (at most %.2f), wakes up %.2f times "
        "a second more (at most %.2f), and needs %ld KB more (at most %ld)\n",
        slower, 1.5, busier, 0.2, larger, 1024L);
    return slower <= 1.5 && busier <= 0.2 && larger <= 1024 ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv)
try {
    if (argc != 4) {
        std::fprintf(stderr, "use: service_bench ZELIEML PORT IDLE-SECONDS\n");
        return 2;
    }
    return all(argv[1], argv[2], std::atof(argv[3]));
} catch (std::exception const& error) {
    std::fprintf(stderr, "service_bench: %s\n", error.what());
    return 1;
}
