/*
 * calls.h - the calls of the library into the C library that are counted, and made to fail
 *
 * A call is counted when it comes from libzelieml.so, or from the C++ library, which nothing else
 * in a run uses. It is named by the thread that makes it and by its number on that thread: thread 0
 * is the scenario's, the others are the library's, in the order in which they are started. The
 * numbers are the same in every run, because the library's threads wait for pass_seconds.
 */

#ifndef ZELIEML_TESTS_FAULTS_CALLS_H
#define ZELIEML_TESTS_FAULTS_CALLS_H

#include <errno.h>
#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

enum {
    failure_half = -1, /* half of the bytes are written */
    failure_end  = -2  /* the peer has closed */
};

/*
 * Every call with the failures that it can have. The first one is also tried for good, unless it is
 * an interruption: those that never end are none.
 */
#define COUNTED_CALLS(X)                                                                           \
    X(malloc, ENOMEM, 0, 0, 0)                                                                     \
    X(calloc, ENOMEM, 0, 0, 0)                                                                     \
    X(realloc, ENOMEM, 0, 0, 0)                                                                    \
    X(open, EMFILE, EACCES, EINTR, ENOSPC)                                                         \
    X(openat, EMFILE, EACCES, EINTR, 0)                                                            \
    X(fopen, EMFILE, EACCES, ENOSPC, 0)                                                            \
    X(fopen64, EMFILE, EACCES, ENOSPC, 0)                                                          \
    X(read, EIO, EINTR, 0, 0)                                                                      \
    X(pread, EIO, EINTR, 0, 0)                                                                     \
    X(write, ENOSPC, EIO, EINTR, failure_half)                                                     \
    X(writev, ENOSPC, EIO, EINTR, 0)                                                               \
    X(lseek64, EIO, 0, 0, 0)                                                                       \
    X(close, EIO, EINTR, 0, 0)                                                                     \
    X(fclose, ENOSPC, EIO, 0, 0)                                                                   \
    X(ftruncate, EIO, EINTR, 0, 0)                                                                 \
    X(fsync, EIO, 0, 0, 0)                                                                         \
    X(fdatasync, EIO, 0, 0, 0)                                                                     \
    X(rename, EIO, ENOSPC, EACCES, 0)                                                              \
    X(renameat, EIO, ENOSPC, EACCES, 0)                                                            \
    X(renameat2, EINVAL, EIO, ENOSPC, EACCES)                                                      \
    X(link, EPERM, ENOSPC, EEXIST, 0)                                                              \
    X(linkat, EPERM, ENOSPC, EEXIST, 0)                                                            \
    X(remove, EACCES, EIO, 0, 0)                                                                   \
    X(unlink, EACCES, EIO, 0, 0)                                                                   \
    X(unlinkat, EACCES, EIO, 0, 0)                                                                 \
    X(mkdir, ENOSPC, EACCES, 0, 0)                                                                 \
    X(chmod, EPERM, 0, 0, 0)                                                                       \
    X(fchmod, EPERM, 0, 0, 0)                                                                      \
    X(fchmodat, EPERM, 0, 0, 0)                                                                    \
    X(fchown, EPERM, 0, 0, 0)                                                                      \
    X(fgetxattr, EIO, ENODATA, 0, 0)                                                               \
    X(fsetxattr, ENOSPC, EOPNOTSUPP, EPERM, 0)                                                     \
    X(fremovexattr, EPERM, EIO, 0, 0)                                                              \
    X(futimens, EPERM, EIO, 0, 0)                                                                  \
    X(access, EIO, 0, 0, 0)                                                                        \
    X(faccessat, EIO, 0, 0, 0)                                                                     \
    X(stat, EIO, 0, 0, 0)                                                                          \
    X(lstat, EIO, 0, 0, 0)                                                                         \
    X(fstat, EIO, 0, 0, 0)                                                                         \
    X(fstatat, EIO, 0, 0, 0)                                                                       \
    X(flock, ENOLCK, EWOULDBLOCK, EINTR, 0)                                                        \
    X(realpath, EIO, 0, 0, 0)                                                                      \
    X(fcntl, EMFILE, 0, 0, 0)                                                                      \
    X(dup, EMFILE, 0, 0, 0)                                                                        \
    X(pipe, EMFILE, 0, 0, 0)                                                                       \
    X(pipe2, EMFILE, 0, 0, 0)                                                                      \
    X(eventfd, EMFILE, 0, 0, 0)                                                                    \
    X(opendir, EMFILE, EACCES, 0, 0)                                                               \
    X(fdopendir, ENOMEM, 0, 0, 0)                                                                  \
    X(readdir, EIO, 0, 0, 0)                                                                       \
    X(socket, EMFILE, 0, 0, 0)                                                                     \
    X(bind, EADDRINUSE, ENOSPC, 0, 0)                                                              \
    X(connect, ECONNREFUSED, ETIMEDOUT, EINTR, 0)                                                  \
    X(setsockopt, ENOBUFS, 0, 0, 0)                                                                \
    X(getsockopt, ENOBUFS, 0, 0, 0)                                                                \
    X(send, EPIPE, ECONNRESET, EINTR, failure_half)                                                \
    X(sendmsg, ECONNREFUSED, EAGAIN, EINTR, ENOBUFS)                                               \
    X(recv, ECONNRESET, EAGAIN, EINTR, failure_end)                                                \
    X(recvmsg, EINTR, ENOMEM, EAGAIN, 0)                                                           \
    X(poll, ENOMEM, EINTR, 0, 0)                                                                   \
    X(shutdown, ENOTCONN, 0, 0, 0)                                                                 \
    X(gethostname, EPERM, 0, 0, 0)                                                                 \
    X(gethostbyname_r, EAGAIN, 0, 0, 0)                                                            \
    X(iconv_open, EMFILE, EINVAL, ENOMEM, 0)                                                       \
    X(iconv, EILSEQ, EINVAL, 0, 0)                                                                 \
    X(getrandom, ENOSYS, EINTR, 0, 0)                                                              \
    X(nanosleep, EINVAL, EINTR, 0, 0)                                                              \
    X(pthread_create, EAGAIN, 0, 0, 0)                                                             \
    X(pthread_mutex_init, ENOMEM, 0, 0, 0)

enum call {
#define CALL(name, ...) call_##name,
    COUNTED_CALLS(CALL)
#undef CALL
    call_count
};

enum {
    max_failures = 4,
    max_threads  = 8,
    max_calls    = 4096,
    max_sites    = 24
};

struct call_kind {
    char const* name;
    int         failures[max_failures];
};

extern struct call_kind const call_kinds[call_count];

/* When a process is killed, at a call that changes something outside of it. */
enum kill_time {
    kill_never,
    kill_before,
    kill_half, /* after half of the bytes, for calls that write some */
    kill_after
};

/* What is to go wrong. */
struct call_plan {
    int only_changes; /* count only the calls that change something */
    int thread;
    int number; /* counted from 1; 0: nothing goes wrong */
    int failure;
    int for_good; /* all later calls to the same function fail as well */
    int kill;
};

/* What was called, in memory that the driver shares. */
struct call_record {
    int           calls[max_threads];
    unsigned char made[max_threads][max_calls]; /* enum call */
    int           reached;                      /* the plan's call was made */
    int           site_count;
    size_t        sites[max_sites]; /* offsets in libzelieml.so, the innermost first */
    int           blocks;           /* of memory, that the library has not freed */
};

/* Counts from here to end_counting, in this process. */
void begin_counting(struct call_plan const* plan, struct call_record* record);
void end_counting(void);

/*
 * Waits until all threads of the library wait, and nothing is there for them to read. Then lets so
 * many seconds pass for the library, one at a time, and waits again.
 */
void pass_seconds(int seconds);

/* The same without counting the calls that are made meanwhile. */
void skip_seconds(int seconds);

#ifdef __cplusplus
}
#endif

#endif
