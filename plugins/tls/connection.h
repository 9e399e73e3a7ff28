// connection.h - a connection to a server, before TLS and while it begins
//
// Nothing blocks for longer than it is told, or than the session stays.

#ifndef ZELIEML_PLUGINS_TLS_CONNECTION_H
#define ZELIEML_PLUGINS_TLS_CONNECTION_H

#include <chrono>
#include <string>

#include "plugins/tls/clear_talk.h"
#include "support/unique_fd.h"

namespace zelieml::tls
{

class connection final : public clear_channel
{
public:
    // tcp       the connected socket; it becomes non-blocking
    // tunnel    this end of the tunnel: when the other one is closed, there is nothing to wait for
    // reply_ms  how long each reply may take
    connection(unique_fd tcp, int tunnel, int reply_ms);
    ~connection();
    connection(connection const&)            = delete;
    connection& operator=(connection const&) = delete;

    int fd() const { return tcp_.get(); }

    // Waits for one of the events of poll. Throws a failure when the time is over, with these
    // words, or the session has gone.
    void wait(short events, std::chrono::steady_clock::time_point until, std::string const& late);

    void        expect(char const* command) override;
    std::string read_line() override;
    void        write_line(std::string const& line) override;
    bool        has_more() override;

private:
    unique_fd                             tcp_;
    int                                   tunnel_;
    std::chrono::milliseconds             reply_limit_;
    std::string                           command_;
    std::chrono::steady_clock::time_point until_;
};

}  // namespace zelieml::tls

#endif
