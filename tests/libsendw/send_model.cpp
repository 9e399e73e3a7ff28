#include "tests/libsendw/send_model.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstdlib>
#include <gtest/gtest.h>
#include <limits>
#include <memory>
#include <sstream>

#include "tests/libbase64/base64_model.h"
#include "tests/libconf/settings_model.h"
#include "tests/libcryptw/passwords.h"
#include "tests/libmsg/message_model.h"
#include "tests/libsendw/compose_model.h"
#include "tests/support/contains.h"
#include "zelieml.h"

namespace zelieml::test
{

namespace
{

constexpr std::size_t longest_command  = 1023;
constexpr std::size_t largest_piece    = 1023;
constexpr int         attempts_to_read = 3001;
constexpr std::size_t place_after_code = 3;
constexpr std::size_t longest_hmac_key = 64;
constexpr int         us_in_a_ms       = 1000;

// atoi; the smallest or largest int for a number out of range.
int number_in(std::string const& text)
{
    std::size_t at = text.find_first_not_of(" \t\n\v\f\r");
    at             = at == std::string::npos ? text.size() : at;
    bool minus     = false;
    if (at < text.size() && (text[at] == '-' || text[at] == '+')) {
        minus = text[at] == '-';
        ++at;
    }
    double number = 0;
    for (; at < text.size() && text[at] >= '0' && text[at] <= '9'; ++at) {
        number = number * 10 + (text[at] - '0');
    }
    number = minus ? -number : number;
    if (number > std::numeric_limits<int>::max()) {
        return std::numeric_limits<int>::max();
    }
    if (number < std::numeric_limits<int>::min()) {
        return std::numeric_limits<int>::min();
    }
    return static_cast<int>(number);
}

std::string md5(std::string const& text)
{
    unsigned char* const digest = icryptw().md5(bytes_of(text), text.size());
    std::string const    bytes(reinterpret_cast<char const*>(digest), 16);
    icryptw().free(digest);
    return bytes;
}

// RFC 2104
std::string hmac_md5(std::string key, std::string const& text)
{
    if (key.size() > longest_hmac_key) {
        key = md5(key);
    }
    key.resize(longest_hmac_key, '\0');
    std::string inner, outer;
    for (char const c : key) {
        inner += static_cast<char>(c ^ 0x36);
        outer += static_cast<char>(c ^ 0x5c);
    }
    return md5(outer + md5(inner + text));
}

std::string lower_case_hex(std::string const& bytes)
{
    std::string const digits = "0123456789abcdef";
    std::string       text;
    for (char const byte : bytes) {
        text += digits[static_cast<unsigned char>(byte) / 16];
        text += digits[static_cast<unsigned char>(byte) % 16];
    }
    return text;
}

struct account {
    std::string user;
    std::string password;
};

// The client's side of one connection.
class connection
{
public:
    connection(played_server const& server, server_record& record)
        : server_(server), record_(record)
    {
        record_.sent.emplace_back();
        server_speaks();
    }

    bool write(std::string const& bytes)
    {
        if (bytes.empty()) {
            return true;
        }
        if (server_gone_) {
            return false;
        }
        record_.sent.back().push_back(bytes);
        return true;
    }

    bool write_command(std::string const& line)
    {
        return line.size() <= longest_command && write(line);
    }

    // line  receives what came of it, also on failure
    bool read_line(std::string& line)
    {
        line.clear();
        for (;;) {
            if (!something_arrives()) {
                return false;
            }
            std::string       piece = arrived_.substr(0, largest_piece);
            std::size_t const lf    = piece.find('\n');
            if (lf != std::string::npos) {
                piece.resize(lf + 1);
            }
            arrived_.erase(0, piece.size());
            line += piece.substr(0, piece.find('\0'));
            if (lf != std::string::npos) {
                return true;
            }
        }
    }

private:
    bool something_arrives()
    {
        for (int attempt = 0; attempt < attempts_to_read; ++attempt) {
            if (!arrived_.empty()) {
                return true;
            }
            if (server_gone_) {
                return false;
            }
            ++record_.waits;
            if (next_ == server_.pieces.size() && server_.end != server_end::is_silent) {
                server_gone_ = true;
            }
            server_speaks();
        }
        return false;
    }

    void server_speaks()
    {
        if (next_ < server_.pieces.size()) {
            arrived_ += server_.pieces[next_];
            ++next_;
        }
        if (next_ == server_.pieces.size() && server_.end == server_end::hangs_up) {
            server_gone_ = true;
        }
    }

    played_server const& server_;
    server_record&       record_;
    std::size_t          next_ = 0;
    std::string          arrived_;
    bool                 server_gone_ = false;
};

class model
{
public:
    model(send_room const& room, std::string const& reply) : room_(room) { outcome_.reply = reply; }

    send_outcome send()
    {
        outcome_.result = steps();
        return outcome_;
    }

    send_outcome log_in(login_room const& login)
    {
        outcome_.result = code_of(login_steps(login));
        return outcome_;
    }

private:
    int steps()
    {
        if (setting("pop_before_smtp") == "yes") {
            int const failure = pop_step();
            if (failure != 0) {
                return failure;
            }
        }
        auto const host = setting("smtp_server");
        auto const port = setting("smtp_port");
        if (!host || !port) {
            return 1000;
        }
        if (tls_refuses("smtp_tls", *host, *port)) {
            return 1001;
        }
        return smtp_step(*host, *port, [this](connection& server, std::string& reply) {
            return smtp_session(server, reply);
        });
    }

    // The login tests.

    int login_steps(login_room const& login)
    {
        account const its = {login.user, login.password};
        if (!login.smtp || login.pop_before_smtp) {
            int const failure =
                pop_login(server_name, "110", its, login.apop, login.smtp ? login.wait_ms : 0);
            if (failure != 0 || !login.smtp) {
                return failure;
            }
        }
        return smtp_step(server_name, "25", [&](connection& server, std::string& reply) {
            auto const offer = ehlo(server, reply);
            if (!offer || login.auth == offer->empty()) {
                return 1004;
            }
            if (login.auth && !log_in(server, reply, its, "auto", *offer)) {
                return 1004;
            }
            return command(server, reply, "quit", {"221"}) ? 0 : 1006;
        });
    }

    static eml_send_e code_of(int result)
    {
        switch (result) {
        case 0:
            return eml_send_ok;
        case 1001:
        case 1006:
        case 2002:
            return eml_send_error_connection;
        case 100:
            return eml_send_error_other;
        default:
            return eml_send_error_auth;
        }
    }

    // POP before SMTP.

    int pop_step()
    {
        auto const host = setting("pop_server");
        auto const port = setting("pop_port");
        if (!host || !port) {
            return 100;
        }
        auto const login = read_account("pop_account", "pop_passwd");
        if (!login) {
            return 100;
        }
        if (tls_refuses("pop_tls", *host, *port)) {
            outcome_.reply.clear();
            return 2002;
        }
        return pop_login(*host, *port, *login, setting("pop_auth_type") == "apop",
                         number_in(setting("pop_wait_time").value_or("0")));
    }

    int pop_login(std::string const& host, std::string const& port, account const& login, bool apop,
                  std::int64_t wait_ms)
    {
        outcome_.reply.clear();
        auto server = connect(host, port);
        if (!server || !server->read_line(outcome_.reply)) {
            return 2002;
        }
        if (apop) {
            std::string const& greeting = outcome_.reply;
            std::size_t const  start    = greeting.find('<');
            std::size_t const  end      = greeting.find('>');
            if (start == std::string::npos || end == std::string::npos || end < start) {
                return 2006;
            }
            std::string const stamp = greeting.substr(start, end - start + 1);
            if (!pop_command(*server, "apop " + login.user + " " +
                                          lower_case_hex(md5(stamp + login.password)))) {
                return 2006;
            }
        } else {
            if (!pop_command(*server, "user " + login.user)) {
                return 2004;
            }
            if (!pop_command(*server, "pass " + login.password)) {
                return 2005;
            }
        }
        if (!server->write_command("quit\r\n") || !server->read_line(outcome_.reply)) {
            return 100;
        }
        outcome_.record.sleeps.push_back(wait_ms * us_in_a_ms);
        return 0;
    }

    bool pop_command(connection& server, std::string const& command)
    {
        return server.write_command(command + "\r\n") && server.read_line(outcome_.reply) &&
               !contains(outcome_.reply, "-ERR") && !contains(outcome_.reply, "-err") &&
               !contains(outcome_.reply, "error");
    }

    // SMTP. The reply is all lines of the last one, as far as they came.

    template <class Conversation>
    int smtp_step(std::string const& host, std::string const& port, Conversation&& conversation)
    {
        std::string reply;
        auto        server = connect(host, port);
        if (!server || !reply_has(*server, reply, {"220"})) {
            return 1001;
        }
        int const result = conversation(*server, reply);
        outcome_.reply   = reply;
        return result;
    }

    int smtp_session(connection& server, std::string& reply)
    {
        if (setting("smtp_auth") == "yes") {
            if (!ehlo_and_login(server, reply)) {
                return 1004;
            }
        } else if (!command(server, reply, "helo " + room_.greeting_name, {"250"})) {
            return 1003;
        }
        if (!mail(server, reply)) {
            return 1005;
        }
        return command(server, reply, "quit", {"221"}) ? 0 : 1006;
    }

    bool ehlo_and_login(connection& server, std::string& reply)
    {
        auto const login = read_account("smtp_account", "smtp_passwd");
        if (!login) {
            return false;
        }
        auto const offer = ehlo(server, reply);
        return offer &&
               log_in(server, reply, *login, setting("smtp_auth_type").value_or("auto"), *offer);
    }

    // The line that offers authentication; an empty one if none does.
    std::optional<std::string> ehlo(connection& server, std::string& reply)
    {
        if (!server.write_command("ehlo " + room_.greeting_name + "\r\n")) {
            return {};
        }
        std::vector<std::string> lines;
        if (!read_reply(server, reply, lines) || !contains(lines.back(), "250")) {
            return {};
        }
        std::string offer;
        for (std::size_t i = 0; i < lines.size() && offer.empty(); ++i) {
            offer = contains(lines[i], "AUTH") ? lines[i] : "";
        }
        return offer;
    }

    static bool log_in(connection& server, std::string& reply, account const& login,
                       std::string const& type, std::string const& offer)
    {
        bool const choose = contains(type, "auto");
        if (choose ? contains(offer, "CRAM-MD5") : contains(type, "cram-md5")) {
            return cram_md5(server, reply, login);
        }
        if (choose ? contains(offer, "LOGIN") : contains(type, "login")) {
            return command(server, reply, "AUTH LOGIN", {"334"}) &&
                   command(server, reply, model_encode(login.user, false), {"334"}) &&
                   command(server, reply, model_encode(login.password, false), {"235"});
        }
        std::string response = "^" + login.user + "^" + login.password;
        for (char& c : response) {
            c = c == '^' ? '\0' : c;
        }
        return command(server, reply, "AUTH PLAIN " + model_encode(response, false), {"235"});
    }

    static bool cram_md5(connection& server, std::string& reply, account const& login)
    {
        std::vector<std::string> lines;
        if (!server.write_command("AUTH CRAM-MD5\r\n") || !read_reply(server, reply, lines) ||
            !contains(lines.back(), "334")) {
            return false;
        }
        std::string const& last = lines.back();
        auto const         sent = model_decode(last.substr(last.find(' ') + 1));
        if (!sent) {
            return false;
        }
        std::string const challenge = sent->substr(0, sent->find('\0'));
        std::string const response =
            login.user + " " + lower_case_hex(hmac_md5(login.password, challenge));
        return command(server, reply, model_encode(response, false), {"235"});
    }

    bool mail(connection& server, std::string& reply)
    {
        if (!room_.message) {
            return false;
        }
        message m = message_of(*room_.message);
        auto const& [encoding, from, to, cc, subject, replyto, messageid] = m.header;
        if (!command(server, reply, "mail from: <" + replyto + ">", {"250"})) {
            return false;
        }
        std::string const recipients = cc.empty() ? to : to + "," + cc;
        if (recipients.empty()) {
            return false;
        }
        std::vector<std::string> named;
        for (std::string const& address : model_addresses(recipients)) {
            bool known = false;
            for (std::string const& earlier : named) {
                known = known || earlier == address;
            }
            if (known) {
                continue;
            }
            named.push_back(address);
            if (!command(server, reply, "rcpt to: <" + address + ">", {"250"})) {
                return false;
            }
        }
        if (!command(server, reply, "data", {"354", "250"})) {
            return false;
        }
        for (std::string const& piece : model_mail(m, room_.settings, room_.date)) {
            if (!server.write(piece)) {
                return false;
            }
        }
        return command(server, reply, "\r\n.", {"250"});
    }

    // Whether one of the codes is somewhere in the last line of the reply.
    static bool command(connection& server, std::string& reply, std::string const& line,
                        std::vector<std::string> const& codes)
    {
        return server.write_command(line + "\r\n") && reply_has(server, reply, codes);
    }

    static bool reply_has(connection& server, std::string& reply,
                          std::vector<std::string> const& codes)
    {
        std::vector<std::string> lines;
        if (!read_reply(server, reply, lines)) {
            return false;
        }
        bool found = false;
        for (std::string const& code : codes) {
            found = found || contains(lines.back(), code);
        }
        return found;
    }

    static bool read_reply(connection& server, std::string& reply, std::vector<std::string>& lines)
    {
        reply.clear();
        for (;;) {
            std::string line;
            if (!server.read_line(line)) {
                return false;
            }
            reply += line;
            lines.push_back(line);
            if (line.size() > place_after_code && line[place_after_code] == ' ') {
                return true;
            }
        }
    }

    // Both.

    std::optional<std::string> setting(std::string const& key) const
    {
        return model_setting(room_.settings, key);
    }

    // Whether a setting for TLS may be anywhere in the file, but in a comment: also behind a NUL,
    // and in and behind an overlong line.
    bool may_be_set(std::string const& key) const { return !whole_lines_with(key).empty(); }

    std::vector<std::string> whole_lines_with(std::string const& key) const
    {
        std::vector<std::string> found;
        std::istringstream       file(*room_.settings);
        for (std::string line; std::getline(file, line);) {
            if (line[0] != '#' && contains(line, key)) {
                found.push_back(line);
            }
        }
        return found;
    }

    // Its value, if all lines that may speak of it are copies of one that is written as it must be.
    // Behind an overlong line parts of it count as copies.
    std::optional<std::string> strict_setting(std::string const& key) const
    {
        bool        complete = false;
        auto const  readable = lines_of(*room_.settings, complete);
        std::string own;
        for (auto line = readable.rbegin(); line != readable.rend(); ++line) {
            own = belongs_to(*line, key) ? *line : own;
        }
        std::size_t const sign = own.find('=');
        if (own.find(key) != 0 || own.back() != '\r' || sign == own.npos ||
            own.find_first_not_of(" \t", key.size()) != sign ||
            contains(own, std::string(1, '\0'))) {
            return {};
        }
        for (std::string const& line : readable) {
            if (belongs_to(line, key) && line != own) {
                return {};
            }
        }
        for (std::string const& line : whole_lines_with(key)) {
            if (!contains(own, line)) {
                return {};
            }
        }
        return setting(key);
    }

    // Whether there is no session: TLS may be asked for, and there is no plug-in. A choice that is
    // clear is noticed when the server is connected.
    bool tls_refuses(std::string const& key, std::string const& host, std::string const& port)
    {
        auto const mode = strict_setting(key);
        if (mode == "no" || !may_be_set(key)) {
            return false;
        }
        if ((mode == "tls" || mode == "starttls") &&
            (!may_be_set("tls_ca_file") || strict_setting("tls_ca_file").value_or("")[0] == '/')) {
            connect(host, port);
        }
        return true;
    }

    std::optional<account> read_account(std::string const& user_key,
                                        std::string const& password_key) const
    {
        auto const user     = setting(user_key);
        auto const password = setting(password_key);
        if (!user || !password) {
            return {};
        }
        if (setting("passwd_raw").value_or("no") != "no") {
            return account{*user, *password};
        }
        auto const clear = password_of(*password);
        return clear ? std::optional<account>({*user, *clear}) : std::nullopt;
    }

    std::optional<connection> connect(std::string const& host, std::string const& port)
    {
        // An IPv4 address, in any of its forms, or one of the two hosts that are found.
        bool const      known   = host == server_name || host == client_name;
        char const*     its     = host == server_name ? server_address : client_address;
        in_addr_t const address = ::inet_addr(known ? its : host.c_str());
        if (address == INADDR_NONE) {
            return {};
        }
        server_record& record = outcome_.record;
        record.peers.push_back({address, static_cast<std::uint16_t>(number_in(port))});
        if (record.sent.size() == room_.servers.size()) {
            return {};
        }
        return connection(room_.servers[record.sent.size()], record);
    }

    send_room const& room_;
    send_outcome     outcome_;
};

}  // namespace

bool operator==(send_outcome const& a, send_outcome const& b)
{
    return a.result == b.result && a.reply == b.reply && a.record == b.record;
}

void PrintTo(send_outcome const& outcome, std::ostream* out)
{
    *out << outcome.result << ", reply " << testing::PrintToString(outcome.reply);
    for (played_peer const& peer : outcome.record.peers) {
        *out << "\n  connects to " << peer.address << ", port " << peer.port;
    }
    for (sent_strings const& sent : outcome.record.sent) {
        *out << "\n  sends";
        for (std::string const& bytes : sent) {
            *out << "\n    " << testing::PrintToString(bytes);
        }
    }
    for (std::int64_t const us : outcome.record.sleeps) {
        *out << "\n  sleeps " << us << " us";
    }
    *out << "\n  waits " << outcome.record.waits << " times for a server";
}

send_outcome model_send(send_room const& room, std::string const& reply)
{
    return model(room, reply).send();
}

send_outcome model_login(login_room const& room)
{
    send_room around;
    around.servers = room.servers;
    return model(around, "").log_in(room);
}

}  // namespace zelieml::test
