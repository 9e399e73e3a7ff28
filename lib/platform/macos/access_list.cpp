// access_list.cpp - acl_get_fd and acl_set_fd

#include "platform/access_list.h"

#include <memory>
#include <sys/acl.h>
#include <type_traits>

namespace zelieml::platform
{

namespace
{

struct list_deleter {
    void operator()(acl_t list) const { ::acl_free(list); }
};

using list_owner = std::unique_ptr<std::remove_pointer_t<acl_t>, list_deleter>;

}  // namespace

bool copy_access_list(int from, int to)
{
    list_owner const list(::acl_get_fd(from));  // null: there is none
    return list ? ::acl_set_fd(to, list.get()) == 0 : remove_access_list(to);
}

bool remove_access_list(int file)
{
    if (!list_owner(::acl_get_fd(file))) {
        return true;  // as on every file system without lists
    }
    list_owner const none(::acl_init(0));
    return none && ::acl_set_fd(file, none.get()) == 0;
}

}  // namespace zelieml::platform
