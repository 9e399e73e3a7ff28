// error_text.h - an error number of the system in words
//
// lib/platform/macos/error_text.cpp: strerror_r.
// lib/platform/linux/error_text.cpp: strerrordesc_np, since strerror speaks the host's language.

#ifndef ZELIEML_PLATFORM_ERROR_TEXT_H
#define ZELIEML_PLATFORM_ERROR_TEXT_H

namespace zelieml::platform
{

// The English text of an errno, such as "Connection refused"; "Unknown error" when there is none.
class error_text
{
public:
    explicit error_text(int error);

    // Valid as long as the object.
    char const* c_str() const { return text_; }

private:
    char text_[128];
};

}  // namespace zelieml::platform

#endif
