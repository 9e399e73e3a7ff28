// fake_heap.h - a heap that is empty when a test says so
//
// fake_heap.cpp replaces the library's malloc buffers (support/heap.h). It also counts the buffers
// that were not given back.

#ifndef ZELIEML_TESTS_SUPPORT_FAKE_HEAP_H
#define ZELIEML_TESTS_SUPPORT_FAKE_HEAP_H

namespace zelieml::test
{

// The next good requests succeed, all after them fail. Negative: all succeed.
void fail_heap_after(int good);

// Whether a request has failed since fail_heap_after.
bool heap_has_failed();

// Buffers handed out and not given back, in this process.
int live_heap_buffers();

}  // namespace zelieml::test

#endif
