// examples_test.cpp - the examples do what they say, as programs

#include <cctype>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <gtest/gtest.h>
#include <regex>
#include <sys/stat.h>

#include "tests/examples/example_programs.h"
#include "tests/support/mail_server.h"
#include "tests/support/workplace.h"
#include "zelieml_ext.h"

namespace zelieml::test
{

namespace
{

notification_root const root;

class Examples : public ::testing::Test
{
protected:
    Examples() { ::mkdir(work_.c_str(), 0777); }

    // Settings for the server, made by the example.
    void configure(std::string const& port, strings const& more = {}) const
    {
        strings arguments = {settings_, "smtp_server=127.0.0.1", "smtp_port=" + port,
                             "subject_use_encoding=no"};
        arguments.insert(arguments.end(), more.begin(), more.end());
        expect(run(CONFIGURE_EXAMPLE, arguments), 0, "");
    }

    temp_dir          dir_;
    std::string const work_     = dir_.file("work");
    std::string const settings_ = work_ + "/zelismes.cf";
};

// The server of one user, and the arguments that name it to an example.
mailserver::options for_tim()
{
    mailserver::options options;
    options.users = {{"tim", "secret"}};
    return options;
}

strings pop_of(mail_server const& server)
{
    return {"pop_server=127.0.0.1", "pop_account=tim", "pop_passwd=secret",
            "pop_port=" + std::to_string(server.pop_port())};
}

strings smtp_of(mail_server const& server)
{
    return {"smtp_server=127.0.0.1", "smtp_account=tim", "smtp_passwd=secret", "smtp_auth=on",
            "smtp_port=" + std::to_string(server.smtp_port())};
}

// All these arguments. Where a field is set twice, the first value counts.
strings words(strings first, strings const& second = {}, strings const& third = {})
{
    first.insert(first.end(), second.begin(), second.end());
    first.insert(first.end(), third.begin(), third.end());
    return first;
}

void put_mails(mail_server& server)
{
    server.put("From: Tim <tim@a.test>\r\nSubject: =?UTF-8?B?cGFwZXI=?=\r\n\r\nx\r\n");
    server.put("Date: today\r\nFrom: anna@b.test\r\n\r\nno subject\r\n");
    server.put("Subject: toner\r\nFrom: ben@sub.a.test\r\n\r\nx\r\n");
}

}  // namespace

TEST_F(Examples, ConfigureWritesSettings)
{
    expect(run(CONFIGURE_EXAMPLE, {settings_, "smtp_server=mail.test", "smtp_port=25", "x=a=b"}), 0,
           "");
    EXPECT_EQ(read_file(settings_), "smtp_server = mail.test\r\nsmtp_port = 25\r\nx = a=b\r\n");
    expect(run(CONFIGURE_EXAMPLE, {settings_, "smtp_port=2525"}), 0, "");
    EXPECT_EQ(read_file(settings_), "smtp_server = mail.test\r\nsmtp_port = 2525\r\nx = a=b\r\n");
}

TEST_F(Examples, ConfigureStoresPasswordsEncrypted)
{
    expect(run(CONFIGURE_EXAMPLE, {settings_, "smtp_passwd=secret", "pop_passwd=secret"}), 0, "");
    for (char const* key : {"smtp_passwd", "pop_passwd"}) {
        char         stored[64] = "";
        unsigned int length     = sizeof stored;
        EXPECT_EQ(eml_cf_get_string(key, stored, &length, settings_.c_str()), 0);
        EXPECT_EQ(length, 12u) << stored;
        unsigned char* const clear = eml_decrypt_passwd(reinterpret_cast<unsigned char*>(stored));
        EXPECT_STREQ(reinterpret_cast<char*>(clear), "secret");
        eml_decrypt_free_passwd(clear);
    }
    EXPECT_EQ(read_file(settings_).find("secret"), std::string::npos);
}

TEST_F(Examples, ConfigureKeepsANewFileFromOthers)
{
    auto const permissions = [this] {
        struct stat info = {};
        EXPECT_EQ(::stat(settings_.c_str(), &info), 0);
        return info.st_mode & 0777u;
    };
    mode_t const before = ::umask(022);
    expect(run(CONFIGURE_EXAMPLE, {settings_, "pop_passwd=secret"}), 0, "");
    ::umask(before);
    EXPECT_EQ(permissions(), 0600u);
    ::chmod(settings_.c_str(), 0640);
    expect(run(CONFIGURE_EXAMPLE, {settings_, "pop_passwd=other"}), 0, "");
    EXPECT_EQ(permissions(), 0640u);
}

TEST_F(Examples, ConfigureSaysWhatItCannotSet)
{
    std::string const nowhere = work_ + "/none/zelismes.cf";
    expect(run(CONFIGURE_EXAMPLE, {nowhere, "a=b"}), 1, "",
           "configure: a could not be set in " + nowhere + "\n");
    expect(run(CONFIGURE_EXAMPLE, {settings_, "smtp_passwd="}), 1, "",
           "configure: smtp_passwd could not be set in " + settings_ + "\n");
}

TEST_F(Examples, SendAndWaitPrintsWhatTheServerSaid)
{
    loopback server;
    configure(server.smtp_port());
    expect(run(SEND_EXAMPLE, with_mail({work_}), "The tray is empty.\n"), 0,
           "result code: 0\nserver said: 221 2.0.0 goodbye\r\n");
    server.wait_for("mail from:<box@a.test> to:<anna@b.test>");
    server.wait_for("Subject: paper");
    EXPECT_EQ(list_directory(work_), strings{"zelismes.cf"});
}

TEST_F(Examples, SendAndWaitLogsInWithAStoredPassword)
{
    loopback server({"--user", "tim", "--password", "secret", "--require-auth"});
    configure(server.smtp_port(), {"smtp_auth=yes", "smtp_account=tim", "smtp_passwd=secret"});
    expect(run(SEND_EXAMPLE, with_mail({work_}), "x\n"), 0,
           "result code: 0\nserver said: 221 2.0.0 goodbye\r\n");
    configure(server.smtp_port(), {"smtp_passwd=wrong"});
    expect(run(SEND_EXAMPLE, with_mail({work_}), "x\n"), 1,
           "result code: 3\nserver said: 535 5.7.8 user name or password wrong\r\n");
}

TEST_F(Examples, SendAndWaitPrintsWhyItFailed)
{
    loopback server({"--fault", "rcpt=refuse:550 5.1.1 no such user"});
    expect(run(SEND_EXAMPLE, with_mail({work_}), "x\n"), 1,
           "result code: 2\nserver said: nothing\n");
    configure(server.smtp_port());
    expect(run(SEND_EXAMPLE, with_mail({work_}), "x\n"), 1,
           "result code: 1\nserver said: 550 5.1.1 no such user\r\n");
    expect(run(SEND_EXAMPLE, with_mail({work_ + "/none"}), "x\n"), 1,
           "result code: 1\nserver said: nothing\n");
}

TEST_F(Examples, SendAndWaitPrintsALongAnswer)
{
    std::string const text(3000, 'x');
    loopback          server({"--fault", "rcpt=refuse:550 " + text});
    configure(server.smtp_port());
    expect(run(SEND_EXAMPLE, with_mail({work_}), "x\n"), 1,
           "result code: 1\nserver said: 550 " + text + "\r\n");
}

TEST_F(Examples, SendAndWaitTakesAllFieldsAndALongBody)
{
    loopback server;
    configure(server.smtp_port());
    std::string body;
    for (int line = 0; line < 2000; ++line) {
        body += "line " + std::to_string(line) + " of a long body\n";
    }
    strings arguments = with_mail({work_});
    arguments.insert(arguments.end(),
                     {"cc=ben@b.test", "messageid=<1@a.test>", "encoding=iso-2022-jp"});
    expect(run(SEND_EXAMPLE, arguments, body), 0,
           "result code: 0\nserver said: 221 2.0.0 goodbye\r\n");
    server.wait_for("to:<anna@b.test> to:<ben@b.test>");
    server.wait_for("Message-Id: <1@a.test>\n");
    server.wait_for("C: line 1999 of a long body\n");
}

// What why prints, without the time and the name of the file.
std::string without_details(std::string const& out)
{
    std::string const no_time = std::regex_replace(out, std::regex(", [0-9.]+ s\n"), "\n");
    return std::regex_replace(no_time, std::regex("(file:    /).*\n"), "$1\n");
}

// What why prints of a mail and settings without other findings.
std::string const nothing_found =
    std::string("library: ") + EML_VERSION +
    "\nmessage: note, messageid: there is none, and not every server adds one: set <name@host>\n";

TEST_F(Examples, WhyPrintsAllThatIsKnown)
{
    loopback server({"--fault", "rcpt=refuse:550 5.1.1 no such user"});
    configure(server.smtp_port());
    outcome came = run(WHY_EXAMPLE, with_mail({work_}), "x\n");
    came.out     = without_details(came.out);
    expect(came, 1,
           nothing_found + "code:    1\nnumber:  1005\nattempt: 1\nfile:    /\n" +
               "reason:  the server refused the recipient anna@b.test: 550 5.1.1 no such user\n");
    loopback good;
    configure(good.smtp_port());
    came     = run(WHY_EXAMPLE, with_mail({work_}), "x\n");
    came.out = without_details(came.out);
    expect(came, 0,
           nothing_found + "code:    0\nnumber:  0\nattempt: 1\nfile:    /\nreason:  sent\n");
}

TEST_F(Examples, WhySendsWhateverTheChecksFind)
{
    loopback server;
    configure(server.smtp_port(), {"smtp_auth=Yes", "pop_sever=mail.test"});
    strings arguments = with_mail({work_});
    arguments.push_back("messageid=<1@a.test>");
    outcome came = run(WHY_EXAMPLE, arguments, "x\nto: ben@b.test\n");
    came.out     = without_details(came.out);
    expect(
        came, 0,
        std::string("library: ") + EML_VERSION +
            "\nmessage: error, body, line 2: it begins with \"to: \", is taken as that header and "
            "is missing from the body: indent it\n"
            "setting: error, smtp_auth, line 4: it counts as no: write yes or no, in small letters\n"
            "setting: warning, line 5: the library uses no such key: is pop_server meant?\n"
            "code:    0\nnumber:  0\nattempt: 1\nfile:    /\nreason:  sent\n");
    server.wait_for("to:<ben@b.test>");
    std::string const path = work_ + "/none";
    came                   = run(WHY_EXAMPLE, with_mail({path}), "x\n");
    came.out               = without_details(came.out);
    expect(came, 1,
           nothing_found +
               "setting: error: the file is missing, cannot be read, or is no regular file\n"
               "code:    1\nnumber:  100\nattempt: 0\nfile:    none\n"
               "reason:  the message cannot be saved in " +
               path + ": No such file or directory\n");
}

TEST_F(Examples, EngineSendsWhatPostHandsToIt)
{
    for (std::string const& example : strings{ENGINE_EXAMPLES}) {
        SCOPED_TRACE(example);
        loopback server;
        configure(server.smtp_port());
        program engine({example, work_, "printer 1"});
        engine.wait_for("ready\n");
        wait_for_registration();
        auto const start = std::chrono::steady_clock::now();
        expect(run(POST_EXAMPLE, with_mail({work_, "printer 1"}), "The tray is empty.\n"), 0, "");
        engine.wait_for("result 0 (sent): 221 2.0.0 goodbye\n");
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(3));
        server.wait_for("mail from:<box@a.test> to:<anna@b.test>");
        EXPECT_TRUE(wait_until([&] { return list_directory(work_) == strings{"zelismes.cf"}; }));
        engine.signal(SIGTERM);
        EXPECT_EQ(engine.wait(), 0);
        EXPECT_EQ(engine.out(), "ready\nresult 0 (sent): 221 2.0.0 goodbye\n");
        EXPECT_EQ(engine.err(), "");
        EXPECT_EQ(root.sockets(), strings());
    }
}

TEST_F(Examples, EnginePrintsEveryKindOfResult)
{
    loopback server({"--fault", "rcpt=refuse:550 5.1.1 no such user", "--fault-count", "1"});
    program  engine({ENGINE_EXAMPLE, work_});
    engine.wait_for("ready\n");
    wait_for_registration();
    auto const post = [&] {
        expect(run(POST_EXAMPLE, with_mail({work_, "zelieml_stocksymbol"}), "x\n"), 0, "");
    };
    post();
    engine.wait_for("result 2 (no connection): \n");
    configure(server.smtp_port());
    post();
    engine.wait_for("result 1 (not sent): 550 5.1.1 no such user\n");
    configure(server.smtp_port(), {"smtp_auth=yes", "smtp_account=tim", "smtp_passwd=wrong"});
    post();
    engine.wait_for("result 3 (login refused): 535 5.7.8 user name or password wrong\n");
    engine.signal(SIGINT);
    EXPECT_EQ(engine.wait(), 0);
    EXPECT_EQ(list_directory(work_).size(), 4u) << "three that wait for a second attempt";
}

TEST_F(Examples, EngineSaysWhenItCannotStart)
{
    expect(run(ENGINE_EXAMPLE, {work_, ""}), 1, "", "engine: not started for " + work_ + "\n");
    std::string const directory(256, 'd');
    expect(run(ENGINE_EXAMPLE, {directory}), 1, "", "engine: not started for " + directory + "\n");
}

TEST_F(Examples, PostNeedsNoEngine)
{
    expect(run(POST_EXAMPLE, with_mail({work_, "nobody"}), "The tray is empty.\n"), 0, "");
    ASSERT_EQ(list_directory(work_).size(), 1u);
    EXPECT_EQ(read_file(work_ + "/" + list_directory(work_)[0]),
              "encoding: UTF-8\nfrom: tim@a.test\nto: anna@b.test\nsubject: paper\n"
              "replyto: box@a.test\nThe tray is empty.\n");
}

TEST_F(Examples, PostSaysWhenItCannotSave)
{
    std::string const nowhere = work_ + "/none";
    expect(run(POST_EXAMPLE, with_mail({nowhere, "symbol"}), "x\n"), 1, "",
           "post: the message could not be saved in " + nowhere + "\n");
}

TEST(SettingsExample, TriesBothServersAndPrintsWhatTheySaid)
{
    mail_server server(for_tim());
    expect(run(SETTINGS_EXAMPLE, words({"--trust"}, pop_of(server), smtp_of(server))), 0,
           "POP3: accepted\nserver said: +OK goodbye\r\n"
           "SMTP: accepted\nserver said: 221 2.0.0 goodbye\r\n");
    ASSERT_EQ(server.sessions().size(), 2u);
    EXPECT_NE(server.sessions()[0].find("C: user tim\n"), std::string::npos);
    EXPECT_NE(server.sessions()[1].find("C: AUTH CRAM-MD5\n"), std::string::npos);
}

TEST(SettingsExample, PrintsNothingThatUntrustedServersSay)
{
    mail_server server(for_tim());
    expect(run(SETTINGS_EXAMPLE, words(pop_of(server), {"pop_auth_type=apop"})), 0,
           "POP3: accepted\n");
    expect(run(SETTINGS_EXAMPLE, words(smtp_of(server))), 0, "SMTP: accepted\n");
}

TEST(SettingsExample, SaysInWordsWhatIsWrong)
{
    mailserver::options none    = for_tim();
    none.smtp_mechanisms        = {};
    none.pop_apop               = false;
    mailserver::options refuses = for_tim();
    refuses.faults              = {{"pop.quit", mailserver::fault::action::close}};
    mail_server       server(for_tim());
    mail_server       plain(none);
    mail_server       broken(refuses);
    closed_port const nobody;
    strings const     nowhere = {"pop_port=" + std::to_string(nobody.number()),
                                 "smtp_port=" + std::to_string(nobody.number())};
    struct row {
        char const* reason;
        strings     arguments;
        std::string out;
    } const rows[] = {
        {"a wrong POP3 password", words({"pop_passwd=wrong"}, pop_of(server)),
         "POP3: login refused\nserver said: -ERR user name or password wrong\r\n"},
        {"a wrong APOP password", words({"pop_passwd=wrong", "pop_auth_type=apop"}, pop_of(server)),
         "POP3: login refused\nserver said: -ERR user name or password wrong\r\n"},
        {"APOP is not offered", words({"pop_auth_type=apop"}, pop_of(plain)),
         "POP3: login refused\nserver said: +OK loopback mail server ready\r\n"},
        {"QUIT is not answered", words(pop_of(broken)), "POP3: failed\nserver said: nothing\n"},
        {"no POP3 server", words(nowhere, pop_of(server)),
         "POP3: no connection\nserver said: nothing\n"},
        {"a wrong SMTP password", words({"smtp_passwd=wrong"}, smtp_of(server)),
         "SMTP: login refused\nserver said: 535 5.7.8 user name or password wrong\r\n"},
        {"the switch is off, the server offers", words({"smtp_auth=off"}, smtp_of(server)),
         "SMTP: login refused\nserver said: 250-localhost\r\n250-PIPELINING\r\n"
         "250-8BITMIME\r\n250-AUTH CRAM-MD5 LOGIN PLAIN\r\n250-ENHANCEDSTATUSCODES\r\n"
         "250 SIZE 67108864\r\n"},
        {"the switch is on, the server offers nothing", words(smtp_of(plain)),
         "SMTP: login refused\nserver said: 250-localhost\r\n250-PIPELINING\r\n"
         "250-8BITMIME\r\n250-ENHANCEDSTATUSCODES\r\n250 SIZE 67108864\r\n"},
        {"no SMTP server", words(nowhere, smtp_of(server)),
         "SMTP: no connection\nserver said: nothing\n"},
    };
    for (row const& r : rows) {
        SCOPED_TRACE(r.reason);
        expect(run(SETTINGS_EXAMPLE, words({"--trust"}, r.arguments)), 1, r.out);
    }
}

TEST(SettingsExample, LogsInToPop3FirstWhenToldTo)
{
    mail_server   server(for_tim());
    strings const both =
        words({"--trust", "pop_before_smtp=on", "pop_wait_time=300"}, pop_of(server));
    int const ms = ms_of([&] {
        expect(run(SETTINGS_EXAMPLE, words(both, smtp_of(server))), 0,
               "POP3: accepted\nserver said: +OK goodbye\r\n"
               "SMTP: accepted\nserver said: 221 2.0.0 goodbye\r\n");
    });
    EXPECT_GE(ms, 300);
    EXPECT_EQ(server.sessions().size(), 3u) << "POP3, and POP3 before SMTP";

    mail_server untouched(for_tim());
    expect(run(SETTINGS_EXAMPLE, words({"--trust", "pop_before_smtp=on", "pop_passwd=wrong"},
                                       pop_of(server), smtp_of(untouched))),
           1,
           "POP3: login refused\nserver said: -ERR user name or password wrong\r\n"
           "SMTP: login refused\nserver said: -ERR user name or password wrong\r\n");
    EXPECT_EQ(untouched.sessions(), strings());
}

// What the probe prints, without the times.
std::string without_times(std::string text)
{
    for (std::size_t at = 0; (at = text.find(" s", at)) != std::string::npos;) {
        std::size_t begin = at;
        while (begin > 0 && (std::isdigit(text[begin - 1]) != 0 || text[begin - 1] == '.')) {
            --begin;
        }
        if (begin == at) {
            ++at;
        } else {
            while (text[begin - 1] == ' ') {
                --begin;
            }
            text.erase(begin, at + 2 - begin);
            at = begin;
        }
    }
    return text;
}

TEST_F(Examples, ProbePrintsALineForEachStep)
{
    mail_server server(for_tim());
    configure(std::to_string(server.smtp_port()));
    outcome came = run(PROBE_EXAMPLE, {work_});
    came.out     = without_times(came.out);
    expect(came, 0,
           "settings     ok\n"
           "look-up      ok\n"
           "connect      ok\n"
           "greeting     ok\n"
           "helo         ok\n"
           "offer        remark  the server offers AUTH: mails get through without a login, but "
           "test_smtp_auth fails with \"off\"\n"
           "quit         ok\n");

    configure(std::to_string(server.smtp_port()),
              {"smtp_auth=yes", "smtp_account=tim", "smtp_passwd=secret"});
    came     = run(PROBE_EXAMPLE, {work_, "box@a.test", "anna@b.test"});
    came.out = without_times(came.out);
    expect(came, 0,
           "settings     ok\n"
           "look-up      ok\n"
           "connect      ok\n"
           "greeting     ok\n"
           "ehlo         ok\n"
           "login        ok\n"
           "sender       ok\n"
           "recipient    ok\n"
           "reset        ok\n"
           "quit         ok\n");
    EXPECT_TRUE(server.mails().empty());
}

TEST_F(Examples, ProbeSaysWhatFailed)
{
    std::string const missing = "settings     FAILED  1000  settings: ";
    outcome           came    = run(PROBE_EXAMPLE, {work_});
    came.out                  = without_times(came.out);
    EXPECT_EQ(came.out.substr(0, missing.size()), missing);
    EXPECT_EQ(came.status, 1);

    closed_port const nobody;
    configure(std::to_string(nobody.number()));
    came     = run(PROBE_EXAMPLE, {work_});
    came.out = without_times(came.out);
    expect(came, 1,
           "settings     ok\n"
           "look-up      ok\n"
           "connect      FAILED  1001  connect to 127.0.0.1:" +
               std::to_string(nobody.number()) + ": Connection refused\n");
    expect(run(PROBE_EXAMPLE, {work_, "a@a.test", "b@b.test\r\ndata"}), 1, "",
           "probe: not begun\n");
}

TEST(ReceiveExample, PrintsAllMailsAndEmptiesTheMailbox)
{
    mail_server server(for_tim());
    expect(run(RECEIVE_EXAMPLE, words({"--delete"}, pop_of(server))), 0, "mails: 0\n");
    put_mails(server);
    expect(run(RECEIVE_EXAMPLE, words({"--delete", "pop_auth_type=apop"}, pop_of(server))), 0,
           "mails: 3\n"
           "From: Tim <tim@a.test>\nSubject: =?UTF-8?B?cGFwZXI=?=\n"
           "From: anna@b.test\nSubject: \n"
           "From: ben@sub.a.test\nSubject: toner\n");
    EXPECT_EQ(server.mailbox(), strings());
}

TEST(ReceiveExample, PrintsTheMailsOfSomeDomainsAndDeletesAll)
{
    mail_server server(for_tim());
    put_mails(server);
    expect(run(RECEIVE_EXAMPLE, words({"--delete", "domains=c.test, a.test"}, pop_of(server))), 0,
           "mails: 2\n"
           "From: Tim <tim@a.test>\nSubject: =?UTF-8?B?cGFwZXI=?=\n"
           "From: ben@sub.a.test\nSubject: toner\n");
    EXPECT_EQ(server.mailbox(), strings());
}

TEST(ReceiveExample, TouchesNothingWithoutALogin)
{
    mail_server server(for_tim());
    put_mails(server);
    expect(run(RECEIVE_EXAMPLE, words({"--delete", "pop_passwd=wrong"}, pop_of(server))), 1, "",
           "receive: no login; no mail was touched\n");
    EXPECT_EQ(server.mailbox().size(), 3u);
}

TEST(ReceiveExample, SaysThatMailsAreLost)
{
    // The first mail goes; then the server is tired.
    mailserver::options tired = for_tim();
    tired.faults              = {{"pop.stat", mailserver::fault::action::delay, 0, "", 1},
                                 {"pop.stat", mailserver::fault::action::close}};
    mail_server server(tired);
    put_mails(server);
    expect(run(RECEIVE_EXAMPLE, words({"--delete"}, pop_of(server))), 1, "",
           "receive: failed; mails fetched before that are lost\n");
    EXPECT_EQ(server.mailbox().size(), 2u);
}

TEST_F(Examples, ExplainWrongUse)
{
    std::string const configure = "use: configure SETTINGS-FILE key=value...\n";
    std::string const send      = "use: send_and_wait WORKDIR field=value... < body\n";
    std::string const post      = "use: post WORKDIR STOCK-SYMBOL field=value... < body\n";
    std::string const engine    = "use: engine WORKDIR [STOCK-SYMBOL]\n";
    std::string const probe     = "use: probe WORKDIR [SENDER RECIPIENT]\n";
    std::string const settings =
        "use: test_settings [--trust] pop_server=HOST smtp_server=HOST field=value...\n";
    std::string const receive  = "use: receive --delete pop_server=HOST field=value...\n";
    std::string const pop      = "pop_server=127.0.0.1";
    std::string const no_field = "not a field of a server: ";
    struct row {
        char const* reason;
        char const* example;
        strings     arguments;
        std::string err;
    } const rows[] = {
        {"no file", CONFIGURE_EXAMPLE, {}, configure},
        {"no setting", CONFIGURE_EXAMPLE, {settings_}, configure},
        {"no value", CONFIGURE_EXAMPLE, {settings_, "key"}, "configure: no value: key\n"},
        {"no directory", SEND_EXAMPLE, {}, send},
        {"no value", SEND_EXAMPLE, {work_, "to"}, "not a field of a mail: to\n"},
        {"no such field", SEND_EXAMPLE, {work_, "toto=x"}, "not a field of a mail: toto=x\n"},
        {"the body is no field",
         SEND_EXAMPLE,
         {work_, "body=x"},
         "not a field of a mail: body=x\n"},
        {"no such encoding",
         SEND_EXAMPLE,
         {work_, "encoding=latin1"},
         "not a field of a mail: encoding=latin1\n"},
        {"no directory", WHY_EXAMPLE, {}, "use: why WORKDIR field=value... < body\n"},
        {"no such field", WHY_EXAMPLE, {work_, "toto=x"}, "not a field of a mail: toto=x\n"},
        {"no directory", POST_EXAMPLE, {}, post},
        {"no symbol", POST_EXAMPLE, {work_}, post},
        {"no such field", POST_EXAMPLE, {work_, "symbol", "=x"}, "not a field of a mail: =x\n"},
        {"no directory", ENGINE_EXAMPLE, {}, engine},
        {"too many names", ENGINE_EXAMPLE, {work_, "symbol", "more"}, engine},
        {"no directory", PROBE_EXAMPLE, {}, probe},
        {"no recipient", PROBE_EXAMPLE, {work_, "a@a.test"}, probe},
        {"no server", SETTINGS_EXAMPLE, {}, settings},
        {"no server", SETTINGS_EXAMPLE, {"--trust"}, settings},
        {"no server", SETTINGS_EXAMPLE, {"pop_port=110"}, settings},
        {"no value", SETTINGS_EXAMPLE, {pop, "pop_port"}, no_field + "pop_port\n"},
        {"no such field", SETTINGS_EXAMPLE, {pop, "pop=1"}, no_field + "pop=1\n"},
        {"no number", SETTINGS_EXAMPLE, {pop, "pop_port="}, no_field + "pop_port=\n"},
        {"no number", SETTINGS_EXAMPLE, {pop, "pop_port=1a"}, no_field + "pop_port=1a\n"},
        {"no port", SETTINGS_EXAMPLE, {pop, "smtp_port=65536"}, no_field + "smtp_port=65536\n"},
        {"too many digits",
         SETTINGS_EXAMPLE,
         {pop, "pop_wait_time=000001"},
         no_field + "pop_wait_time=000001\n"},
        {"upper case",
         SETTINGS_EXAMPLE,
         {pop, "pop_auth_type=POP"},
         no_field + "pop_auth_type=POP\n"},
        {"no such switch", SETTINGS_EXAMPLE, {pop, "smtp_auth=yes"}, no_field + "smtp_auth=yes\n"},
        {"the second one is wrong",
         SETTINGS_EXAMPLE,
         {pop, "pop_port=1", "pop_port=x"},
         no_field + "pop_port=x\n"},
        {"nothing", RECEIVE_EXAMPLE, {}, receive},
        {"not told to delete", RECEIVE_EXAMPLE, {pop, "pop_account=tim"}, receive},
        {"no server", RECEIVE_EXAMPLE, {"--delete", "pop_account=tim"}, receive},
        {"no such field", RECEIVE_EXAMPLE, {"--delete", pop, "x=y"}, no_field + "x=y\n"},
    };
    for (row const& r : rows) {
        SCOPED_TRACE(r.reason + std::string(": ") + r.example);
        expect(run(r.example, r.arguments), 2, "", r.err);
    }
    EXPECT_EQ(list_directory(work_), strings());
}

}  // namespace zelieml::test
