// notification_trust.h - whose notifications an observer believes

#ifndef ZELIEML_PLATFORM_LINUX_NOTIFICATION_TRUST_H
#define ZELIEML_PLATFORM_LINUX_NOTIFICATION_TRUST_H

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/types.h>

#include "platform/linux/notification_datagram.h"

namespace zelieml::platform
{

// Whether other users can exchange nothing in a directory but what is their own: it is root's or
// the user's, and others may not write to it unless it is sticky.
bool is_safe_directory(struct stat const& status, uid_t user);

// A notification names a file that will be read, mailed and deleted: it counts when it comes from
// the observer's own user, from root, or from the owner of that very file.
//
// user  the observer's
// info  receives the sender when he is a stranger, and his path is replaced by one that he has no
//       hold on
bool may_be_trusted(ucred const& sender, uid_t user, notification_info& info);

}  // namespace zelieml::platform

#endif
