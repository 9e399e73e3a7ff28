/*
 * wait_for_end.c - a host that only waits
 */

#define _POSIX_C_SOURCE 200809L

#include "wait_for_end.h"

void wait_for_end(const sigset_t *ends)
{
    int number;

    sigwait(ends, &number);
}
