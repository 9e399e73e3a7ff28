// format.h - strings in fixed buffers: never past their end, never truncated

#ifndef ZELIEML_SUPPORT_FORMAT_H
#define ZELIEML_SUPPORT_FORMAT_H

#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <string>

namespace zelieml
{

// format_text - printf into a fixed array
//
// out     receives the string and its NUL; an empty string when it does not fit
// format  printf format and its arguments
//
// Returns the length of the string, or -1 when it does not fit with its NUL.
template <std::size_t size>
__attribute__((format(printf, 2, 3))) int format_text(char (&out)[size], char const* format, ...)
{
    std::va_list args;
    va_start(args, format);
    int const length = std::vsnprintf(out, size, format, args);
    va_end(args);
    if (length < 0 || static_cast<std::size_t>(length) >= size) {
        out[0] = '\0';
        return -1;
    }
    return length;
}

// copy_to_caller - copy a string and its NUL into a caller's buffer, whole or not at all
//
// text  copied up to its first NUL
// buf   receives the string; untouched on failure
// size  bytes at buf, the NUL included
//
// Returns 0, or -1 when buf is null or too small.
inline int copy_to_caller(char const* text, char* buf, int size)
{
    std::size_t const needed = std::strlen(text) + 1;
    if (buf == nullptr || size < 0 || needed > static_cast<std::size_t>(size)) {
        return -1;
    }
    std::memcpy(buf, text, needed);
    return 0;
}
inline int copy_to_caller(std::string const& text, char* buf, int size)
{
    return copy_to_caller(text.c_str(), buf, size);
}

// copy_cut - copy a string and a NUL into a caller's buffer, as much of it as fits
//
// text  up to its first NUL; not cut in the middle of a UTF-8 character
// buf   may be null
// size  bytes at buf, the NUL included; nothing is written when it is 0 or less
inline void copy_cut(char const* text, char* buf, int size)
{
    if (buf == nullptr || size <= 0) {
        return;
    }
    std::size_t const room   = static_cast<std::size_t>(size) - 1;
    std::size_t       length = std::strlen(text);
    if (length > room) {
        length = room;
        for (int left = 3; left > 0 && length > 0; --left) {
            bool const inside = (static_cast<unsigned char>(text[length]) & 0xC0) == 0x80;
            length -= inside ? 1 : 0;
        }
    }
    std::memcpy(buf, text, length);
    buf[length] = '\0';
}

}  // namespace zelieml

#endif
