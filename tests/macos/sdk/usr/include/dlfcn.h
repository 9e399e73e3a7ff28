/* dlfcn.h - shared libraries */

#ifndef ZELIEML_SDK_DLFCN_H
#define ZELIEML_SDK_DLFCN_H

#include <sys/types.h>

#define RTLD_NOW      0x2
#define RTLD_LOCAL    0x4
#define RTLD_NODELETE 0x80

typedef struct {
    char const* dli_fname;
    void*       dli_fbase;
    char const* dli_sname;
    void*       dli_saddr;
} Dl_info;

SINCE(10.4)
int dladdr(void const* address, Dl_info* out);
END_SINCE
SINCE(10.3)
char* dlerror(void);
void* dlopen(char const* path, int mode);
void* dlsym(void* library, char const* name);
END_SINCE

#endif
