#include "tests/support/trace_recorder.h"

#include <algorithm>
#include <cstdlib>
#include <initializer_list>
#include <mutex>

#include "liblog/trace.h"

namespace
{

// Traces are kept even while operator new fails.
template <class T>
struct own_memory {
    using value_type = T;

    own_memory() = default;
    template <class U>
    own_memory(own_memory<U> const& /*other*/)
    {
    }
    T*   allocate(std::size_t count) { return static_cast<T*>(std::malloc(count * sizeof(T))); }
    void deallocate(T* memory, std::size_t /*count*/) { std::free(memory); }

    friend bool operator==(own_memory const& /*a*/, own_memory const& /*b*/) { return true; }
    friend bool operator!=(own_memory const& /*a*/, own_memory const& /*b*/) { return false; }
};

using kept_string = std::basic_string<char, std::char_traits<char>, own_memory<char>>;

std::mutex                                        guard;
std::vector<kept_string, own_memory<kept_string>> kept;

}  // namespace

namespace zelieml
{

void trace_msg(char const* trace)
{
    std::lock_guard<std::mutex> hold(guard);
    kept.emplace_back(trace != nullptr ? trace : "(null)");
}

namespace test
{

void clear_traces()
{
    std::lock_guard<std::mutex> hold(guard);
    kept.clear();
}

std::vector<std::string> traces()
{
    std::lock_guard<std::mutex> hold(guard);
    std::vector<std::string>    all;
    for (kept_string const& trace : kept) {
        all.emplace_back(trace.c_str());
    }
    return all;
}

namespace
{

std::vector<std::string> traces_that_begin(bool wanted, std::initializer_list<char const*> starts)
{
    std::vector<std::string> chosen;
    for (std::string const& trace : traces()) {
        bool const begins = std::any_of(starts.begin(), starts.end(), [&](char const* start) {
            return trace.rfind(start, 0) == 0;
        });
        if (begins == wanted) {
            chosen.push_back(trace);
        }
    }
    return chosen;
}

}  // namespace

std::vector<std::string> trouble_traces()
{
    return traces_that_begin(true, {"error", "errro", "warning"});
}

std::vector<std::string> traces_above_sockets()
{
    return traces_that_begin(false, {"look_up_address", "SleepCounter", "readline", "shutdown ok"});
}

}  // namespace test
}  // namespace zelieml
