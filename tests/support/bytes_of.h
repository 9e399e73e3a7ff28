// bytes_of.h - a string as the bytes that the codecs take

#ifndef ZELIEML_TESTS_SUPPORT_BYTES_OF_H
#define ZELIEML_TESTS_SUPPORT_BYTES_OF_H

#include <string>

namespace zelieml::test
{

inline unsigned char const* bytes_of(std::string const& string)
{
    return reinterpret_cast<unsigned char const*>(string.c_str());
}

}  // namespace zelieml::test

#endif
