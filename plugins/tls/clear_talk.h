// clear_talk.h - what is said before TLS: STARTTLS (RFC 3207) and STLS (RFC 2595)
//
// Whoever sits on the line can have said all of it. So no more is believed than that TLS may begin;
// what is not exactly a reply ends the connection, and of the replies only the greeting gets to the
// session, which has to see one.

#ifndef ZELIEML_PLUGINS_TLS_CLEAR_TALK_H
#define ZELIEML_PLUGINS_TLS_CLEAR_TALK_H

#include <cstddef>
#include <string>

namespace zelieml::tls
{

constexpr std::size_t most_greeting = 8192;  // bytes of what the functions return

// The connection, as far as it is needed here. The functions throw a failure.
class clear_channel
{
public:
    // expect - from now on the replies are those to a command; empty for the greeting
    virtual void expect(char const* command) = 0;

    // read_line - a line with its line feed, and nothing behind it
    virtual std::string read_line() = 0;

    virtual void write_line(std::string const& line) = 0;

    // has_more - whether something has come that was not read. Does not wait.
    virtual bool has_more() = 0;

protected:
    ~clear_channel() = default;
};

// ask_smtp, ask_pop - have the server begin TLS
//
// own_name  for EHLO
//
// Returns the server's greeting, its lines with CR LF: one reply, as the session reads replies, of
// at most most_greeting bytes. Longer replies, to commands too, are none.
std::string ask_smtp(clear_channel& server, std::string const& own_name);
std::string ask_pop(clear_channel& server);

}  // namespace zelieml::tls

#endif
