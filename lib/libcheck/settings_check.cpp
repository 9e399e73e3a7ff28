// settings_check.cpp - what would go wrong with a settings file
//
// docs/CHECKS.md lists the findings, docs/FORMATS.md the keys and their values.

#include "libcheck/settings_check.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <sys/stat.h>

#include "libconf/settings_lines.h"
#include "support/ascii.h"
#include "support/no_cancellation.h"
#include "support/unique_fd.h"

namespace zelieml
{

namespace
{

enum class value_kind : char {
    text,
    host,
    port,
    milliseconds,
    yes,
    passwd_raw,
    passwd,
    smtp_mechanism,
    pop_mechanism,
    tls,
    path
};

enum class needed : char {
    never,
    always,
    for_login,
    for_pop
};

constexpr std::size_t longest_key = sizeof "subject_use_encoding";  // the NUL included

struct known_key {
    char       name[longest_key];
    value_kind kind;
    needed     when;
};

enum {
    smtp_port       = 1,
    smtp_auth       = 2,
    pop_before_smtp = 6,
    pop_port        = 8,
    passwd_raw      = 13,
    smtp_tls        = 15,
    pop_tls         = 16,
    tls_ca_file     = 17
};

constexpr known_key known_keys[] = {
    {"smtp_server", value_kind::host, needed::always},
    {"smtp_port", value_kind::port, needed::always},
    {"smtp_auth", value_kind::yes, needed::never},
    {"smtp_auth_type", value_kind::smtp_mechanism, needed::never},
    {"smtp_account", value_kind::text, needed::for_login},
    {"smtp_passwd", value_kind::passwd, needed::for_login},
    {"pop_before_smtp", value_kind::yes, needed::never},
    {"pop_server", value_kind::host, needed::for_pop},
    {"pop_port", value_kind::port, needed::for_pop},
    {"pop_account", value_kind::text, needed::for_pop},
    {"pop_passwd", value_kind::passwd, needed::for_pop},
    {"pop_auth_type", value_kind::pop_mechanism, needed::never},
    {"pop_wait_time", value_kind::milliseconds, needed::never},
    {"passwd_raw", value_kind::passwd_raw, needed::never},
    {"subject_use_encoding", value_kind::yes, needed::never},
    {"smtp_tls", value_kind::tls, needed::never},
    {"pop_tls", value_kind::tls, needed::never},
    {"tls_ca_file", value_kind::path, needed::never},
};
constexpr std::size_t keys = sizeof known_keys / sizeof *known_keys;

// What a key is read as.
struct known_setting {
    int  line                  = 0;      // the first that contains the key; 0: none
    bool own                   = false;  // whether the key of that line is this one
    bool told                  = false;  // that the line is not what the key should be read from
    bool read                  = false;  // whether there is a value
    char value[line_limit + 1] = {};
    char text[line_limit + 1]  = {};  // of the line
};

// Keys of which no other line may say anything: a send that misunderstood them would go in clear.
bool is_strict(std::size_t key)
{
    return known_keys[key].kind == value_kind::tls || known_keys[key].kind == value_kind::path;
}

// A part of a line.
struct part {
    char const* text;
    std::size_t size;
};

bool is_blank(char c)
{
    return c == ' ' || c == '\t' || c == '\r';
}

// Without the blanks around it.
part trimmed(char const* text, std::size_t size)
{
    while (size > 0 && is_blank(text[size - 1])) {
        --size;
    }
    while (size > 0 && is_blank(*text)) {
        ++text;
        --size;
    }
    return {text, size};
}

// Whether a text is a word, but for blanks around it and the case of its letters.
bool looks_like(char const* text, char const* word)
{
    part const value = trimmed(text, std::strlen(text));
    return equal_ignoring_case({value.text, value.size}, word);
}

bool looks_like_no(char const* value)
{
    static constexpr char words[][6] = {"", "no", "off", "false", "0", "n"};
    for (char const* const word : words) {
        if (looks_like(value, word)) {
            return true;
        }
    }
    return false;
}

// Whether a value is a number from low to high and nothing else but blanks at its end.
bool is_number(char const* value, long low, long high)
{
    part const      digits = trimmed(value, std::strlen(value));
    long long const number = std::strtoll(value, nullptr, 10);
    return digits.size > 0 && std::strspn(value, "0123456789") == digits.size && number >= low &&
           number <= high;
}

bool is_stored_passwd(char const* value)
{
    std::size_t const size = std::strlen(value);
    return size % 2 == 0 && std::strspn(value, "0123456789ABCDEFabcdef") == size;
}

// What somebody who does not know of keys that contain others takes for the key of a line.
part key_of(char const* line)
{
    return trimmed(line, std::strcspn(line, "="));
}

std::size_t index_of(part const& key)
{
    std::size_t i = 0;
    while (i < keys && (std::strlen(known_keys[i].name) != key.size ||
                        std::memcmp(known_keys[i].name, key.text, key.size) != 0)) {
        ++i;
    }
    return i;
}

// The number of characters to insert, remove or replace to make the one the other.
unsigned distance(part const& key, char const* known)
{
    unsigned row[longest_key];
    for (unsigned i = 0; i < longest_key; ++i) {
        row[i] = i;
    }
    for (std::size_t k = 0; k < key.size; ++k) {
        unsigned diagonal = row[0]++;
        for (unsigned i = 0; known[i] != '\0'; ++i) {
            unsigned const replaced = diagonal + (ascii_lower(key.text[k]) == known[i] ? 0 : 1);
            diagonal                = row[i + 1];
            row[i + 1]              = std::min(replaced, std::min(diagonal, row[i]) + 1);
        }
    }
    return row[std::strlen(known)];
}

// The known key that is most likely meant, or null.
char const* nearest(part const& key)
{
    char const* found = nullptr;
    unsigned    most  = 3;  // characters
    if (key.size >= longest_key - 1 + most) {
        return nullptr;  // at once: a file may have many long lines
    }
    for (known_key const& known : known_keys) {
        unsigned const d = distance(key, known.name);
        if (d < most) {
            most  = d;
            found = known.name;
        }
    }
    return found;
}

class settings_checker
{
public:
    settings_checker(finding_proc proc, void* user) : found_(proc, user) {}

    eml_severity check(char const* path)
    {
        unique_fd const file = open_settings(path);
        line_reader     in(file.get());
        auto            got = file ? in.next() : line_reader::result::failure;
        for (; got == line_reader::result::line; got = in.next()) {
            ++number_;
            check_line(in.text(), in.size());
        }
        if (got == line_reader::result::failure) {
            found_.at(0, "");
            found_.add(eml_severity_error,
                       "the file is missing, cannot be read, or is no regular file");
            return found_.worst();
        }
        bool const is_cut = got == line_reader::result::overlong;
        if (is_cut) {
            found_.at(number_ + 1, "");
            found_.add(
                eml_severity_error,
                "it is longer than 1023 bytes, and hides all lines from here on: shorten it");
        }
        check_set();
        check_port(smtp_port, smtp_tls, "465", "25", "587");
        check_port(pop_port, pop_tls, "995", "110", "110");
        if (!is_cut) {
            check_what_goes_in_clear();
        }
        check_passwords(file.get());
        return found_.worst();
    }

private:
    void check_line(char const* line, std::size_t size)
    {
        if (is_comment(line) || std::strspn(line, " \t\r") == size) {
            return;
        }
        part const        key    = key_of(line);
        std::size_t const own    = index_of(key);
        char const* const value  = std::strchr(line, '=');
        bool const        cut    = std::strlen(line) < size;
        bool              counts = false;
        for (std::size_t i = 0; i < keys; ++i) {
            if (is_line_of(line, known_keys[i].name)) {
                counts = take(i, line, i == own) || counts;
            }
        }
        found_.at(number_, own < keys ? known_keys[own].name : "");
        if (cut) {
            found_.add(eml_severity_error, "a NUL ends it: remove that");
        }
        if (value == nullptr) {
            found_.add(counts ? eml_severity_error : eml_severity_warning,
                       "it has no \"=\": write \"key = value\", or \"#\" before a comment");
            return;
        }
        if (own == keys) {
            char const* const meant = nearest(key);
            found_.add(eml_severity_warning,
                       meant != nullptr ? "the library uses no such key: is % meant?"
                                        : "the library uses no such key: correct or remove it",
                       meant);
        }
        check_end(value + 1 + std::strspn(value + 1, " \t"), cut);
        if (own < keys && settings_[own].line == number_) {
            check_value(own, settings_[own].value);
        }
    }

    // Returns whether the key is read from the line.
    bool take(std::size_t key, char const* line, bool own)
    {
        known_setting& setting    = settings_[key];
        bool const     is_foreign = is_strict(key) && !is_own_line_of(line, known_keys[key].name);
        if (is_foreign) {
            found_.at(number_, known_keys[key].name);
            found_.add(eml_severity_error,
                       "no connection is made while a line contains this key and does not begin "
                       "with it and \"=\": change that");
        }
        if (setting.line == 0) {
            unsigned int length = sizeof setting.value;
            setting.line        = number_;
            setting.own         = own;
            setting.read        = get_val(line, setting.value, &length) == 0;
            setting.told        = !setting.read || is_foreign;
            std::memcpy(setting.text, line, std::strlen(line) + 1);
            return true;
        }
        if (is_foreign) {
            return false;
        }
        if (is_strict(key) && std::strcmp(setting.text, line) != 0) {
            found_.at(number_, known_keys[key].name);
            found_.add(eml_severity_error,
                       "no connection is made while line % contains this key and differs: remove "
                       "one of the two",
                       static_cast<std::size_t>(setting.line));
        } else if (own) {
            found_.at(number_, known_keys[key].name);
            found_.add(setting.own ? eml_severity_warning : eml_severity_error,
                       setting.own
                           ? "line % counts for this key: remove one of the two"
                           : "line % contains this key and counts for it: move that line down",
                       static_cast<std::size_t>(setting.line));
            setting.told = setting.told || !setting.own;
        }
        return false;
    }

    // value  up to the end of the line
    void check_end(char const* value, bool cut)
    {
        std::size_t const size = std::strlen(value);
        if (size == 0) {
            return;
        }
        if (value[size - 1] != '\r' && !cut) {
            found_.add(
                eml_severity_error,
                "its CR is missing, so the value loses its last character: end the line in CR LF");
        }
        if (size > 1 && is_blank(value[size - 2])) {
            found_.add(eml_severity_warning,
                       "the blanks at the end belong to the value: remove them");
        }
    }

    void check_value(std::size_t key, char const* value)
    {
        char const* wrong    = nullptr;
        auto        severity = eml_severity_error;
        switch (known_keys[key].kind) {
        case value_kind::text:
        case value_kind::passwd:
            break;
        case value_kind::host:
            if (std::strpbrk(value, " \t\r:/@") != nullptr) {
                wrong = "it is no host name or IPv4 address: write a host name or an IPv4 address "
                        "alone, without port or scheme";
            }
            break;
        case value_kind::port:
            if (!is_number(value, 1, 65535)) {
                wrong = "it is no port: write a number from 1 to 65535";
            }
            break;
        case value_kind::milliseconds:
            if (!is_number(value, 0, std::numeric_limits<int>::max())) {
                wrong = "it is no time: write a number of milliseconds";
            }
            break;
        case value_kind::yes:
            if (std::strcmp(value, "yes") != 0 && !looks_like_no(value)) {
                wrong = "it counts as no: write yes or no, in small letters";
            }
            break;
        case value_kind::passwd_raw:
            if (std::strcmp(value, "yes") == 0) {
                wrong    = "the passwords are in clear text: keep the file private";
                severity = eml_severity_note;
            } else if (std::strcmp(value, "no") != 0) {
                wrong    = "it counts as yes, clear-text passwords: write yes or no";
                severity = looks_like_no(value) ? eml_severity_error : eml_severity_warning;
            }
            break;
        case value_kind::smtp_mechanism:
            if (!looks_like(value, "plain") && std::strstr(value, "auto") == nullptr &&
                std::strstr(value, "cram-md5") == nullptr &&
                std::strstr(value, "login") == nullptr) {
                wrong = "it counts as plain: write auto, cram-md5, login or plain";
            }
            break;
        case value_kind::pop_mechanism:
            if (std::strcmp(value, "apop") != 0 && contains_ignoring_case(value, "apop")) {
                wrong = "it does not count as apop: write apop and nothing else";
            }
            break;
        case value_kind::tls:
            if (std::strcmp(value, "no") != 0 && std::strcmp(value, "starttls") != 0 &&
                std::strcmp(value, "tls") != 0) {
                wrong = "no connection is made with it: write no, starttls or tls";
            }
            break;
        case value_kind::path:
            if (*value != '/') {
                wrong = "it is no full path: write one that begins with \"/\"";
            }
            break;
        }
        if (wrong != nullptr) {
            found_.add(severity, wrong);
        }
    }

    bool is_yes(std::size_t key) const { return std::strcmp(settings_[key].value, "yes") == 0; }

    void check_set()
    {
        char const* const reasons[] = {nullptr, "every mail",
                                       is_yes(smtp_auth) ? "smtp_auth = yes" : nullptr,
                                       is_yes(pop_before_smtp) ? "pop_before_smtp = yes" : nullptr};
        for (std::size_t i = 0; i < keys; ++i) {
            known_setting const& setting = settings_[i];
            char const* const    reason  = reasons[static_cast<int>(known_keys[i].when)];
            found_.at(setting.line, known_keys[i].name);
            if (setting.told) {
                continue;
            }
            if (setting.line != 0 && !setting.own) {
                // A switch that is not "yes" is off, as if the key were not there.
                bool const off = (i == smtp_auth || i == pop_before_smtp) && !is_yes(i);
                found_.add(off ? eml_severity_warning : eml_severity_error,
                           "the line contains this key and counts for it: set the key in a line "
                           "above");
            } else if (reason != nullptr && *setting.value == '\0') {
                found_.add(eml_severity_error, "it is missing or empty, and % needs it: set it",
                           reason);
            }
        }
    }

    bool has_value(std::size_t key, char const* value) const
    {
        return std::strcmp(settings_[key].value, value) == 0;
    }

    // What the ports of mail servers are for (RFC 8314).
    void check_port(std::size_t port, std::size_t tls, char const* from_first_byte,
                    char const* in_clear, char const* also_in_clear)
    {
        bool const is_tls = has_value(tls, "tls");
        found_.at(settings_[port].line, known_keys[port].name);
        if (!is_tls && has_value(port, from_first_byte)) {
            found_.add(eml_severity_warning,
                       "servers expect TLS from the first byte on this port: set % = tls",
                       known_keys[tls].name);
        } else if (is_tls && (has_value(port, in_clear) || has_value(port, also_in_clear))) {
            found_.add(eml_severity_warning,
                       "servers begin without TLS on this port: take another one, or set % = "
                       "starttls",
                       known_keys[tls].name);
        }
    }

    bool asks_for_tls(std::size_t key) const
    {
        return has_value(key, "tls") || has_value(key, "starttls");
    }

    void warn_at(std::size_t key, char const* text)
    {
        found_.at(settings_[key].line, known_keys[key].name);
        found_.add(eml_severity_warning, text);
    }

    // A key that is there, with "no", is meant so.
    void check_what_goes_in_clear()
    {
        bool const has_smtp = settings_[smtp_tls].line != 0;
        bool const has_pop  = settings_[pop_tls].line != 0;
        if (asks_for_tls(smtp_tls) && is_yes(pop_before_smtp) && !has_pop) {
            warn_at(pop_before_smtp,
                    "the login to the POP3 server goes without TLS: set pop_tls = tls or starttls");
        }
        if (asks_for_tls(pop_tls) && !has_smtp) {
            warn_at(pop_tls, "mails go without TLS: set smtp_tls = tls or starttls");
        }
        if (settings_[tls_ca_file].line != 0 && !has_smtp && !has_pop) {
            warn_at(tls_ca_file, "nothing uses it: set smtp_tls = tls or starttls");
        }
    }

    void check_passwords(int file)
    {
        known_setting const& raw   = settings_[passwd_raw];
        bool const           clear = raw.read && std::strcmp(raw.value, "no") != 0;
        bool                 any   = false;
        for (std::size_t i = 0; i < keys; ++i) {
            known_setting const& setting = settings_[i];
            if (known_keys[i].kind != value_kind::passwd || *setting.value == '\0') {
                continue;
            }
            any = true;
            if (!clear && setting.own && !is_stored_passwd(setting.value)) {
                found_.at(setting.line, known_keys[i].name);
                found_.add(eml_severity_error,
                           "it is no encrypted password: encrypt it, or set passwd_raw = yes");
            }
        }
        struct stat info = {};
        if (any && ::fstat(file, &info) == 0 && (info.st_mode & (S_IRGRP | S_IROTH)) != 0) {
            bool const all = (info.st_mode & S_IROTH) != 0;
            found_.at(0, "");
            found_.add(all ? eml_severity_warning : eml_severity_note,
                       "% can read the passwords: take the right to read away, or trust them",
                       all ? "every user" : "the group of the file");
        }
    }

    findings      found_;
    int           number_ = 0;  // of the line
    known_setting settings_[keys];
};

}  // namespace

int settings_check(char const* path, finding_proc proc, void* user)
{
    if (path == nullptr || proc == nullptr) {
        return -1;
    }
    no_cancellation const shielded;
    return settings_checker(proc, user).check(path);
}

}  // namespace zelieml
