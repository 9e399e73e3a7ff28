// pause.h - a wait that another thread can end
//
// lib/platform/posix/pause.cpp, the same on both systems. Alone in its object, so that a test can
// replace it and let an hour of an engine pass in milliseconds.

#ifndef ZELIEML_PLATFORM_PAUSE_H
#define ZELIEML_PLATFORM_PAUSE_H

#include "support/unique_fd.h"

namespace zelieml::platform
{

class pause
{
public:
    // open - prepare for waiting. Returns false when there are no descriptors to be had.
    bool open();

    // wait - return after ms milliseconds, at most half an hour, or at once when end() has been
    // called or is called meanwhile
    void wait(int ms);

    // end - end the wait in progress and every later one. Any thread; any number of times.
    void end();

private:
    // A pipe, not a condition variable: a forked child, which has no waiting thread, can free it.
    unique_fd read_end_;
    unique_fd write_end_;
};

}  // namespace zelieml::platform

#endif
