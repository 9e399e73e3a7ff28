// library_text.h - strings that the library copies into a buffer
//
// Its getters fail when the buffer is too small and do not say how large it has to be.

#ifndef ZELIEML_TOOLS_ZELIEML_LIBRARY_TEXT_H
#define ZELIEML_TOOLS_ZELIEML_LIBRARY_TEXT_H

#include <climits>
#include <new>
#include <string>

namespace zelieml::program
{

// library_text - what a getter copies
//
//     library_text([&](char* buf, int size) { return eml_msg_get_to(msg, buf, size); })
//
// The getter fails for want of room only. Throws std::bad_alloc when no buffer is large enough.
template <class Getter>
std::string library_text(Getter&& getter)
{
    for (int size = 1024; size < INT_MAX / 2; size *= 2) {
        std::string text(static_cast<std::string::size_type>(size), '\0');
        if (getter(text.data(), size) == 0) {
            text.resize(text.find('\0'));
            return text;
        }
    }
    throw std::bad_alloc();
}

}  // namespace zelieml::program

#endif
