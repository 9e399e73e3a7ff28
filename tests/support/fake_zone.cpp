#include <atomic>

#include "platform/zone.h"
#include "tests/support/fake_clock.h"

namespace
{

std::atomic<double> offset{0};

}  // namespace

namespace zelieml
{

double platform::zone_offset_seconds()
{
    return offset;
}

void test::set_zone_offset(double seconds)
{
    offset = seconds;
}

}  // namespace zelieml
