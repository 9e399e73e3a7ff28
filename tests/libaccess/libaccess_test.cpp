// Server records, and the conversations of the two login tests.

#include "libaccess/libaccess.h"

#include <gtest/gtest.h>
#include <memory>
#include <vector>

#include "libsendw/libsendw.h"
#include "libsendw/pop.h"
#include "tests/support/clean_machine.h"
#include "tests/support/peers.h"

namespace zelieml::test
{

namespace
{

struct server_deleter {
    void operator()(void* server) const { server_destroy(server); }
};

// A server record, destroyed with the object.
class record
{
public:
    record()
    {
        void* made = nullptr;
        EXPECT_EQ(server_create(&made), 0);
        server_.reset(made);
    }

    void* handle() const { return server_.get(); }
    auto* get() const { return static_cast<_s_mailserver*>(server_.get()); }

private:
    std::unique_ptr<void, server_deleter> server_;
};

// -------------------------------------------------------------- both servers, whole

struct access_case {
    char const* name;
    std::string pop;   // transcript; empty: nobody may come
    std::string smtp;  // transcript; empty: nobody may come
    char const* pop_auth_type;
    char const* smtp_auth;
    char const* pop_before_smtp;  // null: test_pop_auth
    eml_send_e  code;
    std::string message;
    strings     trouble = {};
};

void PrintTo(access_case const& c, std::ostream* out)
{
    *out << c.name;
}

class ServerTest : public on_a_clean_machine_with<access_case>
{
};

TEST_P(ServerTest, EndsAsTheTranscriptsSay)
{
    access_case const& c = GetParam();
    local_server       pop(c.pop);
    local_server       smtp(c.smtp);
    record const       server;
    ASSERT_EQ(
        set_pop(server.handle(), "127.0.0.1", "anna", "secret", c.pop_auth_type, pop.port(), 1500),
        0);
    ASSERT_EQ(set_smtp(server.handle(), "127.0.0.1", "joe", "hidden", c.smtp_auth, smtp.port()), 0);

    char message[2000] = "as it was";
    if (c.pop_before_smtp == nullptr) {
        EXPECT_EQ(test_pop_auth(server.handle(), message), c.code);
    } else {
        EXPECT_EQ(test_smtp_auth(server.handle(), c.pop_before_smtp, message), c.code);
    }

    EXPECT_EQ(message, c.message);
    EXPECT_EQ(trouble_traces(), c.trouble);
    EXPECT_EQ(pop.heard(), pop.expected()) << pop.problem();
    EXPECT_EQ(smtp.heard(), smtp.expected()) << smtp.problem();
    // The wait belongs to a good POP3 login before SMTP.
    bool const waits_for_smtp = c.pop_before_smtp != nullptr && !c.smtp.empty();
    for (std::int64_t const us : waits().sleeps) {
        EXPECT_EQ(us, waits_for_smtp ? 1500000 : 0);
    }
}

constexpr char good_pop[] = R"(
    S: +OK ready <1@pop.test>
    C: user anna
    S: +OK
    C: pass secret
    S: +OK
    C: quit
    S: +OK bye
)";

constexpr char good_apop[] = R"(
    S: +OK ready <1@pop.test>
    C: apop anna 0980c615e9837e503ebd2cf69ae856a4
    S: +OK
    C: quit
    S: +OK bye
)";

constexpr char good_smtp[] = R"(
    S: 220 mail.test ready
    C: ehlo {host}
    S: 250-mail.test
    S: 250 AUTH PLAIN
    C: AUTH PLAIN {base64:\0joe\0hidden}
    S: 235 welcome
    C: quit
    S: 221 bye
)";

constexpr char open_smtp[] = R"(
    S: 220 mail.test ready
    C: ehlo {host}
    S: 250 mail.test
    C: quit
    S: 221 bye
)";

access_case const access_cases[] = {
    {"POP3 by USER and PASS", good_pop, "", "pop", "on", nullptr, eml_send_ok, "+OK bye\r\n"},
    {"POP3 by APOP", good_apop, "", "apop", "on", nullptr, eml_send_ok, "+OK bye\r\n"},
    {"POP in upper case selects APOP", good_apop, "", "POP", "on", nullptr, eml_send_ok,
     "+OK bye\r\n"},
    {"any other type selects APOP", good_apop, "", "", "on", nullptr, eml_send_ok, "+OK bye\r\n"},
    {"pop3 is not pop and selects APOP", good_apop, "", "pop3", "on", nullptr, eml_send_ok,
     "+OK bye\r\n"},
    {"the user is refused",
     "S: +OK\nC: user anna\nS: -ERR never heard of\nC: (closes)",
     "",
     "pop",
     "on",
     nullptr,
     eml_send_error_auth,
     "-ERR never heard of\r\n",
     {"error:-ERR"}},
    {"the password is refused",
     "S: +OK\nC: user anna\nS: +OK\nC: pass secret\nS: -ERR wrong\nC: (closes)",
     "",
     "pop",
     "on",
     nullptr,
     eml_send_error_auth,
     "-ERR wrong\r\n",
     {"error:-ERR"}},
    {"APOP is refused",
     "S: +OK <1@pop.test>\nC: apop {any}\nS: -ERR wrong\nC: (closes)",
     "",
     "apop",
     "on",
     nullptr,
     eml_send_error_auth,
     "-ERR wrong\r\n",
     {"error:-ERR"}},
    {"APOP is not offered",
     "S: +OK ready\nC: (closes)",
     "",
     "apop",
     "on",
     nullptr,
     eml_send_error_auth,
     "+OK ready\r\n",
     {"error:challenge spos %s"}},
    {"the POP3 server says nothing",
     "S: (closes)",
     "",
     "pop",
     "on",
     nullptr,
     eml_send_error_connection,
     "",
     {"error:sock_readline"}},
    {"the POP3 server is lost at QUIT",
     "S: +OK\nC: user anna\nS: +OK\nC: pass secret\nS: +OK\nC: quit\nS: (closes)",
     "",
     "pop",
     "on",
     nullptr,
     eml_send_error_other,
     "",
     {"error:sock_readline", "error: pop_quit"}},

    {"SMTP with a login", "", good_smtp, "pop", "on", "off", eml_send_ok, "221 bye\r\n"},
    {"SMTP without a login", "", open_smtp, "pop", "off", "off", eml_send_ok, "221 bye\r\n"},
    {"anything but on means no POP3", "", open_smtp, "pop", "off", "ON", eml_send_ok,
     "221 bye\r\n"},
    {"nor does an empty switch", "", open_smtp, "pop", "off", "", eml_send_ok, "221 bye\r\n"},
    {"nor does yes", "", open_smtp, "pop", "off", "yes", eml_send_ok, "221 bye\r\n"},
    {"POP3 before SMTP", good_pop, good_smtp, "pop", "on", "on", eml_send_ok, "221 bye\r\n"},
    {"APOP before SMTP", good_apop, good_smtp, "apop", "on", "on", eml_send_ok, "221 bye\r\n"},
    {"a POP3 login that fails keeps SMTP out of it",
     "S: +OK\nC: user anna\nS: +OK\nC: pass secret\nS: -ERR wrong\nC: (closes)",
     "",
     "pop",
     "on",
     "on",
     eml_send_error_auth,
     "-ERR wrong\r\n",
     {"error:-ERR"}},
    {"a POP3 server that is lost keeps SMTP out of it",
     "S: (closes)",
     "",
     "pop",
     "on",
     "on",
     eml_send_error_connection,
     "",
     {"error:sock_readline"}},
    {"a POP3 server without its answer to QUIT keeps SMTP out of it",
     "S: +OK\nC: user anna\nS: +OK\nC: pass secret\nS: +OK\nC: quit\nS: (closes)",
     "",
     "pop",
     "on",
     "on",
     eml_send_error_other,
     "",
     {"error:sock_readline", "error: pop_quit"}},
    {"SMTP refuses at the greeting",
     "",
     "S: 554 not today\nC: (closes)",
     "pop",
     "on",
     "off",
     eml_send_error_connection,
     "",
     {"error:can not find code (%s)", "error:smtp start session", "error:smtp_start_sesion"}},
    {"SMTP refuses at the greeting after POP3, whose last reply stays",
     good_pop,
     "S: 554 not today\nC: (closes)",
     "pop",
     "on",
     "on",
     eml_send_error_connection,
     "+OK bye\r\n",
     {"error:can not find code (%s)", "error:smtp start session", "error:smtp_start_sesion"}},
    {"EHLO is refused, and there is no QUIT",
     "",
     "S: 220 hi\nC: ehlo {host}\nS: 502 what\nC: (closes)",
     "pop",
     "on",
     "off",
     eml_send_error_auth,
     "502 what\r\n",
     {"error:not 250", "error:smtp_ehlo2"}},
    {"the login is refused, and there is no QUIT",
     "",
     "S: 220 hi\nC: ehlo {host}\nS: 250 AUTH PLAIN\nC: AUTH PLAIN {any}\nS: 535 no\nC: (closes)",
     "pop",
     "on",
     "off",
     eml_send_error_auth,
     "535 no\r\n",
     {"error:can not find code (%s)", "error:not 235", "error:smtp_ehlo2"}},
    {"the server offers a login that is switched off",
     "",
     "S: 220 hi\nC: ehlo {host}\nS: 250 AUTH PLAIN\nC: (closes)",
     "pop",
     "off",
     "off",
     eml_send_error_auth,
     "250 AUTH PLAIN\r\n",
     {"error:smtp incorrect", "error:smtp_ehlo2"}},
    {"the server offers no login that is switched on",
     "",
     "S: 220 hi\nC: ehlo {host}\nS: 250 mail.test\nC: (closes)",
     "pop",
     "on",
     "off",
     eml_send_error_auth,
     "250 mail.test\r\n",
     {"error:smtp incorrect", "error:smtp_ehlo2"}},
    {"the switch is exact",
     "",
     "S: 220 hi\nC: ehlo {host}\nS: 250 AUTH PLAIN\nC: (closes)",
     "pop",
     "On",
     "off",
     eml_send_error_auth,
     "250 AUTH PLAIN\r\n",
     {"error:smtp incorrect", "error:smtp_ehlo2"}},
    {"QUIT is refused",
     "",
     "S: 220 hi\nC: ehlo {host}\nS: 250-mail\nS: 250 test\nC: quit\nS: 500-no\nS: 500 no\nC: "
     "(closes)",
     "pop",
     "off",
     "off",
     eml_send_error_connection,
     "500-no\r\n500 no\r\n",
     {"error:can not find code (%s)", "error:smtp quit", "error:smtp_quit"}},
    {"the server is lost at QUIT",
     "",
     "S: 220 hi\nC: ehlo {host}\nS: 250 mail.test\nC: quit\nS: (closes)",
     "pop",
     "off",
     "off",
     eml_send_error_connection,
     "",
     {"error:read_multiline_reply", "error:smtp quit", "error:smtp_quit"}},
};

INSTANTIATE_TEST_SUITE_P(Dialogue, ServerTest, testing::ValuesIn(access_cases),
                         case_name<access_case>);

// ------------------------------------------------------------------------ the rest

class Access : public on_a_clean_machine
{
};

TEST_F(Access, TheMessageMayBeNull)
{
    local_server const pop("S: +OK\nC: user a\nS: +OK\nC: pass b\nS: +OK\nC: quit\nS: +OK");
    local_server const smtp(open_smtp);
    record const       server;
    set_pop(server.handle(), "127.0.0.1", "a", "b", "pop", pop.port(), 0);
    set_smtp(server.handle(), "127.0.0.1", "joe", "hidden", "off", smtp.port());
    EXPECT_EQ(test_pop_auth(server.handle(), nullptr), eml_send_ok);
    EXPECT_EQ(test_smtp_auth(server.handle(), "off", nullptr), eml_send_ok);
}

TEST_F(Access, TheMessageIsWrittenWholeHoweverLong)
{
    std::string const line(20000, 'x');
    local_server      pop("S: +OK\nC: user a\nS: -ERR " + line);
    record const      server;
    set_pop(server.handle(), "127.0.0.1", "a", "b", "pop", pop.port(), 0);
    std::vector<char> message(line.size() + 100);
    EXPECT_EQ(test_pop_auth(server.handle(), message.data()), eml_send_error_auth);
    EXPECT_EQ(message.data(), "-ERR " + line + "\r\n");
    EXPECT_TRUE(pop.ok()) << pop.problem();
}

TEST_F(Access, WaitsBetweenPop3AndSmtpOnly)
{
    auto const sleeps = [](bool before_smtp, int wait_ms) {
        reset_waits(true);
        local_server const pop(good_pop);
        local_server const smtp(open_smtp);
        record const       server;
        std::string        reply;
        set_pop(server.handle(), "127.0.0.1", "anna", "secret", "pop", pop.port(), wait_ms);
        set_smtp(server.handle(), "127.0.0.1", "joe", "hidden", "off", smtp.port());
        EXPECT_EQ(before_smtp ? access_send(server.get(), "on", reply)
                              : access_receive(server.get(), reply),
                  0);
        return waits().sleeps;
    };
    EXPECT_EQ(sleeps(true, 1500), std::vector<std::int64_t>{1500000});
    EXPECT_EQ(sleeps(false, 1500), std::vector<std::int64_t>{0});
}

TEST_F(Access, ReturnsTheNumberOfTheStepThatFailed)
{
    struct {
        char const* pop;
        char const* smtp;
        int         result;
    } const cases[] = {
        {"S: (closes)", "", pop_start_failed},
        {"S: +OK\nC: user anna\nS: -ERR", "", pop_user_refused},
        {"S: +OK\nC: user anna\nS: +OK\nC: pass secret\nS: -ERR", "", pop_pass_refused},
        {"S: +OK\nC: user anna\nS: +OK\nC: pass secret\nS: +OK\nC: quit\nS: (closes)", "",
         pop_quit_failed},
        {good_pop, "S: (closes)", send_not_connected},
        {good_pop, "S: 220 hi\nC: ehlo {host}\nS: 500 no", send_not_authenticated},
        {good_pop, "S: 220 hi\nC: ehlo {host}\nS: 250 ok\nC: quit\nS: 500 no", send_quit_refused},
        {good_pop, open_smtp, 0},
    };
    for (auto const& c : cases) {
        local_server const pop(c.pop);
        local_server const smtp(c.smtp);
        record const       server;
        std::string        reply;
        set_pop(server.handle(), "127.0.0.1", "anna", "secret", "pop", pop.port(), 0);
        set_smtp(server.handle(), "127.0.0.1", "joe", "hidden", "off", smtp.port());
        EXPECT_EQ(access_send(server.get(), "on", reply), c.result) << c.pop << c.smtp;
    }
    {
        local_server const pop("S: +OK <1@pop.test>\nC: apop {any}\nS: -ERR");
        record const       server;
        std::string        reply;
        set_pop(server.handle(), "127.0.0.1", "anna", "secret", "apop", pop.port(), 0);
        EXPECT_EQ(access_receive(server.get(), reply), pop_apop_refused);
    }
}

TEST_F(Access, AServerThatIsNotThereIsAConnectionFailure)
{
    closed_port const nobody;
    record const      server;
    char              message[100] = "as it was";
    set_pop(server.handle(), "127.0.0.1", "a", "b", "pop", nobody.number(), 0);
    set_smtp(server.handle(), "127.0.0.1", "a", "b", "off", nobody.number());
    EXPECT_EQ(test_pop_auth(server.handle(), message), eml_send_error_connection);
    EXPECT_STREQ(message, "");
    EXPECT_EQ(test_smtp_auth(server.handle(), "off", message), eml_send_error_connection);
    set_pop(server.handle(), "nowhere.test", "a", "b", "pop", 110, 0);
    set_smtp(server.handle(), "nowhere.test", "a", "b", "off", 25);
    EXPECT_EQ(test_pop_auth(server.handle(), message), eml_send_error_connection);
    EXPECT_EQ(test_smtp_auth(server.handle(), "off", message), eml_send_error_connection);
}

// The fake waits let the time of the silence pass at once.
TEST_F(Access, ASilentServerIsGivenUp)
{
    local_server const silent("S: (silent)\nC: (closes)");
    record const       server;
    std::string        reply = "as it was";
    set_pop(server.handle(), "127.0.0.1", "anna", "secret", "pop", silent.port(), 0);
    reset_waits(false);
    EXPECT_EQ(access_receive(server.get(), reply), pop_start_failed);
    EXPECT_EQ(reply, "");
    EXPECT_EQ(waits().readable_waits.size(), 3001U);
}

TEST_F(Access, ARecordKeepsPointersAndRemembersTheSwitch)
{
    record const      server;
    std::string const host = "host", user = "user", password = "password", type = "type";
    EXPECT_EQ(set_pop(server.handle(), host.c_str(), user.c_str(), password.c_str(), type.c_str(),
                      110, -5),
              0);
    EXPECT_EQ(server.get()->pop_host, host.c_str());
    EXPECT_EQ(server.get()->pop_user, user.c_str());
    EXPECT_EQ(server.get()->pop_password, password.c_str());
    EXPECT_EQ(server.get()->pop_auth_type, type.c_str());
    EXPECT_EQ(server.get()->pop_port, 110);
    EXPECT_EQ(server.get()->pop_wait, -5);
    EXPECT_EQ(server.get()->smtp_host, nullptr) << "the other half is left alone";

    EXPECT_EQ(
        set_smtp(server.handle(), host.c_str(), user.c_str(), password.c_str(), type.c_str(), 25),
        0);
    EXPECT_EQ(server.get()->smtp_host, host.c_str());
    EXPECT_EQ(server.get()->smtp_user, user.c_str());
    EXPECT_EQ(server.get()->smtp_password, password.c_str());
    EXPECT_EQ(server.get()->smtp_auth, type.c_str());
    EXPECT_EQ(server.get()->smtp_port, 25);

    closed_port const nobody;
    set_smtp(server.handle(), "127.0.0.1", "a", "b", "off", nobody.number());
    std::string const before_smtp = "off";
    EXPECT_EQ(test_smtp_auth(server.handle(), before_smtp.c_str(), nullptr),
              eml_send_error_connection);
    EXPECT_EQ(server.get()->pop_before_smtp, before_smtp.c_str());
}

TEST_F(Access, NullIsAFailureAndNothingWorse)
{
    char        message[100] = "as it was";
    std::string reply        = "as it was";
    EXPECT_EQ(server_create(nullptr), -1);
    EXPECT_EQ(server_destroy(nullptr), 0);
    EXPECT_EQ(set_pop(nullptr, "h", "u", "p", "pop", 110, 0), -1);
    EXPECT_EQ(set_smtp(nullptr, "h", "u", "p", "on", 25), -1);
    EXPECT_EQ(test_pop_auth(nullptr, message), eml_send_error_other);
    EXPECT_STREQ(message, "");
    EXPECT_EQ(test_smtp_auth(nullptr, "off", message), eml_send_error_other);
    EXPECT_EQ(pop_access(nullptr, true, reply), send_other_failure);
    EXPECT_EQ(access_send(nullptr, "off", reply), send_other_failure);
    EXPECT_EQ(reply, "as it was");

    record const server;
    EXPECT_EQ(test_smtp_auth(server.handle(), nullptr, message), eml_send_error_other);
    EXPECT_EQ(server.get()->pop_before_smtp, nullptr);
}

TEST_F(Access, ARecordWithoutItsSettersCalledFails)
{
    record const server;
    EXPECT_EQ(test_pop_auth(server.handle(), nullptr), eml_send_error_other);
    EXPECT_EQ(test_smtp_auth(server.handle(), "off", nullptr), eml_send_error_connection);
    EXPECT_EQ(test_smtp_auth(server.handle(), "on", nullptr), eml_send_error_other);
}

TEST_F(Access, ANullTextIsAFailureAtItsStep)
{
    struct {
        char const* host;
        char const* user;
        char const* password;
        char const* type;
        char const* transcript;
        eml_send_e  code;
    } const pops[] = {
        {nullptr, "a", "b", "pop", "", eml_send_error_connection},
        {"127.0.0.1", nullptr, "b", "pop", "S: +OK\nC: (closes)", eml_send_error_auth},
        {"127.0.0.1", "a", nullptr, "pop", "S: +OK\nC: user a\nS: +OK\nC: (closes)",
         eml_send_error_auth},
        {"127.0.0.1", nullptr, "b", "apop", "S: +OK <a>\nC: (closes)", eml_send_error_auth},
        {"127.0.0.1", "a", nullptr, "apop", "S: +OK <a>\nC: (closes)", eml_send_error_auth},
        {"127.0.0.1", "a", "b", nullptr, "", eml_send_error_other},
    };
    for (auto const& c : pops) {
        local_server pop(c.transcript);
        record const server;
        set_pop(server.handle(), c.host, c.user, c.password, c.type, pop.port(), 0);
        EXPECT_EQ(test_pop_auth(server.handle(), nullptr), c.code) << c.transcript;
        EXPECT_EQ(pop.heard(), pop.expected()) << pop.problem();
    }

    struct {
        char const* host;
        char const* user;
        char const* password;
        char const* auth;
        char const* transcript;
        eml_send_e  code;
    } const smtps[] = {
        {nullptr, "a", "b", "off", "", eml_send_error_connection},
        {"127.0.0.1", nullptr, "b", "off", "S: 220 hi\nC: (closes)", eml_send_error_auth},
        {"127.0.0.1", "a", nullptr, "off", "S: 220 hi\nC: (closes)", eml_send_error_auth},
        {"127.0.0.1", "a", "b", nullptr, "S: 220 hi\nC: (closes)", eml_send_error_auth},
    };
    for (auto const& c : smtps) {
        local_server smtp(c.transcript);
        record const server;
        set_smtp(server.handle(), c.host, c.user, c.password, c.auth, smtp.port());
        EXPECT_EQ(test_smtp_auth(server.handle(), "off", nullptr), c.code) << c.transcript;
        EXPECT_EQ(smtp.heard(), smtp.expected()) << smtp.problem();
    }
}

}  // namespace

}  // namespace zelieml::test
