// findings.cpp - what a check finds, and whom it tells

#include "libcheck/findings.h"

#include <algorithm>
#include <cstring>

#include "support/c_boundary.h"
#include "support/utf8.h"

namespace zelieml
{

namespace
{

constexpr std::size_t most_quoted = 80;   // bytes
constexpr std::size_t text_size   = 400;  // enough for every sentence with its quotation

bool is_control(char const* character)
{
    auto const byte = [&](int i) { return static_cast<unsigned char>(character[i]); };
    return byte(0) < 0x20 || byte(0) == 0x7F || (byte(0) == 0xC2 && byte(1) < 0xA0);
}

// Writes the beginning of a string as it can be shown. Returns the end.
char* show(char const* text, char* out)
{
    char const* const last = out + most_quoted;
    for (; *text != '\0' && out < last;) {
        std::size_t const size = utf8_size(text);
        if (size == 0 || is_control(text)) {
            *out++ = '?';
            text += size > 0 ? size : 1;
        } else {
            std::memcpy(out, text, size);
            out += size;
            text += size;
        }
    }
    if (*text != '\0') {
        out = std::copy_n("...", 3, out);
    }
    return out;
}

}  // namespace

void findings::add(eml_severity severity, char const* sentence, char const* quoted)
{
    char  text[text_size];
    char* end = text;
    for (; *sentence != '\0'; ++sentence) {
        if (*sentence == '%') {
            end = show(quoted, end);
        } else {
            *end++ = *sentence;
        }
    }
    *end   = '\0';
    worst_ = severity > worst_ ? severity : worst_;
    eml_finding const finding{sizeof finding, severity, line_, field_, text};
    contained([&] { proc_(&finding, user_); });
}

void findings::add(eml_severity severity, char const* sentence, std::size_t number)
{
    char  digits[24] = {};
    char* first      = digits + sizeof digits - 1;  // the NUL
    do {
        *--first = static_cast<char>('0' + number % 10);
        number /= 10;
    } while (number > 0);
    add(severity, sentence, first);
}

}  // namespace zelieml
