// service_manager.cpp - the protocol of systemd's sd_notify

#include "tools/zelieml/service_manager.h"

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <new>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace zelieml::program
{

namespace
{

std::string taken_variable(char const* name)
{
    char const* const value = std::getenv(name);
    std::string       text  = value != nullptr ? value : "";
    ::unsetenv(name);
    return text;
}

}  // namespace

service_manager::service_manager() : address_(taken_variable("NOTIFY_SOCKET"))
{
    std::string const period  = taken_variable("WATCHDOG_USEC");
    std::string const process = taken_variable("WATCHDOG_PID");
    long long const   us      = std::atoll(period.c_str());
    if (us > 1 && (process.empty() || process == std::to_string(::getpid()))) {
        watchdog_ = std::chrono::microseconds(us / 2);
    }
}

void service_manager::ready(std::string const& text)
{
    state_ += "READY=1\n";
    status(text);
}

void service_manager::status(std::string const& text)
{
    status_ = "STATUS=" + text;
    repeat();
}

void service_manager::stopping(std::string const& text)
{
    state_ += "STOPPING=1\n";
    status(text);
}

void service_manager::alive()
{
    tell("WATCHDOG=1");
}

void service_manager::repeat()
{
    try {
        if (has_unsaid() && tell(state_ + status_)) {
            state_.clear();
            status_.clear();
        }
    } catch (std::bad_alloc const&) {  // later
    }
}

// Returns false when it has no room now. One that is not there is told nothing.
bool service_manager::tell(std::string const& lines)
{
    sockaddr_un to = {};
    if (address_.empty() || address_.size() >= sizeof to.sun_path) {
        return true;
    }
    to.sun_family = AF_UNIX;
    std::memcpy(to.sun_path, address_.data(), address_.size());
    if (address_[0] == '@') {
        to.sun_path[0] = '\0';  // a name that is no file's
    }
    descriptor const socket(::socket(AF_UNIX, SOCK_DGRAM, 0));
    auto const size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + address_.size());
    if (!socket) {
        return false;  // no descriptor
    }
    ::fcntl(socket.get(), F_SETFD, FD_CLOEXEC);
    ::fcntl(socket.get(), F_SETFL, O_NONBLOCK);
    return ::sendto(socket.get(), lines.data(), lines.size(), 0,
                    reinterpret_cast<sockaddr const*>(&to), size) >= 0 ||
           (errno != EAGAIN && errno != EWOULDBLOCK && errno != ENOBUFS && errno != ENOMEM);
}

}  // namespace zelieml::program
