// zone.cpp - the default time zone of the process

#include "platform/zone.h"

#include "platform/macos/cf_owner.h"
#include "platform/macos/first_process.h"

namespace zelieml::platform
{

double zone_offset_seconds(std::tm const& /*now*/)
{
    if (is_forked()) {
        return 0;
    }
    cf_owner<CFTimeZoneRef> const zone(::CFTimeZoneCopyDefault());
    return zone ? ::CFTimeZoneGetSecondsFromGMT(zone.get(), ::CFAbsoluteTimeGetCurrent()) : 0;
}

}  // namespace zelieml::platform
