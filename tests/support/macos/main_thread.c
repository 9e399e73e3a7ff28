#include "tests/support/main_thread.h"

#include <CoreFoundation/CoreFoundation.h>
#include <pthread.h>
#include <signal.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <time.h>

static const size_t stack_bytes = 8 << 20; /* a main thread's; other threads have 512 KiB */
static double const turn_s      = 0.05;

struct job {
    int (*work)(void* argument);
    void*           argument;
    sigset_t        blocked; /* signals, as the caller has them */
    int             result;
    pthread_mutex_t guard;
    bool            is_over; /* guarded */
};

static void* begin(void* argument)
{
    struct job* job = argument;

    pthread_sigmask(SIG_SETMASK, &job->blocked, NULL);
    job->result = job->work(job->argument);
    pthread_mutex_lock(&job->guard);
    job->is_over = true;
    pthread_mutex_unlock(&job->guard);
    return NULL;
}

static bool is_over(struct job* job)
{
    bool over;

    pthread_mutex_lock(&job->guard);
    over = job->is_over;
    pthread_mutex_unlock(&job->guard);
    return over;
}

int work_with_notifications(int (*work)(void* argument), void* argument)
{
    struct job job = {
        .work = work, .argument = argument, .result = 1, .guard = PTHREAD_MUTEX_INITIALIZER};
    const struct timespec a_moment = {0, 10000000};
    pthread_attr_t        attributes;
    pthread_t             worker;
    sigset_t              all;

    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &job.blocked); /* before a signal can choose this thread */
    pthread_attr_init(&attributes);
    if (pthread_attr_setstacksize(&attributes, stack_bytes) != 0 ||
        pthread_create(&worker, &attributes, begin, &job) != 0) {
        fprintf(stderr, "no thread beside the run loop\n");
        abort();
    }
    pthread_attr_destroy(&attributes);
    while (!is_over(&job)) {
        /* Before there is an observer the run loop may return at once. */
        if (CFRunLoopRunInMode(kCFRunLoopDefaultMode, turn_s, false) == kCFRunLoopRunFinished) {
            nanosleep(&a_moment, NULL);
        }
    }
    pthread_join(worker, NULL);
    pthread_sigmask(SIG_SETMASK, &job.blocked, NULL);
    return job.result;
}
