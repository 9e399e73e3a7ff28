// notification_datagram.h - a notification as the bytes of one datagram
//
// Four strings, each ended by a NUL: name, object, key and value. Without a value the fourth is
// missing. 32-bit and 64-bit processes talk to each other.

#ifndef ZELIEML_PLATFORM_LINUX_NOTIFICATION_DATAGRAM_H
#define ZELIEML_PLATFORM_LINUX_NOTIFICATION_DATAGRAM_H

#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>

#include "platform/notification.h"

namespace zelieml::platform
{

struct notification_center {
};

struct notification_text {
    std::string text;
};

struct notification_info {
    bool                 has_value;
    std::string          key;
    std::string          value;
    std::optional<uid_t> stranger = {};  // by may_be_trusted
};

struct notification {
    notification_text name;
    notification_text object;
    notification_info info;
};

// value  may be null
std::string encode_notification(char const* name, char const* object, char const* key,
                                char const* value);

// Returns false for anything that encode_notification does not make; out may be changed then.
bool decode_notification(std::string_view datagram, notification& out);

}  // namespace zelieml::platform

#endif
