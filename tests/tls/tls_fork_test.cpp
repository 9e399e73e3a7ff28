// Forked children, which have all descriptors of a session inside TLS.

#include <atomic>
#include <csignal>
#include <cstring>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "libsendw/libsendw.h"
#include "libsendw/probe.h"
#include "platform/cancellation.h"
#include "tests/support/clean_machine.h"
#include "tests/support/dialogues.h"
#include "tests/support/fake_plugin_folder.h"
#include "tests/support/peers.h"
#include "tests/support/skip.h"
#include "tests/support/wait_until.h"
#include "tests/tls/authority.h"
#include "tests/tls/tls_front.h"

namespace zelieml::test
{

namespace
{

class TlsFork : public on_a_clean_machine
{
protected:
    void SetUp() override
    {
        on_a_clean_machine::SetUp();
        add_host("mail.test", "127.0.0.1");
        set_plugin_folder(ZELIEML_TEST_PLUGIN_FOLDER);
        write_file(msg_path_, "encoding: UTF-8\nfrom: p@a.test\nto: x@b.test\nsubject: hello\n"
                              "replyto: reply@a.test\nthe paper is empty");
        write_file(ca_path_, ca_.certificate());
        descriptors_ = open_descriptors();
    }

    void TearDown() override
    {
        EXPECT_TRUE(wait_until([this] { return open_descriptors() == descriptors_; }));
        on_a_clean_machine::TearDown();
    }

    void settings(std::uint16_t port, std::uint16_t pop_port = 0)
    {
        std::string text = "smtp_tls = tls\r\npop_tls = tls\r\ntls_ca_file = " + ca_path_ +
                           "\r\nsmtp_server = mail.test\r\nsmtp_port = " + std::to_string(port) +
                           "\r\n";
        if (pop_port != 0) {
            text += "pop_before_smtp = yes\r\npop_server = mail.test\r\npop_port = " +
                    std::to_string(pop_port) +
                    "\r\npop_account = anna\r\npop_passwd = secret\r\npasswd_raw = yes\r\n";
        }
        write_file(conf_path_, text);
    }

    authority   ca_;
    temp_dir    dir_;
    std::string conf_path_ = dir_.file("zelismes.cf");
    std::string msg_path_  = dir_.file("0000000000.sme");
    std::string ca_path_   = dir_.file("ca.pem");

private:
    int descriptors_ = 0;
};

// What a probe's callback does in a process, and what its children came to.
struct forking {
    pid_t       parent   = ::getpid();
    std::string children = "";  // the steps
    int         wrong    = 0;

    static void at_each_step(eml_probe_step const* step, void* user)
    {
        auto&       f     = *static_cast<forking*>(user);
        pid_t const child = ::getpid() == f.parent ? ::fork() : -1;
        if (child > 0) {
            int status = 0;
            ::waitpid(child, &status, 0);
            f.children += std::string(step->name) + "|";
            f.wrong += status == 0 ? 0 : 1;
        }
    }
};

TEST_F(TlsFork, LeavesTheSessionToTheParentAtEachStep)
{
    SKIP_UNLESS(!has_backend("macos-fake"), "a child that closes takes what nobody has read");
    std::string const closes = "S: (closes)\n";
    local_server      mail(helo + answered("ehlo {host}", "250 mail.test") +
                           answered("quit", "221 bye") + closes);
    local_server      pop(pop_greeted + pop_login() + answered("quit", "+OK bye") + closes);
    tls_manners       manners;
    tls_manners       pop_manners;
    manners.in_front_of     = mail.port();
    pop_manners.in_front_of = pop.port();
    tls_front server(ca_.issue(), manners);
    tls_front pop_server(ca_.issue(), pop_manners);
    settings(server.port(), pop_server.port());
    forking   at;
    int const result = probe(conf_path_.c_str(), nullptr, nullptr, forking::at_each_step, &at);
    if (::getpid() != at.parent) {
        ::_exit(result == -1 ? 0 : 1);
    }
    EXPECT_EQ(result, 0);
    EXPECT_EQ(at.children,
              "settings|pop look-up|pop connect|pop tls|pop greeting|pop login|pop quit|pop wait|"
              "look-up|connect|tls|greeting|helo|offer|quit|");
    EXPECT_EQ(at.wrong, 0);
    EXPECT_EQ(mail.heard(), mail.expected()) << mail.problem();
    EXPECT_EQ(pop.heard(), pop.expected()) << pop.problem();
}

void* send_until_cancelled(void* argument)
{
    auto const& test = *static_cast<std::pair<std::string, std::string>*>(argument);
    std::string text;
    isendw().send(test.first.c_str(), test.second.c_str(), text);
    return nullptr;
}

TEST_F(TlsFork, HangsUpInTheHandshakeThoughAChildHasTheConnection)
{
    SKIP_UNLESS(platform::cancellation_unwinds, "cancellation waits for the end of the call");
    SKIP_UNLESS(!has_sanitizer("address"), "it takes the unwinding for a stack overflow");
    listener server;
    settings(server.port());
    std::pair<std::string, std::string> files(msg_path_, conf_path_);
    pthread_t                           thread;
    ASSERT_EQ(::pthread_create(&thread, nullptr, send_until_cancelled, &files), 0);
    EXPECT_TRUE(wait_until([&] { return server.has_heard(); }));
    pid_t const child = ::fork();
    if (child == 0) {
        ::sleep(60);
        ::_exit(0);
    }
    ::pthread_cancel(thread);
    ::pthread_join(thread, nullptr);
    EXPECT_TRUE(wait_until([&] { return server.has_ended(); }));
    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);
}

}  // namespace

}  // namespace zelieml::test
