// fake_clock.h - time that moves only when a test says so
//
// fake_clock.cpp replaces the wall clock, fake_wait.cpp the sleeps and the waits for descriptors,
// fake_zone.cpp the zone offset. Local time is computed from the fake seconds with the process's
// own TZ.

#ifndef ZELIEML_TESTS_SUPPORT_FAKE_CLOCK_H
#define ZELIEML_TESTS_SUPPORT_FAKE_CLOCK_H

#include <cstdint>
#include <ctime>
#include <functional>
#include <vector>

namespace zelieml::test
{

// The wall clock (fake_clock.cpp).
void set_wall_clock(std::time_t seconds, int microseconds);

// Sleeps and waits (fake_wait.cpp): nothing waits, everything is written down.
struct wait_record {
    // Microseconds of each sleep, in order.
    std::vector<std::int64_t> sleeps;
    // Microseconds of each wait for a readable descriptor, in order.
    std::vector<int> readable_waits;
    // Microseconds of each wait for a writable descriptor, in order.
    std::vector<int> writable_waits;
};
wait_record waits();
// Forgets what was written down. While real_readable_waits is true, waits for readable descriptors
// are made as well as written down; false lets a silent peer's time pass at once.
void reset_waits(bool real_readable_waits);
// Waits for readable descriptors are made until silence says that nobody will speak any more; then
// its time passes at once. Until the next reset_waits.
void reset_waits_until(std::function<bool()> const& silence);
// While true, waits for writable descriptors say at once that the time is over.
void never_writable(bool on);

// The zone offset (fake_zone.cpp).
void set_zone_offset(double seconds);

}  // namespace zelieml::test

#endif
