// Conversations with a POP3 server whose mails are fetched and deleted.

#include "libreceive/fetchmail.h"

#include "tests/support/clean_machine.h"
#include "tests/support/dialogues.h"

namespace zelieml::test
{

namespace
{

_s_mailserver account(char const* auth_type, int port)
{
    _s_mailserver server;
    server.pop_host      = "127.0.0.1";
    server.pop_port      = port;
    server.pop_user      = "anna";
    server.pop_password  = "secret";
    server.pop_auth_type = auth_type;
    return server;
}

// What one session gives.
struct outcome {
    int          result    = 0;
    std::int32_t fetched   = -7;
    std::int32_t remaining = -7;
    std::string  from      = "as it was";
    std::string  subject   = "as it was";
    std::string  reply     = "as it was";
    strings      mail      = {"as it was"};
};

outcome fetch_one(_s_mailserver const& server)
{
    outcome o;
    o.result =
        fetchmail_get_one_mail(server, o.fetched, o.remaining, o.from, o.subject, o.reply, &o.mail);
    return o;
}

// ------------------------------------------------------------- one mail, whole

// A session that ends well and fetches nothing, unless it says otherwise.
struct one_mail_case : named_case {
    using named_case::named_case;

    one_mail_case& by(char const* its_auth_type)
    {
        auth_type = its_auth_type;
        return *this;
    }
    one_mail_case& plays(std::string const& its_transcript)
    {
        transcript = its_transcript;
        return *this;
    }
    one_mail_case& fetches(std::string const& its_from, std::string const& its_subject)
    {
        fetched = 1;
        from    = its_from;
        subject = its_subject;
        return *this;
    }
    one_mail_case& leaves(int mails)
    {
        remaining = mails;
        return *this;
    }
    one_mail_case& says(std::string const& last_reply)
    {
        reply = last_reply;
        return *this;
    }
    one_mail_case& trouble(strings const& traces)
    {
        traced = traces;
        return *this;
    }
    one_mail_case& fails(std::string const& last_reply, strings const& traces)
    {
        result = -1;
        return says(last_reply).trouble(traces);
    }

    char const* auth_type = "pop";
    std::string transcript;
    int         result    = 0;
    int         fetched   = 0;
    int         remaining = 0;
    std::string from;
    std::string subject;
    std::string reply = "+OK bye\r\n";
    strings     traced;
};

class OneMail : public on_a_clean_machine_with<one_mail_case>
{
};

TEST_P(OneMail, EndsAsTheTranscriptSays)
{
    one_mail_case const& c = GetParam();
    local_server         server(c.transcript);

    outcome const o = fetch_one(account(c.auth_type, server.port()));

    EXPECT_EQ(o.result, c.result);
    EXPECT_EQ(o.reply, c.reply);
    EXPECT_EQ(trouble_traces(), c.traced);
    if (c.result == 0) {
        EXPECT_EQ(o.fetched, c.fetched);
        EXPECT_EQ(o.remaining, c.remaining);
    }
    if (c.result == 0 && c.fetched != 0) {
        EXPECT_EQ(o.from, c.from);
        EXPECT_EQ(o.subject, c.subject);
    }
    EXPECT_EQ(server.heard(), server.expected()) << server.problem();
}

constexpr char const* lost = "error:sock_readline";

// A login, and what STAT says.
std::string mailbox_of(std::string const& stat_reply)
{
    return pop_login() + answered("stat", stat_reply);
}

// A session in which one mail is fetched, deleted, and no other is there.
std::string session_with(std::string const& mail)
{
    return mailbox_of("+OK 1 100") + answered("retr 1", "+OK") + mail + "\nS: .\n" +
           answered("dele 1", "+OK") + pop_goodbye;
}

std::string lines(int count, char const* text)
{
    std::string all;
    for (int i = 0; i < count; ++i) {
        all += std::string("S+ ") + text + "\n";
    }
    return all;
}

one_mail_case const one_mail_cases[] = {
    one_mail_case("an empty mailbox: nothing is fetched, nothing deleted")
        .plays(mailbox_of("+OK 0 0") + pop_goodbye),
    one_mail_case("the first of three")
        .plays(pop_login() + R"(
        C: stat
        S: +OK 3 360
        C: retr 1
        S: +OK 120 octets
        S: Received: from somewhere
        S: From: Anna <anna@a.test>
        S: To: bert@b.test
        S: Subject: paper
        S:
        S: out
        S: .
        C: dele 1
        S: +OK
        C: quit
        S: +OK bye
     )")
        .fetches("From: Anna <anna@a.test>", "Subject: paper")
        .leaves(2),
    one_mail_case("by APOP")
        .by("apop")
        .plays(R"(
        S: +OK ready <1@pop.test>
        C: apop anna 0980c615e9837e503ebd2cf69ae856a4
        S: +OK
        C: stat
        S: +OK 1 100
        C: retr 1
        S: +OK
        S: From: a@a.test
        S: .
        C: dele 1
        S: +OK
        C: quit
        S: +OK bye
     )")
        .fetches("From: a@a.test", ""),
    one_mail_case("any other type means USER and PASS")
        .by("x")
        .plays(mailbox_of("+OK 0 0") + pop_goodbye),
    one_mail_case("APOP in upper case means USER and PASS")
        .by("APOP")
        .plays(mailbox_of("+OK 0 0") + pop_goodbye),
    one_mail_case("an empty type means USER and PASS")
        .by("")
        .plays(mailbox_of("+OK 0 0") + pop_goodbye),

    one_mail_case("without From")
        .plays(session_with("S: Subject: s\nS:\nS: text"))
        .fetches("", "Subject: s"),
    one_mail_case("without Subject, but with a body line that contains the key")
        .plays(session_with(
            "S: From: a@a.test\nS:\nS: text\nS: Your Subject: see above\nS: Subject: late"))
        .fetches("From: a@a.test", "Your Subject: see above"),
    one_mail_case("without Subject anywhere")
        .plays(session_with("S: From: a@a.test\nS:\nS: text"))
        .fetches("From: a@a.test", ""),
    one_mail_case("without headers")
        .plays(session_with("S:\nS: From: the body"))
        .fetches("From: the body", ""),
    one_mail_case("of nothing at all").plays(session_with("")).fetches("", ""),
    one_mail_case("keys are found within a line, in its first line")
        .plays(session_with(
            "S: X-From: x@x.test\nS: From: a@a.test\nS: Thread-Subject: t\nS: Subject: s"))
        .fetches("X-From: x@x.test", "Thread-Subject: t"),
    one_mail_case("keys have their case and their blank")
        .plays(
            session_with("S: FROM: a@a.test\nS: from: b@b.test\nS: From:c@c.test\nS: subject: s"))
        .fetches("", ""),
    one_mail_case("an encoded word stays encoded, a continuation is not joined")
        .plays(session_with("S: Subject: =?UTF-8?B?5rWL?=\nS:  more\nS: From: a@a.test"))
        .fetches("From: a@a.test", "Subject: =?UTF-8?B?5rWL?="),
    one_mail_case("blanks and tabs at the end stay")
        .plays(session_with("S: From: a@a.test \\t\nS: Subject: \\x20 s \\x20"))
        .fetches("From: a@a.test \t", "Subject:   s  "),
    one_mail_case("dots stay doubled")
        .plays(session_with("S: From: ..a@a.test\nS: ..Subject: dots"))
        .fetches("From: ..a@a.test", "..Subject: dots"),
    one_mail_case("lines that end in LF alone")
        .plays(session_with("S- From: a@a.test\\nSubject: s\\n\nS:"))
        .fetches("From: a@a.test", "Subject: s"),
    one_mail_case("the status line is searched too")
        .plays(mailbox_of("+OK 1 9") + answered("retr 1", "+OK Subject: of the status") +
               "S: From: a@a.test\nS: Subject: s\nS: .\n" + answered("dele 1", "+OK") + pop_goodbye)
        .fetches("From: a@a.test", "+OK Subject: of the status"),
    one_mail_case("a line of 4095 bytes is a line, one of 4096 is empty")
        .plays(session_with("S: From: " + std::string(4087, 'x') +
                            "\nS: Subject: " + std::string(4085, 'y')))
        .fetches("From: " + std::string(4087, 'x'), "")
        .trouble({"error:buffer over flow"}),
    one_mail_case("a mail of 2000 lines")
        .plays(session_with("S+ From: a@a.test\n" + lines(1999, "x") + "S- "))
        .fetches("From: a@a.test", ""),

    one_mail_case("a refused DELE is no failure")
        .plays(mailbox_of("+OK 2 9") + answered("retr 1", "+OK") + "S: From: a@a.test\nS: .\n" +
               answered("dele 1", "-ERR read only") + pop_goodbye)
        .fetches("From: a@a.test", "")
        .leaves(1)
        .trouble({"error:-ERR", "error:pop_dele %s"}),
    one_mail_case("the word error in a good reply to DELE is a refusal")
        .plays(mailbox_of("+OK 1 9") + answered("retr 1", "+OK") + "S: From: a@a.test\nS: .\n" +
               answered("dele 1", "+OK no errors") + pop_goodbye)
        .fetches("From: a@a.test", "")
        .trouble({"error:-ERR", "error:pop_dele %s"}),
    one_mail_case("QUIT is answered well by any line")
        .plays(mailbox_of("+OK 0 0") + answered("quit", "-ERR some mails not removed"))
        .says("-ERR some mails not removed\r\n"),
    one_mail_case("a negative count is an empty mailbox")
        .plays(mailbox_of("+OK -3 100") + pop_goodbye),
    one_mail_case("a count that is missing is an empty mailbox")
        .plays(mailbox_of("+OK") + pop_goodbye)
        .trouble({"error:token", "error:token"}),
    one_mail_case("a count that is no number is an empty mailbox")
        .plays(mailbox_of("+OK many 100") + pop_goodbye),
    one_mail_case("a size that is missing is no harm")
        .plays(mailbox_of("+OK 0") + pop_goodbye)
        .trouble({"error:token"}),
    one_mail_case("a STAT reply of 1023 bytes")
        .plays(mailbox_of("+OK 0 0 " + std::string(1023 - 10, 'x')) + pop_goodbye),
    one_mail_case("the largest count")
        .plays(mailbox_of("+OK 2147483647 99999999999") + answered("retr 1", "+OK") + "S: .\n" +
               answered("dele 1", "+OK") + pop_goodbye)
        .fetches("", "")
        .leaves(2147483646),
    one_mail_case("a mail that is cut short counts as fetched, and QUIT fails")
        .plays(mailbox_of("+OK 1 9") + answered("retr 1", "+OK") +
               "S: From: a@a.test\nS: (half-closes)\nC: dele 1\nC: quit\n")
        .fails("", {lost, "error:pop_dele %s", lost, "error: pop_quit"}),

    one_mail_case("the greeting is missing")
        .plays("S: (closes)\n")
        .fails("", {lost, "error: pop_start_session"}),
    one_mail_case("the user is refused")
        .plays("S: +OK\n" + refused_at("user anna", "-ERR no"))
        .fails("-ERR no\r\n", {"error:-ERR", "error: pop_user"}),
    one_mail_case("the password is refused")
        .plays("S: +OK\n" + answered("user anna", "+OK") + refused_at("pass secret", "-ERR no"))
        .fails("-ERR no\r\n", {"error:-ERR", "error: pop_passwd"}),
    one_mail_case("the word error in a good reply to PASS")
        .plays("S: +OK\n" + answered("user anna", "+OK") +
               refused_at("pass secret", "+OK 0 errors"))
        .fails("+OK 0 errors\r\n", {"error:-ERR", "error: pop_passwd"}),
    one_mail_case("APOP is refused")
        .by("apop")
        .plays("S: +OK <a>\n" + refused_at("apop {any}", "-ERR no"))
        .fails("-ERR no\r\n", {"error:-ERR", "error: pop_apop"}),
    one_mail_case("the word error in a good reply to APOP")
        .by("apop")
        .plays("S: +OK <a>\n" + refused_at("apop {any}", "+OK 0 errors"))
        .fails("+OK 0 errors\r\n", {"error:-ERR", "error: pop_apop"}),
    one_mail_case("the word error in a good reply to STAT")
        .plays(pop_login() + refused_at("stat", "+OK 1 9 error"))
        .fails("+OK 1 9 error\r\n", {"error:-ERR", "error: pop_stat"}),
    one_mail_case("a greeting without brackets")
        .by("apop")
        .plays("S: +OK\n" + hangs_up)
        .fails("+OK\r\n", {"error:challenge spos %s", "error: pop_apop"}),
    one_mail_case("a greeting without a closing bracket")
        .by("apop")
        .plays("S: +OK <1@a\n" + hangs_up)
        .fails("+OK <1@a\r\n", {"error:challenge epos %s", "error: pop_apop"}),
    one_mail_case("a greeting with reversed brackets")
        .by("apop")
        .plays("S: +OK >1@a<\n" + hangs_up)
        .fails("+OK >1@a<\r\n", {"error:challenge spos, epos %s", "error: pop_apop"}),
    one_mail_case("a greeting with several brackets: the first pair counts")
        .by("apop")
        .plays("S: +OK <1@pop.test> <2@pop.test>\n" +
               answered("apop anna 0980c615e9837e503ebd2cf69ae856a4", "+OK") +
               answered("stat", "+OK 0 0") + pop_goodbye),
    one_mail_case("STAT is refused")
        .plays(pop_login() + refused_at("stat", "-ERR locked"))
        .fails("-ERR locked\r\n", {"error:-ERR", "error: pop_stat"}),
    one_mail_case("a STAT reply of 1024 bytes")
        .plays(pop_login() + refused_at("stat", "+OK 1 1 " + std::string(1024 - 10, 'x')))
        .fails("+OK 1 1 " + std::string(1024 - 10, 'x') + "\r\n",
               {"error:BufLen", "error: pop_stat"}),
    one_mail_case("RETR is refused: nothing is deleted, and there is no QUIT")
        .plays(mailbox_of("+OK 2 9") + refused_at("retr 1", "-ERR gone"))
        .fails("-ERR gone\r\n", {"error:-ERR", "error:pop_retr", "error:pop_retr_alllines"}),
    one_mail_case("the word error in a good reply to RETR")
        .plays(mailbox_of("+OK 2 9") + refused_at("retr 1", "+OK error report follows"))
        .fails("+OK error report follows\r\n",
               {"error:-ERR", "error:pop_retr", "error:pop_retr_alllines"}),
    one_mail_case("lost at USER")
        .plays("S: +OK\n" + lost_at("user anna"))
        .fails("", {lost, "error: pop_user"}),
    one_mail_case("lost at PASS")
        .plays("S: +OK\n" + answered("user anna", "+OK") + lost_at("pass secret"))
        .fails("", {lost, "error: pop_passwd"}),
    one_mail_case("lost at APOP")
        .by("apop")
        .plays("S: +OK <a>\n" + lost_at("apop {any}"))
        .fails("", {lost, "error: pop_apop"}),
    one_mail_case("lost at STAT")
        .plays(pop_login() + lost_at("stat"))
        .fails("", {lost, "error: pop_stat"}),
    one_mail_case("lost at RETR")
        .plays(mailbox_of("+OK 1 9") + lost_at("retr 1"))
        .fails("", {lost, "error:pop_retr", "error:pop_retr_alllines"}),
    one_mail_case("lost at DELE")
        .plays(mailbox_of("+OK 1 9") + answered("retr 1", "+OK") +
               "S: .\nC: dele 1\nS: (half-closes)\nC: quit\n")
        .fails("", {lost, "error:pop_dele %s", lost, "error: pop_quit"}),
    one_mail_case("lost at QUIT")
        .plays(mailbox_of("+OK 0 0") + lost_at("quit"))
        .fails("", {lost, "error: pop_quit"}),
    one_mail_case("broken at QUIT")
        .plays(mailbox_of("+OK 0 0") + "C: quit\nS: (resets)\n")
        .fails("", {lost, "error: pop_quit", "error:shutdown", "error:shutdown_connection"}),
};

INSTANTIATE_TEST_SUITE_P(Dialogue, OneMail, testing::ValuesIn(one_mail_cases),
                         case_name<one_mail_case>);

// What all mails in one session give.
struct all {
    int         result;
    strings     froms;
    strings     subjects;
    std::string reply;
};

all fetch_all(int port)
{
    all a    = {0, {"what was there"}, {"likewise"}, ""};
    a.result = fetchmail_get_mails(account("pop", port), a.froms, a.subjects, a.reply);
    return a;
}

class Fetch : public on_a_clean_machine
{
};

// 2001 and 2500 lines: the mail is deleted, and left out.
TEST_F(Fetch, AMailOfMoreThan2000LinesIsDeletedAndLeftOut)
{
    for (int const count : {2001, 2002, 2500}) {
        clear_traces();
        std::string transcript = mailbox_of("+OK 2 9") + "C: retr 1\nS+ +OK\n" +
                                 "S+ From: a@a.test\n" + lines(count - 1, "x");
        transcript += "S: .\nC: dele 1\nS: +OK\nC: quit\nS: +OK bye\n";
        local_server  server(transcript);
        outcome const o = fetch_one(account("pop", server.port()));

        EXPECT_EQ(o.result, 0) << count;
        EXPECT_EQ(o.fetched, 0) << count;
        EXPECT_EQ(o.remaining, 1) << count;
        EXPECT_EQ(o.from, "as it was") << count;
        EXPECT_EQ(trouble_traces().front(), "warning: POP MAX LINE COUNT") << count;
        EXPECT_EQ(server.heard(), server.expected()) << server.problem();
    }
}

// The answer to DELE is a line of the mail then.
TEST_F(Fetch, AMailOfMoreThan2000LinesIsReadUpToLine2001)
{
    local_server  server(mailbox_of("+OK 2 9") + "C: retr 1\nS+ +OK\n" + lines(2001, "x") +
                         "S+ 3 errors\nS: .\nC: dele 1\nS: +OK\nC: quit\nS: +OK bye\n");
    outcome const o = fetch_one(account("pop", server.port()));
    EXPECT_EQ(o.result, 0);
    EXPECT_EQ(o.mail, strings(2001, "x"));
    EXPECT_EQ(trouble_traces()[1], "error:-ERR") << "so it was taken";
    EXPECT_EQ(server.heard(), server.expected()) << server.problem();
}

// The one test of all that fetching traces; the others look at its failures only.
TEST_F(Fetch, TracesItsWay)
{
    local_server single(session_with("S: From: a@a.test"));
    fetch_one(account("pop", single.port()));
    EXPECT_EQ(
        traces_above_sockets(),
        (strings{"fetchmail_get_one_mail in", "IP:%s Port:%d", "main num = %d size = %d",
                 "pop.response %s", "from %s", "subject %s", "fetchmail_get_one_mail out %d"}));

    clear_traces();
    local_server refusing(pop_login() + refused_at("stat", "-ERR locked"));
    fetch_one(account("pop", refusing.port()));
    EXPECT_EQ(traces_above_sockets(),
              (strings{"fetchmail_get_one_mail in", "IP:%s Port:%d", "error:-ERR",
                       "error: pop_stat", "fetchmail_get_one_mail out %d"}));

    clear_traces();
    local_server all(session_with("S: From: a@a.test"));
    fetch_all(all.port());
    EXPECT_EQ(traces_above_sockets(),
              (strings{"fetchmail_get_mails in", "IP:%s Port:%d", "main num = %d size = %d",
                       "pop.response %s", "push_back from %s", "push_back subject %s",
                       "fetchmail_get_mails out %d"}));
}

TEST_F(Fetch, HandsOverTheMailWithoutTheStatusLine)
{
    local_server  server(session_with("S: From: a@a.test\nS:\nS: text"));
    outcome const o = fetch_one(account("pop", server.port()));
    EXPECT_EQ(o.mail, (strings{"From: a@a.test", "\r", "text", "."}));

    local_server  empty(mailbox_of("+OK 0 0") + pop_goodbye);
    outcome const e = fetch_one(account("pop", empty.port()));
    EXPECT_EQ(e.mail, strings{"as it was"});
}

TEST_F(Fetch, TheMailItselfNeedNotBeWanted)
{
    local_server server(session_with("S: From: a@a.test"));
    outcome      o;
    EXPECT_EQ(fetchmail_get_one_mail(account("pop", server.port()), o.fetched, o.remaining, o.from,
                                     o.subject, o.reply),
              0);
    EXPECT_EQ(o.from, "From: a@a.test");
}

// At every step the server falls silent, and is given up.
TEST_F(Fetch, ASilentServerIsGivenUpAtEveryStep)
{
    std::string const steps[] = {
        "S: (silent)\n",
        pop_greeted + answered("user anna", "(silent)"),
        pop_greeted + answered("user anna", "+OK") + answered("pass secret", "(silent)"),
        "S: +OK <a>\n" + answered("apop {any}", "(silent)"),
        pop_login() + answered("stat", "(silent)"),
        mailbox_of("+OK 1 9") + "C: retr 1\nS: (silent)\n",
        mailbox_of("+OK 1 9") + "C: retr 1\nS: +OK\nS: From: a@a.test\nS: (silent)\n"
                                "C: dele 1\nC: quit\n",
        mailbox_of("+OK 1 9") + "C: retr 1\nS: +OK\nS: .\nC: dele 1\nS: (silent)\n"
                                "C: quit\n",
        mailbox_of("+OK 0 0") + "C: quit\nS: (silent)\n",
    };
    for (std::string const& step : steps) {
        local_server server(step);
        reset_waits_until([&] { return server.fell_silent(); });
        bool const    apop = step.find("apop") != std::string::npos;
        outcome const o    = fetch_one(account(apop ? "apop" : "pop", server.port()));
        EXPECT_EQ(o.result, -1) << step;
        EXPECT_EQ(o.reply, "") << step;
        EXPECT_EQ(trouble_traces().front(), lost) << step;
        EXPECT_TRUE(server.ok()) << server.problem();
        clear_traces();
        reset_waits(true);
    }
}

TEST_F(Fetch, AMissingHostOrPasswordOrTypeIsAFailureAndNothingWorse)
{
    local_server  nobody("");
    _s_mailserver server = account("pop", nobody.port());
    server.pop_host      = nullptr;
    EXPECT_EQ(fetch_one(server).result, -1);
    EXPECT_EQ(fetch_one(_s_mailserver()).result, -1);
    EXPECT_EQ(fetch_one(account(nullptr, nobody.port())).result, -1);
    server          = account("pop", nobody.port());
    server.pop_host = "nowhere.test";
    EXPECT_EQ(fetch_one(server).result, -1);
    EXPECT_EQ(nobody.heard(), "");

    local_server polite(pop_greeted + answered("user anna", "+OK") + hangs_up);
    server              = account("pop", polite.port());
    server.pop_password = nullptr;
    EXPECT_EQ(fetch_one(server).result, -1);
    EXPECT_EQ(polite.heard(), polite.expected()) << polite.problem();
}

// -------------------------------------------------------------- all in one session

TEST_F(Fetch, AllMailsInOneSession)
{
    local_server server(pop_login() + R"(
        C: stat
        S: +OK 2 240
        C: retr 1
        S: +OK
        S: From: a@a.test
        S: Subject: 1
        S: .
        C: retr 2
        S: +OK
        S: Subject: 2
        S: .
        C: dele 1
        S: +OK
        C: dele 2
        S: -ERR no
        C: quit
        S: +OK bye
    )");
    all const    a = fetch_all(server.port());
    EXPECT_EQ(a.result, 0);
    EXPECT_EQ(a.froms, (strings{"what was there", "From: a@a.test", ""}));
    EXPECT_EQ(a.subjects, (strings{"likewise", "Subject: 1", "Subject: 2"}));
    EXPECT_EQ(a.reply, "+OK bye\r\n");
    EXPECT_EQ(server.heard(), server.expected()) << server.problem();
    EXPECT_EQ(trouble_traces(), (strings{"error:-ERR", "error:pop_dele %s"}));
}

TEST_F(Fetch, NothingIsDeletedWhenOneOfAllCannotBeFetched)
{
    local_server refused(mailbox_of("+OK 2 9") + "C: retr 1\nS: +OK\nS: .\nC: retr 2\n"
                                                 "S: -ERR gone\nC: (closes)");
    EXPECT_EQ(fetch_all(refused.port()).result, -1);
    EXPECT_EQ(refused.heard(), refused.expected()) << refused.problem();
    EXPECT_EQ(trouble_traces(),
              (strings{"error:-ERR", "error:pop_retr", "error:pop_retr_alllines index = %d",
                       "error: fetch_mails"}));

    local_server long_mail(mailbox_of("+OK 1 9") + "C: retr 1\nS+ +OK\n" + lines(2100, "x") +
                           "S: .\nC: (closes)");
    EXPECT_EQ(fetch_all(long_mail.port()).result, -1);
    EXPECT_TRUE(long_mail.ok()) << long_mail.problem();
}

TEST_F(Fetch, AnEmptyMailboxInOneSession)
{
    local_server server(mailbox_of("+OK 0 0") + "C: quit\nS: +OK\n");
    EXPECT_EQ(fetch_all(server.port()).result, 0);
    EXPECT_EQ(server.heard(), server.expected()) << server.problem();
}

// ------------------------------------------------------------------- small parts

TEST(FindItem, GivesTheFirstLineThatContainsTheKey)
{
    strings const mail = {"+OK", "a key: 1", "key: 2"};
    EXPECT_EQ(find_item(mail, "key: "), "a key: 1");
    EXPECT_EQ(find_item(mail, "key: 2"), "key: 2");
    EXPECT_EQ(find_item(mail, "other: "), "");
    EXPECT_EQ(find_item({}, "key: "), "");
}

TEST(DeleteKeyword, GivesWhatFollowsTheKey)
{
    struct {
        char const* text;
        char const* rest;
        strings     said;
        char const* reason;
    } const cases[] = {
        {"From: a@a.test", "a@a.test", {}, "at the start"},
        {"X-From: a@a.test", "a@a.test", {}, "anywhere"},
        {"From: From: a", "From: a", {}, "the first one only"},
        {"From: ", "", {}, "nothing follows"},
        {"from: a", "from: a", {"error: no keyword"}, "absent"},
        {"", "", {"error: no keyword"}, "an empty string"},
    };
    for (auto const& c : cases) {
        clear_traces();
        EXPECT_EQ(delete_keyword(c.text, "From: "), c.rest) << c.reason;
        EXPECT_EQ(trouble_traces(), c.said) << c.reason;
    }
}

TEST(IsApop, IsTheOneTextOnly)
{
    EXPECT_TRUE(is_apop(account("apop", 110)));
    for (char const* type : {"pop", "APOP", "Apop", "", "apop ", "xapop"}) {
        EXPECT_FALSE(is_apop(account(type, 110))) << type;
    }
}

}  // namespace

}  // namespace zelieml::test
