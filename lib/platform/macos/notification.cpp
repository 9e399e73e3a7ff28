// notification.cpp - the distributed notification center
//
// The center delivers on the run loop of the process's main thread. It promises neither that a
// removed observer is not just being called, nor that no delivery comes later. So it is given
// numbers instead of the callers' observers, which are in a registry here under their numbers.
//
// Threads: the registry's lock is held while it is read or changed, never around a call of the
// center, which has locks of its own. A record's lock is held while its callback runs: removing the
// observer waits for that, except on the thread that runs the callback.

#include "platform/notification.h"

#include <algorithm>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/macos/cf_owner.h"
#include "platform/macos/first_process.h"
#include "support/c_boundary.h"
#include "support/no_cancellation.h"

namespace zelieml::platform
{

namespace
{

struct observer_record {
    std::uintptr_t        number = 0;
    std::string           name;
    std::string           object;
    cf_owner<CFStringRef> center_name;  // the same as CFStrings
    cf_owner<CFStringRef> center_object;
    void*                 observer = nullptr;

    std::recursive_mutex calling;
    notification_proc    proc = nullptr;  // guarded by calling; null once it is removed
};

using shared_record = std::shared_ptr<observer_record>;

struct registry {
    std::mutex                 guard;
    std::vector<shared_record> observers;
    std::uintptr_t             last_number = 0;
};

// Never destroyed: the main thread may still deliver while the process ends.
registry& the_registry()
{
    static registry& made = *new registry;
    return made;
}

// How the center knows an observer; it never dereferences it.
void* as_observer(observer_record const& record)
{
    return reinterpret_cast<void*>(record.number);
}

// The record of a number; null when it has been removed.
shared_record find(std::uintptr_t number)
{
    registry&                         all = the_registry();
    std::lock_guard<std::mutex> const hold(all.guard);
    auto const                        found =
        std::find_if(all.observers.begin(), all.observers.end(),
                     [&](shared_record const& record) { return record->number == number; });
    return found != all.observers.end() ? *found : nullptr;
}

// Takes the record of an observer out of the registry; null when there is none.
shared_record take_out(char const* name, char const* object, void const* observer)
{
    registry&                         all = the_registry();
    std::lock_guard<std::mutex> const hold(all.guard);
    auto const                        found =
        std::find_if(all.observers.begin(), all.observers.end(), [&](shared_record const& record) {
            return record->observer == observer && record->name == name && record->object == object;
        });
    if (found == all.observers.end()) {
        return nullptr;
    }
    shared_record const record = *found;
    all.observers.erase(found);
    return record;
}

// Called by the center, which must not see exceptions. An exception of the callback ends this
// delivery only. The thread is the host's, which may cancel it: the record would stay locked.
void receive(CFNotificationCenterRef center, void* observer, CFStringRef name, void const* object,
             CFDictionaryRef info)
{
    no_cancellation const shielded;
    contained([&] {
        shared_record const record = find(reinterpret_cast<std::uintptr_t>(observer));
        if (!record) {
            return;
        }
        std::lock_guard<std::recursive_mutex> const hold(record->calling);
        if (record->proc != nullptr) {
            record->proc(reinterpret_cast<notification_center*>(center), record->observer,
                         reinterpret_cast<notification_text const*>(name),
                         static_cast<notification_text const*>(object),
                         reinterpret_cast<notification_info const*>(info));
        }
    });
}

}  // namespace

bool notification_value(notification_info const* info, char const* key, char* buf, std::size_t size)
{
    cf_owner<CFStringRef> const key_text = !is_forked() ? system_text(key) : nullptr;
    if (info == nullptr || !key_text) {
        return false;
    }
    // Anybody who knows the name can post any value.
    CFTypeRef const value =
        ::CFDictionaryGetValue(reinterpret_cast<CFDictionaryRef>(info), key_text.get());
    return value != nullptr && ::CFGetTypeID(value) == ::CFStringGetTypeID() &&
           copy_system_text(static_cast<CFStringRef>(value), buf, size);
}

std::optional<uid_t> notification_stranger(notification_info const* /*info*/)
{
    return {};
}

int add_observer(char const* name, char const* object, notification_proc proc, void* observer)
{
    if (is_forked()) {
        return -1;
    }
    CFNotificationCenterRef const center = ::CFNotificationCenterGetDistributedCenter();
    auto const                    record = std::make_shared<observer_record>();
    record->name                         = name;
    record->object                       = object;
    record->center_name                  = system_text(name);
    record->center_object                = system_text(object);
    record->observer                     = observer;
    record->proc                         = proc;
    if (center == nullptr || !record->center_name || !record->center_object) {
        return -1;
    }
    {
        // Before the center can call, so that the first call finds the record.
        registry&                         all = the_registry();
        std::lock_guard<std::mutex> const hold(all.guard);
        record->number = ++all.last_number;
        all.observers.push_back(record);
    }
    ::CFNotificationCenterAddObserver(center, as_observer(*record), receive,
                                      record->center_name.get(), record->center_object.get(),
                                      CFNotificationSuspensionBehaviorHold);
    return 0;
}

int remove_observer(char const* name, char const* object, void* observer)
{
    shared_record const record = is_first_process() ? take_out(name, object, observer) : nullptr;
    if (!record) {
        return -1;
    }
    ::CFNotificationCenterRemoveObserver(::CFNotificationCenterGetDistributedCenter(),
                                         as_observer(*record), record->center_name.get(),
                                         record->center_object.get());
    // Waits for a call in progress, unless this is it. A delivery that found the record before it
    // was taken out finds no callback.
    std::lock_guard<std::recursive_mutex> const hold(record->calling);
    record->proc = nullptr;
    return 0;
}

int post_notification(char const* name, char const* object, char const* key, char const* value)
{
    if (is_forked()) {
        return 0;  // as when nobody observes
    }
    cf_owner<CFStringRef> const name_text   = system_text(name);
    cf_owner<CFStringRef> const object_text = system_text(object);
    if (!name_text || !object_text) {
        return -1;
    }
    cf_owner<CFMutableDictionaryRef> const info(
        ::CFDictionaryCreateMutable(kCFAllocatorDefault, 0, &kCFCopyStringDictionaryKeyCallBacks,
                                    &kCFTypeDictionaryValueCallBacks));
    CFNotificationCenterRef const center = ::CFNotificationCenterGetDistributedCenter();
    if (center == nullptr || !info) {
        return 0;  // as above
    }
    cf_owner<CFStringRef> const key_text   = system_text(key);
    cf_owner<CFStringRef> const value_text = value != nullptr ? system_text(value) : nullptr;
    if (key_text && value_text) {
        ::CFDictionarySetValue(info.get(), key_text.get(), value_text.get());
    }
    constexpr Boolean deliver_immediately = 1;
    ::CFNotificationCenterPostNotification(center, name_text.get(), object_text.get(), info.get(),
                                           deliver_immediately);
    return 0;
}

}  // namespace zelieml::platform
