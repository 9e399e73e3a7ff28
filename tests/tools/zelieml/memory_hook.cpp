// memory_hook.cpp - there is no memory
//
//     ZELIEML_TEST_NO_MEMORY=PATH        while there is this file
//     ZELIEML_TEST_NO_MEMORY_ONCE=PATH   once, when there is this file, which is removed

#include <cstddef>
#include <cstdlib>
#include <new>
#include <unistd.h>

namespace
{

char const* const file = std::getenv("ZELIEML_TEST_NO_MEMORY");
char const* const once = std::getenv("ZELIEML_TEST_NO_MEMORY_ONCE");

}  // namespace

void* operator new(std::size_t size, std::nothrow_t const&) noexcept
{
    bool const none =
        (file != nullptr && ::access(file, F_OK) == 0) || (once != nullptr && ::unlink(once) == 0);
    return none ? nullptr : std::malloc(size);
}

void* operator new(std::size_t size)
{
    void* const memory = operator new(size, std::nothrow);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

void operator delete(void* memory) noexcept
{
    std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept
{
    std::free(memory);
}
