#include "tests/support/fake_heap.h"

#include <atomic>
#include <cstdlib>

#include "support/heap.h"

namespace
{

std::atomic<int>  left{-1};
std::atomic<int>  live{0};
std::atomic<bool> failed{false};

bool request_granted()
{
    int const now = left;
    if (now < 0) {
        return true;
    }
    if (now == 0) {
        failed = true;
        return false;
    }
    left = now - 1;
    return true;
}

}  // namespace

namespace zelieml
{

void* heap_alloc(std::size_t size)
{
    if (!request_granted()) {
        return nullptr;
    }
    ++live;
    return std::malloc(size != 0 ? size : 1);
}

void* heap_realloc(void* buffer, std::size_t size)
{
    if (!request_granted()) {
        return nullptr;
    }
    if (buffer == nullptr) {
        ++live;
    }
    return std::realloc(buffer, size != 0 ? size : 1);
}

void heap_free(void* buffer)
{
    if (buffer != nullptr) {
        --live;
    }
    std::free(buffer);
}

void test::fail_heap_after(int good)
{
    failed = false;
    left   = good;
}

bool test::heap_has_failed()
{
    return failed;
}

int test::live_heap_buffers()
{
    return live;
}

}  // namespace zelieml
