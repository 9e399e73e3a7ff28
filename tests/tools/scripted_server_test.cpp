// The server of the other tests must notice everything a client does wrong.

#include "tests/support/scripted_server.h"

#include <functional>
#include <gtest/gtest.h>
#include <stdexcept>
#include <system_error>
#include <thread>
#include <unistd.h>

#include "tests/support/case_name.h"
#include "tests/support/files.h"
#include "tests/support/scripted_client.h"

namespace zelieml::test
{

namespace
{

using namespace std::chrono_literals;
using mailserver::stream;
using clock = std::chrono::steady_clock;

// Connects and sends the bytes, closes our direction, hears all.
std::string converse(std::uint16_t port, std::string const& bytes)
{
    stream server = connect_to(port);
    server.write(bytes);
    server.end_writing();
    return hear_all(server);
}

struct server_case {
    char const* name;
    char const* transcript;
    std::string client;    // says all this at once, then closes
    std::string server;    // what the client hears
    char const* heard;     // what the server has heard
    char const* expected;  // what it wanted to hear; null: the same
    char const* problem = "";
};

}  // namespace

class ScriptedServer : public testing::TestWithParam<server_case>
{
};

TEST_P(ScriptedServer, HearsWhatTheClientDoes)
{
    server_case const& c = GetParam();
    scripted_server    server(c.transcript);
    server.set_host("[192.0.2.10]");
    EXPECT_EQ(converse(server.port(), c.client), c.server);
    EXPECT_EQ(server.heard(), c.heard);
    EXPECT_EQ(server.expected(), c.expected != nullptr ? c.expected : c.heard);
    EXPECT_EQ(server.problem(), c.problem);
    EXPECT_EQ(server.ok(), c.expected == nullptr);
}

server_case const good_cases[] = {
    {"lines_of_both",
     R"(
        # comments and empty lines mean nothing

        S: 220 mail.test ready
        C: helo {host}
        S: 250-hello {host}
        S: 250 {any other} brace
        C: quit
        S: 221 bye
        C: (closes)
     )",
     "helo [192.0.2.10]\r\nquit\r\n",
     "220 mail.test ready\r\n250-hello [192.0.2.10]\r\n250 {any other} brace\r\n221 bye\r\n",
     "C: helo [192.0.2.10]\nC: quit\nC: (closes)\n", nullptr},
    {"a_close_need_not_be_written",
     R"(
        S: hello
     )",
     "", "hello\r\n", "C: (closes)\n", nullptr},
    {"empty_lines",
     R"(
        S:
        C:
        S: )"
     "\nC: \n",
     "\r\n\r\n", "\r\n\r\n", "C: \nC: \nC: (closes)\n", nullptr},
    {"bytes_without_line_ends",
     R"(
        S- 25
        S- 0 ok\r\n2
        C- qu
        C- it\n
        C: x
     )",
     "quit\nx\r\n", "250 ok\r\n2", "C- qu\nC- it\\n\nC: x\nC: (closes)\n", nullptr},
    {"escapes",
     R"(
        S: \x28silent)\t\\\0\xfF\x7b
        C: a\0b\\\x1b
     )",
     {"a\0b\\\x1b\r\n", 7},
     {"(silent)\t\\\0\xff{\r\n", 15},
     "C: a\\0b\\\\\\x1b\nC: (closes)\n",
     nullptr},
    {"lines_held_back_and_repeated",
     R"(
        S+ one
        S+ two
        S: three
        S: (repeat 3) again
        S: (repeat 0) never
     )",
     "", "one\r\ntwo\r\nthree\r\nagain\r\nagain\r\nagain\r\n", "C: (closes)\n", nullptr},
    {"base64",
     R"(
        S64: 334 Username:
        C64: tim
        C64: \0u\0p
        C: AUTH PLAIN {base64:\0u\0p}
     )",
     "dGlt\r\nAHUAcA==\r\nAUTH PLAIN AHUAcA==\r\n", "334 VXNlcm5hbWU6\r\n",
     "C: dGlt\nC: AHUAcA==\nC: AUTH PLAIN AHUAcA==\nC: (closes)\n", nullptr},
    {"wildcards",
     R"(
        C: (any)
        C: Date: {any}
        C: {any}b{any}d{any}
        C: a{any}a
        C: {any}{host}{any}
     )",
     "whatever\r\nDate: today\r\nabcd\r\naa\r\n[192.0.2.10]\r\n", "",
     "C: whatever\nC: Date: today\nC: abcd\nC: aa\nC: [192.0.2.10]\nC: (closes)\n", nullptr},
    {"a_mail_line_by_line",
     R"(
        C: data
        S: 354 go
        C: Date: {any}
        C:
        C: ..
        C: .
        S: 250 ok
     )",
     "data\r\nDate: x\r\n\r\n..\r\n.\r\n", "354 go\r\n250 ok\r\n",
     "C: data\nC: Date: x\nC: \nC: ..\nC: .\nC: (closes)\n", nullptr},
    {"the_server_speaks_after_the_close",
     R"(
        C: (closes)
        S: (delays 1)
        S: late
     )",
     "", "late\r\n", "C: (closes)\n", nullptr},
    {"the_server_says_no_more_but_hears",
     R"(
        S: (half-closes)
        C: quit
     )",
     "quit\r\n", "", "C: quit\nC: (closes)\n", nullptr},
    {"trickling_ends",
     R"(
        S: (trickles 1)
        S: ab
        S: (trickles 0)
        S: cd
     )",
     "", "ab\r\ncd\r\n", "C: (closes)\n", nullptr},
    {"what_cannot_be_seen_is_shown_in_escapes",
     R"(
        C: (any)
     )",
     "\x1b$B\\\t\xc3\xa4\xff\r\n", "", "C: \\x1b$B\\\\\\t\xc3\xa4\\xff\nC: (closes)\n", nullptr},
};

INSTANTIATE_TEST_SUITE_P(Good, ScriptedServer, testing::ValuesIn(good_cases),
                         case_name<server_case>);

server_case const bad_cases[] = {
    {"another_line",
     R"(
        S: 220 ready
        C: helo {host}
        S: 250 hello
        C: quit
     )",
     "ehlo [192.0.2.10]\r\nquit\r\n", "220 ready\r\n", "C: ehlo [192.0.2.10]\n",
     "C: helo [192.0.2.10]\nC: quit\nC: (closes)\n",
     "line 3: wanted \"C: helo [192.0.2.10]\", heard \"C: ehlo [192.0.2.10]\""},
    {"another_case",
     R"(
        C: quit
     )",
     "QUIT\r\n", "", "C: QUIT\n", "C: quit\nC: (closes)\n",
     "line 2: wanted \"C: quit\", heard \"C: QUIT\""},
    {"a_line_that_ends_with_lf_alone",
     R"(
        C: quit
     )",
     "quit\n", "", "C- quit\\n\n", "C: quit\nC: (closes)\n",
     "line 2: wanted \"C: quit\", heard \"C- quit\\n\""},
    {"a_cr_too_many",
     R"(
        C: quit
     )",
     "quit\r\r\n", "", "C: quit\\r\n", "C: quit\nC: (closes)\n",
     "line 2: wanted \"C: quit\", heard \"C: quit\\r\""},
    {"a_blank_too_many",
     R"(
        C: quit
     )",
     "quit \r\n", "", "C: quit \n", "C: quit\nC: (closes)\n",
     "line 2: wanted \"C: quit\", heard \"C: quit \""},
    {"a_line_cut_short_by_the_end",
     R"(
        C: quit
     )",
     "qui", "", "C- qui\nC: (closes)\n", "C: quit\nC: (closes)\n",
     "line 2: wanted \"C: quit\", heard \"C- qui / C: (closes)\""},
    {"a_close_too_early",
     R"(
        C: helo {any}
        C: quit
     )",
     "helo x\r\n", "", "C: helo x\nC: (closes)\n", "C: helo x\nC: quit\nC: (closes)\n",
     "line 3: wanted \"C: quit\", heard \"C: (closes)\""},
    {"a_line_instead_of_the_close",
     R"(
        S: 550 no
        C: (closes)
        S: late
     )",
     "quit\r\n", "550 no\r\n", "C: quit\n", "C: (closes)\n",
     "line 3: wanted \"C: (closes)\", heard \"C: quit\""},
    {"a_line_after_the_last",
     R"(
        C: quit
     )",
     "quit\r\nquit\r\n", "", "C: quit\nC: quit\n", "C: quit\nC: (closes)\n",
     "the end, after line 2: wanted \"C: (closes)\", heard \"C: quit\""},
    {"bytes_after_the_last_line",
     R"(
        C: quit
     )",
     "quit\r\nx", "", "C: quit\nC- x\nC: (closes)\n", "C: quit\nC: (closes)\n",
     "the end, after line 2: wanted \"C: (closes)\", heard \"C- x / C: (closes)\""},
    {"a_line_to_a_silent_server",
     R"(
        S: (silent)
     )",
     "quit\r\n", "", "C: quit\n", "C: (closes)\n",
     "the end, after line 2: wanted \"C: (closes)\", heard \"C: quit\""},
    {"other_bytes",
     R"(
        C- quit
     )",
     "quiz", "", "C- quiz\n", "C- quit\nC: (closes)\n",
     "line 2: wanted \"C- quit\", heard \"C- quiz\""},
    {"too_few_bytes",
     R"(
        C- quit
     )",
     "qui", "", "C- qui\nC: (closes)\n", "C- quit\nC: (closes)\n",
     "line 2: wanted \"C- quit\", heard \"C- qui / C: (closes)\""},
    {"a_line_the_wildcards_do_not_match",
     R"(
        C: Date: {any} {any}00
     )",
     "Date: 00\r\n", "", "C: Date: 00\n", "C: Date: {any} {any}00\nC: (closes)\n",
     "line 2: wanted \"C: Date: {any} {any}00\", heard \"C: Date: 00\""},
    {"a_mail_without_an_end",
     R"(
        C: (data)
        S: 250 ok
     )",
     "Subject: x\r\n\r\n.", "", "C- .\nC: (closes)\n", "C: (data)\nC: (closes)\n",
     "line 2: wanted \"C: (data)\", heard \"C- . / C: (closes)\""},
    {"a_client_that_does_not_wait",
     R"(
        C: helo
        S: (delays 20)
        S: 250 hello
     )",
     "helo\r\nquit\r\n", "", "C: helo\nC: (speaks out of turn)\n", "C: helo\nC: (closes)\n",
     "line 3: heard \"C: (speaks out of turn)\""},
    {"a_connection_missing",
     R"(
        C: one
        C: (connects)
        C: two
     )",
     "ONE\r\n", "", "C: ONE\n", "C: one\nC: (closes)\nC: (connects)\nC: two\nC: (closes)\n",
     "line 2: wanted \"C: one\", heard \"C: ONE\""},
};

INSTANTIATE_TEST_SUITE_P(Bad, ScriptedServer, testing::ValuesIn(bad_cases), case_name<server_case>);

TEST(ScriptedServerClient, MayComeSeveralTimes)
{
    scripted_server server(R"(
        S: one
        C: a
        C: (connects)
        S: two
        S: (closes)
        C: (connects)
        S: three
    )");
    EXPECT_EQ(converse(server.port(), "a\r\n"), "one\r\n");
    stream second = connect_to(server.port());
    EXPECT_EQ(hear_all(second), "two\r\n");
    EXPECT_EQ(converse(server.port(), ""), "three\r\n");
    EXPECT_EQ(server.heard(), "C: a\nC: (closes)\nC: (connects)\nC: (connects)\nC: (closes)\n");
    EXPECT_EQ(server.expected(), server.heard());
    EXPECT_EQ(server.connections(), 3);
}

TEST(ScriptedServerClient, MayComeOncePerTranscript)
{
    std::vector<std::string> const transcripts = {"S: one\n", "S: two\n", "S: three\nC: x"};
    scripted_server                server(transcripts, 5s);
    EXPECT_EQ(converse(server.port(), ""), "one\r\n");
    EXPECT_EQ(converse(server.port(), ""), "two\r\n");
    EXPECT_EQ(converse(server.port(), "y\r\n"), "three\r\n");
    EXPECT_EQ(server.problem(), "transcript 3, line 2: wanted \"C: x\", heard \"C: y\"");
    EXPECT_EQ(server.connections(), 3);
}

TEST(ScriptedServerClient, ThatComesOnceTooOftenIsHeard)
{
    scripted_server server("S: one");
    EXPECT_EQ(converse(server.port(), ""), "one\r\n");
    EXPECT_EQ(converse(server.port(), ""), "");
    EXPECT_EQ(server.heard(), "C: (closes)\nC: (connects)\n");
    EXPECT_EQ(server.expected(), "C: (closes)\n");
    EXPECT_EQ(server.problem(), "after the end: heard \"C: (connects)\"");
    EXPECT_EQ(server.connections(), 2);
}

TEST(ScriptedServerClient, ThatComesInTheLastMomentIsHeard)
{
    for (int i = 0; i < 50; ++i) {
        scripted_server server("");
        stream          client = connect_to(server.port());
        EXPECT_EQ(server.heard(), "C: (connects)\n");
        EXPECT_EQ(server.expected(), "");
        EXPECT_FALSE(server.ok());
    }
}

TEST(ScriptedServerClient, ThatNeverComesIsNotWaitedForLong)
{
    scripted_server server("S: one\nC: (connects)\nC: two", 50ms);
    auto const      start = clock::now();
    EXPECT_EQ(server.heard(), "C: (never connects)\n");
    EXPECT_EQ(server.expected(), "C: (closes)\nC: (connects)\nC: two\nC: (closes)\n");
    EXPECT_EQ(server.problem(), "line 1: heard \"C: (never connects)\"");
    EXPECT_LT(clock::now() - start, 10s);
    EXPECT_EQ(server.connections(), 0);
}

TEST(ScriptedServerClient, ThatDoesNotComeAgainIsNotWaitedForLong)
{
    scripted_server server("S: one\nC: (connects)\nC: two", 50ms);
    converse(server.port(), "");
    EXPECT_EQ(server.heard(), "C: (closes)\nC: (never connects)\n");
    EXPECT_EQ(server.expected(), "C: (closes)\nC: (connects)\nC: two\nC: (closes)\n");
}

TEST(ScriptedServerClient, ThatIsSilentIsNotWaitedForLong)
{
    for (char const* const transcript :
         {"C: quit", "C- quit", "C: (data)", "C: (closes)", "S: (silent)"}) {
        scripted_server server(transcript, 50ms);
        stream          client = connect_to(server.port());
        EXPECT_EQ(server.heard(), "C: (silent)\n") << transcript;
        EXPECT_NE(server.expected(), server.heard());
        EXPECT_EQ(hear_all(client), "") << "the server has hung up";
    }
}

TEST(ScriptedServerClient, ThatNeverReadsIsNotWaitedForLong)
{
    scripted_server server("S: (repeat 2000000) 0123456789012345678901234567890\nC: x", 50ms);
    stream          client = connect_to(server.port());
    auto const      start  = clock::now();
    EXPECT_FALSE(server.ok());
    EXPECT_LT(clock::now() - start, 10s);
}

TEST(ScriptedServerClient, ThatBreaksTheConnectionHasClosedIt)
{
    scripted_server server("S: one\nC: (closes)");
    {
        stream client = connect_to(server.port());
        hear_line(client);
        client.break_when_closed();
    }
    EXPECT_EQ(server.heard(), "C: (closes)\n");
    EXPECT_TRUE(server.ok());
}

TEST(ScriptedServerMail, IsKeptAsItCame)
{
    struct {
        std::string sent;
        std::string kept;
        char const* why;
    } const cases[] = {
        {".\r\n", "", "nothing at all"},
        {"\r\n.\r\n", "", "the CR LF before the dot belongs to the end"},
        {"a\r\n.\r\n", "a", "likewise"},
        {"a\r\n\r\n.\r\n", "a\r\n", "but only the last one"},
        {"..\r\n.a\r\n.\r\n", "..\r\n.a", "dots stay stuffed"},
        {"a\n.\r\nb\n.\n\r\n.\r\n", "a\n.\r\nb\n.\n", "bare LFs end nothing"},
        {std::string(200000, 'x') + "\r\n.\r\n", std::string(200000, 'x'), "a long line"},
        {{"a\0b\r\n.\r\n", 8}, {"a\0b", 3}, "a NUL"},
    };
    for (auto const& c : cases) {
        scripted_server server("C: (data)\nC: quit");
        converse(server.port(), c.sent + "quit\r\n");
        EXPECT_EQ(server.data(), c.kept) << c.why;
        EXPECT_EQ(server.heard(), server.expected()) << c.why;
        EXPECT_EQ(server.data(1), "");
    }
}

TEST(ScriptedServerMail, MayBeSeveral)
{
    scripted_server server("C: (data)\nC: (data)\nC: (connects)\nC: (data)");
    converse(server.port(), "1\r\n.\r\n2\r\n.\r\n");
    converse(server.port(), "3\r\n.\r\n");
    EXPECT_EQ(server.data(0) + server.data(1) + server.data(2), "123");
    EXPECT_EQ(server.heard(),
              "C: (data)\nC: (data)\nC: (closes)\nC: (connects)\nC: (data)\nC: (closes)\n");
}

TEST(ScriptedServerSays, LinesHeldBackInOneWrite)
{
    scripted_server server("S+ one\nS+ two\nS: three");
    stream          client = connect_to(server.port());
    EXPECT_EQ(client.read_some(100).text, "one\r\ntwo\r\nthree\r\n");
}

TEST(ScriptedServerSays, BytesOneByOne)
{
    scripted_server server("S: (trickles 20)\nS: abcdef");
    auto const      start  = clock::now();
    stream          client = connect_to(server.port());
    int             pieces = 0;
    for (std::string line; line.find('\n') == std::string::npos; ++pieces) {
        line += client.read_some(100).text;
    }
    EXPECT_GE(pieces, 4);
    EXPECT_GE(clock::now() - start, 7 * 20ms);
}

TEST(ScriptedServerSays, NothingForAWhile)
{
    scripted_server server("S: one\nS: (delays 100)\nS: two");
    stream          client = connect_to(server.port());
    hear_line(client);
    auto const start = clock::now();
    EXPECT_EQ(hear_line(client), "two");
    EXPECT_GE(clock::now() - start, 90ms);
}

TEST(ScriptedServerSays, NothingForAWhileToAClientThatHasClosed)
{
    scripted_server server("C: (closes)\nS: (delays 100)");
    stream          client = connect_to(server.port());
    client.end_writing();
    auto const start = clock::now();
    EXPECT_EQ(hear_line(client), "(closed)");
    EXPECT_GE(clock::now() - start, 90ms);
    EXPECT_EQ(server.heard(), server.expected());
}

TEST(ScriptedServerEnd, IsABreakWhenWanted)
{
    for (bool const broken : {false, true}) {
        scripted_server server(broken ? "S: one\nS: (resets)" : "S: one\nS: (closes)");
        stream          client = connect_to(server.port());
        EXPECT_EQ(hear_line(client), "one");
        EXPECT_EQ(hear_line(client), "(closed)");
        EXPECT_EQ(server.heard(), "");
        EXPECT_TRUE(server.ok());
        // After a break the kernel refuses the very first write, after a close only a later one.
        EXPECT_EQ(client.write("x"), !broken);
    }
}

TEST(ScriptedServerEnd, LeavesNobodyListening)
{
    scripted_server server("");
    EXPECT_EQ(server.heard(), "");
    EXPECT_TRUE(server.ok());
    EXPECT_THROW(connect_to(server.port()), std::system_error);
}

TEST(ScriptedServerEnd, DoesNotWaitWhenTheServerIsDropped)
{
    auto const start = clock::now();
    {
        scripted_server waiting("S: one");
        scripted_server hearing("S: one");
        scripted_server trickling("S: (trickles 60000)\nS: one");
        scripted_server delaying("S: one\nS: (delays 60000)");
        stream          a = connect_to(hearing.port());
        stream          b = connect_to(trickling.port());
        stream          c = connect_to(delaying.port());
        hear_line(a);
        hear_line(c);
    }
    EXPECT_LT(clock::now() - start, 10s);
}

TEST(ScriptedServerEnd, LeavesNoDescriptorOpen)
{
    int const before = open_descriptors();
    {
        scripted_server server("S: one");
        stream          client = connect_to(server.port());
        hear_line(client);
    }
    EXPECT_EQ(open_descriptors(), before);
}

TEST(TranscriptLanguage, SaysWhatItDoesNotUnderstand)
{
    struct {
        char const* transcript;
        char const* problem;
    } const cases[] = {
        {"X: what", "line 1, \"X: what\": a line begins with S:, S-, S+, S64:, C:, C- or C64:"},
        {"\n  S:220", "line 2, \"S:220\": a line begins with S:, S-, S+, S64:, C:, C- or C64:"},
        {"S: \\q", "line 1, \"S: \\q\": unknown escape \\q"},
        {"S: \\", "line 1, \"S: \\\": unknown escape \\"},
        {"S: \\x1", "line 1, \"S: \\x1\": unknown escape \\x"},
        {"S: \\xgg", "line 1, \"S: \\xgg\": \"gg\" is not a number"},
        {"S: (sings)", "line 1, \"S: (sings)\": unknown action"},
        {"S: (closes", "line 1, \"S: (closes\": unknown action"},
        {"S: (", "line 1, \"S: (\": unknown action"},
        {"S: (closes 5)", "line 1, \"S: (closes 5)\": unknown action"},
        {"S: (closes) now", "line 1, \"S: (closes) now\": unknown action"},
        {"S: (delays)", "line 1, \"S: (delays)\": unknown action"},
        {"S: (delays x)", "line 1, \"S: (delays x)\": \"x\" is not a number"},
        {"S: (delays -1)", "line 1, \"S: (delays -1)\": \"-1\" is not a number"},
        {"C: (resets)", "line 1, \"C: (resets)\": unknown action"},
        {"S: {any}", "line 1, \"S: {any}\": {any} is for C: lines"},
        {"C- {any}", "line 1, \"C- {any}\": {any} is for C: lines"},
        {"S: (closes)\nC: x", "line 2, \"C: x\": the connection is closed"},
        {"S: (resets)\nS: x", "line 2, \"S: x\": the connection is closed"},
        {"C: (closes)\nC: x", "line 2, \"C: x\": the client has closed"},
        {"C: (closes)\nC: (closes)", "line 2, \"C: (closes)\": the client has closed"},
        {"S+ one\nC: x", "line 2, \"C: x\": what S+ held back is never said"},
        {"S+ one", "the end, after line 1: what S+ held back is never said"},
    };
    for (auto const& c : cases) {
        try {
            scripted_server server(c.transcript);
            ADD_FAILURE() << c.transcript << " was understood";
        } catch (std::invalid_argument const& e) {
            EXPECT_EQ(e.what(), std::string("transcript, ") + c.problem);
        }
    }
}

TEST(GreetingName, IsAnAddressLiteralOrThePlainHostName)
{
    char host[256] = {};
    ASSERT_EQ(::gethostname(host, sizeof host - 1), 0);
    std::string const name = greeting_name();
    EXPECT_TRUE(name == host || (name.front() == '[' && name.back() == ']')) << name;

    scripted_server server("C: helo {host}");
    converse(server.port(), "helo " + name + "\r\n");
    EXPECT_EQ(server.heard(), server.expected());
}

}  // namespace zelieml::test
