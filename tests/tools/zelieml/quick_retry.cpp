// quick_retry.cpp - a message that failed waits a second for its second attempt

#include "tools/zelieml/retry_pause.h"

namespace zelieml::program
{

std::chrono::seconds retry_pause()
{
    return std::chrono::seconds(1);
}

}  // namespace zelieml::program
