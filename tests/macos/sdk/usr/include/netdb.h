/* netdb.h - hosts by name */

#ifndef ZELIEML_SDK_NETDB_H
#define ZELIEML_SDK_NETDB_H

#include <netinet/in.h>

struct hostent {
    char*  h_name;
    char** h_aliases;
    int    h_addrtype;
    int    h_length;
    char** h_addr_list;
};

SINCE(10.0)
struct hostent* gethostbyname(char const* name);
END_SINCE

#endif
