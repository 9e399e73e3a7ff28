// error_text.cpp - an error number in words; the C library of this system has no other language

#include "platform/error_text.h"

#include <cstring>

#include "support/format.h"

namespace zelieml::platform
{

namespace
{

// strerror_r returns a number, or the text where the fake of this system runs on another.
[[maybe_unused]] char const* text_of(int status, char const* buf)
{
    return status == 0 ? buf : nullptr;
}
[[maybe_unused]] char const* text_of(char const* text, char const* /*buf*/)
{
    return text;
}

}  // namespace

error_text::error_text(int error)
{
    char              buf[sizeof text_];
    char const* const text = text_of(::strerror_r(error, buf, sizeof buf), buf);
    format_text(text_, "%s", text != nullptr ? text : "Unknown error");
}

}  // namespace zelieml::platform
