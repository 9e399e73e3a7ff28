// cancellation.cpp - glibc unwinds the stack of a cancelled thread

#include "platform/cancellation.h"

namespace zelieml::platform
{

bool const cancellation_unwinds = true;

}  // namespace zelieml::platform
