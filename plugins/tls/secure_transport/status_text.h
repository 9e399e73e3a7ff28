// status_text.h - what the frameworks say, as text and as failures

#ifndef ZELIEML_PLUGINS_TLS_SECURE_TRANSPORT_STATUS_TEXT_H
#define ZELIEML_PLUGINS_TLS_SECURE_TRANSPORT_STATUS_TEXT_H

#include <CoreFoundation/CoreFoundation.h>
#include <string>

namespace zelieml::tls
{

// utf8_of - a string in UTF-8; empty when it is too long for a reason
std::string utf8_of(CFStringRef string);

// status_text - a result of the Security framework: the system's words, and the number
std::string status_text(OSStatus status);

// require_success - throw a failure that begins with these words, unless it is a success
void require_success(OSStatus status, char const* words);

}  // namespace zelieml::tls

#endif
