#include "tools/zelieml/watch.h"

#include <cerrno>
#include <cstring>
#include <sys/inotify.h>

namespace zelieml::program
{

namespace
{

// Written and closed, moved in, or made readable.
constexpr std::uint32_t of_files  = IN_CLOSE_WRITE | IN_MOVED_TO | IN_ATTRIB;
constexpr std::uint32_t of_itself = IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;
constexpr std::uint32_t its_end   = IN_DELETE_SELF | IN_MOVE_SELF | IN_UNMOUNT | IN_IGNORED;

constexpr std::size_t several_events = 65536;

}  // namespace

int watch::begin(std::string const& directory)
{
    queue_ = descriptor(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
    if (!queue_) {
        return errno;
    }
    if (::inotify_add_watch(queue_.get(), directory.c_str(), of_files | of_itself) < 0) {
        int const error = errno;
        end();
        return error;
    }
    return 0;
}

void watch::end()
{
    queue_ = descriptor();
}

watch::news watch::read(bool (*is_wanted)(std::string const& name))
{
    news              found;
    std::vector<char> events(several_events);
    // Once: whoever can make changes without end would have it read without end.
    ssize_t const got = ::read(queue_.get(), events.data(), events.size());
    for (std::size_t at = 0;
         got > 0 && at + sizeof(inotify_event) <= static_cast<std::size_t>(got);) {
        inotify_event event;
        std::memcpy(&event, &events[at], sizeof event);
        if (event.len > 0 && is_wanted(&events[at + sizeof event])) {
            found.names.emplace_back(&events[at + sizeof event]);
        }
        found.look = found.look || (event.mask & IN_Q_OVERFLOW) != 0;
        found.over = found.over || (event.len == 0 && (event.mask & its_end) != 0);
        at += sizeof event + event.len;
    }
    return found;
}

}  // namespace zelieml::program
