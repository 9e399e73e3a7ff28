// cancellation.h - what a cancelled thread (pthread_cancel) still runs
//
// lib/platform/macos/cancellation.cpp, lib/platform/linux/cancellation.cpp.

#ifndef ZELIEML_PLATFORM_CANCELLATION_H
#define ZELIEML_PLATFORM_CANCELLATION_H

namespace zelieml::platform
{

// Whether the destructors of a cancelled thread run, as for an exception. If not, a thread that is
// cancelled inside a call loses its descriptors and memory, and its locks stay taken.
extern bool const cancellation_unwinds;

}  // namespace zelieml::platform

#endif
