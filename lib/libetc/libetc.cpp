// libetc.cpp - bytes to hexadecimal digits, and back

#include "libetc/libetc.h"

#include <cstddef>
#include <cstring>
#include <limits>

#include "support/heap.h"

namespace zelieml
{

namespace
{

// Any other character counts as 0: deliberate, see docs/ODDITIES.md. A stored password that was
// tampered with decrypts to some other text and does not fail.
unsigned digit_value(unsigned char digit)
{
    if (digit >= '0' && digit <= '9') {
        return digit - unsigned{'0'};
    }
    if (digit >= 'A' && digit <= 'F') {
        return digit - unsigned{'A'} + 10;
    }
    if (digit >= 'a' && digit <= 'f') {
        return digit - unsigned{'a'} + 10;
    }
    return 0;
}

}  // namespace

unsigned char* etc_bin2hexstr(unsigned char const* data, int len)
{
    constexpr int max_len = (std::numeric_limits<int>::max() - 1) / 2;
    if (data == nullptr || len <= 0 || len > max_len) {
        return nullptr;
    }
    auto const bytes = static_cast<std::size_t>(len);
    auto       text  = heap_array<unsigned char>(bytes * 2 + 1);
    if (!text) {
        return nullptr;
    }

    constexpr char digits[] = "0123456789ABCDEF";
    for (std::size_t i = 0; i < bytes; ++i) {
        text[2 * i]     = static_cast<unsigned char>(digits[data[i] >> 4]);
        text[2 * i + 1] = static_cast<unsigned char>(digits[data[i] & 15]);
    }
    text[bytes * 2] = '\0';
    return text.release();
}

unsigned char* etc_hexstr2bin(unsigned char const* text, int* out_len)
{
    if (text == nullptr || out_len == nullptr) {
        return nullptr;
    }
    std::size_t const digits = std::strlen(reinterpret_cast<char const*>(text));
    std::size_t const bytes  = digits / 2;
    if (digits % 2 != 0 || bytes > static_cast<std::size_t>(std::numeric_limits<int>::max())) {
        return nullptr;
    }
    auto data = heap_array<unsigned char>(bytes);
    if (!data) {
        return nullptr;
    }

    for (std::size_t i = 0; i < bytes; ++i) {
        data[i] = static_cast<unsigned char>(digit_value(text[2 * i]) << 4 |
                                             digit_value(text[2 * i + 1]));
    }
    *out_len = static_cast<int>(bytes);
    return data.release();
}

void etc_binhex_free(unsigned char* buffer)
{
    heap_free(buffer);
}

}  // namespace zelieml
