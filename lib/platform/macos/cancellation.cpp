// cancellation.cpp - a cancelled thread runs the handlers of pthread_cleanup_push only

#include "platform/cancellation.h"

namespace zelieml::platform
{

bool const cancellation_unwinds = false;

}  // namespace zelieml::platform
