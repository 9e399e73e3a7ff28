// slot.h - the place of an operation in its interface

#ifndef ZELIEML_TESTS_SUPPORT_SLOT_H
#define ZELIEML_TESTS_SUPPORT_SLOT_H

#include <cstdint>
#include <cstring>

namespace zelieml::test
{

// The slot of a virtual function, counted from 0, as the C++ ABI of both systems stores it in a
// pointer to the function: the offset in the table, with the lowest bit set on some processors.
template <class Function>
int slot_of(Function function)
{
    std::uintptr_t offset = 0;
    static_assert(sizeof function >= sizeof offset, "a pointer and an adjustment");
    std::memcpy(&offset, &function, sizeof offset);
    return static_cast<int>(offset / sizeof offset);
}

}  // namespace zelieml::test

#endif
