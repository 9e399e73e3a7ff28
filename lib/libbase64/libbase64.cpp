// libbase64.cpp - Base64 with tables

#include "libbase64/libbase64.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <exception>
#include <limits>

#include "support/heap.h"

namespace zelieml
{

namespace
{

// Index 64 is the padding.
constexpr char alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/=";
constexpr char padding    = alphabet[64];

constexpr int line_bytes  = 57;  // encoded as a line of 76 characters
constexpr int line_groups = line_bytes / 3;

// The two characters for each twelve bits.
struct encode_table {
    char pairs[4096][2] = {};

    constexpr encode_table()
    {
        for (unsigned bits = 0; bits < 4096; ++bits) {
            pairs[bits][0] = alphabet[bits >> 6];
            pairs[bits][1] = alphabet[bits & 63];
        }
    }
};
constexpr encode_table encoded;

// What a character contributes to the number of its group, for each of the four places. The three
// bytes of a group are the low 24 bits; the value 64 of '=' carries into the neighbouring bits,
// just as when each byte is computed on its own.
constexpr std::uint32_t invalid = 1U << 31;
constexpr std::uint32_t omits   = 1U << 30;  // '=' as third or fourth character

struct decode_table {
    std::uint32_t places[4][256] = {};

    constexpr decode_table()
    {
        for (auto& place : places) {
            for (std::uint32_t& entry : place) {
                entry = invalid;
            }
        }
        for (std::uint32_t value = 0; value <= 64; ++value) {
            auto const character = static_cast<unsigned char>(alphabet[value]);
            for (unsigned place = 0; place < 4; ++place) {
                places[place][character] = value << (18 - 6 * place);
            }
        }
        places[2][static_cast<unsigned char>(padding)] |= omits;
        places[3][static_cast<unsigned char>(padding)] |= omits;
    }
};
constexpr decode_table decoded;

void put_pair(unsigned char* out, std::uint64_t bits)
{
    std::memcpy(out, encoded.pairs[bits & 4095], 2);
}

// Encodes two groups of three bytes, from one load of eight bytes.
void put_two_groups(unsigned char const* in, unsigned char* out)
{
    std::uint64_t const bits = std::uint64_t{in[0]} << 56 | std::uint64_t{in[1]} << 48 |
                               std::uint64_t{in[2]} << 40 | std::uint64_t{in[3]} << 32 |
                               std::uint64_t{in[4]} << 24 | std::uint64_t{in[5]} << 16 |
                               std::uint64_t{in[6]} << 8 | std::uint64_t{in[7]};
    put_pair(out, bits >> 52);
    put_pair(out + 2, bits >> 40);
    put_pair(out + 4, bits >> 28);
    put_pair(out + 6, bits >> 16);
}

// Encodes groups of three bytes. Returns the end of the characters. Of lines there are many: in
// them the compiler knows the number.
inline unsigned char* encode_groups(unsigned char const* in, int groups, unsigned char* out)
{
    for (; groups >= 3; groups -= 2, in += 6, out += 8) {
        put_two_groups(in, out);  // the last two of the eight bytes belong to the next group
    }
    for (; groups > 0; --groups, in += 3, out += 4) {
        std::uint32_t const bits =
            std::uint32_t{in[0]} << 16 | std::uint32_t{in[1]} << 8 | std::uint32_t{in[2]};
        put_pair(out, bits >> 12);
        put_pair(out + 2, bits);
    }
    return out;
}

// Encodes the zero, one or two bytes after the last full group.
unsigned char* encode_remainder(unsigned char const* in, int bytes, unsigned char* out)
{
    if (bytes == 0) {
        return out;
    }
    std::uint32_t const second = bytes == 2 ? in[1] : 0U;
    std::uint32_t const bits   = std::uint32_t{in[0]} << 16 | second << 8;
    put_pair(out, bits >> 12);
    put_pair(out + 2, bits);
    if (bytes == 1) {
        out[2] = padding;
    }
    out[3] = padding;
    return out + 4;
}

unsigned char* put_line_break(unsigned char* out)
{
    *out++ = '\r';
    *out++ = '\n';
    return out;
}

// The size of the result with its NUL, or -1 when there is no result.
std::int64_t encoded_size(unsigned char const* data, int len, bool line_breaks)
{
    if (data == nullptr || len < 0) {
        return -1;
    }
    std::int64_t const bytes = len;
    std::int64_t       size  = (bytes + 2) / 3 * 4 + 1;
    if (line_breaks) {
        size += bytes / line_bytes * 2 + (bytes % line_bytes != 0 ? 2 : 0);
    }
    return size <= std::numeric_limits<int>::max() ? size : -1;
}

// Writes the characters. Returns their end.
unsigned char* encode(unsigned char const* data, int len, bool line_breaks, unsigned char* out)
{
    if (line_breaks) {
        for (; len >= line_bytes; data += line_bytes, len -= line_bytes) {
            out = put_line_break(encode_groups(data, line_groups, out));
        }
    }
    int const remainder = len % 3;
    out                 = encode_groups(data, len / 3, out);
    out                 = encode_remainder(data + (len - remainder), remainder, out);
    // With padding 55 and 56 bytes fill a line too: deliberate, see docs/ODDITIES.md.
    if (line_breaks && len > line_bytes - 3) {
        out = put_line_break(out);
    }
    return out;
}

std::uint32_t decode_group(unsigned char const* in)
{
    return decoded.places[0][in[0]] | decoded.places[1][in[1]] | decoded.places[2][in[2]] |
           decoded.places[3][in[3]];
}

bool is_line_break(unsigned char character)
{
    return character == '\r' || character == '\n';
}

}  // namespace

unsigned char* base64_encode(unsigned char const* data, int len, bool line_breaks)
{
    std::int64_t const size = encoded_size(data, len, line_breaks);
    if (size == -1) {
        return nullptr;
    }
    auto text = heap_array<unsigned char>(static_cast<std::size_t>(size));
    if (!text) {
        return nullptr;
    }
    *encode(data, len, line_breaks, text.get()) = '\0';
    return text.release();
}

bool base64_encode(unsigned char const* data, int len, bool line_breaks, std::string& text)
{
    text.clear();
    std::int64_t const size = encoded_size(data, len, line_breaks);
    if (size == -1) {
        return false;
    }
    try {
        text.resize(static_cast<std::size_t>(size));
    } catch (std::exception const&) {
        return false;  // no memory, or longer than a string can be
    }
    auto* const start = reinterpret_cast<unsigned char*>(&text[0]);
    text.resize(static_cast<std::size_t>(encode(data, len, line_breaks, start) - start));
    return true;
}

unsigned char* base64_decode_ex(unsigned char const* text, int len, int* out_len)
{
    if (text == nullptr || len < 0 || out_len == nullptr) {
        return nullptr;
    }
    auto bytes = heap_array<unsigned char>(static_cast<std::size_t>(len) / 4 * 3 + 1);
    if (!bytes) {
        return nullptr;
    }

    unsigned char* out  = bytes.get();
    int            left = len;
    while (left >= 4) {
        std::uint32_t group = decode_group(text);
        // Line breaks are not in the alphabet, so only a group that fails can begin with one.
        if ((group & invalid) != 0) {
            for (int skipped = 0; skipped < 2 && is_line_break(*text); ++skipped) {
                ++text;
                --left;
            }
            if (left < 4) {
                break;
            }
            group = decode_group(text);
            if ((group & invalid) != 0) {
                return nullptr;
            }
        }

        *out++ = static_cast<unsigned char>(group >> 16);
        if ((group & omits) == 0) {
            *out++ = static_cast<unsigned char>(group >> 8);
            *out++ = static_cast<unsigned char>(group);
        } else {
            if (text[2] != padding) {
                *out++ = static_cast<unsigned char>(group >> 8);
            }
            if (text[3] != padding) {
                *out++ = static_cast<unsigned char>(group);
            }
        }
        text += 4;
        left -= 4;
    }
    *out     = '\0';
    *out_len = static_cast<int>(out - bytes.get());
    return bytes.release();
}

unsigned char* base64_decode(unsigned char const* text, int len)
{
    int ignored = 0;
    return base64_decode_ex(text, len, &ignored);
}

void base64_free(unsigned char* buffer)
{
    heap_free(buffer);
}

}  // namespace zelieml
