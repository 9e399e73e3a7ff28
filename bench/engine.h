// engine.h - an engine of a benchmark's own, and when its results came

#ifndef ZELIEML_BENCH_ENGINE_H
#define ZELIEML_BENCH_ENGINE_H

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/work_dir.h"
#include "zelieml.h"

struct arrivals {
    std::mutex                           guard;
    std::condition_variable              changed;
    std::vector<bench_clock::time_point> times;
    std::size_t                          wanted = 0;
    int                                  failed = 0;

    void wait_for(std::size_t count)
    {
        std::unique_lock<std::mutex> hold(guard);
        wanted = count;
        if (!changed.wait_for(hold, std::chrono::seconds(60),
                              [&] { return times.size() >= count; })) {
            throw std::runtime_error("results are missing");
        }
    }

    // What each mail took while the engine was sending: the pauses between its passes do not count.
    std::vector<double> microseconds_each()
    {
        std::lock_guard<std::mutex> const hold(guard);
        std::vector<double>               each;
        for (std::size_t i = 1; i < times.size(); ++i) {
            double const gap =
                std::chrono::duration<double, std::micro>(times[i] - times[i - 1]).count();
            if (gap < 500000) {
                each.push_back(gap);
            }
        }
        return each;
    }
};

inline int note_arrival(void* result, void* user)
{
    auto&      all  = *static_cast<arrivals*>(user);
    eml_send_e code = eml_send_error_other;
    eml_cb_get_code(result, &code);
    std::lock_guard<std::mutex> const hold(all.guard);
    all.times.push_back(bench_clock::now());
    all.failed += code == eml_send_ok ? 0 : 1;
    if (all.times.size() == all.wanted) {
        all.changed.notify_all();  // only then: what is measured is not the waking of a waiter
    }
    return 0;
}

class engine
{
public:
    engine(std::string const& workdir, char const* symbol)
    {
        if (eml_start_with_stocksymbol(workdir.c_str(), symbol, &eml_) != 0) {
            throw std::runtime_error("the engine does not start");
        }
        eml_set_callback(eml_, note_arrival, &seen);
    }
    ~engine() { eml_stop(eml_); }
    engine(engine const&)            = delete;
    engine& operator=(engine const&) = delete;

    arrivals seen;

private:
    void* eml_ = nullptr;
};

#endif
