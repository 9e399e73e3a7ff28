// symbols.cpp - see symbols.h

#include "tests/faults/symbols.h"

#include <cstdio>
#include <memory>
#include <set>
#include <stdexcept>

#include "tests/faults/calls.h"

namespace zelieml::test
{

namespace
{

// They cannot fail, or not in the way in which they are used here.
char const* const never_fail[] = {
    "__cxa_finalize",
    "__errno_location",
    "__gmon_start__",
    "__libc_single_threaded",
    "__register_atfork",
    "__stack_chk_fail",
    "__tls_get_addr",
    "clock_gettime",
    "free",
    "getegid",
    "geteuid",
    "getgid",
    "getpid",
    "getuid",
    "gettimeofday",
    "inet_addr",
    "localtime_r",
    "memchr",
    "memcmp",
    "memcpy",
    "memmove",
    "memset",
    "pthread_detach",
    "pthread_equal",
    "pthread_join",
    "pthread_mutex_destroy",
    "pthread_cond_broadcast",
    "pthread_cond_clockwait",
    "pthread_mutex_lock",
    "pthread_mutex_unlock",
    "pthread_self",
    "pthread_setcancelstate",
    "pthread_sigmask",
    "secure_getenv",
    "sigfillset",
    "snprintf",
    "strcasestr",
    "strchr",
    "strcmp",
    "strcspn",
    "strerrordesc_np",
    "strlen",
    "strncasecmp",
    "strncmp",
    "strpbrk",
    "strrchr",
    "strspn",
    "strstr",
    "strtok_r",
    "strtol",
    "strtoll",
    "strtoul",
    "time",
    "tzset",
    "vsnprintf",
    "dladdr",  // these four are for a plug-in, which no scenario asks for
    "dlerror",
    "dlopen",
    "dlsym",
    "closedir",     // of a listing that was opened
    "iconv_close",  // of a converter that was opened
    "ioctl",        // FIONBIO on an open descriptor
};

bool is_of_c_library(std::string const& version)
{
    return version.compare(0, 6, "GLIBC_") == 0;
}

}  // namespace

std::vector<std::string> unknown_calls()
{
    std::set<std::string> known(std::begin(never_fail), std::end(never_fail));
    for (call_kind const& kind : call_kinds) {
        known.insert(kind.name);
    }
    std::unique_ptr<FILE, int (*)(FILE*)> const list(
        ::popen("nm -D --undefined-only " ZELIEML_LIBRARY, "r"), ::pclose);
    std::vector<std::string> unknown;
    int                      count = 0;
    char                     line[1024];
    while (list && std::fgets(line, sizeof line, list.get()) != nullptr) {
        std::string       symbol(line);
        std::size_t const at    = symbol.find('@');
        std::size_t const start = symbol.rfind(' ') + 1;
        if (at == std::string::npos || !is_of_c_library(symbol.substr(at + 1))) {
            continue;
        }
        ++count;
        symbol = symbol.substr(start, at - start);
        if (known.count(symbol) == 0) {
            unknown.push_back(symbol);
        }
    }
    if (count == 0) {
        throw std::runtime_error("nm does not list the symbols of " ZELIEML_LIBRARY);
    }
    return unknown;
}

}  // namespace zelieml::test
