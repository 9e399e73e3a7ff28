// hex.h - published vectors are hexadecimal

#ifndef ZELIEML_TESTS_SUPPORT_HEX_H
#define ZELIEML_TESTS_SUPPORT_HEX_H

#include <cstddef>
#include <cstdlib>
#include <string>

namespace zelieml::test
{

// The bytes of pairs of digits; blanks between the pairs are skipped.
inline std::string from_hex(std::string const& digits)
{
    std::string bytes;
    for (std::size_t i = 0; i + 1 < digits.size();) {
        if (digits[i] == ' ') {
            ++i;
            continue;
        }
        bytes += static_cast<char>(std::strtoul(digits.substr(i, 2).c_str(), nullptr, 16));
        i += 2;
    }
    return bytes;
}

// Lower-case digits, two for each byte.
inline std::string to_hex(void const* data, std::size_t size)
{
    auto const* const bytes = static_cast<unsigned char const*>(data);
    std::string       digits;
    for (std::size_t i = 0; i < size; ++i) {
        digits += "0123456789abcdef"[bytes[i] >> 4];
        digits += "0123456789abcdef"[bytes[i] & 15];
    }
    return digits;
}

}  // namespace zelieml::test

#endif
