// utf8.h - characters in UTF-8 (RFC 3629)

#ifndef ZELIEML_SUPPORT_UTF8_H
#define ZELIEML_SUPPORT_UTF8_H

#include <cstddef>

namespace zelieml
{

// printable_size - the bytes of the character at text, which ends with a NUL
//
// Returns 0 when there is none: the bytes are no UTF-8, or a control character, U+0000 to U+001F or
// U+007F to U+009F.
inline std::size_t printable_size(char const* text)
{
    auto const byte  = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    auto const tails = [&](std::size_t count) {  // stops at the NUL
        for (std::size_t i = 1; i <= count; ++i) {
            if ((byte(i) & 0xC0) != 0x80) {
                return std::size_t{0};
            }
        }
        return count + 1;
    };
    unsigned const first = byte(0);
    if (first < 0x80) {
        return first >= 0x20 && first != 0x7F ? 1 : 0;
    }
    if (first < 0xC2 || first > 0xF4) {
        return 0;
    }
    if (first < 0xE0) {
        return first == 0xC2 && byte(1) < 0xA0 ? 0 : tails(1);
    }
    if (first < 0xF0) {
        bool const overlong  = first == 0xE0 && byte(1) < 0xA0;
        bool const surrogate = first == 0xED && byte(1) >= 0xA0;
        return overlong || surrogate ? 0 : tails(2);
    }
    bool const overlong = first == 0xF0 && byte(1) < 0x90;
    bool const beyond   = first == 0xF4 && byte(1) >= 0x90;
    return overlong || beyond ? 0 : tails(3);
}

}  // namespace zelieml

#endif
