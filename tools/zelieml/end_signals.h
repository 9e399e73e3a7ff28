// end_signals.h - the signals that a service is told by
//
// SIGTERM and SIGINT end it, SIGHUP has it look; SIGPIPE is ignored. The library's threads block
// them all.

#ifndef ZELIEML_TOOLS_ZELIEML_END_SIGNALS_H
#define ZELIEML_TOOLS_ZELIEML_END_SIGNALS_H

#include "tools/zelieml/wake_pipe.h"

namespace zelieml::program
{

// One object in a process.
class end_signals
{
public:
    // Each signal wakes the pipe, which has to live as long as the process.
    explicit end_signals(wake_pipe const& pipe);

    // How often it was told to end.
    int ends() const;

    // Whether it was told to look since it was asked last.
    bool take_hangup() const;
};

}  // namespace zelieml::program

#endif
