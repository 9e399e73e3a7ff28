// thread.cpp - pthread_create with all signals blocked meanwhile: a new thread inherits the mask

#include "platform/thread.h"

#include <csignal>

namespace zelieml::platform
{

int start_thread_without_signals(pthread_t& thread, void* (*body)(void*), void* argument)
{
    sigset_t all;
    sigset_t before;
    ::sigfillset(&all);
    if (::pthread_sigmask(SIG_SETMASK, &all, &before) != 0) {
        return -1;
    }
    int const status = ::pthread_create(&thread, nullptr, body, argument);
    ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return status == 0 ? 0 : -1;
}

}  // namespace zelieml::platform
