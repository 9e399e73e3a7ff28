// notification_observers.cpp - observers: each a socket file, and a thread that reads it
//
// The datagram carries name and object in full, and the observer compares them.
//
// Threads: each observer has one, which waits in its socket. Whoever removes the observer shuts the
// socket down for reading, which ends the wait, joins the thread and frees the record; from its own
// delivery the thread frees it. Descriptors of observers are made and closed under the registry's
// lock, so that a fork finds them all.

#include <atomic>
#include <cerrno>
#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <memory>
#include <pthread.h>
#include <string>
#include <string_view>
#include <sys/file.h>
#include <sys/random.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>
#include <utility>
#include <vector>

#include "platform/linux/fork_order.h"
#include "platform/linux/notification_datagram.h"
#include "platform/linux/notification_place.h"
#include "platform/linux/notification_trust.h"
#include "platform/linux/refuse_descriptors.h"
#include "platform/notification.h"
#include "platform/thread.h"
#include "support/c_boundary.h"
#include "support/mutex_lock.h"
#include "support/unique_fd.h"

namespace zelieml::platform
{

namespace
{

constexpr std::size_t max_datagram     = 65536;
constexpr std::time_t unready_s        = 60;
constexpr std::time_t wait_limit_s     = 5;
constexpr char        unready_suffix[] = ".new";

struct observer_record {
    observer_record*  next = nullptr;  // in the registry
    std::string       name;
    std::string       object;
    notification_proc proc     = nullptr;
    void*             observer = nullptr;
    uid_t             user     = 0;

    observers_place   where;
    std::string       file;  // the socket file's name there
    unique_fd         socket;
    std::atomic<bool> ended{false};
    bool              frees_itself = false;  // set on its thread only
    pthread_t         thread       = {};

    std::vector<char> buffer = std::vector<char>(max_datagram);
};

// The observers of the process. A record stays until its thread has ended, even when its observer
// has been removed: then it is marked as ended. Nothing here is ever destroyed, since threads may
// still deliver while the process ends; and an empty list has no memory that a host could lose by
// unloading the library.
struct registry {
    pthread_mutex_t  guard;
    observer_record* first;
};

registry observers = {PTHREAD_MUTEX_INITIALIZER, nullptr};

// Takes a record out of the registry, whose lock the caller holds.
std::unique_ptr<observer_record> take_out(observer_record const& record)
{
    observer_record** link = &observers.first;
    while (*link != &record) {
        link = &(*link)->next;
    }
    std::unique_ptr<observer_record> taken(*link);
    *link = taken->next;
    return taken;
}

// The observer whose proc runs on this thread.
thread_local observer_record const* delivering = nullptr;

// A forked child inherits the sockets but no thread that reads them: while it holds them open, a
// dead engine looks alive. It closes them; to shut them down would deafen its parent.
void before_fork()
{
    ::pthread_mutex_lock(&observers.guard);
}

void after_fork_in_parent()
{
    ::pthread_mutex_unlock(&observers.guard);
}

void after_fork_in_child()
{
    observer_record* next = nullptr;
    for (observer_record* record = observers.first; record != nullptr; record = next) {
        next          = record->next;
        record->ended = true;
        record->socket.reset();
        record->where.fd.reset();
        // A proc that forks returns to its thread also in the child; that record is still in use.
        record->frees_itself = record == delivering;
        if (!record->frees_itself) {
            take_out(*record);
        }
    }
    ::pthread_mutex_unlock(&observers.guard);
}

__attribute__((constructor(registers_early))) void watch_forks()
{
    ::pthread_atfork(before_fork, after_fork_in_parent, after_fork_in_child);
}

// Makes an observer's socket, and its file, which gets its name when it is ready to be met.
//
// file  receives the name in the directory
//
// Returns nothing when the system has no means for it, and leaves nothing.
unique_fd open_socket(std::string const& object, observers_place const& where, std::string& file)
{
    unique_fd socket = above_standard(unique_fd(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)));
    int const on     = 1;
    timeval const limit  = {wait_limit_s, 0};
    std::uint64_t random = 0;
    if (!socket || ::setsockopt(socket.get(), SOL_SOCKET, SO_PASSCRED, &on, sizeof on) != 0 ||
        ::setsockopt(socket.get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit) != 0 ||
        ::getrandom(&random, sizeof random, 0) != static_cast<ssize_t>(sizeof random)) {
        return unique_fd();
    }
    // Otherwise the last close of a descriptor that comes with a datagram is this thread's, and may
    // last as long as its sender likes, as it may on older systems.
    refuse_descriptors(socket.get());

    char tail[64];
    std::snprintf(tail, sizeof tail, "%d-%016" PRIx64, static_cast<int>(::getpid()), random);
    std::string const name    = socket_prefix(object.c_str()) + tail;
    std::string const unready = name + unready_suffix;
    file                      = name + socket_suffix;

    std::string path = where.path + "/" + unready;
    if (path.size() >= sizeof sockaddr_un::sun_path) {
        path = path_through(where.fd) + "/" + unready;
    }
    int const         directory = where.fd.get();
    sockaddr_un const address   = address_of(path);
    if (::bind(socket.get(), reinterpret_cast<sockaddr const*>(&address), sizeof address) != 0) {
        return unique_fd();
    }
    if (::fchmodat(directory, unready.c_str(), where.socket_mode, 0) != 0 ||
        ::renameat(directory, unready.c_str(), directory, file.c_str()) != 0) {
        ::unlinkat(directory, unready.c_str(), 0);
        return unique_fd();
    }
    return socket;
}

// Gives an observer a socket where it belongs now. The registry's lock is held.
//
// Returns false, leaving the observer as it was, when the system has no place or means for it.
bool settle(observer_record& record)
{
    observers_place where = find_observers_place();
    if (!where.fd) {
        return false;
    }
    // systemd-tmpfiles removes old files from /tmp, but nothing from a directory that is locked. It
    // knows living sockets by the name they were bound to, which ours have changed.
    ::flock(where.fd.get(), LOCK_SH | LOCK_NB);
    std::string file;
    unique_fd   socket = open_socket(record.object, where, file);
    if (!socket) {
        return false;
    }
    record.user   = ::geteuid();
    record.where  = std::move(where);
    record.file   = std::move(file);
    record.socket = std::move(socket);
    return true;
}

// An observer whose socket file somebody has removed, or its directory, gets another one.
void stay_reachable(observer_record& record)
{
    struct stat       status = {};
    std::string const path   = record.where.path + "/" + record.file;
    if (::lstat(path.c_str(), &status) != 0 && errno == ENOENT) {
        mutex_lock const hold(observers.guard);
        if (!record.ended) {  // or the one who removes the observer has removed the file
            settle(record);
        }
    }
}

// Takes one datagram, and the sender the kernel vouches for. Waits for it, but not for ever: a host
// that has closed the descriptor could not end the wait.
//
// datagram  receives a view of the record's buffer; empty when nothing good came
//
// Returns false when no more can come.
bool receive(observer_record& record, std::string_view& datagram, ucred& sender)
{
    union {
        cmsghdr align;
        char    bytes[CMSG_SPACE(sizeof(ucred))];
    } control = {};

    iovec  data            = {record.buffer.data(), record.buffer.size()};
    msghdr message         = {};
    message.msg_iov        = &data;
    message.msg_iovlen     = 1;
    message.msg_control    = control.bytes;
    message.msg_controllen = sizeof control.bytes;

    datagram           = {};
    ssize_t const size = ::recvmsg(record.socket.get(), &message, MSG_CMSG_CLOEXEC);
    if (size < 0) {
        return errno == EAGAIN || errno == EINTR;
    }
    cmsghdr const* const head = CMSG_FIRSTHDR(&message);
    if (size == 0 && head == nullptr) {
        return false;  // shut down: even an empty datagram has a sender
    }
    if ((message.msg_flags & MSG_TRUNC) == 0 && head != nullptr && head->cmsg_level == SOL_SOCKET &&
        head->cmsg_type == SCM_CREDENTIALS) {
        std::memcpy(&sender, CMSG_DATA(head), sizeof sender);
        datagram = std::string_view(record.buffer.data(), static_cast<std::size_t>(size));
    }
    return true;
}

void deliver(observer_record const& record, std::string_view datagram, ucred const& sender)
{
    static notification_center center;
    notification               received;
    if (decode_notification(datagram, received) && received.name.text == record.name &&
        received.object.text == record.object &&
        may_be_trusted(sender, record.user, received.info)) {
        record.proc(&center, record.observer, &received.name, &received.object, &received.info);
    }
}

void read_notifications(observer_record& record)
{
    std::string_view datagram;
    ucred            sender = {};
    bool             open   = true;
    while (open && !record.ended) {
        // An exception of the proc ends this one delivery. For want of memory a notification may
        // be lost; its file waits for salvage.
        open = at_c_boundary(true, [&] {
            bool const more = receive(record, datagram, sender);
            if (!datagram.empty() && !record.ended) {
                deliver(record, datagram, sender);
            } else if (more) {
                stay_reachable(record);
            }
            return more;
        });
    }
}

void forget(observer_record const& ended)
{
    mutex_lock const hold(observers.guard);
    take_out(ended);
}

void* observe(void* argument)
{
    observer_record& record = *static_cast<observer_record*>(argument);
    delivering              = &record;
    read_notifications(record);
    if (record.frees_itself) {
        forget(record);
    }
    return nullptr;
}

// Removes what observers have left that were killed before their sockets got their names.
void remove_unready_sockets()
{
    observers_place const where = find_observers_place();
    std::time_t const     now   = std::time(nullptr);
    for (std::string const& name :
         names_in(where.fd.get(), "", unready_suffix, time_point::max())) {
        struct stat status = {};
        if (::fstatat(where.fd.get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
            S_ISSOCK(status.st_mode) && now - status.st_mtime > unready_s) {
            ::unlinkat(where.fd.get(), name.c_str(), 0);
        }
    }
}

// Makes an observer unreachable, and has its thread end.
void close_observer(observer_record& record)
{
    ::unlinkat(record.where.fd.get(), record.file.c_str(), 0);
    record.ended = true;
    ::shutdown(record.socket.get(), SHUT_RD);
}

// add_observer, for a record that is complete but for its place, socket and thread.
int start_observing(std::unique_ptr<observer_record> record)
{
    if (!settle(*record)) {
        return -1;
    }
    observer_record& added = *record.release();
    added.next             = observers.first;
    observers.first        = &added;
    if (start_thread_without_signals(added.thread, observe, &added) != 0) {
        close_observer(added);
        take_out(added);
        return -1;
    }
    return 0;
}

}  // namespace

int add_observer(char const* name, char const* object, notification_proc proc, void* observer)
{
    return at_c_boundary(-1, [&] {
        auto record      = std::make_unique<observer_record>();
        record->name     = name;
        record->object   = object;
        record->proc     = proc;
        record->observer = observer;
        remove_unready_sockets();  // without the lock: a fork of the host would wait for it
        // The proc may remove its observer from its first call on, and has to find it then.
        mutex_lock const hold(observers.guard);
        return start_observing(std::move(record));
    });
}

int remove_observer(char const* name, char const* object, void* observer)
{
    observer_record* found = nullptr;
    {
        mutex_lock const hold(observers.guard);
        found = observers.first;
        while (found != nullptr && (found->ended || found->observer != observer ||
                                    found->name != name || found->object != object)) {
            found = found->next;
        }
        if (found == nullptr) {
            return -1;
        }
        close_observer(*found);
    }
    if (found == delivering) {
        found->frees_itself = true;
        ::pthread_detach(found->thread);
    } else {
        ::pthread_join(found->thread, nullptr);
        forget(*found);
    }
    return 0;
}

}  // namespace zelieml::platform
