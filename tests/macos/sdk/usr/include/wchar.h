/* wchar.h - wide characters */

#ifndef ZELIEML_SDK_WCHAR_H
#define ZELIEML_SDK_WCHAR_H

#include <stdarg.h>
#include <stdio.h>
#include <sys/types.h>
#include <time.h>
#include <wctype.h>

typedef union {
    char      __mbstate8[128];
    long long _mbstateL;
} mbstate_t;

SINCE(10.3)
wint_t   btowc(int c);
wint_t   fgetwc(FILE* stream);
wchar_t* fgetws(wchar_t* text, int size, FILE* stream);
wint_t   fputwc(wchar_t c, FILE* stream);
int      fputws(wchar_t const* text, FILE* stream);
int      fwide(FILE* stream, int mode);
int      fwprintf(FILE* stream, wchar_t const* format, ...);
int      fwscanf(FILE* stream, wchar_t const* format, ...);
wint_t   getwc(FILE* stream);
wint_t   getwchar(void);
size_t   mbrlen(char const* text, size_t size, mbstate_t* state);
size_t   mbrtowc(wchar_t* to, char const* from, size_t size, mbstate_t* state);
int      mbsinit(mbstate_t const* state);
size_t   mbsrtowcs(wchar_t* to, char const** from, size_t size, mbstate_t* state);
wint_t   putwc(wchar_t c, FILE* stream);
wint_t   putwchar(wchar_t c);
int      swprintf(wchar_t* text, size_t size, wchar_t const* format, ...);
int      swscanf(wchar_t const* text, wchar_t const* format, ...);
wint_t   ungetwc(wint_t c, FILE* stream);
int      vfwprintf(FILE* stream, wchar_t const* format, va_list args);
int      vfwscanf(FILE* stream, wchar_t const* format, va_list args);
int      vswprintf(wchar_t* text, size_t size, wchar_t const* format, va_list args);
int      vswscanf(wchar_t const* text, wchar_t const* format, va_list args);
int      vwprintf(wchar_t const* format, va_list args);
int      vwscanf(wchar_t const* format, va_list args);
size_t   wcrtomb(char* to, wchar_t c, mbstate_t* state);
wchar_t* wcscat(wchar_t* to, wchar_t const* from);
wchar_t* wcschr(wchar_t const* text, wchar_t c);
int      wcscmp(wchar_t const* one, wchar_t const* other);
int      wcscoll(wchar_t const* one, wchar_t const* other);
wchar_t* wcscpy(wchar_t* to, wchar_t const* from);
size_t   wcscspn(wchar_t const* text, wchar_t const* set);
size_t   wcsftime(wchar_t* text, size_t size, wchar_t const* format, struct tm const* time)
    SDK_UNIX03(wcsftime);
size_t             wcslen(wchar_t const* text);
wchar_t*           wcsncat(wchar_t* to, wchar_t const* from, size_t size);
int                wcsncmp(wchar_t const* one, wchar_t const* other, size_t size);
wchar_t*           wcsncpy(wchar_t* to, wchar_t const* from, size_t size);
wchar_t*           wcspbrk(wchar_t const* text, wchar_t const* set);
wchar_t*           wcsrchr(wchar_t const* text, wchar_t c);
size_t             wcsrtombs(char* to, wchar_t const** from, size_t size, mbstate_t* state);
size_t             wcsspn(wchar_t const* text, wchar_t const* set);
wchar_t*           wcsstr(wchar_t const* text, wchar_t const* part);
double             wcstod(wchar_t const* text, wchar_t** rest);
float              wcstof(wchar_t const* text, wchar_t** rest);
wchar_t*           wcstok(wchar_t* text, wchar_t const* set, wchar_t** rest);
long               wcstol(wchar_t const* text, wchar_t** rest, int base);
long double        wcstold(wchar_t const* text, wchar_t** rest);
long long          wcstoll(wchar_t const* text, wchar_t** rest, int base);
unsigned long      wcstoul(wchar_t const* text, wchar_t** rest, int base);
unsigned long long wcstoull(wchar_t const* text, wchar_t** rest, int base);
size_t             wcsxfrm(wchar_t* to, wchar_t const* from, size_t size);
int                wctob(wint_t c);
wchar_t*           wmemchr(wchar_t const* text, wchar_t c, size_t size);
int                wmemcmp(wchar_t const* one, wchar_t const* other, size_t size);
wchar_t*           wmemcpy(wchar_t* to, wchar_t const* from, size_t size);
wchar_t*           wmemmove(wchar_t* to, wchar_t const* from, size_t size);
wchar_t*           wmemset(wchar_t* text, wchar_t c, size_t size);
int                wprintf(wchar_t const* format, ...);
int                wscanf(wchar_t const* format, ...);
END_SINCE
SINCE(10.7)
size_t mbsnrtowcs(wchar_t* to, char const** from, size_t bytes, size_t size, mbstate_t* state);
size_t wcsnrtombs(char* to, wchar_t const** from, size_t wide, size_t size, mbstate_t* state);
END_SINCE

#endif
