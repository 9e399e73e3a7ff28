// pause.h - a wait that another thread can end
//
// lib/platform/posix/pause.cpp, the same on both systems. Alone in its object: with a test's fake
// an hour of an engine's seconds passes in milliseconds.

#ifndef ZELIEML_PLATFORM_PAUSE_H
#define ZELIEML_PLATFORM_PAUSE_H

#include "support/unique_fd.h"

namespace zelieml::platform
{

class pause
{
public:
    // open - make ready for waiting. Returns false when the system has no descriptors to give.
    bool open();

    // wait - return after ms milliseconds, half an hour at most, or at once when end() was called
    // before or is called meanwhile
    void wait(int ms);

    // end - no wait lasts any more, now or later. Any thread; any number of times.
    void end();

private:
    // A pipe rather than a condition variable: a forked child, in which the waiting thread does not
    // exist, can free it.
    unique_fd read_end_;
    unique_fd write_end_;
};

}  // namespace zelieml::platform

#endif
