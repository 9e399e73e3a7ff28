// Server records, and the conversations of the two login tests.

#include "libaccess/libaccess.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <vector>

#include "libsendw/libsendw.h"
#include "libsendw/pop.h"
#include "tests/support/clean_machine.h"
#include "tests/support/dialogues.h"
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

// A login test of the POP3 server by USER and PASS, or of the SMTP server with authentication, that
// ends well unless it says otherwise. A server without a transcript must see
// no client.
struct access_case : named_case {
    using named_case::named_case;

    // The SMTP server is tested, with this switch for a POP3 login before it.
    access_case& before_smtp(char const* on_or_off)
    {
        pop_before_smtp = on_or_off;
        message         = "221 bye\r\n";
        return *this;
    }
    access_case& type(char const* of_pop_login)
    {
        pop_auth_type = of_pop_login;
        return *this;
    }
    access_case& auth(char const* on_or_off)
    {
        smtp_auth = on_or_off;
        return *this;
    }
    access_case& pop(std::string const& transcript)
    {
        pop_transcript = transcript;
        return *this;
    }
    access_case& smtp(std::string const& transcript)
    {
        smtp_transcript = transcript;
        return *this;
    }
    access_case& ends(eml_send_e its_code, std::string const& its_message)
    {
        code    = its_code;
        message = its_message;
        return *this;
    }
    access_case& trouble(strings const& traces)
    {
        traced = traces;
        return *this;
    }

    char const* pop_before_smtp = nullptr;  // null: the POP3 server is tested
    char const* pop_auth_type   = "pop";
    char const* smtp_auth       = "on";
    std::string pop_transcript;
    std::string smtp_transcript;
    eml_send_e  code    = eml_send_ok;
    std::string message = "+OK bye\r\n";
    strings     traced;
};

class ServerTest : public on_a_clean_machine_with<access_case>
{
};

TEST_P(ServerTest, EndsAsTheTranscriptsSay)
{
    access_case const& c = GetParam();
    local_server       pop(c.pop_transcript);
    local_server       smtp(c.smtp_transcript);
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
    EXPECT_EQ(trouble_traces(), c.traced);
    EXPECT_EQ(pop.heard(), pop.expected()) << pop.problem();
    EXPECT_EQ(smtp.heard(), smtp.expected()) << smtp.problem();
    // The wait belongs to a good POP3 login before SMTP.
    bool const waits_for_smtp = c.pop_before_smtp != nullptr && !c.smtp_transcript.empty();
    for (std::int64_t const us : waits().sleeps) {
        EXPECT_EQ(us, waits_for_smtp ? 1500000 : 0);
    }
}

std::string const pop_stamped = "S: +OK ready <1@pop.test>\n";

std::string const good_pop =
    pop_stamped + answered("user anna", "+OK") + answered("pass secret", "+OK") + pop_goodbye;
std::string const good_apop =
    pop_stamped + answered("apop anna 0980c615e9837e503ebd2cf69ae856a4", "+OK") + pop_goodbye;

// A greeting, and EHLO answered with one line.
std::string one_line_offer(std::string const& offer)
{
    return greeted + answered("ehlo {host}", "250 " + offer);
}

std::string const good_smtp = ehlo("AUTH PLAIN") +
                              answered("AUTH PLAIN {base64:\\0joe\\0hidden}", "235 welcome") +
                              answered("quit", "221 bye");
std::string const open_smtp = one_line_offer("mail.test") + answered("quit", "221 bye");

access_case const access_cases[] = {
    access_case("POP3 by USER and PASS").pop(good_pop),
    access_case("POP3 by APOP").type("apop").pop(good_apop),
    access_case("POP in upper case selects APOP").type("POP").pop(good_apop),
    access_case("any other type selects APOP").type("").pop(good_apop),
    access_case("pop3 is not pop and selects APOP").type("pop3").pop(good_apop),
    access_case("the user is refused")
        .pop(pop_greeted + refused_at("user anna", "-ERR never heard of"))
        .ends(eml_send_error_auth, "-ERR never heard of\r\n")
        .trouble({"error:-ERR"}),
    access_case("the password is refused")
        .pop(pop_greeted + answered("user anna", "+OK") + refused_at("pass secret", "-ERR wrong"))
        .ends(eml_send_error_auth, "-ERR wrong\r\n")
        .trouble({"error:-ERR"}),
    access_case("APOP is refused")
        .type("apop")
        .pop(pop_stamped + refused_at("apop {any}", "-ERR wrong"))
        .ends(eml_send_error_auth, "-ERR wrong\r\n")
        .trouble({"error:-ERR"}),
    access_case("APOP is not offered")
        .type("apop")
        .pop(pop_greeted + hangs_up)
        .ends(eml_send_error_auth, "+OK ready\r\n")
        .trouble({"error:challenge spos %s"}),
    access_case("the POP3 server says nothing")
        .pop("S: (closes)\n")
        .ends(eml_send_error_connection, "")
        .trouble({"error:sock_readline"}),
    access_case("the POP3 server is lost at QUIT")
        .pop(pop_login() + lost_at("quit"))
        .ends(eml_send_error_other, "")
        .trouble({"error:sock_readline", "error: pop_quit"}),

    access_case("SMTP with a login").before_smtp("off").smtp(good_smtp),
    access_case("SMTP without a login").before_smtp("off").auth("off").smtp(open_smtp),
    access_case("anything but on means no POP3").before_smtp("ON").auth("off").smtp(open_smtp),
    access_case("nor does an empty switch").before_smtp("").auth("off").smtp(open_smtp),
    access_case("nor does yes").before_smtp("yes").auth("off").smtp(open_smtp),
    access_case("POP3 before SMTP").before_smtp("on").pop(good_pop).smtp(good_smtp),
    access_case("APOP before SMTP").before_smtp("on").type("apop").pop(good_apop).smtp(good_smtp),
    access_case("a POP3 login that fails keeps SMTP out of it")
        .before_smtp("on")
        .pop(pop_greeted + answered("user anna", "+OK") + refused_at("pass secret", "-ERR wrong"))
        .ends(eml_send_error_auth, "-ERR wrong\r\n")
        .trouble({"error:-ERR"}),
    access_case("a POP3 server that is lost keeps SMTP out of it")
        .before_smtp("on")
        .pop("S: (closes)\n")
        .ends(eml_send_error_connection, "")
        .trouble({"error:sock_readline"}),
    access_case("a POP3 server without its answer to QUIT keeps SMTP out of it")
        .before_smtp("on")
        .pop(pop_login() + lost_at("quit"))
        .ends(eml_send_error_other, "")
        .trouble({"error:sock_readline", "error: pop_quit"}),
    access_case("SMTP refuses at the greeting")
        .before_smtp("off")
        .smtp("S: 554 not today\n" + hangs_up)
        .ends(eml_send_error_connection, "")
        .trouble({"error:can not find code (%s)", "error:smtp start session",
                  "error:smtp_start_sesion"}),
    access_case("SMTP refuses at the greeting after POP3, whose last reply stays")
        .before_smtp("on")
        .pop(good_pop)
        .smtp("S: 554 not today\n" + hangs_up)
        .ends(eml_send_error_connection, "+OK bye\r\n")
        .trouble({"error:can not find code (%s)", "error:smtp start session",
                  "error:smtp_start_sesion"}),
    access_case("EHLO is refused, and there is no QUIT")
        .before_smtp("off")
        .smtp(greeted + refused_at("ehlo {host}", "502 what"))
        .ends(eml_send_error_auth, "502 what\r\n")
        .trouble({"error:not 250", "error:smtp_ehlo2"}),
    access_case("the login is refused, and there is no QUIT")
        .before_smtp("off")
        .smtp(one_line_offer("AUTH PLAIN") + refused_at("AUTH PLAIN {any}", "535 no"))
        .ends(eml_send_error_auth, "535 no\r\n")
        .trouble({"error:can not find code (%s)", "error:not 235", "error:smtp_ehlo2"}),
    access_case("the server offers a login that is switched off")
        .before_smtp("off")
        .auth("off")
        .smtp(one_line_offer("AUTH PLAIN") + hangs_up)
        .ends(eml_send_error_auth, "250 AUTH PLAIN\r\n")
        .trouble({"error:smtp incorrect", "error:smtp_ehlo2"}),
    access_case("the server offers no login that is switched on")
        .before_smtp("off")
        .smtp(one_line_offer("mail.test") + hangs_up)
        .ends(eml_send_error_auth, "250 mail.test\r\n")
        .trouble({"error:smtp incorrect", "error:smtp_ehlo2"}),
    access_case("the switch is exact")
        .before_smtp("off")
        .auth("On")
        .smtp(one_line_offer("AUTH PLAIN") + hangs_up)
        .ends(eml_send_error_auth, "250 AUTH PLAIN\r\n")
        .trouble({"error:smtp incorrect", "error:smtp_ehlo2"}),
    access_case("QUIT is refused")
        .before_smtp("off")
        .auth("off")
        .smtp(ehlo("HELP") + refused_at("quit", "500-no\nS: 500 no"))
        .ends(eml_send_error_connection, "500-no\r\n500 no\r\n")
        .trouble({"error:can not find code (%s)", "error:smtp quit", "error:smtp_quit"}),
    access_case("the server is lost at QUIT")
        .before_smtp("off")
        .auth("off")
        .smtp(one_line_offer("mail.test") + lost_at("quit"))
        .ends(eml_send_error_connection, "")
        .trouble({"error:read_multiline_reply", "error:smtp quit", "error:smtp_quit"}),
};

INSTANTIATE_TEST_SUITE_P(Dialogue, ServerTest, testing::ValuesIn(access_cases),
                         case_name<access_case>);

// ------------------------------------------------------------------------ the rest

class Access : public on_a_clean_machine
{
};

TEST_F(Access, TheMessageMayBeNull)
{
    local_server const pop(pop_login("a", "b") + pop_goodbye);
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

// The one test of all that an access traces; the others look at its failures only.
TEST_F(Access, TracesItsWay)
{
    local_server const pop(good_pop);
    local_server const smtp(good_smtp);
    record const       server;
    set_pop(server.handle(), "127.0.0.1", "anna", "secret", "pop", pop.port(), 0);
    set_smtp(server.handle(), "127.0.0.1", "joe", "hidden", "on", smtp.port());
    EXPECT_EQ(test_smtp_auth(server.handle(), "on", nullptr), eml_send_ok);
    EXPECT_EQ(traces_above_sockets(),
              (strings{"pop_before_smtp in", "IP:%s Port:%d", "sleep start %d", "sleep end",
                       "pop_before_smtp out %d", "connect IP:%s Port:%d", "connect done.",
                       "auth_plain in", "auth_plain out"}));
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
        std::string pop;
        std::string smtp;
        int         result;
    } const cases[] = {
        {"S: (closes)", nobody_comes, pop_start_failed},
        {pop_greeted + answered("user anna", "-ERR"), nobody_comes, pop_user_refused},
        {pop_greeted + answered("user anna", "+OK") + answered("pass secret", "-ERR"), nobody_comes,
         pop_pass_refused},
        {pop_login() + lost_at("quit"), nobody_comes, pop_quit_failed},
        {good_pop, "S: (closes)", send_not_connected},
        {good_pop, greeted + answered("ehlo {host}", "500 no"), send_not_authenticated},
        {good_pop, one_line_offer("ok") + answered("quit", "500 no"), send_quit_refused},
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

// The fake waits return at once.
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
    struct null_case : named_case {
        using named_case::named_case;

        null_case& null(char const* null_case::*parameter)
        {
            this->*parameter = nullptr;
            return *this;
        }
        null_case& by(char const* pop_auth_type)
        {
            type = pop_auth_type;
            return *this;
        }
        null_case& plays(std::string const& its_transcript)
        {
            transcript = its_transcript;
            return *this;
        }
        null_case& ends(eml_send_e its_code)
        {
            code = its_code;
            return *this;
        }

        char const* host     = "127.0.0.1";
        char const* user     = "a";
        char const* password = "b";
        char const* type     = "pop";  // of the POP3 login
        char const* auth     = "off";  // the switch of SMTP
        std::string transcript;
        eml_send_e  code = eml_send_error_auth;
    };
    null_case const pops[] = {
        null_case("host").null(&null_case::host).ends(eml_send_error_connection),
        null_case("user").null(&null_case::user).plays(pop_greeted + hangs_up),
        null_case("password")
            .null(&null_case::password)
            .plays(pop_greeted + answered("user a", "+OK") + hangs_up),
        null_case("user of APOP").by("apop").null(&null_case::user).plays(pop_stamped + hangs_up),
        null_case("password of APOP")
            .by("apop")
            .null(&null_case::password)
            .plays(pop_stamped + hangs_up),
        null_case("type").null(&null_case::type).ends(eml_send_error_other),
    };
    for (auto const& c : pops) {
        local_server pop(c.transcript);
        record const server;
        set_pop(server.handle(), c.host, c.user, c.password, c.type, pop.port(), 0);
        EXPECT_EQ(test_pop_auth(server.handle(), nullptr), c.code) << c.name;
        EXPECT_EQ(pop.heard(), pop.expected()) << c.name << ": " << pop.problem();
    }

    null_case const smtps[] = {
        null_case("host").null(&null_case::host).ends(eml_send_error_connection),
        null_case("user").null(&null_case::user).plays(greeted + hangs_up),
        null_case("password").null(&null_case::password).plays(greeted + hangs_up),
        null_case("switch").null(&null_case::auth).plays(greeted + hangs_up),
    };
    for (auto const& c : smtps) {
        local_server smtp(c.transcript);
        record const server;
        set_smtp(server.handle(), c.host, c.user, c.password, c.auth, smtp.port());
        EXPECT_EQ(test_smtp_auth(server.handle(), "off", nullptr), c.code) << c.name;
        EXPECT_EQ(smtp.heard(), smtp.expected()) << c.name << ": " << smtp.problem();
    }
}

// ------------------------------------------------------------------------ with reasons

// A test of the SMTP server, or of the POP3 server alone, and why it fails.
struct reason_case : named_case {
    using named_case::named_case;

    reason_case& of_pop(std::string const& its_transcript, char const* its_type = "pop")
    {
        pop_transcript = its_transcript;
        type           = its_type;
        only_pop       = true;
        return *this;
    }
    reason_case& before_smtp(std::string const& its_transcript)
    {
        pop_transcript = its_transcript;
        before         = "on";
        return *this;
    }
    reason_case& smtp(std::string const& its_transcript, char const* its_auth = "on")
    {
        smtp_transcript = its_transcript;
        auth            = its_auth;
        return *this;
    }
    reason_case& ends(eml_send_e its_code, std::string const& its_reason)
    {
        code   = its_code;
        reason = its_reason;
        return *this;
    }

    std::string pop_transcript;
    std::string smtp_transcript;
    char const* type     = "pop";
    char const* auth     = "on";
    char const* before   = "off";
    bool        only_pop = false;
    eml_send_e  code     = eml_send_ok;
    std::string reason;
};

class LoginReasons : public on_a_clean_machine_with<reason_case>
{
};

TEST_P(LoginReasons, AreTold)
{
    reason_case const& c = GetParam();
    local_server       pop(c.pop_transcript);
    local_server       smtp(c.smtp_transcript);
    record const       server;
    set_pop(server.handle(), "127.0.0.1", "anna", "pop-secret", c.type, pop.port(), 0);
    set_smtp(server.handle(), "127.0.0.1", "joe", "smtp-secret", c.auth, smtp.port());
    char       reply[1000]  = "as it was";
    char       reason[1024] = "as it was";
    eml_send_e code         = eml_send_32_bits;
    if (c.only_pop) {
        code = test_pop_auth_sized(server.handle(), reply, sizeof reply, reason, sizeof reason);
    } else {
        code = test_smtp_auth_sized(server.handle(), c.before, reply, sizeof reply, reason,
                                    sizeof reason);
    }
    EXPECT_EQ(code, c.code);
    EXPECT_EQ(reason, c.reason);
    EXPECT_TRUE(pop.ok()) << pop.problem();
    EXPECT_TRUE(smtp.ok()) << smtp.problem();
}

std::string const plain_sent = ehlo("AUTH PLAIN") + "C: AUTH PLAIN {base64:\\0joe\\0smtp-secret}\n";

reason_case const reason_cases[] = {
    reason_case("an SMTP login").smtp(plain_sent + "S: 235 welcome\n" + goodbye),
    reason_case("a POP3 login").of_pop(pop_login("anna", "pop-secret") + pop_goodbye),
    reason_case("the POP3 password is refused")
        .of_pop(pop_greeted + answered("user anna", "+OK") +
                refused_at("pass pop-secret", "-ERR pop-secret?"))
        .ends(eml_send_error_auth, "the POP3 server refused the password of anna: -ERR ***?"),
    reason_case("APOP is not offered")
        .of_pop(pop_greeted + hangs_up, "apop")
        .ends(eml_send_error_auth, "the POP3 server offers no APOP: +OK ready"),
    reason_case("the POP3 login before it is refused")
        .before_smtp(pop_greeted + refused_at("user anna", "-ERR no"))
        .ends(eml_send_error_auth, "the POP3 server refused the user anna: -ERR no"),
    reason_case("the SMTP login is refused")
        .smtp(plain_sent + "S: 535 wrong: smtp-secret\n" + hangs_up)
        .ends(eml_send_error_auth, "the server refused the login of joe: 535 wrong: ***"),
    reason_case("a server that offers AUTH")
        .smtp(ehlo("AUTH PLAIN") + hangs_up, "off")
        .ends(eml_send_error_auth, "the server offers AUTH, but the record says \"off\""),
    reason_case("a server that offers no AUTH")
        .smtp(ehlo("HELP") + hangs_up)
        .ends(eml_send_error_auth, "the server offers no AUTH, but the record says \"on\""),
    reason_case("a switch that is neither on nor off")
        .smtp(ehlo("HELP") + hangs_up, "OFF")
        .ends(eml_send_error_auth, "the server offers no AUTH, but the record says \"OFF\""),
    reason_case("QUIT is refused")
        .smtp(ehlo("HELP") + refused_at("quit", "500 stay"), "off")
        .ends(eml_send_error_connection, "the server refused QUIT: 500 stay"),
};

INSTANTIATE_TEST_SUITE_P(Reason, LoginReasons, testing::ValuesIn(reason_cases),
                         case_name<reason_case>);

TEST_F(Access, SaysWhatTheRecordLacks)
{
    char       reason[1024];
    auto const pop = [&](void* server) {
        test_pop_auth_sized(server, nullptr, 0, reason, sizeof reason);
        return std::string(reason);
    };
    auto const smtp = [&](void* server, char const* before) {
        test_smtp_auth_sized(server, before, nullptr, 0, reason, sizeof reason);
        return std::string(reason);
    };
    EXPECT_EQ(pop(nullptr), "no server record is given");
    EXPECT_EQ(smtp(nullptr, "off"), "no server record is given");
    record const server;
    EXPECT_EQ(pop(server.handle()), "no way to log in to the POP3 server is given");
    EXPECT_EQ(smtp(server.handle(), nullptr), "no switch for POP before SMTP is given");
    EXPECT_EQ(smtp(server.handle(), "on"), "no way to log in to the POP3 server is given");
    EXPECT_EQ(smtp(server.handle(), "off"), "no host is given");
    set_pop(server.handle(), nullptr, "a", "b", "pop", 110, 0);
    EXPECT_EQ(pop(server.handle()), "no host is given");

    for (char const* type : {"pop", "apop"}) {
        local_server const greets(pop_stamped + hangs_up);
        set_pop(server.handle(), "127.0.0.1", nullptr, nullptr, type, greets.port(), 0);
        EXPECT_EQ(pop(server.handle()), "no account or no password is given");
    }
    for (char const* auth : {"on", static_cast<char const*>(nullptr)}) {
        local_server const greets(greeted + hangs_up);
        set_smtp(server.handle(), "127.0.0.1", "a", auth != nullptr ? nullptr : "b", auth,
                 greets.port());
        EXPECT_EQ(smtp(server.handle(), "off"),
                  "no account, no password or no switch for AUTH is given");
    }
}

TEST_F(Access, SaysThatAUserIsTooLongForALine)
{
    std::string const  user(1017, 'u');
    local_server const pop(pop_greeted + hangs_up);
    record const       server;
    char               reason[1024];
    set_pop(server.handle(), "127.0.0.1", user.c_str(), "b", "pop", pop.port(), 0);
    EXPECT_EQ(test_pop_auth_sized(server.handle(), nullptr, 0, reason, sizeof reason),
              eml_send_error_auth);
    std::string const whole =
        "the command line of USER is longer than 1023 bytes and was not sent: " + user;
    EXPECT_EQ(reason, whole.substr(0, 1020) + "...");
}

TEST_F(Access, CutsWhatDoesNotFit)
{
    std::string const whole_reply = "-ERR gr\xC3\xBC\xC3\x9F dich\r\n";
    std::string const whole_reason =
        "the POP3 server refused the user a: -ERR gr\xC3\xBC\xC3\x9F dich";
    for (int size = -1; size <= 64; ++size) {
        local_server const pop("S: +OK\nC: user a\nS: -ERR gr\xC3\xBC\xC3\x9F dich\n" + hangs_up);
        record const       server;
        set_pop(server.handle(), "127.0.0.1", "a", "b", "pop", pop.port(), 0);
        char reply[66];
        char reason[66];
        std::memset(reply, '#', sizeof reply);
        std::memset(reason, '#', sizeof reason);
        EXPECT_EQ(test_pop_auth_sized(server.handle(), reply, size, reason, size),
                  eml_send_error_auth);
        auto const fits = [size](std::string const& whole) {
            auto length = std::min(static_cast<std::size_t>(size) - 1, whole.size());
            while (length < whole.size() && (whole[length] & 0xC0) == 0x80) {
                --length;  // not in the middle of a character
            }
            return whole.substr(0, length);
        };
        if (size <= 0) {
            EXPECT_EQ(reply[0], '#');
            EXPECT_EQ(reason[0], '#');
        } else {
            EXPECT_EQ(reply, fits(whole_reply)) << size;
            EXPECT_EQ(reason, fits(whole_reason)) << size;
            EXPECT_EQ(reason[size], '#') << "nothing behind the buffer";
        }
    }
}

}  // namespace

}  // namespace zelieml::test
