// send_model_test.cpp - random settings, mails and servers against a model of sends and login tests
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
#include "zelieml.h"

namespace zelieml
{
namespace
{

using test::random_values;
using test::server_end;
using strings = std::vector<std::string>;

constexpr std::uint32_t seed         = 20240401;
constexpr std::uint32_t rounds       = 6000;
constexpr std::uint32_t login_rounds = 3000;
constexpr std::int64_t  seconds      = 1768000000;

std::string stored(std::string const& password)
{
    return test::stored_form(password).value();
}

std::string joined(strings const& parts)
{
    std::string all;
    for (std::string const& part : parts) {
        all += part;
    }
    return all;
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
        return joined(lines_);
    }

private:
    random_values& random_;
    strings        lines_;
};

// The same bytes in pieces of one size.
strings in_pieces(strings const& parts, std::size_t size)
{
    std::string const all = joined(parts);
    strings           pieces;
    for (std::size_t at = 0; at < all.size(); at += size) {
        pieces.push_back(all.substr(at, size));
    }
    return pieces;
}

// The first bytes, in the same pieces.
strings first_bytes(strings const& parts, std::size_t size)
{
    strings pieces;
    for (std::size_t i = 0; i < parts.size() && size > 0; ++i) {
        pieces.push_back(parts[i].substr(0, size));
        size -= pieces.back().size();
    }
    return pieces;
}

// What is unusual about a server.
std::set<std::string> habits(test::played_server const& server)
{
    std::set<std::string> found;
    std::string const     all    = joined(server.pieces);
    auto const            add_if = [&](bool has, char const* habit) {
        if (has) {
            found.insert(habit);
        }
    };
    auto const pieces_from_to = [&](std::size_t least, std::size_t most) {
        return server.pieces.size() > 1 &&
               std::all_of(server.pieces.begin(), server.pieces.end() - 1,
                           [&](std::string const& piece) {
                               return piece.size() >= least && piece.size() <= most;
                           });
    };
    for (std::size_t at = 0, end = 0; (end = all.find('\n', at)) != std::string::npos;
         at = end + 1) {
        std::string const line = all.substr(at, end + 1 - at);
        bool const        code = line.find_first_not_of("0123456789") == 3;
        add_if(code && line[3] == '-', "replies of several lines");
        add_if(code && line.substr(3) == "\r\n", "bare codes");
        add_if(line.size() >= 1023, "lines of 1023 bytes and more");
    }
    add_if(std::any_of(all.begin(), all.end(), [](char c) { return (c & 0x80) != 0; }),
           "8-bit bytes");
    add_if(all.find('\0') != std::string::npos, "NULs");
    add_if(pieces_from_to(1, 1), "single bytes");
    add_if(pieces_from_to(1020, 1026), "pieces of about 1023 bytes");
    if (!all.empty() && all.back() != '\n') {
        add_if(server.end == server_end::closes, "closes within a line");
        add_if(server.end == server_end::hangs_up, "hangs up within a line");
        add_if(server.end == server_end::is_silent, "falls silent within a line");
    }
    return found;
}

// How often each habit is to be met at least, and how often of these the mail is to be sent.
struct habit_minimum {
    char const* habit;
    int         met;
    int         sent;
};

habit_minimum const habit_minimums[] = {
    {"replies of several lines", 1000, 400},
    {"bare codes", 40, 5},
    {"lines of 1023 bytes and more", 600, 200},
    {"8-bit bytes", 1500, 400},
    {"NULs", 500, 150},
    {"single bytes", 150, 30},
    {"pieces of about 1023 bytes", 120, 40},
    {"closes within a line", 130, 1},
    {"hangs up within a line", 50, 0},
    {"falls silent within a line", 10, 0},
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
        std::string all = joined(replies_);
        strings     parts;
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

test::played_server pop_server(random_values& random, bool apop)
{
    server_writer server(random);
    server.line(random.percent(90) ? "+OK <1.2@mail.test>"
                                   : random.pick({"+OK", "+OK >1<", "+OK <", "-ERR <>"}));
    for (int steps = apop ? 1 : 2; steps > 0; --steps) {
        server.line("+OK");
    }
    server.line(random.pick({"+OK", "-ERR", ""}));
    return server.server();
}

// What a server says to EHLO.
std::string random_offer(random_values& random)
{
    return random.pick(
        {"AUTH LOGIN CRAM-MD5", "AUTH PLAIN LOGIN", "AUTH=LOGIN", "AUTH PLAIN", "SIZE 1"});
}

void write_login(random_values& random, server_writer& server, std::string const& mechanism)
{
    bool const cram  = mechanism.find("CRAM") != std::string::npos || mechanism == "cram-md5";
    bool const login = mechanism.find("LOGIN") != std::string::npos || mechanism == "login";
    if (cram) {
        server.reply("334",
                     random.percent(80)
                         ? "PDE4OTYuNjk3MTcwOTUyQHBvc3RvZmZpY2UucmVzdG9uLm1jaS5uZXQ+"
                         : random.pick({"", "PA", "PDE=", "PD E=", "P===", "AAAA", "PDE=PDE="}));
    } else if (login) {
        server.reply("334");
        server.reply("334");
    }
    server.reply("235");
}

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
        write_tls("pop");
        settings_.line("pop_wait_time", {"0", "5", "1500"}, {"-1", "x", "99999999999"});

        room.servers.push_back(pop_server(random_, apop));
    }

    // Most without TLS, as there is no plug-in.
    void write_tls(std::string const& protocol)
    {
        if (random_.percent(20)) {
            settings_.line(protocol + "_tls", {"no"}, {"tls", "starttls", "Yes", "", "no "});
        }
        if (random_.percent(3)) {
            settings_.line("tls_ca_file", {"/ca.pem"}, {"", "ca.pem"});
        }
    }

    void write_smtp(test::send_room& room)
    {
        write_tls("smtp");
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
        std::string const offer = random_offer(random_);
        server.reply("250", auth ? offer : "hello");
        if (auth) {
            write_login(random_, server,
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

    random_values   random_;
    settings_writer settings_;
    bool            raw_ = true;
    strings         recipients_;
};

// Settings of a login test; most agree with the servers.
test::login_room random_login(std::uint32_t round)
{
    random_values random(seed + round);
    strings const texts = {"anna", "an^na", "\xc3\xa4", std::string(700, 'u')};
    strings const odd   = {"", std::string(1004 + random.below(16), 'u')};

    test::login_room room;
    room.smtp            = random.percent(70);
    room.pop_before_smtp = random.percent(40);
    room.apop            = random.percent(50);
    room.wait_ms         = static_cast<int>(random.below(3000)) - 1;
    room.user            = random.pick(random.percent(90) ? texts : odd);
    room.password        = random.pick(random.percent(90) ? texts : odd);
    if (!room.smtp || room.pop_before_smtp) {
        room.servers.push_back(pop_server(random, room.apop));
    }
    if (room.smtp) {
        server_writer     server(random);
        std::string const offer   = random_offer(random);
        bool const        offered = offer.find("AUTH") != std::string::npos;
        room.auth                 = random.percent(95) == offered;
        server.reply("220");
        server.reply("250", offer);
        if (offered) {
            write_login(random, server, offer);
        }
        server.reply("221");
        room.servers.push_back(server.server());
    }
    if (random.percent(3)) {
        room.servers.pop_back();
    }
    return room;
}

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
    std::map<std::string, int> met;
    std::map<std::string, int> met_and_sent;
    for (std::uint32_t round = 0; round < rounds && !HasFailure(); ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        test::send_room const    room    = room_writer(round).room();
        test::send_outcome const outcome = send(room, std::to_string(round), "before");
        EXPECT_EQ(outcome, test::model_send(room, "before")) << "settings:\n"
                                                             << room.settings.value_or("none");
        ++results[outcome.result];
        for (std::size_t i = 0; i < outcome.record.sent.size(); ++i) {
            for (std::string const& habit : habits(room.servers[i])) {
                ++met[habit];
                met_and_sent[habit] += outcome.result == send_ok ? 1 : 0;
            }
        }
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
    for (habit_minimum const& least : habit_minimums) {
        EXPECT_GE(met[least.habit], least.met) << least.habit;
        EXPECT_GE(met_and_sent[least.habit], least.sent) << least.habit << ", and the mail is sent";
    }
    // Most ways to fail are on the way to a success.
    EXPECT_GE(results[send_ok], static_cast<int>(rounds / 10));
}

test::send_outcome log_in(test::login_room const& room)
{
    char const* const user     = room.user.c_str();
    char const* const password = room.password.c_str();
    void*             server   = nullptr;
    EXPECT_EQ(server_info_create(&server), 0);
    server_info_set_pop(server, test::server_name, user, password, room.apop ? "apop" : "pop", 110,
                        room.wait_ms);
    server_info_set_smtp(server, test::server_name, user, password, room.auth ? "on" : "off", 25);

    std::size_t said = 1;
    for (test::played_server const& played : room.servers) {
        said += joined(played.pieces).size();
    }
    std::vector<char>             message(said);
    test::fake_mail_servers const servers(room.servers);
    test::send_outcome            outcome;
    outcome.result =
        room.smtp ? test_smtp_auth(server, room.pop_before_smtp ? "on" : "off", message.data())
                  : test_pop_auth(server, message.data());
    outcome.reply  = message.data();
    outcome.record = servers.record();
    server_info_destroy(server);
    return outcome;
}

TEST(RandomLogins, EndAsTheModelSays)
{
    std::map<int, int> codes;
    for (std::uint32_t round = 0; round < login_rounds && !HasFailure(); ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        test::login_room const   room    = random_login(round);
        test::send_outcome const outcome = log_in(room);
        EXPECT_EQ(outcome, test::model_login(room));
        ++codes[outcome.result];
    }
    for (int const code :
         {eml_send_ok, eml_send_error_other, eml_send_error_connection, eml_send_error_auth}) {
        EXPECT_GE(codes[code], 20) << "the code " << code << " is hardly ever met";
    }
    EXPECT_GE(codes[eml_send_ok], static_cast<int>(login_rounds / 4));
}

// Both servers of a mail that is sent with APOP before SMTP and CRAM-MD5.
test::send_room full_conversation()
{
    test::message const m = {{"UTF-8", "anna@a.test", "anna@b.test,ben@b.test",
                              "ben@b.test,c@b.test", "tray 2 open", "reply@a.test", "<1@a.test>"},
                             test::stored_body("one\n.two\n")};

    test::send_room room;
    room.date     = test::model_date(seconds, 0);
    room.message  = test::file_of(m);
    room.settings = "";
    for (char const* const line :
         {"passwd_raw = yes", "pop_before_smtp = yes", "pop_server = mail.test", "pop_port = 110",
          "pop_account = anna", "pop_passwd = secret", "pop_auth_type = apop", "pop_wait_time = 5",
          "smtp_server = mail.test", "smtp_port = 25", "smtp_auth = yes",
          "smtp_auth_type = cram-md5", "smtp_account = anna", "smtp_passwd = secret"}) {
        *room.settings += std::string(line) + "\r\n";
    }
    room.servers = {
        {{"+OK <1.2@mail.test>\r\n", "+OK\r\n", "+OK bye\r\n"}},
        {{"220-mail.test\r\n220 ready\r\n",
          "250-mail.test\r\n250-" + std::string(1100, 'l') + "\r\n250 AUTH CRAM-MD5\r\n",
          "334 PDE4OTYuNjk3MTcwOTUyQHBvc3RvZmZpY2UucmVzdG9uLm1jaS5uZXQ+\r\n", "235 ok\r\n",
          "250 sender\r\n", "250 anna\r\n", "250-\xc3\xa4\r\n250 ben\r\n", "250 c\r\n",
          "354\r\n354 go\r\n", "250 taken\r\n", "221 bye\r\n"}}};
    return room;
}

class FullConversation : public RandomSends
{
protected:
    // Sends, as the model says. Returns the result.
    int send_as_modelled(test::send_room const& room) const
    {
        test::send_outcome const outcome = send(room, "full", "before");
        EXPECT_EQ(outcome, test::model_send(room, "before"));
        return outcome.result;
    }
};

TEST_F(FullConversation, MayBreakOffAtEveryByte)
{
    std::set<int>         results;
    test::send_room const whole = full_conversation();
    for (std::size_t i = 0; i < whole.servers.size(); ++i) {
        std::size_t const size = joined(whole.servers[i].pieces).size();
        for (std::size_t said = 0; said < size && !HasFailure(); ++said) {
            for (server_end const end :
                 {server_end::closes, server_end::hangs_up, server_end::is_silent}) {
                // A silence takes 3001 attempts to read.
                if (end == server_end::is_silent && said % 50 != 0) {
                    continue;
                }
                SCOPED_TRACE("server " + std::to_string(i) + " says " + std::to_string(said) +
                             " bytes, end " + std::to_string(static_cast<int>(end)));
                test::send_room room = whole;
                room.servers[i]      = {first_bytes(whole.servers[i].pieces, said), end};
                results.insert(send_as_modelled(room));
            }
        }
    }
    EXPECT_EQ(results, (std::set<int>{send_other_failure, send_not_connected,
                                      send_not_authenticated, send_message_refused,
                                      send_quit_refused, pop_start_failed, pop_apop_refused}));
}

TEST_F(FullConversation, MayComeInPiecesOfAnySize)
{
    test::send_room const whole = full_conversation();
    EXPECT_EQ(send_as_modelled(whole), send_ok);
    for (std::size_t const size : {1U, 2U, 1022U, 1023U, 1024U}) {
        SCOPED_TRACE(size);
        test::send_room room = whole;
        for (test::played_server& server : room.servers) {
            server.pieces = in_pieces(server.pieces, size);
        }
        EXPECT_EQ(send_as_modelled(room), send_ok);
    }
}

}  // namespace
}  // namespace zelieml
