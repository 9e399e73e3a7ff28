/* stdlib.h - memory, numbers, the process */

#ifndef ZELIEML_SDK_STDLIB_H
#define ZELIEML_SDK_STDLIB_H

#include <sys/types.h>

#define EXIT_SUCCESS 0
#define EXIT_FAILURE 1
#define RAND_MAX     0x7fffffff
#define MB_CUR_MAX   (___mb_cur_max())

typedef struct {
    int quot;
    int rem;
} div_t;

typedef struct {
    long quot;
    long rem;
} ldiv_t;

typedef struct {
    long long quot;
    long long rem;
} lldiv_t;

SINCE(10.0)
int                            ___mb_cur_max(void);
__attribute__((noreturn)) void abort(void);
int                            abs(int number);
int                            atexit(void (*proc)(void));
double                         atof(char const* text);
int                            atoi(char const* text);
long                           atol(char const* text);
long long                      atoll(char const* text);
void*                          bsearch(void const* key, void const* base, size_t count, size_t size,
                                       int (*compare)(void const*, void const*));
void*                          calloc(size_t count, size_t size);
div_t                          div(int number, int by);
__attribute__((noreturn)) void _Exit(int status);
__attribute__((noreturn)) void exit(int status);
void                           free(void* bytes);
char*                          getenv(char const* name);
long                           labs(long number);
ldiv_t                         ldiv(long number, long by);
long long                      llabs(long long number);
lldiv_t                        lldiv(long long number, long long by);
void*                          malloc(size_t size);
int                            mblen(char const* text, size_t size);
size_t                         mbstowcs(wchar_t* to, char const* from, size_t size);
int                            mbtowc(wchar_t* to, char const* from, size_t size);
void        qsort(void* base, size_t count, size_t size, int (*compare)(void const*, void const*));
int         rand(void);
void*       realloc(void* bytes, size_t size);
void        srand(unsigned seed);
double      strtod(char const* text, char** rest) SDK_UNIX03(strtod);
float       strtof(char const* text, char** rest) SDK_UNIX03(strtof);
long        strtol(char const* text, char** rest, int base);
long double strtold(char const* text, char** rest);
long long   strtoll(char const* text, char** rest, int base);
unsigned long      strtoul(char const* text, char** rest, int base);
unsigned long long strtoull(char const* text, char** rest, int base);
int                system(char const* command) SDK_UNIX03(system);
size_t             wcstombs(char* to, wchar_t const* from, size_t size);
int                wctomb(char* to, wchar_t c);
END_SINCE
SINCE(10.6)
int   posix_memalign(void** bytes, size_t alignment, size_t size);
char* realpath(char const* path, char* real) __asm__("_realpath$DARWIN_EXTSN");
END_SINCE

#endif
