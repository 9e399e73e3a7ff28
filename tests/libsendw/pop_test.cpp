// pop_test.cpp - conversations of the POP3 client (RFC 1939)

#include "libsendw/pop.h"

#include <algorithm>
#include <functional>
#include <limits>
#include <memory>

#include "tests/support/clean_machine.h"
#include "tests/support/dialogues.h"
#include "tests/support/peers.h"

namespace zelieml::test
{

namespace
{

constexpr int max_int = std::numeric_limits<int>::max();
constexpr int min_int = std::numeric_limits<int>::min();

}  // namespace

class Pop : public on_a_clean_machine
{
protected:
    void TearDown() override
    {
        EXPECT_EQ(pop_end_session(session_), session_ != nullptr ? 0 : -1);
        if (server_) {
            EXPECT_EQ(server_->heard(), server_->expected()) << server_->problem();
            EXPECT_TRUE(server_->ok()) << server_->problem();
        }
        server_.reset();
        on_a_clean_machine::TearDown();
    }

    int play(std::string const& transcript)
    {
        server_ = std::make_unique<scripted_server>(transcript);
        return server_->port();
    }

    // Begins a session with a server that plays the transcript; TearDown ends it.
    _s_pop* start(std::string const& transcript)
    {
        EXPECT_EQ(pop_start_session("127.0.0.1", play(transcript), &session_), 0);
        clear_traces();
        return session_;
    }

    _s_pop* session() const { return session_; }

private:
    std::unique_ptr<scripted_server> server_;
    _s_pop*                          session_ = nullptr;
};

// ------------------------------------------------------- POP before SMTP, whole

// A good login by USER and PASS, unless it says otherwise.
struct login_case : named_case {
    using named_case::named_case;

    login_case& as(std::string const& its_user, std::string const& its_password)
    {
        user     = its_user;
        password = its_password;
        return *this;
    }
    login_case& by_apop()
    {
        apop = true;
        return *this;
    }
    login_case& plays(std::string const& its_transcript)
    {
        transcript = its_transcript;
        return *this;
    }
    login_case& ends(int number, std::string const& last_reply)
    {
        code  = number;
        reply = last_reply;
        return *this;
    }
    login_case& says(std::string const& last_reply) { return ends(pop_ok, last_reply); }
    login_case& trouble(strings const& traces)
    {
        traced = traces;
        return *this;
    }

    std::string transcript;
    std::string user     = "anna";
    std::string password = "secret";
    bool        apop     = false;
    int         code     = pop_ok;
    std::string reply    = "+OK\r\n";
    strings     traced;
};

class PopBeforeSmtp : public Pop, public testing::WithParamInterface<login_case>
{
};

namespace
{

// An APOP login after that greeting.
std::string good_apop(std::string const& greeting, std::string const& digest)
{
    return "S: " + greeting + "\n" + answered("apop anna " + digest, "+OK") +
           answered("quit", "+OK");
}

login_case const login_cases[] = {
    login_case("USER and PASS")
        .plays(pop_greeted + answered("user anna", "+OK") +
               answered("pass secret", "+OK two messages") + answered("quit", "+OK bye"))
        .says("+OK bye\r\n"),
    login_case("APOP as in RFC 1939").as("mrose", "tanstaaf").by_apop().plays(R"(
        S: +OK POP3 server ready <1896.697170952@dbc.mtview.ca.us>
        C: apop mrose c4c9334bac560ecc979e58001b3e22fb
        S: +OK maildrop has 1 message (369 octets)
        C: quit
        S: +OK
     )"),
    login_case("the greeting is not checked").plays(R"(
        S: -ERR too many connections
        C: user anna
        S: +OK
        C: pass secret
        S: +OK
        C: quit
        S: +OK
     )"),
    login_case("a time stamp counts in a bad greeting too")
        .by_apop()
        .plays(good_apop("-ERR <a>", "f6fd9e356d52ef228fc9e0a37e62b396")),
    login_case("no positive status is asked for")
        .plays(R"(
        S: hello
        C: user anna
        S: who is that
        C: pass secret
        S: if you say so
        C: quit
        S: what
     )")
        .says("what\r\n"),
    login_case("blanks and odd bytes of user and password are sent as they are")
        .as("anna b <c>%d", " \xe7\xb4\x99 \"x\"")
        .plays(R"(
        S: +OK
        C: user anna b <c>%d
        S: +OK
        C: pass \x20\xe7\xb4\x99 "x"
        S: +OK
        C: quit
        S: +OK
     )"),
    login_case("an empty user and password").as("", "").plays(R"(
        S: +OK
        C: user\x20
        S: +OK
        C: pass\x20
        S: +OK
        C: quit
        S: +OK
     )"),
    login_case("replies that trickle")
        .plays(R"(
        S: (trickles 1)
        S: +OK ready
        C: user anna
        S: +OK
        C: pass secret
        S: +OK
        C: quit
        S: +OK bye
     )")
        .says("+OK bye\r\n"),
    login_case("replies that come before their commands")
        .plays(R"(
        S+ +OK ready
        S+ +OK user
        S+ +OK pass
        S: +OK bye
        C: user anna
        C: pass secret
        C: quit
     )")
        .says("+OK bye\r\n"),
    login_case("USER refused")
        .plays(pop_greeted + refused_at("user anna", "-ERR never heard of"))
        .ends(pop_user_refused, "-ERR never heard of\r\n")
        .trouble({"error:-ERR"}),
    login_case("USER refused in lower case")
        .plays(pop_greeted + refused_at("user anna", "-err no"))
        .ends(pop_user_refused, "-err no\r\n")
        .trouble({"error:-ERR"}),
    login_case("USER refused by the word error in a good reply")
        .plays(pop_greeted + refused_at("user anna", "+OK no error so far"))
        .ends(pop_user_refused, "+OK no error so far\r\n")
        .trouble({"error:-ERR"}),
    login_case("PASS refused")
        .plays(pop_greeted + answered("user anna", "+OK") + refused_at("pass secret", "-ERR wrong"))
        .ends(pop_pass_refused, "-ERR wrong\r\n")
        .trouble({"error:-ERR"}),
    login_case("APOP refused")
        .by_apop()
        .plays("S: +OK <a>\n" +
               refused_at("apop anna f6fd9e356d52ef228fc9e0a37e62b396", "-ERR permission denied"))
        .ends(pop_apop_refused, "-ERR permission denied\r\n")
        .trouble({"error:-ERR"}),
    login_case("APOP without a time stamp")
        .by_apop()
        .plays(pop_greeted + hangs_up)
        .ends(pop_apop_refused, "+OK ready\r\n")
        .trouble({"error:challenge spos %s"}),
    login_case("APOP with a time stamp that does not end")
        .by_apop()
        .plays("S: +OK <1.2@a\n" + hangs_up)
        .ends(pop_apop_refused, "+OK <1.2@a\r\n")
        .trouble({"error:challenge epos %s"}),
    login_case("APOP with a time stamp that only ends")
        .by_apop()
        .plays("S: +OK 1.2@a>\n" + hangs_up)
        .ends(pop_apop_refused, "+OK 1.2@a>\r\n")
        .trouble({"error:challenge spos %s"}),
    login_case("APOP with reversed brackets")
        .by_apop()
        .plays("S: +OK >1.2@a<\n" + hangs_up)
        .ends(pop_apop_refused, "+OK >1.2@a<\r\n")
        .trouble({"error:challenge spos, epos %s"}),
    login_case("APOP with a bracket before a good time stamp")
        .by_apop()
        .plays("S: +OK -> <1.2@a>\n" + hangs_up)
        .ends(pop_apop_refused, "+OK -> <1.2@a>\r\n")
        .trouble({"error:challenge spos, epos %s"}),
    login_case("APOP takes the first of two time stamps")
        .by_apop()
        .plays(good_apop("+OK <a> <b>", "f6fd9e356d52ef228fc9e0a37e62b396")),
    login_case("APOP takes from the first opening to the first closing bracket")
        .by_apop()
        .plays(good_apop("+OK <a<b>>", "0db916ac4846f680a28dc29507f9d311")),
    login_case("APOP with an empty time stamp")
        .by_apop()
        .plays(good_apop("+OK <>", "0d889ba84ec03bc1da45e918f3893f02")),
    login_case("APOP with an empty password")
        .as("anna", "")
        .by_apop()
        .plays(good_apop("+OK <x@y>", "d34673922a653815690ab325c2f4c13e")),
    login_case("QUIT refused is no failure")
        .plays(pop_login() + answered("quit", "-ERR some messages were not removed"))
        .says("-ERR some messages were not removed\r\n"),
    login_case("QUIT answered by closing")
        .plays(pop_login() + lost_at("quit"))
        .ends(pop_quit_failed, "")
        .trouble({"error:sock_readline", "error: pop_quit"}),
    login_case("the greeting is lost")
        .plays("S: (closes)")
        .ends(pop_start_failed, "")
        .trouble({"error:sock_readline"}),
    login_case("the greeting is half lost")
        .plays("S- +OK half a\nS: (closes)")
        .ends(pop_start_failed, "+OK half a")
        .trouble({"error:sock_readline"}),
    login_case("lost after USER")
        .plays(pop_greeted + lost_at("user anna"))
        .ends(pop_user_refused, "")
        .trouble({"error:sock_readline"}),
    login_case("lost in the middle of a reply")
        .plays(R"(
        S: +OK ready
        C: user anna
        S- +OK an
        S: (closes)
     )")
        .ends(pop_user_refused, "+OK an")
        .trouble({"error:sock_readline"}),
    login_case("lost after PASS")
        .plays(pop_greeted + answered("user anna", "+OK") + lost_at("pass secret"))
        .ends(pop_pass_refused, "")
        .trouble({"error:sock_readline"}),
    login_case("lost after APOP")
        .by_apop()
        .plays("S: +OK <a>\n" + lost_at("apop anna f6fd9e356d52ef228fc9e0a37e62b396"))
        .ends(pop_apop_refused, "")
        .trouble({"error:sock_readline"}),
    login_case("a NUL hides the rest of a reply")
        .plays(R"(
        S: +OK ready
        C: user anna
        S: +OK\0-ERR
        C: pass secret
        S: \0-ERR
        C: quit
        S: +OK by\0e
     )")
        .says("+OK by"),
    login_case("a reply line of many pieces")
        .plays("S: +OK ready\nC: user anna\nS: +OK " + std::string(10000, 'x') +
               "\nC: pass secret\nS: +OK\nC: quit\nS: +OK\n"),
    login_case("the longest USER command")
        .as(std::string(1016, 'a'), "secret")
        .plays("S: +OK ready\nC: user " + std::string(1016, 'a') +
               "\nS: +OK\nC: pass secret\nS: +OK\nC: quit\nS: +OK\n"),
    login_case("a USER command that is too long is not sent")
        .as(std::string(1017, 'a'), "secret")
        .plays("S: +OK ready\nC: (closes)\n")
        .ends(pop_user_refused, "+OK ready\r\n")
        .trouble({"error:sock_write"}),
    login_case("a PASS command that is too long is not sent")
        .as("anna", std::string(1017, 'a'))
        .plays("S: +OK ready\nC: user anna\nS: +OK go on\nC: (closes)\n")
        .ends(pop_pass_refused, "+OK go on\r\n")
        .trouble({"error:sock_write"}),
    login_case("the longest APOP command")
        .as(std::string(983, 'a'), "secret")
        .by_apop()
        .plays("S: +OK <a>\nC: apop " + std::string(983, 'a') +
               " f6fd9e356d52ef228fc9e0a37e62b396\nS: +OK\nC: quit\nS: +OK\n"),
    login_case("an APOP command that is too long is not sent")
        .as(std::string(984, 'a'), "secret")
        .by_apop()
        .plays("S: +OK <a>\nC: (closes)\n")
        .ends(pop_apop_refused, "+OK <a>\r\n")
        .trouble({"error:sock_write"}),
};

}  // namespace

TEST_P(PopBeforeSmtp, EndsAsTheTranscriptSays)
{
    login_case const& c     = GetParam();
    std::string       reply = "as it was";

    EXPECT_EQ(pop_before_smtp("127.0.0.1", play(c.transcript), c.user.c_str(), c.password.c_str(),
                              c.apop, 1500, reply),
              c.code);

    EXPECT_EQ(reply, c.reply);
    EXPECT_EQ(trouble_traces(), c.traced);
    // The wait comes after a good login only.
    std::vector<std::int64_t> const sleeps(c.code == pop_ok ? 1 : 0, 1500000);
    EXPECT_EQ(waits().sleeps, sleeps);
}

INSTANTIATE_TEST_SUITE_P(Dialogue, PopBeforeSmtp, testing::ValuesIn(login_cases),
                         case_name<login_case>);

namespace
{

std::string const good_login = pop_login() + pop_goodbye;

}  // namespace

TEST_F(Pop, TheWaitIsInMillisecondsAndNoneWhenNegative)
{
    struct row {
        int          wait_ms;
        std::int64_t slept_us;
        char const*  reason;
    };
    row const rows[] = {
        {1500, 1500000, "a second and a half"},
        {0, 0, "none"},
        {1, 1000, "one millisecond"},
        {max_int, std::int64_t{max_int} * 1000, "24 days: more microseconds than an int holds"},
        {-1, 0, "negative: none"},
        {min_int, 0, "the most negative: none"},
    };
    for (row const& r : rows) {
        reset_waits(true);
        scripted_server server(good_login);
        std::string     reply;
        EXPECT_EQ(
            pop_before_smtp("127.0.0.1", server.port(), "anna", "secret", false, r.wait_ms, reply),
            pop_ok);
        ASSERT_EQ(waits().sleeps.size(), 1U) << r.reason;
        // A sleep of a negative time returns at once.
        EXPECT_EQ(std::max<std::int64_t>(waits().sleeps[0], 0), r.slept_us) << r.reason;
        EXPECT_TRUE(server.ok()) << server.problem();
    }
}

// The one test of all that a login traces; the others look at its failures only.
TEST_F(Pop, TracesItsWay)
{
    auto const traced = [](int port, bool apop) {
        std::string reply;
        clear_traces();
        pop_before_smtp("127.0.0.1", port, "anna", "secret", apop, 0, reply);
        return traces_above_sockets();
    };
    std::string const digest = "f6fd9e356d52ef228fc9e0a37e62b396";
    scripted_server   by_user(good_login);
    scripted_server   by_apop(good_apop("+OK <a>", digest));
    scripted_server   refusing("S: +OK <a>\n" + refused_at("apop anna " + digest, "-ERR no"));
    closed_port const nobody;

    EXPECT_EQ(traced(by_user.port(), false),
              (strings{"pop_before_smtp in", "IP:%s Port:%d", "sleep start %d", "sleep end",
                       "pop_before_smtp out %d"}));
    EXPECT_EQ(traced(by_apop.port(), true),
              (strings{"pop_before_smtp in", "IP:%s Port:%d", "pop_apop in", "pop_apop out",
                       "sleep start %d", "sleep end", "pop_before_smtp out %d"}));
    EXPECT_EQ(traced(refusing.port(), true),
              (strings{"pop_before_smtp in", "IP:%s Port:%d", "pop_apop in", "error:-ERR",
                       "pop_before_smtp out %d"}));
    EXPECT_EQ(traced(nobody.number(), false),
              (strings{"pop_before_smtp in", "IP:%s Port:%d", "error:connect INVALID_SOCKET",
                       "error:INVALID_SOCKET %d", "pop_start_session"}));

    start("S: +OK\n" + answered("retr 1", "+OK\nS: ."));
    strings lines;
    bool    over = false;
    pop_retr_alllines(session(), 1, lines, over);
    EXPECT_EQ(traces_above_sockets(), strings{"pop.response %s"});
}

TEST_F(Pop, ARefusedConnectionFailsTheStart)
{
    {
        closed_port const nobody;
        std::string       reply = "as it was";
        EXPECT_EQ(
            pop_before_smtp("127.0.0.1", nobody.number(), "anna", "secret", false, 1500, reply),
            pop_start_failed);
        EXPECT_EQ(reply, "") << "there was no reply";
    }
    EXPECT_EQ(trouble_traces(),
              (strings{"error:connect INVALID_SOCKET", "error:INVALID_SOCKET %d"}));
    EXPECT_TRUE(waits().sleeps.empty());
}

TEST_F(Pop, AnUnknownHostFailsTheStart)
{
    std::string reply = "as it was";
    EXPECT_EQ(pop_before_smtp("nowhere.test", 110, "anna", "secret", false, 1500, reply),
              pop_start_failed);
    EXPECT_EQ(reply, "");
    EXPECT_EQ(trouble_traces(), (strings{"warning:inet_addr %s", "error:gethostbyname %s",
                                         "error:invalid host address"}));
    EXPECT_EQ(looked_up_names(), strings{"nowhere.test"});
}

TEST_F(Pop, AKnownHostIsReachedByItsName)
{
    add_host("pop.test", "127.0.0.1");
    std::string reply;
    EXPECT_EQ(pop_before_smtp("pop.test", play(good_login), "anna", "secret", false, 0, reply),
              pop_ok);
    EXPECT_EQ(reply, "+OK bye\r\n");
}

TEST_F(Pop, ASilentGreetingIsGivenUpAfterItsFifteenSeconds)
{
    reset_waits(false);
    std::string reply = "as it was";
    EXPECT_EQ(
        pop_before_smtp("127.0.0.1", play("S: (silent)"), "anna", "secret", false, 1500, reply),
        pop_start_failed);
    EXPECT_EQ(reply, "");
    EXPECT_EQ(waits().readable_waits, std::vector<int>(3001, 5000));
    EXPECT_TRUE(waits().sleeps.empty());
    EXPECT_EQ(trouble_traces(), strings{"error:sock_readline"});
}

TEST_F(Pop, NullTextsAreAFailure)
{
    std::string reply = "as it was";
    EXPECT_EQ(pop_before_smtp(nullptr, 110, "anna", "secret", false, 0, reply), pop_start_failed);
    auto const login = [&](char const* user, char const* password, bool apop,
                           std::string const& transcript) {
        scripted_server server(transcript);
        int const       code =
            pop_before_smtp("127.0.0.1", server.port(), user, password, apop, 0, reply);
        EXPECT_TRUE(server.ok()) << server.problem();
        return code;
    };
    std::string const after_user = "S: +OK <a>\n" + answered("user anna", "+OK");
    EXPECT_EQ(login(nullptr, "secret", false, "S: +OK <a>"), pop_user_refused);
    EXPECT_EQ(login("anna", nullptr, false, after_user), pop_pass_refused);
    EXPECT_EQ(login(nullptr, "secret", true, "S: +OK <a>"), pop_apop_refused);
    EXPECT_EQ(login("anna", nullptr, true, "S: +OK <a>"), pop_apop_refused);
}

TEST_F(Pop, AConnectionThatDoesNotEndInOrderIsTracedAndAGoodLoginAllTheSame)
{
    std::string reply;
    EXPECT_EQ(pop_before_smtp("127.0.0.1", play(good_login + "S: (resets)\n"), "anna", "secret",
                              false, 1500, reply),
              pop_ok);
    EXPECT_EQ(reply, "+OK bye\r\n");
    strings const trouble = trouble_traces();
    ASSERT_EQ(trouble.size(), 2U);
    // Either step may be the one that fails; it depends on microseconds.
    EXPECT_TRUE(trouble[0] == "error:shutdown" || trouble[0] == "error:recv") << trouble[0];
    EXPECT_EQ(trouble[1], "error:shutdown_connection");
    EXPECT_EQ(waits().sleeps, std::vector<std::int64_t>{1500000});
}

TEST_F(Pop, ABrokenConnectionIsARefusalWhateverTheStep)
{
    std::string reply;
    EXPECT_EQ(pop_before_smtp("127.0.0.1", play("S: +OK ready\nC: user anna\nS: (resets)\n"),
                              "anna", "secret", false, 0, reply),
              pop_user_refused);
    EXPECT_EQ(reply, "");
}

// ------------------------------------------------------------------- single steps

TEST_F(Pop, TheGreetingIsKeptAsTheLastReply)
{
    start("S: +OK ready <1@a>");
    EXPECT_EQ(session()->reply, "+OK ready <1@a>\r\n");
    EXPECT_TRUE(session()->connected);
}

TEST_F(Pop, ASessionWhoseStartFailedIsHandedOutAllTheSame)
{
    _s_pop* failed = nullptr;
    EXPECT_EQ(pop_start_session("nowhere.test", 110, &failed), -1);
    ASSERT_NE(failed, nullptr);
    EXPECT_FALSE(failed->connected);
    EXPECT_EQ(pop_free(failed), 0);

    EXPECT_EQ(pop_start_session("127.0.0.1", play("S: (closes)"), &failed), -1);
    ASSERT_NE(failed, nullptr);
    EXPECT_TRUE(failed->connected);
    pop_abandon_session(failed);
}

TEST_F(Pop, NullSessionsAreAFailureToEnd)
{
    EXPECT_EQ(pop_end_session(nullptr), -1);
    EXPECT_EQ(pop_free(nullptr), -1);
    pop_abandon_session(nullptr);
    EXPECT_EQ(trouble_traces(), strings());
}

TEST_F(Pop, WithoutMemoryForTheDigestNoApopIsSent)
{
    start("S: +OK ready <1@a>");
    fail_heap_after(0);
    EXPECT_EQ(pop_apop(session(), "anna", "secret"), -1);
    fail_heap_after(-1);
    EXPECT_EQ(trouble_traces(), (strings{"error:cdsaCspAttach", "error:crypt::md5"}));
}

TEST_F(Pop, AnyWordCanBeALogin)
{
    start("S: +OK\nC: xyzzy a b\nS: +OK plugh");
    EXPECT_EQ(login_data(session(), "xyzzy", "a b"), 0);
    EXPECT_EQ(session()->reply, "+OK plugh\r\n");
}

namespace
{

// A reply of that many bytes, its CR LF included, as a transcript has it.
std::string stat_reply(std::size_t size)
{
    std::string const begin = "+OK 12 345 ";
    return begin + std::string(size - begin.size() - 2, 'x');
}

}  // namespace

namespace
{

constexpr int untouched = -77;

// A reply to STAT that is taken, with nothing to be found in it.
struct stat_case : named_case {
    using named_case::named_case;

    stat_case& replies(std::string const& line)
    {
        reply = line;
        return *this;
    }
    stat_case& counts(int number)
    {
        count = number;
        return *this;
    }
    stat_case& sums(int number)
    {
        size = number;
        return *this;
    }
    stat_case& trouble(strings const& traces)
    {
        traced = traces;
        return *this;
    }
    stat_case& fails(char const* trace)
    {
        result = -1;
        return trouble({trace});
    }

    std::string reply;
    int         result = 0;
    int         count  = untouched;
    int         size   = untouched;
    strings     traced;
};

}  // namespace

TEST_F(Pop, StatTakesTheSecondAndTheThirdWord)
{
    strings const   missing = {"error:token"};
    stat_case const cases[] = {
        stat_case("an empty mailbox").replies("+OK 0 0").counts(0).sums(0),
        stat_case("as in RFC 1939").replies("+OK 2 320").counts(2).sums(320),
        stat_case("what follows is not looked at")
            .replies("+OK 2 320 and more")
            .counts(2)
            .sums(320),
        stat_case("several blanks are one").replies("+OK   2    320").counts(2).sums(320),
        stat_case("the status word alone").replies("+OK").trouble(strings(2, "error:token")),
        stat_case("a blank behind it: the CR LF is a word, and no number")
            .replies("+OK ")
            .counts(0)
            .trouble(missing),
        stat_case("the size is missing").replies("+OK 5").counts(5).trouble(missing),
        stat_case("tabs separate nothing")
            .replies("+OK\\t5\\t6")
            .trouble(strings(2, "error:token")),
        stat_case("negative numbers come as they are").replies("+OK -3 -4").counts(-3).sums(-4),
        stat_case("no number is 0, and what follows one is dropped")
            .replies("+OK x 7y")
            .counts(0)
            .sums(7),
        stat_case("the largest, and one more")
            .replies("+OK 2147483647 2147483648")
            .counts(max_int)
            .sums(max_int),
        stat_case("the smallest, and one less")
            .replies("+OK -2147483648 -2147483649")
            .counts(min_int)
            .sums(min_int),
        stat_case("out of range for any type")
            .replies("+OK 99999999999999999999999 -99999999999999999999999")
            .counts(max_int)
            .sums(min_int),
        stat_case("a leading blank is no word").replies(" 8 9").counts(9).trouble(missing),
        stat_case("a NUL ends the reply").replies("\\0+OK 1 2").trouble(strings(2, "error:token")),
        stat_case("the longest reply").replies(stat_reply(1023)).counts(12).sums(345),
        stat_case("one byte too long").replies(stat_reply(1024)).fails("error:BufLen"),
        stat_case("much too long").replies(stat_reply(5000)).fails("error:BufLen"),
        stat_case("refused").replies("-ERR no").fails("error:-ERR"),
        stat_case("the word error in a good reply").replies("+OK 1 2 error").fails("error:-ERR"),
    };
    for (stat_case const& c : cases) {
        scripted_server server("S: +OK\n" + answered("stat", c.reply));
        _s_pop*         pop = nullptr;
        ASSERT_EQ(pop_start_session("127.0.0.1", server.port(), &pop), 0);
        clear_traces();
        int count = untouched;
        int size  = untouched;

        EXPECT_EQ(pop_stat(pop, &count, &size), c.result) << c.name;

        EXPECT_EQ(count, c.count) << c.name;
        EXPECT_EQ(size, c.size) << c.name;
        EXPECT_EQ(trouble_traces(), c.traced) << c.name;
        pop_end_session(pop);
        EXPECT_TRUE(server.ok()) << c.name << ": " << server.problem();
    }
}

TEST_F(Pop, DeleAndRetrNameTheMessage)
{
    start(R"(
        S: +OK
        C: retr 1
        S: +OK 120 octets
        C: dele 2147483647
        S: +OK
        C: dele -2147483648
        S: -ERR no such message
        C: retr 0
        S: -ERR no such message
        C: quit
        S: +OK
    )");
    EXPECT_EQ(pop_retr(session(), 1), 0);
    EXPECT_EQ(session()->reply, "+OK 120 octets\r\n");
    EXPECT_EQ(pop_dele(session(), max_int), 0);
    EXPECT_EQ(pop_dele(session(), min_int), -1);
    EXPECT_EQ(pop_retr(session(), 0), -1);
    EXPECT_EQ(trouble_traces(), strings(2, "error:-ERR"));
    EXPECT_EQ(pop_quit(session()), 0);
}

TEST_F(Pop, ARefusedStepLeavesTheSessionUsable)
{
    start("S: +OK\nC: user anna\nS: -ERR\nC: user bert\nS: +OK");
    EXPECT_EQ(pop_user(session(), "anna"), -1);
    EXPECT_EQ(pop_user(session(), std::string(1017, 'x').c_str()), -1) << "not sent";
    EXPECT_EQ(pop_user(session(), "bert"), 0);
    EXPECT_EQ(trouble_traces(), (strings{"error:-ERR", "error:sock_write"}));
}

// A silent server at every step: the step fails as the greeting does, and traces the read.
TEST_F(Pop, ASilentServerIsGivenUpAtEveryStep)
{
    struct row {
        char const*                 name;
        char const*                 command;
        std::function<int(_s_pop*)> step;
    };
    int       count  = 0;
    row const rows[] = {
        {"user", "user anna", [](_s_pop* s) { return pop_user(s, "anna"); }},
        {"pass", "pass secret", [](_s_pop* s) { return pop_passwd(s, "secret"); }},
        {"apop", "apop anna f6fd9e356d52ef228fc9e0a37e62b396",
         [](_s_pop* s) { return pop_apop(s, "anna", "secret"); }},
        {"stat", "stat", [&](_s_pop* s) { return pop_stat(s, &count, &count); }},
        {"retr", "retr 1", [](_s_pop* s) { return pop_retr(s, 1); }},
        {"dele", "dele 1", [](_s_pop* s) { return pop_dele(s, 1); }},
        {"quit", "quit", [](_s_pop* s) { return pop_quit(s); }},
    };
    for (row const& r : rows) {
        reset_waits(true);
        scripted_server server(std::string("S: +OK <a>\nC: ") + r.command + "\nS: (silent)\n");
        _s_pop*         pop = nullptr;
        ASSERT_EQ(pop_start_session("127.0.0.1", server.port(), &pop), 0);
        clear_traces();
        reset_waits(false);

        EXPECT_EQ(r.step(pop), -1) << r.name;

        EXPECT_EQ(waits().readable_waits.size(), 3001U) << r.name;
        EXPECT_EQ(trouble_traces(), strings{"error:sock_readline"}) << r.name;
        EXPECT_EQ(pop->reply, "") << r.name;
        pop_end_session(pop);
        EXPECT_TRUE(server.ok()) << r.name << ": " << server.problem();
    }
}

// ----------------------------------------------------------------- whole messages

namespace
{

std::string numbered_lines(int count, char const* before)
{
    std::string text;
    for (int i = 1; i <= count; ++i) {
        text += before + ("line " + std::to_string(i)) + "\n";
    }
    return text;
}

strings numbered(int count)
{
    strings lines;
    for (int i = 1; i <= count; ++i) {
        lines.push_back("line " + std::to_string(i));
    }
    return lines;
}

}  // namespace

TEST_F(Pop, AMessageComesLineByLineWithItsStatusAndItsEndMark)
{
    start(R"(
        S: +OK
        C: retr 1
        S: +OK 120 octets
        S: From: anna@a.test
        S: Subject: hi
        S:
        S: ..a line with two dots keeps both
        S: . a dot and more is no end
        S: ..
        S- a lone LF\n
        S- .\n
        S- \n
        S: two CR\r
        S- nul\0hidden\r\n
        S: .
    )");
    strings lines = {"what was there"};
    bool    over  = true;

    EXPECT_EQ(pop_retr_alllines(session(), 1, lines, over), 0);

    EXPECT_EQ(lines,
              (strings{"what was there", "+OK 120 octets", "From: anna@a.test", "Subject: hi",
                       "\r",  // an empty line
                       "..a line with two dots keeps both", ". a dot and more is no end", "..",
                       "a lone LF",
                       ".",   // no end mark without its CR
                       "\n",  // a text of one byte loses nothing
                       "two CR\r", "nul", "."}));
    EXPECT_FALSE(over);
    EXPECT_EQ(trouble_traces(), strings());
}

TEST_F(Pop, AMessageThatTricklesIsTheSame)
{
    start(R"(
        S: +OK
        C: retr 1
        S: (trickles 1)
        S: +OK
        S: a
        S:
        S: ..
        S: .
    )");
    strings lines;
    bool    over = true;
    EXPECT_EQ(pop_retr_alllines(session(), 1, lines, over), 0);
    EXPECT_EQ(lines, (strings{"+OK", "a", "\r", "..", "."}));
}

class MessageLength : public Pop, public testing::WithParamInterface<int>
{
};

// 2001 lines are read at most, and the end mark is one of them.
TEST_P(MessageLength, IsLimited)
{
    int const count    = GetParam();
    bool      too_long = count > 2000;
    start("S: +OK\nC: retr 1\nS+ +OK\n" + numbered_lines(count, "S+ ") + "S: .\nC: (closes)\n");
    strings wanted = numbered(std::min(count, 2001));
    wanted.insert(wanted.begin(), "+OK");
    if (!too_long) {
        wanted.emplace_back(".");
    }

    strings lines;
    bool    over = !too_long;
    EXPECT_EQ(pop_retr_alllines(session(), 1, lines, over), 0);

    EXPECT_EQ(over, too_long);
    EXPECT_EQ(lines, wanted);
    EXPECT_EQ(trouble_traces(), too_long ? strings{"warning: POP MAX LINE COUNT"} : strings());
}

INSTANTIATE_TEST_SUITE_P(Lines, MessageLength, testing::Values(0, 1, 1999, 2000, 2001, 2500));

TEST_F(Pop, WhatIsUnreadOfALongMessageAnswersTheNextCommand)
{
    start("S: +OK\nC: retr 1\nS+ +OK\n" + numbered_lines(2002, "S+ ") +
          "S: .\nC: dele 1\nS: +OK deleted\n");
    strings lines;
    bool    over = false;
    EXPECT_EQ(pop_retr_alllines(session(), 1, lines, over), 0);
    EXPECT_TRUE(over);
    EXPECT_EQ(pop_dele(session(), 1), 0);
    EXPECT_EQ(session()->reply, "line 2002\r\n");
}

TEST_F(Pop, ALineOfMoreThan4095BytesBecomesEmpty)
{
    std::string const longest(4093, 'x');  // and CR LF
    start("S: +OK\nC: retr 1\nS: +OK\nS: " + longest + "\nS: " + longest +
          "y\nS: " + std::string(20000, 'z') + "\nS: after\nS: .\n");
    strings lines;
    bool    over = false;
    EXPECT_EQ(pop_retr_alllines(session(), 1, lines, over), 0);
    EXPECT_EQ(lines, (strings{"+OK", longest, "", "", "after", "."}));
    EXPECT_EQ(trouble_traces(), strings(2, "error:buffer over flow"));
}

TEST_F(Pop, AMessageCutShortCountsAsFetched)
{
    start("S: +OK\nC: retr 1\nS: +OK\nS: one\nS- tw\nS: (closes)\n");
    strings lines;
    bool    over = true;
    EXPECT_EQ(pop_retr_alllines(session(), 1, lines, over), 0);
    EXPECT_EQ(lines, (strings{"+OK", "one"}));
    EXPECT_FALSE(over);
}

TEST_F(Pop, AMessageThatFallsSilentCountsAsFetched)
{
    start("S: +OK\nC: retr 1\nS+ +OK\nS: one\nS: (silent)\n");
    EXPECT_EQ(pop_retr(session(), 1), 0);
    reset_waits(false);
    strings lines;
    bool    over = false;
    EXPECT_EQ(read_multiline_reply(session(), lines, over), -1);
    EXPECT_EQ(lines, strings{"one"}) << "what had come is kept";
    EXPECT_FALSE(over);
}

TEST_F(Pop, ARefusedMessageLeavesTheLinesAndClearsTheFlag)
{
    start("S: +OK\nC: retr 1\nS: -ERR no such message\n");
    strings lines = {"what was there"};
    bool    over  = true;
    EXPECT_EQ(pop_retr_alllines(session(), 1, lines, over), -1);
    EXPECT_EQ(lines, strings{"what was there"});
    EXPECT_FALSE(over);
    EXPECT_EQ(trouble_traces(), (strings{"error:-ERR", "error:pop_retr"}));
}

TEST_F(Pop, AMessageLostBeforeItsStatusIsAFailure)
{
    start("S: +OK\nC: retr 1\nS: (closes)\n");
    strings lines;
    bool    over = true;
    EXPECT_EQ(pop_retr_alllines(session(), 1, lines, over), -1);
    EXPECT_EQ(lines, strings());
    EXPECT_EQ(trouble_traces(), (strings{"error:sock_readline", "error:pop_retr"}));
}

// -------------------------------------------------------------------- small parts

TEST(PopError, IsThreeWordsAnywhere)
{
    struct row {
        char const* line;
        bool        error;
        char const* reason;
    };
    row const rows[] = {
        {"-ERR", true, "the status word"},
        {"-ERR no such message\r\n", true, "with a reason"},
        {"-err\r\n", true, "lower case"},
        {"+OK but -ERR\r\n", true, "anywhere"},
        {"+OK 0 errors\r\n", true, "the word error in a good reply, within a longer word too"},
        {"+OK Error\r\n", false, "Error is no error"},
        {"+OK ERROR\r\n", false, "nor is ERROR"},
        {"-Err\r\n", false, "mixed case"},
        {"ERR\r\n", false, "without its hyphen"},
        {"+OK\r\n", false, "good"},
        {"", false, "empty"},
    };
    for (row const& r : rows) {
        clear_traces();
        EXPECT_EQ(pop_error(r.line), r.error) << r.reason;
        EXPECT_EQ(trouble_traces(), r.error ? strings{"error:-ERR"} : strings()) << r.reason;
    }
}

TEST(RemoveNr, DropsOneLineEnd)
{
    struct row {
        std::string line;
        std::string text;
        char const* reason;
    };
    row const rows[] = {
        {"a\r\n", "a", "CR LF"},
        {"a\n", "a", "LF"},
        {"a\r", "a", "CR"},
        {"a", "a", "none"},
        {"a\n\r", "a\n", "the other way round: the CR goes"},
        {"a\r\n\r\n", "a\r\n", "one only"},
        {"\r\n", "\r", "a string of one byte loses nothing"},
        {"\n", "\n", "likewise"},
        {"\r", "\r", "likewise"},
        {"", "", "empty"},
        {std::string("a\0b\r\n", 5), "a", "up to a NUL"},
        {std::string(4094, 'x') + "\n", std::string(4094, 'x'), "4095 bytes"},
        {std::string(4095, 'x'), std::string(4095, 'x'), "4095 bytes without a line end"},
        {std::string(4095, 'x') + "\n", "", "4096 bytes"},
    };
    for (row const& r : rows) {
        clear_traces();
        EXPECT_EQ(remove_nr(r.line), r.text) << r.reason;
        EXPECT_EQ(trouble_traces(),
                  r.line.size() > 4095 ? strings{"error:buffer over flow"} : strings())
            << r.reason;
    }
}

TEST(RemoveEndChar, DropsTheLastByteOfALongerTextIfItIsTheOne)
{
    struct row {
        char const* before;
        char        end;
        char const* after;
    };
    row const rows[] = {
        {"ab", 'b', "a"}, {"ab", 'a', "ab"}, {"b", 'b', "b"}, {"", 'b', ""}, {"bb", 'b', "b"},
    };
    for (row const& r : rows) {
        char text[8];
        std::snprintf(text, sizeof text, "%s", r.before);
        remove_end_char(text, r.end);
        EXPECT_STREQ(text, r.after) << r.before;
    }
}

}  // namespace zelieml::test
