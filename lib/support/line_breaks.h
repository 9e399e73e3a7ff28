// line_breaks.h - line breaks as mail protocols write them

#ifndef ZELIEML_SUPPORT_LINE_BREAKS_H
#define ZELIEML_SUPPORT_LINE_BREAKS_H

#include <cstddef>
#include <cstring>

namespace zelieml
{

enum class opening_dot {
    kept,
    doubled  // a dot that opens a line gets another one in front (RFC 5321, 4.5.2)
};

// write_with_crlf - copy a string and make every line break CR LF: a lone CR, a lone LF, and CR LF
// itself
//
// in    string
// out   receives the result and its NUL
// size  in: bytes at out, the NUL included; out: length of the result
// dot   what becomes of a dot that opens a line
//
// Returns 0, or -1 when a pointer is null, in is empty, or the result and its NUL do not fit. Then
// *size is unchanged and the content of out is undefined.
inline int write_with_crlf(char const* in, char* out, int* size, opening_dot dot)
{
    if (in == nullptr || out == nullptr || size == nullptr || *size < 1 || *in == '\0') {
        return -1;
    }
    std::size_t const room  = static_cast<std::size_t>(*size) - 1;  // less the NUL
    std::size_t       count = 0;
    auto const        put   = [&](char const* bytes, std::size_t length) {
        if (length > room - count) {
            return false;
        }
        std::memcpy(out + count, bytes, length);
        count += length;
        return true;
    };

    // A line at a time: its dot, its characters, its end.
    while (*in != '\0') {
        if (dot == opening_dot::doubled && *in == '.' && !put(".", 1)) {
            return -1;
        }
        std::size_t const length = std::strcspn(in, "\r\n");
        if (!put(in, length)) {
            return -1;
        }
        in += length;
        if (*in != '\0') {
            if (!put("\r\n", 2)) {
                return -1;
            }
            in += in[0] == '\r' && in[1] == '\n' ? 2 : 1;
        }
    }
    out[count] = '\0';
    *size      = static_cast<int>(count);
    return 0;
}

// copy_with_crlf - write_with_crlf, with all *size bytes of out cleared first
inline int copy_with_crlf(char const* in, char* out, int* size, opening_dot dot)
{
    if (in == nullptr || out == nullptr || size == nullptr || *size < 1) {
        return -1;
    }
    std::memset(out, 0, static_cast<std::size_t>(*size));
    return write_with_crlf(in, out, size, dot);
}

}  // namespace zelieml

#endif
