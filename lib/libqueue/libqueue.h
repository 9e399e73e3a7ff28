// libqueue.h - message files waiting to be sent
//
// No other unit deletes message files from disk once they are complete.

#ifndef ZELIEML_LIBQUEUE_LIBQUEUE_H
#define ZELIEML_LIBQUEUE_LIBQUEUE_H

namespace zelieml
{

// iqmgr_erase - delete one message file from the disk
//
// path  full path of the file
//
// Needs no memory. Returns 0, or -1 when it could not be removed. Any thread.
int iqmgr_erase(char const* path);

}  // namespace zelieml

#endif
