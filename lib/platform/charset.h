// charset.h - text from other charsets as UTF-8
//
// lib/platform/macos/charset.cpp: CFString.
// lib/platform/linux/charset.cpp: iconv of the C library.

#ifndef ZELIEML_PLATFORM_CHARSET_H
#define ZELIEML_PLATFORM_CHARSET_H

#include <string>
#include <string_view>

namespace zelieml::platform
{

// append_as_utf8 - convert text, and append it
//
// charset  its name as IANA has it; of a kind that contains ASCII. Give it known names only: not
//          every converter of every system is fit for whatever comes from the network.
// bytes    the text, without NULs
// out      receives the text at its end; a byte or an escape sequence that means nothing becomes
//          U+FFFD
//
// Returns false, leaving out unchanged, when the system does not know the charset, or in a forked
// child on macOS, see macos/first_process.h. Any thread.
bool append_as_utf8(char const* charset, std::string_view bytes, std::string& out);

constexpr char replacement_character[] = "\xEF\xBF\xBD";  // U+FFFD

}  // namespace zelieml::platform

#endif
