// notification_datagram_test.cpp - what else may come to an observer's socket
//
// Anybody can send to a socket in the directory for all users: an observer takes what a post
// makes, and nothing else harms it.

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <vector>

#include "platform/linux/notification_datagram.h"
#include "platform/notification.h"
#include "support/gate.h"
#include "support/unique_fd.h"
#include "tests/support/notification_room.h"

namespace zelieml::test
{
namespace
{

using texts = std::vector<std::string>;

// What a post to "object" makes of a value.
std::string good(std::string const& value)
{
    return platform::encode_notification(test_name, "object", test_key, value.c_str());
}

// A sender to the only socket of a room.
class raw_sender
{
public:
    explicit raw_sender(std::string const& directory)
        : fd_(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0))
    {
        texts const files = notification_room::sockets(directory);
        EXPECT_EQ(files.size(), 1U);
        sockaddr_un address    = {};
        address.sun_family     = AF_UNIX;
        std::string const path = directory + "/" + files.at(0);
        EXPECT_LT(path.size(), sizeof address.sun_path);
        std::memcpy(address.sun_path, path.c_str(), path.size());
        EXPECT_EQ(::connect(fd_.get(), reinterpret_cast<sockaddr const*>(&address), sizeof address),
                  0);
    }

    void send(std::string const& datagram) const
    {
        EXPECT_EQ(::send(fd_.get(), datagram.data(), datagram.size(), 0),
                  static_cast<ssize_t>(datagram.size()));
    }

    // With a descriptor beside it, which Linux refuses since 6.16.
    void send(std::string const& datagram, int descriptor) const
    {
        union {
            cmsghdr head;
            char    bytes[CMSG_SPACE(sizeof(int))];
        } control               = {};
        iovec  data             = {const_cast<char*>(datagram.data()), datagram.size()};
        msghdr message          = {};
        message.msg_iov         = &data;
        message.msg_iovlen      = 1;
        message.msg_control     = control.bytes;
        message.msg_controllen  = sizeof control.bytes;
        control.head.cmsg_level = SOL_SOCKET;
        control.head.cmsg_type  = SCM_RIGHTS;
        control.head.cmsg_len   = CMSG_LEN(sizeof(int));
        std::memcpy(CMSG_DATA(&control.head), &descriptor, sizeof descriptor);
        ssize_t const size = ::sendmsg(fd_.get(), &message, 0);
        EXPECT_TRUE(size == static_cast<ssize_t>(datagram.size()) ||
                    (size == -1 && errno == EPERM));
    }

private:
    unique_fd fd_;
};

TEST(Datagram, ThatAPostMadeIsDelivered)
{
    notification_room const room;
    listener                one("object");
    raw_sender const        sender(room.own());
    sender.send(good("hello"));  // the kernel says who sends it, as the sender does not
    sender.send(good(""));
    EXPECT_EQ(one.heard().wait_for(2), 2U);
    EXPECT_EQ(one.heard().all(), (texts{"hello", ""}));
}

TEST(Datagram, OfAnyOtherFormIsDropped)
{
    std::string const name   = std::string(test_name) + '\0';
    std::string const object = std::string("object") + '\0';
    std::string const key    = std::string(test_key) + '\0';
    std::string const value  = std::string("a bad one") + '\0';
    struct {
        char const* reason;
        std::string datagram;
    } const cases[] = {
        {"nothing", ""},
        {"one byte", "z"},
        {"one NUL", std::string(1, '\0')},
        {"no key", name + object},
        {"no NUL at the end", good("a bad one").substr(0, good("a bad one").size() - 1)},
        {"a fifth string", good("a bad one") + value},
        {"an empty fifth string", good("a bad one") + '\0'},
        {"no name", object + key + value},
        {"another order", object + name + key + value},
        {"another name", "x" + good("a bad one")},
        {"another object", name + "x" + object + key + value},
        {"64 KB of nothing", std::string(65536, '\0')},
        {"one byte more than is taken", good(std::string(65537 - good("").size(), 'v'))},
        {"much more than is taken", good(std::string(100000, 'v'))},
    };
    notification_room const room;
    listener                one("object");
    raw_sender const        sender(room.own());
    texts                   wanted;
    for (auto const& c : cases) {
        sender.send(c.datagram);
        // The next one is delivered.
        wanted.push_back(std::string("after ") + c.reason);
        sender.send(good(wanted.back()));
        ASSERT_EQ(one.heard().wait_for(wanted.size()), wanted.size()) << c.reason;
        ASSERT_EQ(one.heard().all(), wanted) << c.reason;
    }
}

TEST(Datagram, MayBeAsLongAsIsTaken)
{
    notification_room const room;
    struct long_value {
        std::string text = std::string(70000, '\0');
        bool        fits = false;
        gate        done;
    } received;
    auto const note = [](platform::notification_center*, void* observer,
                         platform::notification_text const*, platform::notification_text const*,
                         platform::notification_info const* info) {
        auto* const value = static_cast<long_value*>(observer);
        char        small[400];
        EXPECT_FALSE(platform::notification_value(info, test_key, small, sizeof small));
        value->fits =
            platform::notification_value(info, test_key, value->text.data(), value->text.size());
        value->done.open();
    };
    ASSERT_EQ(platform::add_observer(test_name, "object", note, &received), 0);
    std::string const longest(65536 - good("").size(), 'v');
    raw_sender(room.own()).send(good(longest));
    received.done.wait();
    EXPECT_EQ(platform::remove_observer(test_name, "object", &received), 0);
    EXPECT_TRUE(received.fits);
    EXPECT_EQ(received.text.c_str(), longest);
}

TEST(Datagram, OfThreeStringsHasNoValue)
{
    notification_room const room;
    listener                one("object");
    raw_sender(room.own())
        .send(platform::encode_notification(test_name, "object", test_key, nullptr));
    EXPECT_EQ(one.heard().wait_for(1), 1U);
    EXPECT_EQ(one.heard().all(), texts{"(no value)"});
}

TEST(Datagram, LeavesNoDescriptorOfAStranger)
{
    notification_room const room;
    listener                one("object");
    raw_sender const        sender(room.own());
    sender.send(good("first"));
    one.heard().wait_for(1);
    int const before = open_descriptors();
    for (int i = 0; i < 50; ++i) {
        sender.send(good("with a descriptor"), 0);
    }
    sender.send(good("end"));
    EXPECT_TRUE(one.heard().wait_for_last("end"));
    EXPECT_EQ(open_descriptors(), before);
}

// Random bytes, and good ones with something changed.
TEST(Datagram, MayBeAnythingAtAll)
{
    notification_room const room;
    listener                one("object");
    raw_sender const        sender(room.own());
    std::mt19937            random(20240131);
    auto const              below = [&](unsigned int limit) {
        return std::uniform_int_distribution<unsigned int>(0, limit - 1)(random);
    };
    auto const random_text = [&] {
        std::string text(below(200), '\0');
        for (char& byte : text) {
            byte = static_cast<char>(below(256));
        }
        return text;
    };
    for (int i = 0; i < 10000; ++i) {
        std::string datagram;
        if (below(3) == 0) {
            datagram = random_text();
        } else {
            datagram = good(random_text());
            for (unsigned int n = below(4); n > 0; --n) {
                datagram[below(static_cast<unsigned int>(datagram.size()))] =
                    static_cast<char>(below(256));
            }
            datagram.resize(datagram.size() - below(3));
        }
        sender.send(datagram);
    }
    sender.send(good("the end"));
    EXPECT_TRUE(one.heard().wait_for_last("the end"));
    EXPECT_GT(one.heard().all().size(), 100U) << "some were good";
}

}  // namespace
}  // namespace zelieml::test
