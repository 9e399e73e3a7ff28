// service_host.cpp - what every service has

#include "tools/zelieml/service_host.h"

#include <algorithm>
#include <atomic>
#include <csignal>
#include <exception>
#include <limits>
#include <new>
#include <poll.h>
#include <sysexits.h>
#include <thread>
#include <unistd.h>

#include "tools/zelieml/failure.h"
#include "zelieml_ext.h"

namespace zelieml::program
{

namespace
{

using std::chrono::milliseconds;

constexpr auto unsaid_pause = milliseconds(100);  // before the manager is told again

// Never closed: a signal can come at any time.
wake_pipe const& pipe_of_the_process()
{
    static wake_pipe const& pipe = *new wake_pipe;
    return pipe;
}

int milliseconds_to(service_host::time_point until)
{
    if (until == service_host::time_point::max()) {
        return -1;
    }
    auto const left = std::chrono::ceil<milliseconds>(until - service_host::clock::now()).count();
    return static_cast<int>(std::clamp<decltype(left)>(left, 0, std::numeric_limits<int>::max()));
}

extern "C" void on_alarm(int)
{
    ::_exit(EX_TEMPFAIL);
}

}  // namespace

service_host::service_host(service_options const& options)
    : options_(options), wake_(pipe_of_the_process()), told_(wake_),
      too_late_("the attempt in progress has not ended in time (--stop-timeout " +
                std::to_string(options_.stop_limit.count()) + "): its mail may be sent again")
{
    if (manager_.watchdog()) {
        alive_at_ = clock::now();
    }
}

void service_host::start(std::string const& directory, std::string const& symbol,
                         int (*proc)(void* result, void* user), void*     user)
{
    if (eml_start_with_stocksymbol(directory.c_str(), symbol.c_str(), &engine_) != 0) {
        throw failure(EX_SOFTWARE,
                      "the engine for " + options_.workdir +
                          " cannot be started: it needs memory, a thread, and a place for "
                          "notifications (docs/ENGINE.md)");
    }
    if (eml_set_callback(engine_, proc, user) != 0) {
        eml_stop(engine_);
        throw std::bad_alloc();
    }
}

bool service_host::queue(std::string const& path)
{
    return eml_queue_message_file(engine_, path.c_str()) == 0;
}

void service_host::wait(time_point until, int fd, bool is_stuck)
{
    if (alive_at_) {
        until = std::min(until, *alive_at_);
    }
    if (manager_.has_unsaid()) {
        until = std::min(until, clock::now() + unsaid_pause);
    }
    pollfd entries[2] = {{wake_.fd(), POLLIN, 0}, {fd, POLLIN, 0}};
    ::poll(entries, 2, milliseconds_to(until));
    wake_.clear();
    manager_.repeat();
    if (alive_at_ && clock::now() >= *alive_at_) {
        if (!is_stuck) {
            manager_.alive();
        }
        alive_at_ = clock::now() + *manager_.watchdog();
    }
}

int service_host::stop(std::function<bool()> const& is_stuck)
{
    try {
        manager_.stopping("waiting for the attempt in progress");
    } catch (std::bad_alloc const&) {  // it need not know
    }
    int const         told     = told_.ends();
    auto const        deadline = clock::now() + options_.stop_limit;
    std::atomic<bool> stopped{false};
    auto const        stop_engine = [&] {
        eml_stop(engine_);
        stopped = true;
        wake_.wake();
    };
    std::thread stopping;
    try {
        stopping = std::thread(stop_engine);
    } catch (std::exception const&) {
        // Without a thread a clock ends the process.
        std::signal(SIGALRM, on_alarm);
        ::alarm(static_cast<unsigned>(std::max<long long>(1, options_.stop_limit.count())));
        stop_engine();
        ::alarm(0);
    }
    while (!stopped && clock::now() < deadline && told_.ends() <= told && !is_stuck()) {
        wait(deadline);
    }
    if (!stopped) {
        output_.complain(too_late_);
        output_.finish();
        ::_exit(EX_TEMPFAIL);
    }
    if (stopping.joinable()) {
        stopping.join();
    }
    // What the manager has no room for even now it need not know: the process ends.
    output_.finish();
    return EX_OK;
}

}  // namespace zelieml::program
