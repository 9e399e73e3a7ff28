// heap.cpp - malloc and its companions

#include "support/heap.h"

#include <cstdlib>

namespace zelieml
{

void* heap_alloc(std::size_t size)
{
    return std::malloc(size != 0 ? size : 1);
}

void* heap_realloc(void* buffer, std::size_t size)
{
    return std::realloc(buffer, size != 0 ? size : 1);
}

void heap_free(void* buffer)
{
    std::free(buffer);
}

}  // namespace zelieml
