/* time.h - the calendar and the clock */

#ifndef ZELIEML_SDK_TIME_H
#define ZELIEML_SDK_TIME_H

#include <sys/types.h>

#define CLOCKS_PER_SEC 1000000

struct timespec {
    time_t tv_sec;
    long   tv_nsec;
};

struct tm {
    int   tm_sec;
    int   tm_min;
    int   tm_hour;
    int   tm_mday;
    int   tm_mon;
    int   tm_year;
    int   tm_wday;
    int   tm_yday;
    int   tm_isdst;
    long  tm_gmtoff;
    char* tm_zone;
};

SINCE(10.0)
char*      asctime(struct tm const* time);
clock_t    clock(void) SDK_UNIX03(clock);
char*      ctime(time_t const* time);
double     difftime(time_t later, time_t earlier);
struct tm* gmtime(time_t const* time);
struct tm* gmtime_r(time_t const* time, struct tm* out);
struct tm* localtime(time_t const* time);
struct tm* localtime_r(time_t const* time, struct tm* out);
time_t     mktime(struct tm* time) SDK_UNIX03(mktime);
size_t     strftime(char* text, size_t size, char const* format, struct tm const* time)
    SDK_UNIX03(strftime);
time_t time(time_t* out);
void   tzset(void);
int    nanosleep(struct timespec const* time, struct timespec* left) SDK_UNIX03(nanosleep);
END_SINCE

#endif
