/* sched.h - giving way to other threads */

#ifndef ZELIEML_SDK_SCHED_H
#define ZELIEML_SDK_SCHED_H

#include <sys/types.h>

SINCE(10.0)
int sched_yield(void);
END_SINCE

#endif
