#include "tools/zelieml/retry_pause.h"

namespace zelieml::program
{

std::chrono::seconds retry_pause()
{
    return std::chrono::minutes(30);
}

std::chrono::milliseconds quiet_pause()
{
    return std::chrono::minutes(5);
}

}  // namespace zelieml::program
