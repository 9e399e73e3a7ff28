// contains.h - a part of a text

#ifndef ZELIEML_TESTS_SUPPORT_CONTAINS_H
#define ZELIEML_TESTS_SUPPORT_CONTAINS_H

#include <string>

namespace zelieml::test
{

inline bool contains(std::string const& text, std::string const& part)
{
    return text.find(part) != text.npos;
}

inline int count_of(std::string const& text, std::string const& part)
{
    int count = 0;
    for (std::size_t at = 0; (at = text.find(part, at)) != text.npos; ++at) {
        ++count;
    }
    return count;
}

}  // namespace zelieml::test

#endif
