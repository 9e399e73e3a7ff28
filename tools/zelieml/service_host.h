// service_host.h - what every service has: signals, the manager, output, and an engine that is
// stopped in time

#ifndef ZELIEML_TOOLS_ZELIEML_SERVICE_HOST_H
#define ZELIEML_TOOLS_ZELIEML_SERVICE_HOST_H

#include <chrono>
#include <functional>
#include <optional>
#include <string>

#include "tools/zelieml/end_signals.h"
#include "tools/zelieml/service.h"
#include "tools/zelieml/service_manager.h"
#include "tools/zelieml/service_output.h"
#include "tools/zelieml/wake_pipe.h"

namespace zelieml::program
{

// One object in a process.
class service_host
{
public:
    using clock      = std::chrono::steady_clock;
    using time_point = clock::time_point;

    explicit service_host(service_options const& options);
    service_host(service_host const&)            = delete;
    service_host& operator=(service_host const&) = delete;

    // start - the engine, with the callback. Throws a failure when that does not work.
    void start(std::string const& directory, std::string const& symbol,
               int (*proc)(void* result, void* user), void*     user);

    // queue - see eml_queue_message_file. Returns false when there is no memory.
    bool queue(std::string const& path);

    // wait - until it is woken, the time has come, or this descriptor can be read; tells the manager
    // that the service lives, unless it is stuck
    void wait(time_point until, int fd = -1, bool is_stuck = false);

    // stop - the engine
    //
    // is_stuck  whether its callback waits for something that can take any time
    //
    // Returns EX_OK. Ends the process when that takes too long.
    int stop(std::function<bool()> const& is_stuck);

    service_options const& options() const { return options_; }
    end_signals const&     told() const { return told_; }
    service_manager&       manager() { return manager_; }
    service_output&        output() { return output_; }
    void                   wake() const { wake_.wake(); }  // any thread

private:
    service_options const     options_;
    service_output            output_;
    wake_pipe const&          wake_;
    end_signals const         told_;
    service_manager           manager_;
    std::optional<time_point> alive_at_;
    void*                     engine_ = nullptr;
    std::string const         too_late_;  // what is said when a stop takes too long
};

}  // namespace zelieml::program

#endif
