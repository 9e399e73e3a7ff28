// send_model_test.cpp - random settings, mails and servers against a model of the send driver
//
// Each round has files of its own, as in libmsg_model_test.cpp.

#include <algorithm>
#include <ctime>
#include <gtest/gtest.h>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "libsendw/libsendw.h"
#include "libsendw/pop.h"
#include "tests/libcryptw/passwords.h"
#include "tests/libsendw/compose_model.h"
#include "tests/libsendw/random_mail.h"
#include "tests/libsendw/send_model.h"
#include "tests/support/fake_clock.h"
#include "tests/support/fake_hostname.h"
#include "tests/support/files.h"

namespace zelieml
{
namespace
{

using test::random_values;
using test::server_end;
using strings = std::vector<std::string>;

constexpr std::uint32_t seed    = 20240401;
constexpr std::uint32_t rounds  = 6000;
constexpr std::int64_t  seconds = 1768000000;

std::string stored(std::string const& password)
{
    return test::stored_form(password).value();
}

// A settings file, most of its lines as a user writes them.
class settings_writer
{
public:
    explicit settings_writer(random_values& random) : random_(random) {}

    // One of the usual values, at times one of the others or none. Returns the value.
    std::string line(std::string const& key, strings const& usual, strings const& others)
    {
        if (random_.percent(2)) {
            return "";
        }
        std::string const value    = random_.pick(random_.percent(90) ? usual : others);
        std::string const equals   = random_.percent(95) ? " = " : "=\t";
        std::string const line_end = random_.percent(98) ? "\r\n" : "\n";
        lines_.push_back(key + equals + value + line_end);
        return value;
    }

    std::string file()
    {
        if (random_.percent(3)) {
            std::swap(lines_.front(),
                      lines_[random_.below(static_cast<std::uint32_t>(lines_.size()))]);
        }
        std::string bytes;
        for (std::string const& line : lines_) {
            bytes += line;
        }
        return bytes;
    }

private:
    random_values& random_;
    strings        lines_;
};

// What a server says, reply by reply, and how it ends.
class server_writer
{
public:
    explicit server_writer(random_values& random) : random_(random) {}

    void reply(std::string const& code) { reply(code, text()); }

    void reply(std::string const& code, std::string const& words)
    {
        std::string lines;
        for (auto more = random_.percent(15) ? random_.below(4) : 0; more > 0; --more) {
            lines += code + "-" + text() + "\r\n";
        }
        replies_.push_back(lines + code + " " + words + "\r\n");
    }

    // A line of POP3, or any other.
    void line(std::string const& words) { replies_.push_back(words + "\r\n"); }

    test::played_server server()
    {
        test::played_server server;
        if (random_.percent(40)) {
            spoil_one();
        }
        if (random_.percent(5)) {
            cut();
            // A silence takes 3001 attempts to read.
            server.end = random_.percent(80) ? server_end::hangs_up : server_end::is_silent;
        }
        server.pieces = pieces();
        return server;
    }

private:
    std::string text()
    {
        switch (random_.below(40)) {
        case 0:
            return std::string(1010 + random_.below(25), 'l');
        case 1:
            return std::string(2030 + random_.below(25), 'l');
        case 2:
            return std::string("before a NUL\0after it", 21);
        default:
            return random_.text(
                {"ok", " ", "2.0.0", "\xe9\xff", "AUTH", "error", "-", "<", ">", "\r", "250"}, 5);
        }
    }

    std::string& any()
    {
        return replies_[random_.below(static_cast<std::uint32_t>(replies_.size()))];
    }

    void spoil_one()
    {
        std::string&        reply = any();
        std::uint32_t const at    = random_.below(static_cast<std::uint32_t>(reply.size() + 1));
        switch (random_.below(10)) {
        case 0:
            reply =
                random_.pick({"550 5.1.1 no such user\r\n", "421 closing\r\n", "251 forwarded\r\n",
                              "-ERR no\r\n", "-err no\r\n", "+OK no error\r\n"});
            break;
        case 1:
            reply =
                random_.pick({"250\r\n", "220\r\n", "\r\n", "ok\r\n", "25 0 ok\r\n", "2500 \r\n"});
            break;
        case 2:
            reply = "550 5.1.1 user " + random_.pick({"220", "250", "354", "221", "235", "334"}) +
                    " unknown\r\n";
            break;
        case 3:
            reply.erase();
            break;
        case 4:
            reply += reply;
            break;
        case 5:
            reply.insert(at, 1, '\0');
            break;
        case 6:
            reply.erase(reply.find('\n'), 1);
            break;
        case 7:
            reply.erase(reply.find('\r'), 1);
            break;
        default:
            cut();
            break;
        }
    }

    // Nothing comes after some byte.
    void cut()
    {
        replies_.resize(1 + random_.below(static_cast<std::uint32_t>(replies_.size())));
        std::string& last = replies_.back();
        if (random_.percent(60)) {
            last.resize(random_.below(static_cast<std::uint32_t>(last.size() + 1)));
        }
    }

    strings pieces()
    {
        std::uint32_t const way = random_.below(20);
        if (way < 12) {
            return replies_;
        }
        std::string all;
        for (std::string const& reply : replies_) {
            all += reply;
        }
        strings parts;
        while (!all.empty()) {
            std::size_t size = all.size();
            if (way == 12) {
                size = 1;
            } else if (way < 15) {
                size = random_.below(40);
            } else if (way < 18) {
                size = 1020 + random_.below(7);
            }
            parts.push_back(all.substr(0, size));
            all.erase(0, size);
        }
        return parts;
    }

    random_values& random_;
    strings        replies_;
};

// A room in which most sends come far.
class room_writer
{
public:
    explicit room_writer(std::uint32_t round) : random_(seed + round), settings_(random_) {}

    test::send_room room()
    {
        test::send_room room;
        room.date = test::model_date(seconds, 0);
        write_message(room);
        write_pop(room);
        write_smtp(room);
        settings_.line("subject_use_encoding", {"yes", "no"}, {"", "YES"});
        if (random_.percent(99)) {
            room.settings = settings_.file();
        }
        if (random_.percent(3)) {
            room.servers.resize(random_.below(static_cast<std::uint32_t>(room.servers.size() + 1)));
        }
        room.greeting_name =
            random_.pick({test::greeting_name, test::greeting_name, "printer7", "unknown"});
        return room;
    }

private:
    void write_message(test::send_room& room)
    {
        test::message m;
        m.header[0] = random_.pick({"UTF-8", "ISO-2022-JP", "iso-2022-jp"});
        m.header[1] = random_header(random_);
        m.header[2] = random_.percent(95) ? random_addresses(random_) : random_header(random_);
        m.header[3] = random_.percent(40) ? random_addresses(random_) : "";
        m.header[4] = random_header(random_);
        m.header[5] =
            random_.percent(5) ? std::string(1005 + random_.below(10), 'r') : "reply@a.test";
        m.header[6] = random_.percent(30) ? "<1@a.test>" : "";
        m.body      = test::stored_body(random_body(random_));
        if (random_.percent(98)) {
            room.message = test::file_of(m);
            m            = test::message_of(*room.message);
            recipients_  = test::model_addresses(m.header[2] + "," + m.header[3]);
        }
    }

    // The account and the two forms of its password.
    void write_account(std::string const& protocol)
    {
        strings const long_ones = {std::string(700, 'u'),
                                   std::string(1004 + random_.below(12), 'u')};
        settings_.line(protocol + "_account", {"anna", "an^na", "\xc3\xa4"}, long_ones);
        static strings const raw    = {"secret", "se^cret", std::string(80, 'p')};
        static strings const hidden = {stored("secret"), stored("se^cret"), stored("\xff\x01")};
        settings_.line(protocol + "_passwd", raw_ ? raw : hidden,
                       {"", "1", "zz", stored(std::string(500, 'p')), std::string(1015, 'p')});
    }

    void write_pop(test::send_room& room)
    {
        raw_ = settings_.line("passwd_raw", {"yes", "no", "1"}, {"", "no "}) != "no";
        if (settings_.line("pop_before_smtp", {"yes", "no"}, {"YES", ""}) != "yes") {
            return;
        }
        settings_.line("pop_server", {test::server_name, "127.0.0.3"}, {"nowhere.test", ""});
        settings_.line("pop_port", {"110", "1110"}, {"", "x", "65646"});
        write_account("pop");
        bool const apop = settings_.line("pop_auth_type", {"apop", "pop"}, {"APOP"}) == "apop";
        settings_.line("pop_wait_time", {"0", "5", "1500"}, {"-1", "x", "99999999999"});

        server_writer server(random_);
        server.line(random_.percent(90) ? "+OK <1.2@mail.test>"
                                        : random_.pick({"+OK", "+OK >1<", "+OK <", "-ERR <>"}));
        for (int steps = apop ? 1 : 2; steps > 0; --steps) {
            server.line("+OK");
        }
        server.line(random_.pick({"+OK", "-ERR", ""}));
        room.servers.push_back(server.server());
    }

    void write_smtp(test::send_room& room)
    {
        settings_.line("smtp_server", {test::server_name, "127.0.0.1", "0x7f.2"},
                       {"nowhere.test", "255.255.255.255", "", "mail.test "});
        settings_.line("smtp_port", {"25", "587", " +25"}, {"0", "-1", "99999999999", "x"});
        bool const        auth = settings_.line("smtp_auth", {"yes", "no"}, {"YES"}) == "yes";
        std::string const type =
            settings_.line("smtp_auth_type", {"auto", "cram-md5", "login", "plain"},
                           {"CRAM-MD5", "", "automatic"});
        write_account("smtp");

        server_writer server(random_);
        server.reply("220");
        std::string const offer = random_.pick(
            {"AUTH LOGIN CRAM-MD5", "AUTH PLAIN LOGIN", "AUTH=LOGIN", "AUTH PLAIN", "SIZE 1"});
        server.reply("250", auth ? offer : "hello");
        if (auth) {
            write_login(server,
                        type.find("auto") != std::string::npos || type.empty() ? offer : type);
        }
        server.reply("250");
        for (std::size_t i = 0;
             i < std::set<std::string>(recipients_.begin(), recipients_.end()).size(); ++i) {
            server.reply("250");
        }
        server.reply(random_.percent(90) ? "354" : "250");
        server.reply("250");
        server.reply("221");
        room.servers.push_back(server.server());
    }

    void write_login(server_writer& server, std::string const& mechanism)
    {
        bool const cram  = mechanism.find("CRAM") != std::string::npos || mechanism == "cram-md5";
        bool const login = mechanism.find("LOGIN") != std::string::npos || mechanism == "login";
        if (cram) {
            server.reply(
                "334", random_.percent(80)
                           ? "PDE4OTYuNjk3MTcwOTUyQHBvc3RvZmZpY2UucmVzdG9uLm1jaS5uZXQ+"
                           : random_.pick({"", "PA", "PDE=", "PD E=", "P===", "AAAA", "PDE=PDE="}));
        } else if (login) {
            server.reply("334");
            server.reply("334");
        }
        server.reply("235");
    }

    random_values   random_;
    settings_writer settings_;
    bool            raw_ = true;
    strings         recipients_;
};

class RandomSends : public testing::Test
{
protected:
    RandomSends()
    {
        ::setenv("TZ", "UTC0", 1);
        ::tzset();
        test::set_wall_clock(static_cast<std::time_t>(seconds), 0);
    }

    // Writes a file if there is one to be, and returns its path.
    std::string file(std::string const& name, std::optional<std::string> const& bytes) const
    {
        std::string path = dir_.file(name);
        if (bytes) {
            test::write_file(path, *bytes);
        }
        return path;
    }

    test::send_outcome send(test::send_room const& room, std::string const& name,
                            std::string const& reply) const
    {
        test::fake_mail_servers const servers(room.servers);
        if (room.greeting_name == "unknown") {
            test::lose_host_name();
        } else if (room.greeting_name != test::greeting_name) {
            test::set_host_name(room.greeting_name);
        }
        test::send_outcome outcome;
        outcome.reply  = reply;
        outcome.result = isendw().send(file(name + ".sme", room.message).c_str(),
                                       file(name + ".cf", room.settings).c_str(), outcome.reply);
        outcome.record = servers.record();
        return outcome;
    }

    test::temp_dir const dir_;
};

std::set<int> const reachable = {
    send_ok,           send_other_failure,     send_no_server,       send_not_connected,
    send_helo_refused, send_not_authenticated, send_message_refused, send_quit_refused,
    pop_start_failed,  pop_user_refused,       pop_pass_refused,     pop_apop_refused};

// The first words of all commands.
std::set<std::string> const words = {"helo",      "ehlo", "AUTH PLAIN", "AUTH LOGIN",
                                     "AUTH CRAM", "mail", "rcpt",       "data",
                                     "quit",      "user", "pass",       "apop"};

TEST_F(RandomSends, EndAsTheModelSays)
{
    std::printf("%u rounds with seed %u\n", rounds, seed);
    std::map<int, int>         results;
    std::map<std::string, int> said;
    for (std::uint32_t round = 0; round < rounds && !HasFailure(); ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        test::send_room const    room    = room_writer(round).room();
        test::send_outcome const outcome = send(room, std::to_string(round), "before");
        EXPECT_EQ(outcome, test::model_send(room, "before")) << "settings:\n"
                                                             << room.settings.value_or("none");
        ++results[outcome.result];
        for (test::sent_strings const& sent : outcome.record.sent) {
            for (std::string const& bytes : sent) {
                for (std::string const& word : words) {
                    said[word] += bytes.rfind(word, 0) == 0 ? 1 : 0;
                }
            }
        }
    }
    for (int const result : reachable) {
        EXPECT_GE(results[result], 20) << "the result " << result << " is hardly ever met";
    }
    EXPECT_EQ(results.size(), reachable.size());
    for (std::string const& word : words) {
        EXPECT_GE(said[word], 200) << word << " is hardly ever sent";
    }
    // Most ways to fail are on the way to a success.
    EXPECT_GE(results[send_ok], static_cast<int>(rounds / 10));
}

}  // namespace
}  // namespace zelieml
