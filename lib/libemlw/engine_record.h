// engine_record.h - the engine record, which an engine and its worker share
//
// The engine object holds one share of the record, its running worker another; whoever is last
// frees it. That is what makes stopping an engine from inside its own callback safe.

#ifndef ZELIEML_LIBEMLW_ENGINE_RECORD_H
#define ZELIEML_LIBEMLW_ENGINE_RECORD_H

#include <atomic>
#include <cstddef>
#include <pthread.h>
#include <sys/types.h>

#include "libemlw/callback.h"
#include "libqueue/libqueue.h"
#include "platform/pause.h"
#include "support/gate.h"
#include "support/snapshot.h"

namespace zelieml
{

// Bytes of the record's names, the NUL included.
constexpr std::size_t workdir_size      = 256;
constexpr std::size_t stock_symbol_size = 255;

struct _s_iemlw {
    char                 workdir[workdir_size] = {};
    snapshot<c_cb_param> callbacks;
    std::atomic<iqmgr*>  queue{nullptr};  // made by the worker
    pthread_t            thread = {};
    pthread_mutex_t      mutex  = {};  // guards stop, and the reading of the queue by the passes
    char                 stock_symbol[stock_symbol_size] = {};
    std::atomic<bool>    stop{false};

    platform::pause  tick;                // the wait between two cycles of the worker
    gate             started;             // open once the worker has prepared its queue, or ended
    bool             observing  = false;  // the observer is registered
    bool             has_worker = false;  // thread is a worker that has not been joined
    pid_t            owner      = 0;      // the process that has the worker; 0 before there is one
    std::atomic<int> shares{1};
};

// share_engine, release_engine - take and give up a share of the record
//
// Giving up the last share removes the observer, if there is one, and frees the record and its
// queue. Any thread.
void share_engine(_s_iemlw* engine);
void release_engine(_s_iemlw* engine);

// in_forked_child - whether this process is a child of the one in which the engine was started
//
// A callback may fork and return in the child too. The copy of the worker there must end, and must
// take no lock before it ends, since a thread of the parent may have held it.
bool in_forked_child(_s_iemlw const* engine);

// end_observation - remove the engine's observer if there is one; waits for a delivery in progress
void end_observation(_s_iemlw* engine);

}  // namespace zelieml

#endif
