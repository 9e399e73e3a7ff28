// fork_calls_test.cpp - what else a forked child of a process with an engine may do

#include <csignal>
#include <functional>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/support/skip.h"
#include "tests/support/workplace.h"

namespace zelieml::test
{

namespace
{

notification_root const root;

// Forks, and makes the call in the child; whether it was true. One that hangs is ended.
bool in_a_child(std::function<bool()> const& call)
{
    ::pid_t const child = ::fork();
    if (child == 0) {
        std::signal(SIGALRM, SIG_DFL);
        ::alarm(30);
        ::_exit(call() ? 0 : 1);
    }
    int status = -1;
    return ::waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

}  // namespace

class ForkCalls : public ::testing::Test
{
protected:
    void SetUp() override
    {
        SKIP_UNLESS(has_backend("linux"), "macOS allows no frameworks in a forked child");
        ASSERT_EQ(eml_start_with_stocksymbol(work_.path(), "symbol", &engine_), 0);
    }
    void TearDown() override { eml_stop(engine_); }

    mail_server server_;
    workplace   work_{server_.smtp_port()};

private:
    void* engine_ = nullptr;
};

TEST_F(ForkCalls, SendAMail)
{
    EXPECT_TRUE(in_a_child([&] {
        void* const msg    = new_mail("from the child");
        void*       result = nullptr;
        int const   status = eml_post_sync(work_.path(), msg, &result);
        eml_cb_delete(result);
        eml_msg_destroy(msg);
        return status == 0;
    }));
    EXPECT_EQ(subjects_of(server_.mails()), strings{"from the child"});
}

TEST_F(ForkCalls, ReachTheParentsEngine)
{
    EXPECT_TRUE(in_a_child([&] { return post_mail(work_.path(), "symbol", "posted") == 0; }));
    EXPECT_TRUE(server_.wait_for_mails(1));
}

TEST_F(ForkCalls, TestLoginsAndReceive)
{
    server_.put("From: a@a.test\r\n\r\n");
    EXPECT_TRUE(in_a_child([&] {
        void* record = nullptr;
        void* list   = nullptr;
        bool  good   = server_info_create(&record) == 0 && eml_receive_msg_create(&list) == 0;
        server_info_set_pop(record, "127.0.0.1", "user", "password", "apop", server_.pop_port(), 0);
        good = good && test_pop_auth(record, nullptr) == eml_send_ok &&
               eml_receive_mails(record, list, nullptr) == 0 && eml_receive_msg_count(list) == 1;
        eml_receive_msg_destroy(list);
        server_info_destroy(record);
        return good;
    }));
    EXPECT_EQ(server_.mailbox(), strings());
}

TEST_F(ForkCalls, ReadAndWriteSettingsAndPasswords)
{
    EXPECT_TRUE(in_a_child([&] {
        std::string const    path     = work_.file("zelismes.cf");
        unsigned char        secret[] = "secret";
        unsigned char* const stored   = eml_encrypt_passwd(secret);
        char                 value[64];
        unsigned int         length = sizeof value;
        bool const           good =
            stored != nullptr &&
            eml_cf_set_string("smtp_passwd", reinterpret_cast<char*>(stored), path.c_str()) == 0 &&
            eml_cf_get_string("smtp_passwd", value, &length, path.c_str()) == 0 &&
            std::string(value) == reinterpret_cast<char*>(stored);
        eml_encrypt_free_passwd(stored);
        return good;
    }));
}

}  // namespace zelieml::test
