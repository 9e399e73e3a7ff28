// notification.cpp - notifications between processes, over local datagram sockets
//
// An observer is a socket file with a thread that reads it. The file's name begins with a hash of
// the object, so that a poster connects only to those that may be meant; the datagram carries name
// and object in full, and the observer compares them.
//
//     /run/zelieml         for all users, when an administrator made it (root's, mode 1777)
//     /tmp/.zelieml-<uid>  a user's own (0700), made on demand
//
// An observer is in the shared directory when there is one, else in its user's own. A poster looks
// into the shared one, into its own, and as root into everybody's. Nothing else decides it: cron,
// a print scheduler and a shell have different environments and must agree. A directory that is
// not a real one, or neither root's nor the user's own, is not used.
//
// Threads: each observer has one, which ends by taking its record out of the registry. Descriptors
// of observers are made and closed under the registry's lock, so that a fork finds them all.
//
// Posting goes through /proc/self/fd, and so does an observer in a directory with a long path.

#include "platform/notification.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <memory>
#include <poll.h>
#include <pthread.h>
#include <string>
#include <string_view>
#include <sys/eventfd.h>
#include <sys/file.h>
#include <sys/random.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>
#include <utility>
#include <vector>

#include "platform/linux/directory_handle.h"
#include "platform/thread.h"
#include "support/c_boundary.h"
#include "support/mutex_lock.h"
#include "support/no_cancellation.h"
#include "support/unique_fd.h"

namespace zelieml::platform
{

struct notification_center {
};

struct notification_text {
    std::string text;
};

struct notification_info {
    bool        has_value;
    std::string key;
    std::string value;
};

namespace
{

using clock      = std::chrono::steady_clock;
using time_point = clock::time_point;

constexpr std::size_t max_datagram     = 65536;
constexpr auto        post_limit       = std::chrono::milliseconds(500);
constexpr std::time_t unready_s        = 60;
constexpr mode_t      own_directory    = 0700;
constexpr mode_t      shared_socket    = 0666;
constexpr mode_t      own_socket       = 0600;
constexpr char        socket_suffix[]  = ".sock";
constexpr char        unready_suffix[] = ".new";
constexpr char        users_prefix[]   = ".zelieml-";

// ------------------------------------------------------------------ places

// For the tests only, which must not meet the notifications of the machine they run on. A program
// with more rights than its caller does not look.
std::string root()
{
    char const* const set = ::secure_getenv("ZELIEML_NOTIFICATION_ROOT");
    return set != nullptr ? set : "";
}

std::string shared_place()
{
    return root() + "/run/zelieml";
}

std::string users_root()
{
    return root() + "/tmp";
}

std::string users_place(uid_t user)
{
    return users_root() + "/" + users_prefix + std::to_string(user);
}

// A directory in which sockets may lie.
struct place {
    std::string path;
    unique_fd   fd;               // nothing when it cannot be used
    bool        missing = false;  // there is no such directory
};

// owner  besides root and the process's own user, whose directory is acceptable
place open_place(std::string const& path, uid_t owner = ::geteuid())
{
    place opened;
    opened.path = path;
    unique_fd fd(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!fd) {
        opened.missing = errno == ENOENT;
        return opened;
    }
    struct stat status = {};
    if (::fstat(fd.get(), &status) == 0 &&
        (status.st_uid == 0 || status.st_uid == ::geteuid() || status.st_uid == owner)) {
        opened.fd = std::move(fd);
    }
    return opened;
}

// The names in a directory that begin and end like this; those that are found in time.
std::vector<std::string> names_in(int directory, std::string const& start, std::string const& end,
                                  time_point until)
{
    std::vector<std::string> names;
    unique_fd                fd(::openat(directory, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    directory_handle const   open(fd ? ::fdopendir(fd.get()) : nullptr);
    if (!open) {
        return names;
    }
    fd.release();  // the listing's now
    while (clock::now() < until) {
        dirent const* const entry = ::readdir(open.get());
        if (entry == nullptr) {
            break;
        }
        std::string const name = entry->d_name;
        if (name.size() >= start.size() + end.size() && name.compare(0, start.size(), start) == 0 &&
            name.compare(name.size() - end.size(), end.size(), end) == 0) {
            names.push_back(name);
        }
    }
    return names;
}

// A directory that a poster looks into, and whose it may be.
struct place_to_look {
    std::string path;
    uid_t       owner;
};

std::vector<place_to_look> posters_places(time_point until)
{
    uid_t const                self = ::geteuid();
    std::vector<place_to_look> places;
    places.push_back({shared_place(), self});
    if (self != 0) {
        places.push_back({users_place(self), self});
        return places;
    }
    unique_fd const fd(::open(users_root().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    for (std::string const& name : names_in(fd.get(), users_prefix, "", until)) {
        auto const owner =
            static_cast<uid_t>(std::strtoul(name.c_str() + sizeof users_prefix - 1, nullptr, 10));
        std::string path = users_place(owner);
        // One spelling for a number, and so one directory for a user.
        if (path == users_root() + "/" + name) {
            places.push_back({std::move(path), owner});
        }
    }
    return places;
}

// A short path to what a descriptor stands for, whatever its name means by now.
std::string path_through(unique_fd const& fd)
{
    return "/proc/self/fd/" + std::to_string(fd.get());
}

sockaddr_un address_of(std::string const& path)
{
    sockaddr_un address = {};
    address.sun_family  = AF_UNIX;
    std::memcpy(address.sun_path, path.c_str(), std::min(path.size(), sizeof address.sun_path - 1));
    return address;
}

std::string hash_of(char const* object)
{
    std::uint64_t hash = 14695981039346656037U;  // FNV-1a, 64 bits
    for (; *object != '\0'; ++object) {
        hash = (hash ^ static_cast<unsigned char>(*object)) * 1099511628211U;
    }
    char text[17];
    std::snprintf(text, sizeof text, "%016" PRIx64, hash);
    return text;
}

// ------------------------------------------------------------------ datagrams

// What a datagram begins with: fixed widths, since 32-bit and 64-bit processes talk to each other.
// The texts follow in this order, without NULs.
struct datagram_head {
    char          mark[4];
    std::uint32_t name;
    std::uint32_t object;
    std::uint32_t key;
    std::uint32_t value;
    std::uint32_t has_value;
};

constexpr char datagram_mark[4] = {'z', 'm', 'n', '1'};

struct notification {
    notification_text name;
    notification_text object;
    notification_info info;
};

std::string encode(char const* name, char const* object, char const* key, char const* value)
{
    auto length = [](char const* text) { return static_cast<std::uint32_t>(std::strlen(text)); };

    datagram_head head = {};
    std::memcpy(head.mark, datagram_mark, sizeof head.mark);
    head.has_value = value != nullptr ? 1 : 0;
    value          = value != nullptr ? value : "";
    head.name      = length(name);
    head.object    = length(object);
    head.key       = length(key);
    head.value     = length(value);
    std::string all(reinterpret_cast<char const*>(&head), sizeof head);
    return all + name + object + key + value;
}

// Returns false for anything that encode does not make.
bool decode(std::string_view datagram, notification& out)
{
    datagram_head head = {};
    if (datagram.size() < sizeof head) {
        return false;
    }
    std::memcpy(&head, datagram.data(), sizeof head);
    std::uint64_t const total =
        sizeof head + std::uint64_t{head.name} + head.object + head.key + std::uint64_t{head.value};
    if (std::memcmp(head.mark, datagram_mark, sizeof head.mark) != 0 || total != datagram.size()) {
        return false;
    }
    std::size_t at   = sizeof head;
    auto        take = [&](std::uint32_t size) {
        std::string text(datagram.substr(at, size));
        at += size;
        return text;
    };
    out.name.text      = take(head.name);
    out.object.text    = take(head.object);
    out.info.key       = take(head.key);
    out.info.value     = take(head.value);
    out.info.has_value = head.has_value != 0;
    return true;
}

// ------------------------------------------------------------------ observers

struct observer_record {
    observer_record*  next = nullptr;  // in the registry
    std::string       name;
    std::string       object;
    notification_proc proc     = nullptr;
    void*             observer = nullptr;
    uid_t             user     = 0;

    place             where;
    std::string       file;  // the socket file's name there
    unique_fd         socket;
    unique_fd         wake_up;  // readable when the record is to end
    std::atomic<bool> ended{false};
    pthread_t         thread = {};

    std::vector<char> buffer = std::vector<char>(max_datagram);
};

// The observers of the process. A record stays until its thread ends, even when its observer has
// been removed: then it is marked as ended. Nothing here is ever destroyed, since threads may still
// deliver while the process ends; and an empty list has no memory that a host could lose by
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
// dead engine looks alive.
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
        record->wake_up.reset();
        record->where.fd.reset();
        // A proc that forks returns to its thread also in the child; that record is still in use.
        if (record != delivering) {
            take_out(*record);
        }
    }
    ::pthread_mutex_unlock(&observers.guard);
}

[[maybe_unused]] int const forks_watched =
    ::pthread_atfork(before_fork, after_fork_in_parent, after_fork_in_child);

// Whether a stranger can exchange nothing on the way to a directory, and in it nothing but what is
// his own: each is root's or the user's, and others may not write to it unless it is sticky.
//
// directory  absolute, without links, as realpath makes it
bool is_out_of_reach(std::string const& directory, uid_t user)
{
    // From the root on: what has been looked at stays what it is.
    for (std::size_t size = 1;; size = std::min(directory.find('/', size + 1), directory.size())) {
        struct stat status = {};
        if (::lstat(directory.substr(0, size).c_str(), &status) != 0 || !S_ISDIR(status.st_mode) ||
            (status.st_uid != 0 && status.st_uid != user) ||
            ((status.st_mode & (S_IWGRP | S_IWOTH)) != 0 && (status.st_mode & S_ISVTX) == 0)) {
            return false;
        }
        if (size == directory.size()) {
            return true;
        }
    }
}

struct text_releaser {
    void operator()(char* text) const { std::free(text); }
};

// The path by which the observer's user reaches a stranger's file, now and later: empty when it is
// not the stranger's own regular file, or when he could have the path lead to another one.
std::string path_to_strangers_file(std::string const& path, uid_t stranger, uid_t user)
{
    std::size_t const slash = path.rfind('/');
    if (slash == std::string::npos) {
        return {};
    }
    std::unique_ptr<char, text_releaser> const resolved(
        ::realpath(path.substr(0, slash + 1).c_str(), nullptr));
    if (!resolved || !is_out_of_reach(resolved.get(), user)) {
        return {};
    }
    std::string const directory = resolved.get();
    std::string       file      = (directory == "/" ? "" : directory) + path.substr(slash);
    struct stat       status    = {};
    bool const        is_his =
        ::lstat(file.c_str(), &status) == 0 && S_ISREG(status.st_mode) && status.st_uid == stranger;
    return is_his ? file : std::string();
}

// A notification names a file that will be read, mailed and deleted: it counts when it comes from
// the observer's own user, from root, or from the owner of that very file.
//
// info  a stranger's path is replaced by one that he has no hold on
bool may_be_trusted(ucred const& sender, uid_t user, notification_info& info)
{
    if (sender.uid == user || sender.uid == 0) {
        return true;
    }
    // As the proc reads it, up to a NUL.
    info.value = path_to_strangers_file(info.value.c_str(), sender.uid, user);
    return info.has_value && !info.value.empty();
}

enum class reception {
    taken,
    dropped,
    nothing
};

// Takes one datagram, if there is one, and the sender the kernel vouches for.
//
// datagram  receives a view of the record's buffer
reception receive(observer_record& record, std::string_view& datagram, ucred& sender)
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

    ssize_t const size = ::recvmsg(record.socket.get(), &message, MSG_DONTWAIT | MSG_CMSG_CLOEXEC);
    if (size < 0) {
        return errno == EINTR ? reception::dropped : reception::nothing;
    }
    datagram = std::string_view(record.buffer.data(), static_cast<std::size_t>(size));
    cmsghdr const* const head = CMSG_FIRSTHDR(&message);
    if ((message.msg_flags & MSG_TRUNC) != 0 || head == nullptr || head->cmsg_level != SOL_SOCKET ||
        head->cmsg_type != SCM_CREDENTIALS) {
        return reception::dropped;
    }
    std::memcpy(&sender, CMSG_DATA(head), sizeof sender);
    return reception::taken;
}

void deliver(observer_record const& record, std::string_view datagram, ucred const& sender)
{
    static notification_center center;
    notification               received;
    if (decode(datagram, received) && received.name.text == record.name &&
        received.object.text == record.object &&
        may_be_trusted(sender, record.user, received.info)) {
        record.proc(&center, record.observer, &received.name, &received.object, &received.info);
    }
}

void read_notifications(observer_record& record)
{
    std::string_view datagram;
    ucred            sender = {};
    while (!record.ended) {
        reception const got = receive(record, datagram, sender);
        if (got == reception::taken) {
            deliver(record, datagram, sender);
        } else if (got == reception::nothing) {
            pollfd events[] = {{record.socket.get(), POLLIN, 0}, {record.wake_up.get(), POLLIN, 0}};
            ::poll(events, 2, -1);
        }
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
    while (!record.ended) {
        // An exception of the proc ends this one delivery. For want of memory a notification may
        // be lost; its file waits for salvage.
        at_c_boundary(0, [&] {
            read_notifications(record);
            return 0;
        });
    }
    forget(record);
    return nullptr;
}

// Removes what observers have left that were killed before their sockets got their names.
void remove_unready_sockets(int directory)
{
    std::time_t const now = std::time(nullptr);
    for (std::string const& name : names_in(directory, "", unready_suffix, time_point::max())) {
        struct stat status = {};
        if (::fstatat(directory, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
            S_ISSOCK(status.st_mode) && now - status.st_mtime > unready_s) {
            ::unlinkat(directory, name.c_str(), 0);
        }
    }
}

// Makes the record's socket file. It gets its name when it is ready to be met.
bool open_socket(observer_record& record, mode_t mode)
{
    record.socket.reset(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    record.wake_up.reset(::eventfd(0, EFD_CLOEXEC));
    int const     on     = 1;
    std::uint64_t random = 0;
    if (!record.socket || !record.wake_up ||
        ::setsockopt(record.socket.get(), SOL_SOCKET, SO_PASSCRED, &on, sizeof on) != 0 ||
        ::getrandom(&random, sizeof random, 0) != static_cast<ssize_t>(sizeof random)) {
        return false;
    }

    char tail[64];
    std::snprintf(tail, sizeof tail, "-%d-%016" PRIx64, static_cast<int>(::getpid()), random);
    std::string const name    = hash_of(record.object.c_str()) + tail;
    std::string const unready = name + unready_suffix;
    record.file               = name + socket_suffix;

    std::string path = record.where.path + "/" + unready;
    if (path.size() >= sizeof sockaddr_un::sun_path) {
        path = path_through(record.where.fd) + "/" + unready;
    }
    int const         directory = record.where.fd.get();
    sockaddr_un const address   = address_of(path);
    if (::bind(record.socket.get(), reinterpret_cast<sockaddr const*>(&address), sizeof address) !=
        0) {
        return false;
    }
    if (::fchmodat(directory, unready.c_str(), mode, 0) != 0 ||
        ::renameat(directory, unready.c_str(), directory, record.file.c_str()) != 0) {
        ::unlinkat(directory, unready.c_str(), 0);
        return false;
    }
    return true;
}

// Where an observer belongs, and the mode of its socket.
place observers_place(mode_t& mode)
{
    mode        = shared_socket;
    place where = open_place(shared_place());
    if (where.missing) {
        mode                  = own_socket;
        std::string const own = users_place(::geteuid());
        if (::mkdir(own.c_str(), own_directory) == 0) {
            ::chmod(own.c_str(), own_directory);  // whatever the umask
        }
        where = open_place(own);
    }
    if (where.fd) {
        // systemd-tmpfiles removes old files from /tmp, but nothing from a directory that is
        // locked. It knows living sockets by the name they were bound to, which ours have changed.
        ::flock(where.fd.get(), LOCK_SH | LOCK_NB);
    }
    return where;
}

// Makes an observer unreachable, and has its thread end.
void close_observer(observer_record& record)
{
    ::unlinkat(record.where.fd.get(), record.file.c_str(), 0);
    record.ended                = true;
    std::uint64_t const one     = 1;
    ssize_t const       written = ::write(record.wake_up.get(), &one, sizeof one);
    (void)written;  // a counter of 0 takes it
}

// ------------------------------------------------------------------ posting

// Sends one datagram to one socket, and removes the file of an observer that is no more.
//
// until  waits for room until then; when that is past, not at all
//
// Returns false when there was no room.
bool tell(place const& where, std::string const& name, std::string const& datagram,
          time_point until)
{
    // A link would take root's datagrams to where a user wants them.
    unique_fd const file(::openat(where.fd.get(), name.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    struct stat     status = {};
    if (!file || ::fstat(file.get(), &status) != 0 || !S_ISSOCK(status.st_mode)) {
        return true;
    }
    unique_fd const   fd(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    sockaddr_un const address = address_of(path_through(file));
    if (!fd) {
        return true;
    }
    if (::connect(fd.get(), reinterpret_cast<sockaddr const*>(&address), sizeof address) != 0) {
        if (errno == ECONNREFUSED) {
            ::unlinkat(where.fd.get(), name.c_str(), 0);
        }
        return true;
    }

    union {
        cmsghdr head;
        char    bytes[CMSG_SPACE(sizeof(ucred))];
    } control               = {};
    iovec  data             = {const_cast<char*>(datagram.data()), datagram.size()};  // only read
    msghdr message          = {};
    message.msg_iov         = &data;
    message.msg_iovlen      = 1;
    message.msg_control     = control.bytes;
    message.msg_controllen  = sizeof control.bytes;
    control.head.cmsg_level = SOL_SOCKET;
    control.head.cmsg_type  = SCM_CREDENTIALS;
    control.head.cmsg_len   = CMSG_LEN(sizeof(ucred));
    ucred const sender      = {::getpid(), ::geteuid(), ::getegid()};
    std::memcpy(CMSG_DATA(&control.head), &sender, sizeof sender);

    // Polling says nothing about the peer's queue: the send itself has to wait for room.
    for (;;) {
        auto const left  = std::chrono::ceil<std::chrono::microseconds>(until - clock::now());
        int        flags = MSG_NOSIGNAL | MSG_DONTWAIT;
        if (left.count() > 0) {
            timeval limit = {};
            limit.tv_usec = static_cast<suseconds_t>(left.count());
            ::setsockopt(fd.get(), SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
            flags = MSG_NOSIGNAL;
        }
        if (::sendmsg(fd.get(), &message, flags) >= 0) {
            return true;
        }
        if (errno != EINTR) {
            return errno != EAGAIN;
        }
    }
}

// One observer without room for a datagram.
struct full_observer {
    place_to_look const* where;
    std::string          file;
};

// Tries them once more, and waits for room: each has its share of the time that is left, so that
// many dead ends cost a poster no more than one does.
void tell_full_ones(std::vector<full_observer> const& full, std::string const& datagram,
                    time_point until)
{
    auto count = static_cast<int>(full.size());
    for (full_observer const& observer : full) {
        time_point const now = clock::now();
        if (now >= until) {
            return;
        }
        tell(open_place(observer.where->path, observer.where->owner), observer.file, datagram,
             now + (until - now) / count--);
    }
}

void post_datagram(char const* object, std::string const& datagram)
{
    time_point const                 until  = clock::now() + post_limit;
    std::string const                start  = hash_of(object) + "-";
    std::vector<place_to_look> const places = posters_places(until);
    std::vector<full_observer>       full;
    for (place_to_look const& look : places) {
        place const where = open_place(look.path, look.owner);
        for (std::string const& file : names_in(where.fd.get(), start, socket_suffix, until)) {
            if (clock::now() >= until) {
                return;  // so many sockets, or so slow ones, that the post has taken its time
            }
            if (!tell(where, file, datagram, time_point())) {
                full.push_back({&look, file});
            }
        }
    }
    tell_full_ones(full, datagram, until);
}

// add_observer, for a record that is complete but for its place, socket and thread.
int start_observing(std::unique_ptr<observer_record> record)
{
    mode_t mode   = 0;
    record->where = observers_place(mode);
    if (!record->where.fd) {
        return -1;
    }
    remove_unready_sockets(record->where.fd.get());
    if (!open_socket(*record, mode)) {
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

bool notification_value(notification_info const* info, char const* key, char* buf, std::size_t size)
{
    if (!info->has_value || info->key != key || info->value.size() >= size) {
        return false;
    }
    std::memcpy(buf, info->value.c_str(), info->value.size() + 1);
    return true;
}

int add_observer(char const* name, char const* object, notification_proc proc, void* observer)
{
    // The proc may remove its observer from its first call on: it finds it in the registry then.
    mutex_lock const hold(observers.guard);
    return at_c_boundary(-1, [&] {
        auto record      = std::make_unique<observer_record>();
        record->name     = name;
        record->object   = object;
        record->proc     = proc;
        record->observer = observer;
        record->user     = ::geteuid();
        return start_observing(std::move(record));
    });
}

int remove_observer(char const* name, char const* object, void* observer)
{
    pthread_t thread          = {};
    bool      from_its_thread = false;
    {
        mutex_lock const hold(observers.guard);
        observer_record* found = observers.first;
        while (found != nullptr && (found->ended || found->observer != observer ||
                                    found->name != name || found->object != object)) {
            found = found->next;
        }
        if (found == nullptr) {
            return -1;
        }
        thread          = found->thread;
        from_its_thread = found == delivering;
        close_observer(*found);
    }
    // The record may be gone by now.
    if (from_its_thread) {
        ::pthread_detach(thread);
    } else {
        ::pthread_join(thread, nullptr);
    }
    return 0;
}

int post_notification(char const* name, char const* object, char const* key, char const* value)
{
    no_cancellation const shielded;  // descriptors are open, and it takes half a second at most
    post_datagram(object, encode(name, object, key, value));
    return 0;
}

}  // namespace zelieml::platform
