// zone.cpp - the offset that the C library gives with local time

#include "platform/zone.h"

namespace zelieml::platform
{

double zone_offset_seconds(std::tm const& now)
{
    return static_cast<double>(now.tm_gmtoff);
}

}  // namespace zelieml::platform
