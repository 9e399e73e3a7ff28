/* sys/time.h - the clock to the microsecond */

#ifndef ZELIEML_SDK_SYS_TIME_H
#define ZELIEML_SDK_SYS_TIME_H

#include <sys/types.h>
#include <time.h>

struct timeval {
    time_t      tv_sec;
    suseconds_t tv_usec;
};

SINCE(10.0)
int gettimeofday(struct timeval* out, void* zone);
END_SINCE

#endif
