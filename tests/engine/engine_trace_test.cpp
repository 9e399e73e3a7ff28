// engine_trace_test.cpp - what the exports of engines and posting say to the trace hook, in order
//
// The worker stands at its pause until it is stopped, so its traces have their places too.

#include <algorithm>
#include <cstdlib>
#include <gtest/gtest.h>

#include "tests/support/fake_clock.h"
#include "tests/support/fake_pause.h"
#include "tests/support/program.h"
#include "tests/support/skip.h"
#include "tests/support/trace_recorder.h"
#include "tests/support/workplace.h"

namespace zelieml::test
{

namespace
{

notification_root const root;
closed_port const       nobody;

strings const started = {"eml_start in",     "workdir = %s",    "stock_symbol = %s",
                         "start_thread in",  "eml_thread in",   "salvage_queue erase",
                         "start_thread out", "eml_start out %x"};
// From the end of the pause on the worker makes one more round.
strings const thread_stopped = {"stop_thread in", "send_queue in", "send_queue out %d",
                                "eml_thread out", "stop_thread out"};

strings in_frame(std::string const& first, strings texts, std::string const& last)
{
    texts.insert(texts.begin(), first);
    texts.push_back(last);
    return texts;
}

// The traces of one call.
template <class Call>
strings traces_of(Call&& call)
{
    clear_traces();
    call();
    return traces();
}

// The traces of a post that reaches an engine; those of the delivering thread come at any place.
template <class Call>
strings traces_of_heard_post(Call&& call)
{
    auto const    delivered = [](std::string const& text) { return text == "add file %s"; };
    strings const other     = {"posted! %s", "add file %s"};
    clear_traces();
    call();
    EXPECT_TRUE(wait_until([&] {
        strings const texts = traces();
        return std::any_of(texts.begin(), texts.end(), delivered);
    }));
    strings texts = traces();
    texts.erase(std::remove_if(texts.begin(), texts.end(),
                               [&](std::string const& text) {
                                   return std::count(other.begin(), other.end(), text) != 0;
                               }),
                texts.end());
    return texts;
}

class EngineTraces : public ::testing::Test
{
protected:
    EngineTraces() { set_wall_clock(1700000000, 1); }

    // Starts, stands at the pause, and leaves no traces.
    void* start()
    {
        void* eml = nullptr;
        EXPECT_EQ(eml_start_with_stocksymbol(work_.path(), "symbol", &eml), 0);
        wait_for_pause();
        clear_traces();
        return eml;
    }

    workplace const work_ = workplace(nobody.number());
};

}  // namespace

TEST_F(EngineTraces, OfStartAndStop)
{
    void* eml = nullptr;
    EXPECT_EQ(traces_of([&] {
                  EXPECT_EQ(eml_start_with_stocksymbol(work_.path(), "symbol", &eml), 0);
                  wait_for_pause();
              }),
              started);
    EXPECT_EQ(traces_of([&] { EXPECT_EQ(eml_stop(eml), 0); }),
              in_frame("eml_stop in", thread_stopped, "eml_stop out"));

    EXPECT_EQ(traces_of([&] {
                  EXPECT_EQ(eml_start(work_.path(), &eml), 0);
                  wait_for_pause();
              }),
              started);
    EXPECT_EQ(traces_of([&] { EXPECT_EQ(eml_stop_multi(&eml), 0); }),
              in_frame("eml_stop_multi in %x", thread_stopped, "eml_stop_multi out"));
    EXPECT_EQ(eml, nullptr);
}

TEST_F(EngineTraces, OfAStartThatFails)
{
    SKIP_UNLESS(test::has_backend("linux"), "only on Linux do notifications need a directory");
    strings const     no_thread = {"eml_start in",    "workdir = %s",       "stock_symbol = %s",
                                   "start_thread in", "error:start_thread", "error: ieml::start"};
    std::string const no_symbol(255, 's');
    std::string const no_directory(256, 'd');
    struct row {
        char const* reason;
        char const* workdir;
        char const* symbol;
        strings     wanted;
    } const rows[] = {
        {"an empty symbol", work_.path(), "", no_thread},
        {"a symbol that does not fit",
         work_.path(),
         no_symbol.c_str(),
         {"eml_start in", "workdir = %s", "error: ieml::start"}},
        {"a work directory that does not fit",
         no_directory.c_str(),
         "symbol",
         {"eml_start in", "error: ieml::start"}},
    };
    int untouched = 0;
    for (row const& r : rows) {
        SCOPED_TRACE(r.reason);
        void* eml = &untouched;
        EXPECT_EQ(traces_of([&] {
                      EXPECT_EQ(eml_start_with_stocksymbol(r.workdir, r.symbol, &eml), -1);
                  }),
                  r.wanted);
        EXPECT_EQ(eml, &untouched);
    }

    temp_dir empty;
    ::setenv("ZELIEML_NOTIFICATION_ROOT", empty.file("missing").c_str(), 1);
    void* eml = &untouched;
    EXPECT_EQ(
        traces_of([&] { EXPECT_EQ(eml_start_with_stocksymbol(work_.path(), "symbol", &eml), -1); }),
        no_thread);
    ::setenv("ZELIEML_NOTIFICATION_ROOT", root.dir.path().c_str(), 1);
    EXPECT_EQ(eml, &untouched);

    EXPECT_EQ(traces_of([&] {
                  EXPECT_EQ(eml_start_with_stocksymbol(work_.path(), "symbol", nullptr), -1);
              }),
              (strings{"eml_start in", "error:ieml_create"}));
}

TEST_F(EngineTraces, OfAStopWithoutAnEngine)
{
    void* none = nullptr;
    EXPECT_EQ(traces_of([&] { EXPECT_EQ(eml_stop(nullptr), -1); }),
              (strings{"eml_stop in", "error:eml_stop eml == 0"}));
    EXPECT_EQ(traces_of([&] { EXPECT_EQ(eml_stop_multi(&none), 0); }),
              (strings{"eml_stop_multi in %x", "eml_stop_multi out eml == 0 now !!"}));
    EXPECT_EQ(none, nullptr);
}

// The worker is in a callback when the first stop comes, and makes the second one from there.
TEST_F(EngineTraces, OfAStopWithinAStop)
{
    struct late {
        void*   eml     = nullptr;
        bool    stopped = false;
        strings said;

        static int stop_again(void*, void* user)
        {
            auto* const self = static_cast<late*>(user);
            clear_traces();
            EXPECT_TRUE(wait_until([&] {
                strings const texts = traces();
                return !texts.empty() && texts.back() == "stop_thread in";
            }));
            self->said    = traces_of([&] { EXPECT_EQ(eml_stop_multi(&self->eml), 0); });
            self->stopped = self->eml == nullptr;
            return 0;
        }
    };
    late mine;
    mine.eml = start();
    EXPECT_EQ(eml_set_callback(mine.eml, late::stop_again, &mine), 0);
    EXPECT_EQ(post_mail(work_.path(), "symbol", "x"), 0);
    EXPECT_TRUE(wait_until([&] {
        strings const texts = traces();
        return std::count(texts.begin(), texts.end(), "add file %s") == 1;
    }));
    let_pauses_pass(1);
    EXPECT_TRUE(wait_until([&] { return traces().empty(); })) << "in the callback";
    void* eml = mine.eml;
    EXPECT_EQ(eml_stop_multi(&eml), 0);
    EXPECT_EQ(mine.said, (strings{"eml_stop_multi in %x", "g_in_stop_multi == 0"}));
    EXPECT_FALSE(mine.stopped);
    EXPECT_EQ(eml, nullptr);
}

TEST_F(EngineTraces, OfPosting)
{
    void* const   eml     = start();
    void* const   mail    = new_mail("x");
    strings const no_name = {"post in workdir=%s", "warning:existing file:%s",
                             "error:existing file:%s"};

    EXPECT_EQ(traces_of_heard_post([&] { EXPECT_EQ(eml_post_sys(eml, mail), 0); }),
              (strings{"eml_post in", "post in workdir=%s", "post out", "eml_post out"}));
    // The clock stands: one more name there is.
    EXPECT_EQ(
        traces_of([&] { EXPECT_EQ(eml_post_with_stocksymbol(work_.path(), "nobody", mail), 0); }),
        (strings{"post in workdir=%s", "warning:existing file:%s", "post out"}));
    EXPECT_EQ(traces_of([&] { EXPECT_EQ(eml_post(work_.path(), mail), -1); }), no_name);
    EXPECT_EQ(traces_of([&] { EXPECT_EQ(eml_post_sys(eml, mail), -1); }),
              in_frame("eml_post in", no_name, "errro:eml_post"));
    EXPECT_EQ(traces_of([&] { EXPECT_EQ(eml_post_sys(nullptr, mail), -1); }),
              strings{"eml_post in"});

    EXPECT_EQ(traces_of([&] {
                  EXPECT_EQ(eml_post_with_stocksymbol((work_.outside() + "/none").c_str(), "symbol",
                                                      mail),
                            -1);
              }),
              (strings{"post in workdir=%s", "error:ofstream(%s)", "error:msg_save(%s)"}));
    set_wall_clock(1700000001, 1);
    EXPECT_EQ(traces_of([&] { EXPECT_EQ(eml_post_with_stocksymbol(work_.path(), "", mail), 0); }),
              (strings{"post in workdir=%s", "error:inotify_send::send", "error:msg_save(%s)",
                       "post out"}));
    set_wall_clock(1700000002, 1);
    EXPECT_EQ(traces_of([&] { EXPECT_EQ(eml_post_sys(eml, nullptr), -1); }).back(),
              "errro:eml_post");
    eml_msg_destroy(mail);
    EXPECT_EQ(eml_stop(eml), 0);
}

TEST_F(EngineTraces, OfAnnouncing)
{
    strings const good = {"post fullpath=%s", "post stock_symbol=%s"};
    EXPECT_EQ(traces_of([] { EXPECT_EQ(eml_post_message_file("/w/a.sme"), 0); }), good);
    EXPECT_EQ(traces_of([] {
                  EXPECT_EQ(eml_post_message_file_with_stocksymbol("/w/a.sme", "nobody"), 0);
              }),
              good);
    EXPECT_EQ(
        traces_of([] { EXPECT_EQ(eml_post_message_file_with_stocksymbol("/w/a.sme", ""), -1); }),
        (strings{"post fullpath=%s", "post stock_symbol=%s", "error:inotify_send::send"}));
}

TEST_F(EngineTraces, OfCallbacks)
{
    void* const eml = start();
    EXPECT_EQ(traces_of([&] {
                  EXPECT_EQ(eml_set_callback(eml, result_list::note, nullptr), 0);
                  EXPECT_EQ(eml_set_callback(eml, result_list::note, nullptr), 0);
                  EXPECT_EQ(eml_reset_callback(eml, result_list::note), 0);
                  EXPECT_EQ(eml_reset_callback(eml, result_list::note), 0);
              }),
              (strings{"added proc", "warning:proc already exists in callback param",
                       "the proc is erased.", "warning:the proc is not found"}));
    EXPECT_EQ(eml_stop(eml), 0);
}

}  // namespace zelieml::test
