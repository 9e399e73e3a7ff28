// center.h - what the rest of the fake asks of its notification center

#ifndef ZELIEML_TESTS_MACOS_FAKE_CENTER_H
#define ZELIEML_TESTS_MACOS_FAKE_CENTER_H

namespace zelieml::fake
{

// stop_delivery - let the delivery in progress end, and begin no other: the process ends
//
// Returns true when there were observers still.
bool stop_delivery();

}  // namespace zelieml::fake

#endif
