#include "tools/mailserver/pop_session.h"

#include <charconv>
#include <limits>

#include "tools/mailserver/credentials.h"
#include "tools/mailserver/text.h"

namespace zelieml::mailserver
{

namespace
{

constexpr auto all_lines = std::numeric_limits<std::size_t>::max();

bool parse_number(std::string_view text, std::size_t& number)
{
    char const* const end  = text.data() + text.size();
    auto const        read = std::from_chars(text.data(), end, number);
    return read.ec == std::errc() && read.ptr == end;
}

}  // namespace

std::string pop_lines(std::string_view text, std::size_t max_body_lines)
{
    std::string result;
    result.reserve(text.size() + text.size() / 32 + 16);
    bool        in_body = false;
    std::size_t lines   = 0;
    while (!text.empty() && !(in_body && lines == max_body_lines)) {
        std::string_view const line = without_line_end(take_line(text));
        if (in_body) {
            ++lines;
        }
        in_body = in_body || line.empty();
        if (starts_with(line, ".")) {
            result += '.';
        }
        result += line;
        result += "\r\n";
    }
    return result + ".\r\n";
}

struct pop_session::command {
    std::string_view verb;
    std::string_view step;
    void (pop_session::*obey)(std::string_view argument);
    enum class when {
        any,
        before_login,
        after_login,
    } allowed;
};

void pop_session::greet()
{
    if (settings().pop_apop) {
        stamp_ = settings().time_stamp.empty() ? fresh_time_stamp() : settings().time_stamp;
    }
    reply("+OK loopback mail server ready" + (stamp_.empty() ? "" : " " + stamp_));
}

void pop_session::obey(std::string const& verb, std::string_view argument)
{
    using when                      = command::when;
    static command const commands[] = {
        {"CAPA", "capa", &pop_session::capa, when::any},
        {"USER", "user", &pop_session::user, when::before_login},
        {"PASS", "pass", &pop_session::pass, when::before_login},
        {"APOP", "apop", &pop_session::apop, when::before_login},
        {"STAT", "stat", &pop_session::stat, when::after_login},
        {"LIST", "list", &pop_session::list, when::after_login},
        {"UIDL", "uidl", &pop_session::uidl, when::after_login},
        {"RETR", "retr", &pop_session::retr, when::after_login},
        {"TOP", "top", &pop_session::top, when::after_login},
        {"DELE", "dele", &pop_session::dele, when::after_login},
        {"RSET", "rset", &pop_session::rset, when::after_login},
        {"NOOP", "noop", &pop_session::noop, when::after_login},
        {"QUIT", "quit", &pop_session::quit, when::any},
    };
    for (command const& c : commands) {
        if (c.verb == verb) {
            if (!begin_step(c.step)) {
                return;
            }
            if (c.allowed != when::any && (c.allowed == when::after_login) != logged_in_) {
                reply(logged_in_ ? "-ERR logged in already" : "-ERR log in first");
                return;
            }
            (this->*c.obey)(argument);
            return;
        }
    }
    if (begin_step("unknown")) {
        reply("-ERR command not recognized");
    }
}

void pop_session::capa(std::string_view)
{
    reply_lines(std::string("+OK what there is\r\nTOP\r\nUIDL\r\nPIPELINING\r\n") +
                (settings().pop_user ? "USER\r\n" : "") + ".\r\n");
}

void pop_session::user(std::string_view argument)
{
    if (!settings().pop_user) {
        reply("-ERR not offered here, use APOP");
    } else if (argument.empty()) {
        reply("-ERR say who you are: USER name");
    } else {
        // Whether the name is known shows with the password only.
        name_ = argument;
        reply("+OK and the password");
    }
}

void pop_session::pass(std::string_view argument)
{
    if (name_.empty()) {
        reply("-ERR give USER first");
        return;
    }
    std::string const name = std::exchange(name_, "");
    log_in_if(check_password(settings().users, name, argument).has_value());
}

void pop_session::apop(std::string_view argument)
{
    if (stamp_.empty()) {
        reply("-ERR not offered here");
        return;
    }
    std::size_t const blank = argument.rfind(' ');
    log_in_if(
        blank != argument.npos &&
        check_apop(settings().users, stamp_, argument.substr(0, blank), argument.substr(blank + 1))
            .has_value());
}

void pop_session::log_in_if(bool proved)
{
    if (!proved) {
        reply("-ERR user name or password wrong");
        return;
    }
    logged_in_ = true;
    for (mail_store::entry const& entry : shared().store->list()) {
        mails_.push_back({entry, false});
    }
    reply("+OK welcome, " + summary());
}

std::string pop_session::summary() const
{
    std::size_t count = 0;
    std::size_t bytes = 0;
    for (listed_mail const& m : mails_) {
        if (!m.deleted) {
            ++count;
            bytes += m.entry.bytes;
        }
    }
    return std::to_string(count) + " " + std::to_string(bytes);
}

void pop_session::stat(std::string_view)
{
    reply("+OK " + summary());
}

pop_session::listed_mail* pop_session::find(std::string_view number)
{
    std::size_t n = 0;
    if (!parse_number(trimmed(number), n) || n < 1 || n > mails_.size() || mails_[n - 1].deleted) {
        reply("-ERR no such message");
        return nullptr;
    }
    return &mails_[n - 1];
}

template <class Describe>
void pop_session::answer_listing(std::string_view argument, Describe describe)
{
    if (!trimmed(argument).empty()) {
        if (listed_mail const* const m = find(argument)) {
            reply("+OK " + std::to_string(m - mails_.data() + 1) + " " + describe(m->entry));
        }
        return;
    }
    std::string answer = "+OK\r\n";
    for (listed_mail const& m : mails_) {
        if (!m.deleted) {
            answer += std::to_string(&m - mails_.data() + 1) + " " + describe(m.entry) + "\r\n";
        }
    }
    reply_lines(answer + ".\r\n");
}

void pop_session::list(std::string_view argument)
{
    answer_listing(argument, [](mail_store::entry const& e) { return std::to_string(e.bytes); });
}

void pop_session::uidl(std::string_view argument)
{
    answer_listing(argument, [](mail_store::entry const& e) { return e.id; });
}

void pop_session::retr(std::string_view argument)
{
    send_mail(argument, all_lines);
}

void pop_session::top(std::string_view argument)
{
    std::string_view const number = take_word(argument);
    std::size_t            lines  = 0;
    if (!parse_number(trimmed(argument), lines)) {
        reply("-ERR syntax: TOP message lines");
        return;
    }
    send_mail(number, lines);
}

void pop_session::send_mail(std::string_view number, std::size_t max_body_lines)
{
    listed_mail const* const m = find(number);
    if (m == nullptr) {
        return;
    }
    auto const text = shared().store->read(m->entry.id);
    if (!text) {
        // Another session, or another program, has removed it.
        reply("-ERR no such message any more");
        return;
    }
    reply_lines("+OK " + std::to_string(text->size()) + " octets\r\n" +
                    pop_lines(*text, max_body_lines),
                true);
}

void pop_session::dele(std::string_view argument)
{
    if (listed_mail* const m = find(argument)) {
        m->deleted = true;
        reply("+OK deleted");
    }
}

void pop_session::rset(std::string_view)
{
    for (listed_mail& m : mails_) {
        m.deleted = false;
    }
    reply("+OK " + summary());
}

void pop_session::noop(std::string_view)
{
    reply("+OK");
}

void pop_session::quit(std::string_view)
{
    bool removed = true;
    for (listed_mail const& m : mails_) {
        if (m.deleted) {
            removed = shared().store->remove(m.entry.id) && removed;
        }
    }
    reply(removed ? "+OK goodbye" : "-ERR some deleted messages not removed");
    close();
}

}  // namespace zelieml::mailserver
