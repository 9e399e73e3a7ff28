// fake_new.cpp - replaces operator new of the whole program, for failing_new.h and counting_new.h

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <new>

#include "tests/support/counting_new.h"
#include "tests/support/failing_new.h"

namespace
{

std::atomic<int> live{0};

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
    void* const memory = std::malloc(size != 0 ? size : 1);
    live += memory != nullptr ? 1 : 0;
    return memory;
}

void* request_or_throw(std::size_t size)
{
    void* const memory = request(size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

void give_back(void* memory) noexcept
{
    live -= memory != nullptr ? 1 : 0;
    std::free(memory);
}

}  // namespace

namespace zelieml::test
{

int live_objects()
{
    return live;
}

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
    give_back(memory);
}

void operator delete[](void* memory) noexcept
{
    give_back(memory);
}

void operator delete(void* memory, std::size_t) noexcept
{
    give_back(memory);
}

void operator delete[](void* memory, std::size_t) noexcept
{
    give_back(memory);
}

void operator delete(void* memory, std::nothrow_t const&) noexcept
{
    give_back(memory);
}

void operator delete[](void* memory, std::nothrow_t const&) noexcept
{
    give_back(memory);
}
