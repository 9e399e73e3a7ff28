#include "tests/soak/books.h"

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <sys/mman.h>
#include <system_error>

namespace zelieml::test
{

books* book = nullptr;

char const* const actor_names[actor_count] = {"host",
                                              "poster in the host",
                                              "second poster in the host",
                                              "freeing records",
                                              "registering",
                                              "reading settings",
                                              "other engines",
                                              "more other engines",
                                              "forked process",
                                              "second forked process",
                                              "posting process",
                                              "second posting process",
                                              "killed engine"};

namespace
{

constexpr int most_printed = 20;

thread_local actor_state* self = nullptr;

}  // namespace

void open_books()
{
    void* const memory = ::mmap(nullptr, sizeof(books), PROT_READ | PROT_WRITE,
                                MAP_SHARED | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (memory == MAP_FAILED) {
        throw std::system_error(errno, std::generic_category(), "mmap");
    }
    book = static_cast<books*>(memory);  // all zeros, and touched when needed
}

void report_failure(std::string const& what)
{
    if (book->failures++ < most_printed) {
        std::string const line =
            "zelieml-soak: process " + std::to_string(::getpid()) + ": " + what + "\n";
        ssize_t const written = ::write(2, line.data(), line.size());
        (void)written;
    }
}

void expect(bool good, char const* what)
{
    if (!good) {
        report_failure(what);
    }
}

std::int64_t now_ms()
{
    using namespace std::chrono;
    return duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count();
}

unsigned enter_mail(way sender, fate end)
{
    unsigned const number = book->mails++;
    if (number >= max_mails) {
        report_failure("the books are full");
        ::_exit(1);
    }
    book->account[number].end    = end;
    book->account[number].sender = sender;
    if (sender == way::main_engine || sender == way::poster) {
        ++book->in_flight;
    }
    return number;
}

fate fate_of_next()
{
    constexpr unsigned period = 40;
    unsigned const     next   = book->mails;
    constexpr unsigned others = static_cast<unsigned>(fate::count) - 1;
    return next % period == 0 ? static_cast<fate>(1 + next / period % others) : fate::taken;
}

void settle_mail()
{
    --book->in_flight;
    ++book->settled;
}

acting::acting(actor who)
{
    self          = &book->actors[who];
    self->process = ::getpid();
    begin_step("begins");
}

acting::~acting()
{
    begin_step(nullptr);
    self = nullptr;
}

void begin_step(char const* what)
{
    if (self != nullptr) {
        self->since_ms = now_ms();
        self->step     = what;
    }
}

bool load_goes_on()
{
    if (book->now == stage::pause) {
        begin_step(nullptr);
        while (book->now == stage::pause) {
            ::usleep(1000);
        }
    }
    begin_step("goes on");
    return book->now != stage::over;
}

}  // namespace zelieml::test
