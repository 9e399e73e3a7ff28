// status_text.cpp - what the frameworks say, as text and as failures

#include "plugins/tls/secure_transport/status_text.h"

#include <Security/Security.h>
#include <new>

#include "platform/macos/cf_owner.h"
#include "plugins/tls/failure.h"

namespace zelieml::tls
{

std::string utf8_of(CFStringRef string)
{
    char text[512];
    return ::CFStringGetCString(string, text, sizeof text, kCFStringEncodingUTF8) != 0 ? text : "";
}

std::string status_text(OSStatus status)
{
    platform::cf_owner<CFStringRef> const words(::SecCopyErrorMessageString(status, nullptr));
    std::string const number = "error " + std::to_string(static_cast<int>(status));
    std::string const text   = words ? utf8_of(words.get()) : "";
    return text.empty() ? number : text + " (" + number + ")";
}

void require_success(OSStatus status, char const* words)
{
    if (status == errSecAllocate) {
        throw std::bad_alloc();
    }
    if (status != errSecSuccess) {
        throw failure{eml_cause_tls, words + (": " + status_text(status))};
    }
}

}  // namespace zelieml::tls
