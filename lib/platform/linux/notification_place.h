// notification_place.h - where the sockets of observers are, and whose
//
//     /run/zelieml         for all users, when an administrator made it (root's, mode 1777)
//     /run/zelieml-root    root's own (0700), made on demand; nobody else can make it
//     /tmp/.zelieml-<uid>  a user's own (0700), made on demand
//
// An observer is in the shared directory when there is one, else in its user's own. A poster looks
// into the shared one, into its own, and as root into everybody's. Nothing else decides it: cron,
// a print scheduler and a shell have different environments and must agree. A directory that is
// not a real one, neither root's nor the user's own, or one in which others can exchange things is
// not used.
//
// The name of a socket file begins with a hash of the object, so that a poster connects only to
// those that may be meant.

#ifndef ZELIEML_PLATFORM_LINUX_NOTIFICATION_PLACE_H
#define ZELIEML_PLATFORM_LINUX_NOTIFICATION_PLACE_H

#include <chrono>
#include <string>
#include <sys/types.h>
#include <sys/un.h>
#include <vector>

#include "support/unique_fd.h"

namespace zelieml::platform
{

using time_point = std::chrono::steady_clock::time_point;

constexpr char socket_suffix[] = ".sock";

// open_place - open a directory in which sockets may lie
//
// owner  besides root, whose directory is acceptable
//
// Returns nothing when it cannot be used; errno is ENOENT when there is none.
unique_fd open_place(std::string const& path, uid_t owner);

// The directory in which an observer belongs.
struct observers_place {
    std::string path;
    unique_fd   fd;  // nothing when it cannot be used
    mode_t      socket_mode = 0;
};

observers_place find_observers_place();

// A directory that a poster looks into, and whose it may be.
struct posters_place {
    std::string path;
    uid_t       owner;
};

using posters_places = std::vector<posters_place>;

// The places that a poster looks into, those first that fewer people can do something to: its own,
// the shared one, and as root those of all users, as far as they are found in time. None of the
// three is empty.
std::vector<posters_places> find_posters_places(time_point until);

// The names in a directory that begin and end like this; those that are found in time, among the
// first 10,000 names that are there.
std::vector<std::string> names_in(int directory, std::string const& start, std::string const& end,
                                  time_point until);

// What the names of an object's sockets begin with.
std::string socket_prefix(char const* object);

// A short path to what a descriptor stands for, whatever its name means by now.
std::string path_through(unique_fd const& fd);

sockaddr_un address_of(std::string const& path);

}  // namespace zelieml::platform

#endif
