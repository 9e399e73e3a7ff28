// large_pages.cpp - transparent huge pages

#include "platform/large_pages.h"

#include <cstdint>
#include <sys/mman.h>

namespace zelieml::platform
{

void use_large_pages(void* start, std::size_t size)
{
    constexpr std::uintptr_t page    = 65536;  // a multiple of every machine's usual page
    auto const               address = reinterpret_cast<std::uintptr_t>(start);
    std::uintptr_t const     first   = (address + page - 1) / page * page;
    std::uintptr_t const     end     = (address + size) / page * page;
    if (first < end) {
        // Without them, or in a system that has none, the buffer is as good.
        ::madvise(reinterpret_cast<void*>(first), end - first, MADV_HUGEPAGE);
    }
}

}  // namespace zelieml::platform
