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

// A client that behaves as the transcript says, unless it says otherwise.
struct server_case : named_case {
    using named_case::named_case;

    server_case& plays(std::string const& its_transcript)
    {
        transcript = its_transcript;
        return *this;
    }
    // The client sends all this at once, then closes.
    server_case& client(std::string const& bytes)
    {
        client_says = bytes;
        return *this;
    }
    // The client hears this.
    server_case& server(std::string const& bytes)
    {
        server_says = bytes;
        return *this;
    }
    // What the server has heard, which is what it wanted.
    server_case& hears(std::string const& lines)
    {
        heard    = lines;
        expected = lines;
        return *this;
    }
    // What it wanted instead.
    server_case& wants(std::string const& lines, std::string const& its_problem)
    {
        expected = lines;
        problem  = its_problem;
        return *this;
    }

    std::string transcript;
    std::string client_says;
    std::string server_says;
    std::string heard;
    std::string expected;
    std::string problem;
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
    EXPECT_EQ(converse(server.port(), c.client_says), c.server_says);
    EXPECT_EQ(server.heard(), c.heard);
    EXPECT_EQ(server.expected(), c.expected);
    EXPECT_EQ(server.problem(), c.problem);
    EXPECT_EQ(server.ok(), c.heard == c.expected);
}

server_case const good_cases[] = {
    server_case("lines of both")
        .plays(R"(
        # comments and empty lines mean nothing

        S: 220 mail.test ready
        C: helo {host}
        S: 250-hello {host}
        S: 250 {any other} brace
        C: quit
        S: 221 bye
        C: (closes)
     )")
        .client("helo [192.0.2.10]\r\nquit\r\n")
        .server(
            "220 mail.test ready\r\n250-hello [192.0.2.10]\r\n250 {any other} brace\r\n221 bye\r\n")
        .hears("C: helo [192.0.2.10]\nC: quit\nC: (closes)\n"),
    server_case("a close need not be written")
        .plays("S: hello")
        .server("hello\r\n")
        .hears("C: (closes)\n"),
    server_case("empty lines")
        .plays(R"(
        S:
        C:
        S: )"
               "\nC: \n")
        .client("\r\n\r\n")
        .server("\r\n\r\n")
        .hears("C: \nC: \nC: (closes)\n"),
    server_case("bytes without line ends")
        .plays(R"(
        S- 25
        S- 0 ok\r\n2
        C- qu
        C- it\n
        C: x
     )")
        .client("quit\nx\r\n")
        .server("250 ok\r\n2")
        .hears("C- qu\nC- it\\n\nC: x\nC: (closes)\n"),
    server_case("escapes")
        .plays(R"(
        S: \x28silent)\t\\\0\xfF\x7b
        C: a\0b\\\x1b
     )")
        .client({"a\0b\\\x1b\r\n", 7})
        .server({"(silent)\t\\\0\xff{\r\n", 15})
        .hears("C: a\\0b\\\\\\x1b\nC: (closes)\n"),
    server_case("lines held back and repeated")
        .plays(R"(
        S+ one
        S+ two
        S: three
        S: (repeat 3) again
        S: (repeat 0) never
     )")
        .server("one\r\ntwo\r\nthree\r\nagain\r\nagain\r\nagain\r\n")
        .hears("C: (closes)\n"),
    server_case("base64")
        .plays(R"(
        S64: 334 Username:
        C64: tim
        C64: \0u\0p
        C: AUTH PLAIN {base64:\0u\0p}
     )")
        .client("dGlt\r\nAHUAcA==\r\nAUTH PLAIN AHUAcA==\r\n")
        .server("334 VXNlcm5hbWU6\r\n")
        .hears("C: dGlt\nC: AHUAcA==\nC: AUTH PLAIN AHUAcA==\nC: (closes)\n"),
    server_case("wildcards")
        .plays(R"(
        C: (any)
        C: Date: {any}
        C: {any}b{any}d{any}
        C: a{any}a
        C: {any}{host}{any}
     )")
        .client("whatever\r\nDate: today\r\nabcd\r\naa\r\n[192.0.2.10]\r\n")
        .hears("C: whatever\nC: Date: today\nC: abcd\nC: aa\nC: [192.0.2.10]\nC: (closes)\n"),
    server_case("a mail line by line")
        .plays(R"(
        C: data
        S: 354 go
        C: Date: {any}
        C:
        C: ..
        C: .
        S: 250 ok
     )")
        .client("data\r\nDate: x\r\n\r\n..\r\n.\r\n")
        .server("354 go\r\n250 ok\r\n")
        .hears("C: data\nC: Date: x\nC: \nC: ..\nC: .\nC: (closes)\n"),
    server_case("the server speaks after the close")
        .plays(R"(
        C: (closes)
        S: (delays 1)
        S: late
     )")
        .server("late\r\n")
        .hears("C: (closes)\n"),
    server_case("the server says no more but hears")
        .plays(R"(
        S: (half-closes)
        C: quit
     )")
        .client("quit\r\n")
        .hears("C: quit\nC: (closes)\n"),
    server_case("trickling ends")
        .plays(R"(
        S: (trickles 1)
        S: ab
        S: (trickles 0)
        S: cd
     )")
        .server("ab\r\ncd\r\n")
        .hears("C: (closes)\n"),
    server_case("what cannot be seen is shown in escapes")
        .plays("C: (any)")
        .client("\x1b$B\\\t\xc3\xa4\xff\r\n")
        .hears("C: \\x1b$B\\\\\\t\xc3\xa4\\xff\nC: (closes)\n"),
};

INSTANTIATE_TEST_SUITE_P(Good, ScriptedServer, testing::ValuesIn(good_cases),
                         case_name<server_case>);

server_case const bad_cases[] = {
    server_case("another line")
        .plays(R"(
        S: 220 ready
        C: helo {host}
        S: 250 hello
        C: quit
     )")
        .client("ehlo [192.0.2.10]\r\nquit\r\n")
        .server("220 ready\r\n")
        .hears("C: ehlo [192.0.2.10]\n")
        .wants("C: helo [192.0.2.10]\nC: quit\nC: (closes)\n",
               "line 3: wanted \"C: helo [192.0.2.10]\", heard \"C: ehlo [192.0.2.10]\""),
    server_case("another case")
        .plays(R"(
        C: quit
     )")
        .client("QUIT\r\n")
        .hears("C: QUIT\n")
        .wants("C: quit\nC: (closes)\n", "line 2: wanted \"C: quit\", heard \"C: QUIT\""),
    server_case("a line that ends with lf alone")
        .plays(R"(
        C: quit
     )")
        .client("quit\n")
        .hears("C- quit\\n\n")
        .wants("C: quit\nC: (closes)\n", "line 2: wanted \"C: quit\", heard \"C- quit\\n\""),
    server_case("a cr too many")
        .plays(R"(
        C: quit
     )")
        .client("quit\r\r\n")
        .hears("C: quit\\r\n")
        .wants("C: quit\nC: (closes)\n", "line 2: wanted \"C: quit\", heard \"C: quit\\r\""),
    server_case("a blank too many")
        .plays(R"(
        C: quit
     )")
        .client("quit \r\n")
        .hears("C: quit \n")
        .wants("C: quit\nC: (closes)\n", "line 2: wanted \"C: quit\", heard \"C: quit \""),
    server_case("a line cut short by the end")
        .plays(R"(
        C: quit
     )")
        .client("qui")
        .hears("C- qui\nC: (closes)\n")
        .wants("C: quit\nC: (closes)\n",
               "line 2: wanted \"C: quit\", heard \"C- qui / C: (closes)\""),
    server_case("a close too early")
        .plays(R"(
        C: helo {any}
        C: quit
     )")
        .client("helo x\r\n")
        .hears("C: helo x\nC: (closes)\n")
        .wants("C: helo x\nC: quit\nC: (closes)\n",
               "line 3: wanted \"C: quit\", heard \"C: (closes)\""),
    server_case("a line instead of the close")
        .plays(R"(
        S: 550 no
        C: (closes)
        S: late
     )")
        .client("quit\r\n")
        .server("550 no\r\n")
        .hears("C: quit\n")
        .wants("C: (closes)\n", "line 3: wanted \"C: (closes)\", heard \"C: quit\""),
    server_case("a line after the last")
        .plays(R"(
        C: quit
     )")
        .client("quit\r\nquit\r\n")
        .hears("C: quit\nC: quit\n")
        .wants("C: quit\nC: (closes)\n",
               "the end, after line 2: wanted \"C: (closes)\", heard \"C: quit\""),
    server_case("bytes after the last line")
        .plays(R"(
        C: quit
     )")
        .client("quit\r\nx")
        .hears("C: quit\nC- x\nC: (closes)\n")
        .wants("C: quit\nC: (closes)\n",
               "the end, after line 2: wanted \"C: (closes)\", heard \"C- x / C: (closes)\""),
    server_case("a line to a silent server")
        .plays(R"(
        S: (silent)
     )")
        .client("quit\r\n")
        .hears("C: quit\n")
        .wants("C: (closes)\n", "the end, after line 2: wanted \"C: (closes)\", heard \"C: quit\""),
    server_case("other bytes")
        .plays(R"(
        C- quit
     )")
        .client("quiz")
        .hears("C- quiz\n")
        .wants("C- quit\nC: (closes)\n", "line 2: wanted \"C- quit\", heard \"C- quiz\""),
    server_case("too few bytes")
        .plays(R"(
        C- quit
     )")
        .client("qui")
        .hears("C- qui\nC: (closes)\n")
        .wants("C- quit\nC: (closes)\n",
               "line 2: wanted \"C- quit\", heard \"C- qui / C: (closes)\""),
    server_case("a line the wildcards do not match")
        .plays(R"(
        C: Date: {any} {any}00
     )")
        .client("Date: 00\r\n")
        .hears("C: Date: 00\n")
        .wants("C: Date: {any} {any}00\nC: (closes)\n",
               "line 2: wanted \"C: Date: {any} {any}00\", heard \"C: Date: 00\""),
    server_case("a mail without an end")
        .plays(R"(
        C: (data)
        S: 250 ok
     )")
        .client("Subject: x\r\n\r\n.")
        .hears("C- .\nC: (closes)\n")
        .wants("C: (data)\nC: (closes)\n",
               "line 2: wanted \"C: (data)\", heard \"C- . / C: (closes)\""),
    server_case("a client that does not wait")
        .plays(R"(
        C: helo
        S: (delays 20)
        S: 250 hello
     )")
        .client("helo\r\nquit\r\n")
        .hears("C: helo\nC: (speaks out of turn)\n")
        .wants("C: helo\nC: (closes)\n", "line 3: heard \"C: (speaks out of turn)\""),
    server_case("a connection missing")
        .plays(R"(
        C: one
        C: (connects)
        C: two
     )")
        .client("ONE\r\n")
        .hears("C: ONE\n")
        .wants("C: one\nC: (closes)\nC: (connects)\nC: two\nC: (closes)\n",
               "line 2: wanted \"C: one\", heard \"C: ONE\""),
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
