#include "platform/linux/notification_datagram.h"

#include <cstddef>
#include <cstring>
#include <iterator>

namespace zelieml::platform
{

std::string encode_notification(char const* name, char const* object, char const* key,
                                char const* value)
{
    std::string datagram;
    for (char const* const string : {name, object, key, value}) {
        if (string != nullptr) {
            datagram.append(string, std::strlen(string) + 1);
        }
    }
    return datagram;
}

bool decode_notification(std::string_view datagram, notification& out)
{
    std::string* const strings[] = {&out.name.text, &out.object.text, &out.info.key,
                                    &out.info.value};
    std::size_t        count     = 0;
    for (; !datagram.empty(); ++count) {
        std::size_t const size = datagram.find('\0');
        if (size == std::string_view::npos || count == std::size(strings)) {
            return false;
        }
        strings[count]->assign(datagram.substr(0, size));
        datagram.remove_prefix(size + 1);
    }
    out.info.has_value = count == std::size(strings);
    return count + 1 >= std::size(strings);
}

bool notification_value(notification_info const* info, char const* key, char* buf, std::size_t size)
{
    if (!info->has_value || info->key != key || info->value.size() >= size) {
        return false;
    }
    std::memcpy(buf, info->value.c_str(), info->value.size() + 1);
    return true;
}

}  // namespace zelieml::platform
