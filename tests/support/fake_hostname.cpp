#include "tests/support/fake_hostname.h"

#include <cerrno>
#include <cstring>
#include <mutex>

namespace
{

std::mutex  guard;
std::string host_name;
bool        named = false;

}  // namespace

#define TEXT_OF(token)       #token
#define SYMBOL(prefix, name) TEXT_OF(prefix) name

// The linker takes the program's own gethostname before the system's. Declared under another name,
// since the system's header has declared it already, with attributes that differ between systems.
int program_gethostname(char*       name,
                        std::size_t size) __asm__(SYMBOL(__USER_LABEL_PREFIX__, "gethostname"));

int program_gethostname(char* name, std::size_t size)
{
    std::lock_guard<std::mutex> hold(guard);
    if (!named) {
        errno = EPERM;
        return -1;
    }
    if (host_name.size() >= size) {
        errno = ENAMETOOLONG;
        return -1;
    }
    std::memcpy(name, host_name.c_str(), host_name.size() + 1);
    return 0;
}

namespace zelieml::test
{

void set_host_name(std::string const& name)
{
    std::lock_guard<std::mutex> hold(guard);
    host_name = name;
    named     = true;
}

void lose_host_name()
{
    std::lock_guard<std::mutex> hold(guard);
    named = false;
}

}  // namespace zelieml::test
