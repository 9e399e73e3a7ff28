// salvage.cpp - message files left in the work directory

#include "libemlw/salvage.h"

#include <algorithm>
#include <cerrno>
#include <sys/stat.h>

#include "libemlw/file.h"
#include "liblog/trace.h"
#include "libmsg/message_file.h"
#include "libqueue/libqueue.h"
#include "platform/clock.h"

namespace zelieml
{

namespace
{

// How long after its last change a file counts as in use: locked, since whoever can read a file can
// lock it; and empty, since a file is not locked yet when it is made.
constexpr std::time_t locked_s = 3600;
constexpr std::time_t empty_s  = 60;

// Whether opening failed for a reason that is not the file's: it is gone, or the host has no
// descriptor or no memory to spare just now. The next look finds what is still there.
bool says_nothing_of_the_file(int error)
{
    return error == ENOENT || error == EMFILE || error == ENFILE || error == ENOMEM;
}

// Whether a message file is still being written, is being sent by post_sync, or is gone by now.
bool is_not_to_be_queued(std::string const& path)
{
    message_file const file = open_message_file(path.c_str());
    if (!file) {
        return says_nothing_of_the_file(errno);  // any other is queued, and reported as unreadable
    }
    struct stat status = {};
    ::fstat(file.descriptor(), &status);
    std::time_t const age = platform::wall_seconds() - status.st_mtime;
    if (status.st_size == 0 && age < empty_s) {
        return true;  // and its lock is not asked for, which its writer may be about to take
    }
    bool const in_use = file.is_locked_elsewhere() && age < locked_s;
    // Only now: post_sync deletes the file before it unlocks it.
    return in_use || ::fstat(file.descriptor(), &status) != 0 || status.st_nlink == 0;
}

}  // namespace

int get_salvage_files(char const* dir, std::vector<std::string>& files)
{
    platform::release_pool const      pool;
    platform::text_array const* const found = FindSMEFiles(dir);
    int const count = found != nullptr ? platform::text_array_count(found) : 0;
    for (int i = 0; i < count; ++i) {
        char path[fullpath_size];
        if (platform::text_array_get(found, i, path, sizeof path)) {
            files.emplace_back(path);
        }
    }
    return 0;
}

int salvage_queue(_s_iemlw* engine, bool salvage)
{
    std::vector<std::string> files;
    int const                result = get_salvage_files(engine->workdir, files);
    if (salvage) {
        trace_msg("salvage_queue salvage");
        files.erase(std::remove_if(files.begin(), files.end(), is_not_to_be_queued), files.end());
        engine->queue.load()->add(files);
    } else {
        trace_msg("salvage_queue erase");
        iqmgr_erase_files(files);
    }
    return result;
}

}  // namespace zelieml
