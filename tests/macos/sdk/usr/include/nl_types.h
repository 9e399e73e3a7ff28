/* nl_types.h - catalogues of messages */

#ifndef ZELIEML_SDK_NL_TYPES_H
#define ZELIEML_SDK_NL_TYPES_H

#include <sys/types.h>

typedef struct __nl_cat_d* nl_catd;
#define NL_CAT_LOCALE 1

SINCE(10.0)
int     catclose(nl_catd catalogue) SDK_UNIX03(catclose);
char*   catgets(nl_catd catalogue, int set, int number, char const* otherwise) SDK_UNIX03(catgets);
nl_catd catopen(char const* name, int flags) SDK_UNIX03(catopen);
END_SINCE

#endif
