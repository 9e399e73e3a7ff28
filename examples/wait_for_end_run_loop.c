/*
 * wait_for_end_run_loop.c - a host with a run loop
 *
 * The main thread is in the run loop, where notifications are delivered; a thread of its own waits
 * for the signal and then stops the loop.
 */

#include <CoreFoundation/CoreFoundation.h>
#include <pthread.h>
#include <stdbool.h>
#include <unistd.h>

#include "wait_for_end.h"

static pthread_mutex_t guard = PTHREAD_MUTEX_INITIALIZER;
static bool            told_to_end; /* guarded */

static bool is_told_to_end(void)
{
    bool told;

    pthread_mutex_lock(&guard);
    told = told_to_end;
    pthread_mutex_unlock(&guard);
    return told;
}

static void *stop_at_signal(void *ends)
{
    int number;

    sigwait(ends, &number);
    pthread_mutex_lock(&guard);
    told_to_end = true;
    pthread_mutex_unlock(&guard);
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
    while (!is_told_to_end()) {
        /* With nothing to wait for the run loop returns at once. */
        if (CFRunLoopRunInMode(kCFRunLoopDefaultMode, 1, false) == kCFRunLoopRunFinished) {
            usleep(200000);
        }
    }
    pthread_join(waiting, NULL);
}
