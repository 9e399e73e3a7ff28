// The lines of a mail leave together, where the system can join them (lib/platform/socket.h).

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include "tests/libsendw/smtp_cases.h"

namespace zelieml::test
{

namespace
{

class SmtpSession : public on_a_clean_machine
{
};

// Whether the system holds small segments back; it does so for up to 200 ms each.
bool holds_back(int fd)
{
    int       on     = 0;
    socklen_t length = sizeof on;
    EXPECT_EQ(::getsockopt(fd, IPPROTO_TCP, TCP_CORK, &on, &length), 0);
    return on != 0;
}

TEST_F(SmtpSession, SendsTheLinesOfATextTogether)
{
    hand_held_session held;
    std::string       text;
    strings           lines;
    for (int i = 0; i < 12; ++i) {
        lines.push_back("X-Header: " + std::to_string(i) + "\r\n");
        text += lines.back();
    }
    EXPECT_FALSE(holds_back(held.pair.client()));
    ASSERT_EQ(smtp_write_data(&held.session, lines), 0);
    EXPECT_TRUE(holds_back(held.pair.client()));

    held.pair.say("250 queued\r\n");
    ASSERT_EQ(smtp_end_data(&held.session), 0);
    EXPECT_FALSE(holds_back(held.pair.client())) << "the end of the data is sent at once";
    ::shutdown(held.pair.client(), SHUT_WR);
    EXPECT_EQ(held.pair.heard_to_the_end(), text + "\r\n.\r\n");
}

}  // namespace

}  // namespace zelieml::test
