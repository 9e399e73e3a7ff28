// libtimew_test.cpp - the current local time as text

#include "libtimew/libtimew.h"

#include <climits>
#include <cstdlib>
#include <ctime>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "tests/support/fake_clock.h"
#include "tests/support/slot.h"

namespace zelieml
{
namespace
{

constexpr int hour   = 3600;
constexpr int minute = 60;

// Sets the clock to a time of GMT, and the process's zone to a TZ text.
void set_time(int year, int month, int day, int hours, int minutes, int seconds, char const* zone)
{
    std::tm gmt = {};
    gmt.tm_year = year - 1900;
    gmt.tm_mon  = month - 1;
    gmt.tm_mday = day;
    gmt.tm_hour = hours;
    gmt.tm_min  = minutes;
    gmt.tm_sec  = seconds;
    ::setenv("TZ", zone, 1);
    test::set_wall_clock(::timegm(&gmt), 0);
}

TEST(TimeTexts, AreThoseOfTheLocalTime)
{
    struct {
        int         gmt[6];
        char const* zone;
        double      offset;
        char const* format_date;
        char const* logfile_date;
        char const* log_time;
        char const* reason;
    } const cases[] = {
        {{2026, 11, 15, 10, 55, 31},
         "JST-9",
         9 * hour,
         "Sun, 15 Nov 2026 19:55:31 +0900",
         "202611",
         "2026/11/15 19:55:31",
         "an afternoon in the east"},
        {{2026, 1, 5, 3, 4, 5},
         "GMT0",
         0,
         "Mon, 05 Jan 2026 03:04:05 -0000",
         "202601",
         "2026/01/05 03:04:05",
         "all fields but the year have two digits"},
        {{2027, 1, 31, 23, 59, 59},
         "GMT0",
         0,
         "Sun, 31 Jan 2027 23:59:59 -0000",
         "202701",
         "2027/01/31 23:59:59",
         "the last second of a month"},
        {{2027, 1, 31, 15, 0, 0},
         "JST-9",
         9 * hour,
         "Mon, 01 Feb 2027 00:00:00 +0900",
         "202702",
         "2027/02/01 00:00:00",
         "a local month that has not begun at GMT"},
        {{2028, 1, 1, 4, 59, 59},
         "EST5",
         -5 * hour,
         "Fri, 31 Dec 2027 23:59:59 --500",
         "202712",
         "2027/12/31 23:59:59",
         "a local year that has ended at GMT"},
        {{2024, 2, 29, 12, 0, 0},
         "IST-5:30",
         5 * hour + 30 * minute,
         "Thu, 29 Feb 2024 17:30:00 +0530",
         "202402",
         "2024/02/29 17:30:00",
         "a leap day"},
        {{1970, 1, 1, 0, 0, 0},
         "GMT0",
         0,
         "Thu, 01 Jan 1970 00:00:00 -0000",
         "197001",
         "1970/01/01 00:00:00",
         "where time begins"},
        {{2038, 1, 19, 3, 14, 8},
         "GMT0",
         0,
         "Tue, 19 Jan 2038 03:14:08 -0000",
         "203801",
         "2038/01/19 03:14:08",
         "the first second that needs more than 31 bits"},
    };
    for (auto const& c : cases) {
        set_time(c.gmt[0], c.gmt[1], c.gmt[2], c.gmt[3], c.gmt[4], c.gmt[5], c.zone);
        test::set_zone_offset(c.offset);
        EXPECT_EQ(itimew().get_format_date(), c.format_date) << c.reason;
        EXPECT_EQ(itimew().get_logfile_date(), c.logfile_date) << c.reason;
        EXPECT_EQ(itimew().get_log_time(), c.log_time) << c.reason;
    }
}

TEST(TimeTexts, HaveTheZoneInAFormOfTheirOwn)
{
    struct {
        double      offset;
        char const* text;
        char const* reason;
    } const cases[] = {
        {9 * hour, "+0900", "east"},
        {5 * hour + 30 * minute, "+0530", "east, and half an hour"},
        {14 * hour, "+1400", "the far east"},
        {1 * hour, "+0100", "one hour east"},
        {1 * hour - 1, "-0059", "a second less than one hour east: no whole hour, so a minus"},
        {30 * minute, "-0030", "half an hour east"},
        {0, "-0000", "GMT"},
        {-1, "-0000", "a second west"},
        {-59, "-0000", "seconds are left out"},
        {-60, "-00-1", "a minute west: the minutes have their own sign"},
        {-30 * minute, "-00-30", "half an hour west"},
        {-1 * hour, "--100", "one hour west"},
        {-5 * hour, "--500", "five hours west"},
        {-3 * hour - 30 * minute, "--3-30", "three and a half hours west"},
        {-12 * hour, "--1200", "the far west"},
        {9 * hour + 0.999, "+0900", "fractions are cut"},
        {-5 * hour - 0.999, "--500", "towards zero"},
        {3.0 * INT_MAX, "+178956942", "more seconds than an int holds"},
        {-3.0 * INT_MAX, "--1789569-42", "less than an int holds"},
    };
    for (auto const& c : cases) {
        test::set_zone_offset(c.offset);
        EXPECT_EQ(get_timezone_bias_str(), c.text) << c.reason;
    }
}

TEST(TimeTexts, HaveEnglishNamesAndNoneOutOfRange)
{
    char const* const days[]   = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
    char const* const months[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                  "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    for (int i = 0; i < 7; ++i) {
        EXPECT_STREQ(get_wday_str(i), days[i]);
    }
    for (int i = 0; i < 12; ++i) {
        EXPECT_STREQ(get_mon_str(i), months[i]);
    }
    for (int const i : {-1, 7, 12, 100, INT_MIN, INT_MAX}) {
        EXPECT_STREQ(get_wday_str(i), "") << i;
    }
    for (int const i : {-1, 12, 100, INT_MIN, INT_MAX}) {
        EXPECT_STREQ(get_mon_str(i), "") << i;
    }
}

TEST(TimeTexts, CountYearsFrom1900)
{
    EXPECT_EQ(modify_year(0), 1900);
    EXPECT_EQ(modify_year(126), 2026);
    EXPECT_EQ(modify_year(-1900), 0);
}

TEST(TimeTexts, AreMadeOnAnyThread)
{
    set_time(2026, 11, 15, 10, 55, 31, "JST-9");
    test::set_zone_offset(9 * hour);
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([] {
            for (int n = 0; n < 100; ++n) {
                EXPECT_EQ(itimew().get_format_date(), "Sun, 15 Nov 2026 19:55:31 +0900");
                EXPECT_EQ(itimew().get_log_time(), "2026/11/15 19:55:31");
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

TEST(TimeTexts, HaveTheirOperationsInOneOrder)
{
    EXPECT_EQ(test::slot_of(&itime::get_format_date), 0);
    EXPECT_EQ(test::slot_of(&itime::get_logfile_date), 1);
    EXPECT_EQ(test::slot_of(&itime::get_log_time), 2);
    EXPECT_FALSE(std::has_virtual_destructor<itime>::value);
}

}  // namespace
}  // namespace zelieml
