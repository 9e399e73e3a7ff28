/* xlocale.h - the same, for one object of languages and countries */

#ifndef ZELIEML_SDK_XLOCALE_H
#define ZELIEML_SDK_XLOCALE_H

#include <locale.h>
#include <stdarg.h>
#include <stdio.h>
#include <wchar.h>

typedef struct _xlocale* locale_t;

#define LC_COLLATE_MASK  (1 << 0)
#define LC_CTYPE_MASK    (1 << 1)
#define LC_MESSAGES_MASK (1 << 2)
#define LC_MONETARY_MASK (1 << 3)
#define LC_NUMERIC_MASK  (1 << 4)
#define LC_TIME_MASK     (1 << 5)
#define LC_ALL_MASK      0x3f
#define MB_CUR_MAX_L(l)  (___mb_cur_max_l(l))

SINCE(10.4)
int                ___mb_cur_max_l(locale_t l);
int                freelocale(locale_t l);
struct lconv*      localeconv_l(locale_t l);
locale_t           newlocale(int mask, char const* name, locale_t base);
locale_t           uselocale(locale_t l);
int                asprintf_l(char** text, locale_t l, char const* format, ...);
int                snprintf_l(char* text, size_t size, locale_t l, char const* format, ...);
int                sscanf_l(char const* text, locale_t l, char const* format, ...);
int                isdigit_l(int c, locale_t l);
int                isxdigit_l(int c, locale_t l);
double             strtod_l(char const* text, char** rest, locale_t l);
float              strtof_l(char const* text, char** rest, locale_t l);
long double        strtold_l(char const* text, char** rest, locale_t l);
long long          strtoll_l(char const* text, char** rest, int base, locale_t l);
unsigned long long strtoull_l(char const* text, char** rest, int base, locale_t l);
size_t mbsrtowcs_l(wchar_t* to, char const** from, size_t size, mbstate_t* state, locale_t l);
size_t mbrtowc_l(wchar_t* to, char const* from, size_t size, mbstate_t* state, locale_t l);
size_t wcrtomb_l(char* to, wchar_t c, mbstate_t* state, locale_t l);
END_SINCE

#endif
