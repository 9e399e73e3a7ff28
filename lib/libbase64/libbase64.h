// libbase64.h - Base64 text (RFC 4648, the standard alphabet), with the lines of MIME on request
//
// Used for SMTP authentication, for message bodies and for encoded-word subjects. Any thread;
// nothing is kept between calls.

#ifndef ZELIEML_LIBBASE64_LIBBASE64_H
#define ZELIEML_LIBBASE64_LIBBASE64_H

#include <memory>

namespace zelieml
{

// base64_encode - bytes as Base64 text
//
// data         the bytes; not null, even when there are none
// len          their number
// line_breaks  true: CR LF after every line of 76 characters. A shorter last line gets none, so
//              that the text ends with CR LF only when its last line is full; a caller that needs
//              one adds it.
//
// Returns the text and its NUL, an empty text for no bytes, the caller's to give back with
// base64_free; null when data is null, len is negative, the text and its NUL would take more than
// INT_MAX bytes, or there is no memory.
unsigned char* base64_encode(unsigned char const* data, int len, bool line_breaks);

// base64_decode_ex - Base64 text as bytes
//
// text     the characters; no NUL is looked for
// len      their number
// out_len  receives the number of bytes, without the NUL after them; untouched on failure
//
// CR and LF are skipped before a group of four characters, two at most. What is left when fewer
// than four characters remain is ignored. '=' is a character of value 64 wherever it stands; as
// third of a group it also omits the second byte, as fourth the third byte.
//
// Returns the bytes and a NUL, the caller's to give back with base64_free; null when a pointer is
// null, len is negative, a group holds any other character, or there is no memory.
unsigned char* base64_decode_ex(unsigned char const* text, int len, int* out_len);

// base64_decode - base64_decode_ex for callers that expect a text
unsigned char* base64_decode(unsigned char const* text, int len);

// base64_free - give back a buffer of the functions above; null is accepted.
void base64_free(unsigned char* buffer);

struct base64_deleter {
    void operator()(unsigned char* buffer) const { base64_free(buffer); }
};

// A buffer of the functions above that frees itself.
using base64_buffer = std::unique_ptr<unsigned char, base64_deleter>;

}  // namespace zelieml

#endif
