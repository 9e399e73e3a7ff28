// notification.h - messages to other processes, addressed by name and object
//
// lib/platform/macos/notification.cpp: the distributed notification center.
// lib/platform/linux/notification_*.cpp: our own, over local sockets.
//
// A notification carries one string field. It reaches every observer of the same name and object on
// this machine, in the poster's process or another. The poster never waits for an observer's
// callback; what one thread posts arrives in order.

#ifndef ZELIEML_PLATFORM_NOTIFICATION_H
#define ZELIEML_PLATFORM_NOTIFICATION_H

#include <cstddef>
#include <optional>
#include <sys/types.h>

namespace zelieml::platform
{

// What a callback is given; on macOS these are the center's own objects (the center, two strings,
// the user-info dictionary). Valid during the call only.
struct notification_center;
struct notification_text;
struct notification_info;

// The callback of an observer. Runs on a thread of the platform's choosing, never on an engine's
// worker, one call at a time for each observer. An exception ends that call only. It may add and
// remove observers, but two callbacks that remove each other's observer would wait for each other.
using notification_proc = void (*)(notification_center* center, void* observer,
                                   notification_text const* name, notification_text const* object,
                                   notification_info const* info);

// notification_value - copy the field of a notification
//
// info  as given to the callback
// key   the name of the field
// buf   receives the string and its NUL; undefined on failure
// size  bytes at buf, the NUL included
//
// Returns false when there is no such field, or when the string does not fit with its NUL.
bool notification_value(notification_info const* info, char const* key, char* buf,
                        std::size_t size);

// notification_stranger - the user who posted a notification that counts only because the file it
// names is his: the caller must send none but his
//
// Returns nothing when the poster was the observer's own user or root, and on macOS, where the
// system does not say who posts.
std::optional<uid_t> notification_stranger(notification_info const* info);

// add_observer - observe the notifications of a name and object
//
// name, object  exact bytes, compared in full; copied
// proc          called for each notification, with observer
// observer      passed to proc; together with name and object it identifies the observer in
//               remove_observer
//
// Returns 0 when every notification posted from now on will be delivered; on macOS the center may
// miss what other processes post in the first moments, drop notifications when there are many, and
// deliver one twice. Returns -1, leaving nothing behind, when there is no memory, or the system has
// no place or means for an observer. A forked child does not inherit its parent's observers; on
// macOS it cannot observe at all if its parent has used the frameworks, see macos/first_process.h.
// On Linux an observer whose socket file somebody removes makes another one within seconds. Any
// thread.
int add_observer(char const* name, char const* object, notification_proc proc, void* observer);

// remove_observer - end what add_observer began
//
// Waits for a callback in progress, unless called from it. After that the callback does not run
// again.
//
// Returns 0, or -1 when there is no such observer in this process. Any thread.
int remove_observer(char const* name, char const* object, void* observer);

// post_notification - tell all observers of a name and object
//
// key, value  the field; value may be null for a notification without one
//
// An observer that does not receive it in time is skipped: on Linux stopped processes with full
// buffers, or more observers than can be reached, cost the poster half a second in all. Whether
// anybody was told is not reported. On macOS a forked child that may not observe reaches nobody.
//
// Returns 0, or -1 when name or object cannot be made a string of the system. Throws std::bad_alloc
// when there is no memory; then some observers may have been told and others not. Any thread.
int post_notification(char const* name, char const* object, char const* key, char const* value);

}  // namespace zelieml::platform

#endif
