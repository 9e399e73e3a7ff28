// utf8.h - the characters of UTF-8 (RFC 3629)

#ifndef ZELIEML_SUPPORT_UTF8_H
#define ZELIEML_SUPPORT_UTF8_H

#include <cstddef>

namespace zelieml
{

// utf8_size - the bytes of the character at the beginning of a string, or 0 when there is none. The
// NUL counts as a character.
inline std::size_t utf8_size(char const* text)
{
    unsigned const first = static_cast<unsigned char>(*text);
    if (first < 0x80) {
        return 1;
    }
    if (first < 0xC2 || first > 0xF4) {
        return 0;
    }
    std::size_t const size = first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
    unsigned          code = first & (0x7FU >> size);
    for (std::size_t i = 1; i < size; ++i) {
        unsigned const byte = static_cast<unsigned char>(text[i]);
        if ((byte & 0xC0) != 0x80) {
            return 0;
        }
        code = code << 6 | (byte & 0x3F);
    }
    bool const overlong  = code < (size == 4 ? 0x10000U : size == 3 ? 0x800U : 0x80U);
    bool const surrogate = code >= 0xD800 && code <= 0xDFFF;
    return overlong || surrogate || code > 0x10FFFF ? 0 : size;
}

// printable_size - utf8_size, of a character that is no control character (U+0000 to U+001F and
// U+007F to U+009F): 0 for those
inline std::size_t printable_size(char const* text)
{
    std::size_t const size  = utf8_size(text);
    unsigned const    first = static_cast<unsigned char>(text[0]);
    bool const        ascii = size == 1 && (first < 0x20 || first == 0x7F);
    bool const latin1 = size == 2 && first == 0xC2 && static_cast<unsigned char>(text[1]) < 0xA0;
    return ascii || latin1 ? 0 : size;
}

}  // namespace zelieml

#endif
