// libetc.h - bytes as hexadecimal text, and back
//
// The form in which encrypted passwords stand in the settings file. Any thread; nothing is kept
// between calls.

#ifndef ZELIEML_LIBETC_LIBETC_H
#define ZELIEML_LIBETC_LIBETC_H

#include <memory>

namespace zelieml
{

// etc_bin2hexstr - two upper-case digits for each byte
//
// data  the bytes
// len   their number
//
// Returns the text and its NUL, the caller's to give back with etc_binhex_free. Null when data is
// null, there are no bytes (an empty text is not made), len is negative, the text and its NUL
// would take more than INT_MAX bytes, or there is no memory.
unsigned char* etc_bin2hexstr(unsigned char const* data, int len);

// etc_hexstr2bin - one byte for each two digits
//
// text     digits, both cases, up to a NUL; any other character counts as 0
// out_len  receives the number of bytes; untouched on failure
//
// Returns the bytes, without a NUL after them, the caller's to give back with etc_binhex_free (a
// buffer also when there are none). Null when a pointer is null, the text has an odd number of
// characters, gives more than INT_MAX bytes, or there is no memory.
unsigned char* etc_hexstr2bin(unsigned char const* text, int* out_len);

// etc_binhex_free - give back a buffer of the functions above; null is accepted.
void etc_binhex_free(unsigned char* buffer);

struct binhex_deleter {
    void operator()(unsigned char* buffer) const { etc_binhex_free(buffer); }
};

// A buffer of the functions above that frees itself.
using binhex_buffer = std::unique_ptr<unsigned char, binhex_deleter>;

}  // namespace zelieml

#endif
