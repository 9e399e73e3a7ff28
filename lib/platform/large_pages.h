// large_pages.h - memory that is filled at less cost
//
// The first use of each page of memory interrupts the program. For a long text that costs more than
// copying it; in large pages it costs little.
//
// lib/platform/linux/large_pages.cpp: madvise. lib/platform/macos/large_pages.cpp: nothing, there
// is no such call.

#ifndef ZELIEML_PLATFORM_LARGE_PAGES_H
#define ZELIEML_PLATFORM_LARGE_PAGES_H

#include <cstddef>

namespace zelieml::platform
{

// use_large_pages - say that all of a buffer is about to be filled
//
// start, size  the buffer; only large pages that lie within it are used, so that it takes no more
//              memory. Its content is unchanged.
void use_large_pages(void* start, std::size_t size);

}  // namespace zelieml::platform

#endif
