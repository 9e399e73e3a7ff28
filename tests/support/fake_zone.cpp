#include <mutex>

#include "platform/zone.h"
#include "tests/support/fake_clock.h"

namespace
{

std::mutex guard;
double     offset = 0;

}  // namespace

namespace zelieml
{

double platform::zone_offset_seconds(std::tm const& /*now*/)
{
    std::lock_guard<std::mutex> const hold(guard);
    return offset;
}

void test::set_zone_offset(double seconds)
{
    std::lock_guard<std::mutex> const hold(guard);
    offset = seconds;
}

}  // namespace zelieml
