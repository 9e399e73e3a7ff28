// books.h - what all processes of the load write down, in memory that they share

#ifndef ZELIEML_TESTS_SOAK_BOOKS_H
#define ZELIEML_TESTS_SOAK_BOOKS_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <sys/types.h>
#include <unistd.h>

namespace zelieml::test
{

using count8 = std::atomic<std::uint8_t>;

// Who is to send a mail.
enum class way : std::uint8_t {
    none,
    main_engine,   // once or, after a failure, twice; each attempt is reported
    other_engine,  // once, with one report
    poster,        // once, with eml_post_sync and no report
    perhaps        // once or not at all: its engine is stopped, or has too much to do
};

// What the server does with it.
enum class fate : std::uint8_t {
    taken,
    taken_slowly,
    refused_once,
    refused_twice,
    text_refused_once,
    hung_up_once,  // without a reply
    count
};

struct mail_account {
    std::atomic<way>  sender;
    std::atomic<fate> end;
    count8            attempts;
    count8            delivered;
    count8            sent[2];  // reports to a callback, and copies that another thread had of them
    count8            failed[2];
};

constexpr unsigned max_mails     = 1U << 24U;
constexpr int      max_in_flight = 300;  // mails on their way to the main engine, of 500 that fit

// The threads and processes of the load. The watchdog looks at what they do.
enum actor {
    actor_host,
    actor_host_poster,
    actor_host_poster_2,
    actor_freeing,
    actor_registering,
    actor_reading,
    actor_guest,
    actor_guest_2,
    actor_forked,
    actor_forked_2,
    actor_poster,
    actor_poster_2,
    actor_stranger,
    actor_count
};
extern char const* const actor_names[actor_count];

struct actor_state {
    std::atomic<char const*>  step;  // null: nothing
    std::atomic<std::int64_t> since_ms;
    std::atomic<pid_t>        process;
};

enum class stage {
    pause,  // everybody finishes what he has begun; also until the main engine runs
    load,
    over
};

// What the host holds while nothing is to do.
struct holdings {
    std::size_t memory;  // bytes in use
    int         descriptors;
    int         threads;
};

struct books {
    std::atomic<stage>    now;
    std::atomic<int>      measures_wanted;
    std::atomic<int>      measures_taken;
    holdings              measured[2];
    std::atomic<int>      failures;
    std::atomic<unsigned> mails;      // all that were begun
    std::atomic<int>      in_flight;  // of the main engine's
    std::atomic<unsigned> settled;    // of the main engine's
    std::atomic<unsigned> hang_ups;   // of the server, without a reply
    std::atomic<unsigned> reports[2];
    std::atomic<unsigned> nameless[2];  // reports of failures that say nothing of the mail
    std::atomic<unsigned> engines;
    std::atomic<unsigned> forks;
    std::atomic<unsigned> rounds[2];  // of each guest, all that they do
    actor_state           actors[actor_count];
    mail_account          account[max_mails];
};

// Made before the first fork.
extern books* book;
void          open_books();

// Prints what is wrong, and who says so, and counts it.
void report_failure(std::string const& what);
void expect(bool good, char const* what);

std::int64_t now_ms();

// Enters a mail. Returns its number, by which the server and the reports name it.
unsigned enter_mail(way sender, fate end);
fate     fate_of_next();

// A mail of the main engine, or of a poster, needs no more.
void settle_mail();

// ------------------------------------------------------------------ what an actor does

// An actor on this thread, from here to the end of the object.
class acting
{
public:
    explicit acting(actor self);
    ~acting();
    acting(acting const&)            = delete;
    acting& operator=(acting const&) = delete;
};

// What the actor on this thread does from now on. Null: nothing, and that may last.
void begin_step(char const* what);

// Waits until it holds; the watchdog sees that it lasts too long.
template <class Condition>
void wait_for(char const* what, Condition&& holds)
{
    begin_step(what);
    while (!holds()) {
        ::usleep(1000);
    }
}

// Waits while the load pauses. Returns false when it is over.
bool load_goes_on();

}  // namespace zelieml::test

#endif
