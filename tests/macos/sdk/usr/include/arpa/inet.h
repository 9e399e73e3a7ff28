/* arpa/inet.h - addresses as texts */

#ifndef ZELIEML_SDK_ARPA_INET_H
#define ZELIEML_SDK_ARPA_INET_H

#include <netinet/in.h>

SINCE(10.0)
in_addr_t inet_addr(char const* text);
char*     inet_ntoa(struct in_addr address);
int       inet_pton(int family, char const* text, void* out);
END_SINCE

#endif
