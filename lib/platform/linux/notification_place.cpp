#include "platform/linux/notification_place.h"

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

#include "platform/linux/directory_handle.h"
#include "platform/linux/notification_trust.h"

namespace zelieml::platform
{

namespace
{

using clock = std::chrono::steady_clock;

constexpr mode_t own_directory  = 0700;
constexpr mode_t run_directory  = 0755;
constexpr mode_t shared_socket  = 0666;
constexpr mode_t own_socket     = 0600;
constexpr char   users_prefix[] = ".zelieml-";
constexpr int    max_names      = 10000;

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

std::string own_place()
{
    uid_t const self = ::geteuid();
    return self == 0 ? root() + "/run/zelieml-root"
                     : users_root() + "/" + users_prefix + std::to_string(self);
}

void make_directory(std::string const& path, mode_t mode)
{
    if (::mkdir(path.c_str(), mode) == 0) {
        ::chmod(path.c_str(), mode);  // whatever the umask
    }
}

posters_places users_places(time_point until)
{
    posters_places  places;
    unique_fd const fd(::open(users_root().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    for (std::string const& name : names_in(fd.get(), users_prefix, "", until)) {
        std::string const number = name.substr(sizeof users_prefix - 1);
        auto const        owner  = static_cast<uid_t>(std::strtoul(number.c_str(), nullptr, 10));
        struct stat       status = {};
        // One spelling for a number, and so one directory for a user.
        if (std::to_string(owner) == number &&
            ::fstatat(fd.get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
            is_safe_directory(status, owner)) {
            places.push_back({users_root() + "/" + name, owner});
        }
    }
    return places;
}

}  // namespace

unique_fd open_place(std::string const& path, uid_t owner)
{
    unique_fd fd = above_standard(
        unique_fd(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC)));
    struct stat status = {};
    if (fd && (::fstat(fd.get(), &status) != 0 || !is_safe_directory(status, owner))) {
        fd.reset();
        errno = EACCES;
    }
    return fd;
}

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
    for (int looked_at = 0; looked_at < max_names && clock::now() < until; ++looked_at) {
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

std::vector<posters_places> find_posters_places(time_point until)
{
    uid_t const                 self = ::geteuid();
    std::vector<posters_places> all;
    for (std::string const& path : {own_place(), shared_place()}) {
        if (::access(path.c_str(), F_OK) == 0) {
            all.push_back({{path, self}});
        }
    }
    if (self == 0) {
        posters_places users = users_places(until);
        if (!users.empty()) {
            all.push_back(std::move(users));
        }
    }
    return all;
}

observers_place find_observers_place()
{
    uid_t const     self = ::geteuid();
    observers_place found;
    found.path        = shared_place();
    found.socket_mode = shared_socket;
    found.fd          = open_place(found.path, self);
    if (!found.fd && errno == ENOENT) {
        found.path        = own_place();
        found.socket_mode = own_socket;
        if (self == 0) {
            make_directory(root() + "/run", run_directory);  // a bare one may have none
        }
        make_directory(found.path, own_directory);
        found.fd = open_place(found.path, self);
    }
    return found;
}

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

std::string socket_prefix(char const* object)
{
    std::uint64_t hash = 14695981039346656037U;  // FNV-1a, 64 bits
    for (; *object != '\0'; ++object) {
        hash = (hash ^ static_cast<unsigned char>(*object)) * 1099511628211U;
    }
    char text[18];
    std::snprintf(text, sizeof text, "%016" PRIx64 "-", hash);
    return text;
}

}  // namespace zelieml::platform
