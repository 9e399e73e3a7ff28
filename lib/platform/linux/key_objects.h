// key_objects.h - what sessions, keys and contexts are made of, for key_handle.cpp and key_pair.cpp
//
// Keys and contexts of every kind are freed through their virtual destructor, so that
// key_handle.cpp frees key pairs without knowing them.

#ifndef ZELIEML_PLATFORM_LINUX_KEY_OBJECTS_H
#define ZELIEML_PLATFORM_LINUX_KEY_OBJECTS_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <nettle/md5.h>
#include <nettle/nettle-meta.h>
#include <nettle/sha1.h>
#include <nettle/sha2.h>
#include <new>
#include <utility>

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

// The secret bytes of a symmetric key.
struct symmetric_key final : csp_key {
    using csp_key::csp_key;

    std::size_t   size = 0;
    unsigned char bytes[rc4_max_size];
};

// destroy_object - end a key or a context and give its memory back to its session
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

// A key or a context that frees itself; release() hands it over.
template <class T>
using object_holder = std::unique_ptr<T, object_deleter>;

// make_object - a key or a context in the session's memory; empty when there is none
template <class T>
object_holder<T> make_object(csp_session const& session)
{
    void* const room = session.allocate(sizeof(T));
    return object_holder<T>(room != nullptr ? new (room) T(session) : nullptr);
}

// make_buffer - size bytes of the session's memory
//
// Returns false when there are none.
inline bool make_buffer(csp_session const& session, std::size_t size, csp_buffer& buffer)
{
    auto* const data = static_cast<unsigned char*>(session.allocate(size));
    if (data == nullptr) {
        return false;
    }
    buffer = {data, size};
    return true;
}

// A digest in progress.
class running_digest
{
public:
    static constexpr std::size_t max_size = SHA256_DIGEST_SIZE;

    // Returns false for an algorithm that is no digest.
    bool begin(cssm_algorithm algorithm);

    void update(csp_data piece)
    {
        hash_->update(&state_, piece.size, static_cast<std::uint8_t const*>(piece.data));
    }

    std::size_t size() const { return hash_->digest_size; }

    // Writes size() bytes and begins anew.
    void finish(unsigned char* digest) { hash_->digest(&state_, size(), digest); }

private:
    nettle_hash const* hash_ = nullptr;
    union {
        md5_ctx    md5;
        sha1_ctx   sha1;
        sha256_ctx sha256;
    } state_;
};

}  // namespace platform
}  // namespace zelieml

#endif
