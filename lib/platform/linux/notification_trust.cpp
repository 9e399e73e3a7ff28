#include "platform/linux/notification_trust.h"

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>

namespace zelieml::platform
{

namespace
{

// Whether a stranger can exchange nothing on the way to a directory, and in it nothing but what is
// his own.
//
// directory  absolute, without links, as realpath makes it
bool is_out_of_reach(std::string const& directory, uid_t user)
{
    // From the root on: what has been looked at stays what it is.
    for (std::size_t size = 1;; size = std::min(directory.find('/', size + 1), directory.size())) {
        struct stat status = {};
        if (::lstat(directory.substr(0, size).c_str(), &status) != 0 ||
            !is_safe_directory(status, user)) {
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

}  // namespace

bool is_safe_directory(struct stat const& status, uid_t user)
{
    bool const closed = (status.st_mode & (S_IWGRP | S_IWOTH)) == 0;
    return S_ISDIR(status.st_mode) && (status.st_uid == 0 || status.st_uid == user) &&
           (closed || (status.st_mode & S_ISVTX) != 0);
}

bool may_be_trusted(ucred const& sender, uid_t user, notification_info& info)
{
    if (sender.uid == user || sender.uid == 0) {
        return true;
    }
    info.stranger = sender.uid;
    // As the proc reads it, up to a NUL.
    info.value = path_to_strangers_file(info.value.c_str(), sender.uid, user);
    return info.has_value && !info.value.empty();
}

std::optional<uid_t> notification_stranger(notification_info const* info)
{
    return info->stranger;
}

}  // namespace zelieml::platform
