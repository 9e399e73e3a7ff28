// cancel_anywhere_test.cpp - a thread that is cancelled anywhere inside a call of the library ends,
// and the process goes on
//
// The trace hook of this program cancels its own thread at the n-th trace: the request is then
// pending at the next call that can be cancelled, such as the closing of a descriptor or a file.
// Where cancellation does not unwind, the thread ends after the call only.

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <pthread.h>
#include <string>

#include "liblog/trace.h"
#include "platform/cancellation.h"
#include "tests/api/quiet_descriptors.h"
#include "tests/support/files.h"
#include "tests/support/mail_server.h"
#include "zelieml.h"
#include "zelieml_ext.h"

namespace
{

thread_local int traces_left = -1;  // until the request; negative: none

}  // namespace

void zelieml::trace_msg(char const* /*trace*/)
{
    if (traces_left > 0 && --traces_left == 0) {
        ::pthread_cancel(::pthread_self());
    }
}

namespace
{

using call = std::function<void()>;

struct victim {
    call const* run;
    int         traces;
    bool        reached  = false;  // the request was made
    bool        returned = false;  // from the call
};

void* run_victim(void* argument)
{
    auto* const v = static_cast<victim*>(argument);
    traces_left   = v->traces;
    // Also when the thread is cancelled here.
    struct at_end {
        victim* of;
        ~at_end() { of->reached = traces_left == 0; }
    } const note = {v};
    (*v->run)();
    v->returned = true;
    ::pthread_testcancel();
    return nullptr;
}

// Makes the call with the request at its first trace, its second, and so on to its last. Returns
// how many there are.
int cancel_everywhere(call const& run)
{
    for (int traces = 1;; ++traces) {
        victim    v      = {&run, traces};
        pthread_t thread = {};
        EXPECT_EQ(::pthread_create(&thread, nullptr, run_victim, &v), 0);
        void* result = nullptr;
        EXPECT_EQ(::pthread_join(thread, &result), 0);
        EXPECT_EQ(result, v.reached ? PTHREAD_CANCELED : nullptr) << traces;
        EXPECT_TRUE(v.returned || zelieml::platform::cancellation_unwinds) << traces;
        if (!v.reached) {
            return traces - 1;
        }
    }
}

class CancelAnywhere : public ::testing::Test
{
protected:
    CancelAnywhere()
    {
        std::filesystem::create_directories(dir_.file("root/tmp"));
        std::filesystem::create_directory(work_);
        ::setenv("ZELIEML_NOTIFICATION_ROOT", dir_.file("root").c_str(), 1);
        eml_msg_create(&msg_);
        eml_msg_set_to(msg_, "anna@b.test, ben@b.test");
        eml_msg_set_body(msg_, "ready\n");
    }
    ~CancelAnywhere() override { eml_msg_destroy(msg_); }

    zelieml::test::temp_dir const dir_;
    std::string const             work_ = dir_.file("work");
    void*                         msg_  = nullptr;
};

TEST_F(CancelAnywhere, InSendingAMessage)
{
    zelieml::test::mail_server server;
    zelieml::test::write_file(
        work_ + "/zelismes.cf",
        "smtp_server = 127.0.0.1\r\nsmtp_port = " + std::to_string(server.smtp_port()) +
            "\r\nsmtp_auth = yes\r\nsmtp_account = user\r\n"
            "smtp_passwd = password\r\npasswd_raw = yes\r\n");
    int const points = cancel_everywhere([&] {
        void* result = nullptr;
        eml_post_sync(work_.c_str(), msg_, &result);
        eml_cb_delete(result);
    });
    EXPECT_GT(points, 50);
}

TEST_F(CancelAnywhere, InLoginTestsAndReceiving)
{
    int const descriptors = zelieml::test::open_descriptors();
    {
        zelieml::test::mail_server host;
        void*                      server = nullptr;
        ASSERT_EQ(server_info_create(&server), 0);
        server_info_set_pop(server, "127.0.0.1", "user", "password", "pop", host.pop_port(), 0);
        server_info_set_smtp(server, "127.0.0.1", "user", "password", "on", host.smtp_port());

        EXPECT_GT(cancel_everywhere([&] { test_smtp_auth(server, "on", nullptr); }), 20);

        void* list = nullptr;
        ASSERT_EQ(eml_receive_msg_create(&list), 0);
        EXPECT_GT(cancel_everywhere([&] {
                      host.put("From: anna@a.test\r\n\r\n");
                      eml_receive_mails(server, list, "a.test");
                  }),
                  20);
        // The list can be used after a thread was cancelled that changed it.
        EXPECT_EQ(eml_receive_mails(server, list, nullptr), 0);
        eml_receive_msg_destroy(list);
        server_info_destroy(server);
    }
    EXPECT_EQ(zelieml::test::open_descriptors(), descriptors);
}

TEST_F(CancelAnywhere, InAProbe)
{
    int const descriptors = zelieml::test::open_descriptors();
    {
        zelieml::test::mail_server server;
        zelieml::test::write_file(work_ + "/zelismes.cf",
                                  "pop_before_smtp = yes\r\npop_server = 127.0.0.1\r\npop_port = " +
                                      std::to_string(server.pop_port()) +
                                      "\r\npop_account = user\r\npop_passwd = password\r\n"
                                      "smtp_server = 127.0.0.1\r\nsmtp_port = " +
                                      std::to_string(server.smtp_port()) +
                                      "\r\nsmtp_auth = yes\r\nsmtp_account = user\r\n"
                                      "smtp_passwd = password\r\npasswd_raw = yes\r\n");
        auto const ignore = [](eml_probe_step const*, void*) {};
        EXPECT_GT(cancel_everywhere(
                      [&] { eml_probe(work_.c_str(), "a@a.test", "b@b.test", ignore, nullptr); }),
                  50);
        auto const cancel = [](eml_probe_step const*, void*) {
            ::pthread_cancel(::pthread_self());
            ::pthread_testcancel();
        };
        EXPECT_EQ(eml_probe(work_.c_str(), nullptr, nullptr, ignore, nullptr), 0);
        call const in_the_callback = [&] {
            eml_probe(work_.c_str(), nullptr, nullptr, cancel, nullptr);
        };
        victim    v      = {&in_the_callback, -1};
        pthread_t thread = {};
        void*     result = nullptr;
        EXPECT_EQ(::pthread_create(&thread, nullptr, run_victim, &v), 0);
        EXPECT_EQ(::pthread_join(thread, &result), 0);
        EXPECT_EQ(result, PTHREAD_CANCELED);
        EXPECT_EQ(v.returned, !zelieml::platform::cancellation_unwinds);
    }
    EXPECT_EQ(zelieml::test::open_descriptors(), descriptors);
}

TEST_F(CancelAnywhere, InPosting)
{
    int const descriptors = zelieml::test::descriptors_without_an_engine(work_);
    void*     eml         = nullptr;
    ASSERT_EQ(eml_start(work_.c_str(), &eml), 0);
    EXPECT_GE(cancel_everywhere([&] { eml_post(work_.c_str(), msg_); }), 2);
    EXPECT_EQ(eml_stop(eml), 0);
    EXPECT_EQ(zelieml::test::open_descriptors(), descriptors);
}

// These are carried out to their end, and so is what follows them in the thread.
TEST_F(CancelAnywhere, HasNoEffectOnStartingAndStoppingAnEngine)
{
    std::atomic<int> failures{0};
    std::atomic<int> ends{0};
    int const        descriptors = zelieml::test::descriptors_without_an_engine(work_);
    int const        points      = cancel_everywhere([&] {
        void* eml = nullptr;
        failures += eml_start_with_stocksymbol(work_.c_str(), "", &eml) == -1 ? 0 : 1;
        failures += eml_start_with_stocksymbol(work_.c_str(), "first", &eml) == 0 ? 0 : 1;
        failures += eml_stop(eml) == 0 ? 0 : 1;
        failures += eml_start_with_stocksymbol(work_.c_str(), "second", &eml) == 0 ? 0 : 1;
        failures += eml_stop_multi(&eml) == 0 && eml == nullptr ? 0 : 1;
        ++ends;
    });
    EXPECT_GT(points, 20);
    EXPECT_EQ(failures, 0);
    EXPECT_EQ(ends, points + 1);
    EXPECT_EQ(zelieml::test::open_descriptors(), descriptors);
}

TEST_F(CancelAnywhere, InSettings)
{
    std::string const path = work_ + "/zelismes.cf";
    EXPECT_GT(cancel_everywhere([&] { eml_cf_set_string("smtp_port", "25", path.c_str()); }), 0);
    EXPECT_GT(cancel_everywhere([&] {
                  char         value[64];
                  unsigned int length = sizeof value;
                  eml_cf_get_string("not there", value, &length, path.c_str());
              }),
              1);
}

// A caller that cannot be cancelled cannot be cancelled afterwards either, and one that can, can.
TEST_F(CancelAnywhere, LeavesTheStateOfTheThread)
{
    for (int const state : {PTHREAD_CANCEL_DISABLE, PTHREAD_CANCEL_ENABLE}) {
        int before = -1;
        int after  = -1;
        ::pthread_setcancelstate(state, &before);
        eml_msg_set_subject(msg_, "subject");
        eml_post(work_.c_str(), msg_);
        void* eml = nullptr;
        eml_start(work_.c_str(), &eml);
        eml_stop(eml);
        ::pthread_setcancelstate(before, &after);
        EXPECT_EQ(after, state);
    }
}

TEST_F(CancelAnywhere, InLoadingWhatCannotBeLoaded)
{
    EXPECT_GT(cancel_everywhere([&] {
                  void* msg = nullptr;
                  eml_msg_load(&msg, work_.c_str());
                  eml_msg_destroy(msg);
              }),
              0);
}

}  // namespace
