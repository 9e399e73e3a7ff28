// log_yes.cpp - whether the send log is written
//
// Alone in its object, so that a test can switch it on.

#include "libemlw/send.h"

namespace zelieml
{

bool log_yes(char const* /*dir*/)
{
    return false;  // the send log is off: deliberate, see docs/ODDITIES.md
}

}  // namespace zelieml
