#include "tests/support/fake_notification.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <mutex>

#include "platform/notification.h"
#include "support/c_boundary.h"

namespace zelieml::platform
{

struct notification_center {
};

struct notification_text {
    std::string text;
};

struct notification_info {
    bool                 has_value;
    std::string          key;
    std::string          value;
    std::optional<uid_t> stranger;
};

}  // namespace zelieml::platform

namespace
{

using namespace zelieml;

// The guard is held during a call of the callback: removing waits for the call, unless it is made from
// that very call.
struct observer_record {
    std::string                 name;
    std::string                 object;
    platform::notification_proc proc     = nullptr;
    void*                       observer = nullptr;
    bool                        removed  = false;
    std::recursive_mutex        guard    = {};
};

using observer_handle = std::shared_ptr<observer_record>;

std::mutex                   guard;
std::vector<observer_handle> observer_list;
std::vector<test::post>      post_list;
int                          added             = 0;
bool                         observers_refused = false;
bool                         posts_refused     = false;

}  // namespace

namespace zelieml
{

bool platform::notification_value(notification_info const* info, char const* key, char* buf,
                                  std::size_t size)
{
    if (!info->has_value || info->key != key || info->value.size() >= size) {
        return false;
    }
    std::memcpy(buf, info->value.c_str(), info->value.size() + 1);
    return true;
}

std::optional<uid_t> platform::notification_stranger(notification_info const* info)
{
    return info->stranger;
}

int platform::add_observer(char const* name, char const* object, notification_proc proc,
                           void* observer)
{
    auto const record = std::make_shared<observer_record>();
    record->name      = name;
    record->object    = object;
    record->proc      = proc;
    record->observer  = observer;
    std::lock_guard<std::mutex> const hold(guard);
    if (observers_refused) {
        return -1;
    }
    observer_list.push_back(record);
    ++added;
    return 0;
}

int platform::remove_observer(char const* name, char const* object, void* observer)
{
    observer_handle record;
    {
        std::lock_guard<std::mutex> const hold(guard);
        auto const found = std::find_if(observer_list.begin(), observer_list.end(), [&](auto& o) {
            return o->observer == observer && o->name == name && o->object == object;
        });
        if (found == observer_list.end()) {
            return -1;
        }
        record = *found;
        observer_list.erase(found);
    }
    std::lock_guard<std::recursive_mutex> const no_call(record->guard);
    record->removed = true;
    return 0;
}

int platform::post_notification(char const* name, char const* object, char const* key,
                                char const* value)
{
    std::lock_guard<std::mutex> const hold(guard);
    if (posts_refused) {
        return -1;
    }
    post_list.push_back({name, object, key, value != nullptr ? value : "", value != nullptr});
    return 0;
}

void test::reset_notifications()
{
    std::lock_guard<std::mutex> const hold(guard);
    post_list.clear();
    observers_refused = false;
    posts_refused     = false;
}

std::vector<test::post> test::posts()
{
    std::lock_guard<std::mutex> const hold(guard);
    return post_list;
}

int test::deliver(char const* name, char const* object, char const* key, char const* value,
                  std::optional<uid_t> stranger)
{
    std::vector<observer_handle> meant;
    {
        std::lock_guard<std::mutex> const hold(guard);
        std::copy_if(observer_list.begin(), observer_list.end(), std::back_inserter(meant),
                     [&](auto& o) { return o->name == name && o->object == object; });
    }
    platform::notification_center     center;
    platform::notification_text const name_text   = {name};
    platform::notification_text const object_text = {object};
    platform::notification_info const info = {value != nullptr, key, value != nullptr ? value : "",
                                              stranger};
    for (observer_handle const& o : meant) {
        std::lock_guard<std::recursive_mutex> const call(o->guard);
        if (!o->removed) {
            contained([&] { o->proc(&center, o->observer, &name_text, &object_text, &info); });
        }
    }
    return static_cast<int>(meant.size());
}

int test::observers()
{
    std::lock_guard<std::mutex> const hold(guard);
    return static_cast<int>(observer_list.size());
}

int test::observers_ever()
{
    std::lock_guard<std::mutex> const hold(guard);
    return added;
}

void test::refuse_observers(bool on)
{
    std::lock_guard<std::mutex> const hold(guard);
    observers_refused = on;
}

void test::refuse_posts(bool on)
{
    std::lock_guard<std::mutex> const hold(guard);
    posts_refused = on;
}

}  // namespace zelieml
