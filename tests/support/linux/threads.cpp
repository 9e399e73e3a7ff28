#include "tests/support/threads.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sys/syscall.h>
#include <unistd.h>

#include "tests/support/files.h"

namespace zelieml::test
{

namespace
{

constexpr char     tasks[]    = "/proc/self/task";
constexpr unsigned pf_exiting = 0x4;  // the kernel's: the thread has left its program

// What /proc says of a thread; empty when the thread is gone.
std::string said_of(std::string const& thread, char const* file)
{
    std::ifstream in(std::string(tasks) + "/" + thread + "/" + file);
    std::string   all;
    std::getline(in, all, '\0');  // fails when the thread goes meanwhile
    return all;
}

// The rest of the line of a thread's status that begins with a label.
std::string status_of(std::string const& thread, std::string const& label)
{
    std::string const all   = said_of(thread, "status");
    std::size_t const begin = all.find("\n" + label + ":");
    if (begin == all.npos) {
        return {};
    }
    std::size_t const value = begin + label.size() + 2;
    return all.substr(value, all.find('\n', value) - value);
}

bool is_over(std::string const& thread)
{
    std::string const stat  = said_of(thread, "stat");
    std::size_t const name  = stat.rfind(')');
    unsigned          flags = 0;
    return name == stat.npos ||
           std::sscanf(stat.c_str() + name, ") %*c %*d %*d %*d %*d %*d %u", &flags) != 1 ||
           (flags & pf_exiting) != 0;
}

}  // namespace

thread_id this_thread()
{
    return static_cast<thread_id>(::syscall(SYS_gettid));
}

std::string sleep_of(thread_id thread)
{
    std::string const name  = std::to_string(thread);
    std::string const times = status_of(name, "voluntary_ctxt_switches");
    return status_of(name, "State").find('S') != std::string::npos ? times : "";
}

bool has_ended(thread_id thread)
{
    return is_over(std::to_string(thread));
}

int running_threads()
{
    int count = 0;
    for (std::string const& thread : list_directory(tasks)) {
        count += is_over(thread) ? 0 : 1;
    }
    return count;
}

std::uint64_t blocked_by_all_others()
{
    std::uint64_t all = ~std::uint64_t{0};
    for (std::string const& thread : list_directory(tasks)) {
        std::string const blocked = status_of(thread, "SigBlk");
        if (thread != std::to_string(this_thread()) && !is_over(thread) && !blocked.empty()) {
            all &= std::stoull(blocked, nullptr, 16);
        }
    }
    return all;
}

}  // namespace zelieml::test
