// Mails, login tests and receiving inside TLS; and that nothing is said without it.

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <dlfcn.h>
#include <pthread.h>
#include <sys/wait.h>
#include <thread>

#include "libaccess/libaccess.h"
#include "libconf/libconf.h"
#include "libreceive/fetchmail.h"
#include "libreceive/libreceive.h"
#include "libsendw/libsendw.h"
#include "libsendw/pop.h"
#include "libsendw/probe.h"
#include "platform/cancellation.h"
#include "support/attempt_note.h"
#include "tests/support/clean_machine.h"
#include "tests/support/dialogues.h"
#include "tests/support/fake_plugin_folder.h"
#include "tests/support/mail_server.h"
#include "tests/support/peers.h"
#include "tests/support/skip.h"
#include "tests/support/threads.h"
#include "tests/support/wait_until.h"
#include "tests/tls/authority.h"
#include "tests/tls/tls_front.h"

namespace zelieml::test
{

namespace
{

constexpr char untouched[] = "what was there before";
constexpr auto a_minute    = std::chrono::minutes(1);  // longer than anybody waits for threads

authority const& ca()
{
    static authority const one;
    return one;
}

std::string line(std::string const& key, std::string const& value)
{
    return key + " = " + value + "\r\n";
}

std::string smtp_at(std::uint16_t port, std::string const& host = "mail.test")
{
    return line("smtp_server", host) + line("smtp_port", std::to_string(port));
}

std::string pop_at(std::uint16_t port)
{
    return line("pop_before_smtp", "yes") + line("pop_server", "mail.test") +
           line("pop_port", std::to_string(port)) + line("pop_account", "anna") +
           line("pop_passwd", "secret") + line("passwd_raw", "yes");
}

// How a send ended.
struct outcome {
    int         result;
    std::string text;
    eml_cause   cause;
    std::string step;
    std::string reason;
};

class TlsSend : public on_a_clean_machine
{
protected:
    void SetUp() override
    {
        on_a_clean_machine::SetUp();
        add_host("mail.test", "127.0.0.1");
        set_plugin_folder(ZELIEML_TEST_PLUGIN_FOLDER);
        std::thread([] {}).join();  // with the first one sanitizers start one of their own
        threads_     = running_threads();
        descriptors_ = open_descriptors();
        write_file(msg_path_, "encoding: UTF-8\nfrom: p@a.test\nto: x@b.test\nsubject: hello\n"
                              "replyto: reply@a.test\nthe paper is empty");
        write_file(ca_path_, ca().certificate());
    }

    void TearDown() override
    {
        EXPECT_TRUE(wait_for_running_threads(threads_));
        EXPECT_TRUE(wait_until([this] { return open_descriptors() == descriptors_; }));
        on_a_clean_machine::TearDown();
    }

    std::string trust() const { return line("tls_ca_file", ca_path_); }

    outcome send(std::string const& settings)
    {
        write_file(conf_path_, settings);
        noting_attempt const attempt;
        std::string          text   = untouched;
        int const            result = isendw().send(msg_path_.c_str(), conf_path_.c_str(), text);
        return {result, text, attempt->cause, attempt->step, attempt->reason};
    }

    void expect_refused(std::string const& settings, int result, eml_cause cause,
                        std::string const& step, std::string const& reason)
    {
        outcome const o = send(settings);
        EXPECT_EQ(o.result, result);
        EXPECT_EQ(o.text, result == pop_start_failed ? "" : untouched);
        EXPECT_EQ(o.cause, cause);
        EXPECT_EQ(o.step, step);
        EXPECT_EQ(o.reason, reason);
    }

    temp_dir    dir_;
    std::string conf_path_ = dir_.file("zelismes.cf");
    std::string msg_path_  = dir_.file("0000000000.sme");
    std::string ca_path_   = dir_.file("ca.pem");

private:
    int threads_     = 0;
    int descriptors_ = 0;
};

// The first: later ones load it.
TEST_F(TlsSend, LoadsNothingWhenNobodyAsks)
{
    local_server server(helo + delivery);
    EXPECT_EQ(send(smtp_at(server.port())).result, send_ok);
    std::string const plugin = ZELIEML_TEST_PLUGIN_FOLDER "/" ZELIEML_TEST_PLUGIN_NAME;
    EXPECT_EQ(::dlopen(plugin.c_str(), RTLD_NOW | RTLD_NOLOAD), nullptr);
}

TEST_F(TlsSend, SendsPlainlyWhenTheSettingSaysNo)
{
    local_server server(helo + delivery);
    EXPECT_EQ(
        send(smtp_at(server.port()) + line("smtp_tls", "no") + line("tls_ca_file", "/nonexistent"))
            .result,
        send_ok);
    EXPECT_EQ(server.heard(), server.expected());
}

// ---- mails that go out

// A server that closes after QUIT, as servers do.
std::string const closing     = "C: quit\nS: 221 bye\nS: (closes)\n";
std::string const pop_closing = "C: quit\nS: +OK bye\nS: (closes)\n";
std::string const one_mail    = mail_from() + rcpt_to() + text_sent + closing;

struct way {
    char const* name;
    std::string login;  // settings
    std::string inside;
};

std::string auth_settings(char const* mechanism)
{
    return line("smtp_auth", "yes") + line("smtp_auth_type", mechanism) +
           line("smtp_account", "joe") + line("smtp_passwd", "secret") + line("passwd_raw", "yes");
}

std::string const ehlo_inside = answered("ehlo {host}", "250 AUTH PLAIN LOGIN CRAM-MD5");

way const ways[] = {
    {"no login", "", answered("helo {host}", "250 mail.test")},
    {"PLAIN", auth_settings("plain"),
     ehlo_inside + answered("AUTH PLAIN {base64:\\0joe\\0secret}", "235 ok")},
    {"LOGIN", auth_settings("login"),
     ehlo_inside + answered("AUTH LOGIN", "334 x") + answered("{base64:joe}", "334 x") +
         answered("{base64:secret}", "235 ok")},
    {"CRAM MD5", auth_settings("cram-md5"),
     ehlo_inside + "C: AUTH CRAM-MD5\nS64: 334 <1@x>\n" + answered("{any}", "235 ok")},
};

void PrintTo(way const& w, std::ostream* out)
{
    *out << w.name;
}

class TlsWays : public TlsSend, public testing::WithParamInterface<way>
{
};

TEST_P(TlsWays, SendsFromTheFirstByte)
{
    local_server mail(greeted + GetParam().inside + one_mail);
    tls_manners  manners;
    manners.in_front_of = mail.port();
    tls_front     server(ca().issue(), manners);
    outcome const o =
        send(smtp_at(server.port()) + line("smtp_tls", "tls") + trust() + GetParam().login);
    EXPECT_EQ(o.result, send_ok) << o.reason;
    EXPECT_EQ(o.text, "221 bye\r\n");
    EXPECT_EQ(mail.heard(), mail.expected()) << mail.problem();
    EXPECT_EQ(server.heard_in_clear(), "");
}

TEST_P(TlsWays, SendsAfterStarttls)
{
    local_server mail(GetParam().inside + one_mail);
    tls_manners  manners;
    manners.in_front_of = mail.port();
    manners.in_clear    = starttls_for(greeting_literal);
    tls_front     server(ca().issue(), manners);
    outcome const o =
        send(smtp_at(server.port()) + line("smtp_tls", "starttls") + trust() + GetParam().login);
    EXPECT_EQ(o.result, send_ok) << o.reason;
    EXPECT_EQ(mail.heard(), mail.expected()) << mail.problem();
    EXPECT_EQ(server.heard_in_clear(),
              "ehlo " + std::string(greeting_literal) + "\r\nstarttls\r\n");
    EXPECT_EQ(looked_up_names(), (strings{"mail.test", "client.test"})) << "each once";
}
INSTANTIATE_TEST_SUITE_P(Table, TlsWays, testing::ValuesIn(ways), case_name<way>);

TEST_F(TlsSend, SendsToAnAddress)
{
    local_server mail(helo + one_mail);
    tls_manners  manners;
    manners.in_front_of = mail.port();
    tls_front     server(ca().issue(), manners);
    outcome const o = send(smtp_at(server.port(), "127.0.0.1") + line("smtp_tls", "tls") + trust());
    EXPECT_EQ(o.result, send_ok) << o.reason;
}

TEST_F(TlsSend, LogsInToThePopServerFirst)
{
    for (bool const first_byte : {true, false}) {
        local_server pop((first_byte ? pop_greeted : "") + pop_login() + pop_closing);
        local_server mail(helo + one_mail);
        tls_manners  pop_manners;
        pop_manners.in_front_of = pop.port();
        pop_manners.in_clear    = first_byte ? std::vector<exchange>() : stls();
        tls_front     pop_server(ca().issue(), pop_manners);
        outcome const o =
            send(pop_at(pop_server.port()) + line("pop_tls", first_byte ? "tls" : "starttls") +
                 trust() + smtp_at(mail.port()));
        EXPECT_EQ(o.result, send_ok) << o.reason;
        EXPECT_EQ(pop.heard(), pop.expected()) << pop.problem();
        EXPECT_EQ(pop_server.heard_in_clear(), first_byte ? "" : "capa\r\nstls\r\n");
    }
}

// The end is told by a dot and a reply, not by the end of the stream.
TEST_F(TlsSend, NoticesAReplyThatIsCutOff)
{
    local_server mail(helo + answered("mail from: <reply@a.test>", "250 ok") +
                      "C: rcpt to: <x@b.test>\nS- 250 o\nS: (closes)\n");
    tls_manners  manners;
    manners.in_front_of = mail.port();
    manners.just_closes = true;
    tls_front     server(ca().issue(), manners);
    outcome const o = send(smtp_at(server.port()) + line("smtp_tls", "tls") + trust());
    EXPECT_EQ(o.result, send_message_refused);
    EXPECT_EQ(o.cause, eml_cause_lost);
}

// ---- mails of 20 MB

// Sanitizers are.
bool const        slow  = has_sanitizer("address") || has_sanitizer("thread");
std::size_t const large = slow ? 1'000'000 : 20'000'000;

std::string numbered_lines(std::size_t size)
{
    std::string all;
    for (int i = 0; all.size() < size; ++i) {
        all += "page " + std::to_string(i) + " of a long report\n";
    }
    return all;
}

// The mail without its date, which is another one in each.
std::string undated(std::string text)
{
    std::size_t const date = text.find("Date: ");
    return date != text.npos ? text.erase(date, text.find('\n', date) + 1 - date) : text;
}

TEST_F(TlsSend, TakesALargeMailAsItIs)
{
    write_file(msg_path_, "encoding: UTF-8\nfrom: p@a.test\nto: x@b.test\nsubject: report\n"
                          "replyto: reply@a.test\n" +
                              numbered_lines(large));
    mail_server const mail;
    tls_manners       implicit;
    implicit.in_front_of = mail.smtp_port();
    tls_manners upgraded = implicit;
    upgraded.greeted     = true;
    upgraded.in_clear    = starttls_for(greeting_literal);
    tls_front     with_tls(ca().issue(), implicit);
    tls_front     with_starttls(ca().issue(), upgraded);
    outcome const outcomes[] = {
        send(smtp_at(mail.smtp_port())),
        send(smtp_at(with_tls.port()) + line("smtp_tls", "tls") + trust()),
        send(smtp_at(with_starttls.port()) + line("smtp_tls", "starttls") + trust()),
    };
    for (outcome const& o : outcomes) {
        EXPECT_EQ(o.result, send_ok) << o.reason;
    }
    auto const came = mail.mails();
    ASSERT_EQ(came.size(), 3U);
    EXPECT_GT(came[0].text.size(), large);
    // Not EXPECT_EQ, which would print them.
    EXPECT_TRUE(undated(came[1].text) == undated(came[0].text));
    EXPECT_TRUE(undated(came[2].text) == undated(came[0].text));
    EXPECT_EQ(with_tls.heard_in_clear(), "");
}

// The largest one that is kept has 1999 lines of 4093 characters.
TEST_F(TlsSend, ReceivesALargeMailAsItIs)
{
    std::size_t const length = slow ? 400 : 4093;
    strings           wanted = {"From: printer@a.test", "Subject: report"};
    for (std::size_t i = wanted.size(); i < 1999; ++i) {
        std::string const number = std::to_string(i);
        wanted.push_back("X" + number + ": " + std::string(length - 3 - number.size(), 'x'));
    }
    std::string mail;
    for (std::string const& one : wanted) {
        mail += one + "\r\n";
    }
    wanted.emplace_back(".");
    for (bool const first_byte : {true, false}) {
        mailserver::options options;
        options.users = {{"anna", "secret"}};
        mail_server server(options);
        server.put(mail);
        tls_manners manners;
        manners.in_front_of = server.pop_port();
        manners.greeted     = !first_byte;
        manners.in_clear    = first_byte ? std::vector<exchange>() : stls();
        tls_front     front(ca().issue(), manners);
        _s_mailserver record;
        std::int32_t  fetched   = 0;
        std::int32_t  remaining = -1;
        std::string   from;
        std::string   subject;
        std::string   reply;
        strings       lines;
        ASSERT_EQ(set_pop(&record, "mail.test", "anna", "secret", "pop", front.port(), 0), 0);
        ASSERT_EQ(set_tls(&record, "no", first_byte ? "tls" : "starttls", ca_path_.c_str()), 0);
        EXPECT_EQ(fetchmail_get_one_mail(record, fetched, remaining, from, subject, reply, &lines),
                  0)
            << reply;
        EXPECT_EQ(fetched, 1);
        EXPECT_TRUE(lines == wanted) << lines.size() << " lines";
        EXPECT_EQ(server.mailbox(), strings()) << "DELE and QUIT have got through";
    }
}

// ---- settings that may ask for TLS

struct unclear_case {
    char const* name;
    std::string lines;  // "%" is the key
    std::string says;   // after "TLS: % in FILE "
};

char const unreadable[] = "cannot be read: its line must end in CR LF, and stand above any line of "
                          "more than 1023 bytes";
char const in_one_line[] = "must stand in one line only, which begins with it and \"=\"";
char const no_value[]    = "must be no, starttls or tls";
char const no_path[]     = "must be a full path";

unclear_case const unclear_cases[] = {
    {"capital letters", "% = TLS\r\n", no_value},
    {"yes", "% = Yes\r\n", no_value},
    {"a word with a blank behind it", "% = tls \r\n", no_value},
    {"nothing", "% = \r\n", no_value},
    {"no equals sign", "% tls\r\n", in_one_line},
    {"no CR", "% = tls\n", unreadable},
    {"no CR, and it says no then", "% = nox\n", unreadable},
    {"no line end", "% = tls", unreadable},
    {"behind an overlong line", std::string(1100, 'x') + "\r\n% = tls\r\n", unreadable},
    {"far behind an overlong line",
     std::string(1100, 'x') + std::string(100000, '\n') + "% = tls\r\n", unreadable},
    {"in an overlong line", "% = tls" + std::string(1100, ' ') + "\r\n", unreadable},
    {"across the pieces that are read", std::string(4092, 'x') + "%", unreadable},
    {"behind a NUL", std::string("x\0", 2) + "% = tls\r\n", unreadable},
    {"a NUL in the value", "% = no" + std::string(1, '\0') + "\r\n", unreadable},
    {"contained in another line", "# a\r\nold_% = yes\r\n% = tls\r\n", in_one_line},
    {"contained in another line that says no", "old_% = no\r\n% = tls\r\n", in_one_line},
    {"a comment behind a blank", " # % = no\r\n% = tls\r\n", in_one_line},
    {"a comment of another kind", ";% = no\r\n% = tls\r\n", in_one_line},
    {"a blank before it", " % = tls\r\n", in_one_line},
    {"no above yes", "% = no\r\n% = tls\r\n", in_one_line},
    {"no above yes without CR", "% = no\r\n% = tls", in_one_line},
    {"no above yes that cannot be read", "% = no\r\n" + std::string(1100, 'x') + "\r\n% = tls\r\n",
     unreadable},
    {"no, and yes behind as many blanks that ends later",
     "% = " + std::string(400, ' ') + "no\r\n" + std::string(3350, 'x') +
         "\r\n% = " + std::string(600, ' ') + "tls\r\n",
     unreadable},
    {"more than is looked at", std::string(3000, 'x') + std::string(17 << 20, '\n'),
     "is not known: the file cannot be read to its end, or changed meanwhile"},
    {"2 MiB behind an overlong line",
     std::string(3000, 'x') + std::string(2 << 20, '\n') + "% = tls\r\n", unreadable},
};

void PrintTo(unclear_case const& c, std::ostream* out)
{
    *out << c.name;
}

std::string for_key(std::string text, std::string const& key)
{
    for (std::size_t at = text.find('%'); at != text.npos; at = text.find('%')) {
        text.replace(at, 1, key);
    }
    return text;
}

class UnclearTls : public TlsSend, public testing::WithParamInterface<unclear_case>
{
};

TEST_P(UnclearTls, GetsNoConnectionToTheSmtpServer)
{
    local_server nobody(nobody_comes);
    expect_refused(smtp_at(nobody.port()) + for_key(GetParam().lines, "smtp_tls"),
                   send_not_connected, eml_cause_settings, "settings",
                   "TLS: smtp_tls in " + conf_path_ + " " + GetParam().says);
    EXPECT_EQ(nobody.heard(), "");
}

TEST_P(UnclearTls, GetsNoConnectionToThePopServer)
{
    local_server nobody(nobody_comes);
    expect_refused(pop_at(nobody.port()) + smtp_at(nobody.port()) +
                       for_key(GetParam().lines, "pop_tls"),
                   pop_start_failed, eml_cause_settings, "settings",
                   "TLS: pop_tls in " + conf_path_ + " " + GetParam().says);
    EXPECT_EQ(nobody.heard(), "");
}
INSTANTIATE_TEST_SUITE_P(Table, UnclearTls, testing::ValuesIn(unclear_cases),
                         case_name<unclear_case>);

TEST_F(TlsSend, GetsNoConnectionWithoutTheAuthoritiesThatItAsksFor)
{
    local_server nobody(nobody_comes);
    for (auto const& [lines, says] : std::vector<std::pair<std::string, std::string>>{
             {"% = \r\n", no_path}, {"% = ca.pem\r\n", no_path}, {"% = /ca.pem\n", unreadable}}) {
        expect_refused(smtp_at(nobody.port()) + line("smtp_tls", "tls") +
                           for_key(lines, "tls_ca_file"),
                       send_not_connected, eml_cause_settings, "settings",
                       "TLS: tls_ca_file in " + conf_path_ + " " + says);
    }
    EXPECT_EQ(nobody.heard(), "");
}

// As they are after conf_set_string: it replaces every line that contains the key.
TEST_F(TlsSend, TakesLinesThatAreTheSame)
{
    std::string const overlong(9000, 'x');
    for (std::string const& lines :
         {line("smtp_tls", "no") + line("smtp_tls", "no"),
          line("smtp_tls", "no") + std::string(4080, '\n') + line("smtp_tls", "no") + overlong}) {
        local_server server(helo + delivery);
        EXPECT_EQ(send(smtp_at(server.port()) + lines).result, send_ok);
    }
}

TEST_F(TlsSend, PassesOverComments)
{
    for (std::string const& lines :
         {std::string("# smtp_tls = tls\r\n"), "#" + std::string(9000, 'x') + "smtp_tls\r\n",
          std::string(2000, 'x') + "\r\n# smtp_tls = tls\r\n"}) {
        local_server server(helo + delivery);
        EXPECT_EQ(send(smtp_at(server.port()) + lines).result, send_ok);
    }
}

// Whatever else is in the file: who asks for no TLS notices nothing.
TEST_F(TlsSend, SendsPlainlyWhereNoKeyCanBe)
{
    std::string three_megabytes;
    for (int i = 0; i < 3000; ++i) {
        three_megabytes += std::string(1000, 'x') + "\r\n";
    }
    for (std::string const& lines :
         {std::string("no line end"), std::string("no CR\n\n\n"), std::string("a NUL\0\r\n", 8),
          std::string(1100, 'x') + "\r\n", std::string(2 << 20, 'x'),
          std::string(1100, 'x') + "\r\n" + three_megabytes, std::string(2 << 20, '\0'),
          std::string(1, '\0') + three_megabytes, three_megabytes,
          std::string("smtp_tl\r\ns = tls\r\n")}) {
        local_server server(helo + delivery);
        EXPECT_EQ(send(smtp_at(server.port()) + lines).result, send_ok) << lines.substr(0, 20);
    }
}

TEST_F(TlsSend, NeverGoesWithoutWhileTheSettingsAreReplaced)
{
    mail_server const plain;
    std::string const settings = smtp_at(plain.smtp_port()) + line("smtp_tls", "tls") + trust();
    write_file(conf_path_, settings);
    std::atomic<bool> over{false};
    std::thread       writer([&] {
        while (!over) {
            conf_set_string("subject_use_encoding", "yes", conf_path_.c_str());
            ::usleep(100);
        }
    });
    // A send that comes while there is no file does not get so far.
    for (int found = 0; found < 1000;) {
        std::string text;
        int const   result = isendw().send(msg_path_.c_str(), conf_path_.c_str(), text);
        EXPECT_TRUE(result == send_not_connected || result == send_no_server) << result;
        found += result != send_no_server;
    }
    over = true;
    writer.join();
    EXPECT_EQ(plain.mails().size(), 0U);
}

// ---- servers without TLS

TEST_F(TlsSend, SaysNoMoreThanEhloToAServerThatDoesNotOfferIt)
{
    local_server server(greeted + answered("ehlo {host}", "250 SIZE 5"));
    expect_refused(smtp_at(server.port()) + line("smtp_tls", "starttls") + trust(),
                   send_not_connected, eml_cause_tls, "tls",
                   "TLS: the server does not offer STARTTLS");
    EXPECT_EQ(server.heard(), server.expected()) << server.problem();
}

TEST_F(TlsSend, SaysNoMoreThanCapaToAPopServerThatDoesNotOfferIt)
{
    local_server pop(pop_greeted + "C: capa\nS: +OK\nS: USER\nS: .\n");
    local_server nobody(nobody_comes);
    expect_refused(pop_at(pop.port()) + line("pop_tls", "starttls") + smtp_at(nobody.port()),
                   pop_start_failed, eml_cause_tls, "pop tls",
                   "TLS: the server does not offer STLS");
    EXPECT_EQ(pop.heard(), pop.expected()) << pop.problem();
    EXPECT_EQ(nobody.heard(), "");
}

TEST_F(TlsSend, SaysWhichReplyRefusedIt)
{
    local_server server(greeted + "C: ehlo {host}\nS: 250-mail.test\nS: 250 STARTTLS\n" +
                        answered("starttls", "454 not today"));
    expect_refused(smtp_at(server.port()) + line("smtp_tls", "starttls"), send_not_connected,
                   eml_cause_refused_now, "tls", "TLS: the server refused STARTTLS: 454 not today");
    EXPECT_EQ(server.heard(), server.expected()) << server.problem();
}

TEST_F(TlsSend, SaysWhyTheCertificateIsNotTrusted)
{
    tls_front server(ca().issue({{"mail.test"}, {}, -9, -2}), {});
    expect_refused(smtp_at(server.port()) + line("smtp_tls", "tls") + trust(), send_not_connected,
                   eml_cause_tls, "tls",
                   "TLS: the certificate of mail.test is not trusted: expired on " + day_in(-2));
    EXPECT_EQ(server.heard_inside(), "");
}

TEST_F(TlsSend, TrustsTheSystemsAuthoritiesOnlyByItself)
{
    tls_front     server(ca().issue(), {});
    outcome const o = send(smtp_at(server.port()) + line("smtp_tls", "tls"));
    EXPECT_EQ(o.result, send_not_connected);
    EXPECT_EQ(o.reason.substr(0, 5), "TLS: ");
    EXPECT_EQ(server.heard_inside(), "");
}

TEST_F(TlsSend, SaysThatThePluginIsMissing)
{
    set_plugin_folder("/nonexistent");
    listening_socket door;
    outcome const    o = send(smtp_at(door.port()) + line("smtp_tls", "tls"));
    EXPECT_EQ(o.result, send_not_connected);
    EXPECT_EQ(o.text, untouched);
    EXPECT_EQ(o.cause, eml_cause_tls);
    EXPECT_EQ(o.step, "tls");
    EXPECT_EQ(o.reason.find("TLS: the plug-in cannot be loaded: "), 0U) << o.reason;
    EXPECT_NE(o.reason.find("/nonexistent/" ZELIEML_TEST_PLUGIN_NAME), o.reason.npos) << o.reason;
}

TEST_F(TlsSend, TellsThePluginWhatItNeedsAndHowLongItMayTake)
{
    set_plugin_folder(ZELIEML_ASKING_PLUGIN_FOLDER);
    listening_socket  door;
    std::string const at     = smtp_at(door.port());
    std::string const limits = ", 15000 ms, 30000 ms";
    expect_refused(at + line("smtp_tls", "tls"), send_not_connected, eml_cause_tls, "tls",
                   "TLS: mail.test by the system's authorities as '', before it 0" + limits);
    expect_refused(at + line("smtp_tls", "starttls") + line("tls_ca_file", "/ca.pem"),
                   send_not_connected, eml_cause_tls, "tls",
                   std::string("TLS: mail.test by /ca.pem as '") + greeting_literal +
                       "', before it 1" + limits);
    expect_refused(pop_at(door.port()) + line("pop_tls", "starttls") + at, pop_start_failed,
                   eml_cause_tls, "pop tls",
                   "TLS: mail.test by the system's authorities as '', before it 2" + limits);
}

// ---- server records

struct server_record {
    server_record(std::uint16_t port, char const* smtp_tls, char const* pop_tls,
                  std::string const& ca_file)
    {
        server_create(&record);
        set_pop(record, "mail.test", "anna", "secret", "pop", port, 0);
        set_smtp(record, "mail.test", "joe", "secret", "on", port);
        // Copies: these strings are gone when they are used.
        EXPECT_EQ(set_tls(record, std::string(smtp_tls).c_str(), std::string(pop_tls).c_str(),
                          std::string(ca_file).c_str()),
                  0);
    }
    ~server_record() { server_destroy(record); }
    server_record(server_record const&)            = delete;
    server_record& operator=(server_record const&) = delete;

    void* record = nullptr;
};

TEST_F(TlsSend, TestsLoginsInside)
{
    local_server smtp(greeted + ehlo_inside + "C: AUTH CRAM-MD5\nS64: 334 <1@x>\n" +
                      answered("{any}", "235 ok") + closing);
    local_server pop(pop_login() + pop_closing);
    tls_manners  smtp_manners;
    tls_manners  pop_manners;
    smtp_manners.in_front_of = smtp.port();
    pop_manners.in_front_of  = pop.port();
    pop_manners.in_clear     = stls();
    tls_front smtp_server(ca().issue(), smtp_manners);
    tls_front pop_server(ca().issue(), pop_manners);
    char      reason[EML_REASON_SIZE];

    server_record const of_smtp(smtp_server.port(), "tls", "no", ca_path_);
    EXPECT_EQ(test_smtp_auth_sized(of_smtp.record, "off", nullptr, 0, reason, sizeof reason),
              eml_send_ok)
        << reason;
    server_record const of_pop(pop_server.port(), "no", "starttls", ca_path_);
    EXPECT_EQ(test_pop_auth_sized(of_pop.record, nullptr, 0, reason, sizeof reason), eml_send_ok)
        << reason;
}

TEST_F(TlsSend, ReceivesInside)
{
    local_server pop(pop_greeted + pop_login() + answered("stat", "+OK 0 0") + pop_closing);
    tls_manners  manners;
    manners.in_front_of = pop.port();
    tls_front           server(ca().issue(), manners);
    server_record const record(server.port(), "no", "tls", ca_path_);
    void*               list = nullptr;
    ASSERT_EQ(receive_msg_create(&list), 0);
    EXPECT_EQ(receive_mails(record.record, list, ""), 0);
    EXPECT_EQ(pop.heard(), pop.expected()) << pop.problem();
    receive_msg_destroy(list);
}

TEST_F(TlsSend, GivesARecordNoConnectionWhenItIsUnclear)
{
    local_server        nobody(nobody_comes);
    char                reason[EML_REASON_SIZE];
    server_record const record(nobody.port(), "TLS", "", ca_path_);
    EXPECT_EQ(test_smtp_auth_sized(record.record, "off", nullptr, 0, reason, sizeof reason),
              eml_send_error_connection);
    EXPECT_STREQ(reason, "TLS: smtp_tls of the server record must be no, starttls or tls");
    EXPECT_EQ(test_pop_auth_sized(record.record, nullptr, 0, reason, sizeof reason),
              eml_send_error_connection);
    EXPECT_STREQ(reason, "TLS: pop_tls of the server record must be no, starttls or tls");
    server_record const somewhere(nobody.port(), "tls", "tls", "ca.pem");
    EXPECT_EQ(test_smtp_auth_sized(somewhere.record, "off", nullptr, 0, reason, sizeof reason),
              eml_send_error_connection);
    EXPECT_STREQ(reason, "TLS: ca_file of the server record must be a full path");
    EXPECT_EQ(nobody.heard(), "");
}

// ---- the probe

void note_step(eml_probe_step const* step, void* user)
{
    static_cast<strings*>(user)->push_back(std::string(step->name) +
                                           (step->outcome == eml_probe_failed ? " failed" : ""));
}

TEST_F(TlsSend, IsAStepOfTheProbe)
{
    local_server mail(helo + answered("ehlo {host}", "250 mail.test") + closing);
    tls_manners  manners;
    manners.in_front_of = mail.port();
    tls_front server(ca().issue(), manners);
    strings   steps;
    write_file(conf_path_, smtp_at(server.port()) + line("smtp_tls", "tls") + trust());
    EXPECT_EQ(probe(conf_path_.c_str(), nullptr, nullptr, note_step, &steps), 0);
    EXPECT_EQ(steps, (strings{"settings", "look-up", "connect", "tls", "greeting", "helo", "offer",
                              "quit"}));

    steps.clear();
    write_file(conf_path_, smtp_at(server.port()) + line("smtp_tls", "tls"));
    EXPECT_EQ(probe(conf_path_.c_str(), nullptr, nullptr, note_step, &steps), -1);
    EXPECT_EQ(steps, (strings{"settings", "look-up", "connect", "tls failed"}));

    steps.clear();
    write_file(conf_path_, smtp_at(server.port()) + line("smtp_tls", "yes"));
    EXPECT_EQ(probe(conf_path_.c_str(), nullptr, nullptr, note_step, &steps), -1);
    EXPECT_EQ(steps, strings{"settings failed"});
}

// ---- children

TEST_F(TlsSend, HangsUpThoughAChildHasTheConnection)
{
    std::atomic<bool> over{false};
    tls_manners       manners;
    manners.inside = [&](gnutls_session_t) { wait_until([&] { return over.load(); }, a_minute); };
    tls_front  server(ca().issue(), manners);
    int const  alone   = running_threads();
    _s_pop*    session = new _s_pop();
    tls_choice choice  = {tls_mode::tls, ca_path_};
    ASSERT_EQ(tunnel_connect_host("mail.test", server.port(), &choice, tunnel_protocol::pop,
                                  session->socket, pop_connecting, nullptr),
              0);
    session->connected = true;
    session->tunneled  = ::getpid();
    pid_t const child  = ::fork();
    if (child == 0) {
        ::sleep(30);
        ::_exit(0);
    }
    pop_abandon_session(session);
    EXPECT_TRUE(wait_for_running_threads(alone));
    EXPECT_EQ(::waitpid(child, nullptr, WNOHANG), 0);
    over = true;
    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);
}

// What a probe's callback does in a process, and what its children came to.
struct forking {
    pid_t parent   = ::getpid();
    int   children = 0;
    int   wrong    = 0;

    // Not where the greeting may be unread: a child that closes takes that in the fake of macOS.
    static void at_most_steps(eml_probe_step const* step, void* user)
    {
        auto&             f    = *static_cast<forking*>(user);
        std::string const name = step->name;
        bool const  greeting   = name.find("connect") != name.npos || name.find("tls") != name.npos;
        pid_t const child      = ::getpid() == f.parent && !greeting ? ::fork() : -1;
        if (child > 0) {
            int status = 0;
            ::waitpid(child, &status, 0);
            ++f.children;
            f.wrong += status == 0 ? 0 : 1;
        }
    }
};

TEST_F(TlsSend, StaysWithTheParentWhenAChildReturnsFromACallback)
{
    local_server mail(helo + answered("ehlo {host}", "250 mail.test") + closing);
    local_server pop(pop_login() + pop_closing);
    tls_manners  manners;
    manners.in_front_of = mail.port();
    tls_manners pop_manners;
    pop_manners.in_front_of = pop.port();
    pop_manners.in_clear    = stls();
    tls_front server(ca().issue(), manners);
    tls_front pop_server(ca().issue(), pop_manners);
    write_file(conf_path_, pop_at(pop_server.port()) + line("pop_tls", "starttls") +
                               smtp_at(server.port()) + line("smtp_tls", "tls") + trust());
    forking   at;
    int const result = probe(conf_path_.c_str(), nullptr, nullptr, forking::at_most_steps, &at);
    if (::getpid() != at.parent) {
        ::_exit(result == -1 ? 0 : 1);
    }
    EXPECT_EQ(result, 0);
    EXPECT_EQ(at.children, 11);
    EXPECT_EQ(at.wrong, 0);
    EXPECT_EQ(mail.heard(), mail.expected()) << mail.problem();
    EXPECT_EQ(pop.heard(), pop.expected()) << pop.problem();
}

TEST_F(TlsSend, LetsTheProcessExitRightAfterwards)
{
    SKIP_UNLESS(has_backend("linux"), "macOS allows no frameworks in a forked child");
    SKIP_UNLESS(!has_sanitizer("thread"), "the thread sanitizer allows no threads in a child");
    mail_server mail;
    tls_manners manners;
    manners.in_front_of = mail.smtp_port();
    tls_front server(ca().issue(), manners);
    write_file(conf_path_, smtp_at(server.port()) + line("smtp_tls", "tls") + trust());
    for (int i = 0; i < 10; ++i) {
        pid_t const child = ::fork();
        if (child == 0) {
            std::string text;
            std::exit(isendw().send(msg_path_.c_str(), conf_path_.c_str(), text));
        }
        int status = -1;
        ::waitpid(child, &status, 0);
        EXPECT_EQ(status, 0);
        // No child is forked while the server has locks of libraries, which the exit needs.
        EXPECT_TRUE(wait_until([&] { return server.clients() == i + 1; }));
        EXPECT_TRUE(server.wait());
    }
    EXPECT_EQ(mail.mails().size(), 10U);
}

// ---- cancellation

struct cancelled_send {
    std::string msg;
    std::string conf;
};

void* send_until_cancelled(void* argument)
{
    auto const& files = *static_cast<cancelled_send*>(argument);
    std::string text;
    isendw().send(files.msg.c_str(), files.conf.c_str(), text);
    return nullptr;
}

TEST_F(TlsSend, CanBeCancelledWhereverItWaits)
{
    SKIP_UNLESS(platform::cancellation_unwinds, "cancellation waits for the end of the call");
    SKIP_UNLESS(!has_sanitizer("address"), "it takes the unwinding for a stack overflow");
    struct {
        char const*           name;
        char const*           mode;
        std::vector<exchange> in_clear;
        bool                  stalls;
    } const places[] = {
        {"the greeting before TLS", "starttls", {}, true},
        {"the handshake", "tls", {}, true},
        {"the greeting inside", "tls", {}, false},
        {"a reply inside", "starttls", starttls_for(greeting_literal), false},
    };
    for (auto const& place : places) {
        SCOPED_TRACE(place.name);
        std::atomic<bool> inside{false};
        tls_manners       manners;
        manners.stalls   = place.stalls;
        manners.in_clear = place.in_clear;
        manners.inside   = [&](gnutls_session_t session) {
            inside = true;
            char bytes[100];
            while (gnutls_record_recv(session, bytes, sizeof bytes) > 0) {
            }
        };
        tls_front server(ca().issue(), manners);
        write_file(conf_path_, smtp_at(server.port()) + line("smtp_tls", place.mode) + trust());
        cancelled_send files{msg_path_, conf_path_};
        pthread_t      thread;
        ASSERT_EQ(::pthread_create(&thread, nullptr, send_until_cancelled, &files), 0);
        EXPECT_TRUE(
            wait_until([&] { return place.stalls ? server.clients() == 1 : inside.load(); }));
        ::pthread_cancel(thread);
        void* result = nullptr;
        ::pthread_join(thread, &result);
        EXPECT_EQ(result, PTHREAD_CANCELED);
        EXPECT_TRUE(server.wait()) << "nobody hangs up";
    }
}

}  // namespace

}  // namespace zelieml::test
