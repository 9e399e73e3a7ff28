// libtimew.h - the current local time as text
//
// Each operation reads the clock. Names of days and months are English, whatever the locale. Any
// thread.

#ifndef ZELIEML_LIBTIMEW_LIBTIMEW_H
#define ZELIEML_LIBTIMEW_LIBTIMEW_H

#include <string>

namespace zelieml
{

class itime
{
public:
    // The date of a mail header, as "Sun, 15 Nov 2026 19:55:31 +0900"; for the form of the zone
    // see get_timezone_bias_str.
    virtual std::string get_format_date() = 0;

    // The month of a log file's name, as "202611".
    virtual std::string get_logfile_date() = 0;

    // The time of a log line, as "2026/11/15 19:55:31".
    virtual std::string get_log_time() = 0;

protected:
    ~itime() = default;
};

// Made on the stack where it is needed.
class itimew final : public itime
{
public:
    std::string get_format_date() override;
    std::string get_logfile_date() override;
    std::string get_log_time() override;
};

// modify_year - the year that a tm_year means
int modify_year(int tm_year);

// The steps of itimew.

// get_wday_str - "Sun" to "Sat" for 0 to 6, "" for any other number
char const* get_wday_str(int tm_wday);

// get_mon_str - "Jan" to "Dec" for 0 to 11, "" for any other number
char const* get_mon_str(int tm_mon);

// get_timezone_bias_str - the offset of local time from GMT
//
// East of GMT, from one hour on, this is the form of RFC 5322: "+0900", "+0530". Elsewhere it is
// not: GMT is "-0000", half an hour east is "-0030", five hours west is "--500", three and a half
// hours west is "--3-30". Deliberate, see docs/ODDITIES.md.
std::string get_timezone_bias_str();

}  // namespace zelieml

#endif
