// engine_record.cpp - the shares of the engine record, and its observer

#include "libemlw/engine_record.h"

#include <unistd.h>

#include "libnotifyw/libnotifyw.h"
#include "platform/notification.h"

namespace zelieml
{

void share_engine(_s_iemlw* engine)
{
    ++engine->shares;
}

void release_engine(_s_iemlw* engine)
{
    if (--engine->shares != 0) {
        return;
    }
    end_observation(engine);
    if (iqmgr* const queue = engine->queue) {
        iqmgr_destroy(queue);
    }
    delete engine;
}

bool in_forked_child(_s_iemlw const* engine)
{
    return engine->owner != 0 && engine->owner != ::getpid();
}

void end_observation(_s_iemlw* engine)
{
    if (engine->observing) {
        engine->observing = false;
        platform::remove_observer(notify_name, engine->stock_symbol, engine);
    }
}

}  // namespace zelieml
