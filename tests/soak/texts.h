// texts.h - texts that hold the number of a mail
//
// With letters for digits: a reply passes for 250 if its last line contains that anywhere, which is
// deliberate, see docs/ODDITIES.md.

#ifndef ZELIEML_TESTS_SOAK_TEXTS_H
#define ZELIEML_TESTS_SOAK_TEXTS_H

#include <cstdio>
#include <string>

namespace zelieml::test
{

constexpr char first_digit = 'a';
constexpr char last_digit  = first_digit + 9;

// format  with one %u
inline std::string numbered_text(char const* format, unsigned number)
{
    std::string       text    = format;
    std::size_t const at      = text.find("%u");
    std::string       letters = std::to_string(number);
    for (char& digit : letters) {
        digit = static_cast<char>(digit - '0' + first_digit);
    }
    return text.replace(at, 2, letters);
}

// Whether the text begins so; number receives the number in it.
inline bool find_number(std::string const& text, std::string const& format, unsigned& number)
{
    std::size_t const at = format.find("%u");
    if (text.compare(0, at, format, 0, at) != 0) {
        return false;
    }
    number          = 0;
    std::size_t end = at;
    for (; end < text.size() && text[end] >= first_digit && text[end] <= last_digit; ++end) {
        number = number * 10 + static_cast<unsigned>(text[end] - first_digit);
    }
    std::string const rest = format.substr(at + 2);
    return end > at && text.compare(end, rest.size(), rest) == 0;
}

}  // namespace zelieml::test

#endif
