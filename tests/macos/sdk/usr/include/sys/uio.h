/* sys/uio.h - pieces of bytes */

#ifndef ZELIEML_SDK_SYS_UIO_H
#define ZELIEML_SDK_SYS_UIO_H

#include <sys/types.h>

struct iovec {
    void*  iov_base;
    size_t iov_len;
};

#endif
