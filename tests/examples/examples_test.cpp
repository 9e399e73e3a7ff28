// examples_test.cpp - the examples do what they say, as programs

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "tests/engine/workplace.h"
#include "tests/examples/example_programs.h"

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

TEST_F(Examples, EngineSendsWhatPostHandsToIt)
{
    loopback server;
    configure(server.smtp_port());
    program engine({ENGINE_EXAMPLE, work_, "printer 1"});
    engine.wait_for("ready\n");
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

TEST_F(Examples, EnginePrintsEveryKindOfResult)
{
    loopback server({"--fault", "rcpt=refuse:550 5.1.1 no such user", "--fault-count", "1"});
    program  engine({ENGINE_EXAMPLE, work_});
    engine.wait_for("ready\n");
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

TEST_F(Examples, ExplainWrongUse)
{
    std::string const configure = "use: configure SETTINGS-FILE key=value...\n";
    std::string const send      = "use: send_and_wait WORKDIR field=value... < body\n";
    std::string const post      = "use: post WORKDIR STOCK-SYMBOL field=value... < body\n";
    std::string const engine    = "use: engine WORKDIR [STOCK-SYMBOL]\n";
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
        {"no directory", POST_EXAMPLE, {}, post},
        {"no symbol", POST_EXAMPLE, {work_}, post},
        {"no such field", POST_EXAMPLE, {work_, "symbol", "=x"}, "not a field of a mail: =x\n"},
        {"no directory", ENGINE_EXAMPLE, {}, engine},
        {"too many names", ENGINE_EXAMPLE, {work_, "symbol", "more"}, engine},
    };
    for (row const& r : rows) {
        SCOPED_TRACE(r.reason + std::string(": ") + r.example);
        expect(run(r.example, r.arguments), 2, "", r.err);
    }
    EXPECT_EQ(list_directory(work_), strings());
}

}  // namespace zelieml::test
