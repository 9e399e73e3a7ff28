// main_thread.h - what the main thread of the program does while an engine runs
//
// linux/main_thread.cpp: it works. Notifications come on threads of their own.
// macos/main_thread.cpp: it runs the run loop, on which notifications are delivered, and another
// thread works.

#ifndef ZELIEML_TOOLS_ZELIEML_MAIN_THREAD_H
#define ZELIEML_TOOLS_ZELIEML_MAIN_THREAD_H

#include <functional>

namespace zelieml::program
{

// hearing_notifications - work(), which hears notifications meanwhile. Called by the main thread.
//
// Returns what the work returns, and throws what it throws.
int hearing_notifications(std::function<int()> const& work);

}  // namespace zelieml::program

#endif
