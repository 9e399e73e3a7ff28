// message_check.h - what would go wrong with a message

#ifndef ZELIEML_LIBCHECK_MESSAGE_CHECK_H
#define ZELIEML_LIBCHECK_MESSAGE_CHECK_H

#include "libcheck/findings.h"

namespace zelieml
{

// msg_check - look for what eml_msg_check finds
//
// The message is looked at as it is read back from its file, from which it is sent.
//
// Returns the worst severity, or -1 when msg or proc is null or there is no memory.
int msg_check(void* msg, finding_proc proc, void* user);

}  // namespace zelieml

#endif
