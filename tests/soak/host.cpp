#include "tests/soak/host.h"

#include <condition_variable>
#include <deque>
#include <malloc.h>
#include <mutex>
#include <thread>
#include <vector>

#include "tests/soak/books.h"
#include "tests/soak/guests.h"
#include "tests/soak/posters.h"
#include "tests/soak/reports.h"
#include "tests/support/files.h"
#include "tests/support/threads.h"

namespace zelieml::test
{

namespace
{

// ------------------------------------------------------------------ permanent callbacks

// Copies of result records on their way to another thread.
class record_queue
{
public:
    void put(void* record)
    {
        std::lock_guard<std::mutex> const hold(guard_);
        records_.push_back(record);
        changed_.notify_one();
    }

    // Null when nothing comes for a while.
    void* get()
    {
        std::unique_lock<std::mutex> hold(guard_);
        changed_.wait_for(hold, std::chrono::milliseconds(20), [&] { return !records_.empty(); });
        if (records_.empty()) {
            return nullptr;
        }
        void* const first = records_.front();
        records_.pop_front();
        return first;
    }

private:
    std::mutex              guard_;
    std::condition_variable changed_;
    std::deque<void*>       records_;
};

record_queue          copies;
std::atomic<unsigned> freed{0};

// Enters a report of one of the two. The first also settles the mail.
void enter_report(told const& report, int callback)
{
    unsigned   number  = 0;
    bool const sent    = report.is_sent(number);
    bool const refused = !sent && report.is_refused(number);
    ++book->reports[callback];
    if (!sent && !refused) {
        ++book->nameless[callback];
        expect(report.is_nameless_failure(), ("a report says " + report.all()).c_str());
        return;
    }
    if (number >= book->mails || book->account[number].sender != way::main_engine) {
        report_failure("a report is about a mail of somebody else: " + report.all());
        return;
    }
    mail_account& mail  = book->account[number];
    int const     times = ++(sent ? mail.sent : mail.failed)[callback];
    if (callback == 0 && (sent ? times == 1 : mail.end == fate::refused_twice && times == 2)) {
        settle_mail();
    }
}

// The first of all: the others can count on its number.
int hear_first(void* record, void*)
{
    void* copy = nullptr;
    enter_report(told(record), 0);
    expect(eml_cb_duplicate(record, &copy) == 0, "eml_cb_duplicate");
    copies.put(copy);
    return 0;
}

void free_copies()
{
    acting const here(actor_freeing);
    while (book->now != stage::over || freed < book->reports[0]) {
        begin_step(nullptr);
        void* const copy = copies.get();
        if (copy != nullptr) {
            begin_step("frees a record");
            enter_report(told(copy), 1);
            eml_cb_delete(copy);
            ++freed;
        }
    }
}

// ------------------------------------------------------------------ those that come and go

std::atomic<unsigned> shifts{0};

// Of three there is always one: each takes itself out, and the next one in.
template <int number>
int shift(void*, void* eml)
{
    ++shifts;
    expect(eml_reset_callback(eml, shift<number>) == 0, "eml_reset_callback in a callback");
    expect(eml_set_callback(eml, shift<(number + 1) % 3>, eml) == 0,
           "eml_set_callback in a callback");
    return 0;
}

int count_call(void*, void* user)
{
    ++*static_cast<std::atomic<int>*>(user);
    return 0;
}

// One stay of a callback among the others. It is called for each attempt that begins meanwhile:
// the numbers of the attempts, which the first callback counts, say how often that is. An attempt
// that is at work during a call may have seen the list before or after it.
void register_for_a_while(void* eml)
{
    static std::atomic<int>      calls;
    static std::atomic<int>      wrong_user;
    std::atomic<unsigned> const& attempts = book->reports[0];

    calls                 = 0;
    unsigned const before = attempts;
    expect(eml_set_callback(eml, count_call, &calls) == 0, "eml_set_callback");
    unsigned const set = attempts;
    expect(eml_set_callback(eml, count_call, &wrong_user) == 0, "eml_set_callback again");
    begin_step("stays registered");
    while (attempts < set + 10 && book->now == stage::load) {
        ::usleep(1000);
    }
    unsigned const reset = attempts;
    begin_step("eml_reset_callback");
    expect(eml_reset_callback(eml, count_call) == 0, "eml_reset_callback");
    unsigned const after = attempts;

    // When the next but one has begun, the last attempt that may call it is over.
    do {
        ::usleep(1000);
        if (!load_goes_on()) {
            return;
        }
        begin_step("waits for two attempts");
    } while (attempts < after + 2);
    auto const called = static_cast<unsigned>(calls);
    expect(called <= after + 1 - before, "a callback was called after it was removed");
    expect(called + set + 1 >= reset, "a callback that is registered was not called");
    expect(wrong_user == 0, "a callback that is registered twice has its second user");
}

void register_again_and_again(void* eml)
{
    acting const here(actor_registering);
    while (load_goes_on()) {
        register_for_a_while(eml);
    }
}

// ------------------------------------------------------------------ settings

void read_settings(site const& where)
{
    acting const here(actor_reading);
    while (load_goes_on()) {
        begin_step("eml_cf_get_string");
        char         value[64] = "";
        unsigned int size      = sizeof value;
        expect(eml_cf_get_string("smtp_server", value, &size, where.main.settings().c_str()) == 0 &&
                   std::string(value) == "127.0.0.1",
               "eml_cf_get_string");
        ::usleep(2000);
    }
}

// ------------------------------------------------------------------ what is held

holdings now_held(int threads)
{
    // The worker of an engine that stopped itself may still be ending.
    expect(wait_for_running_threads(threads), "threads are left while nothing is to do");
    struct mallinfo2 const info = ::mallinfo2();
    return {info.uordblks + info.hblkhd, open_descriptors(), running_threads()};
}

void measure_when_asked(place const& main, int threads)
{
    while (book->now != stage::over) {
        begin_step(nullptr);
        int const next = book->measures_taken;
        if (next < book->measures_wanted) {
            // A mail is settled in the first callback: the rest of its attempt may be to come.
            wait_for("waits for the end of the last attempt",
                     [&] { return main.messages().empty() && freed == book->reports[0]; });
            expect(shifts == book->reports[0], "of three callbacks, not exactly one was called");
            book->measured[next] = now_held(threads);
            ++book->measures_taken;
        }
        ::usleep(1000);
    }
}

}  // namespace

void run_host(site const& where)
{
    acting const here(actor_host);
    // With the first thread the thread sanitizer starts one of its own.
    std::thread([] {}).join();
    int const threads_before     = running_threads();
    int const descriptors_before = open_descriptors();
    void*     eml                = nullptr;

    begin_step("eml_start");
    expect(eml_start_with_stocksymbol(where.main.work.c_str(), where.main.symbol.c_str(), &eml) ==
               0,
           "eml_start");
    expect(eml_set_callback(eml, hear_first, nullptr) == 0 &&
               eml_set_callback(eml, shift<0>, eml) == 0,
           "eml_set_callback");
    book->now = stage::load;  // not before: the start deletes what has been posted
    {
        std::vector<std::thread> threads;
        threads.emplace_back(free_copies);
        threads.emplace_back([&] { post_in_host(actor_host_poster, eml, where.main); });
        threads.emplace_back([&] { post_in_host(actor_host_poster_2, eml, where.main); });
        threads.emplace_back([&] { register_again_and_again(eml); });
        threads.emplace_back([&] { read_settings(where); });
        for (int i = 0; i < guest_count; ++i) {
            threads.emplace_back([&where, eml, i] { run_guests(where, i, eml); });
        }
        constexpr int of_engine = 2;
        measure_when_asked(where.main,
                           threads_before + static_cast<int>(threads.size()) + of_engine);
        for (std::thread& thread : threads) {
            thread.join();
        }
    }
    begin_step("eml_stop_multi");
    expect(eml_stop_multi(&eml) == 0 && eml == nullptr, "eml_stop_multi");
    expect(wait_for_running_threads(threads_before), "threads are left after the last stop");
    expect(open_descriptors() == descriptors_before, "descriptors are left after the last stop");
}

}  // namespace zelieml::test
