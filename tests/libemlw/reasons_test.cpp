// reasons_test.cpp - every number of a result, and the sentence that comes with it
//
// Each row is posted twice: on the spot, and to an engine, which tries it twice. docs/REASONS.md
// lists what is tested here.

#include <cstdlib>
#include <fcntl.h>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <optional>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <utility>

#include "libcryptw/libcryptw.h"
#include "libemlw/libemlw.h"
#include "libsendw/digest_text.h"
#include "libsendw/libsendw.h"
#include "support/attempt_note.h"
#include "tests/libemlw/engine_room.h"
#include "tests/support/case_name.h"
#include "tests/support/dialogues.h"
#include "tests/support/fake_hostname.h"
#include "tests/support/full_disk.h"
#include "tests/support/peers.h"
#include "tests/support/scripted_server.h"
#include "zelieml_ext.h"

namespace zelieml::test
{

namespace
{

constexpr char smtp_password[] = "smtp-secret";
constexpr char pop_password[]  = "pop secret";

// What a result record says.
struct told {
    eml_send_e  code    = eml_send_ok;
    int         number  = -1;
    int         attempt = -1;
    double      seconds = -1;
    eml_cause   cause   = eml_cause_32_bits;
    std::string step;
    std::string message;
    std::string file;
    std::string reason;
    bool        file_is_there = false;
};

bool operator==(told const& a, told const& b)
{
    return a.code == b.code && a.number == b.number && a.attempt == b.attempt &&
           a.seconds == b.seconds && a.message == b.message && a.file == b.file &&
           a.reason == b.reason && a.cause == b.cause && a.step == b.step;
}

told read(void* record)
{
    told t;
    char buf[20000];
    EXPECT_EQ(eml_cb_get_code(record, &t.code), 0);
    EXPECT_EQ(eml_cb_get_number(record, &t.number), 0);
    EXPECT_EQ(eml_cb_get_attempt(record, &t.attempt), 0);
    EXPECT_EQ(eml_cb_get_seconds(record, &t.seconds), 0);
    EXPECT_EQ(eml_cb_get_cause(record, &t.cause), 0);
    EXPECT_EQ(eml_cb_get_step(record, buf, 33), 0);
    t.step = buf;
    EXPECT_EQ(eml_cb_get_message(record, buf, sizeof buf), 0);
    t.message = buf;
    EXPECT_EQ(eml_cb_get_file(record, buf, sizeof buf), 0);
    t.file = buf;
    EXPECT_EQ(eml_cb_get_reason(record, buf, EML_REASON_SIZE), 0);
    t.reason        = buf;
    t.file_is_there = file_exists(t.file);
    return t;
}

// What a record says, and that a duplicate, which outlives it, says the same.
class keeper
{
public:
    void take(void* record)
    {
        seen_ = read(record);
        ASSERT_EQ(eml_cb_duplicate(record, &copy_), 0);
    }
    told last()
    {
        if (copy_ == nullptr) {
            ADD_FAILURE() << "there is no record";
            return {};
        }
        EXPECT_EQ(read(copy_), seen_);
        EXPECT_EQ(eml_cb_delete(copy_), 0);
        copy_ = nullptr;
        return seen_;
    }

    // A callback.
    static int call(void* record, void* user)
    {
        static_cast<keeper*>(user)->take(record);
        return 0;
    }

private:
    told  seen_;
    void* copy_ = nullptr;
};

std::string replaced(std::string text, std::string const& what, std::string const& by)
{
    for (std::size_t at = text.find(what); at != std::string::npos; at = text.find(what)) {
        text.replace(at, what.size(), by);
    }
    return text;
}

// A reason that does not fit.
std::string cut(std::string const& text)
{
    return text.substr(0, EML_REASON_SIZE - 4) + "...";
}

std::string const long_address(1100, 'x');

// ---- rows

using action = std::function<void(std::string const& settings_path)>;

// A mail from reply@a.test to x@b.test with HELO and without a login, unless it says otherwise.
struct reason_case : named_case {
    using named_case::named_case;

    reason_case& with(std::string const& key, std::string const& value)
    {
        different.emplace_back(key, key + " = " + value + "\r\n");
        return *this;
    }
    reason_case& without(std::string const& key) { return line(key, ""); }
    reason_case& line(std::string const& key, std::string const& instead)
    {
        different.emplace_back(key, instead);
        return *this;
    }
    // Instead of the settings file.
    reason_case& instead(action const& its_action)
    {
        settings_action = its_action;
        return *this;
    }
    reason_case& login(std::string const& type = "auto")
    {
        return with("smtp_auth", "yes").with("smtp_auth_type", type);
    }
    reason_case& to(std::string const& address)
    {
        recipients = address;
        return *this;
    }
    reason_case& from(std::string const& address)
    {
        sender = address;
        return *this;
    }
    reason_case& smtp(std::string const& transcript)
    {
        smtp_transcript = transcript;
        return *this;
    }
    reason_case& pop(std::string const& transcript)
    {
        pop_transcript = transcript;
        return with("pop_before_smtp", "yes");
    }
    reason_case& apop(std::string const& transcript)
    {
        return pop(transcript).with("pop_auth_type", "apop");
    }
    reason_case& full_port()
    {
        crowded = true;
        return *this;
    }
    // {smtp} and {pop} are ports, {cf} is the settings file.
    reason_case& ends(int its_number, std::string const& its_reason = "")
    {
        number = its_number;
        reason = its_reason;
        return *this;
    }

    // The cause, and the step that fails.
    reason_case& by(eml_cause its_cause, std::string const& its_step)
    {
        cause = its_cause;
        step  = its_step;
        return *this;
    }

    std::vector<std::pair<std::string, std::string>> different;
    action                                           settings_action;
    std::string                                      recipients = "x@b.test";
    std::string                                      sender     = "reply@a.test";
    std::string                                      smtp_transcript;
    std::string                                      pop_transcript;
    bool                                             crowded = false;
    int                                              number  = 0;
    std::string                                      reason;
    eml_cause                                        cause = eml_cause_none;
    std::string                                      step;
};

// The servers and the settings of one attempt.
class surroundings
{
public:
    surroundings(reason_case const& c, std::string const& settings_path)
        : case_(c), path_(settings_path), smtp_(c.smtp_transcript), pop_(c.pop_transcript)
    {
        smtp_.set_host("[192.0.2.10]");
        reset_waits_until([this] { return smtp_.fell_silent() || pop_.fell_silent(); });
        never_writable(c.crowded);
        ::rmdir(path_.c_str());
        ::unlink(path_.c_str());
        if (c.settings_action) {
            c.settings_action(path_);
        } else {
            write_file(path_, settings());
        }
    }
    ~surroundings()
    {
        never_writable(false);
        EXPECT_TRUE(smtp_.ok()) << smtp_.problem();
        EXPECT_TRUE(pop_.ok()) << pop_.problem();
        reset_waits(true);
    }

    std::string expected_reason() const
    {
        return replaced(replaced(replaced(case_.reason, "{smtp}", smtp_port()), "{pop}",
                                 std::to_string(pop_.port())),
                        "{cf}", path_);
    }

private:
    std::string smtp_port() const
    {
        return std::to_string(case_.crowded ? crowd_.number() : smtp_.port());
    }

    std::string settings() const
    {
        std::pair<std::string, std::string> const usual[] = {
            {"pop_before_smtp", "no"},
            {"pop_server", "127.0.0.1"},
            {"pop_port", std::to_string(pop_.port())},
            {"pop_account", "anna"},
            {"pop_passwd", pop_password},
            {"pop_auth_type", "pop"},
            {"pop_wait_time", "0"},
            {"smtp_server", "127.0.0.1"},
            {"smtp_port", smtp_port()},
            {"smtp_auth", "no"},
            {"smtp_auth_type", "auto"},
            {"smtp_account", "joe"},
            {"smtp_passwd", smtp_password},
            {"passwd_raw", "yes"},
        };
        std::string text;
        for (auto const& [key, value] : usual) {
            std::string line = key + " = " + value + "\r\n";
            for (auto const& [other, instead] : case_.different) {
                line = other == key ? instead : line;
            }
            text += line;
        }
        return text;
    }

    reason_case const& case_;
    std::string        path_;
    silent_port        crowd_;
    scripted_server    smtp_;
    scripted_server    pop_;
};

class ReasonRoom : public engine_room
{
protected:
    ReasonRoom()
    {
        set_host_name("client.test");
        clear_hosts();
        add_host("client.test", "192.0.2.10");
        EXPECT_EQ(eml_msg_create(&msg_), 0);
        eml_msg_set_from(msg_, "printer@a.test");
        eml_msg_set_subject(msg_, "hello");
        eml_msg_set_body(msg_, "the paper is empty");
    }
    ~ReasonRoom() override { eml_msg_destroy(msg_); }

    std::string settings_path() const { return workdir() + "/zelismes.cf"; }

    void address(reason_case const& c) const
    {
        eml_msg_set_to(msg_, c.recipients.c_str());
        eml_msg_set_replyto(msg_, c.sender.c_str());
    }

    // Posts on the spot.
    told post_sync(char const* workdir, void* msg)
    {
        void*     record = nullptr;
        int const result = eml_post_sync(workdir, msg, &record);
        kept_.take(record);
        EXPECT_EQ(eml_cb_delete(record), 0);
        told const t = kept_.last();
        EXPECT_EQ(result, t.number == 0 ? 0 : -1);
        return t;
    }
    told post_sync() { return post_sync(workdir().c_str(), msg_); }

    // Starts an engine, whose records are kept.
    void start_keeping()
    {
        start();
        ASSERT_EQ(eml_set_callback(engine_, keeper::call, &kept_), 0);
    }
    // The same mail as a message file, announced to the engine.
    std::string announced()
    {
        std::string const path = dir_.file("x");
        EXPECT_EQ(eml_msg_save(msg_, path.c_str()), 0);
        EXPECT_EQ(std::rename(path.c_str(), file("x").c_str()), 0);
        announce(file("x"));
        return file("x");
    }
    told first_attempt()
    {
        pass_pauses(1);
        return kept_.last();
    }
    told second_attempt()
    {
        pass_pauses(1799);
        return kept_.last();
    }

    void*  msg_ = nullptr;
    keeper kept_;
};

void check(told const& t, reason_case const& c, surroundings const& around, int attempt)
{
    SCOPED_TRACE(attempt);
    EXPECT_EQ(t.number, c.number);
    EXPECT_EQ(t.attempt, attempt);
    EXPECT_EQ(t.reason, around.expected_reason());
    EXPECT_EQ(t.cause, c.cause);
    EXPECT_EQ(t.step, c.step);
    EXPECT_GE(t.seconds, 0);
    EXPECT_LT(t.seconds, 600);
    EXPECT_EQ(t.reason.find("secret"), std::string::npos) << "a password";
}

class Reasons : public ReasonRoom, public testing::WithParamInterface<reason_case>
{
};

TEST_P(Reasons, OfASynchronousPost)
{
    reason_case const& c = GetParam();
    address(c);
    surroundings const around(c, settings_path());
    told const         t = post_sync();
    check(t, c, around, 1);
    EXPECT_EQ(t.file.compare(0, workdir().size() + 1, workdir() + "/"), 0) << t.file;
    EXPECT_FALSE(t.file_is_there);
}

TEST_P(Reasons, OfBothAttemptsOfAnEngine)
{
    reason_case const& c = GetParam();
    address(c);
    start_keeping();
    std::string const path = announced();
    {
        surroundings const around(c, settings_path());
        told const         t = first_attempt();
        check(t, c, around, 1);
        EXPECT_EQ(t.file, path);
        EXPECT_TRUE(t.file_is_there);
    }
    if (c.number == 0) {
        return;
    }
    surroundings const around(c, settings_path());
    told const         t = second_attempt();
    check(t, c, around, 2);
    EXPECT_EQ(t.file, path);
    EXPECT_TRUE(t.file_is_there);
    EXPECT_FALSE(file_exists(path)) << "deleted after the callbacks";
}

// ---- the transcripts

std::string const silent = "S: (silent)\n" + hangs_up;

std::string silent_at(std::string const& command)
{
    return "C: " + command + "\n" + silent;
}

std::string const envelope   = helo + mail_from() + rcpt_to();
std::string const text_begun = answered("data", "354 go on") + "C: (data)\n";

std::string offer(std::string const& mechanisms)
{
    return ehlo("AUTH " + mechanisms);
}

std::string const plain = "AUTH PLAIN {base64:\\0joe\\0smtp-secret}";

std::vector<reason_case> settings_cases()
{
    auto const missing = [](char const* key) {
        return std::string("settings: ") + key + " is missing in {cf}";
    };
    return {
        reason_case("a mail that is sent").smtp(helo + delivery),
        reason_case("there are no settings")
            .instead([](std::string const&) {})
            .ends(1000, "settings: {cf} cannot be read: No such file or directory")
            .by(eml_cause_settings, "settings"),
        reason_case("the settings are a directory")
            .instead([](std::string const& path) { ::mkdir(path.c_str(), 0777); })
            .ends(1000, "settings: {cf} cannot be read: Is a directory")
            .by(eml_cause_settings, "settings"),
        reason_case("the settings are a pipe")
            .instead([](std::string const& path) { ::mkfifo(path.c_str(), 0666); })
            .ends(1000, "settings: {cf} is not a regular file")
            .by(eml_cause_settings, "settings"),
        reason_case("the settings begin with an overlong line")
            .instead([](std::string const& path) {
                write_file(path, std::string(2000, 'x') + "\r\nsmtp_server = a\r\n");
            })
            .ends(1000, missing("smtp_server"))
            .by(eml_cause_settings, "settings"),
        reason_case("no SMTP server")
            .without("smtp_server")
            .ends(1000, missing("smtp_server"))
            .by(eml_cause_settings, "settings"),
        reason_case("no SMTP port")
            .without("smtp_port")
            .ends(1000, missing("smtp_port"))
            .by(eml_cause_settings, "settings"),
        reason_case("an SMTP port without a value")
            .line("smtp_port", "smtp_port 25\r\n")
            .ends(1000, "settings: smtp_port has no \"=\" in {cf}")
            .by(eml_cause_settings, "settings"),
        reason_case("no account")
            .login()
            .without("smtp_account")
            .smtp(greeted + hangs_up)
            .ends(1004, missing("smtp_account"))
            .by(eml_cause_settings, "settings"),
        reason_case("no password")
            .login()
            .without("smtp_passwd")
            .smtp(greeted + hangs_up)
            .ends(1004, missing("smtp_passwd"))
            .by(eml_cause_settings, "settings"),
        reason_case("a password that was not stored by this library")
            .login()
            .with("smtp_passwd", "nothing of the kind")
            .with("passwd_raw", "no")
            .smtp(greeted + hangs_up)
            .ends(1004, "settings: smtp_passwd in {cf} cannot be decrypted")
            .by(eml_cause_settings, "settings"),
        reason_case("no POP3 server")
            .pop("")
            .without("pop_server")
            .ends(100, missing("pop_server"))
            .by(eml_cause_settings, "settings"),
        reason_case("no POP3 port")
            .pop("")
            .without("pop_port")
            .ends(100, missing("pop_port"))
            .by(eml_cause_settings, "settings"),
        reason_case("no POP3 account")
            .pop("")
            .without("pop_account")
            .ends(100, missing("pop_account"))
            .by(eml_cause_settings, "settings"),
        reason_case("no POP3 password")
            .pop("")
            .without("pop_passwd")
            .ends(100, missing("pop_passwd"))
            .by(eml_cause_settings, "settings"),
        reason_case("a POP3 password that was not stored by this library")
            .pop("")
            .with("pop_passwd", "nothing of the kind")
            .with("passwd_raw", "no")
            .ends(100, "settings: pop_passwd in {cf} cannot be decrypted")
            .by(eml_cause_settings, "settings"),
    };
}

INSTANTIATE_TEST_SUITE_P(Settings, Reasons, testing::ValuesIn(settings_cases()),
                         case_name<reason_case>);

std::vector<reason_case> connection_cases()
{
    closed_port static const nobody;
    std::string const port = std::to_string(nobody.number());
    return {
        reason_case("an SMTP server that has no address")
            .with("smtp_server", "nowhere.test")
            .ends(1001, "the host nowhere.test was not found")
            .by(eml_cause_unreachable, "look-up"),
        reason_case("an SMTP server that does not listen")
            .with("smtp_port", port)
            .ends(1001, "connect to 127.0.0.1:" + port + ": Connection refused")
            .by(eml_cause_unreachable, "connect"),
        reason_case("an SMTP server that does not answer")
            .full_port()
            .ends(1001, "connect to 127.0.0.1:{smtp}: no answer within 30 s")
            .by(eml_cause_unreachable, "connect"),
        reason_case("the SMTP server is busy")
            .smtp("S: 554-no\nS: 554 no service\n" + hangs_up)
            .ends(1001, "the server refused the connection: 554 no service")
            .by(eml_cause_refused, "greeting"),
        reason_case("the SMTP server does not greet")
            .smtp(silent)
            .ends(1001, "no greeting from the server within 15 s")
            .by(eml_cause_lost, "greeting"),
        reason_case("the SMTP server closes")
            .smtp("S: (closes)\n")
            .ends(1001, "the server closed the connection without a greeting")
            .by(eml_cause_lost, "greeting"),
        reason_case("HELO is refused")
            .smtp(greeted + refused_at("helo {host}", "550 you are on a list"))
            .ends(1003, "the server refused HELO: 550 you are on a list")
            .by(eml_cause_refused, "helo"),
        reason_case("HELO is not answered")
            .smtp(greeted + silent_at("helo {host}"))
            .ends(1003, "no answer to HELO within 15 s")
            .by(eml_cause_lost, "helo"),
        reason_case("the connection is closed after HELO")
            .smtp(greeted + lost_at("helo {host}"))
            .ends(1003, "the server closed the connection after HELO")
            .by(eml_cause_lost, "helo"),
        reason_case("QUIT is refused")
            .smtp(helo + mail_from() + rcpt_to() + text_sent + refused_at("quit", "500 stay"))
            .ends(1006, "the server refused QUIT: 500 stay")
            .by(eml_cause_refused, "quit"),
        reason_case("QUIT is refused for now")
            .smtp(envelope + text_sent + refused_at("quit", "421 busy"))
            .ends(1006, "the server refused QUIT: 421 busy")
            .by(eml_cause_refused_now, "quit"),
        reason_case("QUIT is not answered")
            .smtp(envelope + text_sent + silent_at("quit"))
            .ends(1006, "no answer to QUIT within 15 s")
            .by(eml_cause_lost, "quit"),
        reason_case("the connection is closed after QUIT")
            .smtp(envelope + text_sent + lost_at("quit"))
            .ends(1006, "the server closed the connection after QUIT")
            .by(eml_cause_lost, "quit"),
    };
}

INSTANTIATE_TEST_SUITE_P(Connection, Reasons, testing::ValuesIn(connection_cases()),
                         case_name<reason_case>);

std::vector<reason_case> message_cases()
{
    return {
        reason_case("the sender is refused")
            .smtp(helo + refused_at("mail from: <reply@a.test>", "550 5.7.1 not you"))
            .ends(1005, "the server refused the sender reply@a.test: 550 5.7.1 not you")
            .by(eml_cause_refused, "sender"),
        reason_case("the null sender is refused")
            .from("")
            .smtp(helo + refused_at("mail from: <>", "550 no"))
            .ends(1005, "the server refused the sender <>: 550 no")
            .by(eml_cause_refused, "sender"),
        reason_case("the sender is not answered")
            .smtp(helo + silent_at("mail from: <reply@a.test>"))
            .ends(1005, "no answer to MAIL for reply@a.test within 15 s")
            .by(eml_cause_lost, "sender"),
        reason_case("the sender is too long")
            .from(long_address)
            .smtp(helo + hangs_up)
            .ends(1005,
                  cut("the command line of MAIL is longer than 1023 bytes and was not sent: " +
                      long_address))
            .by(eml_cause_message, "sender"),
        reason_case("the second recipient is refused")
            .to("x@b.test, ben@office.test")
            .smtp(envelope + refused_at("rcpt to: <ben@office.test>", "550 5.1.1 no such user"))
            .ends(1005, "the server refused the recipient ben@office.test: 550 5.1.1 no such user")
            .by(eml_cause_refused, "recipient"),
        reason_case("a recipient is refused in many lines")
            .smtp(helo + mail_from() +
                  "C: rcpt to: <x@b.test>\nS: 550-one\nS: 550-two\nS: 550 three \n" + hangs_up)
            .ends(1005, "the server refused the recipient x@b.test: 550 three")
            .by(eml_cause_refused, "recipient"),
        reason_case("a recipient is refused in bytes that are no text")
            .smtp(helo + mail_from() +
                  refused_at("rcpt to: <x@b.test>", "550 \\x1b[1mno\\t\\xfc \xC3\xBC"))
            .ends(1005, "the server refused the recipient x@b.test: 550 ?[1mno?? \xC3\xBC")
            .by(eml_cause_refused, "recipient"),
        reason_case("a recipient is refused for now")
            .smtp(helo + mail_from() + refused_at("rcpt to: <x@b.test>", "450 4.2.1 full"))
            .ends(1005, "the server refused the recipient x@b.test: 450 4.2.1 full")
            .by(eml_cause_refused_now, "recipient"),
        reason_case("the service ends at a recipient")
            .smtp(helo + mail_from() + refused_at("rcpt to: <x@b.test>", "421 closing"))
            .ends(1005, "the server refused the recipient x@b.test: 421 closing")
            .by(eml_cause_refused_now, "recipient"),
        reason_case("a recipient is answered by a reply of another kind")
            .smtp(helo + mail_from() + refused_at("rcpt to: <x@b.test>", "354 go on"))
            .ends(1005, "the server refused the recipient x@b.test: 354 go on")
            .by(eml_cause_protocol, "recipient"),
        reason_case("a recipient is answered by what is no reply")
            .smtp(helo + mail_from() + refused_at("rcpt to: <x@b.test>", "who is that"))
            .ends(1005, "the server refused the recipient x@b.test: who is that")
            .by(eml_cause_protocol, "recipient"),
        reason_case("a recipient is refused at length")
            .smtp(helo + mail_from() +
                  refused_at("rcpt to: <x@b.test>", "550 " + std::string(3000, 'x')))
            .ends(1005,
                  cut("the server refused the recipient x@b.test: 550 " + std::string(3000, 'x')))
            .by(eml_cause_refused, "recipient"),
        reason_case("an empty recipient is refused")
            .to("x@b.test,,")
            .smtp(envelope + refused_at("rcpt to: <>", "501 whom?"))
            .ends(1005, "the server refused the recipient <>: 501 whom?")
            .by(eml_cause_refused, "recipient"),
        reason_case("a recipient is not answered")
            .smtp(helo + mail_from() + silent_at("rcpt to: <x@b.test>"))
            .ends(1005, "no answer to RCPT for x@b.test within 15 s")
            .by(eml_cause_lost, "recipient"),
        reason_case("the connection is closed after a recipient")
            .smtp(helo + mail_from() + lost_at("rcpt to: <x@b.test>"))
            .ends(1005, "the server closed the connection after RCPT for x@b.test")
            .by(eml_cause_lost, "recipient"),
        reason_case("the connection breaks after a recipient")
            .smtp(helo + mail_from() + answered("rcpt to: <x@b.test>", "(resets)"))
            .ends(1005, "the connection to the server broke after RCPT for x@b.test: Connection "
                        "reset by peer")
            .by(eml_cause_lost, "recipient"),
        reason_case("a recipient is too long")
            .to(long_address)
            .smtp(helo + mail_from() + hangs_up)
            .ends(1005,
                  cut("the command line of RCPT is longer than 1023 bytes and was not sent: " +
                      long_address))
            .by(eml_cause_message, "recipient"),
        reason_case("there is no recipient")
            .to("")
            .smtp(helo + mail_from() + hangs_up)
            .ends(1005, "the message has no recipient")
            .by(eml_cause_message, "recipient"),
        reason_case("DATA is refused")
            .smtp(envelope + refused_at("data", "451 later"))
            .ends(1005, "the server refused DATA: 451 later")
            .by(eml_cause_refused_now, "data"),
        reason_case("DATA is not answered")
            .smtp(envelope + silent_at("data"))
            .ends(1005, "no answer to DATA within 15 s")
            .by(eml_cause_lost, "data"),
        reason_case("the connection is closed after DATA")
            .smtp(envelope + lost_at("data"))
            .ends(1005, "the server closed the connection after DATA")
            .by(eml_cause_lost, "data"),
        reason_case("the text is refused")
            .smtp(envelope + text_begun + "S: 552 too much\n" + hangs_up)
            .ends(1005, "the server refused the text: 552 too much")
            .by(eml_cause_refused, "text"),
        reason_case("the text is not answered")
            .smtp(envelope + text_begun + silent)
            .ends(1005, "no answer to the text within 15 s")
            .by(eml_cause_lost, "text"),
        reason_case("the connection is closed after the text")
            .smtp(envelope + text_begun + "S: (closes)\n")
            .ends(1005, "the server closed the connection after the text")
            .by(eml_cause_lost, "text"),
    };
}

INSTANTIATE_TEST_SUITE_P(Message, Reasons, testing::ValuesIn(message_cases()),
                         case_name<reason_case>);

std::vector<reason_case> login_cases()
{
    std::string const login_begun = offer("LOGIN") + answered("AUTH LOGIN", "334 VXNlcjo=");
    std::string const user_sent   = login_begun + "C64: joe\nS: 334 UGFzc3dvcmQ6\n";
    std::string const cram_begun = offer("CRAM-MD5") + "C: AUTH CRAM-MD5\nS64: 334 <1@mail.test>\n";
    return {
        reason_case("EHLO is refused")
            .login()
            .smtp(greeted + refused_at("ehlo {host}", "502 helo, please"))
            .ends(1004, "the server refused EHLO: 502 helo, please")
            .by(eml_cause_refused, "ehlo"),
        reason_case("EHLO is not answered")
            .login()
            .smtp(greeted + silent_at("ehlo {host}"))
            .ends(1004, "no answer to EHLO within 15 s")
            .by(eml_cause_lost, "ehlo"),
        reason_case("the connection is closed after EHLO")
            .login()
            .smtp(greeted + lost_at("ehlo {host}"))
            .ends(1004, "the server closed the connection after EHLO")
            .by(eml_cause_lost, "ehlo"),
        reason_case("PLAIN is refused")
            .login()
            .smtp(offer("PLAIN") + refused_at(plain, "535 5.7.8 wrong"))
            .ends(1004, "the server refused the login of joe: 535 5.7.8 wrong")
            .by(eml_cause_refused, "login"),
        reason_case("PLAIN is refused with an echo")
            .login()
            .smtp(offer("PLAIN") +
                  refused_at(plain, "535 {base64:\\0joe\\0smtp-secret}: no smtp-secret for joe"))
            .ends(1004, "the server refused the login of joe: 535 ***: no *** for joe")
            .by(eml_cause_refused, "login"),
        reason_case("the password comes back in a later reply")
            .login()
            .smtp(offer("PLAIN") + answered(plain, "235 welcome") +
                  refused_at("mail from: <reply@a.test>",
                             "550 smtp-secretsmtp-secret {base64:\\0joe\\0smtp-secret}"))
            .ends(1005, "the server refused the sender reply@a.test: 550 ****** ***")
            .by(eml_cause_refused, "sender"),
        reason_case("PLAIN is not answered")
            .login()
            .smtp(offer("PLAIN") + silent_at(plain))
            .ends(1004, "no answer to AUTH PLAIN for joe within 15 s")
            .by(eml_cause_lost, "login"),
        reason_case("the connection is closed after PLAIN")
            .login()
            .smtp(offer("PLAIN") + lost_at(plain))
            .ends(1004, "the server closed the connection after AUTH PLAIN for joe")
            .by(eml_cause_lost, "login"),
        reason_case("the response of PLAIN is too long")
            .login()
            .with("smtp_passwd", std::string(900, 's'))
            .smtp(offer("PLAIN") + hangs_up)
            .ends(1004,
                  "the command line of AUTH PLAIN is longer than 1023 bytes and was not sent: joe")
            .by(eml_cause_settings, "login"),
        reason_case("LOGIN is refused at once")
            .login()
            .smtp(offer("LOGIN") + refused_at("AUTH LOGIN", "504 not here"))
            .ends(1004, "the server refused the login of joe: 504 not here")
            .by(eml_cause_refused, "login"),
        reason_case("LOGIN is refused with an echo of the user")
            .login()
            .smtp(login_begun + "C64: joe\nS: 535 {base64:joe} smtp-secret\n" + hangs_up)
            .ends(1004, "the server refused the login of joe: 535 *** ***")
            .by(eml_cause_refused, "login"),
        reason_case("LOGIN is refused with an echo of the password")
            .login()
            .smtp(user_sent + "C64: smtp-secret\nS: 535 {base64:smtp-secret} (smtp-secret)\n" +
                  hangs_up)
            .ends(1004, "the server refused the login of joe: 535 *** (***)")
            .by(eml_cause_refused, "login"),
        reason_case("LOGIN is not answered")
            .login()
            .smtp(user_sent + "C64: smtp-secret\n" + silent)
            .ends(1004, "no answer to AUTH LOGIN for joe within 15 s")
            .by(eml_cause_lost, "login"),
        reason_case("CRAM-MD5 is refused with an echo")
            .login()
            .smtp(cram_begun + "C: (any)\nS: 535 wrong, smtp-secret\n" + hangs_up)
            .ends(1004, "the server refused the login of joe: 535 wrong, ***")
            .by(eml_cause_refused, "login"),
        reason_case("the challenge of CRAM-MD5 is not Base64")
            .login("cram-md5")
            .smtp(offer("PLAIN") + refused_at("AUTH CRAM-MD5", "334 ?!"))
            .ends(1004, "the server sent a challenge that is not Base64: 334 ?!")
            .by(eml_cause_protocol, "login"),
        reason_case("CRAM-MD5 is not answered")
            .login()
            .smtp(offer("CRAM-MD5") + silent_at("AUTH CRAM-MD5"))
            .ends(1004, "no answer to AUTH CRAM-MD5 for joe within 15 s")
            .by(eml_cause_lost, "login"),
    };
}

INSTANTIATE_TEST_SUITE_P(Login, Reasons, testing::ValuesIn(login_cases()), case_name<reason_case>);

std::vector<reason_case> pop_cases()
{
    std::string const   stamped = "S: +OK <1@pop.test>\n";
    std::string const   hashed  = std::string("<1@pop.test>") + pop_password;
    digest_buffer const digest(
        icryptw().md5(reinterpret_cast<unsigned char const*>(hashed.data()), hashed.size()));
    std::string const response  = digest_text(digest);
    std::string const apop      = "apop anna " + response;
    std::string const user_sent = pop_greeted + answered("user anna", "+OK");
    closed_port static const nobody;
    std::string const port = std::to_string(nobody.number());
    return {
        reason_case("a POP3 server that has no address")
            .pop("")
            .with("pop_server", "nowhere.test")
            .ends(2002, "the host nowhere.test was not found")
            .by(eml_cause_unreachable, "pop look-up"),
        reason_case("a POP3 server that does not listen")
            .pop("")
            .with("pop_port", port)
            .ends(2002, "connect to 127.0.0.1:" + port + ": Connection refused")
            .by(eml_cause_unreachable, "pop connect"),
        reason_case("the POP3 server does not greet")
            .pop(silent)
            .ends(2002, "no greeting from the POP3 server within 15 s")
            .by(eml_cause_lost, "pop greeting"),
        reason_case("the POP3 server closes")
            .pop("S: (closes)\n")
            .ends(2002, "the POP3 server closed the connection without a greeting")
            .by(eml_cause_lost, "pop greeting"),
        reason_case("the POP3 user is refused")
            .pop(pop_greeted + refused_at("user anna", "-ERR who?"))
            .ends(2004, "the POP3 server refused the user anna: -ERR who?")
            .by(eml_cause_refused, "pop login"),
        reason_case("the POP3 user is answered by an error that is no -ERR")
            .pop(pop_greeted + refused_at("user anna", "+OK error?"))
            .ends(2004, "the POP3 server refused the user anna: +OK error?")
            .by(eml_cause_protocol, "pop login"),
        reason_case("the mailbox is in use")
            .pop(user_sent + refused_at("pass pop secret", "-ERR [IN-USE] somebody reads"))
            .ends(2005,
                  "the POP3 server refused the password of anna: -ERR [IN-USE] somebody reads")
            .by(eml_cause_refused_now, "pop login"),
        reason_case("a POP3 greeting that is a refusal has no time stamp")
            .apop("S: -ERR [SYS/TEMP] come back\n" + hangs_up)
            .ends(2006, "the POP3 server offers no APOP: -ERR [SYS/TEMP] come back")
            .by(eml_cause_refused_now, "pop login"),
        reason_case("a POP3 greeting is a refusal for now, and the connection ends")
            .pop("S: -ERR [SYS/TEMP] busy\n" + lost_at("user anna"))
            .ends(2004, "the POP3 server refused the connection: -ERR [SYS/TEMP] busy")
            .by(eml_cause_refused_now, "pop login"),
        reason_case("a POP3 greeting is a refusal for now, and so is the user")
            .pop("S: -ERR [SYS/TEMP] busy\n" + refused_at("user anna", "-ERR no"))
            .ends(2004, "the POP3 server refused the connection: -ERR [SYS/TEMP] busy")
            .by(eml_cause_refused_now, "pop login"),
        reason_case("a POP3 greeting is a refusal for good")
            .pop("S: -ERR not for you\n" + lost_at("user anna"))
            .ends(2004, "the POP3 server refused the connection: -ERR not for you")
            .by(eml_cause_refused, "pop login"),
        reason_case("a POP3 greeting with a time stamp is a refusal")
            .apop("S: -ERR [IN-USE] <1@pop.test>\n" + lost_at(apop))
            .ends(2006, "the POP3 server refused the connection: -ERR [IN-USE] <1@pop.test>")
            .by(eml_cause_refused_now, "pop login"),
        reason_case("a POP3 greeting is a refusal, but it was not meant")
            .pop("S: -ERR [SYS/TEMP] busy\n" + answered("user anna", "+OK") +
                 refused_at("pass pop secret", "-ERR wrong"))
            .ends(2005, "the POP3 server refused the password of anna: -ERR wrong")
            .by(eml_cause_refused, "pop login"),
        reason_case("a POP3 greeting is a refusal, but the login succeeds")
            .pop("S: -ERR [SYS/TEMP] busy\n" + answered("user anna", "+OK") +
                 answered("pass pop secret", "+OK") + lost_at("quit"))
            .ends(100, "the POP3 server closed the connection after POP3 QUIT")
            .by(eml_cause_lost, "pop quit"),
        reason_case("the POP3 user is not answered")
            .pop(pop_greeted + silent_at("user anna"))
            .ends(2004, "no answer to USER for anna within 15 s")
            .by(eml_cause_lost, "pop login"),
        reason_case("the POP3 password is refused with an echo")
            .pop(user_sent + refused_at("pass pop secret", "-ERR unknown: pass pop secret "))
            .ends(2005, "the POP3 server refused the password of anna: -ERR unknown: pass ***")
            .by(eml_cause_refused, "pop login"),
        reason_case("the connection is closed after the POP3 password")
            .pop(user_sent + lost_at("pass pop secret"))
            .ends(2005, "the POP3 server closed the connection after PASS for anna")
            .by(eml_cause_lost, "pop login"),
        reason_case("APOP is not offered")
            .apop(pop_greeted + hangs_up)
            .ends(2006, "the POP3 server offers no APOP: +OK ready")
            .by(eml_cause_settings, "pop login"),
        reason_case("APOP is refused with an echo")
            .apop(stamped + refused_at(apop, "-ERR " + response + " for pop secret"))
            .ends(2006, "the POP3 server refused APOP for anna: -ERR *** for ***")
            .by(eml_cause_refused, "pop login"),
        reason_case("APOP is not answered")
            .apop(stamped + silent_at(apop))
            .ends(2006, "no answer to APOP for anna within 15 s")
            .by(eml_cause_lost, "pop login"),
        reason_case("QUIT of POP3 is not answered")
            .pop(user_sent + answered("pass pop secret", "+OK") + silent_at("quit"))
            .ends(100, "no answer to POP3 QUIT within 15 s")
            .by(eml_cause_lost, "pop quit"),
        reason_case("the connection is closed after QUIT of POP3")
            .pop(user_sent + answered("pass pop secret", "+OK") + lost_at("quit"))
            .ends(100, "the POP3 server closed the connection after POP3 QUIT")
            .by(eml_cause_lost, "pop quit"),
        reason_case("a POP3 login and then a mail")
            .pop(user_sent + answered("pass pop secret", "+OK") + pop_goodbye)
            .smtp(helo + delivery),
        reason_case("a POP3 login and then a refused sender")
            .pop(user_sent + answered("pass pop secret", "+OK") + pop_goodbye)
            .smtp(helo + refused_at("mail from: <reply@a.test>", "550 no"))
            .ends(1005, "the server refused the sender reply@a.test: 550 no")
            .by(eml_cause_refused, "sender"),
    };
}

INSTANTIATE_TEST_SUITE_P(Pop, Reasons, testing::ValuesIn(pop_cases()), case_name<reason_case>);

// ---- message files that are not sent, which only an engine meets

struct file_case : named_case {
    using named_case::named_case;

    file_case& made(std::function<void(std::string const&)> const& its_action)
    {
        make = its_action;
        return *this;
    }
    file_case& reason(std::string const& its_reason)
    {
        expected = its_reason;
        return *this;
    }

    std::function<void(std::string const&)> make;
    std::string                             expected;
};

class FileReasons : public ReasonRoom, public testing::WithParamInterface<file_case>
{
};

TEST_P(FileReasons, OfBothAttempts)
{
    std::string const path = file("x");
    reason_case const c    = reason_case("")
                              .smtp(helo + hangs_up)
                              .ends(1005, GetParam().expected)
                              .by(eml_cause_file, "message");
    start_keeping();
    GetParam().make(path);  // only now: an engine deletes what it meets at its start
    announce(path);
    {
        surroundings const around(c, settings_path());
        told const         t = first_attempt();
        check(t, c, around, 1);
        EXPECT_EQ(t.file, path);
    }
    surroundings const around(c, settings_path());
    check(second_attempt(), c, around, 2);
}

std::string const not_to_be_sent = "the message file is not to be sent: it is a link or no regular "
                                   "file, has a second name, is somebody else's, or is too large";

// Outside the work directory, where it is not taken for a message.
std::string other_name(std::string const& path)
{
    return path.substr(0, path.rfind('/')) + "/../other";
}

std::vector<file_case> file_cases()
{
    return {
        file_case("there is none")
            .made([](std::string const&) {})
            .reason("the message file cannot be opened: No such file or directory"),
        file_case("a directory")
            .made([](std::string const& path) { ::mkdir(path.c_str(), 0777); })
            .reason(not_to_be_sent),
        file_case("a link")
            .made([](std::string const& path) {
                write_file(other_name(path), "subject: x\n");
                EXPECT_EQ(::symlink(other_name(path).c_str(), path.c_str()), 0);
            })
            .reason(not_to_be_sent),
        file_case("a second name")
            .made([](std::string const& path) {
                write_file(path, "subject: x\n");
                EXPECT_EQ(::link(path.c_str(), other_name(path).c_str()), 0);
            })
            .reason(not_to_be_sent),
    };
}

INSTANTIATE_TEST_SUITE_P(File, FileReasons, testing::ValuesIn(file_cases()), case_name<file_case>);

TEST_F(ReasonRoom, OfAMessageFileThatCannotBeRead)
{
    reason_case const    c = reason_case("").smtp(helo + hangs_up).ends(1005);
    surroundings const   around(c, settings_path());
    noting_attempt const attempt;
    std::string          message;
    message_file const   directory(unique_fd(::open(workdir().c_str(), O_RDONLY | O_CLOEXEC)));
    EXPECT_EQ(isendw().send(directory, settings_path().c_str(), message), 1005);
    EXPECT_STREQ(attempt->reason, "the message file cannot be read: Is a directory");
    EXPECT_EQ(attempt->cause, eml_cause_file);
    EXPECT_STREQ(attempt->step, "message");
}

// ---- messages that are not saved

class NotSaved : public ReasonRoom
{
protected:
    // Posts, and expects that there was no attempt for this reason.
    void expect(std::string const& reason, char const* workdir, void* msg,
                eml_cause cause = eml_cause_file)
    {
        told const t = post_sync(workdir, msg);
        EXPECT_EQ(t.number, 100);
        EXPECT_EQ(t.attempt, 0);
        EXPECT_EQ(t.file, "");
        EXPECT_EQ(t.code, eml_send_error_other);
        EXPECT_EQ(t.message, "");
        EXPECT_EQ(t.reason, reason);
        EXPECT_EQ(t.cause, cause);
        EXPECT_EQ(t.step, "message");
    }
};

TEST_F(NotSaved, WithoutAWorkDirectory)
{
    expect("no work directory is given", nullptr, msg_);
    std::string const gone = dir_.file("gone");
    expect("the message cannot be saved in " + gone + ": No such file or directory", gone.c_str(),
           msg_);
    std::string const no_directory = dir_.file("file");
    write_file(no_directory, "");
    expect("the message cannot be saved in " + no_directory + ": Not a directory",
           no_directory.c_str(), msg_);
    std::string const long_path(254, 'x');
    expect("the message cannot be saved: the path of the work directory is too long",
           long_path.c_str(), msg_);
}

TEST_F(NotSaved, WithoutAMessage)
{
    expect("no message is given", workdir().c_str(), nullptr, eml_cause_message);
}

TEST_F(NotSaved, WithoutRoom)
{
    eml_msg_set_body(msg_, std::string(100000, 'x').c_str());
    full_disk const full(1000);
    expect("the message cannot be saved in " + workdir() + ": File too large", workdir().c_str(),
           msg_);
}

TEST_F(NotSaved, UnderANameThatIsTaken)
{
    char path[fullpath_size];
    ASSERT_EQ(create_fullpath(workdir().c_str(), path), 0);
    ASSERT_EQ(create_fullpath(workdir().c_str(), path), 0);  // the second one
    expect(std::string("the message cannot be saved: there is already a file ") + path,
           workdir().c_str(), msg_);
}

// ---- one attempt and another

class ManyReasons : public ReasonRoom
{
protected:
    reason_case const refused =
        reason_case("").smtp(helo + refused_at("mail from: <reply@a.test>", "550 no")).ends(1005);
    std::string const refusal = "the server refused the sender reply@a.test: 550 no";
};

TEST_F(ManyReasons, DoNotGetIntoTheNextResult)
{
    address(refused);
    for (int round = 0; round < 2; ++round) {
        {
            surroundings const around(refused, settings_path());
            EXPECT_EQ(post_sync().reason, refusal);
        }
        {
            reason_case const  sent = reason_case("").smtp(helo + delivery);
            surroundings const around(sent, settings_path());
            told const         t = post_sync();
            EXPECT_EQ(t.number, 0);
            EXPECT_EQ(t.reason, "");
            EXPECT_EQ(t.cause, eml_cause_none);
            EXPECT_EQ(t.step, "");
        }
        {
            reason_case const  gone = reason_case("").smtp(greeted + lost_at("helo {host}"));
            surroundings const around(gone, settings_path());
            EXPECT_EQ(post_sync().reason, "the server closed the connection after HELO");
        }
    }
}

// A callback that posts, too: each result has its own reason.
struct poster {
    static int call(void* record, void* user)
    {
        auto* const self = static_cast<poster*>(user);
        self->before     = read(record);
        void* inner      = nullptr;
        eml_post_sync("/no such directory", self->msg, &inner);
        self->inner = read(inner);
        eml_cb_delete(inner);
        self->after = read(record);
        return 0;
    }

    void* msg;
    told  before;
    told  inner;
    told  after;
};

TEST_F(ManyReasons, NestInACallback)
{
    address(refused);
    poster p = {msg_, {}, {}, {}};
    start_keeping();
    ASSERT_EQ(eml_reset_callback(engine_, keeper::call), 0);
    ASSERT_EQ(eml_set_callback(engine_, poster::call, &p), 0);
    ASSERT_EQ(eml_set_callback(engine_, keeper::call, &kept_), 0);
    announced();
    surroundings const around(refused, settings_path());
    told const         t = first_attempt();
    EXPECT_EQ(t.reason, refusal);
    EXPECT_EQ(p.before, t);
    EXPECT_EQ(p.after, t);
    EXPECT_EQ(p.inner.attempt, 0);
    EXPECT_EQ(p.inner.reason,
              "the message cannot be saved in /no such directory: No such file or directory");
}

TEST_F(ManyReasons, BelongToTheirThreads)
{
    constexpr int rounds = 50;
    auto const    post   = [](std::string const& name) {
        temp_dir const work;
        void*          msg = nullptr;
        EXPECT_EQ(eml_msg_create(&msg), 0);
        write_file(work.file("zelismes.cf"),
                        "smtp_server = " + name + ".test\r\nsmtp_port = 25\r\n");
        for (int i = 0; i < rounds; ++i) {
            void* record = nullptr;
            EXPECT_EQ(eml_post_sync(work.path().c_str(), msg, &record), -1);
            char reason[EML_REASON_SIZE] = "";
            EXPECT_EQ(eml_cb_get_reason(record, reason, sizeof reason), 0);
            EXPECT_EQ(reason, "the host " + name + ".test was not found");
            eml_cb_delete(record);
        }
        eml_msg_destroy(msg);
    };
    std::thread other([&] { post("anna"); });
    post("ben");
    other.join();
}

// ---- the getters

TEST_F(ManyReasons, AreCopiedWholeOrNotAtAll)
{
    address(refused);
    surroundings const around(refused, settings_path());
    void*              record = nullptr;
    EXPECT_EQ(eml_post_sync(workdir().c_str(), msg_, &record), -1);
    told const t = read(record);
    using getter = int (*)(void*, char*, int);
    for (auto const& [get, text] : {std::pair<getter, std::string>{eml_cb_get_reason, t.reason},
                                    {eml_cb_get_file, t.file},
                                    {eml_cb_get_step, "sender"}}) {
        int const size                 = static_cast<int>(text.size());
        char      buf[EML_REASON_SIZE] = "as it was";
        for (int too_small : {-1, 0, 1, size}) {
            EXPECT_EQ(get(record, buf, too_small), -1);
        }
        EXPECT_EQ(get(record, nullptr, 100), -1);
        EXPECT_EQ(get(nullptr, buf, sizeof buf), -1);
        EXPECT_STREQ(buf, "as it was");
        EXPECT_EQ(get(record, buf, size + 1), 0);
        EXPECT_EQ(buf, text);
    }
    int       number  = 77;
    double    seconds = 77;
    eml_cause cause   = eml_cause_32_bits;
    EXPECT_EQ(eml_cb_get_cause(nullptr, &cause), -1);
    EXPECT_EQ(eml_cb_get_cause(record, nullptr), -1);
    EXPECT_EQ(cause, eml_cause_32_bits);
    EXPECT_EQ(eml_cb_get_number(nullptr, &number), -1);
    EXPECT_EQ(eml_cb_get_attempt(nullptr, &number), -1);
    EXPECT_EQ(eml_cb_get_seconds(nullptr, &seconds), -1);
    EXPECT_EQ(number, 77);
    EXPECT_EQ(seconds, 77);
    EXPECT_EQ(eml_cb_get_number(record, nullptr), -1);
    EXPECT_EQ(eml_cb_get_attempt(record, nullptr), -1);
    EXPECT_EQ(eml_cb_get_seconds(record, nullptr), -1);
    eml_cb_delete(record);
}

}  // namespace

}  // namespace zelieml::test
