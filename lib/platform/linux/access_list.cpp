// access_list.cpp - the extended attribute in which the kernel keeps a POSIX access list

#include "platform/access_list.h"

#include <cerrno>
#include <string>
#include <sys/types.h>
#include <sys/xattr.h>

namespace zelieml::platform
{

namespace
{

constexpr char attribute[] = "system.posix_acl_access";

// Whether the last call failed because there is no list.
bool has_none()
{
    return errno == ENODATA || errno == ENOTSUP;
}

}  // namespace

bool copy_access_list(int from, int to)
{
    ssize_t const size = ::fgetxattr(from, attribute, nullptr, 0);
    if (size <= 0) {
        return (size == 0 || has_none()) && remove_access_list(to);
    }
    std::string list(static_cast<std::size_t>(size), '\0');
    return ::fgetxattr(from, attribute, &list[0], list.size()) == size &&
           ::fsetxattr(to, attribute, list.data(), list.size(), 0) == 0;
}

bool remove_access_list(int file)
{
    return ::fremovexattr(file, attribute) == 0 || has_none();
}

}  // namespace zelieml::platform
