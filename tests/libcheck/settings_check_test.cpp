// settings_check_test.cpp - what the check of a settings file finds

#include "libcheck/settings_check.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <map>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <sys/stat.h>
#include <vector>

#include "libconf/libconf.h"
#include "tests/libcheck/found.h"
#include "tests/support/case_name.h"
#include "tests/support/failing_new.h"
#include "tests/support/files.h"
#include "tests/support/random_values.h"

namespace zelieml
{
namespace
{

using test::found;
using lines = std::vector<std::string>;

// With CR LF line ends instead of LF ones.
std::string crlf(std::string const& text)
{
    std::string result;
    for (char const c : text) {
        result += c == '\n' ? "\r\n" : std::string(1, c);
    }
    return result;
}

std::vector<found> findings_of(std::string const& path)
{
    std::vector<found> all;
    int const          worst = settings_check(path.c_str(), test::keep, &all);
    EXPECT_EQ(worst, test::worst_of(all));
    return all;
}

char const server[]  = "smtp_server = mail.office.test\nsmtp_port = 25\n";
char const account[] = "smtp_auth = yes\nsmtp_account = anna\nsmtp_passwd = 00fF\n";
char const pop[]     = "pop_before_smtp = yes\npop_server = 192.0.2.1\npop_port = 110\n"
                       "pop_account = anna\npop_passwd = 0aF9\n";

// A file that begins with a server.
struct settings_case : test::named_case {
    using named_case::named_case;

    settings_case whole(std::string const& text) const  // with these bytes
    {
        settings_case c = *this;
        c.bytes         = text;
        return c;
    }
    settings_case file(std::string const& text) const { return whole(crlf(text)); }
    settings_case more(std::string const& text) const { return whole(crlf(server + text)); }
    settings_case mode(mode_t bits) const
    {
        settings_case c = *this;
        c.rights        = bits;
        return c;
    }
    settings_case finds(lines const& some) const
    {
        settings_case c = *this;
        c.expected      = some;
        return c;
    }

    std::string bytes  = crlf(server);
    mode_t      rights = 0600;
    lines       expected;
};

std::string lacks(std::string const& key, std::string const& reason)
{
    return "error " + key + ": it is missing or empty, and " + reason + " needs it: set it";
}

std::string no_cr(std::string const& place)
{
    return "error " + place +
           ": its CR is missing, so the value loses its last character: end the line in CR LF";
}

std::string blank_end(std::string const& place)
{
    return "warning " + place + ": the blanks at the end belong to the value: remove them";
}

std::string no_equals(std::string const& place)
{
    return place + ": it has no \"=\": write \"key = value\", or \"#\" before a comment";
}

std::string unknown(int line, std::string const& meant = "")
{
    return "warning " + std::to_string(line) + ": the library uses no such key" +
           (meant.empty() ? ": correct or remove it" : ": is " + meant + " meant?");
}

std::string repeated(std::string const& place, int line)
{
    return "warning " + place + ": line " + std::to_string(line) +
           " counts for this key: remove one of the two";
}

std::string hidden(std::string const& place, int line)
{
    return "error " + place + ": line " + std::to_string(line) +
           " contains this key and counts for it: move that line down";
}

std::string by_chance(std::string const& place)
{
    return place + ": the line contains this key and counts for it: set the key in a line above";
}

char const no_yes[]     = ": it counts as no: write yes or no, in small letters";
char const raw_yes[]    = ": it counts as yes, clear-text passwords: write yes or no";
char const no_port[]    = ": it is no port: write a number from 1 to 65535";
char const no_host[]    = ": it is no host name or IPv4 address: write a host name or an IPv4 "
                          "address alone, without port or scheme";
char const no_time[]    = ": it is no time: write a number of milliseconds";
char const as_plain[]   = ": it counts as plain: write auto, cram-md5, login or plain";
char const no_apop[]    = ": it does not count as apop: write apop and nothing else";
char const clear[]      = ": the passwords are in clear text: keep the file private";
char const not_stored[] = ": it is no encrypted password: encrypt it, or set passwd_raw = yes";
char const readers[]    = " can read the passwords: take the right to read away, or trust them";
char const overlong[] =
    ": it is longer than 1023 bytes, and hides all lines from here on: shorten it";
char const no_tls[]  = ": no connection is made with it: write no, starttls or tls";
char const foreign[] = ": no connection is made while a line contains this key and does not begin "
                       "with it and \"=\": change that";
char const line_3_differs[] =
    ": no connection is made while line 3 contains this key and differs: remove one of the two";
char const no_path[]    = ": it is no full path: write one that begins with \"/\"";
char const tls_port[]   = ": servers expect TLS from the first byte on this port: set ";
char const clear_port[] = ": servers begin without TLS on this port: take another one, or set ";
char const unreadable[] = "error: the file is missing, cannot be read, or is no regular file";

std::string error(std::string const& place, char const* sentence)
{
    return "error " + place + sentence;
}

settings_case const cases[] = {
    settings_case("a server"),
    settings_case("everything")
        .more(std::string(account) + pop +
              "smtp_auth_type = cram-md5\npop_auth_type = apop\npop_wait_time = 1500\n"
              "passwd_raw = no\nsubject_use_encoding = no\n"),
    settings_case("comments and empty lines")
        .file("# smtp_auth = Yes\n\n \t\n#\nsmtp_server=a\nsmtp_port\t=\t 25\n#x"),
    settings_case("a last line without LF").whole(crlf(server) + "smtp_auth = no\r"),
    settings_case("values in other words")
        .more("smtp_auth = off\npop_before_smtp =\nsubject_use_encoding = FALSE\n"
              "smtp_auth_type = PLAIN\npop_auth_type = user\n"),

    settings_case("TLS from the first byte")
        .file(
            std::string("smtp_server = a\nsmtp_port = 465\nsmtp_tls = tls\npop_tls = starttls\n") +
            pop + "tls_ca_file = /etc/ca.pem\n"),
    settings_case("no TLS").more("smtp_tls = no\npop_tls = no\n"),
    settings_case("TLS in other words")
        .more("smtp_tls = yes\npop_tls = TLS\n")
        .finds({error("3 smtp_tls", no_tls), error("4 pop_tls", no_tls)}),
    settings_case("TLS that is empty").more("smtp_tls =\n").finds({error("3 smtp_tls", no_tls)}),
    settings_case("a port for another kind of TLS")
        .more("smtp_tls = tls\n")
        .finds({std::string("warning 2 smtp_port") + clear_port + "smtp_tls = starttls"}),
    settings_case("ports that expect TLS")
        .file("smtp_server = a\nsmtp_port = 465\nsmtp_tls = starttls\npop_port = 995\n")
        .finds({std::string("warning 2 smtp_port") + tls_port + "smtp_tls = tls",
                std::string("warning 4 pop_port") + tls_port + "pop_tls = tls"}),
    settings_case("authorities somewhere")
        .more("tls_ca_file = ca.pem\nsmtp_tls = no\n")
        .finds({error("3 tls_ca_file", no_path)}),
    settings_case("authorities for nothing")
        .more("tls_ca_file = /ca.pem\n")
        .finds({"warning 3 tls_ca_file: nothing uses it: set smtp_tls = tls or starttls"}),
    settings_case("TLS by chance")
        .more("tls_ca_file = /etc/smtp_tls\npop_tls = no\n")
        .finds({error("3 smtp_tls", foreign)}),
    settings_case("comments of another kind")
        .more(" # smtp_tls = no\n;pop_tls = no\nsmtp_tls = starttls\n")
        .finds({error("3 smtp_tls", foreign), unknown(3, "smtp_tls"), error("4 pop_tls", foreign),
                unknown(4, "pop_tls"), error("5 smtp_tls", line_3_differs)}),
    settings_case("two kinds of TLS")
        .more("smtp_tls = starttls\nsmtp_tls = no\n")
        .finds({error("4 smtp_tls", line_3_differs)}),
    settings_case("TLS twice")
        .more("smtp_tls = no\nsmtp_tls = no\n")
        .finds({repeated("4 smtp_tls", 3)}),
    settings_case("TLS for mails only")
        .file(std::string("smtp_server = a\nsmtp_port = 465\nsmtp_tls = tls\n") + pop)
        .finds({"warning 4 pop_before_smtp: the login to the POP3 server goes without TLS: set "
                "pop_tls = tls or starttls"}),

    settings_case("TLS for received mails only")
        .more("pop_tls = starttls\n")
        .finds({"warning 3 pop_tls: mails go without TLS: set smtp_tls = tls or starttls"}),
    settings_case("TLS for mails that is hidden")
        .more("pop_tls = tls\n" + std::string(1100, '#') + "\nsmtp_tls = tls\n")
        .finds({std::string("error 4") + overlong}),
    settings_case("mails without TLS that are meant so").more("pop_tls = tls\nsmtp_tls = no\n"),

    settings_case("an empty file")
        .file("")
        .finds({lacks("smtp_server", "every mail"), lacks("smtp_port", "every mail")}),
    settings_case("no port").file("smtp_server = a\n").finds({lacks("smtp_port", "every mail")}),
    settings_case("an empty server")
        .file("smtp_server =\nsmtp_port = 25\n")
        .finds({lacks("1 smtp_server", "every mail")}),
    settings_case("a login without account")
        .more("smtp_auth = yes\n")
        .finds({lacks("smtp_account", "smtp_auth = yes"), lacks("smtp_passwd", "smtp_auth = yes")}),
    settings_case("a login with an empty password")
        .more("smtp_auth = yes\nsmtp_account = anna\nsmtp_passwd = \n")
        .finds({lacks("5 smtp_passwd", "smtp_auth = yes")}),
    settings_case("POP before SMTP without anything")
        .more("pop_before_smtp = yes\n")
        .finds({lacks("pop_server", "pop_before_smtp = yes"),
                lacks("pop_port", "pop_before_smtp = yes"),
                lacks("pop_account", "pop_before_smtp = yes"),
                lacks("pop_passwd", "pop_before_smtp = yes")}),

    settings_case("switches that look like yes")
        .more("smtp_auth = Yes\npop_before_smtp = true\nsubject_use_encoding = 1\n")
        .finds({error("3 smtp_auth", no_yes), error("4 pop_before_smtp", no_yes),
                error("5 subject_use_encoding", no_yes)}),
    settings_case("yes and a blank")
        .more("smtp_auth = yes \n")
        .finds({blank_end("3 smtp_auth"), error("3 smtp_auth", no_yes)}),
    settings_case("clear text")
        .more("passwd_raw = yes\n")
        .finds({std::string("note 3 passwd_raw") + clear}),
    settings_case("stored passwords").more(std::string(account) + "passwd_raw = no\n"),
    settings_case("clear text that looks like no")
        .more("passwd_raw = No\n")
        .finds({error("3 passwd_raw", raw_yes)}),
    settings_case("an empty passwd_raw")
        .more("passwd_raw =\n")
        .finds({error("3 passwd_raw", raw_yes)}),
    settings_case("clear text in other words")
        .more("passwd_raw = true\n")
        .finds({std::string("warning 3 passwd_raw") + raw_yes}),
    settings_case("ports").file("smtp_server = a\nsmtp_port = 65535\npop_port = 1\n"),
    settings_case("ports out of range")
        .file("smtp_server = a\nsmtp_port = 65536\npop_port = 0\n")
        .finds({error("2 smtp_port", no_port), error("3 pop_port", no_port)}),
    settings_case("ports that are none")
        .file("smtp_server = a\nsmtp_port = 65561\npop_port = 25x\n")
        .finds({error("2 smtp_port", no_port), error("3 pop_port", no_port)}),
    settings_case("signs and blanks in numbers")
        .file("smtp_server = a\nsmtp_port = +25\npop_port = 1 1\npop_wait_time = -1\n")
        .finds({error("2 smtp_port", no_port), error("3 pop_port", no_port),
                error("4 pop_wait_time", no_time)}),
    settings_case("blanks behind numbers")
        .file("smtp_server = a\nsmtp_port = 25 \npop_wait_time = 0\t\n")
        .finds({blank_end("2 smtp_port"), blank_end("3 pop_wait_time")}),
    settings_case("times")
        .more("pop_wait_time = 99999999999999999999\n")
        .finds({error("3 pop_wait_time", no_time)}),
    settings_case("a time with a unit")
        .more("pop_wait_time = 3 s\n")
        .finds({error("3 pop_wait_time", no_time)}),
    settings_case("a mechanism in upper case")
        .more("smtp_auth = no\nsmtp_auth_type = CRAM-MD5\n")
        .finds({error("4 smtp_auth_type", as_plain)}),
    settings_case("mechanisms that are found in the value")
        .more("smtp_auth = no\nsmtp_auth_type = login,plain\n"),
    settings_case("APOP in upper case")
        .more("pop_auth_type = APOP\n")
        .finds({error("3 pop_auth_type", no_apop)}),
    settings_case("servers with more than a host")
        .file("smtp_server = mail.test:25\nsmtp_port = 25\npop_server = pop://mail.test\n")
        .finds({error("1 smtp_server", no_host), error("3 pop_server", no_host)}),
    settings_case("a server with a blank behind it")
        .file("smtp_server = mail.test \nsmtp_port = 25\n")
        .finds({blank_end("1 smtp_server"), error("1 smtp_server", no_host)}),

    settings_case("passwords that are not encrypted")
        .more("smtp_passwd = secret\npop_passwd = 0aF\n")
        .finds({error("3 smtp_passwd", not_stored), error("4 pop_passwd", not_stored)}),
    settings_case("passwords in clear text")
        .more("smtp_passwd = secret\npop_passwd = 0aF\npasswd_raw = yes\n")
        .finds({std::string("note 5 passwd_raw") + clear}),
    settings_case("a file that all can read")
        .more("smtp_passwd = 00\n")
        .mode(0644)
        .finds({std::string("warning: every user") + readers}),
    settings_case("a file that its group can read")
        .more("smtp_passwd = 00\n")
        .mode(0640)
        .finds({std::string("note: the group of the file") + readers}),
    settings_case("a file without passwords that all can read").more("smtp_passwd =\n").mode(0644),

    settings_case("unknown keys")
        .more("smtp_servr = a\nSMTP_ACCOUNT = b\ncolour = red\n = x\n"
              "SMTP_ACCOUNTXY = b\nsmtp_prtxyz = 1\n")
        .finds({unknown(3, "smtp_server"), unknown(4, "smtp_account"), unknown(5), unknown(6),
                unknown(7, "smtp_account"), unknown(8)}),
    settings_case("a comment that does not begin its line")
        .more(" # passwd_raw = yes\n")
        .finds({unknown(3, "passwd_raw"), by_chance("error 3 passwd_raw")}),
    settings_case("a key in a value")
        .file("smtp_account = smtp_server\nsmtp_server = a\nsmtp_port = 25\n")
        .finds({hidden("2 smtp_server", 1)}),
    settings_case("the longer key above the shorter one")
        .more("smtp_auth_type = auto\nsmtp_auth = yes\n")
        .finds({hidden("4 smtp_auth", 3)}),
    settings_case("the longer key only")
        .more("smtp_auth_type = auto\n")
        .finds({by_chance("warning 3 smtp_auth")}),
    settings_case("the longer key only, which is yes")
        .more("smtp_auth_type = yes\n")
        .finds({error("3 smtp_auth_type", as_plain), by_chance("error 3 smtp_auth"),
                lacks("smtp_account", "smtp_auth = yes"), lacks("smtp_passwd", "smtp_auth = yes")}),
    settings_case("a server by chance")
        .file("my_smtp_server = a\nsmtp_port = 25\n")
        .finds({unknown(1), by_chance("error 1 smtp_server")}),
    settings_case("keys that are set twice")
        .more("smtp_port = 25\nsmtp_port = 587\n")
        .finds({repeated("3 smtp_port", 2), repeated("4 smtp_port", 2)}),

    settings_case("an empty server above the right one")
        .file("smtp_server =\nsmtp_server = a\nsmtp_port = 25\n")
        .finds({repeated("2 smtp_server", 1), lacks("1 smtp_server", "every mail")}),
    settings_case("a server twice behind a line that hides it")
        .file("x = smtp_server\nsmtp_server = a\nsmtp_server = b\nsmtp_port = 25\n")
        .finds({unknown(1), hidden("2 smtp_server", 1), hidden("3 smtp_server", 1)}),

    settings_case("lines without CR")
        .whole("smtp_server = a.test\nsmtp_port = 25\ncolour=red\nsmtp_auth=\npop_port = 1")
        .finds({no_cr("1 smtp_server"), no_cr("2 smtp_port"), unknown(3), no_cr("3"),
                no_cr("5 pop_port"), error("5 pop_port", no_port)}),
    settings_case("two CRs")
        .whole("smtp_server = a\r\nsmtp_port = 25\r\r\n")
        .finds({blank_end("2 smtp_port")}),
    settings_case("a file with CRs only")
        .whole("smtp_server = a\rsmtp_port = 25\r")
        .finds({error("1 smtp_server", no_host), by_chance("error 1 smtp_port")}),
    settings_case("lines without =")
        .more("smtp_passwd secret\ncolour\nsmtp_server\n")
        .finds({no_equals("error 3"), no_equals("warning 4"), repeated("5 smtp_server", 1),
                no_equals("warning 5 smtp_server")}),
    settings_case("a line without = above the right one")
        .file("smtp_server\nsmtp_server = a\nsmtp_port = 25\n")
        .finds({no_equals("error 1 smtp_server"), repeated("2 smtp_server", 1)}),
    settings_case("a NUL")
        .whole(std::string("smtp_server = a\0b\r\nsmtp_port = 25\r\n", 35))
        .finds({"error 1 smtp_server: a NUL ends it: remove that",
                lacks("1 smtp_server", "every mail")}),
    settings_case("the longest line")
        .more("smtp_account = " + std::string(1023 - 15 - 1, 'x') + "\n"),
    settings_case("a longer line")
        .file("smtp_server = a\n#" + std::string(1023, 'x') + "\nsmtp_port = 25\n")
        .finds({error("2", overlong), lacks("smtp_port", "every mail")}),
};

class SettingsCheck : public testing::TestWithParam<settings_case>
{
};

std::vector<found> findings_of(settings_case const& c)
{
    test::temp_dir const dir;
    std::string const    path = dir.file("zelismes.cf");
    test::write_file(path, c.bytes);
    EXPECT_EQ(::chmod(path.c_str(), c.rights), 0);
    return findings_of(path);
}

TEST_P(SettingsCheck, FindsWhatTheCaseSays)
{
    EXPECT_EQ(test::in_lines(findings_of(GetParam())), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(Cases, SettingsCheck, testing::ValuesIn(cases),
                         test::case_name<settings_case>);

TEST(SettingsCheck, FindsAFileThatCannotBeRead)
{
    test::temp_dir const dir;
    std::string const    pipe = dir.file("pipe");
    std::string const    link = dir.file("link");
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    ASSERT_EQ(::symlink("nowhere", link.c_str()), 0);
    for (std::string const& path : {dir.file("missing"), dir.path(), pipe, link, std::string()}) {
        EXPECT_EQ(test::in_lines(findings_of(path)), (lines{unreadable})) << path;
    }
}

TEST(SettingsCheck, FollowsLinks)
{
    test::temp_dir const dir;
    test::write_file(dir.file("a"), crlf(server));
    ASSERT_EQ(::symlink("a", dir.file("link").c_str()), 0);
    EXPECT_EQ(test::in_lines(findings_of(dir.file("link"))), lines());
}

TEST(SettingsCheck, FindsWhatIsDocumented)
{
    std::vector<found> all = findings_of("/");
    for (settings_case const& c : cases) {
        std::vector<found> const some = findings_of(c);
        all.insert(all.end(), some.begin(), some.end());
    }
    test::expect_documented("Settings", all);
}

TEST(SettingsCheck, NeedsAPathAndACallback)
{
    EXPECT_EQ(settings_check(nullptr, test::keep, nullptr), -1);
    EXPECT_EQ(settings_check("/", nullptr, nullptr), -1);
}

TEST(SettingsCheck, GoesOnWhenItsCallbackThrows)
{
    test::temp_dir const dir;
    test::write_file(dir.file("a"), "");
    int        calls           = 0;
    auto const count_and_throw = [](eml_finding const*, void* user) {
        ++*static_cast<int*>(user);
        throw std::runtime_error("in a callback");
    };
    EXPECT_EQ(eml_settings_check(dir.file("a").c_str(), count_and_throw, &calls),
              eml_severity_error);
    EXPECT_EQ(calls, 2);
}

TEST(SettingsCheck, NeedsNoMemory)
{
    test::temp_dir const dir;
    std::string const    path = dir.file("a");
    test::write_file(path, crlf(server) + "colour = red");
    int calls = 0;
    int result;
    {
        test::failing_new const none(0);
        result = eml_settings_check(
            path.c_str(), [](eml_finding const*, void* user) { ++*static_cast<int*>(user); },
            &calls);
    }
    EXPECT_EQ(result, eml_severity_error);
    EXPECT_EQ(calls, 2);
}

// The keys of the table in docs/FORMATS.md.
std::set<std::string> documented_keys()
{
    std::set<std::string> keys;
    std::string const     document = test::read_file(ZELIEML_DOCS "/FORMATS.md");
    std::size_t const     begin    = document.find("| key | value |");
    std::string const     table    = document.substr(begin, document.find("\n\n", begin) - begin);
    for (std::size_t row = table.find("\n| `"); row != std::string::npos;
         row             = table.find("\n| `", row + 1)) {
        std::string const names = table.substr(row + 3, table.find(" | ", row) - row - 3);
        for (std::size_t open = names.find('`'); open != std::string::npos;) {
            std::size_t const close = names.find('`', open + 1);
            keys.insert(names.substr(open + 1, close - open - 1));
            open = names.find('`', close + 1);
        }
    }
    return keys;
}

TEST(SettingsCheck, KnowsTheDocumentedKeys)
{
    EXPECT_EQ(documented_keys().size(), 18U);
    std::string file;
    for (std::string const& key : documented_keys()) {
        file += key + " =\n";
    }
    for (found const& f : findings_of(settings_case("all").file(file))) {
        EXPECT_EQ(f.text.find("no such key"), std::string::npos) << test::in_a_line(f);
        EXPECT_EQ(documented_keys().count(f.field), 1U) << f.field;
    }
}

std::string trimmed(std::string const& text)
{
    std::size_t const begin = text.find_first_not_of(" \t");
    return begin == std::string::npos
               ? ""
               : text.substr(begin, text.find_last_not_of(" \t") + 1 - begin);
}

// What a reader of the file expects: "key = value" in each line that is no comment.
std::map<std::string, std::string> expected_settings(std::string const& file)
{
    std::map<std::string, std::string> settings;
    for (std::size_t start = 0; start < file.size();) {
        std::size_t const end  = std::min(file.find('\n', start), file.size());
        std::string       line = file.substr(start, end - start);
        start                  = end + 1;
        if (!line.empty() && line.back() == '\r') {
            line.pop_back();
        }
        std::size_t const equals = line.find('=');
        if (!line.empty() && line[0] != '#' && equals != std::string::npos) {
            std::size_t const value = line.find_first_not_of(" \t", equals + 1);
            settings.insert({trimmed(line.substr(0, equals)),
                             value != std::string::npos ? line.substr(value) : ""});
        }
    }
    return settings;
}

std::optional<std::string> read_setting(std::string const& key, std::string const& path)
{
    char         value[1024];
    unsigned int length = sizeof value;
    return conf_get_string(key.c_str(), value, &length, path.c_str()) == 0
               ? std::optional<std::string>(value)
               : std::nullopt;
}

std::string random_settings(test::random_values& random)
{
    lines const all_keys = {"smtp_server",
                            "smtp_port",
                            "smtp_auth",
                            "smtp_auth_type",
                            "smtp_account",
                            "smtp_passwd",
                            "pop_before_smtp",
                            "passwd_raw",
                            "colour",
                            "# smtp_port",
                            " #pop_port",
                            "smtp_autho",
                            ""};
    lines const values   = {
          "yes",    "no",   "25", "mail.test",         "", "Yes ", "smtp_server", "a=b", "00FF",
          "secret", "\xff", "\t", std::string(1, '\0')};
    std::uint32_t const chance = random.below(3) * 10;
    std::string         file;
    for (std::uint32_t count = random.below(12); count > 0; --count) {
        file += random.pick(all_keys) + (random.percent(chance / 4) ? "" : " = ") +
                random.pick(values) + (random.percent(chance / 10) ? std::string(1000, 'x') : "") +
                (random.percent(chance) ? random.pick({"\n", "\r\r\n", "\r"}) : "\r\n");
    }
    return file;
}

// Without an error for a key, the library reads what anybody would.
TEST(RandomSettings, AreReadAsTheyLookIfNothingIsFound)
{
    test::temp_dir const dir;
    test::random_values  random(79);

    std::set<std::string> const keys      = documented_keys();
    int                         faultless = 0;
    int                         set       = 0;
    for (int round = 0; round < 5000 && !HasFailure(); ++round) {
        std::string const path = dir.file(std::to_string(round));  // a new one: that is faster
        std::string const file = random_settings(random);
        SCOPED_TRACE(testing::PrintToString(file));
        test::write_file(path, file);
        std::set<std::string> faulty;
        for (found const& f : findings_of(path)) {
            if (f.severity == eml_severity_error) {
                faulty.insert(f.field);
            }
            EXPECT_EQ(f.text.find("secret"), std::string::npos);
        }
        if (faulty.count("") != 0) {
            continue;
        }
        std::map<std::string, std::string> const expected = expected_settings(file);
        for (std::string const& key : keys) {
            auto const found_one = expected.find(key);
            auto const read      = read_setting(key, path);
            bool const is_switch = key == "smtp_auth" || key == "pop_before_smtp";
            if (faulty.count(key) != 0 ||
                (is_switch && found_one == expected.end() && read != "yes")) {
                continue;
            }
            ++faultless;
            set += read ? 1 : 0;
            EXPECT_EQ(read,
                      found_one != expected.end() ? std::optional(found_one->second) : std::nullopt)
                << key;
        }
    }
    EXPECT_GT(faultless, 10000);
    EXPECT_GT(set, 2000);
}

TEST(RandomSettings, OfAnyBytesAreChecked)
{
    test::temp_dir const dir;
    test::random_values  random(80);
    for (int round = 0; round < 2000; ++round) {
        std::string file;
        for (std::uint32_t count = random.below(200); count > 0; --count) {
            file += random.percent(70) ? static_cast<char>(random.below(256))
                                       : random.pick({"smtp_port", "=", "\r\n", "passwd_raw"})[0];
        }
        std::string const path = dir.file(std::to_string(round));
        test::write_file(path, file);
        for (found const& f : findings_of(path)) {
            EXPECT_TRUE(std::all_of(f.text.begin(), f.text.end(), [](char c) {
                return c >= ' ' && c <= '~';
            })) << f.text;
            EXPECT_FALSE(f.text.empty());
            EXPECT_GE(f.line, 0);
            EXPECT_LE(f.line, 1 + std::count(file.begin(), file.end(), '\n'));
        }
    }
}

}  // namespace
}  // namespace zelieml
