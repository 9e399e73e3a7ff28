// settings_test.cpp - zelieml settings

#include <atomic>
#include <csignal>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <random>
#include <sstream>
#include <sys/file.h>
#include <sys/stat.h>
#include <sysexits.h>
#include <thread>
#include <unistd.h>

#include "tests/support/skip.h"
#include "tests/tools/zelieml/surroundings.h"
#include "tests/tools/zelieml/terminal_program.h"
#include "tests/tools/zelieml/zelieml_program.h"
#include "zelieml_ext.h"

namespace zelieml::test
{

namespace
{

using strings = std::vector<std::string>;
using nlohmann::json;

strings const all_keys = {
    "smtp_server", "smtp_port",     "smtp_auth",   "smtp_auth_type",       "smtp_account",
    "smtp_passwd", "pop_server",    "pop_port",    "pop_before_smtp",      "pop_account",
    "pop_passwd",  "pop_auth_type", "passwd_raw",  "subject_use_encoding", "pop_wait_time",
    "smtp_tls",    "pop_tls",       "tls_ca_file",
};

// As the library reads it.
std::optional<std::string> library_value(std::string const& path, std::string const& key)
{
    char         value[2048];
    unsigned int length = sizeof value;
    if (eml_cf_get_string(key.c_str(), value, &length, path.c_str()) != 0) {
        return std::nullopt;
    }
    return value;
}

std::map<std::string, std::optional<std::string>> library_values(std::string const& path)
{
    std::map<std::string, std::optional<std::string>> values;
    for (std::string const& key : all_keys) {
        values[key] = library_value(path, key);
    }
    return values;
}

std::string encrypted(std::string password)
{
    unsigned char* const text =
        eml_encrypt_passwd(reinterpret_cast<unsigned char*>(password.data()));
    std::string const stored = reinterpret_cast<char*>(text);
    eml_encrypt_free_passwd(text);
    return stored;
}

mode_t mode_of(std::string const& path)
{
    struct stat is = {};
    EXPECT_EQ(::stat(path.c_str(), &is), 0);
    return is.st_mode & 07777;
}

// A work directory, and the command for it.
class Settings : public testing::Test
{
protected:
    outcome run(strings words, std::string const& input = "") const
    {
        words.insert(words.begin(), "settings");
        words.insert(words.end(), {"-w", dir.path()});
        return run_zelieml(words, input);
    }

    void write(std::string const& bytes) const { write_file(path, bytes); }

    std::string bytes() const { return read_file(path); }

    void expect_set(std::string const& key, std::string const& value) const
    {
        outcome const set = run({"set", key, value});
        EXPECT_EQ(set.status, EX_OK) << key << ": " << set.err;
        EXPECT_EQ(set.out + set.err, "");
        EXPECT_EQ(library_value(path, key), value);
    }

    // Refused so, with these words on standard error, and nothing is changed.
    void expect_refused(strings const& words, int status, std::string const& text,
                        std::string const& input = "") const
    {
        std::optional<std::string> before;
        if (file_exists(path)) {
            before = bytes();
        }
        outcome const refused = run(words, input);
        EXPECT_EQ(refused.status, status) << words[1];
        EXPECT_EQ(refused.out, "");
        EXPECT_NE(refused.err.find(text), std::string::npos) << refused.err;
        EXPECT_EQ(file_exists(path), before.has_value());
        if (before) {
            EXPECT_EQ(bytes(), *before);
        }
        expect_no_litter();
    }

    void expect_no_litter() const
    {
        for (std::string const& name : list_directory(dir.path())) {
            EXPECT_EQ(name, "zelismes.cf");
        }
    }

    temp_dir    dir;
    std::string path = dir.file("zelismes.cf");
};

TEST_F(Settings, AreWrittenAndRead)
{
    strings const sets[] = {
        {"smtp_server", "mail.office.test"},
        {"smtp_port", "587"},
        {"smtp_auth", "no"},
        {"smtp_auth_type", "cram-md5"},
        {"smtp_account", "anna"},
        {"pop_before_smtp", "no"},
        {"pop_server", "127.0.0.1"},
        {"pop_port", "110"},
        {"pop_account", "anna@office.test"},
        {"pop_auth_type", "apop"},
        {"pop_wait_time", "0"},
        {"subject_use_encoding", "no"},
        {"passwd_raw", "no"},
        {"smtp_tls", "starttls"},
        {"pop_tls", "no"},
        {"tls_ca_file", "/etc/office.pem"},
    };
    std::string expected;
    for (strings const& set : sets) {
        expect_set(set[0], set[1]);
        expected += set[0] + " = " + set[1] + "\r\n";
        outcome const got = run({"get", set[0]});
        EXPECT_EQ(got.status, EX_OK);
        EXPECT_EQ(got.out, set[1] + "\n");
        EXPECT_EQ(got.err, "");
    }
    EXPECT_EQ(bytes(), expected);
    EXPECT_EQ(run({"check"}).status, EX_OK);
    for (strings const& set : sets) {
        expect_set(set[0], set[1]);
    }
    EXPECT_EQ(bytes(), expected);
    expect_no_litter();
}

TEST_F(Settings, ArePrintedAsJson)
{
    EXPECT_EQ(run({"set", "smtp_port", "25", "--json"}).out,
              "{\"key\":\"smtp_port\",\"value\":\"25\"}\n");
    EXPECT_EQ(run({"get", "smtp_port", "--json"}).out,
              "{\"key\":\"smtp_port\",\"value\":\"25\"}\n");
}

TEST_F(Settings, OfANewFileAreTheOwnersOnly)
{
    mode_t const before = ::umask(0);
    expect_set("smtp_port", "25");
    ::umask(before);
    EXPECT_EQ(mode_of(path), 0600U);
}

TEST_F(Settings, KeepTheRightsOfTheFile)
{
    write("smtp_port = 25\r\n");
    ASSERT_EQ(::chmod(path.c_str(), 0640), 0);
    mode_t const before = ::umask(0077);
    expect_set("smtp_port", "26");
    expect_set("smtp_server", "a.test");
    ::umask(before);
    EXPECT_EQ(mode_of(path), 0640U);
}

TEST_F(Settings, TakeThePlaceOfALink)
{
    temp_dir const    other;
    std::string const target = other.file("shared.cf");
    write_file(target, "smtp_port = 25\r\n");
    ASSERT_EQ(::symlink(target.c_str(), path.c_str()), 0);
    expect_set("smtp_port", "26");
    struct stat is = {};
    ASSERT_EQ(::lstat(path.c_str(), &is), 0);
    EXPECT_TRUE(S_ISREG(is.st_mode));
    EXPECT_EQ(read_file(target), "smtp_port = 25\r\n");
}

TEST_F(Settings, AreRefusedInAFileThatIsNone)
{
    ASSERT_EQ(::symlink(dir.file("nowhere").c_str(), path.c_str()), 0);
    EXPECT_EQ(run({"set", "smtp_port", "25"}).status, EX_CONFIG);
    outcome const shown = run({"show"});
    EXPECT_EQ(shown.status, EX_CONFIG);
    EXPECT_EQ(shown.err, "zelieml: " + path + " is a link that leads nowhere: remove it\n");
    ASSERT_EQ(::unlink(path.c_str()), 0);

    ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
    EXPECT_EQ(run({"set", "smtp_port", "25"}).status, EX_CONFIG);
    EXPECT_EQ(run({"show"}).status, EX_CONFIG);
    expect_no_litter();
}

TEST_F(Settings, StayAsTheyAreOnAFullDisk)
{
    write("smtp_port = 25\r\n");
    program run(
        {"/bin/sh", "-c",
         "trap '' XFSZ; ulimit -f 0; exec \"$0\" settings set smtp_port 26 -w " + dir.path(),
         ZELIEML_PROGRAM});
    int const status = run.wait();
    EXPECT_EQ(status, EX_CANTCREAT);
    EXPECT_EQ(bytes(), "smtp_port = 25\r\n");
    expect_no_litter();
}

TEST_F(Settings, AreKnownByName)
{
    expect_refused({"get", "smtp_prot"}, EX_USAGE, "is smtp_port meant?");
    expect_refused({"get", "SMTP-Server"}, EX_USAGE, "is smtp_server meant?");
    expect_refused({"set", "pop_passwort", "x"}, EX_USAGE, "is pop_passwd meant?");
    expect_refused({"get", "colour"}, EX_USAGE, "settings set --help");
    expect_refused({"get", std::string(100000, 'x')}, EX_USAGE, "there is no such key");
    expect_refused({"get", ""}, EX_USAGE, "there is no such key");
}

TEST_F(Settings, SayWhatTheirAbsenceMeans)
{
    expect_refused({"get", "smtp_auth"}, EX_CONFIG, "is missing: make it");
    expect_refused({"show"}, EX_CONFIG, "is missing: make it");
    write("smtp_port = 25\r\n");
    expect_refused({"get", "smtp_auth"}, EX_CONFIG,
                   "no login: set it (zelieml settings set smtp_auth VALUE)");
    expect_refused({"get", "smtp_passwd"}, EX_CONFIG, "(zelieml settings set smtp_passwd)");
    expect_refused({"set", "smtp_auth"}, EX_USAGE, "write yes or no");
    expect_refused({"set", "smtp_port"}, EX_USAGE, "write 1 to 65535");
}

TEST_F(Settings, AreRefusedWhenTheyAreWrong)
{
    strings const wrong[] = {
        {"smtp_port", "0"},
        {"smtp_port", "65536"},
        {"smtp_port", "25x"},
        {"smtp_port", " 25"},
        {"smtp_port", "99999999999999999999999"},
        {"smtp_port", ""},
        {"pop_wait_time", "2147483648"},
        {"pop_wait_time", "1.5"},
        {"smtp_auth", "Yes"},
        {"smtp_auth", "on"},
        {"smtp_auth_type", "CRAM-MD5"},
        {"pop_auth_type", "APOP"},
        {"passwd_raw", ""},
        {"smtp_server", ""},
        {"smtp_server", "mail.test:25"},
        {"tls_ca_file", "ca.pem"},
        {"smtp_server", "::1"},
        {"smtp_server", "smtp://mail.test"},
        {"smtp_server", "mail.test "},
        {"smtp_server", "mail test"},
        {"smtp_server", "192.168.0.010"},
        {"smtp_server", "010.0.0.1"},
        {"smtp_account", " anna"},
        {"smtp_account", "anna\t"},
        {"smtp_account", "an\r\nna"},
        {"smtp_account", std::string(1008, 'x')},
    };
    for (strings const& c : wrong) {
        SCOPED_TRACE(c[0] + " = " + c[1]);
        expect_refused({"set", c[0], c[1]}, EX_USAGE, c[0]);
    }
    expect_set("smtp_server", "10.0.0.100");
    expect_set("smtp_account", std::string(1007, 'x'));
}

struct set_case {
    char const* name;
    std::string before;
    std::string key;
    std::string value;
    std::string after;
};

TEST_F(Settings, LeaveEverythingElseAsItIs)
{
    set_case const cases[] = {
        {"in its place", "smtp_port = 25\r\nsmtp_server = a.test\r\n", "smtp_port", "26",
         "smtp_port = 26\r\nsmtp_server = a.test\r\n"},
        {"at the end", "smtp_port = 25\r\n", "smtp_server", "a.test",
         "smtp_port = 25\r\nsmtp_server = a.test\r\n"},
        {"beside the longer key", "smtp_auth = no\r\nsmtp_auth_type = auto\r\n", "smtp_auth", "yes",
         "smtp_auth = yes\r\nsmtp_auth_type = auto\r\n"},
        {"above the longer key", "# x\r\nsmtp_auth_type = auto\r\nsmtp_port = 25\r\n", "smtp_auth",
         "yes", "# x\r\nsmtp_auth = yes\r\nsmtp_auth_type = auto\r\nsmtp_port = 25\r\n"},
        {"moved above the longer key", "smtp_auth_type = auto\r\nsmtp_auth = no\r\n", "smtp_auth",
         "yes", "smtp_auth = yes\r\nsmtp_auth_type = auto\r\n"},
        {"the longer key", "smtp_auth = no\r\nsmtp_port = 25\r\n", "smtp_auth_type", "login",
         "smtp_auth = no\r\nsmtp_port = 25\r\nsmtp_auth_type = login\r\n"},
        {"the longer key, moved", "smtp_auth_type = auto\r\nsmtp_auth = no\r\n", "smtp_auth_type",
         "login", "smtp_auth = no\r\nsmtp_auth_type = login\r\n"},
        {"above a value with the key", "pop_account = smtp_port\r\n", "smtp_port", "25",
         "smtp_port = 25\r\npop_account = smtp_port\r\n"},
        {"a value with a key", "smtp_port = 25\r\n", "pop_account", "smtp_port",
         "smtp_port = 25\r\npop_account = smtp_port\r\n"},
        {"a value with a key, moved", "pop_account = x\r\nsmtp_port = 25\r\n", "pop_account",
         "smtp_port", "smtp_port = 25\r\npop_account = smtp_port\r\n"},
        {"a value with a key, mended", "pop_account = smtp_port\r\n", "pop_account", "anna",
         "pop_account = anna\r\n"},
        {"one of two lines", "smtp_port = 25\r\nsmtp_port = 26\r\n", "smtp_port", "27",
         "smtp_port = 27\r\n"},
        {"comments", "# smtp_port = 24\r\nsmtp_port = 25\r\n#smtp_port\r\n", "smtp_port", "26",
         "# smtp_port = 24\r\nsmtp_port = 26\r\n#smtp_port\r\n"},
        {"empty lines", "\r\n\nsmtp_port = 25\r\n\r\n", "smtp_port", "26",
         "\r\n\nsmtp_port = 26\r\n\r\n"},
        {"keys of a program", "my_tray = 2\r\nsmtp_port_note = x\r\n", "smtp_port", "26",
         "my_tray = 2\r\nsmtp_port = 26\r\nsmtp_port_note = x\r\n"},
        {"odd spaces", "  smtp_server=a.test\r\n\tsmtp_port=\t25\r\n", "smtp_port", "26",
         "  smtp_server=a.test\r\nsmtp_port = 26\r\n"},
        {"lines without CR", "smtp_server = a.test\nsmtp_port = 25\n", "smtp_port", "26",
         "smtp_server = a.test\nsmtp_port = 26\r\n"},
        {"a last line without an end", "smtp_server = a.test\r", "smtp_port", "26",
         "smtp_server = a.test\r\nsmtp_port = 26\r\n"},
        {"a NUL", std::string("x = a\0b\r\n", 9), "smtp_port", "26",
         std::string("x = a\0b\r\n", 9) + "smtp_port = 26\r\n"},
        {"an empty file", "", "smtp_port", "26", "smtp_port = 26\r\n"},
        {"a line without a sign", "smtp_port\r\n", "smtp_port", "26", "smtp_port = 26\r\n"},
    };
    for (set_case const& c : cases) {
        SCOPED_TRACE(c.name);
        write(c.before);
        outcome const set = run({"set", c.key, c.value});
        EXPECT_EQ(set.status, EX_OK) << set.err;
        EXPECT_EQ(bytes(), c.after);
        EXPECT_EQ(library_value(path, c.key), c.value);
        expect_no_litter();
    }
}

TEST_F(Settings, AreRefusedWhereOthersWouldBeHarmed)
{
    write("smtp_server = a.test\r\n");
    expect_refused({"set", "smtp_auth_type", "login"}, EX_CONFIG,
                   "set that key first (zelieml settings set smtp_auth VALUE)");
    expect_refused({"set", "pop_account", "my smtp_port"}, EX_CONFIG, "smtp_port");
    write("smtp_auth_type = auto\r\n");
    expect_refused({"set", "smtp_auth_type", "login"}, EX_CONFIG,
                   "set that key first (zelieml settings set smtp_auth VALUE)");
    write("my_note = smtp_account\r\ntray = 2\r\n");
    expect_refused({"set", "smtp_account", "tray"}, EX_CONFIG, "choose another value");
    write("smtp_port = 25\r\n#" + std::string(1023, 'x') + "\r\n");
    expect_refused({"set", "smtp_port", "26"}, EX_CONFIG, "line 2");
}

// The key of the line that counts for a key.
std::string source_of(std::string const& bytes, std::string const& key)
{
    std::istringstream lines(bytes);
    for (std::string line; std::getline(lines, line);) {
        if (line[0] != '#' && line.find(key) != line.npos) {
            std::string const start = line.substr(0, line.find('='));
            return start.substr(0, start.find_last_not_of(" \r") + 1);
        }
    }
    return "";
}

// The library minds each line that contains a key for TLS.
TEST_F(Settings, ForTlsWarnOfOtherLinesThatContainThem)
{
    write(";smtp_tls = no\r\nsmtp_server = a\r\n");
    outcome const hidden = run({"set", "smtp_tls", "tls"});
    EXPECT_EQ(hidden.status, EX_OK);
    EXPECT_NE(hidden.err.find("line 2 contains smtp_tls"), std::string::npos) << hidden.err;
    EXPECT_EQ(bytes(), "smtp_tls = tls\r\n;smtp_tls = no\r\nsmtp_server = a\r\n");
    expect_set("smtp_server", "b");

    write("smtp_tls = tls\r\n");
    outcome const hiding = run({"set", "tls_ca_file", "/etc/smtp_tls/ca.pem"});
    EXPECT_EQ(hiding.status, EX_OK);
    EXPECT_NE(hiding.err.find("line 2 contains smtp_tls"), std::string::npos) << hiding.err;
}

// Whatever the file is like, a change changes what is read for its own key, or nothing.
TEST_F(Settings, AreNeverReadForEachOther)
{
    strings const pool = {
        "smtp_auth = no\r",
        "smtp_auth_type = login\r",
        "smtp_auth_type=auto",
        "pop_account = smtp_auth\r",
        "smtp_account = smtp_port",
        "# smtp_auth = comment\r",
        "my smtp_auth_type = 3\r",
        "smtp_port = 25\r",
        "note = pop_account\r",
        "smtp_auth\r",
        "\r",
        "smtp_server = smtp_auth_type\r",
        "pop_wait_time = 5\r",
    };
    strings const sets[] = {
        {"smtp_auth", "yes"},          {"smtp_auth_type", "plain"}, {"pop_account", "smtp_port"},
        {"smtp_account", "smtp_auth"}, {"smtp_port", "587"},        {"smtp_server", "b.test"},
    };
    std::mt19937 random(20);
    int          written = 0;
    for (int round = 0; round < 150; ++round) {
        std::string before;
        for (auto lines = random() % 7; lines > 0; --lines) {
            before += pool[random() % pool.size()] + "\n";
        }
        strings const& set = sets[random() % 6];
        SCOPED_TRACE(set[0] + " = " + set[1] + " in\n" + before);
        write(before);
        auto const    expected = library_values(path);
        outcome const done     = run({"set", set[0], set[1]});
        if (done.status != EX_OK) {
            EXPECT_EQ(done.status, EX_CONFIG) << done.err;
            EXPECT_EQ(bytes(), before);
            continue;
        }
        ++written;
        EXPECT_EQ(library_value(path, set[0]), set[1]);
        for (std::string const& key : all_keys) {
            // Read from the line that is set now, it was no setting.
            if (key != set[0] && source_of(before, key) != set[0]) {
                EXPECT_EQ(library_value(path, key), expected.at(key)) << key;
            }
        }
    }
    EXPECT_GT(written, 50);
}

TEST_F(Settings, AreReadAsTheLibraryReadsThem)
{
    write("# smtp_port = 1\r\n  smtp_server=\t a.test \r\nsmtp_port = 25\r\nsmtp_account = an=na "
          "\r\npop_account =\r\n");
    for (char const* const key : {"smtp_server", "smtp_port", "smtp_account", "pop_account"}) {
        outcome const got = run({"get", key});
        EXPECT_EQ(got.status, EX_OK) << got.err;
        EXPECT_EQ(got.out, library_value(path, key).value_or("?") + "\n");
    }
}

TEST_F(Settings, AreNotReadFromATrap)
{
    write("smtp_auth_type = auto\r\nsmtp_port = 25\nsmtp_server\r\npop_port = 110");
    expect_refused({"get", "smtp_auth"}, EX_CONFIG, "line 1 contains \"smtp_auth\"");
    expect_refused({"get", "smtp_port"}, EX_CONFIG, "line 2, smtp_port: its CR is missing");
    expect_refused({"get", "smtp_server"}, EX_CONFIG, "line 3, smtp_server: it has no \"=\"");
    expect_refused({"get", "pop_port"}, EX_CONFIG, "line 4, pop_port: its CR is missing");
    write("smtp_port = 25\r\n#" + std::string(1023, 'x') + "\r\npop_port = 110\r\n");
    EXPECT_EQ(run({"get", "smtp_port"}).status, EX_OK);
    expect_refused({"get", "pop_port"}, EX_CONFIG, "line 2 is too long");
}

TEST_F(Settings, AreShown)
{
    write("smtp_auth_type = auto\r\nsmtp_port = 25\r\nsmtp_passwd = geheim\r\nnote = \033[2J\r\n"
          "smtp_account = a\033b\r\n");
    outcome const shown = run({"show"});
    EXPECT_EQ(shown.status, EX_OK);
    EXPECT_EQ(shown.err, "");
    EXPECT_EQ(shown.out, "# smtp_server is not set: nothing is sent\n"
                         "smtp_port = 25\n"
                         "smtp_auth = auto   # from line 1, which contains that name\n"
                         "smtp_auth_type = auto\n"
                         "smtp_account = a?b\n"
                         "smtp_passwd = (set)\n"
                         "# pop_before_smtp is not set: no POP3 login\n"
                         "# pop_server is not set: a POP3 login fails\n"
                         "# pop_port is not set: a POP3 login fails\n"
                         "# pop_account is not set: a POP3 login fails\n"
                         "# pop_passwd is not set: a POP3 login fails\n"
                         "# pop_auth_type is not set: pop\n"
                         "# pop_wait_time is not set: 0\n"
                         "# passwd_raw is not set: no\n"
                         "# subject_use_encoding is not set: yes\n"
                         "# smtp_tls is not set: no TLS\n"
                         "# pop_tls is not set: no TLS\n"
                         "# tls_ca_file is not set: those that the system trusts\n");
    json const all = json::parse(run({"show", "--json"}).out);
    EXPECT_EQ(all.size(), all_keys.size() + 1);
    EXPECT_EQ(all.at("marks"),
              json::parse(R"([{"line": 1, "key": "smtp_auth", "mark": "other_key"}])"));
    EXPECT_EQ(all["smtp_port"], "25");
    EXPECT_EQ(all["smtp_passwd"], true);
    EXPECT_EQ(all["smtp_account"], "a\033b");
    EXPECT_EQ(all["pop_port"], nullptr);
}

TEST_F(Settings, AreShownWithWhatHidesThem)
{
    write("smtp_server = a.test\nsmtp_port = 25\n# " + std::string(1023, 'x') +
          "\r\npop_port = 110\r\n");
    outcome const shown = run({"show"});
    EXPECT_EQ(shown.status, EX_OK);
    EXPECT_EQ(shown.out.rfind("# line 3 is longer than 1023 bytes and hides all from there on: "
                              "shorten it with an editor\n"
                              "smtp_server = a.tes   # its CR is missing, so the last character is "
                              "lost: set it anew (zelieml settings set smtp_server VALUE)\n"
                              "smtp_port = 2   # its CR is missing",
                              0),
              0U)
        << shown.out;
    EXPECT_NE(shown.out.find("\n# pop_port is not set before line 3: "), shown.out.npos)
        << shown.out;
    json const all = json::parse(run({"show", "--json"}).out);
    EXPECT_EQ(all["smtp_server"], "a.tes");
    EXPECT_EQ(all["pop_port"], nullptr);
    EXPECT_EQ(all.at("marks"), json::parse(R"([{"line": 3, "key": "", "mark": "too_long"},
                                            {"line": 1, "key": "smtp_server", "mark": "cut"},
                                            {"line": 2, "key": "smtp_port", "mark": "cut"}])"));

    write("smtp_server = a.test\r\nsmtp_passwd = geheim\n");
    json const cut = json::parse(run({"show", "--json"}).out);
    EXPECT_EQ(cut["smtp_passwd"], true);
    EXPECT_EQ(cut.at("marks"),
              json::parse(R"([{"line": 2, "key": "smtp_passwd", "mark": "cut"}])"));
    write("smtp_server = a.test\r\nsmtp_port\n");
    EXPECT_EQ(json::parse(run({"show", "--json"}).out).at("marks"), json::array());
}

TEST_F(Settings, AreChecked)
{
    write("smtp_server = a.test\r\nsmtp_port = 25\r\n");
    outcome const clean = run({"check"});
    EXPECT_EQ(clean.status, EX_OK);
    EXPECT_EQ(clean.out + clean.err, "");
    EXPECT_EQ(run({"check", "--json"}).out, "[]\n");

    write("smtp_server = a.test\r\nsmtp_port = 25\r\npasswd_raw = yes\r\n");
    ASSERT_EQ(::chmod(path.c_str(), 0600), 0);
    outcome const noted = run({"check"});
    EXPECT_EQ(noted.status, EX_OK);
    EXPECT_EQ(noted.out, "line 3, passwd_raw: note: the passwords are in clear text: keep the file "
                         "private\n");

    write("smtp_server = a.test\r\nsmtp_port = x\r\n");
    outcome const wrong = run({"check"});
    EXPECT_EQ(wrong.status, EX_CONFIG);
    EXPECT_EQ(wrong.out,
              "line 2, smtp_port: error: it is no port: write a number from 1 to 65535\n");
    EXPECT_NE(wrong.err.find("zelismes.cf has faults"), std::string::npos) << wrong.err;

    write("smtp_server = a.test\r\nsmtp_port = 25\r\ncolour = x\r\n");
    EXPECT_EQ(run({"check"}).status, EX_CONFIG);
    json const found = json::parse(run({"check", "--json"}).out);
    ASSERT_EQ(found.size(), 1U);
    EXPECT_EQ(found[0]["line"], 3);
    EXPECT_EQ(found[0]["key"], "");
    EXPECT_EQ(found[0]["severity"], "warning");
    EXPECT_EQ(found[0]["text"], "the library uses no such key: correct or remove it");

    ASSERT_EQ(::unlink(path.c_str()), 0);
    outcome const missing = run({"check"});
    EXPECT_EQ(missing.status, EX_CONFIG);
    EXPECT_EQ(missing.out,
              "error: " + path + " is missing: make it (zelieml settings set smtp_server VALUE)\n");

    ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
    json const pipe = json::parse(run({"check", "--json"}).out);
    ASSERT_EQ(pipe.size(), 1U);
    EXPECT_EQ(pipe[0]["text"], path + " is not a regular file: replace it by one");
}

TEST_F(Settings, RepeatNoWordThatMayBeAPassword)
{
    strings const lines[] = {
        {"set", "smtp_passwd=geheim"},
        {"set", "smtp_passwd=geheim", "25"},
        {"set", "smtp_passwd=", "geheim"},
        {"set", "passwd=geheim"},
        {"set", "geheim"},
        {"set", "geheim", "25"},
        {"set", "--smtp_passwd=geheim"},
        {"get", "smtp_passwd=geheim"},
        {"get", "smtp_passwd", "geheim"},
        {"get", "geheim"},
        {"show", "smtp_passwd=geheim"},
        {"show", "geheim"},
        {"check", "geheim"},
        {"smtp_passwd=geheim"},
    };
    for (strings const& line : lines) {
        outcome const refused = run(line);
        EXPECT_EQ(refused.status, EX_USAGE) << line.back();
        EXPECT_EQ(refused.out, "");
        EXPECT_EQ(refused.err.rfind("zelieml: th", 0), 0U) << refused.err;
        EXPECT_EQ(refused.err.find("geheim"), std::string::npos) << refused.err;
        EXPECT_FALSE(file_exists(path));
    }
    outcome const other = run({"shwo"});
    EXPECT_NE(other.err.find("there is no command shwo"), std::string::npos) << other.err;
}

TEST_F(Settings, StorePasswordsEncrypted)
{
    for (char const* const key : {"smtp_passwd", "pop_passwd"}) {
        outcome const set = run({"set", key}, " geheim \n");
        EXPECT_EQ(set.status, EX_OK);
        EXPECT_EQ(set.out + set.err, "");
        EXPECT_EQ(library_value(path, key), encrypted(" geheim "));
        EXPECT_EQ(run({"get", key}).out, "(set)\n");
        EXPECT_EQ(run({"get", key, "--json"}).out,
                  "{\"key\":\"" + std::string(key) + "\",\"value\":true}\n");
        EXPECT_EQ(run({"set", key, "--json"}, "geheim").out,
                  "{\"key\":\"" + std::string(key) + "\",\"value\":true}\n");
    }
}

TEST_F(Settings, StorePasswordsInClearTextOnRequest)
{
    expect_set("passwd_raw", "yes");
    EXPECT_EQ(run({"set", "smtp_passwd"}, "geheim").status, EX_OK);
    EXPECT_EQ(library_value(path, "smtp_passwd"), "geheim");
    EXPECT_EQ(run({"show"}).out.find("geheim"), std::string::npos);
    expect_refused({"set", "smtp_passwd"}, EX_DATAERR, "set passwd_raw to no", " x");
}

TEST_F(Settings, ConvertStoredPasswords)
{
    EXPECT_EQ(run({"set", "smtp_passwd"}, "geheim").status, EX_OK);
    EXPECT_EQ(run({"set", "pop_passwd"}, "smtp_port").status, EX_OK);
    expect_set("smtp_port", "25");
    expect_set("passwd_raw", "no");
    EXPECT_EQ(library_value(path, "smtp_passwd"), encrypted("geheim"));
    expect_set("passwd_raw", "yes");
    EXPECT_EQ(library_value(path, "smtp_passwd"), "geheim");
    EXPECT_EQ(library_value(path, "pop_passwd"), "smtp_port");
    EXPECT_EQ(library_value(path, "smtp_port"), "25");
    expect_set("passwd_raw", "yes");
    EXPECT_EQ(library_value(path, "smtp_passwd"), "geheim");
    expect_set("passwd_raw", "no");
    EXPECT_EQ(library_value(path, "smtp_passwd"), encrypted("geheim"));
    EXPECT_EQ(library_value(path, "pop_passwd"), encrypted("smtp_port"));
    EXPECT_EQ(library_value(path, "smtp_port"), "25");
}

TEST_F(Settings, ConvertNoPasswordThatTheyCannot)
{
    write("smtp_passwd = geheim\r\n");
    expect_refused({"set", "passwd_raw", "yes"}, EX_CONFIG, "is no encrypted password");
    write("passwd_raw = yes\r\nsmtp_passwd = geheim\n");
    expect_refused({"set", "passwd_raw", "no"}, EX_CONFIG, "its CR is missing");
    write("smtp_passwd = " + encrypted(" x") + "\r\n");
    expect_refused({"set", "passwd_raw", "yes"}, EX_DATAERR, "cannot be stored in clear text");
    write("smtp_passwd = " + encrypted("a\nb") + "\r\n");
    expect_refused({"set", "passwd_raw", "yes"}, EX_DATAERR, "cannot be stored in clear text");
    write("passwd_raw = yes\r\nsmtp_passwd = " + std::string(600, 'x') + "\r\n");
    expect_refused({"set", "passwd_raw", "no"}, EX_DATAERR, "too long");
    write("smtp_passwd =\r\n");
    expect_set("passwd_raw", "yes");
}

TEST_F(Settings, TakeNoPasswordFromTheCommandLine)
{
    strings const lines[] = {
        {"set", "smtp_passwd", "geheim"},           {"set", "pop_passwd", "geheim"},
        {"set", "pop_passwd", "so", "geheim"},      {"set", "pop_passwd", "--password", "geheim"},
        {"set", "pop_passwd", "--password=geheim"},
    };
    for (strings const& line : lines) {
        outcome const refused = run(line);
        EXPECT_EQ(refused.status, EX_USAGE);
        EXPECT_NE(refused.err.find("--password-fd"), std::string::npos) << refused.err;
        EXPECT_EQ(refused.err.find("geheim"), std::string::npos) << refused.err;
        EXPECT_FALSE(file_exists(path));
    }
}

TEST_F(Settings, AskForAPasswordTwice)
{
    terminal_program run(zelieml_command({"settings", "set", "smtp_passwd", "-w", dir.path()}));
    ASSERT_TRUE(run.wait_for("Password, to be stored as smtp_passwd: "));
    EXPECT_FALSE(run.echoes());
    run.type("geheim\n");
    ASSERT_TRUE(run.wait_for("The same again: "));
    run.type("geheim\n");
    EXPECT_EQ(run.wait(), EX_OK);
    EXPECT_EQ(run.out() + run.err(), "");
    EXPECT_EQ(library_value(path, "smtp_passwd"), encrypted("geheim"));
}

TEST_F(Settings, AreTextInUtf8)
{
    program latin(
        {"/bin/sh", "-c",
         "LC_ALL=C exec \"$0\" settings set smtp_account \"$(printf 'j\\374rg')\" -w " + dir.path(),
         ZELIEML_PROGRAM});
    EXPECT_EQ(latin.wait(), EX_DATAERR) << latin.err();
    EXPECT_FALSE(file_exists(path));
    expect_set("smtp_account", "j\u00fcrg");
}

TEST_F(Settings, ArePrintedInUtf8)
{
    temp_dir const    locales;
    set_for_now const where("LOCPATH", locales.path());
    SKIP_UNLESS(make_locale(locales.file(eucjp_locale)), "it has no locale ja_JP.eucJP");
    set_for_now const locale("LC_ALL", eucjp_locale);
    // HIRAGANA LETTER A
    outcome const set = run({"set", "smtp_account", "\xA4\xA2", "--json"});
    EXPECT_EQ(set.status, EX_OK) << set.err;
    EXPECT_EQ(set.out, "{\"key\":\"smtp_account\",\"value\":\"\xE3\x81\x82\"}\n");
}

TEST_F(Settings, AreChangedByOneAtATime)
{
    write("smtp_server = a.test\r\n");
    strings const keys = {"smtp_port", "pop_port", "pop_wait_time", "smtp_account", "pop_account"};
    std::vector<std::unique_ptr<program>> writers;
    for (std::string const& key : keys) {
        writers.push_back(std::make_unique<program>(
            zelieml_command({"settings", "set", key, "25", "-w", dir.path()})));
    }
    for (auto const& writer : writers) {
        EXPECT_EQ(writer->wait(), EX_OK) << writer->err();
    }
    for (std::string const& key : keys) {
        EXPECT_EQ(library_value(path, key), "25");
    }
    EXPECT_EQ(library_value(path, "smtp_server"), "a.test");
    expect_no_litter();
}

TEST_F(Settings, WaitForAnotherChange)
{
    int const lock = ::open(dir.path().c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(::flock(lock, LOCK_EX), 0);
    program set(zelieml_command({"settings", "set", "smtp_port", "25", "-w", dir.path()}));
    wait_ms(100);
    EXPECT_FALSE(file_exists(path));
    ::close(lock);
    EXPECT_EQ(set.wait(), EX_OK) << set.err();
    EXPECT_EQ(library_value(path, "smtp_port"), "25");
}

// A reader at any time, the engine for instance, meets all settings.
TEST_F(Settings, AreNeverSeenHalfChanged)
{
    write("smtp_auth = yes\r\nsmtp_auth_type = plain\r\nsmtp_port = 25\r\n");
    std::atomic<bool> done{false};
    std::thread       writer([&] {
        for (int i = 0; i < 20; ++i) {
            run({"set", "smtp_auth", i % 2 == 0 ? "no" : "yes"});
        }
        done = true;
    });
    while (!done) {
        EXPECT_EQ(library_value(path, "smtp_auth_type"), "plain");
        EXPECT_EQ(library_value(path, "smtp_port"), "25");
    }
    writer.join();
}

TEST_F(Settings, OutliveAKill)
{
    std::string const before = "smtp_auth = yes\r\nsmtp_auth_type = plain\r\nsmtp_port = 25\r\n";
    std::string const after  = "smtp_auth = yes\r\nsmtp_auth_type = plain\r\nsmtp_port = 26\r\n";
    for (int ms = 0; ms < 20; ++ms) {
        write(before);
        program set(zelieml_command({"settings", "set", "smtp_port", "26", "-w", dir.path()}));
        wait_ms(ms);
        set.signal(SIGKILL);
        set.wait();
        EXPECT_TRUE(bytes() == before || bytes() == after) << bytes();
    }
    expect_set("smtp_port", "27");
    expect_no_litter();
}

TEST_F(Settings, RemoveWhatAKilledChangeHasLeft)
{
    write("smtp_port = 25\r\n");
    std::string const left = dir.file(".settings-" + std::to_string(::geteuid()));
    ASSERT_EQ(::mkdir(left.c_str(), 0700), 0);
    write_file(left + "/zelismes.cf", "half");
    write_file(left + "/zelismes.cf.tmp", "half");
    expect_set("smtp_port", "26");
    expect_no_litter();

    // Somebody else's is not touched.
    temp_dir const other;
    write_file(other.file("zelismes.cf"), "kept");
    ASSERT_EQ(::symlink(other.path().c_str(), left.c_str()), 0);
    outcome const refused = run({"set", "smtp_port", "27"});
    EXPECT_EQ(refused.status, EX_CANTCREAT);
    EXPECT_NE(refused.err.find("remove it"), std::string::npos) << refused.err;
    EXPECT_EQ(library_value(path, "smtp_port"), "26");
    EXPECT_EQ(read_file(other.file("zelismes.cf")), "kept");
}

TEST_F(Settings, StayWhereNoFileCanBeMade)
{
    SKIP_UNLESS(all_may_start(ZELIEML_PROGRAM), "another user cannot start the program");
    workplace const   work(25);
    std::string const file   = work.file("zelismes.cf");
    std::string const before = read_file(file);
    ASSERT_EQ(::chmod(file.c_str(), 0644), 0);
    outcome const refused =
        run_without_rights(work, {"settings", "set", "-w", work.path(), "smtp_port", "26"}, "");
    EXPECT_EQ(refused.status, EX_CANTCREAT);
    EXPECT_EQ(read_file(file), before);
}

TEST_F(Settings, OfAStrangersLinkAreLeftAlone)
{
    SKIP_UNLESS_ROOT("a link of another user");
    write_file(dir.file("target"), "smtp_port = 25\r\n");
    ASSERT_EQ(::symlink("target", path.c_str()), 0);
    ASSERT_EQ(::lchown(path.c_str(), 65534, 65534), 0);
    outcome const refused = run({"set", "smtp_port", "26"});
    EXPECT_EQ(refused.status, EX_CONFIG);
    EXPECT_NE(refused.err.find("a link of another user"), std::string::npos) << refused.err;
    EXPECT_EQ(bytes(), "smtp_port = 25\r\n");
}

TEST_F(Settings, KeepTheirOwner)
{
    SKIP_UNLESS_ROOT("files of other users");
    ASSERT_EQ(::chown(dir.path().c_str(), 65533, 65534), 0);
    expect_set("smtp_port", "25");
    struct stat is = {};
    ASSERT_EQ(::stat(path.c_str(), &is), 0);
    EXPECT_EQ(is.st_uid, 65533U);
    ASSERT_EQ(::chown(path.c_str(), 65532, 65531), 0);
    expect_set("smtp_port", "26");
    expect_set("smtp_server", "a.test");
    ASSERT_EQ(::stat(path.c_str(), &is), 0);
    EXPECT_EQ(is.st_uid, 65532U);
    EXPECT_EQ(is.st_gid, 65531U);
    EXPECT_EQ(mode_of(path), 0600U);
}

}  // namespace

}  // namespace zelieml::test
