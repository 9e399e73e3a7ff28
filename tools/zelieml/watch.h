// watch.h - what changes in a directory
//
// linux/watch.cpp: inotify, which names the files.
// macos/watch.cpp: kqueue, which only tells that there was something.
//
// It is a hint: changes can be missed, and are found by looking now and then.

#ifndef ZELIEML_TOOLS_ZELIEML_WATCH_H
#define ZELIEML_TOOLS_ZELIEML_WATCH_H

#include <string>
#include <vector>

#include "tools/descriptor.h"

namespace zelieml::program
{

class watch
{
public:
    // What has happened.
    struct news {
        std::vector<std::string> names;  // finished or moved in, perhaps; in this order
        bool look = false;               // something else has: it is to be looked at as a whole
        bool over = false;               // the directory was moved or deleted
    };

    // Watches nothing yet.
    watch() = default;

    // begin - watch a directory instead of what was watched before
    //
    // Returns 0, or why this does not work, as errno; it watches nothing then.
    int  begin(std::string const& directory);
    void end();

    explicit operator bool() const { return static_cast<bool>(queue_); }

    // Readable when there is news; -1 while it watches nothing.
    int fd() const { return queue_.get(); }

    // read - some of what has happened; the rest next time
    //
    // is_wanted  whether a name is to be told
    news read(bool (*is_wanted)(std::string const& name));

private:
    descriptor queue_;
    descriptor directory_;
};

}  // namespace zelieml::program

#endif
