// thread_test.cpp - the worker's clocks, and what it hears
//
// The engine's seconds are passed one by one, and each moves the clock by a second. Without
// settings every attempt fails at once: most of this is about when attempts are made.

#include "libemlw/thread.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <csignal>
#include <gtest/gtest.h>
#include <mutex>
#include <thread>

#include "libsendw/libsendw.h"
#include "platform/clock.h"
#include "platform/directory.h"
#include "tests/libemlw/engine_room.h"
#include "tests/support/mail_server.h"
#include "tests/support/threads.h"
#include "tests/support/trace_recorder.h"

using namespace zelieml;
using zelieml::test::mail_server;
using zelieml::test::strings;

namespace
{

int count(strings const& texts, char const* text)
{
    return static_cast<int>(std::count(texts.begin(), texts.end(), text));
}

constexpr char salvage_text[] = "---timer_proc_queue_salvage---";
constexpr char try_text[]     = "---timer_proc_queue_try---";

}  // namespace

// ------------------------------------------------------------------- by itself

TEST(Periods, AreFixed)
{
    for (char const* const workdir : {"/w", "", "/missing"}) {
        EXPECT_EQ(get_interval_queue_salvage(workdir), 1800000U);
        EXPECT_EQ(get_interval_queue_try(workdir), 600000U);
    }
}

TEST(WithoutAnEngine, NothingIsDone)
{
    struct row {
        char const* reason;
        void (*call)();
        strings said;
    };
    row const rows[] = {
        {"the worker",
         [] { EXPECT_EQ(eml_thread(nullptr), nullptr); },
         {"eml_thread in", "error:eml_thread param error"}},
        {"salvage", [] { timer_proc_queue_salvage(nullptr); }, {salvage_text, "error:TlsGetValue"}},
        {"the retry pass", [] { timer_proc_queue_try(nullptr); }, {try_text, "error:TlsGetValue"}},
        {"a notification",
         [] { timer_proc_mailslot(nullptr, nullptr, nullptr, nullptr, nullptr); },
         {"error:TlsGetValue"}},
    };
    for (row const& r : rows) {
        test::clear_traces();
        r.call();
        EXPECT_EQ(test::traces(), r.said) << r.reason;
    }
}

// A queue without a worker.
class EngineAtRest : public ::testing::Test
{
protected:
    EngineAtRest()
    {
        test::reset_notifications();
        iqmgr* queue = nullptr;
        EXPECT_EQ(iqmgr_create(&queue), 0);
        engine_.queue = queue;
        ::pthread_mutex_init(&engine_.mutex, nullptr);
        dir_.path().copy(engine_.workdir, workdir_size - 1);
        EXPECT_EQ(platform::add_observer(notify_name, "s", timer_proc_mailslot, &engine_), 0);
        test::clear_traces();
    }
    ~EngineAtRest() override
    {
        EXPECT_EQ(platform::remove_observer(notify_name, "s", &engine_), 0);
        ::pthread_mutex_destroy(&engine_.mutex);
        if (engine_.queue != nullptr) {
            iqmgr_destroy(engine_.queue.exchange(nullptr));
        }
    }

    static void deliver(char const* key, char const* value)
    {
        EXPECT_EQ(test::deliver(notify_name, "s", key, value), 1);
    }
    static void announce(std::string const& path) { deliver(notify_path_key, path.c_str()); }

    strings fresh()
    {
        strings paths;
        engine_.queue.load()->get(paths, 0, 0);
        return paths;
    }

    test::temp_dir const dir_;
    _s_iemlw             engine_;
};

TEST_F(EngineAtRest, QueuesWhatANotificationNames)
{
    announce("/w/a.sme");
    announce("/w/b.sme");
    EXPECT_EQ(test::traces(), (strings{"posted! %s", "add file %s", "posted! %s", "add file %s"}));
    announce("/w/a.sme");
    EXPECT_EQ(test::traces().back(), "warning:%s is already found");
    EXPECT_EQ(fresh(), (strings{"/w/a.sme", "/w/b.sme"}));
}

TEST_F(EngineAtRest, DropsANotificationWhosePathDoesNotFit)
{
    struct row {
        std::size_t length;
        bool        fits;
    };
    row const rows[] = {{1, true},   {254, true},  {255, true},  {398, true},
                        {399, true}, {400, false}, {401, false}, {5000, false}};
    for (row const& r : rows) {
        std::string const path(r.length, 'p');
        announce(path);
        EXPECT_EQ(fresh(), r.fits ? strings{path} : strings()) << r.length;
    }
}

TEST_F(EngineAtRest, DropsANotificationWithoutAPath)
{
    deliver(notify_path_key, nullptr);
    deliver("new_mail_file_pat", "/w/a.sme");
    deliver("", "/w/a.sme");
    EXPECT_EQ(test::traces(), strings());
    EXPECT_EQ(fresh(), strings());
}

TEST_F(EngineAtRest, DropsANotificationThatComesBeforeThereIsAQueue)
{
    iqmgr_destroy(engine_.queue.exchange(nullptr));
    announce("/w/a.sme");
    EXPECT_EQ(test::traces(), strings());
}

TEST_F(EngineAtRest, QueuesAFileItIsGiven)
{
    for (std::size_t const length : {1U, 398U, 399U}) {
        std::string const path(length, 'p');
        EXPECT_EQ(queue_file(&engine_, path.c_str(), {}), 0);
        EXPECT_EQ(fresh(), strings{path});
        EXPECT_EQ(queue_file(&engine_, path.c_str(), {}), 0) << "already there";
        EXPECT_EQ(fresh(), strings());
    }
    EXPECT_EQ(queue_file(&engine_, std::string(400, 'p').c_str(), {}), -1);
    EXPECT_EQ(queue_file(&engine_, nullptr, {}), -1);
    EXPECT_EQ(fresh(), strings());
    iqmgr_destroy(engine_.queue.exchange(nullptr));
    EXPECT_EQ(queue_file(&engine_, "/w/a.sme", {}), -1);
}

TEST_F(EngineAtRest, AddsUnderTheManagersMutex)
{
    iqmgr& queue = *engine_.queue.load();
    ASSERT_EQ(::pthread_mutex_lock(&queue.mutex()), 0);
    test::waiter delivering([] { announce("/w/a.sme"); });
    EXPECT_TRUE(delivering.gets_blocked());
    EXPECT_EQ(fresh(), strings());
    ASSERT_EQ(::pthread_mutex_lock(&engine_.mutex), 0) << "and does not need the engine's";
    ASSERT_EQ(::pthread_mutex_unlock(&queue.mutex()), 0);
    delivering.join();
    EXPECT_EQ(fresh(), strings{"/w/a.sme"});
    ASSERT_EQ(::pthread_mutex_unlock(&engine_.mutex), 0);
}

TEST_F(EngineAtRest, SalvagesOnRequest)
{
    test::write_file(dir_.file("a.sme"), "subject: s");
    timer_proc_queue_salvage(&engine_);
    EXPECT_EQ(test::traces(),
              (strings{salvage_text, "salvage_queue salvage", "posted! %s", "add file %s"}));
    EXPECT_EQ(fresh(), strings{dir_.file("a.sme")});
}

// First those never tried, then those queued 1800 s ago: the salvage interval, not the 600 s of
// the retry passes.
TEST_F(EngineAtRest, MakesBothPassesWhenItRetries)
{
    constexpr std::time_t start = 1700000000;
    auto const            retry = [&](std::time_t elapsed) {
        test::set_wall_clock(start + elapsed, 0);
        test::clear_traces();
        timer_proc_queue_try(&engine_);
        strings said = test::traces();
        // What the send driver says stands between these two.
        auto const begin = std::find(said.begin(), said.end(), "msg_fullpath = %s");
        if (begin != said.end()) {
            said.erase(begin, std::find(begin, said.end(), "error:isendw::send"));
        }
        return said;
    };
    strings const tested    = {"is_try_queue in try_count=%d interval=%d"};
    strings const skipped   = {"is_try_queue out with false"};
    strings const due       = {"is_try_queue(true) %s %d", "get file %s"};
    strings const attempted = {"_send_queue in %s try_count=%d", "error:isendw::send",
                               "_send_queue out %d"};
    strings const given_up  = {"_send_queue in %s try_count=%d",
                               "error:isendw::send",
                               "FAILED!!(SECOND)",
                               "erase:%s",
                               "error:remove(%s)",
                               "_send_queue out %d"};
    auto const    pass      = [](std::vector<strings> const& parts) {
        strings all = {"send_queue in"};
        for (strings const& part : parts) {
            all.insert(all.end(), part.begin(), part.end());
        }
        all.emplace_back("send_queue out %d");
        return all;
    };
    auto const both = [](strings const& first, strings const& second) {
        strings all = {try_text};
        all.insert(all.end(), first.begin(), first.end());
        all.insert(all.end(), second.begin(), second.end());
        return all;
    };

    test::set_wall_clock(start, 0);
    announce("/missing/a.sme");
    EXPECT_EQ(retry(0), both(pass({tested, due, attempted}), pass({tested, skipped})));
    EXPECT_EQ(retry(600), both(pass({tested, skipped}), pass({tested, skipped})));
    EXPECT_EQ(retry(1799), both(pass({tested, skipped}), pass({tested, skipped})));
    EXPECT_EQ(retry(1800), both(pass({tested, skipped}), pass({tested, due, given_up})));
    EXPECT_EQ(retry(2400), both(pass({}), pass({})));
}

// -------------------------------------------------------------- with its worker

class Worker : public test::engine_room
{
protected:
    // Passes so many seconds, and writes down at which of the engine's cycles each attempt was.
    void cycles(int count)
    {
        test::pass_pauses(count);
        passed_ += count;
    }
    int cycles_passed() const { return passed_; }

    // The cycles in which attempts were made. The clock has moved with the cycles.
    void note_cycles()
    {
        attempts_.action = [this] {
            std::lock_guard<std::mutex> const hold(guard_);
            made_at_.push_back(static_cast<int>(platform::wall_seconds() - start_time));
        };
    }
    std::vector<int> made_at() const
    {
        std::lock_guard<std::mutex> const hold(guard_);
        return made_at_;
    }
    strings traces_of(int count)
    {
        test::clear_traces();
        cycles(count);
        return test::traces();
    }

private:
    int                passed_ = 0;
    mutable std::mutex guard_;
    std::vector<int>   made_at_;
};

using at = std::vector<int>;

TEST_F(Worker, SendsWhatIsPostedWithinOneCycle)
{
    mail_server server;
    settings(server.smtp_port());
    start();
    post("anna");
    EXPECT_EQ(attempts_.count(), 0U);
    cycles(1);
    EXPECT_EQ(attempts_.codes(), std::vector<eml_send_e>{eml_send_ok});
    EXPECT_EQ(server.mails().size(), 1U);
    EXPECT_EQ(on_disk(), strings());
    cycles(3);
    EXPECT_EQ(attempts_.count(), 1U);
}

TEST_F(Worker, HasAPoolForWhatItsCallbacksAutorelease)
{
    attempts_.action = [] { platform::text_array_autorelease(platform::text_array_create()); };
    start();
    for (std::size_t made = 1; made <= 2; ++made) {
        post("anna" + std::to_string(made));
        cycles(1);
        EXPECT_EQ(attempts_.count(), made);
    }
}

TEST_F(Worker, LooksIntoItsQueueOnceACycle)
{
    start();
    EXPECT_EQ(traces_of(3), (strings{"send_queue in", "send_queue out %d", "send_queue in",
                                     "send_queue out %d", "send_queue in", "send_queue out %d"}));
}

// Queued after a number of cycles, tried in the next one, and tried again in the first cycle that
// can be divided by 600 and lies 1800 s after the queueing.
TEST_F(Worker, MakesTheSecondAttemptAtARetryPassOnceTheFileIsOldEnough)
{
    struct row {
        int queued;
        int first;
        int second;
    };
    row const rows[] = {
        {0, 1, 1800},                        // exactly 1800 s old at the pass
        {1, 2, 2400},                        // a second too young at 1800
        {598, 599, 2400}, {599, 600, 2400},  // the first attempt falls into a retry pass
        {600, 601, 2400},                    // exactly again
        {601, 602, 3000}, {1799, 1800, 3600}, {1800, 1801, 3600},
    };
    note_cycles();
    start();
    at wanted;
    for (row const& r : rows) {
        cycles(r.queued - cycles_passed());
        post(std::to_string(r.queued));
        wanted.push_back(r.first);
        wanted.push_back(r.second);
    }
    cycles(5000 - cycles_passed());
    at made = made_at();
    std::sort(made.begin(), made.end());
    std::sort(wanted.begin(), wanted.end());
    EXPECT_EQ(made, wanted);
    EXPECT_EQ(on_disk(), strings()) << "given up and deleted";
}

TEST_F(Worker, GivesAFileUpAfterTwoAttemptsAndTwoCallbacks)
{
    note_cycles();
    start();
    post("anna");
    cycles(1799);
    EXPECT_EQ(made_at(), at{1});
    EXPECT_EQ(on_disk(), strings{"anna.sme"});
    test::clear_traces();
    cycles(1);
    EXPECT_EQ(made_at(), (at{1, 1800}));
    EXPECT_EQ(count(test::traces(), "FAILED!!(SECOND)"), 1);
    EXPECT_EQ(on_disk(), strings());
    cycles(2000);
    EXPECT_EQ(attempts_.codes(), std::vector<eml_send_e>(2, eml_send_error_connection));
}

TEST_F(Worker, SendsAtTheSecondAttemptWhatFailedAtTheFirst)
{
    start();
    post("anna");
    cycles(1);
    mail_server server;
    settings(server.smtp_port());
    cycles(1798);
    EXPECT_EQ(server.mails().size(), 0U);
    cycles(1);
    EXPECT_EQ(attempts_.codes(), (std::vector<eml_send_e>{eml_send_error_connection, eml_send_ok}));
    EXPECT_EQ(server.mails().size(), 1U);
    EXPECT_EQ(on_disk(), strings());
    cycles(1200);
    EXPECT_EQ(attempts_.count(), 2U);
}

TEST_F(Worker, MakesARetryPassEvery600thCycle)
{
    start();
    strings const one_pass = {"send_queue in", "send_queue out %d"};
    EXPECT_EQ(count(traces_of(599), try_text), 0);
    for (int again = 0; again < 2; ++again) {
        // No pass of its own for new files: the retry pass makes one.
        EXPECT_EQ(traces_of(1), (strings{try_text, "send_queue in", "send_queue out %d",
                                         "send_queue in", "send_queue out %d"}));
        EXPECT_EQ(traces_of(1), one_pass);
        EXPECT_EQ(count(traces_of(598), try_text), 0);
    }
}

TEST_F(Worker, SendsNewFilesAlsoInARetryPass)
{
    start();
    cycles(599);
    post("anna");
    cycles(1);
    EXPECT_EQ(attempts_.count(), 1U);
}

TEST_F(Worker, LooksIntoTheWorkDirectoryEvery1800thCycle)
{
    start();
    for (int again = 0; again < 2; ++again) {
        EXPECT_EQ(count(traces_of(1799), salvage_text), 0);
        strings const said = traces_of(1);
        EXPECT_EQ(strings(said.begin(), said.begin() + 3),
                  (strings{salvage_text, "salvage_queue salvage", try_text}))
            << "first what is there, then the retry pass";
    }
}

TEST_F(Worker, SendsWhatItFindsInTheWorkDirectoryInTheSameCycle)
{
    note_cycles();
    start();
    cycles(10);
    message("unheard");
    cycles(1789);
    EXPECT_EQ(made_at(), at());
    cycles(1);
    EXPECT_EQ(made_at(), at{1800});
    cycles(1800);
    EXPECT_EQ(made_at(), (at{1800, 3600})) << "a second attempt 1800 s after it was found";
    EXPECT_EQ(on_disk(), strings());
}

TEST_F(Worker, QueuesNothingTwiceThatItFinds)
{
    note_cycles();
    start();
    cycles(100);
    post("failed");  // and so still there
    cycles(1700);
    EXPECT_EQ(made_at(), at{101});
    cycles(1800);
    EXPECT_EQ(made_at(), (at{101, 2400}));
}

// A directory with such a name cannot be sent, nor deleted when something is in it; and so it is
// found again and again.
TEST_F(Worker, FindsAgainWhatItCouldNotDelete)
{
    note_cycles();
    start();
    ASSERT_EQ(::mkdir(file("full").c_str(), 0777), 0);
    test::write_file(file("full") + "/x", "");
    cycles(1800);
    test::clear_traces();
    cycles(3 * 1800);
    EXPECT_EQ(made_at(), (at{1800, 3600, 5400, 7200}));
    EXPECT_EQ(count(test::traces(), "error:remove(%s)"), 2);
    EXPECT_EQ(on_disk(), strings{"full.sme"});
}

// Passes are counted in cycles, ages by the clock.
TEST_F(Worker, IsNotHurriedByAClockThatJumps)
{
    start();
    post("anna");
    cycles(1);
    test::set_wall_clock(start_time + 100000, 0);
    cycles(598);
    EXPECT_EQ(attempts_.count(), 1U);
    cycles(1);
    EXPECT_EQ(attempts_.count(), 2U) << "the next retry pass finds it old enough";
}

TEST_F(Worker, WaitsForAClockThatWentBack)
{
    start();
    post("anna");
    cycles(1);
    test::set_wall_clock(start_time - 3600, 0);
    cycles(5 * 600 - 2);
    EXPECT_EQ(attempts_.count(), 1U);
    post("bert");
    cycles(1);
    EXPECT_EQ(attempts_.count(), 2U) << "first attempts do not ask the clock";
    test::set_wall_clock(start_time + 1200, 0);
    cycles(600);
    EXPECT_EQ(attempts_.count(), 4U);
}

TEST_F(Worker, DeletesTheOldestFileOfAFullQueue)
{
    start();
    for (std::size_t i = 0; i < max_queue; ++i) {
        post(std::to_string(1000 + i));
    }
    EXPECT_EQ(on_disk().size(), max_queue);
    post("one too many");
    EXPECT_EQ(on_disk().size(), max_queue);
    EXPECT_FALSE(test::file_exists(file("1000")));
    cycles(1);
    EXPECT_EQ(attempts_.count(), max_queue);
    EXPECT_TRUE(test::file_exists(file("one too many")));
}

TEST_F(Worker, HearsOnlyWhatIsForItsSymbol)
{
    start();
    std::string const path = message("anna");
    EXPECT_EQ(test::deliver(notify_name, "stoc", notify_path_key, path.c_str()), 0);
    EXPECT_EQ(test::deliver(notify_name, "stock2", notify_path_key, path.c_str()), 0);
    EXPECT_EQ(test::deliver("zelieml_notify", symbol, notify_path_key, path.c_str()), 0);
    EXPECT_EQ(test::deliver("zelieml_notifyname", "stock", "new_mail_file_path", path.c_str()), 1);
}

TEST_F(Worker, RunsItsCallbacksOnItsOwnThreadWithoutSignals)
{
    std::thread::id thread;
    int             open = 0;
    attempts_.action     = [&] {
        thread = std::this_thread::get_id();
        sigset_t blocked;
        ::pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
        for (int const signal : {SIGINT, SIGTERM, SIGHUP, SIGALRM, SIGPIPE, SIGUSR1, SIGCHLD}) {
            open += ::sigismember(&blocked, signal) == 1 ? 0 : 1;
        }
    };
    start();
    post("anna");
    cycles(1);
    EXPECT_NE(thread, std::thread::id());
    EXPECT_NE(thread, std::this_thread::get_id());
    EXPECT_EQ(open, 0);
}

TEST_F(Worker, CallsACallbackThatCameDuringAnAttemptFromTheNextOneOn)
{
    test::result_list other;
    attempts_.action = [&] {
        attempts_.action = nullptr;
        EXPECT_EQ(eml_set_callback(engine_, test::result_list::note, nullptr), 0) << "is there";
        EXPECT_EQ(eml_reset_callback(engine_, test::result_list::note), 0);
        EXPECT_EQ(eml_set_callback(engine_, test::result_list::note, &other), 0);
    };
    start();
    post("a");
    post("b");
    cycles(1);
    EXPECT_EQ(attempts_.count(), 1U);
    EXPECT_EQ(other.count(), 1U) << "the second attempt of the same pass";
    stop();
}

// Adders on two threads, sending on the worker, callbacks that come and go. A file that is announced
// once more after it was sent is an attempt for a file that is not there.
TEST_F(Worker, LosesNoMessageWhenEverythingComesAtOnce)
{
    constexpr int posters      = 2;
    constexpr int mails_of_one = 30;
    mail_server   server;
    settings(server.smtp_port());
    start();
    std::atomic<int>         posting{posters};
    std::vector<std::thread> threads;
    for (int i = 0; i < posters; ++i) {
        threads.emplace_back([&, i] {
            for (int k = 0; k < mails_of_one; ++k) {
                std::string const path = message(std::to_string(i) + "-" + std::to_string(k));
                announce(path);
                announce(path);
            }
            --posting;
        });
    }
    threads.emplace_back([&] {
        auto* const other = +[](void*, void*) { return 0; };
        while (posting > 0) {
            EXPECT_EQ(eml_set_callback(engine_, other, nullptr), 0);
            EXPECT_EQ(eml_reset_callback(engine_, other), 0);
        }
    });
    while (posting > 0) {
        cycles(1);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    cycles(1);
    std::vector<eml_send_e> const codes = attempts_.codes();
    EXPECT_EQ(std::count(codes.begin(), codes.end(), eml_send_ok), posters * mails_of_one);
    EXPECT_EQ(std::count(codes.begin(), codes.end(), eml_send_error_other),
              static_cast<std::ptrdiff_t>(codes.size()) - posters * mails_of_one);
    strings recipients;
    for (auto const& mail : server.mails()) {
        recipients.push_back(mail.recipients.at(0));
    }
    std::sort(recipients.begin(), recipients.end());
    EXPECT_EQ(recipients.size(), std::size_t{posters} * mails_of_one);
    EXPECT_EQ(std::unique(recipients.begin(), recipients.end()), recipients.end());
    EXPECT_EQ(on_disk(), strings());
}

// -------------------------------------------------------------------- stopping

// A server that holds the first mail until it is told to go on.
TEST_F(Worker, StoppedInTheMiddleOfAPassFinishesOneMailAndLeavesTheRest)
{
    std::mutex              guard;
    std::condition_variable changed;
    bool                    mail_is_there = false;
    bool                    go_on         = false;
    mailserver::options     options;
    options.on_mail = [&](mailserver::mail const&) {
        std::unique_lock<std::mutex> hold(guard);
        mail_is_there = true;
        changed.notify_all();
        changed.wait(hold, [&] { return go_on; });
    };
    mailserver::server server(options);
    settings(server.smtp_port());
    start();
    post("a");
    post("b");
    post("c");
    test::let_pauses_pass(1);
    {
        std::unique_lock<std::mutex> hold(guard);
        changed.wait(hold, [&] { return mail_is_there; });
    }
    test::clear_traces();
    _s_iemlw&    engine = context();
    test::waiter stopping([&] { stop(); });
    while (!engine.stop) {
        std::this_thread::yield();
    }
    EXPECT_TRUE(stopping.gets_blocked()) << "it waits for the mail";
    {
        std::lock_guard<std::mutex> const hold(guard);
        go_on = true;
        changed.notify_all();
    }
    stopping.join();

    EXPECT_EQ(attempts_.codes(), std::vector<eml_send_e>{eml_send_ok});
    EXPECT_EQ(on_disk(), (strings{"b.sme", "c.sme"}));
    strings const said = test::traces();
    EXPECT_EQ(count(said, "warning: STOP flag ON !!"), 1);
    EXPECT_EQ(strings(said.end() - 7, said.end()),
              (strings{"erase:%s", "removed %s", "_send_queue out %d", "warning: STOP flag ON !!",
                       "eml_thread out", "stop_thread out", "eml_stop out"}));
}

TEST_F(Worker, ThatIsStoppedLeavesItsFilesToTheNextStartWhichDeletesThem)
{
    mail_server server;
    start();
    post("failed");
    cycles(1);
    stop();
    EXPECT_EQ(on_disk(), strings{"failed.sme"});
    post("nobody listens");
    EXPECT_EQ(on_disk(), (strings{"failed.sme", "nobody listens.sme"}));

    settings(server.smtp_port());
    start();
    EXPECT_EQ(on_disk(), strings());
    cycles(1801);
    EXPECT_EQ(server.mails().size(), 0U);
    EXPECT_EQ(attempts_.count(), 1U);
}

TEST_F(Worker, ThatWasStoppedReportsNothingAnyMore)
{
    test::thread_id worker = 0;
    attempts_.action       = [&] { worker = test::this_thread(); };
    start();
    post("a");
    cycles(1);
    post("b");
    stop();
    EXPECT_EQ(attempts_.count(), 1U) << "b was chosen in the last cycle and not sent";
    EXPECT_EQ(test::observers(), 0);
    post("c");
    EXPECT_TRUE(test::wait_until_ended(worker)) << "nobody is left to report";
    EXPECT_EQ(attempts_.count(), 1U);
    EXPECT_EQ(on_disk(), (strings{"a.sme", "b.sme", "c.sme"}));
}
