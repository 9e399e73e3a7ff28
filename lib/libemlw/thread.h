// thread.h - the worker thread of an engine, its periodic tasks, and how it is told of new files
//
// The worker runs one cycle a second: first attempts in every cycle, a retry pass every 600 cycles,
// a scan of the work directory every 1800. The periods count cycles, so they get longer by the time
// that sending takes.
//
// Threads: start_thread and stop_thread run on the caller's thread, eml_thread and the timers on
// the worker, timer_proc_mailslot on the thread that delivers notifications.

#ifndef ZELIEML_LIBEMLW_THREAD_H
#define ZELIEML_LIBEMLW_THREAD_H

#include <optional>
#include <sys/types.h>

#include "libemlw/engine_record.h"
#include "platform/notification.h"

namespace zelieml
{

// start_thread - observe the engine's stock symbol and start its worker
//
// Returns 0 once the worker has made its queue and deleted the message files left from before, or
// has ended for lack of memory: a message posted after that is never mistaken for a leftover.
// Returns -1 when the stock symbol is empty, or when there is no observer or no thread to be had;
// an observer that was registered then stays until the engine is destroyed. The calling thread must
// not be cancelled meanwhile.
int start_thread(_s_iemlw* engine);

// stop_thread - ask the worker to end and wait for it
//
// Waits for the send in progress, except when called from a callback of this engine: the worker
// then ends after the current attempt. In a forked child, which has no worker, it only updates the
// record. The calling thread must not be cancelled meanwhile.
//
// Returns 0, or -1 when there is no worker, or when it cannot be joined: it ends all the same, and
// the record still counts it as running.
int stop_thread(_s_iemlw* engine);

// The steps of the worker, and the callback that tells it of new files.

// eml_thread - the body of the worker; the argument is the engine record
//
// Returns null. When a callback forks and returns in the child, this returns there too, which ends
// the child's only thread and so the child.
void* eml_thread(void* argument);

// timer_proc_mailslot - the notification callback; the observer is the engine record
//
// Queues the file that the notification names. A notification without a path, with a path of 400
// bytes or more, or that comes before there is a queue is dropped: salvage finds the file.
void timer_proc_mailslot(platform::notification_center* center, void* observer,
                         platform::notification_text const* name,
                         platform::notification_text const* object,
                         platform::notification_info const* info);

// queue_file - queue a message file
//
// path   at most 399 bytes
// owner  see c_queue
//
// Returns 0 when it is queued, by this call or before. Returns -1 when the path is null or too long,
// or the engine has no queue, because it was not started or its worker had no memory for one. Throws
// std::bad_alloc when there is no memory. Any thread.
int queue_file(_s_iemlw* engine, char const* path, std::optional<uid_t> owner);

// timer_proc_queue_salvage - queue the message files of the work directory that are not queued yet
void timer_proc_queue_salvage(_s_iemlw* engine);

// timer_proc_queue_try - first attempts, then second attempts for files queued long enough ago
void timer_proc_queue_try(_s_iemlw* engine);

// The periods in milliseconds: between two scans of the work directory, which is also the age at
// which a file gets its second attempt, and between two retry passes. Fixed: the settings have no
// keys for them.
unsigned int get_interval_queue_salvage(char const* workdir);
unsigned int get_interval_queue_try(char const* workdir);

}  // namespace zelieml

#endif
