// ascii.h - upper and lower case of ASCII letters, whatever the locale of the program

#ifndef ZELIEML_SUPPORT_ASCII_H
#define ZELIEML_SUPPORT_ASCII_H

#include <algorithm>
#include <string_view>

namespace zelieml
{

// ascii_lower, ascii_upper - a letter in the other case; every other byte as it is
constexpr char ascii_lower(char c)
{
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

constexpr char ascii_upper(char c)
{
    return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
}

// equal_ignoring_case - whether two bytes, or two texts, are the same but for the case of letters
constexpr bool equal_ignoring_case(char one, char other)
{
    return ascii_lower(one) == ascii_lower(other);
}

inline bool equal_ignoring_case(std::string_view one, std::string_view other)
{
    return std::equal(one.begin(), one.end(), other.begin(), other.end(),
                      [](char a, char b) { return equal_ignoring_case(a, b); });
}

// contains_ignoring_case - whether part is somewhere in text, but for the case of letters
inline bool contains_ignoring_case(std::string_view text, std::string_view part)
{
    return part.empty() ||
           std::search(text.begin(), text.end(), part.begin(), part.end(),
                       [](char a, char b) { return equal_ignoring_case(a, b); }) != text.end();
}

}  // namespace zelieml

#endif
