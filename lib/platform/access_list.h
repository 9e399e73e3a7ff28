// access_list.h - the access list of a file: the rights of users beyond owner, group and others
//
// lib/platform/macos/access_list.cpp: the list of 10.4 and later.
// lib/platform/linux/access_list.cpp: POSIX access lists, as extended attributes.

#ifndef ZELIEML_PLATFORM_ACCESS_LIST_H
#define ZELIEML_PLATFORM_ACCESS_LIST_H

namespace zelieml::platform
{

// copy_access_list - give one open file the access list of another, or none if that has none
//
// from  open for reading
// to    open for writing, and the process's own or root's to change
//
// A new file may have a list already, which its directory handed down. On Linux the list also sets
// the permission bits of to.
//
// Returns whether the two files have the same list now; when not, that of to is unchanged.
bool copy_access_list(int from, int to);

// remove_access_list - take the access list of an open file away
//
// file  open for writing, and the process's own or root's to change
//
// Returns whether the file has none now.
bool remove_access_list(int file);

}  // namespace zelieml::platform

#endif
