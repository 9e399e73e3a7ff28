#include "tests/support/counting_new.h"

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <new>

namespace
{

std::atomic<int> live{0};

void* request(std::size_t size) noexcept
{
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

int zelieml::test::live_objects()
{
    return live;
}

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
