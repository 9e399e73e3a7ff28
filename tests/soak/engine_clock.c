/*
 * engine_clock.c - functions that stand between the library and the C library
 *
 * The program exports them, so that libzelieml.so calls them instead of the C library's. Time
 * passes quickly for second attempts and scans. Files are as old as they are in the world, so that
 * one that is being written is not taken for one that was given up.
 */

#define _GNU_SOURCE

#include "tests/soak/engine_clock.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <netdb.h>
#include <poll.h>
#include <stdbool.h>
#include <sys/stat.h>
#include <time.h>

enum {
    tick_ms = 1000 /* how long the worker of an engine waits; nobody else waits so long */
};

static int64_t begin_ms;

static int64_t world_ms(void)
{
    struct timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    return (int64_t)now.tv_sec * 1000 + now.tv_nsec / 1000000;
}

void start_engine_clock(void)
{
    begin_ms = world_ms();
}

int64_t engine_clock_ms(void)
{
    return begin_ms + (world_ms() - begin_ms) * engine_clock_speed;
}

time_t time(time_t* out)
{
    time_t const now = (time_t)(engine_clock_ms() / 1000);
    if (out != NULL) {
        *out = now;
    }
    return now;
}

static int keep_age(int result, struct stat* status)
{
    if (result == 0) {
        status->st_mtime += (engine_clock_ms() - world_ms()) / 1000;
    }
    return result;
}

int fstat(int fd, struct stat* status)
{
    return keep_age(fstat64(fd, (struct stat64*)status), status);
}

int fstatat(int directory, char const* restrict name, struct stat* restrict status, int flags)
{
    return keep_age(fstatat64(directory, name, (struct stat64*)status, flags), status);
}

/* A worker that was busy makes up for the ticks that it has missed. */
static struct timespec until_next_tick(void)
{
    static _Thread_local int64_t next_ms;
    int64_t const                now_ms = engine_clock_ms();
    next_ms                             = (next_ms == 0 ? now_ms : next_ms) + tick_ms;
    int64_t const left_ms               = next_ms > now_ms ? next_ms - now_ms : 0;
    return (struct timespec){0, left_ms * 1000000 / engine_clock_speed};
}

int poll(struct pollfd* fds, nfds_t count, int timeout)
{
    struct timespec const wait = timeout == tick_ms
                                     ? until_next_tick()
                                     : (struct timespec){timeout / 1000, timeout % 1000 * 1000000L};
    return ppoll(fds, count, timeout < 0 ? NULL : &wait, NULL);
}

typedef int look_up(char const* name, struct hostent* entry, char* buffer, size_t size,
                    struct hostent** result, int* error);

static look_up* real_look_up;
static bool     finds_no_names;

/* Not later: a child must not wait for the locks of dlsym. */
__attribute__((constructor)) static void find_real_look_up(void)
{
    *(void**)&real_look_up = dlsym(RTLD_NEXT, "gethostbyname_r");
}

void look_no_names_up(void)
{
    finds_no_names = true;
}

int gethostbyname_r(char const* restrict name, struct hostent* restrict entry,
                    char* restrict buffer, size_t size, struct hostent** restrict result,
                    int* restrict error)
{
    if (finds_no_names) {
        *result = NULL;
        *error  = HOST_NOT_FOUND;
        return 0;
    }
    return real_look_up(name, entry, buffer, size, result, error);
}
