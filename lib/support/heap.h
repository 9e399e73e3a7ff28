// heap.h - the buffers that the library allocates with malloc
//
// Buffers that cross the C interface, and the scratch buffers whose lack has a rule of its own,
// come from here. Alone in its object, so that a test can put a heap in its place that is empty
// at the n-th request.

#ifndef ZELIEML_SUPPORT_HEAP_H
#define ZELIEML_SUPPORT_HEAP_H

#include <cstddef>
#include <memory>

namespace zelieml
{

// heap_alloc - size bytes, their content undefined; null when there are none. 0 counts as 1.
void* heap_alloc(std::size_t size);

// heap_realloc - a buffer of heap_alloc (or null) with a new size, its bytes kept
//
// Returns null when there is no room; the old buffer then stays as it was.
void* heap_realloc(void* buffer, std::size_t size);

// heap_free - give a buffer back; null is accepted.
void heap_free(void* buffer);

struct heap_deleter {
    void operator()(void* buffer) const { heap_free(buffer); }
};

// A buffer of heap_alloc that frees itself; release() hands it over.
template <class T>
using heap_buffer = std::unique_ptr<T[], heap_deleter>;

// heap_array - a heap_buffer of count elements of a trivial type, or an empty one
template <class T>
heap_buffer<T> heap_array(std::size_t count)
{
    return heap_buffer<T>(static_cast<T*>(heap_alloc(count * sizeof(T))));
}

}  // namespace zelieml

#endif
