// clear_talk.cpp - what is said before TLS

#include "plugins/tls/clear_talk.h"

#include <algorithm>
#include <string_view>
#include <vector>

#include "libsendw/step.h"
#include "plugins/tls/failure.h"
#include "support/ascii.h"

namespace zelieml::tls
{

namespace
{

constexpr std::size_t most_lines = 100;  // of a reply
constexpr std::size_t code_size  = 3;
constexpr std::size_t most_added = 3;  // to a line: CR LF, and a blank to a code alone

using lines = std::vector<std::string>;

bool is_word(std::string const& text, std::string_view word)
{
    return equal_ignoring_case(std::string_view(text).substr(0, text.find(' ')), word);
}

// In any letters: so the session takes a reply of POP3.
bool begins_with(std::string const& text, std::string_view start)
{
    return equal_ignoring_case(std::string_view(text).substr(0, start.size()), start);
}

bool is_digit(char c)
{
    return c >= '0' && c <= '9';
}

// One conversation: the commands and their replies.
class talk
{
public:
    explicit talk(clear_channel& server) : server_(server) {}

    void expect_greeting() { expect(""); }

    void say(char const* command, std::string const& line)
    {
        expect(command);
        server_.write_line(line + "\r\n");
    }

    // A line without its line end.
    std::string read_line()
    {
        std::string line = server_.read_line();
        line.pop_back();
        if (!line.empty() && line.back() == '\r') {
            line.pop_back();
        }
        said_ += line.size() + most_added;
        if (said_ > most_greeting || line.find('\0') != line.npos || line.find('\r') != line.npos) {
            fail_no_reply();
        }
        return line;
    }

    // A reply of SMTP, each line with the code, a hyphen or a blank, and a text.
    lines read_smtp()
    {
        lines reply;
        do {
            if (reply.size() == most_lines) {
                fail_no_reply();
            }
            reply.push_back(read_line());
            check_smtp(reply);
        } while (reply.back()[code_size] == '-');
        return reply;
    }

    // What follows a +OK, up to the line ".".
    lines read_list()
    {
        lines list;
        for (std::string line = read_line(); line != "."; line = read_line()) {
            if (list.size() == most_lines) {
                fail_no_reply();
            }
            list.push_back(line);
        }
        return list;
    }

    // A reply must begin with this.
    void want(std::string const& last_line, std::string_view start)
    {
        if (!begins_with(last_line, start)) {
            throw failure{cause_of_reply(last_line),
                          "the server refused " +
                              (command_.empty() ? std::string("the connection") : command_) + ": " +
                              last_line};
        }
    }

    void want_offered(bool offered, std::string const& command)
    {
        if (!offered) {
            throw failure{eml_cause_tls, "the server does not offer " + command};
        }
    }

    // The server must wait for TLS now.
    void want_silence()
    {
        if (server_.has_more()) {
            throw failure{eml_cause_protocol, "the server said something in clear behind its "
                                              "answer to " +
                                                  command_};
        }
    }

private:
    void expect(char const* command)
    {
        command_ = command;
        said_    = 0;
        server_.expect(command);
    }

    [[noreturn]] void fail_no_reply()
    {
        throw failure{eml_cause_protocol,
                      command_.empty()
                          ? "the server greets with what is no reply"
                          : "the server answered " + command_ + " with what is no reply"};
    }

    void check_smtp(lines& reply)
    {
        std::string& line = reply.back();
        if (line.size() == code_size) {
            line += ' ';
        }
        if (line.size() <= code_size ||
            !std::all_of(line.begin(), line.begin() + code_size, is_digit) ||
            (line[code_size] != '-' && line[code_size] != ' ') ||
            line.compare(0, code_size, reply.front(), 0, code_size) != 0) {
            fail_no_reply();
        }
    }

    clear_channel& server_;
    std::string    command_;
    std::size_t    said_ = 0;  // bytes of the reply
};

std::string joined(lines const& reply)
{
    std::string all;
    for (std::string const& line : reply) {
        all += line + "\r\n";
    }
    return all;
}

}  // namespace

std::string ask_smtp(clear_channel& server, std::string const& own_name)
{
    talk with(server);
    with.expect_greeting();
    lines const greeting = with.read_smtp();
    with.want(greeting.back(), "220 ");

    with.say("EHLO", "ehlo " + own_name);
    lines const offer = with.read_smtp();
    with.want(offer.back(), "250 ");
    with.want_offered(std::any_of(offer.begin() + 1, offer.end(),
                                  [](std::string const& line) {
                                      return is_word(line.substr(code_size + 1), "STARTTLS");
                                  }),
                      "STARTTLS");

    with.say("STARTTLS", "starttls");
    with.want(with.read_smtp().back(), "220 ");
    with.want_silence();
    return joined(greeting);
}

std::string ask_pop(clear_channel& server)
{
    talk with(server);
    with.expect_greeting();
    std::string const greeting = with.read_line();
    with.want(greeting, "+OK");

    with.say("CAPA", "capa");
    with.want(with.read_line(), "+OK");
    lines const offer = with.read_list();
    with.want_offered(std::any_of(offer.begin(), offer.end(),
                                  [](std::string const& line) { return is_word(line, "STLS"); }),
                      "STLS");

    with.say("STLS", "stls");
    with.want(with.read_line(), "+OK");
    with.want_silence();
    return greeting + "\r\n";
}

}  // namespace zelieml::tls
