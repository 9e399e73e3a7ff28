/*
 * wait_for_end.h - how a host waits until it is told to end
 *
 * On macOS a notification reaches an engine through the run loop of the main thread. So the way in
 * which that thread waits makes the difference between hosts:
 *
 *     wait_for_end.c           Linux: waits for the signal, nothing else is needed
 *     wait_for_end_run_loop.c  macOS, a host with a run loop, as every application has one
 *     wait_for_end_turns.c     macOS, a host with a loop of its own, which runs a turn of the
 *                              system's run loop now and then
 */

#ifndef WAIT_FOR_END_H
#define WAIT_FOR_END_H

#include <signal.h>

/*
 * wait_for_end - return when one of these signals has come
 *
 * ends  blocked in every thread of the process
 *
 * Called by the main thread.
 */
void wait_for_end(const sigset_t *ends);

#endif
