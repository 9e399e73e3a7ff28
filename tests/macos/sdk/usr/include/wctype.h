/* wctype.h - what a wide character is */

#ifndef ZELIEML_SDK_WCTYPE_H
#define ZELIEML_SDK_WCTYPE_H

#include <sys/types.h>

typedef __WINT_TYPE__ wint_t;
typedef int           wctrans_t;
typedef __uint32_t    wctype_t;
#define WEOF ((wint_t)-1)

SINCE(10.3)
int       iswalnum(wint_t c);
int       iswalpha(wint_t c);
int       iswblank(wint_t c);
int       iswcntrl(wint_t c);
int       iswctype(wint_t c, wctype_t type);
int       iswdigit(wint_t c);
int       iswgraph(wint_t c);
int       iswlower(wint_t c);
int       iswprint(wint_t c);
int       iswpunct(wint_t c);
int       iswspace(wint_t c);
int       iswupper(wint_t c);
int       iswxdigit(wint_t c);
wint_t    towctrans(wint_t c, wctrans_t change);
wint_t    towlower(wint_t c);
wint_t    towupper(wint_t c);
wctrans_t wctrans(char const* name);
wctype_t  wctype(char const* name);
END_SINCE

#endif
