// scripted_server.h - a server that plays a written conversation
//
//     scripted_server server(R"(
//         S: 220 mail.test ready
//         C: helo {host}
//         S: 250 hello
//         C: mail from: <reply@a.test>
//         S: 550 5.7.1 not you
//         C: (closes)
//     )");
//     ... a client talks to 127.0.0.1, server.port() ...
//     EXPECT_EQ(server.heard(), server.expected());
//
// The server listens on a free port of 127.0.0.1 from its constructor on and plays in a thread of
// its own. It sends what follows S and compares what follows C; at the first thing the client
// does that is not written, it hangs up, and all later connections are closed at once.
//
// One statement per line. Blanks before it are ignored, as are empty lines and lines that begin
// with "#". One blank after the colon belongs to the statement, everything after it to the text,
// blanks at the end included (\x20 makes them visible).
//
//     S: text          the server sends the text and CR LF
//     S- text          the server sends the text alone, without a line end
//     S+ text          text and CR LF, held back and sent in one write with the next S line
//     S64: 334 text    the code as it stands, a blank, the rest in Base64, CR LF
//     S: (repeat 9) text   the text and CR LF nine times, in one write
//     S: (trickles 5)  all that the server says from here on this connection goes out byte by
//                      byte, 5 ms between two bytes; (trickles 0) ends it
//     S: (delays 20)   the server waits 20 ms; a client that speaks meanwhile speaks out of turn
//     S: (silent)      the server says nothing more; the client is heard until it closes
//     S: (half-closes) the server says no more and the client meets the end of the stream, but
//                      what the client says is still heard
//     S: (closes)      the server closes both directions
//     S: (resets)      the server breaks the connection (RST)
//
//     C: text          the client must send exactly this text and CR LF
//     C- text          the client must send exactly this text; nothing is asked about what follows
//     C64: text        the client must send the text in Base64 and CR LF
//     C: (any)         the client must send a line, any line
//     C: (data)        a mail text: all up to the line "." is taken and kept, see data()
//     C: (closes)      the client must end its side of the connection now, by closing, half-closing
//                      or breaking it. The server may then still speak (a client that half-closed
//                      drains); it closes when the transcript is at its end.
//     C: (connects)    the client comes again: what follows is another connection, played when the
//                      one before is over. The first connection needs no such line.
//
// A connection that ends with none of the (closes) and (resets) lines ends with a C: (closes), so
// what a client sends in addition is noticed. An empty transcript waits for no connection: a
// client that comes nevertheless is heard as "C: (connects)".
//
// In the strings of S and of C:
//     \r \n \t \0 \xHH \\  the bytes they mean
//     {host}               the name this machine greets with (greeting_name), see set_host
//     {base64:text}        the text in Base64, as in C: AUTH PLAIN {base64:\0user\0secret}
//     {any}                in C: lines only: any run of bytes, as in C: Date: {any}
// Other braces mean themselves. A string that must begin with "(" begins with \x28.
//
// A data line can be compared like any other: C: Subject: hello. The mail text ends with C: . then.

#ifndef ZELIEML_TESTS_SUPPORT_SCRIPTED_SERVER_H
#define ZELIEML_TESTS_SUPPORT_SCRIPTED_SERVER_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace zelieml::test
{

// The name that this machine's SMTP greeting announces: "[a.b.c.d]" with the first IPv4 address
// that the host name resolves to, the plain host name when it does not resolve, "unknown" when
// there is none. Asked once per process.
std::string greeting_name();

// Methods may be called on any thread; see each for those that wait.
class scripted_server
{
public:
    // Listens and begins to play.
    //
    // transcript  the conversation, one connection or several
    // limit       how long the server waits for the client to come, to speak, to close or to read
    //             before it gives up, hangs up and counts it as a problem
    //
    // Throws std::invalid_argument, quoting the line, for a transcript that cannot be understood,
    // and std::system_error when it cannot listen.
    explicit scripted_server(std::string const&        transcript,
                             std::chrono::milliseconds limit = std::chrono::seconds(20));

    // One transcript per connection, in order.
    explicit scripted_server(std::vector<std::string> const& transcripts,
                             std::chrono::milliseconds       limit = std::chrono::seconds(20));

    // Hangs up on whoever is there; waits for nothing.
    ~scripted_server();
    scripted_server(scripted_server const&)            = delete;
    scripted_server& operator=(scripted_server const&) = delete;

    // The port on 127.0.0.1, in host byte order.
    std::uint16_t port() const;

    // What {host} stands for from now on; greeting_name() unless set. For tests whose resolver is
    // a fake.
    void set_host(std::string const& host);

    // Waits until the transcript is played or the server has given up, at most about the limit
    // after the client's last sign of life. The three below and ok(), problem() and data() wait
    // likewise. After that the server hears no more: a connection that comes later is refused.
    void wait();

    // What the client did, one line for each thing, as C: lines. Bytes that are not printable
    // ASCII or part of UTF-8 text are written as above (\r, \x1b); "C-" is a line that lacks its
    // CR LF. Ends with the first thing that was not expected, among these
    //     C: (closes)  C: (silent)  C: (connects)  C: (never connects)  C: (speaks out of turn)
    // Each mail text that was asked for with (data) is a line "C: (data)".
    std::string heard();

    // What the client had to do, in the same form: equal to heard() when all went well. Lines with
    // wildcards that matched are those that were heard.
    std::string expected();

    // Whether all went as written, and if not, what was wrong first: the transcript's line and
    // what came instead. Empty when all is well.
    bool        ok();
    std::string problem();

    // A mail text taken by C: (data), the first, second...: as it came, without the CR LF "." CR LF
    // that ends it, dots as stuffed by the client. Empty when there is no such text.
    std::string data(std::size_t index = 0);

    // Whether the server has come to a (silent). Does not wait.
    bool fell_silent() const;

    // Connections accepted so far, unexpected ones included. Does not wait.
    int connections() const;

private:
    class player;
    std::unique_ptr<player> player_;
};

}  // namespace zelieml::test

#endif
