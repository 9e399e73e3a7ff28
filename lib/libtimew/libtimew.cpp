// libtimew.cpp - the current local time as text

#include "libtimew/libtimew.h"

#include <cstddef>
#include <cstdint>
#include <ctime>

#include "platform/clock.h"
#include "platform/zone.h"
#include "support/format.h"

namespace zelieml
{

namespace
{

constexpr std::size_t text_size = 1024;

std::tm local_now()
{
    return platform::local_time(platform::wall_seconds());
}

template <int count>
char const* name_of(char const* const (&names)[count], int number)
{
    return number >= 0 && number < count ? names[number] : "";
}

// get_timezone_bias_str, of the current time.
std::string bias_of(std::tm const& now)
{
    std::int64_t const seconds = static_cast<std::int64_t>(platform::zone_offset_seconds(now));
    std::int64_t const minutes = seconds / 60;
    int const          hours   = static_cast<int>(minutes / 60);
    int const          rest    = static_cast<int>(minutes % 60);

    // Zero hours get a minus, and negative numbers keep their own sign behind it: deliberate, see
    // docs/ODDITIES.md.
    char text[text_size];
    format_text(text, "%s%02d%02d", hours > 0 ? "+" : "-", hours, rest);
    return text;
}

}  // namespace

std::string itimew::get_format_date()
{
    std::tm const now = local_now();
    char          text[text_size];
    format_text(text, "%s, %02d %s %d %02d:%02d:%02d %s", get_wday_str(now.tm_wday), now.tm_mday,
                get_mon_str(now.tm_mon), modify_year(now.tm_year), now.tm_hour, now.tm_min,
                now.tm_sec, bias_of(now).c_str());
    return text;
}

std::string itimew::get_logfile_date()
{
    std::tm const now = local_now();
    char          text[text_size];
    format_text(text, "%d%02d", modify_year(now.tm_year), now.tm_mon + 1);
    return text;
}

std::string itimew::get_log_time()
{
    std::tm const now = local_now();
    char          text[text_size];
    format_text(text, "%d/%02d/%02d %02d:%02d:%02d", modify_year(now.tm_year), now.tm_mon + 1,
                now.tm_mday, now.tm_hour, now.tm_min, now.tm_sec);
    return text;
}

int modify_year(int tm_year)
{
    return tm_year + 1900;
}

char const* get_wday_str(int tm_wday)
{
    static char const* const names[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
    return name_of(names, tm_wday);
}

char const* get_mon_str(int tm_mon)
{
    static char const* const names[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                        "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    return name_of(names, tm_mon);
}

std::string get_timezone_bias_str()
{
    return bias_of(local_now());
}

}  // namespace zelieml
