#include "platform/linux/notification_datagram.h"

#include <cstdint>
#include <cstring>

namespace zelieml::platform
{

namespace
{

// What a datagram begins with: fixed widths, since 32-bit and 64-bit processes talk to each other.
// The texts follow in this order, without NULs.
struct datagram_head {
    char          mark[4];
    std::uint32_t name;
    std::uint32_t object;
    std::uint32_t key;
    std::uint32_t value;
    std::uint32_t has_value;
};

constexpr char datagram_mark[4] = {'z', 'm', 'n', '1'};

}  // namespace

std::string encode_notification(char const* name, char const* object, char const* key,
                                char const* value)
{
    auto length = [](char const* text) { return static_cast<std::uint32_t>(std::strlen(text)); };

    datagram_head head = {};
    std::memcpy(head.mark, datagram_mark, sizeof head.mark);
    head.has_value = value != nullptr ? 1 : 0;
    value          = value != nullptr ? value : "";
    head.name      = length(name);
    head.object    = length(object);
    head.key       = length(key);
    head.value     = length(value);
    std::string all(reinterpret_cast<char const*>(&head), sizeof head);
    return all + name + object + key + value;
}

bool decode_notification(std::string_view datagram, notification& out)
{
    datagram_head head = {};
    if (datagram.size() < sizeof head) {
        return false;
    }
    std::memcpy(&head, datagram.data(), sizeof head);
    std::uint64_t const total =
        sizeof head + std::uint64_t{head.name} + head.object + head.key + std::uint64_t{head.value};
    if (std::memcmp(head.mark, datagram_mark, sizeof head.mark) != 0 || total != datagram.size()) {
        return false;
    }
    std::size_t at   = sizeof head;
    auto        take = [&](std::uint32_t size) {
        std::string text(datagram.substr(at, size));
        at += size;
        return text;
    };
    out.name.text      = take(head.name);
    out.object.text    = take(head.object);
    out.info.key       = take(head.key);
    out.info.value     = take(head.value);
    out.info.has_value = head.has_value != 0;
    return true;
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
