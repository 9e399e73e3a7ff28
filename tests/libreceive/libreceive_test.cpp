// Emptying a mailbox: the loop over its sessions, the list, its getters.

#include "libreceive/libreceive.h"

#include <algorithm>
#include <functional>
#include <memory>
#include <utility>

#include "libcb/libcb.h"
#include "libmsg/libmsg.h"
#include "libsendw/smtpmsg.h"
#include "tests/support/clean_machine.h"
#include "tests/support/dialogues.h"

namespace zelieml::test
{

namespace
{

struct list_deleter {
    void operator()(void* list) const { receive_msg_destroy(list); }
};

class Receive : public on_a_clean_machine
{
protected:
    void SetUp() override
    {
        on_a_clean_machine::SetUp();
        void* made = nullptr;
        ASSERT_EQ(receive_msg_create(&made), 0);
        list_.reset(made);
    }

    void TearDown() override
    {
        list_.reset();
        on_a_clean_machine::TearDown();
    }

    // Empties the mailbox of a server.
    int receive(scripted_server& from, char const* domains = nullptr)
    {
        _s_mailserver server = record_of(from);
        return receive_mails(&server, list(), domains);
    }

    static _s_mailserver record_of(scripted_server& server)
    {
        _s_mailserver record;
        record.pop_host      = "127.0.0.1";
        record.pop_port      = server.port();
        record.pop_user      = "anna";
        record.pop_password  = "secret";
        record.pop_auth_type = "pop";
        return record;
    }

    void* list() const { return list_.get(); }
    auto& mails() const { return *static_cast<_s_receive_msg*>(list_.get()); }

private:
    std::unique_ptr<void, list_deleter> list_;
};

// One session of a mailbox: what STAT says, the first mail, and the replies to DELE and RETR.
std::string session(std::string const& stat, std::string const& mail,
                    std::string const& dele = "+OK", std::string const& retr = "+OK")
{
    return pop_login() + answered("stat", "+OK " + stat) + answered("retr 1", retr) + mail +
           "\nS: .\n" + answered("dele 1", dele) + answered("quit", "+OK");
}

std::string const next = "C: (connects)\n";

std::string const three_mails = session("3 300", "S: From: a@d.test\nS: Subject: 1") + next +
                                session("2 200", "S: From: b@e.test\nS: Subject: 2") + next +
                                session("1 100", "S: From: c@mail.d.test");

// ------------------------------------------------------------------------ the loop

TEST_F(Receive, AnEmptyMailboxTakesOneSession)
{
    local_server server(pop_login() + answered("stat", "+OK 0 0") + pop_goodbye);
    EXPECT_EQ(receive(server), 0);
    EXPECT_EQ(receive_msg_count(list()), 0);
    EXPECT_EQ(server.heard(), server.expected()) << server.problem();
    EXPECT_EQ(trouble_traces(), strings());
}

TEST_F(Receive, ThreeMailsTakeThreeSessionsEachWithTheFirstMail)
{
    local_server server(three_mails);
    EXPECT_EQ(receive(server), 0);
    EXPECT_EQ(server.heard(), server.expected()) << server.problem();
    EXPECT_EQ(server.connections(), 3);
    EXPECT_EQ(receive_msg_count(list()), 3);
    EXPECT_EQ(mails().from, (strings{"From: a@d.test", "From: b@e.test", "From: c@mail.d.test"}));
    EXPECT_EQ(mails().subject, (strings{"Subject: 1", "Subject: 2", ""}));
}

TEST_F(Receive, AnEmptyListOfDomainsLetsAllPass)
{
    local_server server(three_mails);
    EXPECT_EQ(receive(server, ""), 0);
    EXPECT_EQ(receive_msg_count(list()), 3);
}

TEST_F(Receive, OnlyMailsFromAllowedDomainsAreKeptAndAllAreDeleted)
{
    local_server server(three_mails);
    EXPECT_EQ(receive(server, "x.test, d.test"), 0);
    EXPECT_EQ(server.heard(), server.expected()) << server.problem();
    EXPECT_EQ(receive_msg_count(list()), 2);
    EXPECT_EQ(mails().from, (strings{"From: a@d.test", "From: c@mail.d.test"}));
    EXPECT_EQ(mails().subject, (strings{"Subject: 1", ""}));

    local_server again(three_mails);
    EXPECT_EQ(receive(again, "nobody.test"), 0);
    EXPECT_EQ(receive_msg_count(list()), 0);
    EXPECT_TRUE(again.ok()) << again.problem();
}

TEST_F(Receive, AMailThatIsTooLongIsLeftOutAndTheOthersAreNot)
{
    std::string too_long;
    for (int i = 0; i < 2100; ++i) {
        too_long += "S+ x\n";
    }
    // The line that DELE takes for its answer, and QUIT the next.
    local_server server(session("2 200", too_long + "S- ") + next +
                        session("1 100", "S: From: a@d.test"));
    EXPECT_EQ(receive(server), 0);
    EXPECT_EQ(server.heard(), server.expected()) << server.problem();
    EXPECT_EQ(receive_msg_count(list()), 1);
    EXPECT_EQ(mails().from, strings{"From: a@d.test"});
}

TEST_F(Receive, StartsTheListAfresh)
{
    local_server first(three_mails);
    EXPECT_EQ(receive(first), 0);
    local_server second(session("1 100", "S: From: z@z.test"));
    EXPECT_EQ(receive(second), 0);
    EXPECT_EQ(receive_msg_count(list()), 1);
    EXPECT_EQ(mails().from, strings{"From: z@z.test"});
}

TEST_F(Receive, AFailureLeavesTheListEmptyAlthoughMailsAreGone)
{
    local_server full(three_mails);
    EXPECT_EQ(receive(full), 0);
    clear_traces();

    local_server server(session("2 200", "S: From: a@d.test") + next + pop_login() +
                        refused_at("stat", "-ERR locked"));
    EXPECT_EQ(receive(server), -1);
    EXPECT_EQ(server.heard(), server.expected()) << server.problem();
    EXPECT_EQ(receive_msg_count(list()), 0);
    EXPECT_EQ(mails().from, strings());
    EXPECT_EQ(mails().subject, strings());
    EXPECT_EQ(trouble_traces(),
              (strings{"error:-ERR", "error: pop_stat", "error:fetchmail_get_one_mail",
                       "error:process_one_mail"}));
    char buffer[100];
    EXPECT_EQ(receive_msg_get_from(list(), 0, buffer, sizeof buffer), -1);
}

TEST_F(Receive, NullIsAFailure)
{
    _s_mailserver server;
    EXPECT_EQ(receive_msg_create(nullptr), -1);
    EXPECT_EQ(receive_msg_destroy(nullptr), 0);
    EXPECT_EQ(receive_msg_count(nullptr), 0);
    EXPECT_EQ(receive_mails(nullptr, list(), nullptr), -1);
    EXPECT_EQ(receive_mails(&server, nullptr, nullptr), -1);
    EXPECT_EQ(trouble_traces(), strings()) << "no server was asked";
    EXPECT_EQ(receive_mails(&server, list(), nullptr), -1) << "a record that was not set";
}

// -------------------------------------------- a mailbox that never gets empty

// Plays session(n) for n = 1, 2, ... up to count sessions.
std::string sessions(int count, std::function<std::string(int)> const& one)
{
    std::string all;
    for (int n = 1; n <= count; ++n) {
        all += (n > 1 ? next : "") + one(n);
    }
    return all;
}

std::string mail(int n)
{
    return "S: From: " + std::to_string(n) + "@d.test";
}

// The first session with a mail, and 1000 that bring it again; 1001 sessions show that mail.
constexpr int given_up_after = 1001;

TEST_F(Receive, AMailThatStaysIsGivenUpAfter1000SessionsInVain)
{
    struct {
        std::string (*stat)(int n);
        char const* dele;
        char const* reason;
    } const cases[] = {
        {[](int) -> std::string { return "2 200"; }, "+OK", "it only pretends to delete"},
        {[](int) -> std::string { return "2 200"; }, "-ERR read only", "it refuses"},
        {[](int n) { return std::to_string(n + 5) + " 9"; }, "+OK", "meanwhile others come"},
        {[](int n) { return std::to_string(6 - n % 2) + " 9"; }, "+OK", "they come and go"},
        {[](int n) { return "2 " + std::to_string(n); }, "+OK", "only the size changes"},
    };
    for (auto const& c : cases) {
        local_server server(sessions(given_up_after, [&](int n) {
            // What the status line of RETR says is not the mail.
            return session(c.stat(n), mail(1), c.dele, "+OK number " + std::to_string(n));
        }));
        EXPECT_EQ(receive(server), -1) << c.reason;
        EXPECT_EQ(server.heard(), server.expected()) << c.reason << ": " << server.problem();
        EXPECT_EQ(receive_msg_count(list()), 0) << c.reason;
        EXPECT_EQ(trouble_traces().back(), "error:process_one_mail") << c.reason;
        clear_traces();
    }
}

TEST_F(Receive, AMailboxThatGetsEmptyIsNoFailureWhateverTheServerSays)
{
    constexpr int count = 1200;
    struct {
        std::string (*session_of)(int n);
        char const* reason;
    } const cases[] = {
        {[](int n) {
             return session(std::to_string(count + 1 - n) + " 9", mail(n), "+OK no errors");
         },
         "the reply to DELE contains the word, and the mail is gone"},
        {[](int n) { return session(n < count ? "300 9000" : "1 30", mail(n)); },
         "it shows part of the mailbox"},
        {[](int n) { return session(std::to_string(count + 1 - n) + " 9", mail(1)); },
         "all mails are the same"},
    };
    for (auto const& c : cases) {
        local_server server(sessions(count, c.session_of));
        EXPECT_EQ(receive(server), 0) << c.reason;
        EXPECT_EQ(server.heard(), server.expected()) << c.reason << ": " << server.problem();
        EXPECT_EQ(receive_msg_count(list()), count) << c.reason;
    }
}

TEST_F(Receive, OneSessionThatGetsOnLetsItStartToCountAgain)
{
    // 999 in vain, fewer mails, 999 in vain, another mail while more have come, 999 in vain.
    local_server server(sessions(3001, [](int n) {
        return n == 3001  ? session("1 9", mail(2))
               : n > 2000 ? session("20 9", mail(2))
               : n > 1000 ? session("9 9", mail(1))
                          : session("10 9", mail(1));
    }));
    EXPECT_EQ(receive(server), 0);
    EXPECT_EQ(server.heard(), server.expected()) << server.problem();
    EXPECT_EQ(receive_msg_count(list()), 3001);
}

TEST_F(Receive, WhatWasReachedBeforeIsNoProgress)
{
    // Down to 5 mails at the second session; never below in the 1000 after it.
    local_server server(sessions(1002, [](int n) {
        return session(n == 1 ? "7 9" : n % 2 == 0 ? "5 9" : "6 9", mail(1));
    }));
    EXPECT_EQ(receive(server), -1);
    EXPECT_EQ(server.heard(), server.expected()) << server.problem();
}

TEST_F(Receive, AMailboxThatIsEmptyInTheEndIsNoFailureHoweverLongItTook)
{
    local_server server(sessions(given_up_after, [](int n) {
        return session(n == given_up_after ? "1 7" : "2 7", mail(1), "-ERR no");
    }));
    EXPECT_EQ(receive(server), 0);
    EXPECT_EQ(receive_msg_count(list()), given_up_after);
}

// ----------------------------------------------------------------------- the list

TEST_F(Receive, AFreshListIsEmpty)
{
    char buffer[10] = "kept";
    EXPECT_EQ(receive_msg_count(list()), 0);
    EXPECT_EQ(receive_msg_get_from(list(), 0, buffer, sizeof buffer), -1);
    EXPECT_EQ(receive_msg_get_subject(list(), 0, buffer, sizeof buffer), -1);
    EXPECT_STREQ(buffer, "kept");
}

TEST_F(Receive, InitEmptiesAList)
{
    mails() = {1, {"From: a"}, {"Subject: s"}};
    receive_msg_init(mails());
    EXPECT_EQ(mails().count, 0);
    EXPECT_EQ(mails().from, strings());
    EXPECT_EQ(mails().subject, strings());
}

// ------------------------------------------------------- the fields of the header

using getter = int (*)(void*, int, char*, int);

std::string text_of(getter get, void* list, int index)
{
    char text[1000] = "unchanged";
    return get(list, index, text, sizeof text) == 0 ? text : "failed";
}

TEST_F(Receive, KeepsTheFieldsOfEachAllowedMail)
{
    local_server server(session("3 300", "S: Received: From: x, Subject: y\n"
                                         "S: FROM: =?UTF-8?Q?Andr=C3=A9?= <a@d.test>\n"
                                         "S: subject: =?ISO-8859-1?Q?caf=E9?=\n"
                                         "S:  =?ISO-8859-1?Q?_7?=\n"
                                         "S: Message-ID: <=?UTF-8?Q?1?=@d.test>\n"
                                         "S: Date: Sun, 22 Nov 2026 05:00:00 +0000\n"
                                         "S: \nS: From: body\nS: Subject: body") +
                        next + session("2 200", "S: From: b@e.test\nS: Subject: 2") + next +
                        session("1 100", "S: From: c@d.test\nS: \nS: Subject: body"));
    // The first line of the first mail that contains "From: " has no domain.
    ASSERT_EQ(receive(server, "d.test,"), 0) << server.problem();
    ASSERT_EQ(receive_msg_count(list()), 3);
    EXPECT_EQ(text_of(receive_msg_get_from, list(), 0), "x, Subject: y") << "anywhere in a mail";

    local_server again(
        session("3 300",
                "S: From: Anna <a@d.test>\nS: Subject: 1\nS: Date: 10\nS: Message-Id: <1>") +
        next + session("2 200", "S: From: b@e.test\nS: Subject: 2") + next +
        session("1 100", "S: From: c@d.test\nS: Subject: 3"));
    char const* const fields[][4] = {
        {"André <a@d.test>", "café 7", "<=?UTF-8?Q?1?=@d.test>", "Sun, 22 Nov 2026 05:00:00 +0000"},
        {"b@e.test", "2", "", ""},
        {"c@d.test", "", "", ""},
    };
    getter const getters[] = {receive_msg_get_sender_utf8, receive_msg_get_subject_utf8,
                              receive_msg_get_messageid, receive_msg_get_date};
    for (int mail = 0; mail < 3; ++mail) {
        for (int i = 0; i < 4; ++i) {
            EXPECT_EQ(text_of(getters[i], list(), mail), fields[mail][i]) << mail << " " << i;
        }
    }

    ASSERT_EQ(receive(again, "d.test"), 0) << again.problem();
    ASSERT_EQ(receive_msg_count(list()), 2);
    EXPECT_EQ(text_of(receive_msg_get_subject_utf8, list(), 0), "1");
    EXPECT_EQ(text_of(receive_msg_get_sender_utf8, list(), 1), "c@d.test");
    EXPECT_EQ(text_of(receive_msg_get_subject_utf8, list(), 1), "3");
}

TEST_F(Receive, AFieldIsCopiedWholeOrNotAtAll)
{
    local_server server(session("1 100", "S: From: a@d.test\nS: Subject: =?UTF-8?Q?=C3=A9?="));
    ASSERT_EQ(receive(server), 0) << server.problem();
    struct {
        getter      get;
        std::string text;
    } const cases[] = {
        {receive_msg_get_sender_utf8, "a@d.test"},
        {receive_msg_get_subject_utf8, "é"},
        {receive_msg_get_messageid, ""},
        {receive_msg_get_date, ""},
    };
    for (auto const& c : cases) {
        char      buffer[20] = "kept";
        int const enough     = static_cast<int>(c.text.size()) + 1;
        EXPECT_EQ(c.get(list(), 0, buffer, enough - 1), -1) << c.text;
        EXPECT_EQ(c.get(list(), 0, buffer, -1), -1) << c.text;
        EXPECT_EQ(c.get(list(), 1, buffer, sizeof buffer), -1) << c.text;
        EXPECT_EQ(c.get(list(), -1, buffer, sizeof buffer), -1) << c.text;
        EXPECT_EQ(c.get(nullptr, 0, buffer, sizeof buffer), -1) << c.text;
        EXPECT_EQ(c.get(list(), 0, nullptr, sizeof buffer), -1) << c.text;
        EXPECT_STREQ(buffer, "kept") << c.text;
        EXPECT_EQ(c.get(list(), 0, buffer, enough), 0) << c.text;
        EXPECT_EQ(buffer, c.text);
    }
}

TEST_F(Receive, TheSubjectOfAMailOfThisLibraryIsWhatItWas)
{
    std::string const japanese = "\x1B$BF|K\\\x1B(B 7";
    struct {
        char const* encoding;
        char const* settings;
        std::string subject;
        std::string text;
    } const cases[] = {
        {"UTF-8", "subject_use_encoding = yes\r\n", "日本 é 7", "日本 é 7"},
        {"UTF-8", "subject_use_encoding = no\r\n", "日本 é 7", "日本 é 7"},
        {"UTF-8", "subject_use_encoding = yes\r\n", std::string(900, 'x'), std::string(900, 'x')},
        {"ISO-2022-JP", "subject_use_encoding = yes\r\n", japanese, "日本 7"},
        {"ISO-2022-JP", "subject_use_encoding = no\r\n", japanese, "日本 7"},
    };
    temp_dir const dir;
    for (auto const& c : cases) {
        _s_msg msg;
        msg.from     = "anna@a.test";
        msg.to       = "ben@b.test";
        msg.subject  = c.subject;
        msg.encoding = c.encoding;
        write_file(dir.file("zelismes.cf"), c.settings);
        strings mail;
        ASSERT_EQ(smtpmsg_create_multiline(&msg, mail, dir.file("zelismes.cf").c_str()), 0);
        std::string lines;
        for (std::string const& part : mail) {
            lines += part;
        }
        std::string transcript = "S: ";
        for (char const each : lines) {
            transcript += each == '\\' ? "\\\\" : each == '\n' ? "\nS: " : std::string(1, each);
        }
        transcript.erase(std::remove(transcript.begin(), transcript.end(), '\r'), transcript.end());
        local_server server(session("1 100", transcript));
        ASSERT_EQ(receive(server), 0) << server.problem();
        EXPECT_EQ(text_of(receive_msg_get_subject_utf8, list(), 0), c.text)
            << c.encoding << " " << c.settings;
        EXPECT_EQ(text_of(receive_msg_get_sender_utf8, list(), 0), "anna@a.test");
        clear_traces();
    }
}

// ------------------------------------------------------------- the last line, and why

TEST_F(Receive, TheSizedCallTellsTheLastLineAndTheReason)
{
    char reply[100];
    char reason[1024];

    local_server  good(session("1 100", "S: From: a@d.test", "+OK", "+OK here"));
    _s_mailserver record = record_of(good);
    EXPECT_EQ(receive_mails_sized(&record, list(), "", reply, sizeof reply, reason, sizeof reason),
              0);
    EXPECT_STREQ(reply, "+OK\r\n") << "to QUIT";
    EXPECT_STREQ(reason, "");
    EXPECT_EQ(receive_msg_count(list()), 1);

    std::string const locked = session("2 200", "S: From: a@d.test") + next + pop_login() +
                               refused_at("stat", "-ERR locked");
    local_server bad(locked);
    record.pop_port = bad.port();
    EXPECT_EQ(receive_mails_sized(&record, list(), "", reply, sizeof reply, reason, sizeof reason),
              -1);
    EXPECT_STREQ(reply, "-ERR locked\r\n");
    EXPECT_EQ(receive_msg_count(list()), 0);

    // What does not fit is cut off; what is not wanted is not written.
    local_server cut(locked);
    char         small[5] = "....";
    record.pop_port       = cut.port();
    EXPECT_EQ(receive_mails_sized(&record, list(), "", small, 4, nullptr, 100), -1);
    EXPECT_STREQ(small, "-ER");
    local_server none(locked);
    record.pop_port = none.port();
    EXPECT_EQ(receive_mails_sized(&record, list(), "", small, 0, reason, -1), -1);
    EXPECT_STREQ(small, "-ER");

    EXPECT_EQ(receive_mails_sized(nullptr, list(), "", reply, sizeof reply, reason, sizeof reason),
              -1);
    EXPECT_STREQ(reply, "");
    EXPECT_STREQ(reason, "there is no server record, or no list");
    _s_mailserver unset;
    EXPECT_EQ(receive_mails_sized(&unset, list(), "", reply, sizeof reply, reason, sizeof reason),
              -1);
    EXPECT_STREQ(reason, "the server record has no POP3 server");
}

// What a result record of receiving says.
struct told {
    int         result  = 0;
    int         number  = -1;
    eml_send_e  code    = eml_send_32_bits;
    eml_cause   cause   = eml_cause_32_bits;
    int         attempt = -1;
    std::string step;
    std::string reply;
    std::string reason;
    std::string file;
};

told receive_with_result(void* server, void* list, char const* domains = "")
{
    told  t;
    void* record = nullptr;
    char  buf[EML_REASON_SIZE];
    t.result = receive_mails_result(server, list, domains, &record);
    EXPECT_EQ(cb_get_number(record, &t.number), 0);
    EXPECT_EQ(cb_get_code(record, &t.code), 0);
    EXPECT_EQ(cb_get_cause(record, &t.cause), 0);
    EXPECT_EQ(cb_get_attempt(record, &t.attempt), 0);
    for (auto const& [get, text] :
         {std::pair(&cb_get_step, &told::step), std::pair(&cb_get_message, &told::reply),
          std::pair(&cb_get_reason, &told::reason), std::pair(&cb_get_file, &told::file)}) {
        EXPECT_EQ(get(record, buf, sizeof buf), 0);
        t.*text = buf;
    }
    cb_destroy(record);
    return t;
}

TEST_F(Receive, TheCallWithAResultTellsAll)
{
    std::string const user = pop_greeted + answered("user anna", "+OK");
    std::string const mail = pop_login() + answered("stat", "+OK 1 100");
    std::string const mail_in =
        mail + "C: retr 1\nS: +OK\nS: From: a@d.test\nS: .\n" + answered("dele 1", "+OK");
    struct {
        std::string transcript;
        int         number;
        eml_send_e  code;
        eml_cause   cause;
        char const* step;
        char const* reply;
        char const* reason;
    } const cases[] = {
        {session("1 100", "S: From: a@d.test", "+OK", "+OK here"), 0, eml_send_ok, eml_cause_none,
         "", "+OK\r\n", ""},
        {"S: (closes)\n", 2002, eml_send_error_connection, eml_cause_lost, "pop greeting", "",
         "the POP3 server closed the connection without a greeting"},
        {pop_greeted + refused_at("user anna", "-ERR who?"), 2004, eml_send_error_auth,
         eml_cause_refused, "pop login", "-ERR who?\r\n",
         "the POP3 server refused the user anna: -ERR who?"},
        {user + refused_at("pass secret", "-ERR [IN-USE] wait"), 2005, eml_send_error_auth,
         eml_cause_refused_now, "pop login", "-ERR [IN-USE] wait\r\n",
         "the POP3 server refused the password of anna: -ERR [IN-USE] wait"},
        {pop_login() + refused_at("stat", "-ERR locked"), 100, eml_send_error_other,
         eml_cause_refused, "stat", "-ERR locked\r\n", "the POP3 server refused STAT: -ERR locked"},
        {mail + refused_at("retr 1", "-ERR [SYS/TEMP] no"), 100, eml_send_error_other,
         eml_cause_refused_now, "retr", "-ERR [SYS/TEMP] no\r\n",
         "the POP3 server refused RETR: -ERR [SYS/TEMP] no"},
        {mail_in + lost_at("quit"), 100, eml_send_error_other, eml_cause_lost, "pop quit", "",
         "the POP3 server closed the connection after POP3 QUIT"},
        {mail + "C: retr 1\nS: +OK\nS: From: a@d.test\nS: (half-closes)\nC: dele 1\nC: quit\n", 100,
         eml_send_error_other, eml_cause_lost, "retr", "",
         "the POP3 server closed the connection after RETR"},
        {mail + "C: retr 1\nS: +OK\nS: .\nC: dele 1\nS: (half-closes)\nC: quit\n", 100,
         eml_send_error_other, eml_cause_lost, "dele", "",
         "the POP3 server closed the connection after DELE"},
        {mail + "C: retr 1\nS: +OK\nS: .\n" + answered("dele 1", "-ERR no") + lost_at("quit"), 100,
         eml_send_error_other, eml_cause_lost, "pop quit", "",
         "the POP3 server closed the connection after POP3 QUIT"},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.reason);
        local_server  server(c.transcript);
        _s_mailserver record = record_of(server);
        told const    t      = receive_with_result(&record, list());
        EXPECT_EQ(t.result, c.number == 0 ? 0 : -1);
        EXPECT_EQ(t.number, c.number);
        EXPECT_EQ(t.code, c.code);
        EXPECT_EQ(t.cause, c.cause);
        EXPECT_EQ(t.step, c.step);
        EXPECT_EQ(t.reply, c.reply);
        EXPECT_EQ(t.reason, c.reason);
        EXPECT_EQ(t.attempt, 1);
        EXPECT_EQ(t.file, "");
    }
}

TEST_F(Receive, TheCallWithAResultKeepsWhatWasFetched)
{
    std::string const last = pop_login() + answered("stat", "+OK 1 100") + "C: retr 1\nS: +OK\n" +
                             "S: From: b@d.test\nS: Subject: =?utf-8?q?z?=\nS: .\n" +
                             answered("dele 1", "+OK") + lost_at("quit");
    std::string const talk =
        session("2 200", "S: From: a@d.test", "+OK", "+OK") + "C: (connects)\n" + last;
    local_server  server(talk);
    _s_mailserver record = record_of(server);
    EXPECT_EQ(receive_with_result(&record, list()).result, -1);
    EXPECT_EQ(mails().from, (std::vector<std::string>{"From: a@d.test", "From: b@d.test"}));
    EXPECT_EQ(receive_msg_count(list()), 2);
    char buf[64];
    EXPECT_EQ(receive_msg_get_subject_utf8(list(), 1, buf, sizeof buf), 0);
    EXPECT_STREQ(buf, "z");

    local_server again(talk);
    record.pop_port = again.port();
    EXPECT_EQ(receive_mails(&record, list(), ""), -1);
    EXPECT_EQ(receive_msg_count(list()), 0);
}

TEST_F(Receive, TheCallWithAResultKeepsMailsOfAllowedDomainsOnly)
{
    std::string const last = pop_login() + answered("stat", "+OK 1 100") +
                             "C: retr 1\nS: +OK\nS: From: c@d.test\nS: (half-closes)\n"
                             "C: dele 1\nC: quit\n";
    local_server  server(session("3 300", "S: From: a@e.test") + next +
                         session("2 200", "S: From: b@d.test") + next + last);
    _s_mailserver record = record_of(server);
    told const    t      = receive_with_result(&record, list(), "d.test");
    EXPECT_EQ(t.result, -1);
    EXPECT_EQ(t.step, "retr");
    EXPECT_EQ(mails().from, (strings{"From: b@d.test", "From: c@d.test"})) << "one is cut short";
    EXPECT_EQ(mails().header.size(), 2U);
    EXPECT_EQ(receive_msg_count(list()), 2);
}

// Greetings of a server that is none of POP3, and the answers of one that takes any command.
char const* const foreign_greetings[] = {
    "220 mail.test ESMTP", "554 no service", "HTTP/1.1 400 Bad Request", "ready", "OK", " +OK", ""};

std::string foreign_session(std::string const& greeting)
{
    std::string const what = "500 what?";
    return "S: " + greeting + "\n" + answered("user anna", what) + answered("pass secret", what) +
           answered("stat", "502 0") + answered("quit", "221 bye");
}

TEST_F(Receive, TheCallWithAResultSaysNothingToAServerThatIsNoneOfPop3)
{
    for (std::string const greeting : foreign_greetings) {
        SCOPED_TRACE(greeting);
        local_server  server("S: " + greeting + "\n" + hangs_up);
        _s_mailserver record = record_of(server);
        told const    t      = receive_with_result(&record, list());
        EXPECT_EQ(server.heard(), server.expected()) << server.problem();
        EXPECT_EQ(t.result, -1);
        EXPECT_EQ(t.number, 2002);
        EXPECT_EQ(t.code, eml_send_error_connection);
        EXPECT_EQ(t.cause, eml_cause_protocol);
        EXPECT_EQ(t.step, "pop greeting");
        EXPECT_EQ(t.reply, greeting + "\r\n");
        std::string const quoted = greeting[0] == ' ' ? "+OK" : greeting;
        EXPECT_EQ(t.reason.rfind("the POP3 server does not greet as one", 0), 0U) << t.reason;
        EXPECT_NE(t.reason.find(quoted), std::string::npos) << t.reason;
    }
}

TEST_F(Receive, TheOtherCallsTakeAnyGreeting)
{
    for (std::string const greeting : foreign_greetings) {
        SCOPED_TRACE(greeting);
        local_server server(foreign_session(greeting));
        EXPECT_EQ(receive(server), 0);
        EXPECT_EQ(server.heard(), server.expected()) << server.problem();
        local_server  again(foreign_session(greeting));
        _s_mailserver record = record_of(again);
        char          reason[1024];
        EXPECT_EQ(receive_mails_sized(&record, list(), "", nullptr, 0, reason, sizeof reason), 0);
        EXPECT_STREQ(reason, "");
        EXPECT_EQ(again.heard(), again.expected()) << again.problem();
    }
}

TEST_F(Receive, AGreetingOfPop3IsTakenInAnyCase)
{
    for (std::string const greeting : {"+OK", "+ok ready", "+OK<1@pop.test>"}) {
        SCOPED_TRACE(greeting);
        local_server  server("S: " + greeting + "\n" + answered("user anna", "+OK") +
                             answered("pass secret", "+OK") + answered("stat", "+OK 0 0") +
                             pop_goodbye);
        _s_mailserver record = record_of(server);
        EXPECT_EQ(receive_with_result(&record, list()).reason, "");
        EXPECT_EQ(server.heard(), server.expected()) << server.problem();
    }
    // A refusal is no failure yet: the login may succeed all the same.
    local_server  busy("S: -ERR busy\n" + refused_at("user anna", "-ERR no"));
    _s_mailserver record = record_of(busy);
    told const    t      = receive_with_result(&record, list());
    EXPECT_EQ(t.reason, "the POP3 server refused the connection: -ERR busy");
    EXPECT_EQ(t.number, 2004);
}

TEST_F(Receive, TheCallWithAResultKeepsWhatCameBeforeAForeignGreeting)
{
    local_server  server(session("2 200", "S: From: a@d.test") + next + "S: 220 mail.test\n" +
                         hangs_up);
    _s_mailserver record = record_of(server);
    told const    t      = receive_with_result(&record, list());
    EXPECT_EQ(t.step, "pop greeting");
    EXPECT_EQ(mails().from, strings{"From: a@d.test"});
    EXPECT_EQ(server.heard(), server.expected()) << server.problem();
}

// In 15 s.
constexpr int waits_of_a_read = 3000;

// Without the end of a mail the server is silent until its DELE, and then it answers.
TEST_F(Receive, ATimeoutThatDidNoHarmIsNotTheReasonOfALaterSession)
{
    std::string const slow = pop_login() + answered("stat", "+OK 2 200") +
                             "C: retr 1\nS: +OK\nS: From: a@d.test\nS: (silent)\n" +
                             answered("dele 1", "+OK") + answered("quit", "+OK");
    local_server server(slow + next + pop_login() + refused_at("stat", "-ERR locked"));
    int          waits = 0;
    reset_waits_until([&] { return server.fell_silent() && ++waits <= waits_of_a_read; });
    _s_mailserver record = record_of(server);
    told const    t      = receive_with_result(&record, list());
    reset_waits(true);
    EXPECT_EQ(server.heard(), server.expected()) << server.problem();
    EXPECT_EQ(t.result, -1);
    EXPECT_EQ(t.number, 100);
    EXPECT_EQ(t.cause, eml_cause_refused);
    EXPECT_EQ(t.step, "stat");
    EXPECT_EQ(t.reason, "the POP3 server refused STAT: -ERR locked");
    EXPECT_EQ(receive_msg_count(list()), 1);
}

TEST_F(Receive, TheCallWithAResultHasTheNumberOfWhatTheServerRecordLacks)
{
    local_server  server(pop_greeted + hangs_up);
    _s_mailserver record = record_of(server);
    record.pop_host      = nullptr;
    EXPECT_EQ(receive_with_result(&record, list()).number, 2002);
    record          = record_of(server);
    record.pop_user = nullptr;
    told const t    = receive_with_result(&record, list());
    EXPECT_EQ(t.number, 2004);
    EXPECT_EQ(t.cause, eml_cause_settings);
    local_server asked(pop_greeted + answered("user anna", "+OK") + hangs_up);
    record              = record_of(asked);
    record.pop_password = nullptr;
    EXPECT_EQ(receive_with_result(&record, list()).number, 2005);
    local_server stamped("S: +OK <1@pop.test>\n" + hangs_up);
    record               = record_of(stamped);
    record.pop_user      = nullptr;
    record.pop_auth_type = "apop";
    EXPECT_EQ(receive_with_result(&record, list()).number, 2006);
    record.pop_auth_type = nullptr;
    EXPECT_EQ(receive_with_result(&record, list()).number, 100);
}

TEST_F(Receive, TheCallWithAResultNeedsAPlaceForIt)
{
    EXPECT_EQ(receive_mails_result(nullptr, list(), "", nullptr), -1);
    told const t = receive_with_result(nullptr, list());
    EXPECT_EQ(t.result, -1);
    EXPECT_EQ(t.number, 100);
    EXPECT_EQ(t.cause, eml_cause_settings);
    EXPECT_EQ(t.step, "settings");
    _s_mailserver unset;
    EXPECT_EQ(receive_with_result(&unset, list()).cause, eml_cause_settings);
}

TEST_F(Receive, TheSizedCallTellsThatTheServerDoesNotDelete)
{
    local_server server(
        sessions(given_up_after, [](int) { return session("2 200", mail(1), "-ERR read only"); }));
    _s_mailserver record = record_of(server);
    char          reason[1024];
    EXPECT_EQ(receive_mails_sized(&record, list(), "", nullptr, 0, reason, sizeof reason), -1);
    EXPECT_STREQ(reason, "the server does not delete: it sends the same mail again and again");
    local_server again(
        sessions(given_up_after, [](int) { return session("2 200", mail(1), "-ERR read only"); }));
    record.pop_port = again.port();
    told const t    = receive_with_result(&record, list());
    EXPECT_EQ(t.number, 100);
    EXPECT_EQ(t.cause, eml_cause_protocol);
    EXPECT_EQ(t.step, "dele");
    EXPECT_EQ(receive_msg_count(list()), 1) << "and not each time it came";
    EXPECT_EQ(mails().from, strings{"From: 1@d.test"});
    EXPECT_EQ(mails().subject.size(), 1U);
    EXPECT_EQ(mails().header.size(), 1U);

    // Another mail before, and the same one twice while there were fewer.
    local_server more(sessions(given_up_after + 2, [](int n) {
        return session(n == 1 ? "4 400" : n == 2 ? "3 300" : "2 200", mail(n == 1 ? 2 : 1));
    }));
    record.pop_port = more.port();
    EXPECT_EQ(receive_with_result(&record, list()).step, "dele");
    EXPECT_EQ(mails().from, (strings{"From: 2@d.test", "From: 1@d.test", "From: 1@d.test"}));
}

TEST_F(Receive, GettersCutTheKeyOff)
{
    mails() = {3,
               {"From: Anna <a@d.test>", "X-From: b@e.test", ""},
               {"Subject: paper", "Re: Subject: of old", ""}};
    struct {
        int         index;
        char const* from;
        char const* subject;
        char const* reason;
    } const cases[] = {
        {0, "Anna <a@d.test>", "paper", "as usual"},
        {1, "b@e.test", "of old", "what precedes the key goes with it"},
        {2, "", "", "a mail without such lines"},
    };
    for (auto const& c : cases) {
        char buffer[100] = "";
        EXPECT_EQ(receive_msg_get_from(list(), c.index, buffer, sizeof buffer), 0) << c.reason;
        EXPECT_STREQ(buffer, c.from) << c.reason;
        EXPECT_EQ(receive_msg_get_subject(list(), c.index, buffer, sizeof buffer), 0) << c.reason;
        EXPECT_STREQ(buffer, c.subject) << c.reason;
    }
    EXPECT_EQ(trouble_traces(), (strings{"error: no keyword", "error: no keyword"}));
}

TEST_F(Receive, ABufferAsLongAsTheWholeLineIsTooShort)
{
    std::string const from    = "From: a@d.test";
    std::string const subject = "Subject: s";
    mails()                   = {1, {from}, {subject}};
    struct {
        int         length;
        int         from_result;
        int         subject_result;
        char const* reason;
    } const cases[] = {
        {static_cast<int>(from.size()) + 1, 0, 0, "the line and its NUL"},
        {static_cast<int>(from.size()), -1, 0, "the NUL of From needs room"},
        {static_cast<int>(subject.size()) + 1, -1, 0, "the line of Subject and its NUL"},
        {static_cast<int>(subject.size()), -1, -1, "the NUL of Subject needs room"},
        {9, -1, -1, "room for the values without their keys"},
        {0, -1, -1, "no room"},
        {-1, -1, -1, "less than no room"},
    };
    for (auto const& c : cases) {
        char buffer[100] = "kept";
        EXPECT_EQ(receive_msg_get_from(list(), 0, buffer, c.length), c.from_result) << c.reason;
        EXPECT_STREQ(buffer, c.from_result == 0 ? "a@d.test" : "kept") << c.reason;
        char other[100] = "kept";
        EXPECT_EQ(receive_msg_get_subject(list(), 0, other, c.length), c.subject_result)
            << c.reason;
        EXPECT_STREQ(other, c.subject_result == 0 ? "s" : "kept") << c.reason;
    }
}

TEST_F(Receive, WhatStandsBeforeTheKeyNeedsRoomToo)
{
    std::string const from = "X-From: a@d.test";
    mails()                = {1, {from}, {""}};
    char      buffer[100]  = "kept";
    int const length       = static_cast<int>(from.size());
    EXPECT_EQ(receive_msg_get_from(list(), 0, buffer, length), -1);
    EXPECT_STREQ(buffer, "kept");
    EXPECT_EQ(receive_msg_get_from(list(), 0, buffer, length + 1), 0);
    EXPECT_STREQ(buffer, "a@d.test");
}

TEST_F(Receive, GettersTakeNoIndexOutsideAndNoNull)
{
    mails()         = {1, {"From: a"}, {"Subject: s"}};
    char buffer[20] = "kept";
    for (int const index : {1, 2, -1, -2147483647 - 1, 2147483647}) {
        EXPECT_EQ(receive_msg_get_from(list(), index, buffer, sizeof buffer), -1) << index;
        EXPECT_EQ(receive_msg_get_subject(list(), index, buffer, sizeof buffer), -1) << index;
    }
    EXPECT_EQ(receive_msg_get_from(nullptr, 0, buffer, sizeof buffer), -1);
    EXPECT_EQ(receive_msg_get_subject(nullptr, 0, buffer, sizeof buffer), -1);
    EXPECT_EQ(receive_msg_get_from(list(), 0, nullptr, sizeof buffer), -1);
    EXPECT_EQ(receive_msg_get_subject(list(), 0, nullptr, sizeof buffer), -1);
    EXPECT_STREQ(buffer, "kept");
}

}  // namespace

}  // namespace zelieml::test
