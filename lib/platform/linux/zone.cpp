// zone.cpp - the offset that the C library gives with local time

#include "platform/zone.h"

#include "platform/clock.h"

namespace zelieml::platform
{

double zone_offset_seconds()
{
    return static_cast<double>(local_time(wall_seconds()).tm_gmtoff);
}

}  // namespace zelieml::platform
