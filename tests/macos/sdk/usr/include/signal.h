/* signal.h - signals */

#ifndef ZELIEML_SDK_SIGNAL_H
#define ZELIEML_SDK_SIGNAL_H

#include <sys/types.h>

typedef int      sig_atomic_t;
typedef uint32_t sigset_t;

#define NSIG    32
#define SIGHUP  1
#define SIGINT  2
#define SIGILL  4
#define SIGABRT 6
#define SIGFPE  8
#define SIGSEGV 11
#define SIGPIPE 13
#define SIGTERM 15

#define SIG_DFL ((void (*)(int))0)
#define SIG_IGN ((void (*)(int))1)
#define SIG_ERR ((void (*)(int)) - 1)

#define SIG_BLOCK   1
#define SIG_UNBLOCK 2
#define SIG_SETMASK 3

SINCE(10.0)
int raise(int number);
void (*signal(int number, void (*handler)(int)))(int);
int sigaddset(sigset_t* set, int number);
int sigemptyset(sigset_t* set);
int sigfillset(sigset_t* set);
int sigismember(sigset_t const* set, int number);
int sigpending(sigset_t* set);
int sigprocmask(int how, sigset_t const* set, sigset_t* before);
int sigwait(sigset_t const* set, int* number) SDK_UNIX03(sigwait);
int pthread_sigmask(int how, sigset_t const* set, sigset_t* before) SDK_UNIX03(pthread_sigmask);
END_SINCE

#endif
