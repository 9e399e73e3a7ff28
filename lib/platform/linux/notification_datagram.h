// notification_datagram.h - a notification as the bytes of one datagram

#ifndef ZELIEML_PLATFORM_LINUX_NOTIFICATION_DATAGRAM_H
#define ZELIEML_PLATFORM_LINUX_NOTIFICATION_DATAGRAM_H

#include <string>
#include <string_view>

#include "platform/notification.h"

namespace zelieml::platform
{

struct notification_center {
};

struct notification_text {
    std::string text;
};

struct notification_info {
    bool        has_value;
    std::string key;
    std::string value;
};

struct notification {
    notification_text name;
    notification_text object;
    notification_info info;
};

// value  null: without one
std::string encode_notification(char const* name, char const* object, char const* key,
                                char const* value);

// Returns false for anything that encode_notification does not make.
bool decode_notification(std::string_view datagram, notification& out);

}  // namespace zelieml::platform

#endif
