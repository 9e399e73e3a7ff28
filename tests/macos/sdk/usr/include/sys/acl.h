/* sys/acl.h - access lists */

#ifndef ZELIEML_SDK_SYS_ACL_H
#define ZELIEML_SDK_SYS_ACL_H

#include <sys/types.h>

struct _acl;
typedef struct _acl* acl_t;

SINCE(10.4)
int   acl_free(void* list);
acl_t acl_get_fd(int fd);
acl_t acl_init(int entries);
int   acl_set_fd(int fd, acl_t list);
END_SINCE

#endif
