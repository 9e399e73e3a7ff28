// thread.cpp - the worker thread of an engine

#include "libemlw/thread.h"

#include <cstring>
#include <unistd.h>

#include "libemlw/file.h"
#include "libemlw/salvage.h"
#include "libemlw/send.h"
#include "liblog/trace.h"
#include "libnotifyw/libnotifyw.h"
#include "libqueue/libqueue.h"
#include "platform/directory.h"
#include "platform/thread.h"
#include "support/c_boundary.h"
#include "support/mutex_lock.h"

namespace zelieml
{

namespace
{

constexpr unsigned int salvage_interval_ms = 1800000;
constexpr unsigned int try_interval_ms     = 600000;
constexpr int          poll_period_ms      = 1000;

constexpr std::size_t notified_path_size = 400;

bool stop_requested(_s_iemlw* engine)
{
    if (in_forked_child(engine)) {
        return true;
    }
    mutex_lock const hold(engine->mutex);
    return engine->stop;
}

void request_stop(_s_iemlw* engine)
{
    {
        mutex_lock const hold(engine->mutex);
        engine->stop = true;
    }
    engine->tick.end();
}

// One step of the worker: lack of memory ends the step and not the host. What the system leaves to
// the thread's release pool is freed after each step, since the thread may live for months.
template <class Step>
void worker_step(Step&& step)
{
    contained([&] {
        platform::release_pool const pool;
        step();
    });
}

// The cycles of the worker, until STOP.
void poll_queue(_s_iemlw* engine)
{
    unsigned int const salvage_period  = get_interval_queue_salvage(engine->workdir) / 1000;
    unsigned int const try_period      = get_interval_queue_try(engine->workdir) / 1000;
    unsigned int       salvage_counter = 0;
    unsigned int       try_counter     = 0;
    do {
        engine->tick.wait(poll_period_ms);
        ++salvage_counter;
        ++try_counter;
        if (salvage_counter >= salvage_period) {
            worker_step([&] { timer_proc_queue_salvage(engine); });
            salvage_counter = 0;
        }
        if (try_counter >= try_period) {
            worker_step([&] { timer_proc_queue_try(engine); });
            try_counter = 0;
        } else {
            worker_step([&] { send_queue(engine, 0, 0); });
        }
    } while (!stop_requested(engine));
}

// The worker's share of the engine record. However the worker ends, the share is given up and the
// gate that start_thread waits at is opened.
class worker_share
{
public:
    explicit worker_share(_s_iemlw* engine) : engine_(engine) {}
    ~worker_share()
    {
        if (!in_forked_child(engine_)) {
            engine_->started.open();
        }
        release_engine(engine_);
    }
    worker_share(worker_share const&)            = delete;
    worker_share& operator=(worker_share const&) = delete;

private:
    _s_iemlw* engine_;
};

// Makes the queue and deletes the message files left from before.
int prepare_queue(_s_iemlw* engine)
{
    iqmgr* queue = nullptr;
    if (iqmgr_create(&queue) != 0) {
        trace_msg("error:iqmgr_create");
        return -1;
    }
    engine->queue = queue;
    worker_step([&] { salvage_queue(engine, false); });
    return 0;
}

bool on_worker(_s_iemlw const* engine)
{
    return ::pthread_equal(::pthread_self(), engine->thread) != 0;
}

// stop_thread in a forked child. It has none of the parent's threads, and the locks that they held
// stay locked: so nothing is locked, stopped or removed here. A child that was forked in a callback
// runs on a copy of the worker, which gives up its share itself when it returns into eml_thread.
void forget_worker(_s_iemlw* engine)
{
    engine->has_worker = false;
    engine->observing  = false;
    if (!on_worker(engine)) {
        release_engine(engine);
    }
}

// stop_thread in one of the engine's own callbacks. The worker cannot wait for itself: it ends
// after this attempt, and whoever gives up the last share frees the record.
void let_worker_go(_s_iemlw* engine)
{
    request_stop(engine);
    ::pthread_detach(engine->thread);
    engine->has_worker = false;
    end_observation(engine);
}

// stop_thread on any other thread. Returns 0, or -1 when the worker cannot be waited for.
int join_worker(_s_iemlw* engine)
{
    request_stop(engine);
    if (::pthread_join(engine->thread, nullptr) != 0) {
        return -1;
    }
    engine->has_worker = false;
    ::pthread_mutex_destroy(&engine->mutex);
    end_observation(engine);
    iqmgr_destroy(engine->queue.exchange(nullptr));
    return 0;
}

}  // namespace

int start_thread(_s_iemlw* engine)
{
    trace_msg("start_thread in");
    if (engine->stock_symbol[0] == '\0' || !engine->tick.open() ||
        platform::add_observer(notify_name, engine->stock_symbol, timer_proc_mailslot, engine) !=
            0) {
        return -1;
    }
    engine->observing = true;
    ::pthread_mutex_init(&engine->mutex, nullptr);
    engine->stop  = false;
    engine->owner = ::getpid();
    engine->started.close();

    share_engine(engine);
    if (platform::start_thread_without_signals(engine->thread, eml_thread, engine) != 0) {
        release_engine(engine);
        ::pthread_mutex_destroy(&engine->mutex);
        // The observer stays until the engine is destroyed: deliberate, see docs/ODDITIES.md.
        return -1;
    }
    engine->has_worker = true;
    engine->started.wait();
    trace_msg("start_thread out");
    return 0;
}

int stop_thread(_s_iemlw* engine)
{
    trace_msg("stop_thread in");
    if (!engine->has_worker) {
        return -1;
    }
    if (in_forked_child(engine)) {
        forget_worker(engine);
    } else if (on_worker(engine)) {
        let_worker_go(engine);
    } else if (join_worker(engine) != 0) {
        return -1;
    }
    trace_msg("stop_thread out");
    return 0;
}

void* eml_thread(void* argument)
{
    trace_msg("eml_thread in");
    if (argument == nullptr) {
        trace_msg("error:eml_thread param error");
        return nullptr;
    }
    auto* const        engine = static_cast<_s_iemlw*>(argument);
    worker_share const share(engine);
    if (prepare_queue(engine) != 0) {
        return nullptr;
    }
    engine->started.open();
    poll_queue(engine);
    trace_msg("eml_thread out");
    return nullptr;
}

void timer_proc_mailslot(platform::notification_center* /*center*/, void* observer,
                         platform::notification_text const* /*name*/,
                         platform::notification_text const* /*object*/,
                         platform::notification_info const* info)
{
    if (observer == nullptr) {
        trace_msg("error:TlsGetValue");
        return;
    }
    char path[notified_path_size];
    if (!platform::notification_value(info, notify_path_key, path, sizeof path)) {
        return;
    }
    queue_file(static_cast<_s_iemlw*>(observer), path, platform::notification_stranger(info));
}

int queue_file(_s_iemlw* engine, char const* path, std::optional<uid_t> owner)
{
    iqmgr* const queue = engine->queue;
    if (path == nullptr || std::strlen(path) >= notified_path_size || queue == nullptr) {
        return -1;
    }
    mutex_lock const hold(queue->mutex());
    return queue->add({path}, owner);
}

void timer_proc_queue_salvage(_s_iemlw* engine)
{
    trace_msg("---timer_proc_queue_salvage---");
    if (engine == nullptr) {
        trace_msg("error:TlsGetValue");
        return;
    }
    salvage_queue(engine, true);
}

void timer_proc_queue_try(_s_iemlw* engine)
{
    trace_msg("---timer_proc_queue_try---");
    if (engine == nullptr) {
        trace_msg("error:TlsGetValue");
        return;
    }
    // The age for a second attempt is the salvage interval, not the try interval: deliberate, see
    // docs/ODDITIES.md.
    unsigned int const retry_age_ms = get_interval_queue_salvage(engine->workdir);
    send_queue(engine, 0, 0);
    send_queue(engine, 1, retry_age_ms);
}

unsigned int get_interval_queue_salvage(char const* workdir)
{
    // Formed and not read: the interval is fixed. A setting for it would be looked up here.
    worker_step([&] { conf_fullpath(workdir); });
    return salvage_interval_ms;
}

unsigned int get_interval_queue_try(char const* workdir)
{
    worker_step([&] { conf_fullpath(workdir); });  // as above
    return try_interval_ms;
}

}  // namespace zelieml
