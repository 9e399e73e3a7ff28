/*
 * wait_for_end_turns.c - a host without a run loop
 *
 * It has a loop of its own, here one that looks for the signal, and runs the system's run loop for
 * a fifth of a second in each turn: notifications are delivered only then. A loop that waits for
 * other things as well runs it for 0 seconds, but often.
 */

#include <CoreFoundation/CoreFoundation.h>
#include <stdbool.h>
#include <unistd.h>

#include "wait_for_end.h"

static int has_come(const sigset_t *ends)
{
    sigset_t pending;
    int      number;

    sigemptyset(&pending);
    sigpending(&pending);
    for (number = 1; number < NSIG; ++number) {
        if (sigismember(ends, number) == 1 && sigismember(&pending, number) == 1) {
            return 1;
        }
    }
    return 0;
}

void wait_for_end(const sigset_t *ends)
{
    while (!has_come(ends)) {
        /* With nothing to wait for the run loop returns at once. */
        if (CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0.2, false) == kCFRunLoopRunFinished) {
            usleep(200000);
        }
    }
}
