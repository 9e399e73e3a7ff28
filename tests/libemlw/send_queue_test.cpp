// send_queue_test.cpp - what is due is sent, and what becomes of its file

#include <algorithm>
#include <cstdio>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <stdexcept>
#include <sys/stat.h>
#include <thread>

#include "libemlw/send.h"
#include "libsendw/libsendw.h"
#include "tests/libemlw/work_room.h"
#include "tests/support/dialogues.h"
#include "tests/support/scripted_server.h"
#include "tests/support/threads.h"
#include "tests/support/trace_recorder.h"
#include "tools/mailserver/server.h"

using namespace zelieml;
using zelieml::test::scripted_server;
using zelieml::test::strings;

namespace
{

strings operator+(strings a, strings const& b)
{
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

// One session as the server sees it; the mail is for the address, which names the message.
std::string delivery_to(std::string const& name)
{
    return test::helo + test::mail_from("r") + test::rcpt_to(name + "@a.test") + test::text_sent +
           test::goodbye;
}
std::string refusal_of(std::string const& name)
{
    return test::helo + test::mail_from("r") +
           test::refused_at("rcpt to: <" + name + "@a.test>", "550 no such user");
}
// One in which there is no message.
std::string const nothing_to_send = test::helo + test::hangs_up;

// What is said around the work of the send driver.
strings const chosen     = {"is_try_queue in try_count=%d interval=%d", "is_try_queue(true) %s %d",
                            "get file %s"};
strings const not_chosen = {"is_try_queue in try_count=%d interval=%d",
                            "is_try_queue out with false"};

}  // namespace

class SendQueue : public test::work_room
{
protected:
    SendQueue()
    {
        workdir().copy(engine_.workdir, workdir_size - 1);
        iqmgr* queue = nullptr;
        EXPECT_EQ(iqmgr_create(&queue), 0);
        engine_.queue = queue;
        ::pthread_mutex_init(&engine_.mutex, nullptr);
        set_callback_raw(&engine_, test::result_list::note, &attempts_);
    }
    ~SendQueue() override
    {
        ::pthread_mutex_destroy(&engine_.mutex);
        EXPECT_EQ(iqmgr_destroy(engine_.queue.exchange(nullptr)), 0);
    }

    iqmgr& queue() { return *engine_.queue.load(); }

    // A message file, queued, to that name at a.test.
    std::string message(std::string const& name)
    {
        work_room::message(name);
        queue().add({file(name)});
        return file(name);
    }
    // Settings for a server that plays this.
    void serve(std::vector<std::string> const& transcripts)
    {
        server_ = std::make_unique<scripted_server>(transcripts);
        server_->set_host("[192.0.2.10]");
        settings(server_->port());
    }
    scripted_server& server() { return *server_; }

    int send(unsigned int try_count = 0, unsigned int interval = 0)
    {
        test::clear_traces();
        return send_queue(&engine_, try_count, interval);
    }
    // What the driver says about one file, by itself. The file stays.
    strings drivers_traces(std::string const& path) const
    {
        test::clear_traces();
        std::string detail;
        isendw().send(path.c_str(), (workdir() + "/zelismes.cf").c_str(), detail);
        return test::traces();
    }

    strings fresh() { return due(0); }
    strings tried() { return due(1); }

    _s_iemlw          engine_;
    test::result_list attempts_;

private:
    strings due(unsigned int try_count)
    {
        strings paths;
        queue().get(paths, try_count, 0);
        return paths;
    }

    std::unique_ptr<scripted_server> server_;
};

// --------------------------------------------------------------- one attempt

TEST_F(SendQueue, OfNothingSendsNothing)
{
    EXPECT_EQ(send(), 0);
    EXPECT_EQ(test::traces(), (strings{"send_queue in", "send_queue out %d"}));
    EXPECT_TRUE(attempts_.all().empty());
}

TEST_F(SendQueue, DeletesWhatWasSentAndForgetsIt)
{
    message("anna");
    serve({delivery_to("anna")});
    EXPECT_EQ(send(), send_ok);
    EXPECT_EQ(attempts_.all(), (std::vector<test::result>{{eml_send_ok, "221 bye\r\n"}}));
    EXPECT_EQ(on_disk(), strings());
    EXPECT_EQ(tried(), strings());
    EXPECT_TRUE(server().ok()) << server().problem();
}

TEST_F(SendQueue, KeepsWhatFailedForASecondAttempt)
{
    message("anna");
    serve({refusal_of("anna")});
    EXPECT_EQ(send(), send_message_refused);
    EXPECT_EQ(attempts_.all(),
              (std::vector<test::result>{{eml_send_error_other, "550 no such user\r\n"}}));
    EXPECT_EQ(on_disk(), strings{"anna.sme"});
    EXPECT_EQ(fresh(), strings());
    EXPECT_EQ(tried(), strings{file("anna")});
}

TEST_F(SendQueue, DeletesWhatFailedForTheSecondTime)
{
    message("anna");
    serve({refusal_of("anna"), refusal_of("anna")});
    send();
    EXPECT_EQ(send(1), send_message_refused);
    EXPECT_EQ(attempts_.codes(), (std::vector<eml_send_e>(2, eml_send_error_other)));
    EXPECT_EQ(on_disk(), strings());
    EXPECT_EQ(tried(), strings());
    EXPECT_TRUE(server().ok()) << server().problem();
}

TEST_F(SendQueue, DeletesWhatWasSentAtTheSecondAttempt)
{
    message("anna");
    serve({refusal_of("anna"), delivery_to("anna")});
    send();
    EXPECT_EQ(send(1), send_ok);
    EXPECT_EQ(attempts_.codes(), (std::vector<eml_send_e>{eml_send_error_other, eml_send_ok}));
    EXPECT_EQ(on_disk(), strings());
    EXPECT_EQ(tried(), strings());
}

// Each row from the first trace to the last.
TEST_F(SendQueue, TellsItsStepsInTheirOrder)
{
    std::string const path    = message("anna");
    strings const     before  = strings{"send_queue in"} + chosen;
    strings const     attempt = {"_send_queue in %s try_count=%d"};
    strings const     after   = {"_send_queue out %d", "send_queue out %d"};

    strings const failing = drivers_traces(path);  // no settings, so no server
    EXPECT_EQ(send(), send_no_server);
    EXPECT_EQ(test::traces(), before + attempt + failing + strings{"error:isendw::send"} + after)
        << "the first failure";

    strings const given_up = {"error:isendw::send", "FAILED!!(SECOND)", "erase:%s", "removed %s"};
    EXPECT_EQ(send(1), send_no_server);
    EXPECT_EQ(test::traces(), before + attempt + failing + given_up + after)
        << "the second failure";

    message("anna");
    serve({delivery_to("anna"), delivery_to("anna")});
    strings const good = drivers_traces(path);
    strings const sent = {"ok: SEND!! %s", "erase:%s", "removed %s"};
    EXPECT_EQ(send(), send_ok);
    EXPECT_EQ(test::traces(), before + attempt + good + sent + after) << "success";
}

TEST_F(SendQueue, ReportsBeforeItDeletes)
{
    std::string const path  = message("anna");
    strings           last  = {};
    bool              there = false;
    attempts_.action        = [&] {
        last.push_back(test::traces().back());
        there = test::file_exists(path);
    };
    send();
    EXPECT_EQ(last, strings{"error:isendw::send"});
    send(1);
    EXPECT_EQ(last.back(), "error:isendw::send") << "and before it says that it gives up";
    EXPECT_TRUE(there);
    message("anna");
    serve({delivery_to("anna")});
    send();
    EXPECT_EQ(last.back(), "ok: SEND!! %s");
    EXPECT_TRUE(there);
    EXPECT_FALSE(test::file_exists(path));
}

TEST_F(SendQueue, CountsAMessageThatCannotBeLoadedAsFailed)
{
    std::string const path = message("anna");
    ASSERT_EQ(std::remove(path.c_str()), 0);
    serve({nothing_to_send, nothing_to_send});
    EXPECT_EQ(send(), send_message_refused);
    EXPECT_EQ(send(1), send_message_refused);
    EXPECT_EQ(test::traces().end()[-3], "error:remove(%s)");
    EXPECT_EQ(tried(), strings());
    EXPECT_EQ(attempts_.codes(), (std::vector<eml_send_e>(2, eml_send_error_other)));
}

TEST_F(SendQueue, ForgetsASentFileThatCannotBeDeleted)
{
    // A name that nobody, root included, can remove.
    std::string const path = message("anna");
    attempts_.action       = [&] {
        std::remove(path.c_str());
        ::mkdir(path.c_str(), 0777);
        test::write_file(path + "/x", "");
    };
    serve({delivery_to("anna")});
    EXPECT_EQ(send(), send_ok);
    strings const said = test::traces();
    EXPECT_EQ(strings(said.end() - 5, said.end()),
              (strings{"ok: SEND!! %s", "erase:%s", "error:remove(%s)", "_send_queue out %d",
                       "send_queue out %d"}));
    EXPECT_EQ(tried(), strings());
    EXPECT_EQ(attempts_.codes(), std::vector<eml_send_e>{eml_send_ok});
}

// ------------------------------------------------------------------- a pass

TEST_F(SendQueue, SendsInTheOrderOfArrivalAndReturnsTheLastResult)
{
    message("c");
    message("a");
    message("b");
    serve({delivery_to("c"), refusal_of("a"), delivery_to("b")});
    EXPECT_EQ(send(), send_ok) << "the failure in between is not told";
    EXPECT_TRUE(server().ok()) << server().problem();
    EXPECT_EQ(attempts_.codes(),
              (std::vector<eml_send_e>{eml_send_ok, eml_send_error_other, eml_send_ok}));
    EXPECT_EQ(on_disk(), strings{"a.sme"});

    message("d");
    message("e");
    serve({delivery_to("d"), refusal_of("e")});
    EXPECT_EQ(send(), send_message_refused);
}

TEST_F(SendQueue, TakesOnlyWhatIsDue)
{
    message("old");
    send();
    test::set_wall_clock(start_time + 1, 0);
    message("young");
    send();
    test::set_wall_clock(start_time + 1800, 0);
    message("new");
    serve({delivery_to("old")});
    EXPECT_EQ(send(1, 1800000), send_ok);
    EXPECT_TRUE(server().ok()) << server().problem();
    EXPECT_EQ(on_disk(), (strings{"new.sme", "young.sme"}));
    EXPECT_EQ(fresh(), strings{file("new")});
}

TEST_F(SendQueue, LeavesWhatComesDuringAPassToTheNext)
{
    message("a");
    attempts_.action = [&] {
        attempts_.action = nullptr;
        message("b");
    };
    send();
    EXPECT_EQ(attempts_.codes().size(), 1U);
    send();
    EXPECT_EQ(attempts_.codes().size(), 2U);
}

// ---------------------------------------------------------------------- STOP

TEST_F(SendQueue, EndsAPassThatIsStopped)
{
    message("a");
    message("b");
    message("c");
    serve({delivery_to("a")});
    attempts_.action = [this] { engine_.stop = true; };

    EXPECT_EQ(send(), 0);

    EXPECT_TRUE(server().ok()) << server().problem();
    EXPECT_EQ(attempts_.codes(), std::vector<eml_send_e>{eml_send_ok}) << "the current one ends";
    strings const said = test::traces();
    EXPECT_EQ(strings(said.end() - 5, said.end()),
              (strings{"ok: SEND!! %s", "erase:%s", "removed %s", "_send_queue out %d",
                       "warning: STOP flag ON !!"}));
    EXPECT_EQ(std::count(said.begin(), said.end(), "_send_queue in %s try_count=%d"), 1);
    EXPECT_EQ(std::count(said.begin(), said.end(), "send_queue out %d"), 0);
    EXPECT_EQ(on_disk(), (strings{"b.sme", "c.sme"}));
    EXPECT_EQ(fresh(), strings()) << "all three counted as tried when they were chosen";
    EXPECT_EQ(tried(), (strings{file("b"), file("c")}));
}

TEST_F(SendQueue, ThatIsStoppedReturnsNoFailure)
{
    message("a");
    message("b");
    attempts_.action = [this] { engine_.stop = true; };
    EXPECT_EQ(send(), 0) << "although the one it made failed";
}

TEST_F(SendQueue, SendsNothingWhenItIsStoppedAlready)
{
    message("a");
    engine_.stop = true;
    EXPECT_EQ(send(), 0);
    EXPECT_EQ(test::trouble_traces(), strings{"warning: STOP flag ON !!"});
    EXPECT_TRUE(attempts_.all().empty());
    EXPECT_EQ(tried(), strings{file("a")});
    EXPECT_EQ(send(0), 0);
    EXPECT_EQ(test::traces(), strings{"send_queue in"} + not_chosen + strings{"send_queue out %d"})
        << "with nothing due the flag is not looked at";
}

TEST_F(SendQueue, StoppedInItsLastAttemptEndsLikeAnyOther)
{
    message("a");
    attempts_.action = [this] { engine_.stop = true; };
    EXPECT_EQ(send(), send_no_server);
    EXPECT_EQ(test::traces().back(), "send_queue out %d");
}

// -------------------------------------------------------------------- locks

TEST_F(SendQueue, ReadsTheQueueUnderTheEnginesMutex)
{
    message("a");
    ASSERT_EQ(::pthread_mutex_lock(&engine_.mutex), 0);
    test::clear_traces();
    test::waiter worker([this] { send_queue(&engine_, 0, 0); });
    EXPECT_TRUE(worker.gets_blocked());
    EXPECT_EQ(fresh(), strings{file("a")});
    ASSERT_EQ(::pthread_mutex_unlock(&engine_.mutex), 0);
    worker.join();
    EXPECT_EQ(test::traces().front(), "send_queue in");
    EXPECT_TRUE(attempts_.all().empty()) << "the test has been faster";
}

TEST_F(SendQueue, HoldsNoMutexWhileItSends)
{
    message("a");
    int engines      = -1;
    int managers     = -1;
    attempts_.action = [&] {
        std::thread([&] {
            engines  = ::pthread_mutex_trylock(&engine_.mutex);
            managers = ::pthread_mutex_trylock(&queue().mutex());
            ::pthread_mutex_unlock(&engine_.mutex);
            ::pthread_mutex_unlock(&queue().mutex());
        }).join();
    };
    send();
    EXPECT_EQ(engines, 0);
    EXPECT_EQ(managers, 0);
}

// ------------------------------------------------------------ odd companions

TEST_F(SendQueue, ACallbackThatThrowsChangesNothing)
{
    attempts_.action = [] { throw std::runtime_error("a callback's own"); };
    message("fails");
    EXPECT_EQ(send(), send_no_server);
    EXPECT_EQ(on_disk(), strings{"fails.sme"});
    EXPECT_EQ(send(1), send_no_server);
    EXPECT_EQ(on_disk(), strings());
    EXPECT_EQ(tried(), strings());

    message("a");
    message("b");
    serve({delivery_to("a"), delivery_to("b")});
    EXPECT_EQ(send(), send_ok);
    EXPECT_TRUE(server().ok()) << server().problem();
    EXPECT_EQ(on_disk(), strings());
    EXPECT_EQ(attempts_.codes().size(), 4U);
}

TEST_F(SendQueue, ReportsAFileThatWasEvictedMeanwhile)
{
    message("a");
    message("b");
    serve({delivery_to("a"), nothing_to_send});
    strings many;
    for (std::size_t i = 0; i < max_queue; ++i) {
        many.push_back(dir_.file(std::to_string(i)));
    }
    attempts_.action = [&] {
        attempts_.action = nullptr;
        queue().add(many);           // the first one too many costs "a" its place
        queue().add({many.back()});  // and the next one "b"
    };
    EXPECT_EQ(send(), send_message_refused);
    EXPECT_EQ(attempts_.codes(), (std::vector<eml_send_e>{eml_send_ok, eml_send_error_other}))
        << "both chosen ones are tried, the second without its file";
    strings const said = test::traces();
    EXPECT_EQ(std::count(said.begin(), said.end(), "warning:%s is not found"), 1);
    EXPECT_EQ(std::count(said.begin(), said.end(), "remove:%s"), 2);
    EXPECT_EQ(on_disk(), strings());
    EXPECT_EQ(tried(), strings()) << "the second attempt will never be made";
    EXPECT_EQ(fresh().size(), max_queue);
}

// Evicted between the text and the server's answer: the mail arrives, its file is gone before.
TEST_F(SendQueue, DeliversAFileThatIsEvictedWhileItIsSent)
{
    std::string const path = message("a");
    strings           many;
    for (std::size_t i = 0; i < max_queue; ++i) {
        many.push_back(dir_.file(std::to_string(i)));
    }
    bool                gone = false;
    mailserver::options options;
    options.on_mail = [&](mailserver::mail const&) {
        queue().add(many);
        gone = !test::file_exists(path);
    };
    mailserver::server server(options);
    settings(server.smtp_port());

    EXPECT_EQ(send(), send_ok);

    EXPECT_TRUE(gone);
    EXPECT_EQ(attempts_.codes(), std::vector<eml_send_e>{eml_send_ok});
    strings const said = test::traces();
    EXPECT_EQ(strings(said.end() - 4, said.end()),
              (strings{"ok: SEND!! %s", "warning:%s is not found", "_send_queue out %d",
                       "send_queue out %d"}));
    EXPECT_EQ(fresh().size(), max_queue);
}

// The path is known until its entry is gone, and so is not queued twice.
TEST_F(SendQueue, AFileThatIsAnnouncedAgainWhileItIsSentIsSentOnce)
{
    std::string const path = message("a");
    serve({delivery_to("a")});
    attempts_.action = [&] { queue().add({path}); };
    EXPECT_EQ(send(), send_ok);
    EXPECT_EQ(send(), send_ok);
    EXPECT_EQ(attempts_.codes().size(), 1U);
    EXPECT_EQ(fresh(), strings());
}

TEST_F(SendQueue, ThroughTheSameCallOneFileAtATime)
{
    std::string const path = message("a");
    fresh();
    EXPECT_EQ(_send_queue(&engine_, path, 0), send_no_server);
    EXPECT_EQ(on_disk(), strings{"a.sme"});
    EXPECT_EQ(_send_queue(&engine_, path, 7), send_no_server);
    EXPECT_EQ(on_disk(), strings()) << "any number but 0 is the last attempt";
    EXPECT_EQ(_send_queue(&engine_, path, 1), send_no_server);
    EXPECT_EQ(test::traces().end()[-2], "warning:%s is not found");
}
