// zone.cpp - the default time zone of the process

#include "platform/zone.h"

#include "platform/macos/cf_owner.h"

namespace zelieml::platform
{

double zone_offset_seconds()
{
    cf_owner<CFTimeZoneRef> const zone(::CFTimeZoneCopyDefault());
    return zone ? ::CFTimeZoneGetSecondsFromGMT(zone.get(), ::CFAbsoluteTimeGetCurrent()) : 0;
}

}  // namespace zelieml::platform
