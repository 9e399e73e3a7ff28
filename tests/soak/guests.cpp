#include "tests/soak/guests.h"

#include <csignal>
#include <cstring>
#include <string>
#include <sys/prctl.h>
#include <sys/wait.h>

#include "tests/soak/books.h"
#include "tests/soak/engine_clock.h"
#include "tests/soak/posters.h"
#include "tests/soak/reports.h"
#include "zelieml.h"

namespace zelieml::test
{

namespace
{

bool const threads_in_child = std::strstr(ZELIEML_SANITIZERS, "thread") == nullptr;

void stop_multi(void*& eml)
{
    while (eml != nullptr) {  // another thread may be in such a call
        expect(eml_stop_multi(&eml) == 0, "eml_stop_multi");
    }
}

// An engine that counts its reports.
class guest_engine
{
public:
    explicit guest_engine(place const& where) : where_(where)
    {
        begin_step("eml_start of another engine");
        expect(eml_start_with_stocksymbol(where.work.c_str(), where.symbol.c_str(), &eml_) == 0,
               "eml_start of another engine");
        ++book->engines;
        expect(eml_set_callback(eml_, hear, this) == 0, "eml_set_callback of another engine");
    }
    ~guest_engine() { stop(); }
    guest_engine(guest_engine const&)            = delete;
    guest_engine& operator=(guest_engine const&) = delete;

    void* handle() const { return eml_; }

    void post(way sender, int count)
    {
        begin_step("posts to another engine");
        for (int i = 0; i < count; ++i) {
            post_to(where_, sender);
        }
    }

    void wait_for_reports(int count)
    {
        wait_for("waits for reports of another engine", [&] { return sent_ + failed_ >= count; });
    }

    void stop()
    {
        begin_step("eml_stop of another engine");
        if (eml_ != nullptr) {
            expect(eml_stop(eml_) == 0, "eml_stop");
            eml_ = nullptr;
        }
    }
    void stop_with_multi()
    {
        begin_step("eml_stop_multi of another engine");
        stop_multi(eml_);
    }

    int sent() const { return sent_; }
    int failed() const { return failed_; }

private:
    static int hear(void* record, void* user)
    {
        auto* const self   = static_cast<guest_engine*>(user);
        told const  report = told(record);
        unsigned    number = 0;
        if (report.is_sent(number)) {
            ++book->account[number].sent[0];
            ++self->sent_;
        } else {
            expect(report.has_no_settings(), ("another engine reports " + report.all()).c_str());
            ++self->failed_;
        }
        return 0;
    }

    place const&     where_;
    void*            eml_ = nullptr;
    std::atomic<int> sent_{0};
    std::atomic<int> failed_{0};
};

struct round {
    site const& where;
    int         number;  // of the guest
    void*       main_eml;

    place const& home() const { return where.guests[number]; }
};

// ------------------------------------------------------------------ lives

void send_and_stop(round const& r)
{
    guest_engine engine(r.home());
    engine.post(way::other_engine, 3);
    engine.wait_for_reports(3);
    engine.stop();
    expect(engine.sent() == 3 && engine.failed() == 0, "another engine failed to send");
    expect(r.home().messages().empty(), "another engine left message files");
}

void start_and_stop(round const& r)
{
    for (int i = 0; i < 5; ++i) {
        guest_engine engine(r.home());
        if (i % 2 == 0) {
            engine.post(way::perhaps, 2);
        }
        engine.stop_with_multi();
    }
}

// ------------------------------------------------------------------ stops in a callback

struct self_stop {
    void*            eml   = nullptr;
    bool             multi = false;
    std::atomic<int> calls{0};
    std::atomic<int> returned{0};

    static int run(void*, void* user)
    {
        auto* const self = static_cast<self_stop*>(user);
        ++self->calls;
        if (self->multi) {
            stop_multi(self->eml);
        } else {
            expect(eml_stop(self->eml) == 0, "eml_stop in a callback");
        }
        ++self->returned;
        return 0;
    }
};

// The engine ends by itself: what the callback uses is needed until it has returned, and nobody
// knows when the thread has ended.
void stop_in_callback(round const& r, bool multi)
{
    static self_stop stops[guest_count];
    self_stop&       own = stops[r.number];
    own.eml              = nullptr;
    own.multi            = multi;
    own.calls            = 0;
    own.returned         = 0;
    begin_step("eml_start of an engine that stops itself");
    expect(eml_start_with_stocksymbol(r.home().work.c_str(), r.home().symbol.c_str(), &own.eml) ==
               0,
           "eml_start of an engine that stops itself");
    ++book->engines;
    expect(eml_set_callback(own.eml, self_stop::run, &own) == 0,
           "eml_set_callback of an engine that stops itself");
    for (int i = 0; i < 4; ++i) {
        post_to(r.home(), way::perhaps);
    }
    wait_for("waits for an engine that stops itself", [&] { return own.returned == 1; });
    guest_engine next(r.home());
    next.post(way::other_engine, 1);
    next.wait_for_reports(1);
    expect(own.calls == 1, "an engine that stopped itself went on");
}

void stop_itself(round const& r)
{
    stop_in_callback(r, false);
}

void stop_itself_with_multi(round const& r)
{
    stop_in_callback(r, true);
}

// ------------------------------------------------------------------ settings

// Reading them can fail while they are written: then the attempt fails.
void change_settings(round const& r)
{
    std::string const settings = r.home().settings();
    guest_engine      engine(r.home());
    engine.post(way::perhaps, 5);
    begin_step("eml_cf_set_string");
    for (int i = 0; i < 20; ++i) {
        std::string const wanted    = "account " + std::to_string(i);
        char              value[64] = "";
        unsigned int      size      = sizeof value;
        expect(eml_cf_set_string("smtp_account", wanted.c_str(), settings.c_str()) == 0,
               "eml_cf_set_string");
        expect(eml_cf_get_string("smtp_account", value, &size, settings.c_str()) == 0 &&
                   value == wanted,
               "eml_cf_get_string after eml_cf_set_string");
    }
    engine.wait_for_reports(5);
}

// ------------------------------------------------------------------ a full queue

struct gate {
    std::atomic<bool> entered{false};
    std::atomic<bool> open{false};

    static int pass(void*, void* user)
    {
        auto* const self = static_cast<gate*>(user);
        self->entered    = true;
        while (!self->open) {
            ::usleep(500);
        }
        return 0;
    }
};

// While the engine reports the first mail, so many others are posted that the first and some more
// have to go.
void overflow(round const& r)
{
    constexpr int fit  = 500;
    constexpr int more = 10;

    gate         door;
    guest_engine engine(r.home());
    expect(eml_set_callback(engine.handle(), gate::pass, &door) == 0, "eml_set_callback of a gate");
    unsigned const first = post_to(r.home(), way::perhaps);
    wait_for("waits for the first report", [&] { return door.entered.load(); });
    begin_step("fills the queue");
    for (int i = 0; i < fit + more; ++i) {
        post_to(r.home(), way::perhaps);
    }
    // On a machine that is too busy a notification may be lost: then its file is another that waits,
    // and the scan finds it.
    std::int64_t const until = now_ms() + 5000;
    wait_for("waits until the oldest have gone",
             [&] { return r.home().messages().size() == fit || now_ms() > until; });
    auto const waiting = static_cast<int>(r.home().messages().size());
    door.open          = true;
    engine.wait_for_reports(1 + waiting);
    wait_for("waits until a queue is empty", [&] { return r.home().messages().empty(); });
    engine.stop();
    expect(engine.sent() == 1 + waiting && engine.failed() == 0, "a full queue lost other mails");
    expect(waiting < fit + more, "nothing had to leave a full queue");
    expect(book->account[first].delivered == 1, "the first of a full queue was not sent");
}

// ------------------------------------------------------------------ forks

// Only what is allowed in a child of a process with threads.
[[noreturn]] void live_as_child(round const& r, guest_engine& copy, void* main_copy)
{
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    int const failures = book->failures;
    acting    here(r.number == 0 ? actor_forked : actor_forked_2);
    begin_step("posts in a child");
    post_to(main_copy, way::main_engine);
    begin_step("eml_stop in a child");
    copy.stop();
    stop_multi(main_copy);
    post_to(r.home(), way::other_engine);
    if (threads_in_child) {
        look_no_names_up();  // it could wait for ever, see fork in docs/EMBEDDING.md
        guest_engine own(r.where.forked[r.number]);
        own.post(way::other_engine, 2);
        own.wait_for_reports(2);
        own.stop_with_multi();
    }
    begin_step(nullptr);
    ::_exit(book->failures == failures ? 0 : 1);
}

void fork_beside_engines(round const& r)
{
    guest_engine engine(r.home());
    begin_step("fork");
    pid_t const child = ::fork();
    if (child == 0) {
        live_as_child(r, engine, r.main_eml);
    }
    ++book->forks;
    int status = 0;
    begin_step("waits for a child");
    expect(child > 0 && ::waitpid(child, &status, 0) == child && status == 0,
           "a forked child ended badly");
    engine.wait_for_reports(1);
    engine.stop();
    expect(engine.sent() == 1 && engine.failed() == 0, "an engine did not send the child's mail");
}

using life                    = void(round const&);
life* const        lives[]    = {send_and_stop,          start_and_stop, stop_itself,
                                 fork_beside_engines,    send_and_stop,  change_settings,
                                 stop_itself_with_multi, start_and_stop, overflow};
constexpr unsigned life_count = sizeof lives / sizeof *lives;

}  // namespace

unsigned const kinds_of_lives = life_count;

void run_guests(site const& where, int number, void* main_eml)
{
    acting const here(number == 0 ? actor_guest : actor_guest_2);
    round const  r = {where, number, main_eml};
    // Only the first has its queue run over, which takes longer than all else; it is the last life.
    unsigned const kinds = life_count - (number == 0 ? 0 : 1);
    while (load_goes_on()) {
        lives[book->rounds[number] % kinds](r);
        ++book->rounds[number];
    }
    send_and_stop(r);  // which finds and deletes what others have left
}

void live_as_stranger(site const& where, bool dies)
{
    acting const here(actor_stranger);
    begin_step("posts to a killed engine");
    post_to(where.stranger, way::perhaps);
    guest_engine engine(where.stranger);
    engine.post(way::other_engine, 2);
    engine.wait_for_reports(2);
    if (dies) {
        begin_step(nullptr);
        ::kill(::getpid(), SIGKILL);
    }
    engine.stop();
}

}  // namespace zelieml::test
