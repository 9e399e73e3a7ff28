// quick_retry.cpp - a message that failed waits a second for its second attempt
//
//     ZELIEML_TEST_QUIET=MILLISECONDS   for the engine, before it is asked

#include <cstdlib>

#include "tools/zelieml/retry_pause.h"

namespace zelieml::program
{

std::chrono::seconds retry_pause()
{
    return std::chrono::seconds(1);
}

std::chrono::milliseconds quiet_pause()
{
    char const* const wanted = std::getenv("ZELIEML_TEST_QUIET");
    return wanted != nullptr ? std::chrono::milliseconds(std::atol(wanted))
                             : std::chrono::minutes(5);
}

}  // namespace zelieml::program
