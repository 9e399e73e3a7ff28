// cancel_test.cpp - a thread that is cancelled inside a post ends, and nothing else does
//
// It ends there if cancellation unwinds, or else after the post.

#include <gtest/gtest.h>
#include <memory>
#include <pthread.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "platform/cancellation.h"
#include "support/unique_fd.h"
#include "tests/support/files.h"
#include "tests/support/mail_server.h"
#include "tests/support/peers.h"
#include "zelieml.h"

using zelieml::test::mail_server;
using zelieml::test::temp_dir;

namespace
{

using strings = std::vector<std::string>;

// A server that says and hears one line at a time: the test knows how far the client has come.
class slow_server
{
public:
    int  port() const { return listener_.port(); }
    void accept() { client_ = listener_.accept(); }

    void say(std::string const& text)
    {
        EXPECT_EQ(::write(client_.get(), text.data(), text.size()),
                  static_cast<ssize_t>(text.size()));
    }

    // Waits until the client has said this, or for the end of what it says.
    void hear(std::string const& end)
    {
        std::string heard;
        char        byte = 0;
        while (heard.size() < end.size() ||
               heard.compare(heard.size() - end.size(), end.size(), end) != 0) {
            if (::read(client_.get(), &byte, 1) != 1) {
                return;
            }
            heard += byte;
        }
    }
    void hear_the_end() { hear("what no client says"); }
    void hang_up() { client_.reset(); }

private:
    zelieml::test::listening_socket listener_;
    zelieml::unique_fd              client_;
};

struct step {
    std::string say;
    std::string hear;
};

// Up to the data command, and to the end of the mail.
std::vector<step> const to_data = {{"220 ready\r\n", "\r\n"},
                                   {"250 hello\r\n", "\r\n"},
                                   {"250 ok\r\n", "\r\n"},
                                   {"250 ok\r\n", "data\r\n"}};
std::vector<step> const to_end  = {{"354 go on\r\n", "\r\n.\r\n"}, {"250 ok\r\n", "quit\r\n"}};

struct posting {
    std::string workdir;
    void*       msg    = nullptr;
    void*       result = nullptr;
};

void* post(void* argument)
{
    auto* const p = static_cast<posting*>(argument);
    eml_post_sync(p->workdir.c_str(), p->msg, &p->result);
    ::pthread_testcancel();
    return nullptr;
}

}  // namespace

class Cancel : public ::testing::Test
{
protected:
    Cancel()
    {
        ::mkdir(p_.workdir.c_str(), 0777);
        eml_msg_create(&p_.msg);
        eml_msg_set_to(p_.msg, "anna@b.test");
    }
    ~Cancel() override { eml_msg_destroy(p_.msg); }

    void settings(int port) const
    {
        zelieml::test::write_file(p_.workdir + "/zelismes.cf",
                                  "smtp_server = 127.0.0.1\r\nsmtp_port = " + std::to_string(port) +
                                      "\r\n");
    }

    // Cancels a post after these steps, and then posts again.
    void cancel_after(std::vector<step> const& steps, std::string const& last_word = "",
                      bool ended = false)
    {
        int const descriptors = zelieml::test::open_descriptors();
        {
            slow_server server;
            settings(server.port());
            pthread_t thread;
            ASSERT_EQ(::pthread_create(&thread, nullptr, post, &p_), 0);
            server.accept();
            for (step const& s : steps) {
                server.say(s.say);
                server.hear(s.hear);
            }
            server.say(last_word);
            if (ended) {
                server.hear_the_end();
            }

            ASSERT_EQ(::pthread_cancel(thread), 0);
            if (!zelieml::platform::cancellation_unwinds) {
                server.hang_up();
            }

            void* result = nullptr;
            ASSERT_EQ(::pthread_join(thread, &result), 0);
            EXPECT_EQ(result, PTHREAD_CANCELED);
            EXPECT_EQ(p_.result == nullptr, zelieml::platform::cancellation_unwinds);
            eml_cb_delete(p_.result);
            p_.result = nullptr;
        }
        EXPECT_EQ(zelieml::test::open_descriptors(), descriptors);

        mail_server server;
        settings(server.smtp_port());
        post(&p_);
        eml_send_e code = eml_send_error_other;
        EXPECT_EQ(eml_cb_get_code(p_.result, &code), 0);
        EXPECT_EQ(code, eml_send_ok);
        EXPECT_EQ(eml_cb_delete(p_.result), 0);
        EXPECT_TRUE(server.wait_for_mails(1));
    }

private:
    temp_dir const dir_;
    posting        p_ = {dir_.file("w"), nullptr, nullptr};
};

TEST_F(Cancel, WhileWaitingForTheGreeting)
{
    cancel_after({});
}

TEST_F(Cancel, WhileWaitingForTheAnswerToACommand)
{
    cancel_after({{"220 ready\r\n", "\r\n"}});
}

TEST_F(Cancel, WhileWaitingForTheRestOfALine)
{
    cancel_after({{"220 ready\r\n", "\r\n"}}, "250 hel");
}

TEST_F(Cancel, WhileWaitingForTheAnswerToTheMail)
{
    std::vector<step> steps = to_data;
    steps.push_back(to_end[0]);
    cancel_after(steps);
}

TEST_F(Cancel, WhileWaitingForTheServerToClose)
{
    std::vector<step> steps = to_data;
    steps.insert(steps.end(), to_end.begin(), to_end.end());
    cancel_after(steps, "221 bye\r\n", true);
}
