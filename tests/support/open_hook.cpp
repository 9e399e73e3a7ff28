#include "tests/support/open_hook.h"

#include <cerrno>
#include <cstdarg>
#include <mutex>
#include <sys/types.h>
#include <utility>

namespace
{

using action = std::function<void(std::string const&)>;

std::mutex  guard;
std::string awaited;
action      before;
action      after;
bool        met = false;

void await(std::string const& end, action&& run_before, action&& run_after)
{
    std::lock_guard<std::mutex> const hold(guard);
    awaited = end;
    before  = std::move(run_before);
    after   = std::move(run_after);
    met     = false;
}

// The action, if it is meant for this path; it is run without the lock, since it may open files.
void run(action& armed, std::string const& path)
{
    action now;
    {
        std::lock_guard<std::mutex> const hold(guard);
        bool const                        ends = path.size() >= awaited.size() &&
                          path.compare(path.size() - awaited.size(), awaited.size(), awaited) == 0;
        if (!armed || !ends) {
            return;
        }
        now = std::exchange(armed, nullptr);
        met = true;
    }
    int const error = errno;
    now(path);
    errno = error;
}

template <class Open>
int hooked_open(char const* path, Open&& real)
{
    run(before, path);
    int const fd = real();
    run(after, path);
    return fd;
}

}  // namespace

void zelieml::test::before_open(std::string const& end, action action)
{
    await(end, std::move(action), nullptr);
}

void zelieml::test::after_open(std::string const& end, action action)
{
    await(end, nullptr, std::move(action));
}

bool zelieml::test::met_open()
{
    std::lock_guard<std::mutex> const hold(guard);
    return met;
}

extern "C" {

int __real_open(char const* path, int flags, ...);
int __real_open64(char const* path, int flags, ...);

// The mode is passed on whether or not there is one, as the C library does.
int __wrap_open(char const* path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    auto const mode = va_arg(arguments, unsigned int);
    va_end(arguments);
    return hooked_open(path, [&] { return __real_open(path, flags, mode); });
}

int __wrap_open64(char const* path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    auto const mode = va_arg(arguments, unsigned int);
    va_end(arguments);
    return hooked_open(path, [&] { return __real_open64(path, flags, mode); });
}
}
