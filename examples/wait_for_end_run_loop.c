/*
 * wait_for_end_run_loop.c - a host with a run loop
 *
 * The main thread is in the run loop, where notifications are delivered; a thread of its own waits
 * for the signal and then stops the loop.
 */

#include <CoreFoundation/CoreFoundation.h>
#include <pthread.h>
#include <stdbool.h>

#include "wait_for_end.h"

static volatile sig_atomic_t told_to_end;

static void *stop_at_signal(void *ends)
{
    int number;

    sigwait(ends, &number);
    told_to_end = 1;
    CFRunLoopStop(CFRunLoopGetMain());
    return NULL;
}

void wait_for_end(const sigset_t *ends)
{
    sigset_t  waited_for = *ends;
    pthread_t waiting;

    if (pthread_create(&waiting, NULL, stop_at_signal, &waited_for) != 0) {
        return;
    }
    /* An application calls its own function here, or CFRunLoopRun, and no condition is needed. */
    while (!told_to_end) {
        CFRunLoopRunInMode(kCFRunLoopDefaultMode, 1, false);
    }
    pthread_join(waiting, NULL);
}
