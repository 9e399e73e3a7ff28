// engine_start_stop_test.cpp - engines that start, do not start, and stop in odd places

#include <atomic>
#include <csignal>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <pthread.h>
#include <sys/wait.h>
#include <type_traits>
#include <unistd.h>

#include "libemlw/thread.h"
#include "support/interface.h"
#include "tests/libemlw/engine_room.h"
#include "tests/support/case_name.h"
#include "tests/support/failing_new.h"
#include "tests/support/fake_thread.h"
#include "tests/support/mail_server.h"
#include "tests/support/slot.h"
#include "tests/support/threads.h"
#include "tests/support/trace_recorder.h"
#include "tests/support/wait_until.h"

using namespace zelieml;
using zelieml::test::mail_server;
using zelieml::test::strings;
using zelieml::test::wait_until;

namespace
{

strings operator+(strings a, strings const& b)
{
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

}  // namespace

// ------------------------------------------------------------- the object itself

TEST(EngineObject, IsNothingButAPointerToItsContext)
{
    EXPECT_EQ(sizeof(iemlw), 2 * sizeof(void*)) << "and the table of its operations";
    EXPECT_FALSE(std::has_virtual_destructor<ieml>::value);
    EXPECT_FALSE(std::has_virtual_destructor<ifactory_eml>::value);
    EXPECT_EQ(sizeof(ifactory_emlw), sizeof(void*));
}

TEST(EngineObject, HasItsOperationsInTheirSlots)
{
    using post_message = int (ifactory_eml::*)(char const*, char const*, void*);
    using post_file    = int (ifactory_eml::*)(char const*, char const*);
    using test::slot_of;
    EXPECT_EQ(slot_of(&ieml::start), 0);
    EXPECT_EQ(slot_of(&ieml::stop), 1);
    EXPECT_EQ(slot_of(&ieml::post), 2);
    EXPECT_EQ(slot_of(&ieml::set_callback), 3);
    EXPECT_EQ(slot_of(&ieml::reset_callback), 4);
    EXPECT_EQ(slot_of(&ieml::create_context), 5);
    EXPECT_EQ(slot_of(&ieml::destroy_context), 6);
    EXPECT_EQ(slot_of(&ieml::get_context), 7);
    EXPECT_EQ(slot_of(&ifactory_eml::create), 0);
    EXPECT_EQ(slot_of(&ifactory_eml::destroy), 1);
    EXPECT_EQ(slot_of(static_cast<post_message>(&ifactory_eml::post)), 2);
    EXPECT_EQ(slot_of(&ifactory_eml::post_sync), 3);
    EXPECT_EQ(slot_of(static_cast<post_file>(&ifactory_eml::post)), 4);
}

TEST(EngineObject, IsMadeWithAnEmptyContext)
{
    ifactory_emlw factory;
    ieml*         engine = nullptr;
    test::clear_traces();
    ASSERT_EQ(factory.create(&engine), 0);
    _s_iemlw const* const context = engine->get_context();
    ASSERT_NE(context, nullptr);
    EXPECT_STREQ(context->workdir, "");
    EXPECT_STREQ(context->stock_symbol, "");
    EXPECT_TRUE(context->callbacks.get()->empty());
    EXPECT_EQ(context->queue, nullptr);
    EXPECT_FALSE(context->stop);
    EXPECT_EQ(sizeof context->workdir, 256U);
    EXPECT_EQ(sizeof context->stock_symbol, 255U);
    EXPECT_EQ(factory.destroy(engine), 0);
    EXPECT_EQ(test::traces(), strings());
}

TEST(EngineObject, ThatIsNullIsNotFreed)
{
    test::clear_traces();
    EXPECT_EQ(ifactory_emlw().destroy(nullptr), -1);
    EXPECT_EQ(test::traces(), strings{"error:eml == 0"});
}

TEST(EngineObject, GivesItsContextBackOnce)
{
    ieml* engine = nullptr;
    ASSERT_EQ((templ_create_interface<iemlw, ieml>(&engine)), 0);
    EXPECT_EQ(engine->get_context(), nullptr);
    EXPECT_EQ(engine->destroy_context(), 0) << "it was never made";
    EXPECT_EQ(engine->create_context(), 0);
    EXPECT_NE(engine->get_context(), nullptr);
    EXPECT_EQ(engine->set_callback(test::result_list::note, nullptr), 0);
    EXPECT_EQ(engine->destroy_context(), 0);
    EXPECT_EQ(engine->get_context(), nullptr);
    EXPECT_EQ(engine->destroy_context(), 0);
    EXPECT_EQ((templ_destroy_interface<iemlw, ieml>(engine)), 0);
}

TEST(EngineObject, IsNotMadeWithoutMemory)
{
    int failures = 0;
    for (int good = 0;; ++good) {
        ASSERT_LT(good, 20);
        ieml* engine = reinterpret_cast<ieml*>(&failures);  // has to be overwritten
        int   made   = 0;
        bool  thrown = false;
        try {
            test::failing_new const once(good, 1);
            made = ifactory_emlw().create(&engine);
        } catch (...) {
            thrown = true;
        }
        EXPECT_FALSE(thrown) << "at request " << good;
        if (!test::failing_new::refused()) {
            EXPECT_EQ(made, 0);
            EXPECT_EQ(ifactory_emlw().destroy(engine), 0);
            break;
        }
        ++failures;
        EXPECT_EQ(made, -1) << "at request " << good;
        EXPECT_EQ(engine, nullptr) << "at request " << good;
    }
    EXPECT_GE(failures, 2) << "the object, and its context";
}

TEST(EngineObject, ThatNeverRanCannotBeStopped)
{
    ifactory_emlw factory;
    ieml*         engine = nullptr;
    ASSERT_EQ(factory.create(&engine), 0);
    test::clear_traces();
    EXPECT_EQ(engine->stop(), -1);
    EXPECT_EQ(test::traces(), (strings{"stop_thread in", "error:stop_thread"}));
    EXPECT_EQ(factory.destroy(engine), 0);
}

// -------------------------------------------------------------------- starting

class EngineStart : public test::engine_room
{
protected:
    EngineStart() { test::clear_traces(); }
    ~EngineStart() override
    {
        if (engine_ != nullptr) {
            stop();
        }
        test::wait_for_threads_to_end();
    }

    // A start that fails: leaves the handle as it was, and nothing behind.
    void fails(std::string const& workdir, std::string const& stock, char const* reason)
    {
        void* const before = this;
        void*       engine = before;
        EXPECT_EQ(eml_start_with_stocksymbol(workdir.c_str(), stock.c_str(), &engine), -1)
            << reason;
        EXPECT_EQ(engine, before) << reason;
        EXPECT_EQ(test::observers(), 0) << reason;
        EXPECT_EQ(test::live_threads(), 0) << reason;
    }
};

TEST_F(EngineStart, TakesNamesThatFitAndRefusesOthers)
{
    struct row {
        std::size_t workdir;
        std::size_t symbol;
        bool        starts;
        char const* reason;
    };
    row const rows[] = {
        {255, 254, true, "both are as long as can be"},
        {256, 5, false, "the work directory is a byte too long"},
        {5000, 5, false, "the work directory is far too long"},
        {255, 255, false, "the symbol is a byte too long"},
        {10, 5000, false, "the symbol is far too long"},
        {10, 0, false, "the symbol is empty"},
        {10, 1, true, "the shortest symbol"},
        {0, 5, true, "an empty work directory is one that is not there"},
    };
    for (row const& r : rows) {
        std::string const workdir(r.workdir, 'w');
        std::string const stock(r.symbol, 's');
        if (!r.starts) {
            fails(workdir, stock, r.reason);
            continue;
        }
        void* engine = nullptr;
        ASSERT_EQ(eml_start_with_stocksymbol(workdir.c_str(), stock.c_str(), &engine), 0)
            << r.reason;
        EXPECT_EQ(test::deliver(notify_name, stock.c_str(), "any key", "value"), 1) << r.reason;
        EXPECT_EQ(static_cast<ieml*>(engine)->get_context()->workdir, workdir) << r.reason;
        EXPECT_EQ(eml_stop(engine), 0) << r.reason;
    }
}

// A start with good arguments that fails at the thread.
struct failing_start : test::named_case {
    using named_case::named_case;

    failing_start& in(std::string const& directory)
    {
        workdir = directory;
        return *this;
    }
    failing_start& under(std::string const& stock)
    {
        symbol = stock;
        return *this;
    }
    failing_start& after(std::function<void()> const& action)
    {
        before = action;
        return *this;
    }
    // Between the first trace of a start and the last one of its failure.
    failing_start& says(strings const& traces)
    {
        said = traces;
        return *this;
    }

    std::string           workdir = "w";
    std::string           symbol  = "s";
    std::function<void()> before  = [] {};
    strings said = {"workdir = %s", "stock_symbol = %s", "start_thread in", "error:start_thread"};
};

TEST_F(EngineStart, ThatFailsSaysHowFarItCame)
{
    strings const first = {"eml_start in"};
    strings const last  = {"error: ieml::start"};

    failing_start const cases[] = {
        failing_start("no room for the work directory").in(std::string(256, 'w')).says({}),
        failing_start("no room for the symbol").under(std::string(255, 's')).says({"workdir = %s"}),
        failing_start("an empty symbol").under(""),
        failing_start("no place for an observer").after([] { test::refuse_observers(true); }),
        failing_start("no thread").after([] {
            test::refuse_observers(false);
            test::refuse_threads(true);
        }),
    };
    for (failing_start const& c : cases) {
        c.before();
        test::clear_traces();
        fails(c.workdir, c.symbol, c.name);
        EXPECT_EQ(test::traces(), first + c.said + last) << c;
    }
    test::refuse_threads(false);
}

TEST_F(EngineStart, WithoutAThreadLeavesTheObserverToTheEngine)
{
    ifactory_emlw factory;
    ieml*         engine = nullptr;
    ASSERT_EQ(factory.create(&engine), 0);
    test::refuse_threads(true);
    EXPECT_EQ(engine->start(workdir().c_str(), symbol), -1);
    test::refuse_threads(false);
    EXPECT_EQ(test::observers(), 1);
    announce(message("a"));  // is dropped: there is no queue
    EXPECT_EQ(engine->stop(), -1);
    EXPECT_EQ(test::observers(), 1);
    EXPECT_EQ(factory.destroy(engine), 0);
    EXPECT_EQ(test::observers(), 0);
    EXPECT_EQ(on_disk(), strings{"a.sme"});
}

TEST_F(EngineStart, IsUndoneByTheFirstStopOnly)
{
    ifactory_emlw factory;
    ieml*         engine = nullptr;
    ASSERT_EQ(factory.create(&engine), 0);
    ASSERT_EQ(engine->start(workdir().c_str(), symbol), 0);
    EXPECT_EQ(engine->stop(), 0);
    EXPECT_FALSE(engine->get_context()->has_worker);
    test::clear_traces();
    EXPECT_EQ(engine->stop(), -1);
    EXPECT_EQ(test::traces(), (strings{"stop_thread in", "error:stop_thread"}));
    EXPECT_EQ(factory.destroy(engine), 0);
}

TEST_F(EngineStart, WithoutMemoryForTheQueueMakesAnEngineThatIsDeaf)
{
    message("leftover");
    for (int good = 0; good < 3; ++good) {  // the manager, its context, and the list in it
        test::starve_next_thread(good, 1);
        test::clear_traces();
        start();
        test::wait_for_threads_to_end();
        EXPECT_EQ(test::trouble_traces(), strings{"error:iqmgr_create"});
        EXPECT_EQ(context().queue, nullptr);
        EXPECT_EQ(test::observers(), 1);
        test::clear_traces();
        announce(file("leftover"));
        EXPECT_EQ(test::traces(), strings());
        stop();
        EXPECT_EQ(test::trouble_traces(), strings{"error:qmbr == 0"});
        EXPECT_EQ(test::observers(), 0);
    }
    EXPECT_EQ(on_disk(), strings{"leftover.sme"}) << "nobody has looked";
    test::starve_next_thread(3, 1);
    start();
    EXPECT_NE(context().queue, nullptr);
}

TEST_F(EngineStart, SurvivesAWorkerThatNeverHasAnyMemory)
{
    for (int good = 3; good < 30; ++good) {
        message("leftover");
        test::starve_next_thread(good, 1000000);
        start();
        post("a");
        test::pass_pauses(3);
        timer_proc_queue_salvage(&context());
        test::pass_pauses(3);
        stop();
        test::wait_for_threads_to_end();
    }
}

TEST_F(EngineStart, DeletesWhatLayThereBeforeItReturns)
{
    for (int again = 0; again < 20; ++again) {
        for (int i = 0; i < 200; ++i) {
            message(std::to_string(i));
        }
        start();
        EXPECT_EQ(on_disk(), strings());
        message("right after");
        announce(file("right after"));
        test::pass_pauses(1);
        EXPECT_EQ(on_disk(), strings{"right after.sme"}) << "no leftover, but tried and failed";
        EXPECT_EQ(attempts_.count(), std::size_t(again) + 1);
        stop();
    }
}

// The same object once more: its gate has been open before.
TEST_F(EngineStart, OfAnEngineThatWasStoppedIsLikeTheFirst)
{
    ifactory_emlw factory;
    ieml*         engine = nullptr;
    ASSERT_EQ(factory.create(&engine), 0);
    EXPECT_EQ(engine->set_callback(test::result_list::note, &attempts_), 0);
    for (std::size_t again = 1; again <= 10; ++again) {
        for (int i = 0; i < 200; ++i) {
            message(std::to_string(i));
        }
        ASSERT_EQ(engine->start(workdir().c_str(), symbol), 0);
        EXPECT_EQ(on_disk(), strings());
        post("a");
        test::pass_pauses(1);
        EXPECT_EQ(attempts_.count(), again);
        EXPECT_EQ(engine->stop(), 0);
        EXPECT_EQ(engine->stop(), -1) << "stopped already";
    }
    EXPECT_EQ(factory.destroy(engine), 0);
}

TEST_F(EngineStart, InADirectoryThatIsNotThereIsNoFailure)
{
    std::string const missing = dir_.file("missing");
    ASSERT_EQ(eml_start_with_stocksymbol(missing.c_str(), symbol, &engine_), 0);
    ASSERT_EQ(eml_set_callback(engine_, test::result_list::note, &attempts_), 0);
    test::pass_pauses(1801);
    EXPECT_EQ(attempts_.count(), 0U);

    ASSERT_EQ(::mkdir(missing.c_str(), 0777), 0);
    test::write_file(missing + "/a.sme", "to: a@a.test\n");
    announce(missing + "/a.sme");
    test::pass_pauses(1);
    EXPECT_EQ(attempts_.count(), 1U);
}

TEST_F(EngineStart, RefusesNull)
{
    EXPECT_EQ(eml_start(workdir().c_str(), nullptr), -1);
    EXPECT_EQ(eml_start(nullptr, &engine_), -1);
    EXPECT_EQ(eml_start_with_stocksymbol(workdir().c_str(), nullptr, &engine_), -1);
    EXPECT_EQ(engine_, nullptr);
    start();
    EXPECT_EQ(eml_set_callback(nullptr, test::result_list::note, nullptr), -1);
    EXPECT_EQ(eml_set_callback(engine_, nullptr, nullptr), -1);
    EXPECT_EQ(eml_reset_callback(nullptr, test::result_list::note), -1);
    EXPECT_EQ(eml_reset_callback(engine_, nullptr), -1);
    post("a");
    test::pass_pauses(1);
    EXPECT_EQ(attempts_.count(), 1U);
}

TEST_F(EngineStart, WithoutASymbolUsesTheDefaultOne)
{
    ASSERT_EQ(eml_start(workdir().c_str(), &engine_), 0);
    EXPECT_EQ(test::deliver(notify_name, "zelieml_stocksymbol", "any key", "value"), 1);
}

TEST_F(EngineStart, PostsThroughTheEngineToItsOwnSymbol)
{
    void* msg = nullptr;
    ASSERT_EQ(eml_msg_create(&msg), 0);
    start();
    test::clear_traces();
    EXPECT_EQ(eml_post_sys(engine_, msg), 0);
    EXPECT_EQ(test::trouble_traces(), strings());
    ASSERT_EQ(test::posts().size(), 1U);
    test::post const made = test::posts()[0];
    EXPECT_EQ(made.name, "zelieml_notifyname");
    EXPECT_EQ(made.object, symbol);
    EXPECT_EQ(made.key, "new_mail_file_path");
    EXPECT_EQ(on_disk(), strings{made.value.substr(workdir().size() + 1)});

    test::refuse_posts(true);
    test::clear_traces();
    EXPECT_EQ(eml_post_sys(engine_, msg), 0) << "salvage finds it";
    EXPECT_EQ(test::trouble_traces(), (strings{"warning:existing file:%s",
                                               "error:inotify_send::send", "error:msg_save(%s)"}))
        << "the clock stands still, so this one has the second name";

    test::set_wall_clock(start_time + 1, 0);
    test::clear_traces();
    EXPECT_EQ(eml_post_sys(engine_, nullptr), -1);
    EXPECT_EQ(test::trouble_traces(),
              (strings{"error:msg_save msg==0", "error:msg_save(%s)", "errro:eml_post"}));
    test::clear_traces();
    EXPECT_EQ(eml_post_sys(nullptr, msg), -1);
    EXPECT_EQ(test::traces(), strings{"eml_post in"});
    eml_msg_destroy(msg);
}

TEST_F(EngineStart, AnnouncesNothingWithoutMemoryForASender)
{
    for (int good = 0; good < 2; ++good) {  // the sender, and its context
        test::clear_traces();
        {
            test::failing_new const once(good, 1);
            EXPECT_EQ(notify("/w/a.sme", symbol), -1);
        }
        EXPECT_EQ(test::traces(), strings{"error:inotify_send_create"});
    }
    EXPECT_EQ(test::posts().size(), 0U);
}

// -------------------------------------------------------------------- stopping

class EngineStop : public EngineStart
{
protected:
    // The engine's record lives as long as this is not over. No other thread may change the
    // callbacks.
    std::weak_ptr<void const> life_of_record() { return context().callbacks.get(); }
};

TEST_F(EngineStop, LeavesNothingHoweverOftenItIsDone)
{
    mail_server server;
    settings(server.smtp_port());
    for (int again = 0; again < 200; ++again) {
        start();
        post("a");
        if (again % 2 == 0) {
            test::pass_pauses(1);
        }
        std::weak_ptr<void const> const record = life_of_record();
        stop();
        ASSERT_EQ(test::live_threads(), 0);
        ASSERT_EQ(test::observers(), 0);
        ASSERT_TRUE(record.expired());
    }
    EXPECT_EQ(server.mails().size(), 100U);
    EXPECT_EQ(on_disk(), strings{"a.sme"}) << "the last one was not sent";
}

TEST_F(EngineStop, WaitsForANotificationThatIsBeingDelivered)
{
    start();
    iqmgr& manager = queue();
    ASSERT_EQ(::pthread_mutex_lock(&manager.mutex()), 0);
    test::waiter delivering([this] { post("a"); });
    EXPECT_TRUE(delivering.gets_blocked());
    test::waiter stopping([this] { stop(); });
    EXPECT_TRUE(wait_until([] { return test::live_threads() == 0; }));
    EXPECT_TRUE(stopping.gets_blocked());
    ASSERT_EQ(::pthread_mutex_unlock(&manager.mutex()), 0);
    delivering.join();
    stopping.join();
    EXPECT_EQ(on_disk(), strings{"a.sme"});
}

// ------------------------------------------------------ stopping in a callback

class StopInACallback : public EngineStop, public ::testing::WithParamInterface<bool>
{
protected:
    // The engine is stopped by the first callback, and reports to another one behind it.
    void start_engine_that_stops_itself()
    {
        ASSERT_EQ(eml_start_with_stocksymbol(workdir().c_str(), symbol, &engine_), 0);
        ASSERT_EQ(eml_set_callback(engine_, stop_own_engine, this), 0);
        ASSERT_EQ(eml_set_callback(engine_, test::result_list::note, &attempts_), 0);
    }
    // Passes a cycle after which the worker does not come back.
    void last_cycle()
    {
        test::let_pauses_pass(1);
        test::wait_for_threads_to_end();
    }

    int result_    = -2;
    int called_    = 0;
    int observers_ = -1;

private:
    static int stop_own_engine(void*, void* user)
    {
        auto& self = *static_cast<StopInACallback*>(user);
        ++self.called_;
        if (GetParam()) {
            self.result_ = eml_stop_multi(&self.engine_);
        } else {
            self.result_ = eml_stop(self.engine_);
            self.engine_ = nullptr;
        }
        self.observers_ = test::observers();
        return 0;
    }
};

INSTANTIATE_TEST_SUITE_P(, StopInACallback, ::testing::Values(false, true),
                         [](auto const& row) { return row.param ? "eml_stop_multi" : "eml_stop"; });

TEST_P(StopInACallback, ReturnsAndTheAttemptIsFinished)
{
    mail_server server;
    settings(server.smtp_port());
    start_engine_that_stops_itself();
    post("a");
    post("b");
    std::weak_ptr<void const> const record = life_of_record();
    test::clear_traces();

    last_cycle();

    EXPECT_EQ(result_, 0);
    EXPECT_EQ(engine_, nullptr);
    EXPECT_EQ(observers_, 0) << "the observer is gone when it returns";
    EXPECT_EQ(attempts_.codes(), std::vector<eml_send_e>{eml_send_ok})
        << "the callback behind it is called, once";
    EXPECT_EQ(called_, 1);
    EXPECT_EQ(server.mails().size(), 1U);
    EXPECT_EQ(on_disk(), strings{"b.sme"}) << "what was sent is deleted, the other stays";
    EXPECT_TRUE(record.expired()) << "the worker has freed it";

    strings said = test::traces();
    said.erase(said.begin(), std::find(said.begin(), said.end(), "ok: SEND!! %s"));
    strings const in     = {GetParam() ? "eml_stop_multi in %x" : "eml_stop in"};
    strings const out    = {GetParam() ? "eml_stop_multi out" : "eml_stop out"};
    strings const thread = {"stop_thread in", "stop_thread out"};
    strings const after  = {"erase:%s", "removed %s", "_send_queue out %d",
                            "warning: STOP flag ON !!", "eml_thread out"};
    EXPECT_EQ(said, strings{"ok: SEND!! %s"} + in + thread + out + after);
}

TEST_P(StopInACallback, OfAFailedAttemptLeavesTheFile)
{
    start_engine_that_stops_itself();
    post("a");
    last_cycle();
    EXPECT_EQ(attempts_.count(), 1U);
    EXPECT_EQ(on_disk(), strings{"a.sme"});
}

TEST_P(StopInACallback, OfASecondAttemptDeletesTheFile)
{
    start_engine_that_stops_itself();
    post("a");
    strings tried;
    queue().get(tried, 0, 0);
    EXPECT_EQ(tried, strings{file("a")}) << "now it has had its first attempt";
    test::let_pauses_pass(1800);
    test::wait_for_threads_to_end();
    EXPECT_EQ(called_, 1);
    EXPECT_EQ(on_disk(), strings());
}

TEST_P(StopInACallback, FreesTheEngineAlsoWhenAnotherCallbackThrows)
{
    attempts_.action = [] { throw 1; };
    start_engine_that_stops_itself();
    post("a");
    std::weak_ptr<void const> const record = life_of_record();
    last_cycle();
    EXPECT_TRUE(record.expired());
    EXPECT_EQ(attempts_.count(), 1U);
}

// -------------------------------------------------------- a stop within a stop

// Forks, and makes the call in the child; what it returned, or -3 when it did not return.
int in_a_child(std::function<int()> const& call)
{
    ::pid_t const child = ::fork();
    if (child == 0) {
        std::signal(SIGALRM, SIG_DFL);
        ::alarm(30);
        ::_exit(call());
    }
    int status = 0;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -3;
}

class NestedStop : public EngineStop
{
protected:
    ~NestedStop() override { EXPECT_EQ(eml_stop_multi(&other_), 0); }

    // Stops the engine with eml_stop_multi, and has the callback of the attempt that this waits
    // for make the call.
    void during_a_stop(std::function<void()> const& call)
    {
        start();
        post("a");
        _s_iemlw&         engine = context();
        std::atomic<bool> in_callback{false};
        attempts_.action = [&] {
            in_callback = true;
            EXPECT_TRUE(wait_until([&] { return engine.stop.load(); }));
            call();
        };
        test::let_pauses_pass(1);
        EXPECT_TRUE(wait_until([&] { return in_callback.load(); }));
        test::clear_traces();
        EXPECT_EQ(eml_stop_multi(&engine_), 0);
        EXPECT_EQ(engine_, nullptr);
    }

    void* other_ = nullptr;
};

TEST_F(NestedStop, DoesNothingAndSaysTheOpposite)
{
    int   result = -1;
    void* handle = nullptr;
    during_a_stop([&] {
        result = eml_stop_multi(&engine_);
        handle = engine_;
    });
    EXPECT_EQ(result, 0);
    EXPECT_NE(handle, nullptr) << "it is still the first call's";
    EXPECT_EQ(test::traces(),
              (strings{"eml_stop_multi in %x", "stop_thread in", "eml_stop_multi in %x",
                       "g_in_stop_multi == 0", "_send_queue out %d", "send_queue out %d",
                       "eml_thread out", "stop_thread out", "eml_stop_multi out"}));
}

TEST_F(NestedStop, DoesNothingToAnotherEngineEither)
{
    during_a_stop([&] {
        EXPECT_EQ(eml_start_with_stocksymbol(dir_.path().c_str(), "other", &other_), 0);
        void* const before = other_;
        EXPECT_EQ(eml_stop_multi(&other_), 0);
        EXPECT_EQ(other_, before);
    });
    EXPECT_EQ(test::observers(), 1) << "it runs on";
    EXPECT_EQ(eml_stop_multi(&other_), 0);
    EXPECT_EQ(other_, nullptr);
    EXPECT_EQ(test::observers(), 0);
}

TEST_F(NestedStop, OfNoEngineIsNoStop)
{
    during_a_stop([&] { EXPECT_EQ(eml_stop_multi(&other_), 0); });
    strings const said = test::traces();
    EXPECT_EQ(std::count(said.begin(), said.end(), "eml_stop_multi out eml == 0 now !!"), 1);
    EXPECT_EQ(std::count(said.begin(), said.end(), "g_in_stop_multi == 0"), 0);

    test::clear_traces();
    EXPECT_EQ(eml_stop_multi(&other_), 0);
    EXPECT_EQ(eml_stop_multi(nullptr), 0);
    EXPECT_EQ(test::traces(),
              (strings{"eml_stop_multi in %x", "eml_stop_multi out eml == 0 now !!",
                       "eml_stop_multi in %x", "eml_stop_multi out eml == 0 now !!"}));
    test::clear_traces();
    EXPECT_EQ(eml_stop(nullptr), -1);
    EXPECT_EQ(test::traces(), (strings{"eml_stop in", "error:eml_stop eml == 0"}));
}

TEST_F(NestedStop, InAForkedChildIsNotNested)
{
    int status = -1;
    during_a_stop([&] {
        EXPECT_EQ(eml_start_with_stocksymbol(dir_.path().c_str(), "other", &other_), 0);
        status = in_a_child([&] {
            bool const first = eml_stop_multi(&other_) == 0 && other_ == nullptr;
            bool const next  = eml_stop_multi(&engine_) == 0 && engine_ == nullptr;
            return first && next ? 0 : 1;
        });
    });
    EXPECT_EQ(status, 0);
    EXPECT_NE(other_, nullptr) << "the parent's";
    EXPECT_EQ(test::observers(), 1);
}

// -------------------------------------------------------------- a forked child

// Ends the process with the thread, when it is to; the exit status says whether the record was, or
// was not, freed by then.
struct last_of_thread {
    bool                      ends_process = false;
    bool                      wants_freed  = false;
    std::weak_ptr<void const> record       = {};
    ~last_of_thread()
    {
        if (ends_process) {
            ::_exit(record.expired() == wants_freed ? 0 : 1);
        }
    }
};

thread_local last_of_thread last;

class StopInAChild : public EngineStop
{
protected:
    // Forks in a callback that returns in the child as well, having stopped its copy of the engine
    // or not. Returns how the child ended.
    int fork_and_return(bool stops)
    {
        std::weak_ptr<void const> const record = life_of_record();
        ::pid_t const                   child  = ::fork();
        if (child == 0) {
            std::signal(SIGALRM, SIG_DFL);
            ::alarm(30);
            if (stops && eml_stop(engine_) != 0) {
                ::_exit(2);
            }
            last.ends_process = true;
            last.wants_freed  = stops;
            last.record       = record;
            return 0;
        }
        int status = -1;
        EXPECT_EQ(::waitpid(child, &status, 0), child);
        return status;
    }
    // A callback; the user is the process that may call it.
    static int die_elsewhere(void*, void* user)
    {
        if (::getpid() != *static_cast<::pid_t*>(user)) {
            ::_exit(3);
        }
        return 0;
    }

    // Stops the copy of the engine; 0 when that worked and freed the record.
    std::function<int()> stop_the_copy()
    {
        return [this] {
            std::weak_ptr<void const> const record = life_of_record();
            void*                           copy   = engine_;
            bool const good = eml_stop_multi(&copy) == 0 && copy == nullptr && record.expired() &&
                              test::observers() == 1 && on_disk() == strings{"a.sme"};
            return good ? 0 : 1;
        };
    }
    void expect_that_the_parents_engine_runs()
    {
        mail_server server;
        settings(server.smtp_port());
        EXPECT_EQ(on_disk(), strings{"a.sme"});
        announce(file("a"));
        test::pass_pauses(1);
        EXPECT_EQ(server.mails().size(), 1U);
        EXPECT_EQ(attempts_.codes().back(), eml_send_ok);
    }
};

TEST_F(StopInAChild, OnlyFreesTheMemory)
{
    start();
    message("a");
    test::wait_for_pause();
    EXPECT_EQ(in_a_child(stop_the_copy()), 0);
    EXPECT_EQ(in_a_child([this] { return eml_stop(engine_); }), 0);
    expect_that_the_parents_engine_runs();
}

TEST_F(StopInAChild, DoesNotWaitForLocksThatTheParentHolds)
{
    start();
    message("a");
    test::wait_for_pause();
    ASSERT_EQ(::pthread_mutex_lock(&context().mutex), 0);
    EXPECT_EQ(in_a_child(stop_the_copy()), 0);
    ASSERT_EQ(::pthread_mutex_unlock(&context().mutex), 0);
    ASSERT_EQ(::pthread_mutex_lock(&queue().mutex()), 0);
    EXPECT_EQ(in_a_child(stop_the_copy()), 0);
    ASSERT_EQ(::pthread_mutex_unlock(&queue().mutex()), 0);
    expect_that_the_parents_engine_runs();
}

TEST_F(StopInAChild, ThatACallbackForkedDoesNotWaitForItself)
{
    int result       = -1;
    attempts_.action = [&] {
        attempts_.action = nullptr;
        // The record's last share is the worker's, which this thread is.
        result = in_a_child([this] { return eml_stop(engine_); });
    };
    start();
    message("a");
    announce(dir_.file("missing.sme"));
    test::pass_pauses(1);
    EXPECT_EQ(result, 0);
    expect_that_the_parents_engine_runs();
}

TEST_F(StopInAChild, ThatACallbackForkedAndReturnedInEndsTheChildOnly)
{
    mail_server server;
    settings(server.smtp_port());
    start();
    ::pid_t self = ::getpid();
    ASSERT_EQ(eml_set_callback(engine_, die_elsewhere, &self), 0);
    std::size_t mails = 0;
    for (bool const stops : {false, true}) {
        int status       = -1;
        attempts_.action = [&] {
            attempts_.action = nullptr;
            status           = fork_and_return(stops);
            EXPECT_TRUE(test::file_exists(file("a"))) << "the child left it to the parent";
        };
        post("a");
        post("b");
        post("c");
        test::pass_pauses(2);
        mails += 3;
        EXPECT_EQ(status, 0) << stops;
        EXPECT_EQ(attempts_.codes(), std::vector<eml_send_e>(mails, eml_send_ok)) << stops;
        EXPECT_EQ(server.mails().size(), mails) << "once each";
        EXPECT_EQ(on_disk(), strings());
    }
}

// A pass of first attempts is followed by one of second ones.
TEST_F(StopInAChild, ThatACallbackForkedInTheRetryPassEndsTheChildOnly)
{
    start();
    post("a");
    test::pass_pauses(599);
    int status       = -1;
    attempts_.action = [&] {
        attempts_.action = nullptr;
        // A stop in the parent may hold it at that moment.
        ASSERT_EQ(::pthread_mutex_lock(&context().mutex), 0);
        status = fork_and_return(false);
        ASSERT_EQ(::pthread_mutex_unlock(&context().mutex), 0);
    };
    post("b");
    test::pass_pauses(1);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(attempts_.count(), 2U);
    EXPECT_EQ(on_disk(), (strings{"a.sme", "b.sme"}));
}
