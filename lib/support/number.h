// number.h - decimal numbers in settings and replies

#ifndef ZELIEML_SUPPORT_NUMBER_H
#define ZELIEML_SUPPORT_NUMBER_H

#include <cstdlib>
#include <limits>

namespace zelieml
{

// text_to_int - atoi, defined for every string
//
// text  white space, an optional sign, digits; the rest is ignored
//
// Returns the number; 0 when there is none; the smallest or largest int when it is out of range.
inline int text_to_int(char const* text)
{
    long const number = std::strtol(text, nullptr, 10);
    if (number > std::numeric_limits<int>::max()) {
        return std::numeric_limits<int>::max();
    }
    if (number < std::numeric_limits<int>::min()) {
        return std::numeric_limits<int>::min();
    }
    return static_cast<int>(number);
}

}  // namespace zelieml

#endif
