// spool.h - what a work directory holds for the program, besides settings and messages
//
//     DIR/undelivered/NAME      a message that failed twice; the folder is 0700
//     DIR/.zelieml/             0700, the service's own
//                  lock         locked (flock) while a service runs for DIR; has its process id
//                  engine/      the work directory of the service's engine: the settings, as a
//                               link, and never a message
//                  reasons/NAME why the last attempt at a message failed, as JSON; waiting or
//                               undelivered, it has one name
//     DIR/.settings-UID/        0700, while that user changes the settings: the new ones
//
// Any user may write to DIR. So nothing of this is used unless it belongs to the user who runs the
// program and others cannot write to it, and no link is followed.

#ifndef ZELIEML_TOOLS_ZELIEML_SPOOL_H
#define ZELIEML_TOOLS_ZELIEML_SPOOL_H

#include <functional>
#include <string>
#include <sys/stat.h>
#include <sys/types.h>
#include <vector>

#include "tools/descriptor.h"

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

    // waiting, undelivered - the regular message files with one name, the oldest first
    //
    // undelivered is empty when there is no folder. Both throw a failure when there is one that
    // cannot be read.
    std::vector<spooled> waiting() const;
    std::vector<spooled> undelivered() const;

    // is_in_use - whether a message file is still being written or sent by its poster: it is locked
    // and changed within the last hour, or empty and changed within the last minute. Also when this
    // process has no descriptor to find out; false when the file cannot be opened otherwise.
    bool is_in_use(spooled const& file) const;

    // may_delete - whether this user may take a file out of the work directory
    bool may_delete(spooled const& file) const;

    // reason - why the last attempt at a message failed: JSON as keep_reason got it; empty when
    // nothing is known
    std::string reason(std::string const& name) const;

    // keep_reason, forget_reason - best effort: nothing tells when the disk is full
    void keep_reason(std::string const& name, std::string const& text) const;
    void forget_reason(std::string const& name) const;

    // is_reason_new - whether the service that has the lock now, or had it last, has kept this reason
    bool is_reason_new(std::string const& name) const;

    // forget_old_reasons - those of messages that are neither waiting nor undelivered
    void forget_old_reasons() const;

    // give_up - moves a message from the work directory to the undelivered ones
    //
    // reason  kept for the name that it has there; empty: none is
    // error   receives why it was not moved, as errno; ENOENT when it is not in the work directory
    //
    // Returns the name that it has among the undelivered, empty when it was not moved. One caller
    // at a time: the service.
    std::string give_up(std::string const& name, std::string const& reason, int& error) const;

    // put_back - moves an undelivered message, and its reason, to the work directory, where a
    // service sends it as one that has just been posted
    //
    // It gets a name that it did not have before: a service may still be about to delete a file of
    // the old name.
    //
    // Returns the new name; empty when there is no such message. Throws a failure (EX_CANTCREAT)
    // when it cannot be moved.
    std::string put_back(std::string const& name) const;

    // put_aside - gives a message in the work directory another name, and with it a place of its own
    //
    // Returns that name; empty when it could not be moved.
    std::string put_aside(std::string const& name) const;

    // drop, drop_undelivered - delete a message, and its reason. A message that is just being sent
    // may be delivered all the same.
    //
    // Returns false when there is none of this name. Throws a failure (EX_CANTCREAT) when it cannot
    // be deleted.
    bool drop(std::string const& name) const;
    bool drop_undelivered(std::string const& name) const;

private:
    // Takes a name like this one in the work directory by making an empty file of it: moving a
    // message there then overwrites nobody's. Empty, with errno, when that does not work.
    std::string claim_another(std::string const& name) const;

    std::string workdir_;
};

// The right to be the service for a work directory: the lock, held while the object lives.
class service_lock
{
public:
    // Throws a failure: EX_TEMPFAIL, with the process that has it, when there is another service;
    // EX_CANTCREAT when the file cannot be made. The folders have to be there.
    explicit service_lock(spool const& place);

    // False when the file was removed, so that another service could come.
    bool is_valid(spool const& place) const;

    // expect_none - throws as the constructor does when there is a service, and makes nothing
    static void expect_none(spool const& place);

private:
    descriptor file_;
};

}  // namespace zelieml::program

#endif
