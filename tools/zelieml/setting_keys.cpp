// setting_keys.cpp - the keys of the settings file (docs/FORMATS.md)

#include "tools/zelieml/setting_keys.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <numeric>
#include <sysexits.h>

#include "tools/zelieml/failure.h"

namespace zelieml::program
{

namespace
{

constexpr char        digits[]     = "0123456789";
constexpr std::size_t most_edits   = 3;  // of a name that may be meant
constexpr std::size_t longest_name = 40;

setting_key text(char const* name, char const* help, char const* missing)
{
    return {name, setting_kind::text, help, missing};
}

setting_key host(char const* name, char const* help, char const* missing)
{
    return {name, setting_kind::host, help, missing};
}

setting_key path(char const* name, char const* help, char const* missing)
{
    return {name, setting_kind::path, help, missing};
}

setting_key number(char const* name, long low, long high, char const* help, char const* missing)
{
    return {name, setting_kind::number, help, missing, low, high};
}

setting_key one_of(char const* name, std::vector<std::string> choices, char const* help,
                   char const* missing)
{
    return {name, setting_kind::one_of, help, missing, 0, 0, std::move(choices)};
}

setting_key password(char const* name, char const* help, char const* missing)
{
    return {name, setting_kind::password, help, missing};
}

std::vector<setting_key> all_keys()
{
    constexpr long longest_wait = std::numeric_limits<int>::max();
    return {
        host("smtp_server", "the mail server", "nothing is sent"),
        number("smtp_port", 1, 65535, "its port, usually 25 or 587", "nothing is sent"),
        one_of("smtp_auth", {"yes", "no"}, "log in to the mail server", "no login"),
        one_of("smtp_auth_type", {"auto", "cram-md5", "login", "plain"},
               "how to log in; auto: as the server offers", "auto"),
        text("smtp_account", "the account at the mail server", "a login fails"),
        password("smtp_passwd", "its password", "a login fails"),
        one_of("pop_before_smtp", {"yes", "no"}, "log in to the POP3 server first",
               "no POP3 login"),
        host("pop_server", "the POP3 server", "a POP3 login fails"),
        number("pop_port", 1, 65535, "its port, usually 110", "a POP3 login fails"),
        text("pop_account", "the account at the POP3 server", "a POP3 login fails"),
        password("pop_passwd", "its password", "a POP3 login fails"),
        one_of("pop_auth_type", {"pop", "apop"}, "how to log in; pop: USER and PASS", "pop"),
        number("pop_wait_time", 0, longest_wait, "milliseconds from the POP3 login to the mail",
               "0"),
        one_of("passwd_raw", {"yes", "no"}, "store the passwords in clear text", "no"),
        one_of("subject_use_encoding", {"yes", "no"}, "send the subject as an encoded word", "yes"),
        one_of("smtp_tls", {"no", "starttls", "tls"},
               "TLS with it; tls: from the first byte, port 465", "no TLS"),
        one_of("pop_tls", {"no", "starttls", "tls"}, "the same for the POP3 server; tls: port 995",
               "no TLS"),
        path("tls_ca_file", "a PEM file with the authorities to trust",
             "those that the system trusts"),
    };
}

// The number of characters to insert, remove or replace to make the one the other.
std::size_t distance(std::string const& one, std::string const& other)
{
    std::vector<std::size_t> row(other.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (char const c : one) {
        std::size_t diagonal = row[0]++;
        for (std::size_t i = 0; i < other.size(); ++i) {
            std::size_t const replaced = diagonal + (c == other[i] ? 0 : 1);
            diagonal                   = row[i + 1];
            row[i + 1]                 = std::min(replaced, std::min(diagonal, row[i]) + 1);
        }
    }
    return row.back();
}

// The key that may be meant, or an empty string.
std::string nearest(std::string name)
{
    std::string found;
    if (name.size() > longest_name) {
        return found;
    }
    std::transform(name.begin(), name.end(), name.begin(), [](char c) {
        return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c == '-' ? '_' : c;
    });
    std::size_t least = most_edits + 1;
    for (setting_key const& key : setting_keys()) {
        std::size_t const edits = distance(name, key.name);
        if (edits < least) {
            least = edits;
            found = key.name;
        }
    }
    return found;
}

bool is_blank(char c)
{
    return c == ' ' || c == '\t';
}

bool is_control(char c)
{
    return (c >= 0 && c < ' ') || c == '\x7f';
}

// Whether a part of an address begins with a 0, which makes it octal.
bool has_octal_part(std::string const& value)
{
    if (value.find_first_not_of("0123456789.") != value.npos) {
        return false;
    }
    for (std::size_t i = 0; i + 1 < value.size(); ++i) {
        bool const begins = i == 0 || value[i - 1] == '.';
        if (begins && value[i] == '0' && value[i + 1] != '.') {
            return true;
        }
    }
    return false;
}

bool is_number(std::string const& value, long low, long high)
{
    constexpr std::size_t most_digits = 10;
    if (value.empty() || value.size() > most_digits ||
        value.find_first_not_of(digits) != value.npos) {
        return false;
    }
    long long const is = std::stoll(value);
    return is >= low && is <= high;
}

// What is wrong with a text, and what to do; or null.
char const* fault_of_text(std::string const& value)
{
    if (value.empty()) {
        return "is empty: give one";
    }
    if (is_blank(value.front()) || is_blank(value.back())) {
        return "has a blank at its beginning or end: leave it away";
    }
    return std::any_of(value.begin(), value.end(), is_control)
               ? "has a control character in it: leave it away"
               : nullptr;
}

char const* fault_of_host(std::string const& value)
{
    if (value.find_first_of(":/@= ") != value.npos) {
        return "is no host name or IPv4 address: write one alone, without port or scheme";
    }
    if (has_octal_part(value)) {
        return "has a number with a leading 0, which is octal: leave the 0 away";
    }
    return fault_of_text(value);
}

char const* fault_of_path(std::string const& value)
{
    return !value.empty() && value.front() != '/' ? "is no full path: begin it with \"/\""
                                                  : fault_of_text(value);
}

bool is_allowed(setting_key const& key, std::string const& value)
{
    return key.kind == setting_kind::number
               ? is_number(value, key.low, key.high)
               : std::find(key.choices.begin(), key.choices.end(), value) != key.choices.end();
}

}  // namespace

std::vector<setting_key> const& setting_keys()
{
    static std::vector<setting_key> const keys = all_keys();
    return keys;
}

setting_key const* find_setting(std::string const& name)
{
    auto const& keys  = setting_keys();
    auto const  found = std::find_if(keys.begin(), keys.end(),
                                     [&](setting_key const& key) { return key.name == name; });
    return found != keys.end() ? &*found : nullptr;
}

setting_key const& known_setting(std::string const& name)
{
    setting_key const* const key = find_setting(name);
    if (key == nullptr) {
        std::string const meant = nearest(name);
        throw failure(EX_USAGE, "there is no such key: " +
                                    (meant.empty() ? "'zelieml settings set --help' names all"
                                                   : "is " + meant + " meant?"));
    }
    return *key;
}

std::string values_of(setting_key const& key)
{
    std::string all;
    switch (key.kind) {
    case setting_kind::text:
        return "TEXT";
    case setting_kind::host:
        return "HOST";
    case setting_kind::path:
        return "PATH";
    case setting_kind::password:
        return "asked for";
    case setting_kind::number:
        return std::to_string(key.low) + " to " + std::to_string(key.high);
    case setting_kind::one_of:
        for (std::size_t i = 0; i < key.choices.size(); ++i) {
            all += (i == 0 ? "" : i + 1 < key.choices.size() ? ", " : " or ") + key.choices[i];
        }
        break;
    }
    return all;
}

std::string fault_of(setting_key const& key, std::string const& value)
{
    std::string const thing = "this value of " + key.name + " ";
    if (key.kind == setting_kind::number || key.kind == setting_kind::one_of) {
        return is_allowed(key, value) ? "" : thing + "is not allowed: write " + values_of(key);
    }
    char const* const fault = key.kind == setting_kind::host   ? fault_of_host(value)
                              : key.kind == setting_kind::path ? fault_of_path(value)
                                                               : fault_of_text(value);
    if (fault != nullptr) {
        return thing + fault;
    }
    return value.size() <= longest_value(key.name)
               ? ""
               : thing + "is longer than " + std::to_string(longest_value(key.name)) +
                     " bytes: choose a shorter one";
}

std::size_t longest_value(std::string const& name)
{
    constexpr std::size_t longest_line = 1022;
    return longest_line - name.size() - std::strlen(" = ");
}

}  // namespace zelieml::program
