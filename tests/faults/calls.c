/*
 * calls.c - functions that stand between the library and the C library
 *
 * The program exports them, so that libzelieml.so and the C++ library call them instead of the
 * C library's. Calls from anywhere else go straight through.
 */

#define _GNU_SOURCE

#include "tests/faults/calls.h"

#include <dirent.h>
#include <dlfcn.h>
#include <execinfo.h>
#include <fcntl.h>
#include <iconv.h>
#include <link.h>
#include <netdb.h>
#include <poll.h>
#include <pthread.h>
#include <sched.h>
#include <signal.h>
#include <stdarg.h>
#include <stdatomic.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/eventfd.h>
#include <sys/file.h>
#include <sys/random.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <sys/xattr.h>
#include <time.h>
#include <unistd.h>

struct call_kind const call_kinds[call_count] = {
#define CALL(name, ...) {#name, {__VA_ARGS__}},
    COUNTED_CALLS(CALL)
#undef CALL
};

/* ------------------------------------------------------------------ who calls */

struct range {
    uintptr_t begin;
    uintptr_t end;
};

static struct range library;
static struct range cxx_library;

static int find_ranges(struct dl_phdr_info* info, size_t size, void* data)
{
    struct range* const range = strstr(info->dlpi_name, "libzelieml.so") != NULL  ? &library
                                : strstr(info->dlpi_name, "libstdc++.so") != NULL ? &cxx_library
                                                                                  : NULL;
    (void)size;
    (void)data;
    for (int i = 0; range != NULL && i < info->dlpi_phnum; ++i) {
        ElfW(Phdr) const* const part = &info->dlpi_phdr[i];
        uintptr_t const         last = info->dlpi_addr + part->p_vaddr + part->p_memsz;
        if (part->p_type == PT_LOAD) {
            range->begin = range->begin == 0 ? info->dlpi_addr : range->begin;
            range->end   = last > range->end ? last : range->end;
        }
    }
    return 0;
}

static int is_in(struct range const* range, void const* address)
{
    return (uintptr_t)address >= range->begin && (uintptr_t)address < range->end;
}

/* ------------------------------------------------------------------ counting */

static struct call_plan    plan;
static struct call_record* record; /* null: nothing is counted */
static atomic_int          threads;
static atomic_int          skipping;
static atomic_int          failing_call; /* for good; -1: none */

static _Thread_local int  thread_number;
static _Thread_local int  dies_after_call;
static _Thread_local char is_counting; /* in begin_call, which must not count itself */

static void die(void)
{
    kill(getpid(), SIGKILL);
    for (;;) {
        pause();
    }
}

static int counts(void const* caller)
{
    return record != NULL && !is_counting &&
           (is_in(&library, caller) || is_in(&cxx_library, caller));
}

static void note_sites(void)
{
    void*     frames[64];
    int const count = backtrace(frames, 64);
    for (int i = 0; i < count && record->site_count < max_sites; ++i) {
        if (is_in(&library, frames[i])) {
            record->sites[record->site_count++] = (uintptr_t)frames[i] - library.begin;
        }
    }
}

/* The plan's call is made. Returns how it is to fail, or 0. */
static int reach(enum call call)
{
    record->reached = 1;
    is_counting     = 1;
    note_sites();
    is_counting = 0;
    switch (plan.kill) {
    case kill_before:
        die();
        return 0;
    case kill_half:
        dies_after_call = 1;
        return failure_half;
    case kill_after:
        dies_after_call = 1;
        return 0;
    default:
        failing_call = plan.for_good ? (int)call : -1;
        return plan.failure;
    }
}

/* Counts a call. Returns how it is to fail, or 0. */
static int begin_call(enum call call, int changes)
{
    if (plan.only_changes && !changes) {
        return 0;
    }
    if (failing_call == (int)call) {
        return plan.failure;
    }
    if (skipping && thread_number != 0) {
        return 0;
    }
    int const number = ++record->calls[thread_number];
    if (number <= max_calls) {
        record->made[thread_number][number - 1] = (unsigned char)call;
    }
    return thread_number == plan.thread && number == plan.number ? reach(call) : 0;
}

static void end_call(void)
{
    if (dies_after_call) {
        die();
    }
}

/* The C library's own function. */
static void* next_function(char const* name)
{
    void* const found = dlsym(RTLD_NEXT, name);
    if (found == NULL) {
        abort();
    }
    return found;
}

#define FIND_REAL(name)                                                                            \
    static __typeof__(&name) real;                                                                 \
    if (real == NULL) {                                                                            \
        *(void**)&real = next_function(#name);                                                     \
    }

/* A function that fails by returning a value and setting errno. */
#define REPLACE(result, failed, name, parameters, arguments, changes)                              \
    result name parameters                                                                         \
    {                                                                                              \
        FIND_REAL(name)                                                                            \
        if (!counts(__builtin_return_address(0))) {                                                \
            return real arguments;                                                                 \
        }                                                                                          \
        int const failure = begin_call(call_##name, changes);                                      \
        if (failure > 0) {                                                                         \
            errno = failure;                                                                       \
            return failed;                                                                         \
        }                                                                                          \
        result const got = real arguments;                                                         \
        end_call();                                                                                \
        return got;                                                                                \
    }

/* ------------------------------------------------------------------ memory */

void* __libc_malloc(size_t);
void* __libc_calloc(size_t, size_t);
void* __libc_realloc(void*, size_t);
void  __libc_free(void*);

enum {
    block_slots = 1 << 16
};

static void*       blocks[block_slots]; /* of the library; a removed one is block_gone */
static char        block_gone;
static atomic_flag blocks_busy = ATOMIC_FLAG_INIT;

static size_t first_slot(void const* block)
{
    return ((uintptr_t)block >> 4) * 2654435761U % block_slots;
}

static void lock_blocks(void)
{
    while (atomic_flag_test_and_set(&blocks_busy)) {
        sched_yield();
    }
}

static void keep_block(void* block)
{
    if (block == NULL) {
        return;
    }
    lock_blocks();
    size_t slot = first_slot(block);
    while (blocks[slot] != NULL && blocks[slot] != &block_gone) {
        slot = (slot + 1) % block_slots;
    }
    blocks[slot] = block;
    ++record->blocks;
    atomic_flag_clear(&blocks_busy);
}

static void forget_block(void const* block)
{
    if (record == NULL || block == NULL) {
        return;
    }
    lock_blocks();
    for (size_t slot = first_slot(block); blocks[slot] != NULL; slot = (slot + 1) % block_slots) {
        if (blocks[slot] == block) {
            blocks[slot] = &block_gone;
            --record->blocks;
            break;
        }
    }
    atomic_flag_clear(&blocks_busy);
}

void* malloc(size_t size)
{
    if (!counts(__builtin_return_address(0))) {
        return __libc_malloc(size);
    }
    if (begin_call(call_malloc, 0) != 0) {
        errno = ENOMEM;
        return NULL;
    }
    void* const block = __libc_malloc(size);
    keep_block(block);
    return block;
}

void* calloc(size_t count, size_t size)
{
    if (!counts(__builtin_return_address(0))) {
        return __libc_calloc(count, size);
    }
    if (begin_call(call_calloc, 0) != 0) {
        errno = ENOMEM;
        return NULL;
    }
    void* const block = __libc_calloc(count, size);
    keep_block(block);
    return block;
}

void* realloc(void* block, size_t size)
{
    if (!counts(__builtin_return_address(0))) {
        forget_block(block);
        return __libc_realloc(block, size);
    }
    if (begin_call(call_realloc, 0) != 0) {
        errno = ENOMEM;
        return NULL;
    }
    forget_block(block);
    void* const moved = __libc_realloc(block, size);
    keep_block(moved);
    return moved;
}

void free(void* block)
{
    forget_block(block);
    __libc_free(block);
}

/* ------------------------------------------------------------------ time and waiting */

/* A thread of the library that waits. */
struct waiter {
    atomic_int    is_waiting;
    atomic_uint   waits; /* how often it has begun to */
    atomic_int    has_ended;
    atomic_int    is_tick; /* it waits for a second to pass */
    struct pollfd fd;
};

static struct waiter waiters[max_threads];
static atomic_int    seconds_to_pass;
static atomic_int    passed_seconds;

static int real_poll(struct pollfd* fds, nfds_t count, int timeout)
{
    FIND_REAL(poll)
    return real(fds, count, timeout);
}

static void rest(void)
{
    struct timespec const while_ = {0, 100000};
    FIND_REAL(nanosleep)
    real(&while_, NULL);
}

/* Takes one of the seconds that are to pass, for a thread that waits for that. */
static int take_second(void)
{
    int left = seconds_to_pass;
    while (left > 0) {
        if (atomic_compare_exchange_weak(&seconds_to_pass, &left, left - 1)) {
            ++passed_seconds;
            return 1;
        }
    }
    return 0;
}

static int64_t now_ms(void)
{
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return (int64_t)now.tv_sec * 1000 + now.tv_nsec / 1000000;
}

/* Waits as long as the scenario has it, but not for ever: in the end every wait has a limit. */
static int wait_for_scenario(struct pollfd* fd, int is_tick)
{
    int64_t const        until = now_ms() + 3000;
    struct waiter* const self  = &waiters[thread_number];
    self->fd                   = *fd;
    self->is_tick              = is_tick;
    ++self->waits;
    self->is_waiting = 1;
    int ready        = 0;
    while ((ready = real_poll(fd, 1, 0)) == 0 && !(is_tick && take_second()) && now_ms() < until) {
        rest();
    }
    self->is_waiting = 0;
    return ready;
}

static int is_quiet(struct waiter* waiter)
{
    unsigned const waits = waiter->waits;
    if (waiter->has_ended) {
        return 1;
    }
    if (!waiter->is_waiting) {
        return 0;
    }
    struct pollfd fd = waiter->fd;
    return real_poll(&fd, 1, 0) == 0 && waiter->is_waiting && waiter->waits == waits;
}

static int all_quiet(void)
{
    for (int i = 1; i <= threads; ++i) {
        if (!is_quiet(&waiters[i])) {
            return 0;
        }
    }
    return 1;
}

/* Not so when the worker could not be started, or has ended. */
static int somebody_ticks(void)
{
    for (int i = 1; i <= threads; ++i) {
        if (!waiters[i].has_ended && waiters[i].is_tick) {
            return 1;
        }
    }
    return 0;
}

void pass_seconds(int seconds)
{
    while (!all_quiet()) {
        rest();
    }
    seconds_to_pass = seconds;
    while (!all_quiet() || (seconds_to_pass > 0 && somebody_ticks())) {
        rest();
    }
    seconds_to_pass = 0;
}

void skip_seconds(int seconds)
{
    pass_seconds(0); /* what is being done is counted */
    skipping = 1;
    pass_seconds(seconds);
    skipping = 0;
}

int poll(struct pollfd* fds, nfds_t count, int timeout)
{
    if (!counts(__builtin_return_address(0))) {
        return real_poll(fds, count, timeout);
    }
    /* Otherwise it waits for a server, for 5 ms at a time. */
    int const is_tick = thread_number != 0 && count == 1 && fds->events == POLLIN && timeout > 5;
    int const failure = begin_call(call_poll, 0);
    if (failure > 0) {
        if (failure != EINTR && is_tick) {
            wait_for_scenario(fds, 1);
        }
        errno = failure;
        return -1;
    }
    return is_tick ? wait_for_scenario(fds, 1) : real_poll(fds, count, timeout);
}

int nanosleep(struct timespec const* wanted, struct timespec* left)
{
    FIND_REAL(nanosleep)
    if (!counts(__builtin_return_address(0))) {
        return real(wanted, left);
    }
    int const failure = begin_call(call_nanosleep, 0);
    if (failure > 0) {
        errno = failure;
        return -1;
    }
    return 0;
}

time_t time(time_t* out)
{
    struct timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    time_t const seconds = now.tv_sec + (counts(__builtin_return_address(0)) ? passed_seconds : 0);
    if (out != NULL) {
        *out = seconds;
    }
    return seconds;
}

/* ------------------------------------------------------------------ threads */

struct thread_start {
    void* (*body)(void*);
    void* argument;
    int   number;
};

static struct thread_start starts[max_threads];

static void* run_thread(void* argument)
{
    struct thread_start const* const start = argument;
    thread_number                          = start->number;
    void* const result                     = start->body(start->argument);
    waiters[start->number].has_ended       = 1;
    return result;
}

int pthread_create(pthread_t* thread, pthread_attr_t const* attributes, void* (*body)(void*),
                   void* argument)
{
    FIND_REAL(pthread_create)
    if (!counts(__builtin_return_address(0))) {
        return real(thread, attributes, body, argument);
    }
    int const failure = begin_call(call_pthread_create, 0);
    if (failure > 0) {
        return failure;
    }
    if (threads + 1 >= max_threads) {
        abort();
    }
    struct thread_start* const start = &starts[threads + 1];
    start->body                      = body;
    start->argument                  = argument;
    start->number                    = threads + 1;
    ++threads;
    return real(thread, attributes, run_thread, start);
}

int pthread_mutex_init(pthread_mutex_t* mutex, pthread_mutexattr_t const* attributes)
{
    FIND_REAL(pthread_mutex_init)
    if (!counts(__builtin_return_address(0))) {
        return real(mutex, attributes);
    }
    int const failure = begin_call(call_pthread_mutex_init, 0);
    return failure > 0 ? failure : real(mutex, attributes);
}

/* ------------------------------------------------------------------ files */

static int writes(int flags)
{
    return (flags & (O_CREAT | O_TRUNC)) != 0;
}

static mode_t mode_of(int flags, va_list rest_of_arguments)
{
    return (flags & (O_CREAT | __O_TMPFILE)) != 0 ? va_arg(rest_of_arguments, mode_t) : 0;
}

int open(char const* path, int flags, ...)
{
    FIND_REAL(open)
    va_list more;
    va_start(more, flags);
    mode_t const mode = mode_of(flags, more);
    va_end(more);
    if (!counts(__builtin_return_address(0))) {
        return real(path, flags, mode);
    }
    int const failure = begin_call(call_open, writes(flags));
    if (failure > 0) {
        errno = failure;
        return -1;
    }
    int const fd = real(path, flags, mode);
    end_call();
    return fd;
}

int openat(int directory, char const* path, int flags, ...)
{
    FIND_REAL(openat)
    va_list more;
    va_start(more, flags);
    mode_t const mode = mode_of(flags, more);
    va_end(more);
    if (!counts(__builtin_return_address(0))) {
        return real(directory, path, flags, mode);
    }
    int const failure = begin_call(call_openat, writes(flags));
    if (failure > 0) {
        errno = failure;
        return -1;
    }
    int const fd = real(directory, path, flags, mode);
    end_call();
    return fd;
}

/* A close that fails has closed. */
int close(int fd)
{
    FIND_REAL(close)
    if (!counts(__builtin_return_address(0))) {
        return real(fd);
    }
    int const failure = begin_call(call_close, 0);
    int const result  = real(fd);
    if (failure > 0) {
        errno = failure;
        return -1;
    }
    return result;
}

int fclose(FILE* file)
{
    FIND_REAL(fclose)
    if (!counts(__builtin_return_address(0))) {
        return real(file);
    }
    int const failure = begin_call(call_fclose, 0);
    int const result  = real(file);
    if (failure > 0) {
        errno = failure;
        return EOF;
    }
    return result;
}

/* Counters and pipes take what they are given: see eventfd(2) and pipe(7). */
static int is_file(int fd)
{
    struct stat status;
    is_counting     = 1; /* not this one */
    int const known = fstat(fd, &status);
    is_counting     = 0;
    return known == 0 && S_ISREG(status.st_mode);
}

ssize_t write(int fd, void const* data, size_t size)
{
    FIND_REAL(write)
    if (!counts(__builtin_return_address(0)) || !is_file(fd)) {
        return real(fd, data, size);
    }
    int const failure = begin_call(call_write, 1);
    if (failure > 0) {
        errno = failure;
        return -1;
    }
    ssize_t const written = real(fd, data, failure == failure_half ? (size + 1) / 2 : size);
    end_call();
    return written;
}

int fcntl(int fd, int command, ...)
{
    FIND_REAL(fcntl)
    va_list more;
    va_start(more, command);
    void* const argument = va_arg(more, void*); /* as wide as any */
    va_end(more);
    if (counts(__builtin_return_address(0))) {
        int const failure = begin_call(call_fcntl, 0);
        if (failure > 0) {
            errno = failure;
            return -1;
        }
    }
    return real(fd, command, argument);
}

/* clang-format off */
REPLACE(FILE*, NULL, fopen, (char const* path, char const* mode), (path, mode), *mode != 'r')
REPLACE(FILE*, NULL, fopen64, (char const* path, char const* mode), (path, mode), *mode != 'r')
REPLACE(ssize_t, -1, read, (int fd, void* data, size_t size), (fd, data, size), 0)
REPLACE(ssize_t, -1, pread, (int fd, void* data, size_t size, off_t offset), (fd, data, size, offset), 0)
REPLACE(ssize_t, -1, writev, (int fd, struct iovec const* parts, int count), (fd, parts, count), 1)
REPLACE(off64_t, -1, lseek64, (int fd, off64_t offset, int whence), (fd, offset, whence), 0)
REPLACE(int, -1, ftruncate, (int fd, off_t size), (fd, size), 1)
REPLACE(int, -1, fsync, (int fd), (fd), 0)
REPLACE(int, -1, fdatasync, (int fd), (fd), 0)
REPLACE(int, -1, rename, (char const* from, char const* to), (from, to), 1)
REPLACE(int, -1, renameat, (int a, char const* from, int b, char const* to), (a, from, b, to), 1)
REPLACE(int, -1, renameat2, (int a, char const* from, int b, char const* to, unsigned flags),
        (a, from, b, to, flags), 1)
REPLACE(int, -1, link, (char const* from, char const* to), (from, to), 1)
REPLACE(int, -1, linkat, (int a, char const* from, int b, char const* to, int flags),
        (a, from, b, to, flags), 1)
REPLACE(int, -1, remove, (char const* path), (path), 1)
REPLACE(int, -1, unlink, (char const* path), (path), 1)
REPLACE(int, -1, unlinkat, (int directory, char const* path, int flags), (directory, path, flags), 1)
REPLACE(int, -1, mkdir, (char const* path, mode_t mode), (path, mode), 1)
REPLACE(int, -1, chmod, (char const* path, mode_t mode), (path, mode), 1)
REPLACE(int, -1, fchmod, (int fd, mode_t mode), (fd, mode), 1)
REPLACE(int, -1, fchmodat, (int directory, char const* path, mode_t mode, int flags),
        (directory, path, mode, flags), 1)
REPLACE(int, -1, fchown, (int fd, uid_t user, gid_t group), (fd, user, group), 1)
REPLACE(ssize_t, -1, fgetxattr, (int fd, char const* name, void* out, size_t size),
        (fd, name, out, size), 0)
REPLACE(int, -1, fsetxattr, (int fd, char const* name, void const* value, size_t size, int flags),
        (fd, name, value, size, flags), 1)
REPLACE(int, -1, fremovexattr, (int fd, char const* name), (fd, name), 1)
REPLACE(int, -1, futimens, (int fd, struct timespec const times[2]), (fd, times), 1)
REPLACE(int, -1, access, (char const* path, int mode), (path, mode), 0)
REPLACE(int, -1, faccessat, (int directory, char const* path, int mode, int flags),
        (directory, path, mode, flags), 0)
REPLACE(int, -1, stat, (char const* path, struct stat* out), (path, out), 0)
REPLACE(int, -1, lstat, (char const* path, struct stat* out), (path, out), 0)
REPLACE(int, -1, fstat, (int fd, struct stat* out), (fd, out), 0)
REPLACE(int, -1, fstatat, (int directory, char const* path, struct stat* out, int flags),
        (directory, path, out, flags), 0)
REPLACE(int, -1, flock, (int fd, int operation), (fd, operation), 1)
REPLACE(char*, NULL, realpath, (char const* path, char* out), (path, out), 0)
REPLACE(int, -1, dup, (int fd), (fd), 0)
REPLACE(int, -1, pipe, (int ends[2]), (ends), 0)
REPLACE(int, -1, pipe2, (int ends[2], int flags), (ends, flags), 0)
REPLACE(int, -1, eventfd, (unsigned value, int flags), (value, flags), 0)
REPLACE(DIR*, NULL, opendir, (char const* path), (path), 0)
REPLACE(DIR*, NULL, fdopendir, (int fd), (fd), 0)
REPLACE(struct dirent*, NULL, readdir, (DIR* directory), (directory), 0)

/* ------------------------------------------------------------------ sockets */

REPLACE(int, -1, socket, (int domain, int type, int protocol), (domain, type, protocol), 0)
REPLACE(int, -1, bind, (int fd, struct sockaddr const* address, socklen_t size),
        (fd, address, size), 1)
REPLACE(int, -1, setsockopt, (int fd, int level, int name, void const* value, socklen_t size),
        (fd, level, name, value, size), 0)
REPLACE(int, -1, getsockopt, (int fd, int level, int name, void* value, socklen_t* size),
        (fd, level, name, value, size), 0)
REPLACE(int, -1, shutdown, (int fd, int how), (fd, how), 1)
REPLACE(int, -1, gethostname, (char* name, size_t size), (name, size), 0)
REPLACE(ssize_t, -1, getrandom, (void* out, size_t size, unsigned flags), (out, size, flags), 0)
REPLACE(iconv_t, (iconv_t)-1, iconv_open, (char const* to, char const* from), (to, from), 0)
REPLACE(size_t, (size_t)-1, iconv,
        (iconv_t handle, char** in, size_t* in_left, char** out, size_t* out_left),
        (handle, in, in_left, out, out_left), 0)
/* clang-format on */

int gethostbyname_r(char const* name, struct hostent* entry, char* buffer, size_t size,
                    struct hostent** result, int* error)
{
    FIND_REAL(gethostbyname_r)
    if (counts(__builtin_return_address(0))) {
        int const failure = begin_call(call_gethostbyname_r, 0);
        if (failure > 0) {
            *result = NULL;
            *error  = TRY_AGAIN;
            return failure;
        }
    }
    return real(name, entry, buffer, size, result, error);
}

/* An observer's, which waits for a notification. */
ssize_t recvmsg(int fd, struct msghdr* message, int flags)
{
    FIND_REAL(recvmsg)
    if (!counts(__builtin_return_address(0))) {
        return real(fd, message, flags);
    }
    struct pollfd entry   = {fd, POLLIN, 0};
    int const     ready   = wait_for_scenario(&entry, 0);
    int const     failure = begin_call(call_recvmsg, 0);
    if (failure > 0 || ready == 0) {
        errno = failure > 0 ? failure : EAGAIN;
        return -1;
    }
    return real(fd, message, flags);
}

static void wait_for(int fd, short events)
{
    struct pollfd entry = {fd, events, 0};
    real_poll(&entry, 1, 3000);
}

/* Over TCP always in progress first, whether or not the connection stands at once. */
int connect(int fd, struct sockaddr const* address, socklen_t size)
{
    FIND_REAL(connect)
    if (!counts(__builtin_return_address(0))) {
        return real(fd, address, size);
    }
    int const failure = begin_call(call_connect, 1);
    if (failure > 0 && failure != EINTR) {
        errno = failure;
        return -1;
    }
    int const result = real(fd, address, size);
    if (address->sa_family == AF_INET && (result == 0 || errno == EINPROGRESS)) {
        wait_for(fd, POLLOUT);
        errno = failure == EINTR ? EINTR : EINPROGRESS;
        end_call();
        return -1;
    }
    if (failure == EINTR) {
        errno = EINTR;
        return -1;
    }
    end_call();
    return result;
}

static void break_connection(int fd)
{
    FIND_REAL(shutdown)
    real(fd, SHUT_RDWR);
}

/*
 * Whether the failure can occur now. Nothing interrupts a call that does not wait. A connection that
 * is broken stays broken.
 */
static int can_fail(int fd, int failure)
{
    FIND_REAL(fcntl)
    int const waits = (real(fd, F_GETFL) & O_NONBLOCK) == 0;
    if ((failure == EINTR && !waits) || (failure == EAGAIN && waits)) {
        return 0;
    }
    if (failure == ECONNRESET || failure == EPIPE || failure == failure_end) {
        break_connection(fd);
    }
    return 1;
}

ssize_t send(int fd, void const* data, size_t size, int flags)
{
    FIND_REAL(send)
    if (!counts(__builtin_return_address(0))) {
        return real(fd, data, size, flags);
    }
    int const failure = begin_call(call_send, 1);
    if (failure > 0 && can_fail(fd, failure)) {
        errno = failure;
        return -1;
    }
    ssize_t const sent = real(fd, data, failure == failure_half ? (size + 1) / 2 : size, flags);
    end_call();
    return sent;
}

static int is_stream(int fd)
{
    FIND_REAL(getsockopt)
    int       type = 0;
    socklen_t size = sizeof type;
    return real(fd, SOL_SOCKET, SO_TYPE, &type, &size) == 0 && type == SOCK_STREAM;
}

/* Leaves half of the bytes, of those that the pieces have together. */
static void halve(struct iovec* pieces, size_t count)
{
    size_t left = 1;
    for (size_t i = 0; i < count; ++i) {
        left += pieces[i].iov_len;
    }
    left /= 2;
    for (size_t i = 0; i < count; ++i) {
        pieces[i].iov_len = pieces[i].iov_len < left ? pieces[i].iov_len : left;
        left -= pieces[i].iov_len;
    }
}

/* Over a stream it is another form of send. */
ssize_t sendmsg(int fd, struct msghdr const* message, int flags)
{
    FIND_REAL(sendmsg)
    if (!counts(__builtin_return_address(0))) {
        return real(fd, message, flags);
    }
    int const    stream  = is_stream(fd);
    int const    failure = begin_call(stream ? call_send : call_sendmsg, 1);
    struct iovec pieces[64];
    if (failure > 0 && (!stream || can_fail(fd, failure))) {
        errno = failure;
        return -1;
    }
    struct msghdr some = *message;
    if (failure == failure_half) {
        if (some.msg_iovlen > sizeof pieces / sizeof *pieces) {
            abort();
        }
        memcpy(pieces, some.msg_iov, some.msg_iovlen * sizeof *pieces);
        halve(pieces, some.msg_iovlen);
        some.msg_iov = pieces;
    }
    ssize_t const sent = real(fd, &some, flags);
    end_call();
    return sent;
}

/* Waits for the server first, so that the number of calls does not depend on its speed. */
ssize_t recv(int fd, void* data, size_t size, int flags)
{
    FIND_REAL(recv)
    if (!counts(__builtin_return_address(0))) {
        return real(fd, data, size, flags);
    }
    wait_for(fd, POLLIN);
    int const failure = begin_call(call_recv, 0);
    if (failure == 0 || !can_fail(fd, failure)) {
        return real(fd, data, size, flags);
    }
    errno = failure;
    return failure == failure_end ? 0 : -1;
}

/* ------------------------------------------------------------------ the run */

void begin_counting(struct call_plan const* planned, struct call_record* shared)
{
    void* warm_up[4];
    backtrace(warm_up, 4); /* loads what it needs */
    dl_iterate_phdr(find_ranges, NULL);
    if (library.end == 0 || cxx_library.end == 0) {
        abort();
    }
    plan         = *planned;
    failing_call = -1;
    record       = shared;
}

void end_counting(void)
{
    record = NULL;
}
