/*
 * main_thread.h - what the main thread of a program does that needs notifications
 *
 * linux/main_thread.c: it works. Notifications come on threads of their own.
 * macos/main_thread.c: it runs the run loop, on which notifications are delivered, and another
 * thread works.
 */

#ifndef ZELIEML_TESTS_SUPPORT_MAIN_THREAD_H
#define ZELIEML_TESTS_SUPPORT_MAIN_THREAD_H

#ifdef __cplusplus
extern "C" {
#endif

/*
 * work_with_notifications - work(argument), which hears notifications meanwhile
 *
 * Called by the main thread; that of a forked child is the one that called fork. Signals to the
 * process go to the thread that works. On macOS, those that it has blocked wait with the main
 * thread: sigwait takes them from there, but sigpending does not show them.
 *
 * Returns what the work returns.
 */
int work_with_notifications(int (*work)(void* argument), void* argument);

#ifdef __cplusplus
}
#endif

#endif
