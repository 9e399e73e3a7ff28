// Conversations with a POP3 server whose mails are fetched and deleted.

#include "libreceive/fetchmail.h"

#include <gtest/gtest.h>
#include <ostream>

#include "tests/support/clean_machine.h"
#include "tests/support/peers.h"

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
    int           result    = 0;
    std::int32_t  fetched   = -7;
    std::int32_t  remaining = -7;
    std::string   from      = "as it was";
    std::string   subject   = "as it was";
    std::string   reply     = "as it was";
    mailbox_state mailbox   = {-7, -7, true};
};

outcome fetch_one(_s_mailserver const& server)
{
    outcome o;
    o.result = fetchmail_get_one_mail(server, o.fetched, o.remaining, o.from, o.subject, o.reply,
                                      o.mailbox);
    return o;
}

std::string const login = R"(
    S: +OK ready
    C: user anna
    S: +OK
    C: pass secret
    S: +OK
)";

// ------------------------------------------------------------- one mail, whole

struct one_mail_case {
    char const* name;
    std::string transcript;
    int         result;
    int         fetched;  // what follows counts for a result of 0 only
    int         remaining;
    std::string from;
    std::string subject;
    std::string reply;
    strings     trouble      = {};
    bool        dele_refused = false;
    char const* auth_type    = "pop";
};

void PrintTo(one_mail_case const& c, std::ostream* out)
{
    *out << c.name;
}

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
    EXPECT_EQ(trouble_traces(), c.trouble);
    if (c.result == 0) {
        EXPECT_EQ(o.fetched, c.fetched);
        EXPECT_EQ(o.remaining, c.remaining);
        EXPECT_EQ(o.mailbox.dele_refused, c.dele_refused);
    }
    if (c.result == 0 && c.fetched != 0) {
        EXPECT_EQ(o.from, c.from);
        EXPECT_EQ(o.subject, c.subject);
    }
    EXPECT_EQ(traces().front(), "fetchmail_get_one_mail in");
    EXPECT_EQ(traces().back(), "fetchmail_get_one_mail out %d");
    EXPECT_EQ(server.heard(), server.expected()) << server.problem();
}

constexpr char const* lost = "error:sock_readline";

// A session in which one mail is fetched, deleted, and no other is there.
std::string session_with(std::string const& mail)
{
    return login + "C: stat\nS: +OK 1 100\nC: retr 1\nS: +OK\n" + mail +
           "\nS: .\nC: dele 1\nS: +OK\nC: quit\nS: +OK bye\n";
}

one_mail_case good(char const* name, std::string const& mail, char const* from, char const* subject)
{
    return {name, session_with(mail), 0, 1, 0, from, subject, "+OK bye\r\n"};
}

one_mail_case failure(char const* name, std::string const& transcript, std::string const& reply,
                      strings const& trouble, char const* auth_type = "pop")
{
    return {name, transcript, -1, 0, 0, "", "", reply, trouble, false, auth_type};
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
    {"an empty mailbox: nothing is fetched, nothing deleted",
     login + "C: stat\nS: +OK 0 0\nC: quit\nS: +OK bye\n", 0, 0, 0, "", "", "+OK bye\r\n"},
    {"the first of three", login + R"(
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
     )",
     0, 1, 2, "From: Anna <anna@a.test>", "Subject: paper", "+OK bye\r\n"},
    {"by APOP",
     R"(
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
     )",
     0,
     1,
     0,
     "From: a@a.test",
     "",
     "+OK bye\r\n",
     {},
     false,
     "apop"},
    {"any other type means USER and PASS",
     login + "C: stat\nS: +OK 0 0\nC: quit\nS: +OK\n",
     0,
     0,
     0,
     "",
     "",
     "+OK\r\n",
     {},
     false,
     "x"},
    {"APOP in upper case means USER and PASS",
     login + "C: stat\nS: +OK 0 0\nC: quit\nS: +OK\n",
     0,
     0,
     0,
     "",
     "",
     "+OK\r\n",
     {},
     false,
     "APOP"},
    {"an empty type means USER and PASS",
     login + "C: stat\nS: +OK 0 0\nC: quit\nS: +OK\n",
     0,
     0,
     0,
     "",
     "",
     "+OK\r\n",
     {},
     false,
     ""},

    good("without From", "S: Subject: s\nS:\nS: text", "", "Subject: s"),
    good("without Subject, but with a body line that contains the key",
         "S: From: a@a.test\nS:\nS: text\nS: Your Subject: see above\nS: Subject: late",
         "From: a@a.test", "Your Subject: see above"),
    good("without Subject anywhere", "S: From: a@a.test\nS:\nS: text", "From: a@a.test", ""),
    good("without headers", "S:\nS: From: the body", "From: the body", ""),
    good("of nothing at all", "", "", ""),
    good("keys are found within a line, in its first line",
         "S: X-From: x@x.test\nS: From: a@a.test\nS: Thread-Subject: t\nS: Subject: s",
         "X-From: x@x.test", "Thread-Subject: t"),
    good("keys have their case and their blank",
         "S: FROM: a@a.test\nS: from: b@b.test\nS: From:c@c.test\nS: subject: s", "", ""),
    good("an encoded word stays encoded, a continuation is not joined",
         "S: Subject: =?UTF-8?B?5rWL?=\nS:  more\nS: From: a@a.test", "From: a@a.test",
         "Subject: =?UTF-8?B?5rWL?="),
    good("blanks and tabs at the end stay", "S: From: a@a.test \\t\nS: Subject: \\x20 s \\x20",
         "From: a@a.test \t", "Subject:   s  "),
    good("dots stay doubled", "S: From: ..a@a.test\nS: ..Subject: dots", "From: ..a@a.test",
         "..Subject: dots"),
    good("lines that end in LF alone", "S- From: a@a.test\\nSubject: s\\n\nS:", "From: a@a.test",
         "Subject: s"),
    {"the status line is searched too",
     login + "C: stat\nS: +OK 1 9\nC: retr 1\nS: +OK Subject: of the status\nS: From: a@a.test\n"
             "S: Subject: s\nS: .\nC: dele 1\nS: +OK\nC: quit\nS: +OK\n",
     0, 1, 0, "From: a@a.test", "+OK Subject: of the status", "+OK\r\n"},
    {"a line of 4095 bytes is a line, one of 4096 is empty",
     session_with("S: From: " + std::string(4087, 'x') + "\nS: Subject: " + std::string(4085, 'y')),
     0,
     1,
     0,
     "From: " + std::string(4087, 'x'),
     "",
     "+OK bye\r\n",
     {"error:buffer over flow"}},
    {"a mail of 2000 lines", session_with("S+ From: a@a.test\n" + lines(1999, "x") + "S- "), 0, 1,
     0, "From: a@a.test", "", "+OK bye\r\n"},

    {"a refused DELE is no failure",
     login + "C: stat\nS: +OK 2 9\nC: retr 1\nS: +OK\nS: From: a@a.test\nS: .\nC: dele 1\n"
             "S: -ERR read only\nC: quit\nS: +OK\n",
     0,
     1,
     1,
     "From: a@a.test",
     "",
     "+OK\r\n",
     {"error:-ERR", "error:pop_dele %s"},
     true},
    {"an error in the good news of DELE is a refusal",
     login + "C: stat\nS: +OK 1 9\nC: retr 1\nS: +OK\nS: From: a@a.test\nS: .\nC: dele 1\n"
             "S: +OK no errors\nC: quit\nS: +OK\n",
     0,
     1,
     0,
     "From: a@a.test",
     "",
     "+OK\r\n",
     {"error:-ERR", "error:pop_dele %s"},
     true},
    {"QUIT is answered well by any line",
     login + "C: stat\nS: +OK 0 0\nC: quit\nS: -ERR some mails not removed\n", 0, 0, 0, "", "",
     "-ERR some mails not removed\r\n"},
    {"a negative count is an empty mailbox", login + "C: stat\nS: +OK -3 100\nC: quit\nS: +OK\n", 0,
     0, 0, "", "", "+OK\r\n"},
    {"a count that is missing is an empty mailbox",
     login + "C: stat\nS: +OK\nC: quit\nS: +OK\n",
     0,
     0,
     0,
     "",
     "",
     "+OK\r\n",
     {"error:token", "error:token"}},
    {"a count that is no number is an empty mailbox",
     login + "C: stat\nS: +OK many 100\nC: quit\nS: +OK\n", 0, 0, 0, "", "", "+OK\r\n"},
    {"a size that is missing is no harm",
     login + "C: stat\nS: +OK 0\nC: quit\nS: +OK\n",
     0,
     0,
     0,
     "",
     "",
     "+OK\r\n",
     {"error:token"}},
    {"a STAT reply of 1023 bytes",
     login + "C: stat\nS: +OK 0 0 " + std::string(1023 - 10, 'x') + "\nC: quit\nS: +OK\n", 0, 0, 0,
     "", "", "+OK\r\n"},
    {"the largest count",
     login + "C: stat\nS: +OK 2147483647 99999999999\nC: retr 1\nS: +OK\nS: .\nC: dele 1\nS: +OK\n"
             "C: quit\nS: +OK\n",
     0, 1, 2147483646, "", "", "+OK\r\n"},
    {"a mail that is cut short counts as fetched, and QUIT fails",
     login +
         "C: stat\nS: +OK 1 9\nC: retr 1\nS: +OK\nS: From: a@a.test\nS: (half-closes)\nC: dele 1\nC: quit\n",
     -1,
     0,
     0,
     "",
     "",
     "",
     {lost, "error:pop_dele %s", lost, "error: pop_quit"}},

    failure("the greeting is missing", "S: (closes)", "", {lost, "error: pop_start_session"}),
    failure("the user is refused", "S: +OK\nC: user anna\nS: -ERR no\nC: (closes)", "-ERR no\r\n",
            {"error:-ERR", "error: pop_user"}),
    failure("the password is refused",
            "S: +OK\nC: user anna\nS: +OK\nC: pass secret\nS: -ERR no\nC: (closes)", "-ERR no\r\n",
            {"error:-ERR", "error: pop_passwd"}),
    failure("error in the good news of PASS",
            "S: +OK\nC: user anna\nS: +OK\nC: pass secret\nS: +OK 0 errors\nC: (closes)",
            "+OK 0 errors\r\n", {"error:-ERR", "error: pop_passwd"}),
    failure("APOP is refused", "S: +OK <a>\nC: apop {any}\nS: -ERR no\nC: (closes)", "-ERR no\r\n",
            {"error:-ERR", "error: pop_apop"}, "apop"),
    failure("error in the good news of APOP",
            "S: +OK <a>\nC: apop {any}\nS: +OK 0 errors\nC: (closes)", "+OK 0 errors\r\n",
            {"error:-ERR", "error: pop_apop"}, "apop"),
    failure("error in the good news of STAT", login + "C: stat\nS: +OK 1 9 error\nC: (closes)",
            "+OK 1 9 error\r\n", {"error:-ERR", "error: pop_stat"}),
    failure("a greeting without brackets", "S: +OK\nC: (closes)", "+OK\r\n",
            {"error:challenge spos %s", "error: pop_apop"}, "apop"),
    failure("a greeting without a closing bracket", "S: +OK <1@a\nC: (closes)", "+OK <1@a\r\n",
            {"error:challenge epos %s", "error: pop_apop"}, "apop"),
    failure("a greeting with reversed brackets", "S: +OK >1@a<\nC: (closes)", "+OK >1@a<\r\n",
            {"error:challenge spos, epos %s", "error: pop_apop"}, "apop"),
    {"a greeting with several brackets: the first pair counts",
     "S: +OK <1@pop.test> <2@pop.test>\nC: apop anna 0980c615e9837e503ebd2cf69ae856a4\nS: +OK\n"
     "C: stat\nS: +OK 0 0\nC: quit\nS: +OK\n",
     0,
     0,
     0,
     "",
     "",
     "+OK\r\n",
     {},
     false,
     "apop"},
    failure("STAT is refused", login + "C: stat\nS: -ERR locked\nC: (closes)", "-ERR locked\r\n",
            {"error:-ERR", "error: pop_stat"}),
    failure("a STAT reply of 1024 bytes",
            login + "C: stat\nS: +OK 1 1 " + std::string(1024 - 10, 'x') + "\nC: (closes)",
            "+OK 1 1 " + std::string(1024 - 10, 'x') + "\r\n", {"error:BufLen", "error: pop_stat"}),
    failure("RETR is refused: nothing is deleted, and there is no QUIT",
            login + "C: stat\nS: +OK 2 9\nC: retr 1\nS: -ERR gone\nC: (closes)", "-ERR gone\r\n",
            {"error:-ERR", "error:pop_retr", "error:pop_retr_alllines"}),
    failure("error in the good news of RETR",
            login + "C: stat\nS: +OK 2 9\nC: retr 1\nS: +OK error report follows\nC: (closes)",
            "+OK error report follows\r\n",
            {"error:-ERR", "error:pop_retr", "error:pop_retr_alllines"}),
    failure("lost at USER", "S: +OK\nC: user anna\nS: (closes)", "", {lost, "error: pop_user"}),
    failure("lost at PASS", "S: +OK\nC: user anna\nS: +OK\nC: pass secret\nS: (closes)", "",
            {lost, "error: pop_passwd"}),
    failure("lost at APOP", "S: +OK <a>\nC: apop {any}\nS: (closes)", "", {lost, "error: pop_apop"},
            "apop"),
    failure("lost at STAT", login + "C: stat\nS: (closes)", "", {lost, "error: pop_stat"}),
    failure("lost at RETR", login + "C: stat\nS: +OK 1 9\nC: retr 1\nS: (closes)", "",
            {lost, "error:pop_retr", "error:pop_retr_alllines"}),
    failure(
        "lost at DELE",
        login +
            "C: stat\nS: +OK 1 9\nC: retr 1\nS: +OK\nS: .\nC: dele 1\nS: (half-closes)\nC: quit",
        "", {lost, "error:pop_dele %s", lost, "error: pop_quit"}),
    failure("lost at QUIT", login + "C: stat\nS: +OK 0 0\nC: quit\nS: (closes)", "",
            {lost, "error: pop_quit"}),
    failure("broken at QUIT", login + "C: stat\nS: +OK 0 0\nC: quit\nS: (resets)", "",
            {lost, "error: pop_quit", "error:shutdown", "error:shutdown_connection"}),
};

INSTANTIATE_TEST_SUITE_P(Dialogue, OneMail, testing::ValuesIn(one_mail_cases),
                         case_name<one_mail_case>);

class Fetch : public on_a_clean_machine
{
};

// 2001 and 2500 lines: the mail is deleted, and left out.
TEST_F(Fetch, AMailOfMoreThan2000LinesIsDeletedAndLeftOut)
{
    for (int const count : {2001, 2002, 2500}) {
        clear_traces();
        std::string transcript = login + "C: stat\nS: +OK 2 9\nC: retr 1\nS+ +OK\n" +
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

// The answer to DELE is a line of the mail then, and no refusal whatever it says.
TEST_F(Fetch, AMailOfMoreThan2000LinesRefusesNoDele)
{
    local_server  server(login + "C: stat\nS: +OK 2 9\nC: retr 1\nS+ +OK\n" + lines(2001, "x") +
                         "S+ 3 errors\nS: .\nC: dele 1\nS: +OK\nC: quit\nS: +OK bye\n");
    outcome const o = fetch_one(account("pop", server.port()));
    EXPECT_EQ(o.result, 0);
    EXPECT_FALSE(o.mailbox.dele_refused);
    EXPECT_EQ(trouble_traces()[1], "error:-ERR") << "so it was taken";
    EXPECT_EQ(server.heard(), server.expected()) << server.problem();
}

TEST_F(Fetch, TracesItsWay)
{
    local_server server(session_with("S: From: a@a.test"));
    fetch_one(account("pop", server.port()));
    strings said;
    for (std::string const& text : traces()) {
        for (char const* own : {"fetchmail", "main num", "from ", "subject ", "pop.response"}) {
            if (text.rfind(own, 0) == 0) {
                said.push_back(text);
            }
        }
    }
    EXPECT_EQ(said,
              (strings{"fetchmail_get_one_mail in", "main num = %d size = %d", "pop.response %s",
                       "from %s", "subject %s", "fetchmail_get_one_mail out %d"}));
}

TEST_F(Fetch, SaysWhatItSawOfTheMailbox)
{
    local_server  server(login + "C: stat\nS: +OK 5 1234\nC: retr 1\nS: +OK\nS: .\n"
                                  "C: dele 1\nS: -ERR\nC: quit\nS: +OK\n");
    outcome const o = fetch_one(account("pop", server.port()));
    EXPECT_EQ(o.mailbox.count, 5);
    EXPECT_EQ(o.mailbox.size, 1234);
    EXPECT_TRUE(o.mailbox.dele_refused);

    local_server  empty(login + "C: stat\nS: +OK\nC: quit\nS: +OK\n");
    outcome const e = fetch_one(account("pop", empty.port()));
    EXPECT_EQ(e.mailbox.count, 0) << "nothing is left from before";
    EXPECT_EQ(e.mailbox.size, 0);
    EXPECT_FALSE(e.mailbox.dele_refused);
}

// At every step the server falls silent, and is given up.
TEST_F(Fetch, ASilentServerIsGivenUpAtEveryStep)
{
    std::string const steps[] = {
        "S: (silent)\n",
        "S: +OK\nC: user anna\nS: (silent)\n",
        "S: +OK\nC: user anna\nS: +OK\nC: pass secret\nS: (silent)\n",
        "S: +OK <a>\nC: apop {any}\nS: (silent)\n",
        login + "C: stat\nS: (silent)\n",
        login + "C: stat\nS: +OK 1 9\nC: retr 1\nS: (silent)\n",
        login + "C: stat\nS: +OK 1 9\nC: retr 1\nS: +OK\nS: From: a@a.test\nS: (silent)\n"
                "C: dele 1\nC: quit\n",
        login + "C: stat\nS: +OK 1 9\nC: retr 1\nS: +OK\nS: .\nC: dele 1\nS: (silent)\n"
                "C: quit\n",
        login + "C: stat\nS: +OK 0 0\nC: quit\nS: (silent)\n",
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

    local_server polite("S: +OK\nC: user anna\nS: +OK\nC: (closes)");
    server              = account("pop", polite.port());
    server.pop_password = nullptr;
    EXPECT_EQ(fetch_one(server).result, -1);
    EXPECT_EQ(polite.heard(), polite.expected()) << polite.problem();
}

// -------------------------------------------------------------- all in one session

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

TEST_F(Fetch, AllMailsInOneSession)
{
    local_server server(login + R"(
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

    strings said;
    for (std::string const& text : traces()) {
        for (char const* own : {"fetchmail", "main num", "push_back"}) {
            if (text.rfind(own, 0) == 0) {
                said.push_back(text);
            }
        }
    }
    EXPECT_EQ(said, (strings{"fetchmail_get_mails in", "main num = %d size = %d",
                             "push_back from %s", "push_back subject %s", "push_back from %s",
                             "push_back subject %s", "fetchmail_get_mails out %d"}));
}

TEST_F(Fetch, NothingIsDeletedWhenOneOfAllCannotBeFetched)
{
    local_server refused(login + "C: stat\nS: +OK 2 9\nC: retr 1\nS: +OK\nS: .\nC: retr 2\n"
                                 "S: -ERR gone\nC: (closes)");
    EXPECT_EQ(fetch_all(refused.port()).result, -1);
    EXPECT_EQ(refused.heard(), refused.expected()) << refused.problem();
    EXPECT_EQ(trouble_traces(),
              (strings{"error:-ERR", "error:pop_retr", "error:pop_retr_alllines index = %d",
                       "error: fetch_mails"}));

    local_server long_mail(login + "C: stat\nS: +OK 1 9\nC: retr 1\nS+ +OK\n" + lines(2100, "x") +
                           "S: .\nC: (closes)");
    EXPECT_EQ(fetch_all(long_mail.port()).result, -1);
    EXPECT_TRUE(long_mail.ok()) << long_mail.problem();
}

TEST_F(Fetch, AnEmptyMailboxInOneSession)
{
    local_server server(login + "C: stat\nS: +OK 0 0\nC: quit\nS: +OK\n");
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
        {"", "", {"error: no keyword"}, "an empty text"},
    };
    for (auto const& c : cases) {
        clear_traces();
        EXPECT_EQ(delete_keyword(c.text, "From: "), c.rest) << c.reason;
        EXPECT_EQ(traces(), c.said) << c.reason;
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
