// Everything but a silent peer's 15 real seconds, which sock_silence_test waits for.

#include "libsendw/sock.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <random>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

#include "tests/support/clean_machine.h"
#include "tests/support/few_descriptors.h"
#include "tests/support/peers.h"
#include "tests/support/signal_storm.h"

namespace zelieml::test
{

namespace
{

unsigned long const loopback = ::inet_addr("127.0.0.1");

constexpr connect_steps on_the_way = {"look-up", "connect", "on the way"};

bool is_open(int fd)
{
    return ::fcntl(fd, F_GETFD) != -1;
}

bool is_blocking(int fd)
{
    return (::fcntl(fd, F_GETFL) & O_NONBLOCK) == 0;
}

// The waits of one receive that gives up: 3001 of 5 ms.
std::vector<int> const a_silent_peers_waits(3001, 5000);

// Returns when the client has begun to wait for bytes once more.
void await_a_wait()
{
    std::size_t const before = waits().readable_waits.size();
    while (waits().readable_waits.size() == before) {
        std::this_thread::yield();
    }
}

class SockLookUp : public on_a_clean_machine
{
};

TEST_F(SockLookUp, TakesDottedTextAsItIs)
{
    struct {
        char const* text;
        char const* address;
        char const* reason;
    } const cases[] = {
        {"127.0.0.1", "127.0.0.1", "the usual form"},
        {"0.0.0.0", "0.0.0.0", "any bits are an address"},
        {"255.255.255.254", "255.255.255.254", "the last one that is not the failure value"},
        {"127.1", "127.0.0.1", "the short form"},
        {"0x7f000001", "127.0.0.1", "one number, in hexadecimal"},
        {"010.0.0.1", "8.0.0.1", "octal"},
    };
    for (auto const& c : cases) {
        clear_traces();
        EXPECT_EQ(sock_look_up_address(c.text), ::inet_addr(c.address)) << c.reason;
        EXPECT_EQ(trouble_traces(), strings{}) << c.reason;
    }
    EXPECT_EQ(looked_up_names(), strings{});
}

TEST_F(SockLookUp, AsksTheResolverForNames)
{
    add_host("mail.test", "192.0.2.25");
    EXPECT_EQ(sock_look_up_address("mail.test"), ::inet_addr("192.0.2.25"));
    EXPECT_EQ(looked_up_names(), strings{"mail.test"});
    EXPECT_EQ(trouble_traces(), strings{"warning:inet_addr %s"});
}

TEST_F(SockLookUp, FailsForNamesThatDoNotResolve)
{
    struct {
        char const* text;
        char const* reason;
    } const cases[] = {
        {"no.such.host.test", "an unknown name"},
        {"255.255.255.255", "no address to inet_addr, so it is looked up as a name"},
        {"256.0.0.1", "not an address, so a name"},
        {"1.2.3.4.5", "not an address, so a name"},
        {"", "a name of no characters"},
    };
    strings asked;
    for (auto const& c : cases) {
        clear_traces();
        EXPECT_EQ(sock_look_up_address(c.text), 0xFFFFFFFFUL) << c.reason;
        EXPECT_EQ(trouble_traces(), (strings{"warning:inet_addr %s", "error:gethostbyname %s"}))
            << c.reason;
        asked.emplace_back(c.text);
    }
    EXPECT_EQ(looked_up_names(), asked);
}

TEST_F(SockLookUp, FindsTheTextOfTheFailureValueWhenItIsAHost)
{
    add_host("255.255.255.255", "192.0.2.26");
    EXPECT_EQ(sock_look_up_address("255.255.255.255"), ::inet_addr("192.0.2.26"));
}

TEST_F(SockLookUp, FailsForNull)
{
    EXPECT_EQ(sock_look_up_address(nullptr), sock_no_address);
    EXPECT_EQ(looked_up_names(), strings{});
}

class SockConnect : public on_a_clean_machine
{
};

TEST_F(SockConnect, GivesABlockingConnection)
{
    listening_socket const door;
    unique_fd const        client(sock_connect(loopback, htons(door.port())));
    ASSERT_TRUE(client);
    EXPECT_TRUE(is_blocking(client.get()));
    EXPECT_EQ(trouble_traces(), strings{});

    unique_fd const server = door.accept();
    ASSERT_EQ(sock_write(client.get(), "ping\n", 5), 5);
    char buf[6];
    EXPECT_EQ(sock_read(server.get(), buf, 5), 5);
    EXPECT_STREQ(buf, "ping\n");
}

TEST_F(SockConnect, TakesTheAddressFromTheLow32Bits)
{
    listening_socket const door;
    // On systems whose unsigned long has 32 bits, the address itself.
    auto const      address = static_cast<unsigned long>(std::uint64_t{0x5A} << 32 | loopback);
    unique_fd const client(sock_connect(address, htons(door.port())));
    EXPECT_TRUE(client);
}

TEST_F(SockConnect, FailsWhenThePeerRefuses)
{
    closed_port const port;
    EXPECT_EQ(sock_connect(loopback, htons(port.number())), -1);
    EXPECT_EQ(trouble_traces(), strings{"error:connect INVALID_SOCKET"});
}

TEST_F(SockConnect, FailsWhenThereIsNoDescriptorLeft)
{
    listening_socket const door;
    int                    client = 0;
    {
        few_descriptors const none(0);
        client = sock_connect(loopback, htons(door.port()));
    }

    EXPECT_EQ(client, -1);
    EXPECT_EQ(trouble_traces(), strings{"error:socket INVALID_SOCKET"});
}

TEST_F(SockConnect, GivesUpAfter30Seconds)
{
    silent_port const port;
    int const         descriptors = open_descriptors();
    never_writable(true);
    EXPECT_EQ(sock_connect(loopback, htons(port.number())), -1);
    EXPECT_EQ(waits().writable_waits, std::vector<int>{30 * 1000 * 1000});
    EXPECT_EQ(trouble_traces(), strings{"error:connect INVALID_SOCKET"});
    EXPECT_EQ(open_descriptors(), descriptors);
}

TEST_F(SockConnect, LooksTheHostUpFirst)
{
    listening_socket const door;
    add_host("mail.test", "127.0.0.1");
    int fd = 0;
    ASSERT_EQ(sock_connect_host("mail.test", door.port(), fd, on_the_way), 0);
    unique_fd const client(fd);
    EXPECT_EQ(trouble_traces(), strings{"warning:inet_addr %s"});
}

TEST_F(SockConnect, TakesThePortFromTheLow16Bits)
{
    listening_socket const door;
    int                    fd = 0;
    ASSERT_EQ(sock_connect_host("127.0.0.1", 0x30000 + door.port(), fd, on_the_way), 0);
    unique_fd const client(fd);
}

TEST_F(SockConnect, LeavesTheDescriptorAloneWhenTheHostIsUnknown)
{
    int fd = 77;
    EXPECT_EQ(sock_connect_host("no.such.host.test", 25, fd, on_the_way), -1);
    EXPECT_EQ(fd, 77);
    EXPECT_EQ(trouble_traces(), (strings{"warning:inet_addr %s", "error:gethostbyname %s",
                                         "error:invalid host address"}));
}

TEST_F(SockConnect, GivesNoDescriptorWhenTheHostRefuses)
{
    closed_port const port;
    int               fd = 77;
    EXPECT_EQ(sock_connect_host("127.0.0.1", port.number(), fd, on_the_way), -1);
    EXPECT_EQ(fd, -1);
    EXPECT_EQ(trouble_traces(),
              (strings{"error:connect INVALID_SOCKET", "error:INVALID_SOCKET %d"}));
}

class SockTraces : public on_a_clean_machine
{
};

// The one test of all that sockets trace; the others look at failures only.
TEST_F(SockTraces, TellOfEveryStepOfAConnection)
{
    listening_socket const door;
    add_host("mail.test", "127.0.0.1");
    int fd = 0;
    ASSERT_EQ(sock_connect_host("mail.test", door.port(), fd, on_the_way), 0);
    unique_fd const connected(fd);
    EXPECT_EQ(traces(), (strings{"look_up_address %s", "warning:inet_addr %s", "on the way"}));

    clear_traces();
    tcp_pair pair;
    pair.say("250-one\r\n250 two\r\n");
    pair.server_closes();
    std::string line;
    EXPECT_EQ(sock_readline(pair.client(), line), 9);
    EXPECT_EQ(sock_readline(pair.client(), line), 9);
    EXPECT_EQ(sock_end_connection(pair.release_client()), 0);
    EXPECT_EQ(traces(), (strings{"SleepCounter:%d recv:%d", "SleepCounter:%d recv:%d",
                                 "readline = %s", "SleepCounter:%d recv:%d",
                                 "SleepCounter:%d recv:%d", "readline = %s", "shutdown ok!"}));
}

class SockRecv : public on_a_clean_machine
{
};

TEST_F(SockRecv, TakesWhatIsThere)
{
    tcp_pair pair;
    pair.say("hello");
    char buf[16] = {};
    EXPECT_EQ(_recv(pair.client(), buf, sizeof buf, 0), 5);
    EXPECT_STREQ(buf, "hello");
    EXPECT_TRUE(is_blocking(pair.client()));
    EXPECT_EQ(trouble_traces(), strings{});
    EXPECT_EQ(waits().readable_waits, std::vector<int>{});
}

TEST_F(SockRecv, TakesNoMoreThanItIsAskedFor)
{
    tcp_pair pair;
    pair.say("hello");
    char buf[16] = {};
    EXPECT_EQ(_recv(pair.client(), buf, 2, 0), 2);
    EXPECT_EQ(_recv(pair.client(), buf + 2, 3, 0), 3);
    EXPECT_STREQ(buf, "hello");
}

TEST_F(SockRecv, HandsItsFlagsOn)
{
    tcp_pair pair;
    pair.say("hello");
    char buf[16] = {};
    EXPECT_EQ(_recv(pair.client(), buf, sizeof buf, MSG_PEEK), 5);
    EXPECT_EQ(_recv(pair.client(), buf, sizeof buf, 0), 5) << "looked at, not taken";
}

TEST_F(SockRecv, GivesASilentPeerUpAfter3001Waits)
{
    tcp_pair pair;
    reset_waits(false);
    char buf[16];
    EXPECT_EQ(_recv(pair.client(), buf, sizeof buf, 0), -1);
    EXPECT_EQ(waits().readable_waits, a_silent_peers_waits);
    EXPECT_TRUE(is_blocking(pair.client()));
    EXPECT_EQ(trouble_traces(), strings{});
}

TEST_F(SockRecv, CountsAfreshEachTime)
{
    tcp_pair pair;
    reset_waits(false);
    char buf[16];
    EXPECT_EQ(_recv(pair.client(), buf, sizeof buf, 0), -1);
    EXPECT_EQ(_recv(pair.client(), buf, sizeof buf, 0), -1);
    EXPECT_EQ(waits().readable_waits.size(), 2 * a_silent_peers_waits.size());
}

TEST_F(SockRecv, TakesAReplyThatComesLateAtOnce)
{
    tcp_pair pair;
    // Each of a few may meet a busy machine; a pause of 5 ms before the reply is taken would show
    // in all of them.
    auto fastest = std::chrono::steady_clock::duration::max();
    for (int i = 0; i < 20; ++i) {
        std::chrono::steady_clock::time_point said;
        std::thread                           server([&] {
            await_a_wait();
            said = std::chrono::steady_clock::now();
            pair.say_along("x");
        });
        char                                  byte     = 0;
        int const                             received = _recv(pair.client(), &byte, 1, 0);
        auto const                            taken    = std::chrono::steady_clock::now();
        server.join();
        ASSERT_EQ(received, 1);
        fastest = std::min(fastest, taken - said);
    }
    EXPECT_LT(fastest, std::chrono::milliseconds(2));
    EXPECT_GE(waits().readable_waits.size(), 20U);
}

TEST_F(SockRecv, SaysWhenThePeerHasClosed)
{
    tcp_pair pair;
    pair.server_closes();
    char buf[16];
    EXPECT_EQ(_recv(pair.client(), buf, sizeof buf, 0), 0);
}

TEST_F(SockRecv, FailsAtOnceWhenThePeerBreaksTheConnection)
{
    tcp_pair pair;
    pair.server_resets();
    char buf[16];
    EXPECT_EQ(_recv(pair.client(), buf, sizeof buf, 0), -1);
    EXPECT_LT(waits().readable_waits.size(), a_silent_peers_waits.size());
    EXPECT_EQ(trouble_traces(), strings{});
}

TEST_F(SockRecv, FailsAtOnceForADescriptorThatIsNoSocket)
{
    int ends[2];
    ASSERT_EQ(::pipe(ends), 0);
    unique_fd const read(ends[0]);
    unique_fd const write(ends[1]);
    char            buf[16];
    EXPECT_EQ(_recv(read.get(), buf, sizeof buf, 0), -1);
    EXPECT_EQ(waits().readable_waits, std::vector<int>{});
}

TEST_F(SockRecv, FailsForADescriptorThatIsNotOpen)
{
    char buf[16];
    EXPECT_EQ(_recv(-1, buf, sizeof buf, 0), -1);
    EXPECT_EQ(trouble_traces(), strings{"error:ioctl(mode=1):%d %d"});
}

class SockRead : public on_a_clean_machine
{
};

TEST_F(SockRead, ReadsUpToTheCountOrTheEnd)
{
    struct {
        char const* said;
        int         count;
        char const* read;
        char const* reason;
    } const cases[] = {
        {"hello", 5, "hello", "all of it"},
        {"hello", 3, "hel", "no more than asked for"},
        {"hello", 9, "hello", "the peer closes before the count is reached"},
        {"", 9, "", "the peer closes without a word"},
        {"hello", 0, "", "nothing asked for"},
        {"hello", -1, "", "less than nothing asked for"},
    };
    for (auto const& c : cases) {
        tcp_pair pair;
        pair.say(c.said);
        pair.server_closes();
        char buf[16];
        std::memset(buf, '?', sizeof buf);
        EXPECT_EQ(sock_read(pair.client(), buf, c.count), static_cast<int>(std::strlen(c.read)))
            << c.reason;
        EXPECT_STREQ(buf, c.read) << c.reason;
    }
}

TEST_F(SockRead, JoinsPieces)
{
    tcp_pair    pair;
    std::thread server([&] {
        for (char const* const piece : {"one", "two", "three"}) {
            await_a_wait();
            pair.say_along(piece);
        }
    });
    char        buf[16];
    int const   length = sock_read(pair.client(), buf, 11);
    server.join();
    EXPECT_EQ(length, 11);
    EXPECT_STREQ(buf, "onetwothree");
}

TEST_F(SockRead, FailsWhenThePeerFallsSilentOnTheWay)
{
    tcp_pair pair;
    pair.say("half");
    reset_waits(false);
    char buf[16];
    EXPECT_EQ(sock_read(pair.client(), buf, 8), -1);
    EXPECT_EQ(waits().readable_waits, a_silent_peers_waits) << "none before the first piece";
}

TEST_F(SockRead, FailsWhenThePeerBreaksTheConnection)
{
    tcp_pair pair;
    pair.server_resets();
    char buf[16];
    EXPECT_EQ(sock_read(pair.client(), buf, 8), -1);
}

class SockReadline : public on_a_clean_machine
{
};

// What a server says before it closes, and the lines of it.
struct line_case {
    std::string said;
    strings     lines;
    std::string rest;  // what is left in the last call, which fails as the peer closes
    char const* reason;
};

std::vector<line_case> line_cases()
{
    auto const long_line = [](std::size_t size) { return std::string(size - 1, 'x') + "\n"; };
    auto const hidden    = [&](std::size_t at) {
        std::string line = long_line(20000);
        line[at]         = '\0';
        return line;
    };
    return {
        {"220 ready\r\n", {"220 ready\r\n"}, "", "a line with its terminator"},
        {"one\r\ntwo\r\n", {"one\r\n", "two\r\n"}, "", "two lines in one segment"},
        {"one\ntwo\n", {"one\n", "two\n"}, "", "a line feed is enough"},
        {"\n\r\n", {"\n", "\r\n"}, "", "empty lines"},
        {"a\rb\r\r\n", {"a\rb\r\r\n"}, "", "a carriage return ends nothing"},
        {"one\r\ntwo", {"one\r\n"}, "two", "the last line is not complete"},
        {"", {}, "", "no line at all"},
        {long_line(1022), {long_line(1022)}, "", "one byte less than a piece"},
        {long_line(1023), {long_line(1023)}, "", "a piece"},
        {long_line(1024), {long_line(1024)}, "", "one byte more than a piece"},
        {long_line(1025) + "x\n", {long_line(1025), "x\n"}, "", "two pieces, and another line"},
        {long_line(2046), {long_line(2046)}, "", "two pieces"},
        {long_line(2047), {long_line(2047)}, "", "the line feed alone in the third piece"},
        {long_line(5000), {long_line(5000)}, "", "several pieces"},
        {std::string(3000, 'x'), {}, std::string(3000, 'x'), "several pieces without a line feed"},
        {std::string("a\0b\r\nc\n", 7), {"a", "c\n"}, "", "a NUL hides the rest of its piece"},
        {std::string("\0\n250\n", 6), {"", "250\n"}, "", "a NUL hides all of its piece"},
        {std::string("\0", 1) + long_line(1023),
         {"\n"},
         "",
         "a NUL hides its piece, not the one after it"},
        {"\xE3\x81\x82\xFF\n", {"\xE3\x81\x82\xFF\n"}, "", "any other byte passes"},
        {"a\r\n" + hidden(5000) + "b\n",
         {"a\r\n", std::string(20000 - 115, 'x').replace(19884, 1, "\n"), "b\n"},
         "",
         "a NUL hides the rest of the fifth of many pieces"},
        {long_line(4000) + long_line(4000) + long_line(4000) + "x\n",
         {long_line(4000), long_line(4000), long_line(4000), "x\n"},
         "",
         "more lines than are looked at together"},
    };
}

// Reads what each case says; a Reader is made of the socket.
template <class Reader, class ReadLine>
void expect_lines(ReadLine const& read_line)
{
    for (line_case const& c : line_cases()) {
        SCOPED_TRACE(c.reason);
        tcp_pair pair;
        pair.say(c.said);
        pair.server_closes();
        clear_traces();

        std::string line;
        Reader      reader(pair.client());
        for (std::string const& wanted : c.lines) {
            EXPECT_EQ(read_line(reader, line), static_cast<int>(wanted.size()));
            EXPECT_EQ(line, wanted);
        }
        line = "what was there before";
        EXPECT_EQ(read_line(reader, line), -1);
        EXPECT_EQ(line, c.rest);

        EXPECT_EQ(trouble_traces(), strings{});
    }
}

TEST_F(SockReadline, ReadsLineByLine)
{
    expect_lines<int>([](int fd, std::string& line) { return sock_readline(fd, line); });
}

TEST_F(SockReadline, TakesNothingPastTheLineFeed)
{
    tcp_pair pair;
    pair.say("250 first\r\n250 second\r\n");
    std::string line;
    ASSERT_EQ(sock_readline(pair.client(), line), 11);
    char rest[16] = {};
    EXPECT_EQ(::recv(pair.client(), rest, sizeof rest - 1, 0), 12);
    EXPECT_STREQ(rest, "250 second\r\n");
}

TEST_F(SockReadline, JoinsPiecesThatComeOneByOne)
{
    tcp_pair    pair;
    std::thread server([&] {
        for (char const piece : std::string("250 ok\r\n")) {
            await_a_wait();
            pair.say_along(std::string(1, piece));
        }
    });
    std::string line;
    int const   length = sock_readline(pair.client(), line);
    server.join();
    EXPECT_EQ(length, 8);
    EXPECT_EQ(line, "250 ok\r\n");
}

TEST_F(SockReadline, HasNoLimitToTheLengthOfALine)
{
    tcp_pair          pair;
    std::string const sent = std::string(3000000, 'x') + "\r\n";
    std::thread       server([&] { pair.say_along(sent); });
    std::string       line;
    int const         length = sock_readline(pair.client(), line);
    server.join();
    EXPECT_EQ(length, 3000002);
    EXPECT_TRUE(line == sent);
}

TEST_F(SockReadline, GivesUpOnASilentPeer)
{
    tcp_pair pair;
    reset_waits(false);
    std::string line = "what was there before";
    EXPECT_EQ(sock_readline(pair.client(), line), -1);
    EXPECT_EQ(line, "");
    EXPECT_EQ(waits().readable_waits, a_silent_peers_waits);
}

TEST_F(SockReadline, GivesUpOnAPeerThatFallsSilentInALine)
{
    tcp_pair pair;
    pair.say("250 half a");
    reset_waits(false);
    std::string line;
    EXPECT_EQ(sock_readline(pair.client(), line), -1);
    EXPECT_EQ(line, "250 half a");
    EXPECT_EQ(waits().readable_waits, a_silent_peers_waits) << "the piece came without a wait";
}

TEST_F(SockReadline, FailsWhenThePeerBreaksTheConnection)
{
    tcp_pair pair;
    pair.server_resets();
    std::string line;
    EXPECT_EQ(sock_readline(pair.client(), line), -1);
}

TEST_F(SockReadline, FailsForADescriptorThatIsNotOpen)
{
    std::string line = "what was there before";
    EXPECT_EQ(sock_readline(-1, line), -1);
    EXPECT_EQ(line, "");
    EXPECT_EQ(trouble_traces(), strings{"error:ioctl(mode=1):%d %d"});
}

class SockLines : public on_a_clean_machine
{
};

TEST_F(SockLines, AreThoseOfSockReadline)
{
    expect_lines<sock_lines>([](sock_lines& lines, std::string& line) { return lines.next(line); });
}

TEST_F(SockLines, AreTracedAsBySockReadlineWhenOneComesAlone)
{
    tcp_pair    pair;
    std::string line;
    pair.say("250 one\r\n");
    clear_traces();
    EXPECT_EQ(sock_readline(pair.client(), line), 9);
    strings const wanted = traces();

    pair.say("250 one\r\n");
    clear_traces();
    sock_lines lines(pair.client());
    EXPECT_EQ(lines.next(line), 9);
    EXPECT_EQ(traces(), wanted);
    EXPECT_EQ(lines.take(), 0);
    EXPECT_EQ(traces(), wanted) << "it was taken already";
}

// A random text of lines around the sizes of pieces and views, with NULs.
std::string random_lines(std::mt19937& random, unsigned int count)
{
    auto const below = [&](unsigned int limit) {
        return static_cast<unsigned int>(random() % limit);
    };
    std::string text;
    for (unsigned int i = 0; i < count; ++i) {
        unsigned int const sizes[] = {
            0, below(5), below(200), 1015 + below(16), 2040 + below(12), 4080 + below(24)};
        for (unsigned int left = sizes[below(6)]; left > 0; --left) {
            text += below(300) == 0 ? '\0' : static_cast<char>('a' + below(26));
        }
        text += '\n';
    }
    return below(2) == 0 ? text : text + "tail";
}

TEST_F(SockLines, AreThoseOfSockReadlineForRandomReplies)
{
    // In the second line a NUL just before the end of a piece, and just behind it.
    std::string const second = "one\n" + std::string(1022, 'x');
    std::string const nul(1, '\0');
    strings      texts = {second + nul + "hidden?\nthree\n", second + "x" + nul + "hidden\nthree\n",
                          second.substr(4) + "x\n" + second.substr(4) + nul + "hidden?\n"};
    std::mt19937 random(7);
    while (texts.size() < 500) {
        std::string const text = random_lines(random, 1 + static_cast<unsigned int>(random() % 12));
        if (text.size() <= 20000) {
            texts.push_back(text);
        }
    }
    for (std::size_t i = 0; i < texts.size(); ++i) {
        std::size_t const wanted = 1 + random() % 13;
        strings           lines[2];
        std::string       rest[2];
        for (int together = 0; together < 2; ++together) {
            tcp_pair pair;
            pair.say(texts[i]);
            ::shutdown(pair.server(), SHUT_WR);
            sock_lines reply(pair.client());
            strings&   got    = lines[together];
            int        length = 0;
            while (length != -1 && got.size() < wanted) {
                std::string line;
                length = together != 0 ? reply.next(line) : sock_readline(pair.client(), line);
                got.push_back(std::to_string(length) + " " + line);
            }
            if (together != 0 && length != -1) {
                EXPECT_EQ(reply.take(), 0);
            }
            char    bytes[4096];
            ssize_t count = 0;
            while ((count = ::recv(pair.client(), bytes, sizeof bytes, MSG_DONTWAIT)) > 0) {
                rest[together].append(bytes, static_cast<std::size_t>(count));
            }
        }
        EXPECT_EQ(lines[1], lines[0]) << "text " << i;
        EXPECT_EQ(rest[1], rest[0]) << "text " << i;
    }
}

TEST_F(SockLines, AreTakenWithoutWhatFollowsThem)
{
    std::string const said = "250-first\r\n250-second\r\n250 third\r\n354 fourth\r\n";
    for (std::size_t given = 0; given <= 4; ++given) {
        tcp_pair pair;
        pair.say(said);
        std::string all;
        {
            sock_lines lines(pair.client());
            for (std::size_t i = 0; i < given; ++i) {
                std::string line;
                EXPECT_GT(lines.next(line), 0);
                all += line;
            }
            EXPECT_FALSE(is_blocking(pair.client()));
            EXPECT_EQ(lines.take(), 0);
            EXPECT_EQ(lines.take(), 0) << "there is nothing more to take";
        }
        EXPECT_TRUE(is_blocking(pair.client()));
        pair.server_closes();
        std::string line;
        while (sock_readline(pair.client(), line) > 0) {
            all += line;
        }
        EXPECT_EQ(all, said) << given;
    }
}

TEST_F(SockLines, AreReadAgainAfterTheyWereTaken)
{
    tcp_pair pair;
    pair.say("one\r\ntwo\r\nthree\r\n");
    sock_lines lines(pair.client());
    for (char const* const wanted : {"one\r\n", "two\r\n", "three\r\n"}) {
        std::string line;
        EXPECT_EQ(lines.next(line), static_cast<int>(std::strlen(wanted)));
        EXPECT_EQ(line, wanted);
        EXPECT_EQ(lines.take(), 0);
    }
}

TEST_F(SockLines, AreJoinedFromPiecesThatComeOneByOne)
{
    std::string const said = "250-one\r\n250-" + std::string(3000, 'x') + "\r\n250 three\r\n";
    for (std::size_t const size : {std::size_t{50}, std::size_t{1000}}) {
        tcp_pair    pair;
        std::thread server([&] {
            for (std::size_t start = 0; start < said.size(); start += size) {
                await_a_wait();
                pair.say_along(said.substr(start, size));
            }
        });
        sock_lines  lines(pair.client());
        std::string all;
        for (int i = 0; i < 3; ++i) {
            std::string line;
            EXPECT_GT(lines.next(line), 0);
            all += line;
        }
        EXPECT_EQ(lines.take(), 0);
        server.join();
        EXPECT_EQ(all, said);
    }
}

TEST_F(SockLines, EndWithASilentPeer)
{
    tcp_pair pair;
    pair.say("250-one\r\n250 half a");
    sock_lines  lines(pair.client());
    std::string line;
    EXPECT_EQ(lines.next(line), 9);
    reset_waits(false);
    EXPECT_EQ(lines.next(line), -1);
    EXPECT_EQ(line, "250 half a");
    EXPECT_EQ(waits().readable_waits, a_silent_peers_waits) << "the piece came without a wait";
    pair.server_closes();
    char rest[16];
    EXPECT_EQ(::recv(pair.client(), rest, sizeof rest, MSG_DONTWAIT), 0) << "all was taken";
}

TEST_F(SockLines, EndWithABrokenConnection)
{
    tcp_pair pair;
    pair.server_resets();
    sock_lines  lines(pair.client());
    std::string line = "what was there before";
    EXPECT_EQ(lines.next(line), -1);
    EXPECT_EQ(line, "");
}

TEST_F(SockLines, AreNoneOfADescriptorThatIsNotOpen)
{
    sock_lines  lines(-1);
    std::string line = "what was there before";
    EXPECT_EQ(lines.next(line), -1);
    EXPECT_EQ(line, "");
    EXPECT_EQ(trouble_traces(), strings{"error:ioctl(mode=1):%d %d"});
}

class SockWrite : public on_a_clean_machine
{
};

TEST_F(SockWrite, WritesNothingWhenThereIsNothing)
{
    tcp_pair pair;
    EXPECT_EQ(sock_write(pair.client(), "hello", 0), 0);
    EXPECT_EQ(sock_write(pair.client(), "hello", 5), 5);
    ::shutdown(pair.client(), SHUT_WR);
    EXPECT_EQ(pair.heard_to_the_end(), "hello");
}

TEST_F(SockWrite, WritesAllOfATextThatIsReadSlowly)
{
    tcp_pair pair;
    // More than the system's buffers hold.
    std::string text(30000000, 'x');
    for (std::size_t i = 0; i < text.size(); i += 1000) {
        text.replace(i, 8, std::to_string(10000000 + i));
    }
    std::string heard;
    std::thread server([&] {
        pair.wait_until_client_is_stuck();
        heard = pair.heard_to_the_end();
    });
    int const   size = static_cast<int>(text.size());
    EXPECT_EQ(sock_write(pair.client(), text.data(), size), size);
    ::shutdown(pair.client(), SHUT_WR);
    server.join();
    EXPECT_TRUE(heard == text) << heard.size();
}

TEST_F(SockWrite, IsNotCutShortBySignals)
{
    tcp_pair          pair;
    std::string const text(8 << 20, 'x');
    std::string       heard;
    signal_storm      storm;
    std::thread       server = start_undisturbed([&] {
        storm.wait_for(20);
        heard = pair.heard_to_the_end();
    });
    EXPECT_EQ(sock_write(pair.client(), text.data(), 8 << 20), 8 << 20);
    ::shutdown(pair.client(), SHUT_WR);
    server.join();
    EXPECT_TRUE(heard == text) << heard.size();
}

TEST_F(SockWrite, WritesAllStringsWhateverSignalsCome)
{
    tcp_pair      pair;
    strings const texts = {"", "one ", std::string(4 << 20, 'x'), "", std::string(4 << 20, 'y'),
                           ""};
    std::string   heard;
    signal_storm  storm;
    std::thread   server = start_undisturbed([&] {
        storm.wait_for(20);
        heard = pair.heard_to_the_end();
    });
    EXPECT_EQ(sock_write_all(pair.client(), texts), texts.size());
    ::shutdown(pair.client(), SHUT_WR);
    server.join();
    EXPECT_TRUE(heard == texts[1] + texts[2] + texts[4]) << heard.size();
}

TEST_F(SockWrite, SaysHowManyStringsLeftWhole)
{
    tcp_pair pair;
    EXPECT_EQ(sock_write_all(pair.client(), {}), 0U);
    EXPECT_EQ(sock_write_all(pair.client(), {"", ""}), 2U);
    EXPECT_EQ(sock_write_all(pair.client(), {"", "x"}), 2U) << "a single byte";
    ::shutdown(pair.client(), SHUT_WR);
    EXPECT_EQ(sock_write_all(pair.client(), {"", "", "hello", ""}), 2U);
}

TEST_F(SockWrite, FailsWithoutASignalWhenThePeerIsGone)
{
    tcp_pair pair;
    pair.server_resets();
    // The first one may still be taken by the system.
    sock_write(pair.client(), "hello", 5);
    EXPECT_EQ(sock_write(pair.client(), "hello", 5), -1);
}

TEST_F(SockWrite, FailsWithoutASignalAfterItsOwnShutdown)
{
    tcp_pair pair;
    ::shutdown(pair.client(), SHUT_WR);
    EXPECT_EQ(sock_write(pair.client(), "hello", 5), -1);
}

TEST_F(SockWrite, FailsWhenAPeerThatDoesNotReadBreaksTheConnection)
{
    tcp_pair          pair;
    std::string const text(64000000, 'x');
    std::thread       server([&] {
        pair.wait_until_client_is_stuck();
        pair.server_resets();
    });
    EXPECT_EQ(sock_write(pair.client(), text.data(), static_cast<int>(text.size())), -1);
    server.join();
}

TEST_F(SockWrite, FailsForADescriptorThatIsNotOpen)
{
    EXPECT_EQ(sock_write(-1, "hello", 5), -1);
}

TEST_F(SockWrite, SendsCommandsOfUpTo1023Bytes)
{
    tcp_pair          pair;
    std::string const longest = std::string(1021, 'x') + "\r\n";
    EXPECT_EQ(sock_command(pair.client(), longest), 0);
    EXPECT_EQ(sock_command(pair.client(), "x" + longest), -1);
    ::shutdown(pair.client(), SHUT_WR);
    EXPECT_EQ(pair.heard_to_the_end(), longest) << "nothing of the longer one is sent";
    EXPECT_EQ(sock_command(pair.client(), "quit\r\n"), -1) << "the connection is lost";
}

class SockShutdown : public on_a_clean_machine
{
};

TEST_F(SockShutdown, EndsAConnectionInOrder)
{
    for (auto const end : {sock_shutdown_connection, sock_end_connection}) {
        tcp_pair  pair;
        int const fd = pair.release_client();
        clear_traces();
        std::string heard;
        std::thread server([&] {
            heard = pair.heard_to_the_end();
            pair.server_closes();
        });
        EXPECT_EQ(end(fd), 0);
        server.join();
        EXPECT_EQ(heard, "") << "and no broken connection";
        EXPECT_FALSE(is_open(fd));
        EXPECT_EQ(trouble_traces(), strings{});
    }
}

TEST_F(SockShutdown, DropsWhatThePeerStillSays)
{
    for (auto const end : {sock_shutdown_connection, sock_end_connection}) {
        tcp_pair  pair;
        int const fd = pair.release_client();
        clear_traces();
        std::thread server([&] {
            pair.heard_to_the_end();
            pair.say_along("one more thing");
            pair.server_closes();
        });
        EXPECT_EQ(end(fd), 0);
        server.join();
        EXPECT_FALSE(is_open(fd));
        EXPECT_EQ(trouble_traces(), strings{"error:unexpected %d bytes received."});
    }
}

TEST_F(SockShutdown, DrainsInPiecesOf1024Bytes)
{
    tcp_pair pair;
    pair.say(std::string(2049, 'x'));
    pair.server_closes();
    EXPECT_EQ(sock_shutdown_connection(pair.release_client()), 0);
    EXPECT_EQ(trouble_traces(), strings(3, "error:unexpected %d bytes received."));
}

TEST_F(SockShutdown, WaitsForThePeerWhateverSignalsCome)
{
    tcp_pair     pair;
    signal_storm storm;
    std::thread  server = start_undisturbed([&] {
        storm.wait_for(20);
        pair.server_closes();
    });
    EXPECT_EQ(sock_shutdown_connection(pair.release_client()), 0);
    server.join();
    EXPECT_EQ(trouble_traces(), strings{});
}

TEST_F(SockShutdown, LeavesADescriptorOpenThatCannotBeShutDown)
{
    unique_fd const unconnected(::socket(AF_INET, SOCK_STREAM, 0));
    EXPECT_EQ(sock_shutdown_connection(unconnected.get()), -1);
    EXPECT_TRUE(is_open(unconnected.get()));
    EXPECT_EQ(trouble_traces(), strings{"error:shutdown"});
}

TEST_F(SockShutdown, LeavesADescriptorOpenWhenThePeerBreaksTheConnection)
{
    tcp_pair    pair;
    std::thread server([&] {
        pair.heard_to_the_end();
        pair.server_resets();
    });
    EXPECT_EQ(sock_shutdown_connection(pair.client()), -1);
    server.join();
    EXPECT_TRUE(is_open(pair.client()));
    EXPECT_EQ(trouble_traces(), strings{"error:recv"});
}

TEST_F(SockShutdown, TheEndOfASessionClosesTheDescriptorAllTheSame)
{
    unique_fd unconnected(::socket(AF_INET, SOCK_STREAM, 0));
    int       fd = unconnected.release();
    EXPECT_EQ(sock_end_connection(fd), -1);
    EXPECT_FALSE(is_open(fd));

    tcp_pair pair;
    fd = pair.release_client();
    std::thread server([&] {
        pair.heard_to_the_end();
        pair.server_resets();
    });
    EXPECT_EQ(sock_end_connection(fd), -1);
    server.join();
    EXPECT_FALSE(is_open(fd));
    EXPECT_EQ(trouble_traces(), (strings{"error:shutdown", "error:recv"}));
}

TEST_F(SockShutdown, FailsForADescriptorThatIsNotOpen)
{
    EXPECT_EQ(sock_shutdown_connection(-1), -1);
    EXPECT_EQ(sock_end_connection(-1), -1);
}

class GetHostname : public on_a_clean_machine
{
};

TEST_F(GetHostname, IsTheAddressWhenTheNameResolves)
{
    for (char const* const address : {"192.0.2.10", "0.0.0.0", "255.255.255.255", "10.200.30.4"}) {
        add_host("client.test", address);
        EXPECT_EQ(get_hostname(), std::string("[") + address + "]");
    }
}

TEST_F(GetHostname, IsTheNameItselfAsAnAddressWhenItLooksLikeOne)
{
    set_host_name("10.0.0.1");
    EXPECT_EQ(get_hostname(), "[10.0.0.1]");
}

TEST_F(GetHostname, IsThePlainNameWhenItDoesNotResolve)
{
    struct {
        std::string name;
        char const* reason;
    } const cases[] = {
        {"printer-7", "a name without a domain"},
        {"", "a machine that was given an empty name"},
        {std::string(1022, 'h'), "as long as the buffer takes"},
    };
    strings asked;
    for (auto const& c : cases) {
        set_host_name(c.name);
        EXPECT_EQ(get_hostname(), c.name) << c.reason;
        asked.push_back(c.name);
    }
    EXPECT_EQ(looked_up_names(), asked);
}

TEST_F(GetHostname, IsUnknownWhenTheMachineHasNone)
{
    lose_host_name();
    EXPECT_EQ(get_hostname(), "unknown");

    set_host_name(std::string(1023, 'h'));
    EXPECT_EQ(get_hostname(), "unknown") << "longer than gethostname is given room for";
    EXPECT_EQ(looked_up_names(), strings{});
}

}  // namespace

}  // namespace zelieml::test
