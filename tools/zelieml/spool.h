// spool.h - what a work directory holds for the program, besides settings
//
//     DIR/NAME                  a message, posted by anybody
//     DIR/undelivered/NAME      a message that failed twice; the folder is 0700
//     DIR/.zelieml/             0700, the service's own
//                  lock         locked (flock) while a service runs for DIR; has its process id
//                  engine/      the work directory of the service's engine: the settings, as a
//                               link, and never a message
//                  sending/     the messages that the service has taken from DIR; held_name.h
//                               explains their names
//                  reasons/waiting/KEY        why the first attempt at a message in "sending"
//                                             failed, as JSON
//                  reasons/undelivered/NAME   why an undelivered message failed
//     DIR/.settings-UID/        0700, while that user changes the settings: the new ones
//
// Any user may write to DIR, and replace a file there between two looks at it. So a message is sent
// from "sending" only, where nobody else can. Nothing of this is used unless it belongs to the user
// who runs the program and others cannot write to it, and no link is followed.

#ifndef ZELIEML_TOOLS_ZELIEML_SPOOL_H
#define ZELIEML_TOOLS_ZELIEML_SPOOL_H

#include <functional>
#include <mutex>
#include <string>
#include <sys/stat.h>
#include <sys/types.h>
#include <vector>

#include "tools/descriptor.h"
#include "tools/zelieml/held_name.h"

namespace zelieml::program
{

// is_message_name - whether the engine takes a file of this name for a message
bool is_message_name(std::string const& name);

// another_name - a name like one that is taken: "a.sme" gives "a.sme~2", and that "a.sme~3"
std::string another_name(std::string const& name);

// A message file.
struct spooled {
    std::string name;
    struct stat status;  // of the file, or of the link: links are not followed
};

// Which was posted first: by the time of its last change, then by name.
bool operator<(spooled const& a, spooled const& b);

// What a look at a message file says.
enum class look {
    ready,
    gone,
    in_use,   // it is still being written or sent by its poster: locked and changed within the last
              // hour, or empty and changed within the last minute
    not_now,  // this process has no descriptor, or no memory, to find out
    unreadable,  // for this user
    no_message   // a link, a folder, a file with several names, ...
};

// The places below a work directory. Functions that move or delete a message leave it in one place,
// whole, wherever the process is killed. Names are names in a folder, never paths: any other is
// treated as one that is not there.
class spool
{
public:
    explicit spool(std::string workdir) : workdir_(std::move(workdir)) {}

    std::string const& workdir() const { return workdir_; }
    std::string        engine_path() const { return workdir_ + "/.zelieml/engine"; }
    std::string        path_of(std::string const& name) const { return workdir_ + "/" + name; }
    std::string        held_path() const { return workdir_ + "/.zelieml/sending"; }
    std::string        held_path(std::string const& file) const { return held_path() + "/" + file; }
    std::string        undelivered_path() const { return workdir_ + "/undelivered"; }
    std::string        undelivered_path(std::string const& name) const
    {
        return undelivered_path() + "/" + name;
    }

    // make - what is missing of the service's folders, and the link to the settings
    //
    // Throws a failure: EX_CANTCREAT when something cannot be made, EX_CONFIG when something is
    // there that may not be used.
    void make() const;

    // is_whole - whether all that make makes is there. Throws a failure as make does.
    bool is_whole() const;

    // each - calls proc for every message file that lies in the work directory, in no order, with
    // what is there: links, files with several names and files in use as well
    //
    // Throws a failure (EX_NOINPUT) when the directory cannot be read.
    void each(std::function<void(spooled const& file)> const& proc) const;

    // held, undelivered - what lies in these folders, the oldest first; likewise
    //
    // Empty when there is no folder. Both throw a failure when there is one that cannot be read.
    std::vector<spooled> held() const;
    std::vector<spooled> undelivered() const;

    // look_at, look_at_held - whether a message can be taken, and sent
    look look_at(std::string const& name) const;
    look look_at_held(std::string const& file) const;

    // These return 0, or why it was not done, as errno; ENOENT when the message is gone. They are the
    // service's; any of its threads.

    // take - moves a message from the work directory to the held ones
    int take(std::string const& name, held_name const& as) const;

    // rename_held - gives a held message another name, and its reason with it, unless that name has
    // one already
    int rename_held(std::string const& file, held_name const& as) const;

    // give_up - moves a held message to the undelivered ones
    //
    // reason  kept for the name that it has there, which "there" receives
    int give_up(std::string const& file, std::string const& reason, std::string& there) const;

    // remove_held - deletes a held message, and its reason
    int remove_held(std::string const& file) const;

    // reason, undelivered_reason - why the last attempt at a message failed: JSON as it was kept;
    // empty when nothing is known
    std::string reason(held_name const& name) const;
    std::string undelivered_reason(std::string const& name) const;

    // keep_reason - best effort: nothing tells when the disk is full
    void keep_reason(held_name const& name, std::string const& text) const;

    // forget_old_reasons - those of messages that are neither held nor undelivered
    void forget_old_reasons() const;

    // put_back, put_back_held - moves a message that is undelivered, or waits for its second
    // attempt, to the work directory, where a service sends it as one that has just been posted
    //
    // Returns the name that it has there; empty when there is no such message. Throws a failure
    // (EX_CANTCREAT) when it cannot be moved.
    std::string put_back(std::string const& name) const;
    std::string put_back_held(std::string const& file) const;

    // drop, drop_held, drop_undelivered - delete a message, and its reason. A message that is just
    // being sent may be delivered all the same.
    //
    // Return false when there is none of this name. Throw a failure (EX_CANTCREAT) when it cannot be
    // deleted.
    bool drop(std::string const& name) const;
    bool drop_held(std::string const& file) const;
    bool drop_undelivered(std::string const& name) const;

private:
    // Takes a name like this one in the work directory by making an empty file of it: moving a
    // message there then overwrites nobody's. Empty, with errno, when that does not work.
    std::string claim_another(std::string const& name) const;

    void carry_reason(held_name const& from, held_name const& to) const noexcept;

    std::string move_back(int folder, std::string const& name, std::string const& path,
                          std::string const& like) const;

    std::string        workdir_;
    mutable std::mutex guard_;  // while names are chosen and reasons written
};

// The right to be the service for a work directory: the lock, held while the object lives.
class service_lock
{
public:
    // is_shared  with others that share it, but no other
    //
    // Throws a failure: EX_TEMPFAIL, with the process that has it, when somebody else has it;
    // EX_CANTCREAT when the file cannot be made.
    explicit service_lock(spool const& place, bool is_shared = false);

    // False when the file was removed, so that another service could come.
    bool is_valid(spool const& place) const;

private:
    descriptor file_;
};

}  // namespace zelieml::program

#endif
