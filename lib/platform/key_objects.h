// key_objects.h - what sessions, keys and contexts have in common on all systems
//
// Only for the files that implement platform/key_handle.h. Keys and contexts of every kind have a
// virtual destructor, so that one file can free what another has made.

#ifndef ZELIEML_PLATFORM_KEY_OBJECTS_H
#define ZELIEML_PLATFORM_KEY_OBJECTS_H

#include <cstddef>
#include <memory>
#include <new>

#include "platform/key_handle.h"

namespace zelieml
{

struct csp_session {
    csp_memory memory;

    void* allocate(std::size_t size) const { return memory.malloc_func(size, memory.ref); }
    void  give_back(void* buffer) const { memory.free_func(buffer, memory.ref); }
};

struct csp_key {
    explicit csp_key(csp_session const& owner) : session(owner) {}
    virtual ~csp_key() = default;

    csp_session const& session;
};

struct csp_context {
    explicit csp_context(csp_session const& owner) : session(owner) {}
    virtual ~csp_context() = default;

    csp_session const& session;
};

namespace platform
{

// The smallest and largest modulus of a key pair.
constexpr unsigned min_rsa_bits = 512;
constexpr unsigned max_rsa_bits = 16384;

// destroy_object - destroy a key or a context and give its memory back to its session
template <class T>
void destroy_object(T* object)
{
    csp_session const& session = object->session;
    void* const        room    = dynamic_cast<void*>(object);
    object->~T();
    session.give_back(room);
}

struct object_deleter {
    template <class T>
    void operator()(T* object) const
    {
        destroy_object(object);
    }
};

// A key or a context that frees itself; release() hands ownership over.
template <class T>
using object_holder = std::unique_ptr<T, object_deleter>;

// make_object - make a key or a context in the session's memory; empty when there is no memory
template <class T>
object_holder<T> make_object(csp_session const& session)
{
    void* const room = session.allocate(sizeof(T));
    return object_holder<T>(room != nullptr ? new (room) T(session) : nullptr);
}

// make_buffer - allocate size bytes of the session's memory
//
// Returns false when there is no memory.
inline bool make_buffer(csp_session const& session, std::size_t size, csp_buffer& buffer)
{
    auto* const data = static_cast<unsigned char*>(session.allocate(size));
    if (data == nullptr) {
        return false;
    }
    buffer = {data, size};
    return true;
}

// The state of a context that encrypts or decrypts in pieces.
enum class crypt_stage {
    idle,
    encrypting,
    decrypting
};

inline crypt_stage stage_of(crypt_direction direction)
{
    return direction == crypt_direction::encrypt ? crypt_stage::encrypting
                                                 : crypt_stage::decrypting;
}

}  // namespace platform
}  // namespace zelieml

#endif
