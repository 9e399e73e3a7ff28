// digest_text.h - a digest as CRAM-MD5 (RFC 2195) and APOP (RFC 1939) write it

#ifndef ZELIEML_LIBSENDW_DIGEST_TEXT_H
#define ZELIEML_LIBSENDW_DIGEST_TEXT_H

#include <memory>
#include <string>

#include "libcryptw/libcryptw.h"

namespace zelieml
{

struct digest_deleter {
    void operator()(unsigned char* digest) const { icryptw().free(digest); }
};

// The 16 bytes of an MD5 or HMAC-MD5 digest, as icryptw returns them.
using digest_buffer = std::unique_ptr<unsigned char, digest_deleter>;

// digest_text - a digest as 32 lower-case hexadecimal digits
inline std::string digest_text(digest_buffer const& digest)
{
    constexpr char digits[] = "0123456789abcdef";
    std::string    text;
    for (int i = 0; i < 16; ++i) {
        unsigned const byte = digest.get()[i];
        text += digits[byte >> 4];
        text += digits[byte & 15];
    }
    return text;
}

}  // namespace zelieml

#endif
