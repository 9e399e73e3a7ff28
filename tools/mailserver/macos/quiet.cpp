#include "tools/mailserver/quiet.h"

#include <sys/socket.h>

namespace zelieml::mailserver
{

// The signal would go to any thread that has not blocked it. Connections have this option of their
// listener's.
void keep_quiet(int listener)
{
    int const on = 1;
    ::setsockopt(listener, SOL_SOCKET, SO_NOSIGPIPE, &on, sizeof on);
}

}  // namespace zelieml::mailserver
