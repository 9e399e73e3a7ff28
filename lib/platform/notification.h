// notification.h - messages to other processes, addressed by name and object
//
// lib/platform/macos/notification.cpp: the distributed notification center.
// lib/platform/linux/notification.cpp: our own, over local sockets.
//
// A notification carries one text field. It reaches every observer of the same name and object on
// this machine, in the poster's process or in another. The poster never waits for an observer's
// proc; what one thread posts arrives in its order.

#ifndef ZELIEML_PLATFORM_NOTIFICATION_H
#define ZELIEML_PLATFORM_NOTIFICATION_H

#include <cstddef>

namespace zelieml::platform
{

// What a notification brings with it; on macOS these are the center's own objects (the center, two
// strings, the user-info dictionary). They live during the call of the proc and belong to it.
struct notification_center;
struct notification_text;
struct notification_info;

// The procedure of an observer. Runs on a thread of the platform's choosing, never an engine's
// worker; of one observer's, one call at a time. What it throws ends that call only. It may add and
// remove observers; but two procs that remove each other's observer would wait for each other.
using notification_proc = void (*)(notification_center* center, void* observer,
                                   notification_text const* name, notification_text const* object,
                                   notification_info const* info);

// notification_value - copy the text field of a notification
//
// info  as given to the proc
// key   of the field
// buf   receives the text and its NUL; holds no text on failure
// size  bytes at buf, the NUL included
//
// Returns false when there is no such field, or when text and NUL do not fit.
bool notification_value(notification_info const* info, char const* key, char* buf,
                        std::size_t size);

// add_observer - observe the notifications of a name and object
//
// name, object  exact bytes, compared in full; copied
// proc          called for each notification, with observer
// observer      the caller's, not looked at; together with name and object it is what
//               remove_observer finds the observer by
//
// Returns 0 when every notification posted from now on will be seen. Returns -1, leaving nothing
// behind, when there is no memory, or the system has no place or means for an observer. A forked
// child does not observe what its parent does; on macOS it observes nothing if its parent has
// observed, posted, or called a function of platform/crypto.h. Any thread.
int add_observer(char const* name, char const* object, notification_proc proc, void* observer);

// remove_observer - end what add_observer began
//
// After it has returned the proc runs no more: it waits for a call in progress, unless it is made
// from that very call.
//
// Returns 0, or -1 when there is no such observer in this process. Any thread.
int remove_observer(char const* name, char const* object, void* observer);

// post_notification - tell all observers of a name and object
//
// key, value  the text field; without one when value is null
//
// An observer that does not take it in time is passed over: on Linux stopped processes whose
// buffers are full, and more observers than can be told, cost the poster half a second in all.
// Whether anybody heard is not known. On macOS nobody hears a forked child that may not observe.
//
// Returns 0, or -1 when the object could not be made into one of the system's texts. Throws
// std::bad_alloc, when some may have been told and others not, for want of memory. Any thread.
int post_notification(char const* name, char const* object, char const* key, char const* value);

}  // namespace zelieml::platform

#endif
