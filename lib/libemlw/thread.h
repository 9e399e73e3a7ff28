// thread.h - the worker thread of an engine, its clocks, and how it hears of new files
//
// The worker loops once a second: first attempts in every cycle, a retry pass every 600, a look
// into the work directory every 1800. The periods count cycles, so they stretch by the time that
// sending takes.
//
// Threads: start_thread and stop_thread run on the caller's thread, eml_thread and the timers on
// the worker, timer_proc_mailslot on the thread that delivers notifications.

#ifndef ZELIEML_LIBEMLW_THREAD_H
#define ZELIEML_LIBEMLW_THREAD_H

#include "libemlw/engine_record.h"
#include "platform/notification.h"

namespace zelieml
{

// start_thread - observe the engine's stock symbol and start its worker
//
// Returns 0 when the worker has made its queue and deleted the message files left from before, or
// has ended for want of memory: what is posted from then on is never taken for a leftover. Returns
// -1 when the stock symbol is empty, or no observer or thread can be had; an observer then ends
// with the engine. The calling thread must not be cancelled meanwhile.
int start_thread(_s_iemlw* engine);

// stop_thread - ask the worker to end and wait for it
//
// Waits for the send in progress. When it is called from a callback of this very engine, it does
// not wait: the worker ends after the attempt it is in. In a forked child, where there is no
// worker, it only forgets it. The calling thread must not be cancelled meanwhile.
//
// Returns 0, or -1 when there is no worker to stop, or when it cannot be waited for: it ends all
// the same, and the engine is as it was.
int stop_thread(_s_iemlw* engine);

// The steps of the worker, and what it is told by.

// eml_thread - the body of the worker; the argument is the engine record
//
// Returns null. In a child that a callback forked it returns when the callback has returned there,
// and with it ends the child's only thread, and so the child.
void* eml_thread(void* argument);

// timer_proc_mailslot - the notification callback; the observer is the engine record
//
// Queues the file that the notification names. One without a path, with one of 400 bytes and more,
// or one that comes before there is a queue, is dropped: salvage finds the file.
void timer_proc_mailslot(platform::notification_center* center, void* observer,
                         platform::notification_text const* name,
                         platform::notification_text const* object,
                         platform::notification_info const* info);

// timer_proc_queue_salvage - queue what lies in the work directory and is not queued yet
void timer_proc_queue_salvage(_s_iemlw* engine);

// timer_proc_queue_try - first attempts, and then second ones for files queued long enough ago
void timer_proc_queue_try(_s_iemlw* engine);

// The periods in milliseconds: between two looks into the work directory, which is also the age at
// which a file gets its second attempt, and between two retry passes. Fixed: the settings of the
// work directory have no key for them.
unsigned int get_interval_queue_salvage(char const* workdir);
unsigned int get_interval_queue_try(char const* workdir);

}  // namespace zelieml

#endif
