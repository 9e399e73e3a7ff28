// notification_room.h - notifications that stay within a test's own folder, and who hears them
//
// The folder stands for the root of a machine of the test's own: /run, /tmp, and what processes
// put there. Other processes of a test are notification_peers.

#ifndef ZELIEML_TESTS_SUPPORT_NOTIFICATION_ROOM_H
#define ZELIEML_TESTS_SUPPORT_NOTIFICATION_ROOM_H

#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <sys/types.h>
#include <vector>

#include "platform/notification.h"
#include "tests/support/files.h"

namespace zelieml::test
{

constexpr char room_variable[] = "ZELIEML_NOTIFICATION_ROOT";

// One at a time; made before the test's first observer or post.
class notification_room
{
public:
    // depth  folders between the temporary folder and the root, with long names
    explicit notification_room(int depth = 0);
    ~notification_room();
    notification_room(notification_room const&)            = delete;
    notification_room& operator=(notification_room const&) = delete;

    // Makes the directory for all users, as an administrator would.
    void share() const;

    std::string const& root() const { return root_; }
    std::string        shared() const { return root_ + "/run/zelieml"; }
    std::string        own() const;  // of the user who runs the test
    std::string        own(uid_t user) const;

    // The socket files in a directory: none when there is no such directory.
    static std::vector<std::string> sockets(std::string const& directory);
    // The names of everything in /run and /tmp and below, sorted.
    std::vector<std::string> everything() const;

    // What another process needs in its environment to be in the room.
    std::string variable() const;

private:
    temp_dir    folder_;
    std::string root_;
};

// The values that notifications brought, in their order. Any thread.
class heard_values
{
public:
    void add(std::string const& value);

    // Waits until so many have come, 20 s at most. Returns how many there are.
    std::size_t wait_for(std::size_t count);

    // Waits until a value is the last that has come. Returns false when the time is over.
    bool wait_for_last(std::string const& value);

    std::vector<std::string> all();

private:
    std::mutex               guard_;
    std::condition_variable  changed_;
    std::vector<std::string> values_;
};

constexpr char test_name[] = "the name";
constexpr char test_key[]  = "the key";

// An observer in the test's own process; ends with the object if it was not removed before.
class listener
{
public:
    // object  what it observes
    // act     what its callback does with a value, besides noting it
    explicit listener(std::string const& object, std::string const& name = test_name,
                      std::function<void(std::string const&)> act = nullptr);
    ~listener();
    listener(listener const&)            = delete;
    listener& operator=(listener const&) = delete;

    int           added() const { return added_; }  // what add_observer returned
    int           remove();                         // what remove_observer returned
    heard_values& heard() { return heard_; }

    std::string const& object() const { return object_; }

    static void proc(platform::notification_center* center, void* observer,
                     platform::notification_text const* name,
                     platform::notification_text const* object,
                     platform::notification_info const* info);

private:
    std::string                             name_;
    std::string                             object_;
    std::function<void(std::string const&)> act_;
    heard_values                            heard_;
    int                                     added_;
};

// Posts a value under the name and key of the tests.
int post(std::string const& object, std::string const& value);

// Adds an observer, has it hear a post, and removes it, so many times.
void add_and_remove(int times);

}  // namespace zelieml::test

#endif
