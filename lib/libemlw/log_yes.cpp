// log_yes.cpp - the switch of the send log
//
// Alone in its object, so that the tests can try the writing path behind it.

#include "libemlw/send.h"

namespace zelieml
{

bool log_yes(char const* /*dir*/)
{
    return false;  // a build-time switch: the send log is off
}

}  // namespace zelieml
