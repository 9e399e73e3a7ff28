// retry_pause.h - how long a message that failed waits for its second attempt
//
// By itself, so that tests can be quicker.

#ifndef ZELIEML_TOOLS_ZELIEML_RETRY_PAUSE_H
#define ZELIEML_TOOLS_ZELIEML_RETRY_PAUSE_H

#include <chrono>

namespace zelieml::program
{

std::chrono::seconds retry_pause();

}  // namespace zelieml::program

#endif
