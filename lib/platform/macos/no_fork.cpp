// no_fork.cpp - forks wait for nothing

#include "platform/no_fork.h"

namespace zelieml::platform
{

no_fork::no_fork() = default;

no_fork::~no_fork() = default;

}  // namespace zelieml::platform
