// line_breaks.h - line breaks as mail protocols write them

#ifndef ZELIEML_SUPPORT_LINE_BREAKS_H
#define ZELIEML_SUPPORT_LINE_BREAKS_H

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <exception>
#include <string>
#include <string_view>

#include "support/heap.h"

namespace zelieml
{

enum class opening_dot {
    kept,
    doubled  // a dot that opens a line gets another one in front (RFC 5321, 4.5.2)
};

// copy_short - copy the first size bytes of a text, most often few
//
// room  at out; bytes behind those that are copied may change
inline void copy_short(char* out, std::size_t room, std::string_view text, std::size_t size)
{
    constexpr std::size_t line = 64;
    if (size <= line && line <= room && line <= text.size()) {
        std::memcpy(out, text.data(), line);  // of a fixed size it takes no call
    } else {
        std::memcpy(out, text.data(), size);
    }
}

// crlf_text - a string with every line break made CR LF: a lone CR, a lone LF, and CR LF itself
//
// Gives the result piece by piece, so that a long one need not be in memory twice.
class crlf_text
{
public:
    // in   string; the caller keeps it
    // dot  what becomes of a dot that opens a line
    crlf_text(std::string_view in, opening_dot dot)
        : in_(in.data()), end_(in_ + in.size()), dot_(dot)
    {
    }

    bool at_end() const { return in_ == end_; }

    // go_on - give the result of another string as if it followed the first one, which is at its
    // end, and did not end between CR and LF
    void go_on(std::string_view in)
    {
        in_     = in.data();
        end_    = in_ + in.size();
        window_ = in_;
    }

    // next - write as much of the result as fits; with room for two bytes at least one
    //
    // Returns the number of bytes written. What is behind them in out may have changed too.
    std::size_t next(char* out, std::size_t room)
    {
        std::size_t count = 0;
        while (!at_end()) {
            if (in_ >= window_) {
                next_window();
            }
            if (opens_line_ && dot_ == opening_dot::doubled && *in_ == '.') {
                if (count == room) {
                    break;
                }
                out[count++] = '.';
            }
            std::size_t const line = rest_of_line();
            std::size_t const size = std::min(line, room - count);
            copy_short(out + count, room - count, {in_, to_end()}, size);
            opens_line_ = false;
            count += size;
            in_ += size;
            if (size < line) {
                break;
            }
            if (in_ < window_) {
                if (room - count < 2) {
                    break;
                }
                out[count++] = '\r';
                out[count++] = '\n';
                in_ += in_[0] == '\r' && to_end() > 1 && in_[1] == '\n' ? 2 : 1;
                opens_line_ = true;
            }
        }
        return count;
    }

private:
    std::size_t to_end() const { return static_cast<std::size_t>(end_ - in_); }

    // The first place of a character, or the end.
    static char const* find(char wanted, char const* begin, char const* end)
    {
        void const* const found = std::memchr(begin, wanted, static_cast<std::size_t>(end - begin));
        return found != nullptr ? static_cast<char const*>(found) : end;
    }

    // Few texts have a CR, and it takes as long to find out as to find an LF.
    void next_window()
    {
        window_ = in_ + std::min<std::size_t>(to_end(), 16384);
        lf_     = find('\n', in_, window_);
        has_cr_ = find('\r', in_, window_) != window_;
    }

    // Up to a line break or the end of the window.
    std::size_t rest_of_line()
    {
        if (lf_ < in_) {
            lf_ = find('\n', in_, window_);
        }
        return static_cast<std::size_t>((has_cr_ ? find('\r', in_, lf_) : lf_) - in_);
    }

    char const* in_;
    char const* end_;
    opening_dot dot_;
    char const* window_     = in_;      // the end of what has_cr_ is about
    bool        has_cr_     = false;    // it contains one
    char const* lf_         = nullptr;  // the first in it from in_ on, or its end
    bool        opens_line_ = true;
};

// text_with_crlf - crlf_text as a whole
//
// in    string of length bytes, without a NUL
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
        for (crlf_text left({in, length}, dot); !left.at_end();) {
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
