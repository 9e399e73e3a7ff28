// plugin.cpp - the plug-in's function: a tunnel and its thread

#include <cerrno>
#include <memory>
#include <new>
#include <poll.h>
#include <pthread.h>
#include <sys/socket.h>
#include <utility>

#include "libsendw/tls_plugin.h"
#include "platform/socket.h"
#include "platform/thread.h"
#include "plugins/tls/tunnel_thread.h"

namespace zelieml::tls
{

namespace
{

// Of a TCP connection that a server has closed a session learns with its second command: what the
// server said last is the reply to the first.
void take_one_command(int tunnel)
{
    ::shutdown(tunnel, SHUT_WR);
    pollfd entry = {tunnel, POLLIN, 0};
    while (::poll(&entry, 1, -1) < 0 && errno == EINTR) {
    }
    char command[4096];
    ::recv(tunnel, command, sizeof command, 0);
}

// The thread. What it had is gone before the session reads the end: a session that is over leaves
// nothing behind. Closing would not end the tunnel while a forked child has a copy of it.
void* work_through(void* argument)
{
    unique_fd tunnel;
    bool      speaks_on = false;
    {
        std::unique_ptr<tunnel_work> const work(static_cast<tunnel_work*>(argument));
        speaks_on = run(*work);
        tunnel    = std::move(work->tunnel);
    }
    if (speaks_on) {
        take_one_command(tunnel.get());
    }
    ::shutdown(tunnel.get(), SHUT_RDWR);
    return nullptr;
}

// Returns the caller's end, or none with errno.
unique_fd open_tunnel(unique_fd tcp, zelieml_tls_ask const& ask)
{
    unique_fd here;
    unique_fd there;
    if (platform::open_local_pair(here, there) != 0) {
        return unique_fd();
    }
    auto      work = std::make_unique<tunnel_work>(std::move(tcp), std::move(there), ask);
    pthread_t thread;
    if (platform::start_thread_without_signals(thread, work_through, work.get()) != 0) {
        errno = EAGAIN;
        return unique_fd();
    }
    ::pthread_detach(thread);
    work.release();
    return here;
}

}  // namespace

}  // namespace zelieml::tls

__attribute__((visibility("default"))) int zelieml_tls_open_1(int tcp, zelieml_tls_ask const* ask)
{
    try {
        return zelieml::tls::open_tunnel(zelieml::unique_fd(tcp), *ask).release();
    } catch (std::bad_alloc const&) {
        errno = ENOMEM;
        return -1;
    }
}
