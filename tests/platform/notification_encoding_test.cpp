// notification_encoding_test.cpp - a notification as bytes, and the other way round

#include "platform/linux/notification_datagram.h"

#include <cstddef>
#include <gtest/gtest.h>
#include <string>

namespace zelieml::test
{
namespace
{

using platform::decode_notification;
using platform::encode_notification;
using platform::notification;

std::string encoded(notification const& n)
{
    return encode_notification(n.name.text.c_str(), n.object.text.c_str(), n.info.key.c_str(),
                               n.info.has_value ? n.info.value.c_str() : nullptr);
}

// The strings that a notification may have, as bytes.
std::string strings(std::initializer_list<char const*> list)
{
    std::string bytes;
    for (char const* const string : list) {
        bytes += string;
        bytes += '\0';
    }
    return bytes;
}

TEST(Encoding, IsTheStringsEachWithItsNul)
{
    EXPECT_EQ(encode_notification("n", "object", "key", "/a.sme"),
              strings({"n", "object", "key", "/a.sme"}));
    EXPECT_EQ(encode_notification("n", "o", "k", ""), strings({"n", "o", "k", ""}));
    EXPECT_EQ(encode_notification("n", "o", "k", nullptr), strings({"n", "o", "k"}));
    EXPECT_EQ(encode_notification("", "", "", ""), std::string(4, '\0'));
}

TEST(Decoding, GivesBackWhatWasEncoded)
{
    struct {
        char const* name;
        char const* object;
        char const* key;
        char const* value;
        char const* reason;
    } const cases[] = {
        {"name", "object", "key", "value", "the usual"},
        {"name", "object", "key", nullptr, "no value"},
        {"name", "object", "key", "", "an empty value is one"},
        {"", "", "", "", "nothing but NULs"},
        {"", "", "", nullptr, "nothing but NULs, and no value"},
        {"\xff\x01", "a\nb", "%s", "/w/\xe5 .sme", "odd bytes"},
    };
    for (auto const& c : cases) {
        notification out;
        ASSERT_TRUE(decode_notification(encode_notification(c.name, c.object, c.key, c.value), out))
            << c.reason;
        EXPECT_EQ(out.name.text, c.name) << c.reason;
        EXPECT_EQ(out.object.text, c.object) << c.reason;
        EXPECT_EQ(out.info.key, c.key) << c.reason;
        EXPECT_EQ(out.info.has_value, c.value != nullptr) << c.reason;
        EXPECT_EQ(out.info.value, c.value != nullptr ? c.value : "") << c.reason;
    }
}

TEST(Decoding, RefusesEverythingElse)
{
    std::string const good = strings({"n", "o", "k", "v"});
    struct {
        std::string datagram;
        char const* reason;
    } const cases[] = {
        {"", "no string"},
        {strings({"n"}), "one string"},
        {strings({"n", "o"}), "two strings"},
        {strings({"n", "o", "k", "v", ""}), "five strings"},
        {good + "x", "bytes behind the last NUL"},
        {good.substr(0, good.size() - 1), "a value without its NUL"},
        {strings({"n", "o"}) + "k", "a key without its NUL"},
    };
    for (auto const& c : cases) {
        notification out;
        EXPECT_FALSE(decode_notification(c.datagram, out)) << c.reason;
    }
}

// All byte strings of up to eight bytes that are a letter or a NUL each.
TEST(Decoding, AcceptsNothingButWhatEncodingMakes)
{
    int accepted = 0;
    for (std::size_t size = 0; size <= 8; ++size) {
        for (unsigned int letters = 0; letters < 1U << size; ++letters) {
            std::string datagram(size, '\0');
            for (std::size_t i = 0; i < size; ++i) {
                datagram[i] = (letters >> i & 1U) != 0 ? 'x' : '\0';
            }
            notification out;
            if (decode_notification(datagram, out)) {
                ++accepted;
                EXPECT_EQ(encoded(out), datagram);
            }
        }
    }
    // Up to eight bytes that end with a NUL and have two or three before that.
    EXPECT_EQ(accepted, (1 + 3 + 6 + 10 + 15 + 21) + (1 + 4 + 10 + 20 + 35));
}

}  // namespace
}  // namespace zelieml::test
