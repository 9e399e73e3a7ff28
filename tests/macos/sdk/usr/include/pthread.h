/* pthread.h - threads */

#ifndef ZELIEML_SDK_PTHREAD_H
#define ZELIEML_SDK_PTHREAD_H

#include <sched.h>
#include <signal.h>
#include <sys/types.h>
#include <time.h>

#if defined(__LP64__)
#define SDK_THREAD_SIZES(wide, narrow) wide
#else
#define SDK_THREAD_SIZES(wide, narrow) narrow
#endif

typedef struct _opaque_pthread_t* pthread_t;
typedef unsigned long             pthread_key_t;

typedef struct {
    long __sig;
    char __opaque[SDK_THREAD_SIZES(56, 36)];
} pthread_attr_t;

typedef struct {
    long __sig;
    char __opaque[SDK_THREAD_SIZES(40, 24)];
} pthread_cond_t;

typedef struct {
    long __sig;
    char __opaque[SDK_THREAD_SIZES(8, 4)];
} pthread_condattr_t;

typedef struct {
    long __sig;
    char __opaque[SDK_THREAD_SIZES(56, 40)];
} pthread_mutex_t;

typedef struct {
    long __sig;
    char __opaque[SDK_THREAD_SIZES(8, 8)];
} pthread_mutexattr_t;

typedef struct {
    long __sig;
    char __opaque[SDK_THREAD_SIZES(8, 4)];
} pthread_once_t;

#define PTHREAD_MUTEX_INITIALIZER                                                                  \
    {                                                                                              \
        0x32AAABA7,                                                                                \
        {                                                                                          \
            0                                                                                      \
        }                                                                                          \
    }
#define PTHREAD_COND_INITIALIZER                                                                   \
    {                                                                                              \
        0x3CB0B1BB,                                                                                \
        {                                                                                          \
            0                                                                                      \
        }                                                                                          \
    }
#define PTHREAD_ONCE_INIT                                                                          \
    {                                                                                              \
        0x30B1BCBA,                                                                                \
        {                                                                                          \
            0                                                                                      \
        }                                                                                          \
    }
#define PTHREAD_MUTEX_NORMAL    0
#define PTHREAD_MUTEX_RECURSIVE 2
#define PTHREAD_CANCEL_ENABLE   0x01
#define PTHREAD_CANCEL_DISABLE  0x00

SINCE(10.0)
int pthread_cond_broadcast(pthread_cond_t* cond);
int pthread_cond_destroy(pthread_cond_t* cond);
int pthread_cond_init(pthread_cond_t* cond, pthread_condattr_t const* attr)
    SDK_UNIX03(pthread_cond_init);
int   pthread_cond_signal(pthread_cond_t* cond);
int   pthread_cond_timedwait(pthread_cond_t* cond, pthread_mutex_t* mutex,
                             struct timespec const* until) SDK_UNIX03(pthread_cond_timedwait);
int   pthread_cond_wait(pthread_cond_t* cond, pthread_mutex_t* mutex) SDK_UNIX03(pthread_cond_wait);
int   pthread_create(pthread_t* thread, pthread_attr_t const* attr, void* (*body)(void*),
                     void* argument);
int   pthread_detach(pthread_t thread);
int   pthread_equal(pthread_t one, pthread_t other);
void* pthread_getspecific(pthread_key_t key);
int   pthread_join(pthread_t thread, void** result) SDK_UNIX03(pthread_join);
int   pthread_key_create(pthread_key_t* key, void (*destroy)(void*));
int   pthread_mutex_destroy(pthread_mutex_t* mutex);
int   pthread_mutex_init(pthread_mutex_t* mutex, pthread_mutexattr_t const* attr);
int   pthread_mutex_lock(pthread_mutex_t* mutex);
int   pthread_mutex_trylock(pthread_mutex_t* mutex);
int   pthread_mutex_unlock(pthread_mutex_t* mutex);
int   pthread_mutexattr_destroy(pthread_mutexattr_t* attr) SDK_UNIX03(pthread_mutexattr_destroy);
int   pthread_mutexattr_init(pthread_mutexattr_t* attr);
int   pthread_mutexattr_settype(pthread_mutexattr_t* attr, int type);
int   pthread_once(pthread_once_t* once, void (*proc)(void));
pthread_t pthread_self(void);
int       pthread_setcancelstate(int state, int* before) SDK_UNIX03(pthread_setcancelstate);
int       pthread_setspecific(pthread_key_t key, void const* value);
END_SINCE

#endif
