// libbase64.h - Base64 (RFC 4648, the standard alphabet), in MIME lines on request
//
// For SMTP authentication, message bodies and encoded-word subjects. Any thread; nothing is kept
// between calls.

#ifndef ZELIEML_LIBBASE64_LIBBASE64_H
#define ZELIEML_LIBBASE64_LIBBASE64_H

#include <memory>
#include <string>

namespace zelieml
{

// base64_encode - encode bytes
//
// data         the bytes; not null, even when there are none
// len          their number
// line_breaks  true: CR LF after every line of 76 characters. A shorter last line gets none, so a
//              caller that needs a final CR LF may have to add it.
//
// Returns the characters and a NUL, just a NUL for no bytes, which the caller frees with
// base64_free. Null when data is null, len is negative, the result would take more than INT_MAX
// bytes, or there is no memory.
unsigned char* base64_encode(unsigned char const* data, int len, bool line_breaks);

// base64_encode - the same, into a string
//
// text  receives the characters; empty on failure
//
// Returns false where the other returns null.
bool base64_encode(unsigned char const* data, int len, bool line_breaks, std::string& text);

// base64_decode_ex - decode to bytes
//
// text     the characters; need not end in a NUL
// len      their number
// out_len  receives the number of bytes, not counting the NUL after them; untouched on failure
//
// Up to two CR or LF are skipped before each group of four characters. A remainder of fewer than
// four characters is ignored. '=' has the value 64 in every place; as the third character of a
// group it also omits the second byte, as the fourth the third byte. Deliberate, see
// docs/ODDITIES.md.
//
// Returns the bytes and a NUL, which the caller frees with base64_free. Null when a pointer is
// null, len is negative, a group contains any other character, or there is no memory.
unsigned char* base64_decode_ex(unsigned char const* text, int len, int* out_len);

// base64_decode - base64_decode_ex for callers that expect a string
unsigned char* base64_decode(unsigned char const* text, int len);

// base64_free - free a buffer of the functions above; null is accepted.
void base64_free(unsigned char* buffer);

struct base64_deleter {
    void operator()(unsigned char* buffer) const { base64_free(buffer); }
};

// A buffer of the functions above that frees itself.
using base64_buffer = std::unique_ptr<unsigned char, base64_deleter>;

}  // namespace zelieml

#endif
