// interface.h - making and freeing objects behind their interfaces
//
// The library's objects share one pattern: an abstract interface (ilock) of pure operations, a
// final implementation (ilockw) whose only member is a pointer to its context record, null until
// create_context, and a stateless factory (ifactory_lockw). An interface has a protected destructor
// that is not virtual: nobody deletes an object through it.

#ifndef ZELIEML_SUPPORT_INTERFACE_H
#define ZELIEML_SUPPORT_INTERFACE_H

#include <new>

namespace zelieml
{

// templ_create_interface - allocate a T, its context pointer null, as an I
//
// out  receives the object; null when there was no memory. The caller frees it with
//      templ_destroy_interface of the same T and I.
//
// Returns 0, or -1 when there was no memory.
template <class T, class I>
int templ_create_interface(I** out)
{
    *out = new (std::nothrow) T();
    return *out != nullptr ? 0 : -1;
}

// templ_destroy_interface - free the memory of an object made by templ_create_interface
//
// p  the object, or null. Its context is not freed: call destroy_context first.
//
// Returns 0.
template <class T, class I>
int templ_destroy_interface(I* p)
{
    delete static_cast<T*>(p);
    return 0;
}

// templ_create_iinterface, templ_destroy_iinterface - the same for an object without an interface
template <class T>
int templ_create_iinterface(T** out)
{
    return templ_create_interface<T, T>(out);
}

template <class T>
int templ_destroy_iinterface(T* p)
{
    return templ_destroy_interface<T, T>(p);
}

// create_with_context - what a factory does: allocate a T as an I and create its context
//
// out  receives the object, the caller's; null when there was no memory for it or its context
//
// Returns 0 or -1.
template <class T, class I>
int create_with_context(I** out)
{
    if (templ_create_interface<T, I>(out) != 0) {
        return -1;
    }
    if ((*out)->create_context() != 0) {
        templ_destroy_interface<T, I>(*out);
        *out = nullptr;
        return -1;
    }
    return 0;
}

}  // namespace zelieml

#endif
