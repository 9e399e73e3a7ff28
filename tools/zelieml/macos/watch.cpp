#include "tools/zelieml/watch.h"

#include <cerrno>
#include <ctime>
#include <fcntl.h>
#include <sys/event.h>
#include <sys/types.h>

namespace zelieml::program
{

namespace
{

constexpr unsigned int its_end = NOTE_DELETE | NOTE_RENAME | NOTE_REVOKE;

}  // namespace

int watch::begin(std::string const& directory)
{
    end();
    queue_     = descriptor(::kqueue());
    directory_ = descriptor(::open(directory.c_str(), O_EVTONLY | O_DIRECTORY | O_CLOEXEC));
    if (!queue_ || !directory_) {
        int const error = errno;
        end();
        return error;
    }
    struct kevent change = {};
    EV_SET(&change, static_cast<uintptr_t>(directory_.get()), EVFILT_VNODE, EV_ADD | EV_CLEAR,
           NOTE_WRITE | NOTE_EXTEND | its_end, 0, nullptr);
    if (::fcntl(queue_.get(), F_SETFD, FD_CLOEXEC) != 0 ||
        ::kevent(queue_.get(), &change, 1, nullptr, 0, nullptr) != 0) {
        int const error = errno;
        end();
        return error;
    }
    return 0;
}

void watch::end()
{
    queue_     = descriptor();
    directory_ = descriptor();
}

watch::news watch::read(bool (*)(std::string const& name))
{
    news           found;
    timespec const at_once = {0, 0};
    struct kevent  event   = {};
    if (::kevent(queue_.get(), nullptr, 0, &event, 1, &at_once) > 0) {
        found.look = true;
        found.over = found.over || (event.fflags & its_end) != 0;
    }
    return found;
}

}  // namespace zelieml::program
