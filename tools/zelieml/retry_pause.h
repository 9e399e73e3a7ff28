// retry_pause.h - how long the service waits
//
// By themselves, so that tests can be quicker.

#ifndef ZELIEML_TOOLS_ZELIEML_RETRY_PAUSE_H
#define ZELIEML_TOOLS_ZELIEML_RETRY_PAUSE_H

#include <chrono>

namespace zelieml::program
{

// retry_pause - before the second attempt at a message that failed
std::chrono::seconds retry_pause();

// quiet_pause - while the engine ends no attempt, before it is asked; twice that, and it is stuck
std::chrono::milliseconds quiet_pause();

}  // namespace zelieml::program

#endif
