// fake_notification.h - a notification centre without a system behind it
//
// fake_notification.cpp replaces the platform's: posts are written down and reach nobody, until the
// test delivers something to the observers of this process.

#ifndef ZELIEML_TESTS_SUPPORT_FAKE_NOTIFICATION_H
#define ZELIEML_TESTS_SUPPORT_FAKE_NOTIFICATION_H

#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace zelieml::test
{

struct post {
    std::string name;
    std::string object;
    std::string key;
    std::string value;      // empty if there was none
    bool        has_value;  // the post had a value
};

// No post has been made, and neither observers nor posts are refused. Observers stay.
void reset_notifications();

// The posts since then, in order.
std::vector<post> posts();

// Calls the callbacks of all observers of the name and object, on this thread. Without a value
// when value is null. Returns how many there were.
//
// stranger  who posted it, if it counts only because the file it names is his
int deliver(char const* name, char const* object, char const* key, char const* value,
            std::optional<uid_t> stranger = {});

// The observers that are registered now, and those that ever were.
int observers();
int observers_ever();

// While true, there is no place for an observer.
void refuse_observers(bool on);

// While true, posting fails.
void refuse_posts(bool on);

}  // namespace zelieml::test

#endif
