#include "tests/support/notification_room.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace zelieml::test
{

namespace fs = std::filesystem;

namespace
{

constexpr auto limit = std::chrono::seconds(20);

}  // namespace

notification_room::notification_room(int depth) : root_(folder_.path())
{
    // Other users have to get in as well.
    ::chmod(folder_.path().c_str(), 0755);
    for (int i = 0; i < depth; ++i) {
        root_ += "/" + std::string(60, 'd');
        ::mkdir(root_.c_str(), 0755);
        ::chmod(root_.c_str(), 0755);
    }
    for (auto const& [name, mode] : {std::pair("/run", 0755), std::pair("/tmp", 01777)}) {
        std::string const path = root_ + name;
        ::mkdir(path.c_str(), 0755);
        ::chmod(path.c_str(), static_cast<mode_t>(mode));
    }
    ::setenv(room_variable, root_.c_str(), 1);
}

notification_room::~notification_room()
{
    ::unsetenv(room_variable);
}

void notification_room::share() const
{
    EXPECT_EQ(::mkdir(shared().c_str(), 0755), 0);
    EXPECT_EQ(::chmod(shared().c_str(), 01777), 0);
}

std::string notification_room::own() const
{
    return own(::geteuid());
}

std::string notification_room::own(uid_t user) const
{
    return root_ + (user == 0 ? "/run/zelieml-root" : "/tmp/.zelieml-" + std::to_string(user));
}

std::vector<std::string> notification_room::sockets(std::string const& directory)
{
    std::vector<std::string> names;
    if (file_exists(directory)) {
        names = list_directory(directory);
    }
    return names;
}

std::vector<std::string> notification_room::everything() const
{
    std::vector<std::string> paths;
    for (char const* const top : {"/run", "/tmp"}) {
        if (!fs::is_directory(root_ + top)) {
            continue;
        }
        for (fs::directory_entry const& entry : fs::recursive_directory_iterator(root_ + top)) {
            paths.push_back(entry.path().string());
        }
    }
    std::sort(paths.begin(), paths.end());
    return paths;
}

std::string notification_room::variable() const
{
    return room_variable + ("=" + root_);
}

void heard_values::add(std::string const& value)
{
    std::lock_guard<std::mutex> const hold(guard_);
    values_.push_back(value);
    changed_.notify_all();
}

std::size_t heard_values::wait_for(std::size_t count)
{
    std::unique_lock<std::mutex> hold(guard_);
    changed_.wait_for(hold, limit, [&] { return values_.size() >= count; });
    return values_.size();
}

bool heard_values::wait_for_last(std::string const& value)
{
    std::unique_lock<std::mutex> hold(guard_);
    return changed_.wait_for(hold, limit,
                             [&] { return !values_.empty() && values_.back() == value; });
}

std::vector<std::string> heard_values::all()
{
    std::lock_guard<std::mutex> const hold(guard_);
    return values_;
}

listener::listener(std::string const& object, std::string const& name,
                   std::function<void(std::string const&)> act)
    : name_(name), object_(object), act_(std::move(act)),
      added_(platform::add_observer(name.c_str(), object.c_str(), proc, this))
{
}

listener::~listener()
{
    remove();
}

int listener::remove()
{
    return platform::remove_observer(name_.c_str(), object_.c_str(), this);
}

void listener::proc(platform::notification_center* /*center*/, void* observer,
                    platform::notification_text const* /*name*/,
                    platform::notification_text const* /*object*/,
                    platform::notification_info const* info)
{
    auto* const self = static_cast<listener*>(observer);
    char        value[400];
    bool const  has_value = platform::notification_value(info, test_key, value, sizeof value);
    self->heard_.add(has_value ? value : "(no value)");
    if (self->act_) {
        self->act_(has_value ? value : "");
    }
}

int post(std::string const& object, std::string const& value)
{
    return platform::post_notification(test_name, object.c_str(), test_key, value.c_str());
}

void add_and_remove(int times)
{
    for (int i = 0; i < times; ++i) {
        listener one("object");
        EXPECT_EQ(one.added(), 0);
        post("object", "hello");
        EXPECT_GE(one.heard().wait_for(1), 1U);
        EXPECT_EQ(one.remove(), 0);
    }
}

}  // namespace zelieml::test
