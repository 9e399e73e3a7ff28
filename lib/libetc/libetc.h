// libetc.h - bytes to hexadecimal digits, and back
//
// The form in which encrypted passwords are stored in the settings file. Any thread; nothing is
// kept between calls.

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
// Returns the digits and a NUL, which the caller frees with etc_binhex_free. Null when data is
// null, there are no bytes (deliberate, see docs/ODDITIES.md), len is negative, the result would
// take more than INT_MAX bytes, or there is no memory.
unsigned char* etc_bin2hexstr(unsigned char const* data, int len);

// etc_hexstr2bin - one byte for each two digits
//
// text     digits in either case, up to a NUL; any other character counts as 0
// out_len  receives the number of bytes; untouched on failure
//
// Returns the bytes, without a NUL after them, which the caller frees with etc_binhex_free; for an
// empty string too. Null when a pointer is null, the number of characters is odd, there would be
// more than INT_MAX bytes, or there is no memory.
unsigned char* etc_hexstr2bin(unsigned char const* text, int* out_len);

// etc_binhex_free - free a buffer of the functions above; null is accepted.
void etc_binhex_free(unsigned char* buffer);

struct binhex_deleter {
    void operator()(unsigned char* buffer) const { etc_binhex_free(buffer); }
};

// A buffer of the functions above that frees itself.
using binhex_buffer = std::unique_ptr<unsigned char, binhex_deleter>;

}  // namespace zelieml

#endif
