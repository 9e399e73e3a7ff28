#include "tests/support/failing_new.h"

#include <cstddef>
#include <cstdlib>
#include <new>

namespace
{

thread_local int  to_grant    = 0;
thread_local int  to_refuse   = 0;  // once the others are granted
thread_local bool refused_one = false;

void* request(std::size_t size) noexcept
{
    if (to_grant > 0) {
        --to_grant;
    } else if (to_refuse > 0) {
        --to_refuse;
        refused_one = true;
        return nullptr;
    }
    return std::malloc(size != 0 ? size : 1);
}

void* request_or_throw(std::size_t size)
{
    void* const memory = request(size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

}  // namespace

namespace zelieml::test
{

failing_new::failing_new(int good, int bad)
{
    refused_one = false;
    to_grant    = good;
    to_refuse   = bad;
}

failing_new::~failing_new()
{
    to_grant  = 0;
    to_refuse = 0;
}

bool failing_new::refused()
{
    return refused_one;
}

}  // namespace zelieml::test

// Each form is replaced, since not every run-time library makes one of the other.

void* operator new(std::size_t size)
{
    return request_or_throw(size);
}

void* operator new[](std::size_t size)
{
    return request_or_throw(size);
}

void* operator new(std::size_t size, std::nothrow_t const&) noexcept
{
    return request(size);
}

void* operator new[](std::size_t size, std::nothrow_t const&) noexcept
{
    return request(size);
}

void operator delete(void* memory) noexcept
{
    std::free(memory);
}

void operator delete[](void* memory) noexcept
{
    std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept
{
    std::free(memory);
}

void operator delete[](void* memory, std::size_t) noexcept
{
    std::free(memory);
}

void operator delete(void* memory, std::nothrow_t const&) noexcept
{
    std::free(memory);
}

void operator delete[](void* memory, std::nothrow_t const&) noexcept
{
    std::free(memory);
}
