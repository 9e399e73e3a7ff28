// plugin_memory_test.cpp - a host that loads the library, and has no memory when a thread of it
// makes the thread's first call
//
//     plugin_memory_test LIBRARY
//
// The loader ends a process that has no memory for the variables of a thread. The host is in C++,
// since the C++ library has such variables, too, when it is loaded later.

#include <atomic>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <dlfcn.h>
#include <stdexcept>
#include <thread>

#include "zelieml.h"

extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
}

namespace
{

std::atomic<bool> without_memory{false};
int               failures = 0;

void check(bool good, char const* what)
{
    if (!good) {
        std::fprintf(stderr, "wrong: %s\n", what);
        ++failures;
    }
}

template <class Function>
Function* find(void* library, char const* name)
{
    void* const found = ::dlsym(library, name);
    if (found == nullptr) {
        throw std::runtime_error(name);
    }
    Function* function = nullptr;
    std::memcpy(&function, &found, sizeof found);
    return function;
}

// The result of a call without memory, on a thread of its own: only the first call of a thread meets
// what is made for it.
template <class Call>
int on_a_new_thread(Call call)
{
    int         result = 0;
    std::thread thread([&] {
        without_memory = true;
        result         = call();
        without_memory = false;
    });
    thread.join();
    return result;
}

void use(void* library)
{
    void* msg    = nullptr;
    void* server = nullptr;
    void* record = nullptr;
    check(find<int(void**)>(library, "eml_msg_create")(&msg) == 0, "a message");
    check(find<int(void**)>(library, "server_info_create")(&server) == 0, "a server record");
    auto* const post      = find<int(char const*, void*)>(library, "eml_post");
    auto* const post_sync = find<int(char const*, void*, void**)>(library, "eml_post_sync");
    auto* const test      = find<eml_send_e(void*, char*)>(library, "test_pop_auth");

    check(on_a_new_thread([&] { return post("/nonexistent", msg); }) == -1, "eml_post");
    check(on_a_new_thread([&] { return post_sync("/nonexistent", msg, &record); }) == -1,
          "eml_post_sync");
    check(record == nullptr, "a record without memory");
    check(on_a_new_thread([&] { return test(server, nullptr); }) == eml_send_error_other,
          "test_pop_auth");
    find<int(void*)>(library, "eml_msg_destroy")(msg);
    find<int(void*)>(library, "server_info_destroy")(server);
}

}  // namespace

extern "C" {

void* malloc(std::size_t size)
{
    return without_memory ? nullptr : __libc_malloc(size);
}

void* calloc(std::size_t count, std::size_t size)
{
    return without_memory ? nullptr : __libc_calloc(count, size);
}

void* realloc(void* block, std::size_t size)
{
    return without_memory ? nullptr : __libc_realloc(block, size);
}
}

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "use: plugin_memory_test LIBRARY\n");
        return 2;
    }
    void* const library = ::dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) {
        std::fprintf(stderr, "%s\n", ::dlerror());
        return 1;
    }
    try {
        use(library);
    } catch (std::exception const& lacking) {
        std::fprintf(stderr, "missing: %s\n", lacking.what());
        return 1;
    }
    return failures == 0 ? 0 : 1;
}
