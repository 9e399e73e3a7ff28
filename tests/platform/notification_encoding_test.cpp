// notification_encoding_test.cpp - a notification as bytes, and the other way round

#include "platform/linux/notification_datagram.h"

#include <cstddef>
#include <gtest/gtest.h>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>

#include "platform/linux/notification_place.h"
#include "tests/support/case_name.h"

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

// Programs of all versions have to find each other's sockets. Fowler, Noll and Vo publish these
// values of FNV-1a.
TEST(SocketPrefix, IsTheHashOfTheObject)
{
    EXPECT_EQ(platform::socket_prefix(""), "cbf29ce484222325-");
    EXPECT_EQ(platform::socket_prefix("a"), "af63dc4c8601ec8c-");
    EXPECT_EQ(platform::socket_prefix("foobar"), "85944171f73967e8-");
}

TEST(Address, EndsWithANulAlsoWhenThePathDoesNotFit)
{
    std::string const path(200, 'x');
    sockaddr_un const address = platform::address_of(path);
    EXPECT_EQ(address.sun_family, AF_UNIX);
    EXPECT_EQ(std::string(address.sun_path, sizeof address.sun_path),
              path.substr(0, sizeof address.sun_path - 1) + '\0');
}

// A notification with all its strings.
struct whole_case : named_case {
    using named_case::named_case;

    whole_case& addressed(char const* its_name, char const* its_object)
    {
        sent_name = its_name;
        object    = its_object;
        return *this;
    }
    whole_case& with(char const* its_key, char const* its_value)
    {
        key   = its_key;
        value = its_value;
        return *this;
    }

    char const* sent_name = "name";
    char const* object    = "object";
    char const* key       = "key";
    char const* value     = "value";  // or null
};

TEST(Decoding, GivesBackWhatWasEncoded)
{
    whole_case const cases[] = {
        whole_case("the usual"),
        whole_case("no value").with("key", nullptr),
        whole_case("an empty value is one").with("key", ""),
        whole_case("nothing but NULs").addressed("", "").with("", ""),
        whole_case("nothing but NULs, and no value").addressed("", "").with("", nullptr),
        whole_case("odd bytes").addressed("\xff\x01", "a\nb").with("%s", "/w/\xe5 .sme"),
    };
    for (whole_case const& c : cases) {
        notification out;
        ASSERT_TRUE(
            decode_notification(encode_notification(c.sent_name, c.object, c.key, c.value), out))
            << c;
        EXPECT_EQ(out.name.text, c.sent_name) << c;
        EXPECT_EQ(out.object.text, c.object) << c;
        EXPECT_EQ(out.info.key, c.key) << c;
        EXPECT_EQ(out.info.has_value, c.value != nullptr) << c;
        EXPECT_EQ(out.info.value, c.value != nullptr ? c.value : "") << c;
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
