// notification_peers.h - the test's end of a notification_peer, which is another process

#ifndef ZELIEML_TESTS_PLATFORM_NOTIFICATION_PEERS_H
#define ZELIEML_TESTS_PLATFORM_NOTIFICATION_PEERS_H

#include <string>
#include <sys/types.h>
#include <unistd.h>
#include <vector>

#include "support/unique_fd.h"

namespace zelieml::test
{

// What a process is surrounded by.
struct surroundings {
    std::vector<std::string> environment;
    uid_t                    user      = ::geteuid();  // another than the test's: only as root
    std::string              directory = "/";
};

// Ends with the object, and by force.
class notification_peer
{
public:
    explicit notification_peer(surroundings const& around);
    ~notification_peer();
    notification_peer(notification_peer const&)            = delete;
    notification_peer& operator=(notification_peer const&) = delete;

    // What the peer answers to a command; fails the running test when there is no answer.
    std::string ask(std::string const& command);

    // The same in two steps: the peer works meanwhile.
    void        tell(std::string const& command);
    std::string answer();

    // Commands that the tests say often. The number is the observer's.
    std::string observe(std::string const& object, int id = 0);
    std::string remove(int id = 0);
    std::size_t wait_for(std::size_t count, int id = 0);

    std::vector<std::string> values(int id = 0);

    struct posted {
        int result;
        int ms;
    };
    posted post(std::string const& object, std::string const& value);
    // Begins to post so many values: a tag, a blank and their number. answer() waits for the end.
    void begin_burst(std::string const& object, std::string const& tag, int count);

    void  signal(int number) const;  // and waits until a stop or a kill has come to pass
    pid_t process() const { return process_; }

private:
    pid_t       process_ = -1;
    unique_fd   commands_;
    unique_fd   answers_;
    std::string unread_;
};

// A string as a peer wants it.
std::string hex(std::string const& text);

}  // namespace zelieml::test

#endif
