// end_signals.cpp - the signals that a service is told by

#include "tools/zelieml/end_signals.h"

#include <atomic>
#include <csignal>

namespace zelieml::program
{

namespace
{

std::atomic<wake_pipe const*> woken{nullptr};
std::atomic<int>              told_to_end{0};
std::atomic<bool>             told_to_look{false};

extern "C" void on_signal(int number)
{
    if (number == SIGHUP) {
        told_to_look = true;
    } else {
        ++told_to_end;
    }
    woken.load()->wake();
}

}  // namespace

end_signals::end_signals(wake_pipe const& pipe)
{
    woken                   = &pipe;
    struct sigaction action = {};
    action.sa_handler       = on_signal;
    action.sa_flags         = SA_RESTART;
    ::sigemptyset(&action.sa_mask);
    for (int const number : {SIGTERM, SIGINT, SIGHUP}) {
        ::sigaction(number, &action, nullptr);
    }
    std::signal(SIGPIPE, SIG_IGN);
}

int end_signals::ends() const
{
    return told_to_end;
}

bool end_signals::take_hangup() const
{
    return told_to_look.exchange(false);
}

}  // namespace zelieml::program
