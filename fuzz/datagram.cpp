// datagram.cpp - the datagrams of notifications on Linux
//
// The input is a datagram, as anybody may send it to an observer.

#include <vector>

#include "fuzz/support/fuzz.h"
#include "platform/linux/notification_datagram.h"

using namespace zelieml;
using fuzz::require;

namespace
{

// Copies the value into a buffer of its size, and into one that is a byte too short.
void check_value(platform::notification_info const& info)
{
    std::vector<char> buffer(info.value.size() + 1, '#');
    bool const        fits =
        platform::notification_value(&info, info.key.c_str(), buffer.data(), buffer.size());
    require(fits == info.has_value, "a value fits a buffer of its size");
    require(!fits || info.value == buffer.data(), "a value is copied whole");
    require(
        !platform::notification_value(&info, info.key.c_str(), buffer.data(), buffer.size() - 1),
        "a value does not fit a buffer that is too short");
    require(!platform::notification_value(&info, (info.key + "x").c_str(), buffer.data(),
                                          buffer.size()),
            "there is no value of another key");
}

}  // namespace

int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    fuzz::no_descriptor_left const guard;
    std::string const              datagram(reinterpret_cast<char const*>(data), size);

    // Three or four strings, each with its NUL, and nothing after the last one.
    std::size_t strings = 0;
    for (char const c : datagram) {
        strings += c == '\0' ? 1 : 0;
    }
    bool const whole = size > 0 && datagram.back() == '\0' && (strings == 3 || strings == 4);

    platform::notification out;
    bool const             decoded = platform::decode_notification(datagram, out);
    require(decoded == whole, "only what a post makes is decoded");
    if (decoded) {
        require(out.info.has_value == (strings == 4), "the fourth string is the value");
        require(platform::encode_notification(
                    out.name.text.c_str(), out.object.text.c_str(), out.info.key.c_str(),
                    out.info.has_value ? out.info.value.c_str() : nullptr) == datagram,
                "what was decoded makes the same datagram again");
        check_value(out.info);
    }
    return 0;
}
