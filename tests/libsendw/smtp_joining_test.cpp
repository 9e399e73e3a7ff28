// The lines of a mail leave together, and as smtp_write_data and smtp_end_data send them.

#include <linux/tcp.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <thread>

#include "libsendw/sock.h"
#include "tests/libsendw/smtp_cases.h"

namespace zelieml::test
{

namespace
{

class SmtpText : public on_a_clean_machine
{
};

int in_two_steps(_s_smtp* session, strings const& lines)
{
    return smtp_write_data(session, lines) == 0 ? smtp_end_data(session) : -1;
}

int in_lots(_s_smtp* session, strings const& lines)
{
    return smtp_send_text(session, lines) == 0 ? smtp_end_data(session) : -1;
}

int together(_s_smtp* session, strings const& lines)
{
    return smtp_send_data(session, lines);
}

constexpr auto all_ways = {in_two_steps, in_lots, together};

strings header_lines(int count)
{
    strings lines;
    for (int i = 0; i < count; ++i) {
        lines.push_back("X-Header: " + std::to_string(i) + "\r\n");
    }
    return lines;
}

std::string joined(strings const& lines)
{
    std::string text;
    for (std::string const& line : lines) {
        text += line;
    }
    return text + "\r\n.\r\n";
}

unsigned segments_sent(int fd)
{
    tcp_info  info   = {};
    socklen_t length = sizeof info;
    EXPECT_EQ(::getsockopt(fd, IPPROTO_TCP, TCP_INFO, &info, &length), 0);
    return info.tcpi_data_segs_out;
}

TEST_F(SmtpText, LeavesInOneSegmentWithItsEndMark)
{
    hand_held_session held;
    int const         on = 1;
    ::setsockopt(held.pair.client(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    held.pair.say("250 queued\r\n");
    ASSERT_EQ(smtp_send_data(&held.session, header_lines(12)), 0);
    EXPECT_EQ(segments_sent(held.pair.client()), 1U);
    ::shutdown(held.pair.client(), SHUT_WR);
    EXPECT_EQ(held.pair.heard_to_the_end(), joined(header_lines(12)));
}

TEST_F(SmtpText, IsTheSameAsInTwoSteps)
{
    std::string const big(100000, 'x');
    strings           many = header_lines(100);
    many.resize(300);  // empty strings at the end
    struct {
        char const* name;
        strings     lines;
    } const texts[] = {
        {"no line", {}},
        {"an empty line", {""}},
        {"empty lines between and around", {"", "", "a\r\n", "", "b", ""}},
        {"as many as are sent at once", header_lines(15)},
        {"one more", header_lines(16)},
        {"many, and empty ones", many},
        {"big ones", {"a\r\n", big, "", big, "b"}},
    };
    for (auto const& text : texts) {
        for (char const* const reply :
             {"250 queued\r\n", "250-a\r\n250 b\r\n", "552 too much\r\n", "354 250\r\n"}) {
            struct {
                int         result;
                std::string reply;
                std::string heard;
                strings     traced;
            } seen[3];
            auto now = seen;
            for (auto const& send : all_ways) {
                hand_held_session held;
                held.pair.say(reply);
                std::thread server([&] { now->heard = held.pair.heard_to_the_end(); });
                clear_traces();
                now->result = send(&held.session, text.lines);
                now->traced = traces();
                now->reply  = held.session.reply;
                ::shutdown(held.pair.client(), SHUT_WR);
                server.join();
                EXPECT_EQ(now->result, seen[0].result) << text.name << ", " << reply;
                EXPECT_EQ(now->reply, seen[0].reply) << text.name << ", " << reply;
                EXPECT_EQ(now->traced, seen[0].traced) << text.name << ", " << reply;
                EXPECT_TRUE(now->heard == joined(text.lines)) << text.name << ", " << reply;
                ++now;
            }
        }
    }
}

TEST_F(SmtpText, TracesWhatCouldNotBeWritten)
{
    struct {
        strings lines;
        strings trouble;
    } const texts[] = {
        {{"a\r\n", "b\r\n"}, {"error:_smtp_write_data"}},
        {{}, {"error:smtp end data"}},
        {{"", ""}, {"error:smtp end data"}},
    };
    for (auto const& text : texts) {
        for (auto const& send : all_ways) {
            hand_held_session held;
            ::shutdown(held.pair.client(), SHUT_WR);
            clear_traces();
            EXPECT_EQ(send(&held.session, text.lines), -1);
            EXPECT_EQ(trouble_traces(), text.trouble);
        }
    }
}

TEST_F(SmtpText, SurvivesAServerThatStopsReadingAndBreaksTheConnection)
{
    hand_held_session held;
    std::thread       server([&] {
        held.pair.wait_until_client_is_stuck();
        held.pair.server_resets();
    });
    EXPECT_EQ(smtp_send_data(&held.session, strings(64, std::string(1000000, 'x') + "\r\n")), -1);
    EXPECT_EQ(trouble_traces(), strings{"error:_smtp_write_data"});
    server.join();
}

TEST_F(SmtpText, ReachesAServerThatReadsLate)
{
    hand_held_session held;
    strings const     lines(300, std::string(99998, 'x') + "\r\n");
    std::string       heard;
    std::thread       server([&] {
        held.pair.wait_until_client_is_stuck();
        held.pair.say_along("250 queued\r\n");
        heard = held.pair.heard_to_the_end();
    });
    EXPECT_EQ(smtp_send_data(&held.session, lines), 0);
    ::shutdown(held.pair.client(), SHUT_WR);
    server.join();
    EXPECT_TRUE(heard == joined(lines));
}

}  // namespace

}  // namespace zelieml::test
