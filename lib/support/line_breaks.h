// line_breaks.h - line breaks as mail protocols write them

#ifndef ZELIEML_SUPPORT_LINE_BREAKS_H
#define ZELIEML_SUPPORT_LINE_BREAKS_H

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <exception>
#include <string>

#include "support/heap.h"

namespace zelieml
{

enum class opening_dot {
    kept,
    doubled  // a dot that opens a line gets another one in front (RFC 5321, 4.5.2)
};

// crlf_text - a string with every line break made CR LF: a lone CR, a lone LF, and CR LF itself
//
// Gives the result piece by piece, so that a long one need not be in memory twice.
class crlf_text
{
public:
    // in   string; the caller keeps it
    // dot  what becomes of a dot that opens a line
    crlf_text(char const* in, opening_dot dot) : in_(in), dot_(dot) {}

    bool at_end() const { return *in_ == '\0'; }

    // next - write as much of the result as fits; with room for two bytes at least one
    //
    // Returns the number of bytes written; no NUL follows them.
    std::size_t next(char* out, std::size_t room)
    {
        std::size_t count = 0;
        while (!at_end()) {
            if (opens_line_) {
                if (dot_ == opening_dot::doubled && *in_ == '.') {
                    if (count == room) {
                        break;
                    }
                    out[count++] = '.';
                }
                line_       = std::strcspn(in_, "\r\n");
                opens_line_ = false;
            }
            std::size_t const size = std::min(line_, room - count);
            std::memcpy(out + count, in_, size);
            count += size;
            in_ += size;
            line_ -= size;
            if (line_ > 0) {
                break;
            }
            if (!at_end()) {
                if (room - count < 2) {
                    break;
                }
                out[count++] = '\r';
                out[count++] = '\n';
                in_ += in_[0] == '\r' && in_[1] == '\n' ? 2 : 1;
                opens_line_ = true;
            }
        }
        return count;
    }

private:
    char const* in_;
    std::size_t line_ = 0;  // bytes up to the end of the line that was begun
    opening_dot dot_;
    bool        opens_line_ = true;
};

// text_with_crlf - crlf_text as a whole
//
// in    string of length bytes
// text  receives the result
//
// Returns false, with an empty text, when there is no memory.
inline bool text_with_crlf(char const* in, std::size_t length, opening_dot dot, std::string& text)
{
    constexpr std::size_t   max_piece = 32768;
    std::size_t const       size      = length < max_piece / 2 ? 2 * length : max_piece;
    heap_buffer<char> const piece     = heap_array<char>(size);
    if (!piece) {
        return false;
    }
    try {
        text.reserve(length + length / 16);  // enough for lines that are not very short
        for (crlf_text left(in, dot); !left.at_end();) {
            text.append(piece.get(), left.next(piece.get(), size));
        }
        return true;
    } catch (std::exception const&) {
        std::string().swap(text);  // its memory may be what the caller lacks
        return false;
    }
}

// write_with_crlf - crlf_text into a buffer
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
    crlf_text         text(in, dot);
    std::size_t const count = text.next(out, static_cast<std::size_t>(*size) - 1);
    if (!text.at_end()) {
        return -1;
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
