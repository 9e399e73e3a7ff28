// log_yes_on.cpp - the switch of the send log, on: the writing path behind it can be tried

#include "libemlw/send.h"

namespace zelieml
{

bool log_yes(char const* /*dir*/)
{
    return true;
}

}  // namespace zelieml
