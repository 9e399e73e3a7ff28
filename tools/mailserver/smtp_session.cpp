#include "tools/mailserver/smtp_session.h"

#include <algorithm>
#include <cctype>
#include <stdexcept>

#include "tools/mailserver/credentials.h"
#include "tools/mailserver/text.h"

namespace zelieml::mailserver
{

namespace
{

constexpr std::size_t max_recipients = 1000;

// "FROM:<address> parameters", the keyword in upper or lower case. False when it is not of that
// form; the address is then worth nothing.
bool parse_path(std::string_view argument, std::string_view keyword, std::string& address,
                std::string_view& parameters)
{
    argument = trimmed(argument);
    if (upper(argument.substr(0, keyword.size())) != keyword) {
        return false;
    }
    argument = trimmed(argument.substr(keyword.size()));
    if (argument.empty() || argument[0] != '<') {
        return false;
    }
    bool        quoted = false;
    std::size_t end    = 1;
    for (; end < argument.size() && (quoted || argument[end] != '>'); ++end) {
        auto const byte = static_cast<unsigned char>(argument[end]);
        if (byte == '"') {
            quoted = !quoted;
        } else if (byte < ' ' || byte == 0x7F || (byte == ' ' && !quoted)) {
            return false;
        } else if (byte == '\\' && quoted) {
            ++end;
        }
    }
    if (end >= argument.size() || (end + 1 < argument.size() && argument[end + 1] != ' ')) {
        return false;
    }
    address    = argument.substr(1, end - 1);
    parameters = trimmed(argument.substr(end + 1));
    return true;
}

// The value of a SIZE parameter (RFC 1870); one with too many digits is larger than any mail.
bool exceeds(std::string_view digits, std::size_t limit)
{
    std::size_t const zeros = std::min(digits.find_first_not_of('0'), digits.size());
    digits.remove_prefix(zeros);
    std::string const bound = std::to_string(limit);
    return digits.size() != bound.size() ? digits.size() > bound.size() : digits > bound;
}

bool all_digits(std::string_view text)
{
    return !text.empty() &&
           std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

}  // namespace

struct smtp_session::command {
    std::string_view verb;
    std::string_view step;
    void (smtp_session::*obey)(std::string_view argument);
    bool takes_argument;
};

void smtp_session::greet()
{
    reply("220 localhost ESMTP loopback mail server ready");
}

void smtp_session::obey(std::string const& verb, std::string_view argument)
{
    static command const commands[] = {
        {"HELO", "helo", &smtp_session::helo, true},
        {"EHLO", "ehlo", &smtp_session::ehlo, true},
        {"AUTH", "auth", &smtp_session::auth, true},
        {"MAIL", "mail", &smtp_session::mail_from, true},
        {"RCPT", "rcpt", &smtp_session::rcpt_to, true},
        {"DATA", "data", &smtp_session::data, false},
        {"RSET", "rset", &smtp_session::rset, false},
        {"NOOP", "noop", &smtp_session::noop, true},
        {"VRFY", "vrfy", &smtp_session::vrfy, true},
        {"HELP", "help", &smtp_session::help, true},
        {"QUIT", "quit", &smtp_session::quit, false},
    };
    for (command const& c : commands) {
        if (c.verb == verb) {
            if (!begin_step(c.step)) {
                return;
            }
            if (!c.takes_argument && !trimmed(argument).empty()) {
                reply("501 5.5.4 " + verb + " takes no argument");
                return;
            }
            (this->*c.obey)(argument);
            return;
        }
    }
    if (begin_step("unknown")) {
        reply("500 5.5.1 command not recognized");
    }
}

void smtp_session::begin_session(std::string_view client)
{
    client_     = client;
    has_sender_ = false;
}

void smtp_session::helo(std::string_view argument)
{
    if (trimmed(argument).empty()) {
        reply("501 5.5.4 say who you are: HELO name");
        return;
    }
    begin_session(trimmed(argument));
    extended_ = false;
    reply("250 localhost");
}

void smtp_session::ehlo(std::string_view argument)
{
    if (trimmed(argument).empty()) {
        reply("501 5.5.4 say who you are: EHLO name");
        return;
    }
    begin_session(trimmed(argument));
    extended_           = true;
    std::string answer  = "250-localhost\r\n250-PIPELINING\r\n250-8BITMIME\r\n";
    std::string offered = offered_mechanisms();
    if (!offered.empty()) {
        answer += "250-AUTH" + offered + "\r\n";
    }
    answer += "250-ENHANCEDSTATUSCODES\r\n250 SIZE " +
              std::to_string(shared().settings.max_mail_bytes) + "\r\n";
    reply_lines(answer);
}

bool smtp_session::offers(std::string_view mechanism) const
{
    auto const& offered = settings().smtp_mechanisms;
    return std::find(offered.begin(), offered.end(), mechanism) != offered.end();
}

std::string smtp_session::offered_mechanisms() const
{
    std::string result;
    for (std::string const& mechanism : settings().smtp_mechanisms) {
        result += " " + mechanism;
    }
    return result;
}

void smtp_session::auth(std::string_view argument)
{
    std::string const mechanism = upper(take_word(argument));
    std::string_view  rest      = trimmed(argument);
    if (settings().smtp_mechanisms.empty()) {
        reply("502 5.5.1 authentication is not offered here");
        return;
    }
    if (!extended_ || !user_.empty() || has_sender_) {
        reply("503 5.5.1 not now");
        return;
    }
    if (!offers(mechanism)) {
        reply("504 5.5.4 mechanism not offered");
        return;
    }
    std::optional<std::string> initial_response;
    if (!rest.empty()) {
        // "=" is how an empty one is written.
        initial_response = rest == "=" ? "" : base64_decode(rest);
        if (!initial_response || mechanism == "CRAM-MD5") {
            reply("501 5.5.2 cannot make sense of the initial response");
            return;
        }
    }
    if (mechanism == "CRAM-MD5") {
        auth_cram_md5();
    } else if (mechanism == "LOGIN") {
        auth_login(initial_response);
    } else {
        auth_plain(initial_response);
    }
}

void smtp_session::auth_cram_md5()
{
    std::string const& fixed     = settings().time_stamp;
    std::string const  challenge = fixed.empty() ? fresh_time_stamp() : fixed;
    if (auto const answer = ask(challenge)) {
        finish_auth(check_cram_md5(settings().users, challenge, *answer));
    }
}

void smtp_session::auth_login(std::optional<std::string> const& initial_response)
{
    auto const user = initial_response ? initial_response : ask("Username:");
    if (!user) {
        return;
    }
    if (auto const password = ask("Password:")) {
        finish_auth(check_password(settings().users, *user, *password));
    }
}

void smtp_session::auth_plain(std::optional<std::string> const& initial_response)
{
    if (auto const message = initial_response ? initial_response : ask("")) {
        finish_auth(check_plain(settings().users, *message));
    }
}

std::optional<std::string> smtp_session::ask(std::string_view text)
{
    reply("334 " + base64_encode(text));
    std::string line;
    if (over() || !hear(line) || !begin_step("answer")) {
        return std::nullopt;
    }
    if (line == "*") {
        reply("501 5.0.0 authentication cancelled");
        return std::nullopt;
    }
    auto answer = base64_decode(line);
    if (!answer) {
        reply("501 5.5.2 this is not Base64");
    }
    return answer;
}

void smtp_session::finish_auth(std::optional<std::string> const& user)
{
    if (user) {
        user_ = *user;
        reply("235 2.7.0 welcome");
    } else {
        reply("535 5.7.8 user name or password wrong");
    }
}

void smtp_session::mail_from(std::string_view argument)
{
    mail             next;
    std::string_view parameters;
    if (client_.empty()) {
        reply("503 5.5.1 say HELO or EHLO first");
        return;
    }
    if (settings().smtp_login_required && user_.empty()) {
        reply("530 5.7.0 authentication required");
        return;
    }
    if (has_sender_) {
        reply("503 5.5.1 there is a sender already");
        return;
    }
    if (!parse_path(argument, "FROM:", next.sender, parameters)) {
        reply("501 5.5.4 syntax: MAIL FROM:<address>");
        return;
    }
    while (!parameters.empty()) {
        std::string const parameter = upper(take_word(parameters));
        if (starts_with(parameter, "SIZE=") && all_digits(parameter.substr(5))) {
            if (exceeds(std::string_view(parameter).substr(5), settings().max_mail_bytes)) {
                reply("552 5.3.4 the mail is too long");
                return;
            }
        } else if (parameter != "BODY=7BIT" && parameter != "BODY=8BITMIME" &&
                   !starts_with(parameter, "AUTH=") && !parameter.empty()) {
            reply("555 5.5.4 parameter not recognized");
            return;
        }
    }
    has_sender_ = true;
    mail_       = next;
    mail_.user  = user_;
    reply("250 2.1.0 sender ok");
}

void smtp_session::rcpt_to(std::string_view argument)
{
    std::string      address;
    std::string_view parameters;
    if (!has_sender_) {
        reply("503 5.5.1 give the sender first");
        return;
    }
    if (!parse_path(argument, "TO:", address, parameters)) {
        reply("501 5.5.4 syntax: RCPT TO:<address>");
        return;
    }
    if (address.empty()) {
        reply("501 5.1.3 a recipient needs an address");
        return;
    }
    if (!parameters.empty()) {
        reply("555 5.5.4 parameter not recognized");
        return;
    }
    if (mail_.recipients.size() >= max_recipients) {
        reply("452 4.5.3 too many recipients");
        return;
    }
    auto const& rejected = settings().rejected_recipients;
    if (std::any_of(rejected.begin(), rejected.end(),
                    [&](std::string const& r) { return upper(r) == upper(address); })) {
        reply("550 5.1.1 no such user here");
        return;
    }
    mail_.recipients.push_back(address);
    reply("250 2.1.5 recipient ok");
}

void smtp_session::data(std::string_view)
{
    if (!has_sender_ || mail_.recipients.empty()) {
        reply("503 5.5.1 give the sender and a recipient first");
        return;
    }
    reply("354 end the text with a line that is a single dot");
    bool too_long = false;
    if (over() || !hear_text(mail_.text, too_long)) {
        return;
    }
    has_sender_ = false;
    if (!begin_step("text")) {
        return;
    }
    if (too_long) {
        reply("552 5.3.4 the mail is too long");
        return;
    }
    try {
        shared().deliver(mail_);
    } catch (std::runtime_error const&) {
        reply("452 4.3.1 cannot keep the mail");
        return;
    }
    reply("250 2.0.0 mail kept");
}

void smtp_session::rset(std::string_view)
{
    has_sender_ = false;
    reply("250 2.0.0 forgotten");
}

void smtp_session::noop(std::string_view)
{
    reply("250 2.0.0 ok");
}

void smtp_session::vrfy(std::string_view)
{
    reply("252 2.5.0 send a mail and see");
}

void smtp_session::help(std::string_view)
{
    reply("214 2.0.0 HELO EHLO AUTH MAIL RCPT DATA RSET NOOP VRFY HELP QUIT");
}

void smtp_session::quit(std::string_view)
{
    reply("221 2.0.0 goodbye");
    close();
}

}  // namespace zelieml::mailserver
