// send_command_test.cpp - zelieml send: what goes out, what is refused, and how it ends

#include <gtest/gtest.h>
#include <sysexits.h>
#include <unistd.h>
#include <vector>

#include "tests/support/contains.h"
#include "tests/support/dialogues.h"
#include "tests/support/files.h"
#include "tests/support/full_disk.h"
#include "tests/support/mail_server.h"
#include "tests/support/peers.h"
#include "tests/support/scripted_server.h"
#include "tests/support/skip.h"
#include "tests/support/workplace.h"
#include "tests/tools/zelieml/surroundings.h"
#include "tests/tools/zelieml/zelieml_program.h"

namespace zelieml::test
{

namespace
{

// A mail from p7@a.test to x@b.test in the words of the command line, and more of them.
strings mail_words(workplace const& work, strings const& more = {})
{
    strings words = {"send", "-w", work.path(), "--from", "p7@a.test", "--to", "x@b.test"};
    words.insert(words.end(), more.begin(), more.end());
    return words;
}

// The body has to be empty when the program ends without reading it.
outcome send(workplace const& work, strings const& more = {}, std::string const& body = "hello\n")
{
    return run_zelieml(mail_words(work, more), body);
}

// Standard error is one line, and says this.
void expect_said(outcome const& run, std::string const& part)
{
    EXPECT_EQ(run.err.rfind("zelieml: ", 0), 0U) << run.err;
    EXPECT_EQ(run.err.find('\n'), run.err.size() - 1) << run.err;
    EXPECT_TRUE(contains(run.err, part)) << run.err;
}

// ---- what goes out

TEST(Send, SendsTheMailAndSaysNothing)
{
    mail_server     server;
    workplace const work(server.smtp_port());
    outcome const   run = send(work, {"--subject", "Tray 2", "--message-id", "<1@p7.a.test>"});
    EXPECT_EQ(run.status, EX_OK);
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(work.messages(), strings{});

    ASSERT_EQ(server.mails().size(), 1U);
    mailserver::mail const mail = server.mails()[0];
    EXPECT_EQ(mail.sender, "p7@a.test");
    EXPECT_EQ(mail.recipients, strings{"x@b.test"});
    for (char const* const part :
         {"\r\nFrom: p7@a.test\r\n", "\r\nTo: x@b.test\r\n", "\r\nSubject: Tray 2\r\n",
          "\r\nReply-To: p7@a.test\r\n", "\r\nMessage-Id: <1@p7.a.test>\r\n", "aGVsbG8N"}) {
        EXPECT_TRUE(contains(mail.text, part)) << part << " in " << mail.text;
    }
}

TEST(Send, BouncesGoToTheSenderOrToReplyTo)
{
    struct {
        char const* from;
        strings     more;
        char const* sender;
    } const cases[] = {
        {"p7@a.test", {}, "p7@a.test"},
        {"Printer 7 <p7@a.test>", {}, "p7@a.test"},
        {"\"a <b> c\" <p7@a.test>", {}, "p7@a.test"},
        {"<p7@a.test>", {"--reply-to", "desk@a.test"}, "desk@a.test"},
        {"p7@a.test", {"--reply-to", ""}, ""},
    };
    for (auto const& c : cases) {
        mail_server     server;
        workplace const work(server.smtp_port());
        strings         words = {"send", "-w", work.path(), "--from", c.from, "--to", "x@b.test"};
        words.insert(words.end(), c.more.begin(), c.more.end());
        outcome const run = run_zelieml(words, "hello\n");
        ASSERT_EQ(run.status, EX_OK) << c.from << ": " << run.err;
        EXPECT_EQ(server.mails().at(0).sender, c.sender) << c.from;
        EXPECT_TRUE(contains(server.mails()[0].text, std::string("\r\nFrom: ") + c.from + "\r\n"));
    }
}

TEST(Send, GoesToAllRecipients)
{
    mail_server     server;
    workplace const work(server.smtp_port());
    outcome const   run = send(work, {"--to", "y@b.test,z@b.test", "--cc", "c@b.test", "--cc",
                                      "d@b.test, e@b.test", "--to", "x@b.test"});
    ASSERT_EQ(run.status, EX_OK) << run.err;
    strings const all = {"x@b.test", "y@b.test", "z@b.test", "c@b.test", "d@b.test", "e@b.test"};
    EXPECT_EQ(server.mails().at(0).recipients, all);
}

TEST(Send, TakesTheBodyFromAFileOrFromStandardInput)
{
    temp_dir const dir;
    write_file(dir.file("body"), "hello\n");
    for (strings const& file : {strings{}, strings{"-"}, strings{dir.file("body")}}) {
        mail_server     server;
        workplace const work(server.smtp_port());
        bool const      from_file = !file.empty() && file[0] != "-";
        outcome const   run       = send(work, file, from_file ? "" : "hello\n");
        ASSERT_EQ(run.status, EX_OK) << run.err;
        EXPECT_TRUE(contains(server.mails().at(0).text, "\r\n\r\naGVsbG8N"))
            << server.mails()[0].text;
    }
}

TEST(Send, LeavesAByteOrderMarkAway)
{
    mail_server     server;
    workplace const work(server.smtp_port());
    ASSERT_EQ(send(work, {}, "\xEF\xBB\xBFhello\n").status, EX_OK);
    EXPECT_TRUE(contains(server.mails().at(0).text, "\r\n\r\naGVsbG8N")) << server.mails()[0].text;
}

TEST(Send, TakesCrLfAsLf)
{
    strings texts;
    for (char const* const body : {"a\nb\n\nc", "a\r\nb\r\n\r\nc"}) {
        mail_server     server;
        workplace const work(server.smtp_port());
        ASSERT_EQ(send(work, {"--encoding", "iso-2022-jp"}, body).status, EX_OK);
        std::string const text = server.mails().at(0).text;
        texts.push_back(text.substr(text.find("\r\n\r\n")));
    }
    EXPECT_EQ(texts[0], "\r\n\r\na\r\nb\r\n\r\nc\r\n");
    EXPECT_EQ(texts[1], texts[0]);
}

TEST(Send, MakesAMessageIdThatNoOtherHas)
{
    mail_server     server;
    workplace const work(server.smtp_port());
    strings         ids;
    for (int i = 0; i < 2; ++i) {
        outcome const run = send(work, {"--message-id", "auto", "--check"});
        ASSERT_EQ(run.status, EX_OK) << run.err;
        std::string const text  = server.mails().at(ids.size()).text;
        std::size_t const begin = text.find("\r\nMessage-Id: <");
        ASSERT_NE(begin, text.npos) << text;
        ids.push_back(text.substr(begin, text.find("\r\n", begin + 2) - begin));
    }
    EXPECT_NE(ids[0], ids[1]);
}

// ---- charsets

// "a", HIRAGANA LETTER A, in several charsets
constexpr char in_utf8[]  = "a\xE3\x81\x82\n";
constexpr char in_eucjp[] = "a\xA4\xA2\n";
constexpr char in_jis[]   = "a\x1B$B$\"\x1B(B\r\n";

TEST(SendCharset, ConvertsToTheEncodingOfTheMail)
{
    mail_server     server;
    workplace const work(server.smtp_port());
    outcome const   run =
        send(work, {"--encoding", "ISO-2022-JP", "--subject", "\xE3\x81\x82"}, in_utf8);
    ASSERT_EQ(run.status, EX_OK) << run.err;
    std::string const text = server.mails().at(0).text;
    EXPECT_TRUE(contains(text, "\r\nSubject: \x1B$B$\"\x1B(B\r\n")) << text;
    EXPECT_TRUE(contains(text, std::string("\r\n\r\n") + in_jis)) << text;
}

TEST(SendCharset, TakesUtf8InTheCLocale)
{
    for (char const* const name : {"C", "POSIX", "no_SUCH.locale"}) {
        set_for_now const locale("LC_ALL", name);
        mail_server       server;
        workplace const   work(server.smtp_port());
        outcome const     run = send(work, {"--encoding", "iso-2022-jp"}, in_utf8);
        ASSERT_EQ(run.status, EX_OK) << run.err;
        EXPECT_TRUE(contains(server.mails().at(0).text, in_jis));
    }
}

TEST(SendCharset, TakesTheCharsetOfTheLocale)
{
    temp_dir const    dir;
    set_for_now const path("LOCPATH", dir.path());
    SKIP_UNLESS(make_locale(dir.file(eucjp_locale)), "it has no locale ja_JP.eucJP");
    set_for_now const locale("LC_ALL", eucjp_locale);
    mail_server       server;
    workplace const   work(server.smtp_port());
    outcome const     run = send(work, {"--encoding", "iso-2022-jp"}, in_eucjp);
    ASSERT_EQ(run.status, EX_OK) << run.err;
    EXPECT_TRUE(contains(server.mails().at(0).text, in_jis));

    outcome const refused = send(work, {}, in_utf8);
    EXPECT_EQ(refused.status, EX_DATAERR);
    expect_said(refused, "standard input, line 1, byte 2: 0xE3 is not valid in EUC-JP");
}

TEST(SendCharset, RefusesWhatCannotBeConverted)
{
    struct {
        char const* reason;
        strings     more;
        std::string body;
        char const* said;
    } const cases[] = {
        {"a byte that is not UTF-8", {}, "a\nb\xE9t\n", "standard input, line 2, byte 2: 0xE9 is"},
        {"half a character at the end", {}, "a\xE3\x81", "standard input, line 1, byte 2: 0xE3 is"},
        {"in an option", {"--subject", "\xFF"}, "a", "--subject, line 1, byte 1: 0xFF is"},
        {"the euro sign in ISO-2022-JP",
         {"--encoding", "iso-2022-jp"},
         "a\nb\xE3\x81\x82\xE2\x82\xAC",
         "standard input, line 2, character 3: U+20AC cannot be written in ISO-2022-JP"},
        {"the same in an option",
         {"--encoding", "iso-2022-jp", "--subject", "\xE2\x82\xAC"},
         "a",
         "--subject, line 1, character 1: U+20AC cannot"},
        {"a NUL", {}, std::string("a\n\0b", 4), "standard input, line 2, byte 1: a NUL"},
    };
    mail_server     server;
    workplace const work(server.smtp_port());
    for (auto const& c : cases) {
        SCOPED_TRACE(c.reason);
        outcome const run = send(work, c.more, c.body);
        EXPECT_EQ(run.status, EX_DATAERR);
        EXPECT_EQ(run.out, "");
        expect_said(run, c.said);
    }
    EXPECT_EQ(server.sessions(), strings{});
}

// ---- what is refused

TEST(Send, WantsSenderAndRecipient)
{
    workplace const work(1);
    for (strings const& words :
         {strings{"--from", "a@a.test"}, strings{"--to", "a@a.test"},
          strings{"--from", "", "--to", "a@a.test"}, strings{"--from", "a@a.test", "--to", ""}}) {
        strings all = {"send", "-w", work.path()};
        all.insert(all.end(), words.begin(), words.end());
        outcome const run = run_zelieml(all);
        EXPECT_EQ(run.status, EX_USAGE);
        EXPECT_TRUE(contains(run.err, words[0] == "--to" ? "--from"
                                      : words.size() > 2 ? "empty"
                                                         : "--to"))
            << run.err;
    }
    EXPECT_EQ(send(work, {"--encoding", "latin-1"}, "").status, EX_USAGE);
}

TEST(Send, RefusesABodyThatCannotBeRead)
{
    workplace const work(1);
    for (std::string const& file : {work.file("nothing"), std::string(work.path())}) {
        outcome const run = send(work, {file}, "");
        EXPECT_EQ(run.status, EX_NOINPUT);
        expect_said(run, file + ": ");
    }
}

TEST(Send, RefusesABodyThatIsTooLong)
{
    workplace const   work(1);
    std::string const file = work.file("long");
    write_file(file, "");
    ASSERT_EQ(::truncate(file.c_str(), (off_t{128} << 20U) + 1), 0);
    outcome const run = send(work, {file}, "");
    EXPECT_EQ(run.status, EX_DATAERR);
    expect_said(run, file + " is longer than 128 MiB");
}

TEST(Send, RefusesABodyLineThatBeginsWithAKey)
{
    mail_server     server;
    workplace const work(server.smtp_port());
    for (char const* const key :
         {"from", "to", "cc", "subject", "replyto", "encoding", "messageid"}) {
        outcome const run = send(work, {}, "a\n" + std::string(key) + ": b@b.test\n");
        EXPECT_EQ(run.status, EX_DATAERR);
        EXPECT_TRUE(contains(run.err, "zelieml: standard input, line 2: it begins with \"" +
                                          std::string(key) + ": \""))
            << run.err;
    }
    EXPECT_EQ(send(work, {}, "a\n from: b@b.test\n").status, EX_OK);
    EXPECT_EQ(server.mails().size(), 1U);
}

TEST(Send, SaysEachErrorWithItsOption)
{
    mail_server     server;
    workplace const work(server.smtp_port());
    outcome const   run = run_zelieml({"send", "-w", work.path(), "--from", "p7@a.test (7)", "--to",
                                       "x@b.test,", "--cc", "C <c@b.test>", "--subject", "a\nb"},
                                      "hello\n");
    EXPECT_EQ(run.status, EX_DATAERR);
    for (char const* const part :
         {"zelieml: --from, as the envelope sender: ", "zelieml: --to: a recipient is empty",
          "zelieml: --cc: \"C<c@b.test>\" is no plain", "zelieml: --subject: what follows"}) {
        EXPECT_TRUE(contains(run.err, part)) << part << " in " << run.err;
    }
    EXPECT_EQ(server.sessions(), strings{});
}

TEST(Send, RefusesWarningsAndNotesOnlyWhenAsked)
{
    mail_server     server;
    workplace const work(server.smtp_port());
    outcome const   asked = send(work, {"--check"}, "\nhello\n");
    EXPECT_EQ(asked.status, EX_DATAERR);
    EXPECT_TRUE(contains(asked.err, "zelieml: --message-id: there is none")) << asked.err;
    EXPECT_TRUE(contains(asked.err, "zelieml: standard input, line 1: empty lines")) << asked.err;
    EXPECT_EQ(server.mails().size(), 0U);

    outcome const run = send(work, {}, "\nhello\n");
    EXPECT_EQ(run.status, EX_OK);
    EXPECT_EQ(run.err, "");
}

// ---- the dry run

TEST(SendDryRun, ShowsTheMailAndConnectsToNothing)
{
    mail_server     server;
    workplace const work(server.smtp_port());
    strings const   words = {"--to",        "y@b.test",   "--subject",   "Tray 2",   "--encoding",
                             "iso-2022-jp", "--reply-to", "desk@a.test", "--dry-run"};
    outcome const   run   = send(work, words, "one\t\x07\n.\n\xE3\x81\x82\n");
    EXPECT_EQ(run.status, EX_OK) << run.err;
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.out.rfind("MAIL FROM:<desk@a.test>\n"
                            "RCPT TO:<x@b.test>\n"
                            "RCPT TO:<y@b.test>\n"
                            "\n"
                            "Date: ",
                            0),
              0U)
        << run.out;
    EXPECT_TRUE(contains(run.out, "\nSubject: Tray 2\n")) << run.out;
    EXPECT_TRUE(contains(run.out, "\n\none\t?\n..\n\xE3\x81\x82\n")) << run.out;
    EXPECT_FALSE(contains(run.out, "\r")) << run.out;
    EXPECT_EQ(server.sessions(), strings{});
    EXPECT_EQ(work.messages(), strings{});
}

TEST(SendDryRun, PrintsJson)
{
    workplace const work(1);
    outcome const   run = send(work, {"--dry-run", "--json"});
    EXPECT_EQ(run.status, EX_OK) << run.err;
    EXPECT_EQ(run.out.rfind("{\"sender\":\"p7@a.test\",\"recipients\":[\"x@b.test\"],"
                            "\"text\":\"Date: ",
                            0),
              0U)
        << run.out;
    EXPECT_TRUE(contains(run.out, "\\r\\n\\r\\naGVsbG8N")) << run.out;
}

TEST(SendDryRun, RefusesWhatASendRefuses)
{
    workplace const work(1);
    outcome const   run = send(work, {"--dry-run"}, "to: me\n");
    EXPECT_EQ(run.status, EX_DATAERR);
    EXPECT_EQ(run.out, "");
}

// ---- how it ends

TEST(Send, PrintsTheResultAsJson)
{
    mail_server     server;
    workplace const work(server.smtp_port());
    outcome const   run = send(work, {"--json"});
    EXPECT_EQ(run.status, EX_OK);
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.out.rfind("{\"code\":0,\"number\":0,\"cause\":\"none\",\"step\":\"\","
                            "\"reason\":\"\",\"reply\":\"221 2.0.0 goodbye\",\"seconds\":",
                            0),
              0U)
        << run.out;

    mailserver::options strict;
    strict.rejected_recipients = {"x@b.test"};
    mail_server     refusing(strict);
    workplace const there(refusing.smtp_port());
    outcome const   failed = send(there, {"--json"});
    EXPECT_EQ(failed.status, EX_NOUSER);
    EXPECT_EQ(failed.out.rfind("{\"code\":1,\"number\":1005,\"cause\":\"refused\","
                               "\"step\":\"recipient\",\"reason\":\"the server refused the "
                               "recipient x@b.test: 550 ",
                               0),
              0U)
        << failed.out;
    EXPECT_TRUE(contains(failed.out, "\"reply\":\"550 ")) << failed.out;
    EXPECT_FALSE(contains(failed.out, "\"file\"")) << failed.out;  // which is gone
    expect_said(failed, "the server refused the recipient x@b.test: 550 ");
}

TEST(Send, PrintsJsonForWhatItRefusesItself)
{
    workplace const work(1);
    struct {
        strings     more;
        std::string body;
        int         status;
        char const* cause;
        std::string reason;
    } const cases[] = {
        {{}, std::string("\0", 1), EX_DATAERR, "message", "standard input, line 1, byte 1: a NUL"},
        {{}, "to: me\ncc: you\n", EX_DATAERR, "message", "standard input, line 1: it begins with"},
        {{"--dry-run"}, "to: me\n", EX_DATAERR, "message", "standard input, line 1: it begins"},
        {{work.file("nothing")}, "", EX_NOINPUT, "file", work.file("nothing") + ": No such file"},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.reason);
        strings more = c.more;
        more.emplace_back("--json");
        outcome const run = send(work, more, c.body);
        EXPECT_EQ(run.status, c.status);
        EXPECT_TRUE(contains(run.err, "zelieml: " + c.reason)) << run.err;
        EXPECT_EQ(run.out.rfind("{\"code\":1,\"number\":100,\"cause\":\"" + std::string(c.cause) +
                                    "\",\"step\":\"message\",\"reason\":\"" + c.reason,
                                0),
                  0U)
            << run.out;
    }
}

// A mail of this many bytes that there is no memory for.
outcome send_without_memory(workplace const& work, strings const& words)
{
    strings       script = {"/bin/sh", "-c",
                            "ulimit -v 100000; head -c 60000000 /dev/zero | tr '\\0' a | "
                                  "\"$0\" \"$@\" -w " +
                                std::string(work.path())};
    strings const ask    = zelieml_command(words);
    script.insert(script.end(), ask.begin(), ask.end());
    program   run(script);
    int const status = run.wait();
    return {status, run.out(), run.err()};
}

TEST(Send, PrintsJsonWhenItCouldNotBegin)
{
    for (char const* const command : {"send", "post"}) {
        outcome const run = run_zelieml({command, "-w", "/no/such/directory", "--from", "a@a.test",
                                         "--to", "b@b.test", "--json"});
        EXPECT_EQ(run.status, EX_NOINPUT);
        std::string const reason = "the work directory /no/such/directory: No such file or "
                                   "directory: make it, or name another one with -w";
        EXPECT_EQ(run.err, "zelieml: " + reason + "\n");
        EXPECT_EQ(run.out, "{\"code\":1,\"number\":100,\"cause\":\"file\",\"step\":\"message\","
                           "\"reason\":\"" +
                               reason + "\",\"reply\":\"\",\"seconds\":0.0}\n");
        EXPECT_EQ(run_zelieml({command, "-w", "/", "--json"}).out, "") << "wrong usage";
    }
}

TEST(Send, PrintsJsonWithoutMemory)
{
    SKIP_UNLESS(!has_sanitizer("address") && !has_sanitizer("thread"),
                "a sanitizer takes more address space than that");
    SKIP_UNLESS(!has_backend("macos"), "macOS limits no process's address space");
    workplace const work(1);
    strings const   words = {"send", "--from", "a@a.test", "--to", "b@b.test"};
    outcome const   run   = send_without_memory(work, words);
    EXPECT_EQ(run.status, EX_SOFTWARE);
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.err, "zelieml: there is not enough memory\n");
    strings as_json = words;
    as_json.emplace_back("--json");
    outcome const told = send_without_memory(work, as_json);
    EXPECT_EQ(told.status, EX_SOFTWARE);
    EXPECT_EQ(told.err, run.err);
    EXPECT_EQ(told.out, "{\"code\":1,\"number\":100,\"cause\":\"memory\",\"step\":\"message\","
                        "\"reason\":\"there is not enough memory\",\"reply\":\"\","
                        "\"seconds\":0.0}\n");
}

TEST(Send, SaysThatTheMailWasSentWhenThatCannotBePrinted)
{
    SKIP_UNLESS(::access("/dev/full", W_OK) == 0, "it has no /dev/full");
    mail_server     server;
    workplace const work(server.smtp_port());
    program         run({"/bin/sh", "-c",
                         "echo hello | \"$0\" send -w \"$1\" --from p7@a.test --to x@b.test --json "
                                 ">/dev/full",
                         ZELIEML_PROGRAM, work.path()});
    EXPECT_EQ(run.wait(), EX_CANTCREAT);
    EXPECT_EQ(run.err(),
              "zelieml: the mail was sent, do not send it again, but standard output: No "
              "space left on device: the rest was not printed\n");
    EXPECT_EQ(server.mails().size(), 1U);
}

struct end_case {
    char const* name;
    std::string transcript;
    std::string settings;
    int         status;
    char const* said;
};

std::string const login_settings =
    "smtp_auth = yes\r\nsmtp_auth_type = plain\r\nsmtp_account = tim\r\nsmtp_passwd = secret\r\n"
    "passwd_raw = yes\r\n";

std::string const pop_settings =
    "pop_before_smtp = yes\r\npop_server = 127.0.0.1\r\npop_account = anna\r\n"
    "pop_passwd = secret\r\npasswd_raw = yes\r\n";

std::string const to_recipient = helo + mail_from("p7@a.test");
std::string const to_data      = to_recipient + rcpt_to();

end_case const end_cases[] = {
    {"SenderRefused", helo + refused_at("mail from: <p7@a.test>", "553 5.1.8 not you"), "",
     EX_PROTOCOL, "the server refused the sender p7@a.test: 553 5.1.8 not you"},
    {"SenderRefusedForNow", helo + refused_at("mail from: <p7@a.test>", "451 later"), "",
     EX_TEMPFAIL, "451 later"},
    {"RecipientRefused", to_recipient + refused_at("rcpt to: <x@b.test>", "550 5.1.1 nobody"), "",
     EX_NOUSER, "the server refused the recipient x@b.test: 550 5.1.1 nobody"},
    {"RecipientRefusedForNow", to_recipient + refused_at("rcpt to: <x@b.test>", "450 grey"), "",
     EX_TEMPFAIL, "450 grey"},
    {"TextRefused",
     to_data + answered("data", "354 go on") + "C: (data)\nS: 554 5.6.0 spam\n" + hangs_up, "",
     EX_PROTOCOL, "554 5.6.0 spam"},
    {"LoginRefused",
     ehlo("AUTH PLAIN") + "C: AUTH PLAIN {any}\nS: 535 5.7.8 wrong password\n" + hangs_up,
     login_settings, EX_NOPERM, "the server refused the login of tim: 535 5.7.8 wrong password"},
    {"LoginRefusedForNow",
     ehlo("AUTH PLAIN") + "C: AUTH PLAIN {any}\nS: 454 4.7.0 later\n" + hangs_up, login_settings,
     EX_TEMPFAIL, "454 4.7.0 later"},
    {"NoLoginThere", greeted + "C: ehlo {host}\nS: 502 what?\n" + hangs_up, login_settings,
     EX_NOPERM, "502 what?"},
    {"GreetingRefused", "S: 554 5.7.1 not for you\n" + hangs_up, "", EX_PROTOCOL,
     "554 5.7.1 not for you"},
    {"GreetingRefusedForNow", "S: 421 busy\n" + hangs_up, "", EX_TEMPFAIL, "421 busy"},
    {"NoMailServer", "S: +OK POP3 ready\n" + hangs_up, "", EX_PROTOCOL, "+OK POP3 ready"},
    {"ClosedWithoutAGreeting", "S: (closes)\n", "", EX_UNAVAILABLE, "without a greeting"},
    {"ClosedInTheMiddle", to_recipient + lost_at("rcpt to: <x@b.test>"), "", EX_UNAVAILABLE,
     "closed the connection after RCPT"},
    {"ClosedAfterTheText", to_data + answered("data", "354 go on") + "C: (data)\nS: (closes)\n", "",
     EX_UNAVAILABLE, "after the text: the server may have taken the mail: look before you send it"},
    {"EndNotConfirmed", to_data + text_sent + refused_at("quit", "500 what?"), "", EX_PROTOCOL,
     "500 what?: the server has taken the mail, do not send it again"},
    {"EndRefusedForNow", to_data + text_sent + refused_at("quit", "421 busy"), "", EX_PROTOCOL,
     "421 busy: the server has taken the mail, do not send it again"},
};

class SendEnds : public testing::TestWithParam<end_case>
{
};

TEST_P(SendEnds, WithTheStatusOfItsCause)
{
    end_case const& c = GetParam();
    scripted_server server(c.transcript);
    workplace const work(server.port(), c.settings);
    outcome const   run = send(work);
    EXPECT_EQ(run.status, c.status);
    EXPECT_EQ(run.out, "");
    expect_said(run, c.said);
    EXPECT_EQ(server.heard(), server.expected());
    EXPECT_EQ(work.messages(), strings{});
}

INSTANTIATE_TEST_SUITE_P(Server, SendEnds, testing::ValuesIn(end_cases),
                         [](auto const& c) { return c.param.name; });

TEST(Send, EndsWhenThePopLoginIsRefused)
{
    scripted_server pop(pop_greeted + answered("user anna", "+OK") +
                        refused_at("pass secret", "-ERR no"));
    workplace const work(1, pop_settings + "pop_port = " + std::to_string(pop.port()) + "\r\n");
    outcome const   run = send(work);
    EXPECT_EQ(run.status, EX_NOPERM);
    expect_said(run, "the POP3 server refused the password of anna: -ERR no");
}

TEST(Send, EndsWhenTheServerIsNotReached)
{
    std::uint16_t closed = 0;
    {
        listening_socket const gone;
        closed = gone.port();
    }
    workplace const refused(closed);
    outcome const   run = send(refused);
    EXPECT_EQ(run.status, EX_UNAVAILABLE);
    expect_said(run, "connect to 127.0.0.1:" + std::to_string(closed) + ": Connection refused");

    // No resolver asks a name server for a name with an empty label.
    workplace const unknown(25);
    write_file(unknown.file("zelismes.cf"), "smtp_server = a..b\r\nsmtp_port = 25\r\n");
    outcome const lost = send(unknown);
    EXPECT_EQ(lost.status, EX_UNAVAILABLE);
    expect_said(lost, "the host a..b was not found");
}

TEST(Send, EndsWhenASettingIsMissing)
{
    workplace const work(1);
    write_file(work.file("zelismes.cf"), "smtp_server = 127.0.0.1\r\n");
    outcome const run = send(work);
    EXPECT_EQ(run.status, EX_CONFIG);
    expect_said(run, "settings: smtp_port is missing in " + work.file("zelismes.cf"));

    temp_dir const empty;
    EXPECT_EQ(run_zelieml({"send", "-w", empty.path(), "--from", "a@a.test", "--to", "b@b.test"},
                          "hello\n")
                  .status,
              EX_CONFIG);
}

TEST(Send, EndsWhenTheMessageCannotBeSaved)
{
    mail_server     server;
    workplace const work(server.smtp_port());
    {
        full_disk const full(16384);
        outcome const   run = send(work, {"--json"}, std::string(30000, 'a'));
        EXPECT_EQ(run.status, EX_CANTCREAT);
        expect_said(run, "the message cannot be saved in " + std::string(work.path()) + ": ");
        EXPECT_TRUE(contains(run.out, "\"number\":100,\"cause\":\"file\"")) << run.out;
    }
    EXPECT_EQ(work.messages(), strings{});  // nor a part of it
    EXPECT_EQ(server.sessions(), strings{});
}

TEST(Send, EndsWhenTheDirectoryIsNotToBeWrittenTo)
{
    SKIP_UNLESS(all_may_start(ZELIEML_PROGRAM), "another user cannot start the program");
    workplace const work(1);
    strings         words = mail_words(work);
    for (char const* const command : {"send", "post"}) {
        words[0]          = command;
        outcome const run = run_without_rights(work, words, "hello\n");
        EXPECT_EQ(run.status, EX_CANTCREAT);
        expect_said(run, "the message cannot be saved in " + std::string(work.path()) +
                             ": Permission denied: make room, give");
    }
    EXPECT_EQ(work.messages(), strings{});
}

TEST(Send, WantsAWorkDirectory)
{
    outcome const run =
        run_zelieml({"send", "-w", "/no/such/directory", "--from", "a@a.test", "--to", "b@b.test"});
    EXPECT_EQ(run.status, EX_NOINPUT);
    expect_said(run, "/no/such/directory");
}

}  // namespace

}  // namespace zelieml::test
