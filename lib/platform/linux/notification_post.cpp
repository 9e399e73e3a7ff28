// notification_post.cpp - posting to the sockets of observers
//
// A poster connects to every socket that may be meant, through /proc/self/fd.

#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>
#include <vector>

#include "platform/linux/notification_datagram.h"
#include "platform/linux/notification_place.h"
#include "platform/linux/share_time.h"
#include "platform/notification.h"
#include "support/no_cancellation.h"
#include "support/unique_fd.h"

namespace zelieml::platform
{

namespace
{

using clock = std::chrono::steady_clock;

constexpr auto post_limit = std::chrono::milliseconds(500);
constexpr auto look_limit = post_limit / 4;  // of it, for finding places

// Sends one datagram to one socket, and removes the file of an observer that is no more.
//
// until  waits for room until then; when that is past, not at all
//
// Returns false when there was no room.
bool tell(unique_fd const& where, std::string const& name, std::string const& datagram,
          time_point until)
{
    // A link would take root's datagrams to where a user wants them.
    unique_fd const file(::openat(where.get(), name.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    struct stat     status = {};
    if (!file || ::fstat(file.get(), &status) != 0 || !S_ISSOCK(status.st_mode)) {
        return true;
    }
    unique_fd const fd = above_standard(unique_fd(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)));
    sockaddr_un const address = address_of(path_through(file));
    if (!fd) {
        return true;
    }
    if (::connect(fd.get(), reinterpret_cast<sockaddr const*>(&address), sizeof address) != 0) {
        if (errno == ECONNREFUSED) {
            ::unlinkat(where.get(), name.c_str(), 0);
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

// Tells all sockets in a place that begin like this, and then waits for those without room.
void tell_all(posters_place const& place, std::string const& start, std::string const& datagram,
              time_point until)
{
    unique_fd const          where = open_place(place.path, place.owner);
    std::vector<std::string> full;
    for (std::string const& name : names_in(where.get(), start, socket_suffix, until)) {
        if (clock::now() >= until) {
            return;  // so many sockets, or so slow ones, that they have taken their time
        }
        if (!tell(where, name, datagram, time_point())) {
            full.push_back(name);
        }
    }
    share_time(full, until,
               [&](std::string const& name, time_point end) { tell(where, name, datagram, end); });
}

void post_datagram(char const* object, std::string const& datagram)
{
    time_point const  begin = clock::now();
    std::string const start = socket_prefix(object);
    share_time(find_posters_places(begin + look_limit), begin + post_limit,
               [&](posters_places const& places, time_point end) {
                   share_time(places, end, [&](posters_place const& place, time_point limit) {
                       tell_all(place, start, datagram, limit);
                   });
               });
}

}  // namespace

int post_notification(char const* name, char const* object, char const* key, char const* value)
{
    no_cancellation const shielded;  // descriptors are open, and it takes half a second at most
    post_datagram(object, encode_notification(name, object, key, value));
    return 0;
}

}  // namespace zelieml::platform
