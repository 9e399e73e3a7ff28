// error_text.cpp - an error number in words, in no locale

#include "platform/error_text.h"

#include <cstring>

#include "support/format.h"

namespace zelieml::platform
{

error_text::error_text(int error)
{
    char const* const text = ::strerrordesc_np(error);
    format_text(text_, "%s", text != nullptr ? text : "Unknown error");
}

}  // namespace zelieml::platform
