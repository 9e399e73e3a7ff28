// engine.cpp - zelieml engine: the service that sends what is posted, in the foreground

#include <memory>
#include <sysexits.h>

#include "tools/zelieml/command.h"
#include "tools/zelieml/failure.h"
#include "tools/zelieml/main_thread.h"
#include "tools/zelieml/service.h"
#include "tools/zelieml/usage.h"

namespace zelieml::program
{

namespace
{

struct engine_options {
    bool        bare = false;
    std::string symbol;
    unsigned    stop_timeout = 20;
};

constexpr char about[] = "Send what is posted, as a service in the foreground";

constexpr char details[] =
    "  zelieml engine -w /var/spool/zelieml\n"
    "  zelieml engine -w /var/spool/zelieml --json --stop-timeout 60\n"
    "\n"
    "It sends every message file that lies in the work directory or comes there, the oldest\n"
    "first, usually within a second. What fails is tried once more after 30 minutes, and\n"
    "then moved to DIR/undelivered: 'zelieml queue' lists it and has it sent again. No message is\n"
    "deleted before its mail is sent. If the process is killed, only the mail that was being sent\n"
    "may be sent twice.\n"
    "\n"
    "It prints a line for each attempt. SIGTERM and SIGINT end it: it begins no other attempt, and\n"
    "waits for the one in progress, for the seconds of --stop-timeout at most; a second signal\n"
    "ends that too. Then the status is 75, and that mail may be sent again. SIGHUP has it look\n"
    "into the work directory at once.\n"
    "\n"
    "To systemd it tells READY, STOPPING, STATUS and WATCHDOG (Type=notify).\n"
    "\n"
    "It needs DIR/.zelieml, its own, and DIR/undelivered, which it makes. Let other users post by\n"
    "chmod 1777 DIR, with DIR owned by the user of the service.\n"
    "\n"
    "--bare runs the library's engine as it is. IT DELETES ALL MESSAGE FILES OF THE WORK DIRECTORY\n"
    "WHEN IT STARTS, and what failed twice.";

}  // namespace

void add_engine(command_line& line)
{
    auto const options = std::make_shared<engine_options>();
    CLI::App&  command = line.add(line.app(), "engine", about, details, [&line, options] {
        service_options const wanted = {line.options().workdir, line.options().json,
                                        std::chrono::seconds(options->stop_timeout)};
        return hearing_notifications([&] {
            return options->bare
                        ? serve_bare(wanted, options->symbol.empty() ? "zelieml_stocksymbol"
                                                                     : options->symbol)
                        : serve(wanted);
        });
    });
    line.add_workdir(command);
    line.add_json(command);
    command
        .add_option("--stop-timeout", options->stop_timeout,
                    "How long ending may wait for the attempt in progress (20)")
        ->type_name("SECONDS")
        ->check(number_from(0, 86400));
    CLI::Option* const bare =
        command.add_flag("--bare", options->bare, "Run the library's engine as it is");
    command
        .add_option("--symbol", options->symbol,
                    "The stock symbol that --bare is posted to (zelieml_stocksymbol)")
        ->type_name("S")
        ->needs(bare);
}

}  // namespace zelieml::program
