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

    // With a line for people.
    void ready(std::string const& status);
    void status(std::string const& text);
    void stopping(std::string const& status);

    // How often it wants to hear that the service lives, halved; nothing: never.
    std::optional<std::chrono::microseconds> watchdog() const { return watchdog_; }
    void                                     alive();

private:
    void tell(std::string const& lines);

    std::string                              address_;
    std::optional<std::chrono::microseconds> watchdog_;
};

}  // namespace zelieml::program

#endif
