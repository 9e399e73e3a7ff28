// service_manager.h - the protocol of systemd's sd_notify, spoken by hand
//
// Where no NOTIFY_SOCKET is in the environment nothing is told to anybody.

#ifndef ZELIEML_TOOLS_ZELIEML_SERVICE_MANAGER_H
#define ZELIEML_TOOLS_ZELIEML_SERVICE_MANAGER_H

#include <chrono>
#include <optional>
#include <string>

#include "tools/descriptor.h"

namespace zelieml::program
{

class service_manager
{
public:
    // Takes the variables from the environment, so that no other process answers to them.
    service_manager();

    // With a line for people. What the manager has no room for is kept, for repeat to tell.
    void ready(std::string const& status);
    void status(std::string const& text);
    void stopping(std::string const& status);

    // repeat - tell what could not be told. Whether there is something left is what has_unsaid says.
    void repeat();
    bool has_unsaid() const { return !state_.empty() || !status_.empty(); }

    // How often it wants to hear that the service lives, halved; nothing: never.
    std::optional<std::chrono::microseconds> watchdog() const { return watchdog_; }
    void                                     alive();

private:
    bool tell(std::string const& lines);

    std::string                              address_;
    std::string                              state_;   // not said yet
    std::string                              status_;  // likewise
    std::optional<std::chrono::microseconds> watchdog_;
};

}  // namespace zelieml::program

#endif
