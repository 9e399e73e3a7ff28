#include "tests/support/transcript.h"

#include <algorithm>
#include <charconv>
#include <sstream>
#include <stdexcept>

#include "tools/mailserver/credentials.h"
#include "tools/mailserver/text.h"

namespace zelieml::test
{

namespace
{

using mailserver::base64_encode;
using mailserver::ends_with;
using mailserver::starts_with;
using mailserver::take_word;
using mailserver::visible;

int parse_number(std::string_view text, int base = 10)
{
    int               number = 0;
    char const* const end    = text.data() + text.size();
    auto const        read   = std::from_chars(text.data(), end, number, base);
    if (read.ec != std::errc() || read.ptr != end || number < 0) {
        throw std::invalid_argument("\"" + std::string(text) + "\" is not a number");
    }
    return number;
}

// The string with its escapes replaced by the bytes they mean.
std::string unescaped(std::string_view text)
{
    static std::string_view const letters = "rnt0\\";
    static std::string_view const meaning = {"\r\n\t\0\\", 5};
    std::string                   result;
    while (!text.empty()) {
        std::size_t const backslash = std::min(text.find('\\'), text.size());
        result += text.substr(0, backslash);
        text.remove_prefix(backslash);
        if (text.empty()) {
            break;
        }
        std::size_t const known = text.size() > 1 ? letters.find(text[1]) : letters.npos;
        if (known != letters.npos) {
            result += meaning[known];
            text.remove_prefix(2);
        } else if (starts_with(text, "\\x") && text.size() >= 4) {
            result += static_cast<char>(parse_number(text.substr(2, 2), 16));
            text.remove_prefix(4);
        } else {
            throw std::invalid_argument("unknown escape " + std::string(text.substr(0, 2)));
        }
    }
    return result;
}

using kind = statement::kind;

struct action {
    std::string_view name;
    kind             what;
    bool             takes_number;
};

action const server_actions[] = {
    {"repeat", kind::says, true},
    {"trickles", kind::trickles, true},
    {"delays", kind::delays, true},
    {"silent", kind::says, false},  // no text: says nothing
    {"half-closes", kind::half_closes, false},
    {"closes", kind::closes, false},
    {"resets", kind::resets, false},
};

action const client_actions[] = {
    {"any", kind::hears_line, false},
    {"data", kind::hears_mail, false},
    {"closes", kind::hears_close, false},
    {"connects", kind::connects, false},
};

// "(name)" or "(name number)", and what follows.
template <std::size_t Count>
statement parse_action(std::string_view text, action const (&known)[Count])
{
    std::size_t const end    = std::min(text.find(')'), text.size() - 1);
    std::string_view  inside = text.substr(1, end - 1);
    std::string_view  after  = text.substr(end + 1);
    std::string const name(take_word(inside));
    for (action const& a : known) {
        if (a.name != name || a.takes_number == inside.empty()) {
            continue;
        }
        statement result = {a.what};
        if (a.takes_number) {
            result.amount = parse_number(inside);
        }
        if (name == "any") {
            result.text = pattern("{any}");
        }
        if (name == "repeat") {
            take_word(after);
            result.text = pattern(after);
            result.text.append("\r\n");
        } else if (!after.empty()) {
            break;
        }
        return result;
    }
    throw std::invalid_argument("unknown action");
}

statement parse_server_line(std::string_view mark, std::string_view rest)
{
    if (mark == "S:" && starts_with(rest, "(")) {
        return parse_action(rest, server_actions);
    }
    statement result = {mark == "S+" ? kind::says_later : kind::says};
    if (mark == "S64:") {
        result.text.append(std::string(take_word(rest)) + " ");
        result.text.append(base64_encode(unescaped(rest)));
    } else {
        result.text = pattern(rest);
    }
    if (mark != "S-") {
        result.text.append("\r\n");
    }
    return result;
}

statement parse_client_line(std::string_view mark, std::string_view rest)
{
    if (mark == "C:" && starts_with(rest, "(")) {
        return parse_action(rest, client_actions);
    }
    statement result = {mark == "C-" ? kind::hears_bytes : kind::hears_line};
    if (mark == "C64:") {
        result.text.append(base64_encode(unescaped(rest)));
    } else {
        result.text = pattern(rest);
    }
    return result;
}

statement parse_line(std::string_view line)
{
    std::string_view const mark   = take_word(line);
    statement              result = {kind::connects};
    if (mark == "S:" || mark == "S-" || mark == "S+" || mark == "S64:") {
        result = parse_server_line(mark, line);
    } else if (mark == "C:" || mark == "C-" || mark == "C64:") {
        result = parse_client_line(mark, line);
    } else {
        throw std::invalid_argument("a line begins with S:, S-, S+, S64:, C:, C- or C64:");
    }
    if (result.text.has_any() && result.what != kind::hears_line) {
        throw std::invalid_argument("{any} is for C: lines");
    }
    return result;
}

bool ends_a_connection(statement const& s)
{
    return s.what == kind::closes || s.what == kind::resets;
}

bool hears(statement const& s)
{
    return s.what == kind::hears_line || s.what == kind::hears_bytes ||
           s.what == kind::hears_mail || s.what == kind::hears_close;
}

char const* const never_said = "what S+ held back is never said";

// Adds a statement to the connection that it belongs to.
void append(std::vector<conversation>& connections, statement const& next)
{
    conversation& current = connections.back();
    if (!current.empty() && ends_a_connection(current.back())) {
        throw std::invalid_argument("the connection is closed");
    }
    if (!current.empty() && current.back().what == kind::says_later && next.what != kind::says &&
        next.what != kind::says_later) {
        throw std::invalid_argument(never_said);
    }
    bool const client_is_gone = std::any_of(current.begin(), current.end(), [](statement const& s) {
        return s.what == kind::hears_close;
    });
    if (client_is_gone && hears(next)) {
        throw std::invalid_argument("the client has closed");
    }
    current.push_back(next);
}

// Makes sure that a connection has an end.
void complete(conversation& connection)
{
    std::string const where =
        connection.empty() ? "the end" : "the end, after " + connection.back().where;
    if (!connection.empty() && connection.back().what == kind::says_later) {
        throw std::invalid_argument("transcript, " + where + ": " + never_said);
    }
    for (statement const& s : connection) {
        if (ends_a_connection(s) || s.what == kind::hears_close) {
            return;
        }
    }
    connection.push_back({kind::hears_close, pattern(), 1, where});
}

// Adds the connections of one transcript.
void parse_transcript(std::string const& transcript, std::string const& name,
                      std::vector<conversation>& connections)
{
    std::istringstream in(transcript);
    std::string        line;
    bool               connected = false;
    for (int number = 1; std::getline(in, line); ++number) {
        line.erase(0, line.find_first_not_of(" \t"));
        if (line.empty() || line[0] == '#') {
            continue;
        }
        std::string const where = name + "line " + std::to_string(number);
        try {
            statement next = parse_line(line);
            next.where     = where;
            if (!connected || next.what == kind::connects) {
                connections.emplace_back();
                connected = true;
            }
            if (next.what != kind::connects) {
                append(connections, next);
            }
        } catch (std::invalid_argument const& e) {
            throw std::invalid_argument(("transcript, " + where + ", \"").append(line) +
                                        "\": " + e.what());
        }
    }
}

}  // namespace

pattern::pattern(std::string_view text)
{
    static std::string_view const base64 = "{base64:";
    while (!text.empty()) {
        std::size_t const brace = std::min(text.find('{', 1), text.size());
        if (starts_with(text, "{host}")) {
            parts_.push_back({part::kind::host, ""});
            text.remove_prefix(6);
        } else if (starts_with(text, "{any}")) {
            parts_.push_back({part::kind::any, ""});
            text.remove_prefix(5);
        } else if (starts_with(text, base64) && text.find('}') != text.npos) {
            std::size_t const end = text.find('}');
            append(base64_encode(unescaped(text.substr(base64.size(), end - base64.size()))));
            text.remove_prefix(end + 1);
        } else {
            append(unescaped(text.substr(0, brace)));
            text.remove_prefix(brace);
        }
    }
}

void pattern::append(std::string const& bytes)
{
    parts_.push_back({part::kind::literal, bytes});
}

bool pattern::has(part::kind what) const
{
    return std::any_of(parts_.begin(), parts_.end(), [=](part const& p) { return p.what == what; });
}

std::string pattern::bytes(std::string const& host) const
{
    std::string result;
    for (part const& p : parts_) {
        result += p.what == part::kind::host ? host : p.text;
    }
    return result;
}

std::string pattern::shown(std::string const& host) const
{
    std::string result;
    for (part const& p : parts_) {
        result += p.what == part::kind::any ? "{any}"
                                            : visible(p.what == part::kind::host ? host : p.text);
    }
    return result;
}

bool pattern::matches(std::string_view text, std::string const& host) const
{
    // The fixed texts before, between and after the wildcards. The first and the last stand at
    // the ends; each other one is best found as far to the left as possible.
    std::vector<std::string> fixed(1);
    for (part const& p : parts_) {
        if (p.what == part::kind::any) {
            fixed.emplace_back();
        } else {
            fixed.back() += p.what == part::kind::host ? host : p.text;
        }
    }
    if (fixed.size() == 1) {
        return text == fixed[0];
    }
    if (!starts_with(text, fixed.front())) {
        return false;
    }
    text.remove_prefix(fixed.front().size());
    if (!ends_with(text, fixed.back())) {
        return false;
    }
    text.remove_suffix(fixed.back().size());
    for (std::size_t i = 1; i + 1 < fixed.size(); ++i) {
        std::size_t const found = text.find(fixed[i]);
        if (found == text.npos) {
            return false;
        }
        text.remove_prefix(found + fixed[i].size());
    }
    return true;
}

std::string statement::shown(std::string const& host) const
{
    switch (what) {
    case kind::hears_line:
        return "C: " + text.shown(host);
    case kind::hears_bytes:
        return "C- " + text.shown(host);
    case kind::hears_mail:
        return "C: (data)";
    case kind::hears_close:
        return "C: (closes)";
    default:
        return "";
    }
}

std::vector<conversation> parse_transcripts(std::vector<std::string> const& transcripts)
{
    std::vector<conversation> connections;
    for (std::size_t i = 0; i < transcripts.size(); ++i) {
        std::string const name =
            transcripts.size() == 1 ? "" : "transcript " + std::to_string(i + 1) + ", ";
        parse_transcript(transcripts[i], name, connections);
    }
    for (conversation& connection : connections) {
        complete(connection);
    }
    return connections;
}

}  // namespace zelieml::test
