// heap.h - the buffers that the library allocates with malloc
//
// Buffers that cross the C interface come from here, and scratch buffers for whose lack a function
// has a rule of its own. Alone in its object, so that a test can replace it by a heap that fails at
// the n-th request.

#ifndef ZELIEML_SUPPORT_HEAP_H
#define ZELIEML_SUPPORT_HEAP_H

#include <cstddef>
#include <memory>

namespace zelieml
{

// heap_alloc - size uninitialised bytes, or null when there is no memory. 0 counts as 1.
void* heap_alloc(std::size_t size);

// heap_realloc - resize a buffer of heap_alloc (or null), its bytes kept
//
// Returns null when there is no memory; the old buffer is then unchanged.
void* heap_realloc(void* buffer, std::size_t size);

// heap_free - free a buffer; null is accepted.
void heap_free(void* buffer);

struct heap_deleter {
    void operator()(void* buffer) const { heap_free(buffer); }
};

// A buffer of heap_alloc that frees itself; release() hands ownership over.
template <class T>
using heap_buffer = std::unique_ptr<T[], heap_deleter>;

// heap_array - a heap_buffer of count elements of a trivial type; empty when there is no memory
template <class T>
heap_buffer<T> heap_array(std::size_t count)
{
    return heap_buffer<T>(static_cast<T*>(heap_alloc(count * sizeof(T))));
}

}  // namespace zelieml

#endif
