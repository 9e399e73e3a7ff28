// key_objects.h - symmetric keys and digests by libnettle, for key_handle.cpp and key_pair.cpp

#ifndef ZELIEML_PLATFORM_LINUX_KEY_OBJECTS_H
#define ZELIEML_PLATFORM_LINUX_KEY_OBJECTS_H

#include <cstddef>
#include <cstdint>
#include <nettle/md5.h>
#include <nettle/nettle-meta.h>
#include <nettle/sha1.h>
#include <nettle/sha2.h>

#include "platform/key_objects.h"

namespace zelieml::platform
{

// The secret bytes of a symmetric key.
struct symmetric_key final : csp_key {
    using csp_key::csp_key;

    std::size_t   size = 0;
    unsigned char bytes[rc4_max_size];
};

// A digest in progress.
class running_digest
{
public:
    static constexpr std::size_t max_size = SHA256_DIGEST_SIZE;

    // Returns false for an algorithm that is not a digest.
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

}  // namespace zelieml::platform

#endif
