// fork_order.h - which of the library's fork handlers runs first
//
// Handlers that run before a fork do so in the reverse order of their registration. That
// of no_fork.cpp may wait for a second, so it has to run while no other handler holds anything yet.
// So the others register early, whatever the order in which the library was linked. A plug-in has
// handlers of its own, which run before the library's: what one waits for never needs the other's.
//
// All are registered when the library is loaded, since the first fork may come during the first
// call. That fails only for want of memory. The library works all the same, but a child that is
// forked during a call of another thread may then wait for ever.

#ifndef ZELIEML_PLATFORM_LINUX_FORK_ORDER_H
#define ZELIEML_PLATFORM_LINUX_FORK_ORDER_H

namespace zelieml::platform
{

// Of constructors that register handlers which only take a lock. One without a priority runs later.
constexpr int registers_early = 1000;

}  // namespace zelieml::platform

#endif
