// libtimew_test.cpp - the current local time as strings

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

// A zone as the TZ variable names it, and its distance from GMT in seconds.
struct zone {
    char const* name;
    double      offset;
};

zone const gmt             = {"GMT0", 0};
zone const japan           = {"JST-9", 9 * hour};
zone const india           = {"IST-5:30", 5 * hour + 30 * minute};
zone const eastern_america = {"EST5", -5 * hour};

// Sets the clock to a time of GMT, written as "2026-11-15 10:55:31", and the zone of the process.
void set_time(char const* time_of_gmt, zone const& here)
{
    std::tm time = {};
    ASSERT_NE(::strptime(time_of_gmt, "%Y-%m-%d %H:%M:%S", &time), nullptr) << time_of_gmt;
    ::setenv("TZ", here.name, 1);
    test::set_wall_clock(::timegm(&time), 0);
    test::set_zone_offset(here.offset);
}

// A time of GMT, where it is seen, and how it is written there.
struct time_case {
    explicit time_case(char const* why) : reason(why) {}

    time_case& at(char const* time_of_gmt)
    {
        time = time_of_gmt;
        return *this;
    }
    time_case& in(zone const& place)
    {
        here = place;
        return *this;
    }
    time_case& mail_date(char const* date)
    {
        format_date = date;
        return *this;
    }
    time_case& log_file(char const* date)
    {
        logfile_date = date;
        return *this;
    }
    time_case& log_line(char const* time_and_date)
    {
        log_time = time_and_date;
        return *this;
    }

    char const* reason;
    char const* time         = "";
    zone        here         = gmt;
    char const* format_date  = "";
    char const* logfile_date = "";
    char const* log_time     = "";
};

TEST(TimeTexts, AreThoseOfTheLocalTime)
{
    time_case const cases[] = {
        time_case("an afternoon in the east")
            .at("2026-11-15 10:55:31")
            .in(japan)
            .mail_date("Sun, 15 Nov 2026 19:55:31 +0900")
            .log_file("202611")
            .log_line("2026/11/15 19:55:31"),
        time_case("all fields but the year have two digits")
            .at("2026-01-05 03:04:05")
            .in(gmt)
            .mail_date("Mon, 05 Jan 2026 03:04:05 -0000")
            .log_file("202601")
            .log_line("2026/01/05 03:04:05"),
        time_case("the last second of a month")
            .at("2027-01-31 23:59:59")
            .in(gmt)
            .mail_date("Sun, 31 Jan 2027 23:59:59 -0000")
            .log_file("202701")
            .log_line("2027/01/31 23:59:59"),
        time_case("a local month that has not begun at GMT")
            .at("2027-01-31 15:00:00")
            .in(japan)
            .mail_date("Mon, 01 Feb 2027 00:00:00 +0900")
            .log_file("202702")
            .log_line("2027/02/01 00:00:00"),
        time_case("a local year that has ended at GMT")
            .at("2028-01-01 04:59:59")
            .in(eastern_america)
            .mail_date("Fri, 31 Dec 2027 23:59:59 --500")
            .log_file("202712")
            .log_line("2027/12/31 23:59:59"),
        time_case("a leap day")
            .at("2024-02-29 12:00:00")
            .in(india)
            .mail_date("Thu, 29 Feb 2024 17:30:00 +0530")
            .log_file("202402")
            .log_line("2024/02/29 17:30:00"),
        time_case("second 0 of the clock")
            .at("1970-01-01 00:00:00")
            .in(gmt)
            .mail_date("Thu, 01 Jan 1970 00:00:00 -0000")
            .log_file("197001")
            .log_line("1970/01/01 00:00:00"),
        time_case("the first second that needs more than 31 bits")
            .at("2038-01-19 03:14:08")
            .in(gmt)
            .mail_date("Tue, 19 Jan 2038 03:14:08 -0000")
            .log_file("203801")
            .log_line("2038/01/19 03:14:08"),
    };
    for (time_case const& c : cases) {
        set_time(c.time, c.here);
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
        {9 * hour + 0.999, "+0900", "fractions are cut, in the east"},
        {-5 * hour - 0.999, "--500", "fractions are cut towards zero"},
        {3.0 * INT_MAX, "+178956942", "more seconds than an int holds"},
        {-3.0 * INT_MAX, "--1789569-42", "fewer seconds than an int holds"},
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
    set_time("2026-11-15 10:55:31", japan);
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
