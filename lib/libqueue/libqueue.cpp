// libqueue.cpp - message files waiting to be sent

#include "libqueue/libqueue.h"

#include <cstdio>

#include "liblog/trace.h"

namespace zelieml
{

int iqmgr_erase(char const* path)
{
    if (std::remove(path) != 0) {
        trace_msg("error:remove(%s)");
        return -1;
    }
    trace_msg("removed %s");
    return 0;
}

}  // namespace zelieml
