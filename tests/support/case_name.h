// case_name.h - the rows of a table as googletest names and prints them

#ifndef ZELIEML_TESTS_SUPPORT_CASE_NAME_H
#define ZELIEML_TESTS_SUPPORT_CASE_NAME_H

#include <cctype>
#include <gtest/gtest.h>
#include <ostream>
#include <string>

namespace zelieml::test
{

// A row of a table. Its name is in words, and what googletest prints of it.
struct named_case {
    explicit named_case(char const* its_name) : name(its_name) {}

    char const* name;
};

inline std::ostream& operator<<(std::ostream& out, named_case const& c)
{
    return out << c.name;
}

// The member name of a row as INSTANTIATE_TEST_SUITE_P wants it.
template <class Case>
std::string case_name(testing::TestParamInfo<Case> const& info)
{
    std::string name = info.param.name;
    for (char& c : name) {
        c = std::isalnum(static_cast<unsigned char>(c)) != 0 ? c : '_';
    }
    return name;
}

}  // namespace zelieml::test

#endif
