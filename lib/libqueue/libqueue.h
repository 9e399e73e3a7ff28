// libqueue.h - message files waiting to be sent
//
// Keeps file paths in arrival order, each with the second it was queued and the number of attempts
// so far. Picks the files due for a first or a second attempt. Holds at most 500 files: the oldest
// one is deleted to make room.
//
// Threads: nothing here locks. The notification callback holds the manager's mutex around add();
// the worker holds the engine's mutex around get(), and nothing around its own add() and erase().
// Since these do not exclude each other, the queue is a list that is replaced as a whole: each
// operation applies its change to the current list, and starts over when another thread was faster.
//
// No other file deletes complete message files from disk.

#ifndef ZELIEML_LIBQUEUE_LIBQUEUE_H
#define ZELIEML_LIBQUEUE_LIBQUEUE_H

#include <ctime>
#include <memory>
#include <optional>
#include <pthread.h>
#include <string>
#include <sys/types.h>
#include <vector>

#include "support/snapshot.h"

namespace zelieml
{

// The most files that a queue holds.
constexpr std::size_t max_queue = 500;

// One queue entry: a file, when it was queued, and how often it was handed out.
class c_queue
{
public:
    // An entry queued now and never handed out.
    //
    // owner  the user whom the file must belong to when it is sent; nothing: anybody
    explicit c_queue(std::string const& path, std::optional<uid_t> owner = {});

    std::time_t          queued_time() const { return queued_time_; }
    std::string const&   path() const { return *path_; }
    std::optional<uid_t> owner() const { return owner_; }
    unsigned int         try_count() const { return try_count_; }

    // Counts one more attempt.
    void hand_out() { ++try_count_; }

private:
    std::time_t                        queued_time_;  // never updated
    std::shared_ptr<std::string const> path_;         // shared by the copies of an entry
    std::optional<uid_t>               owner_;
    unsigned int                       try_count_ = 0;
};

// Entries are equal when their paths are.
bool operator==(c_queue const& a, c_queue const& b);

struct _s_iqmgr {
    snapshot<c_queue> queue;  // oldest first
};

class iqmgr
{
public:
    // Makes an empty queue. Returns 0, or -1 when there is no memory.
    int create_context();

    // Frees the queue; the files stay. Returns 0.
    int destroy_context();

    // add - append files to the queue
    //
    // files  full paths; those already queued are skipped
    // owner  see c_queue
    //
    // When the queue is full, its oldest file is deleted from disk to make room for the first new
    // one, and the rest of the list is not queued: salvage finds those files again.
    //
    // Returns 0. Throws std::bad_alloc when there is no memory; the current file and those after it
    // are then not queued.
    int add(std::vector<std::string> const& files, std::optional<uid_t> owner = {});

    // get - the files that are due; each counts as handed out once more and stays queued
    //
    // files      receives the paths, appended in queue order
    // try_count  0: those never handed out; 1: those handed out before and queued long enough ago
    // interval   milliseconds since queueing that count as long enough; rounded down to whole
    //            seconds
    //
    // Returns 0. Throws std::bad_alloc when there is no memory; then nothing is handed out.
    int get(std::vector<std::string>& files, unsigned int try_count, unsigned int interval);

    // get - the same, as copies of the entries
    int get(std::vector<c_queue>& entries, unsigned int try_count, unsigned int interval);

    // erase - delete files from disk and remove them from the queue
    //
    // files  full paths; a file that is not queued is not touched. One that cannot be deleted is
    //        removed from the queue all the same.
    //
    // Returns 0. Throws std::bad_alloc when there is no memory; the current file is then deleted
    // but still queued, and those after it are untouched.
    int erase(std::vector<std::string> const& files);

    // For callers of add() on several threads. The manager itself does not lock it.
    pthread_mutex_t& mutex() { return mutex_; }

private:
    friend int iqmgr_create(iqmgr** out);
    friend int iqmgr_destroy(iqmgr* manager);

    _s_iqmgr*       context_ = nullptr;
    pthread_mutex_t mutex_   = {};  // initialised by iqmgr_create
};

// iqmgr_create - make a queue manager with an empty queue
//
// out  receives the manager, which the caller frees with iqmgr_destroy; null on failure
//
// Returns 0, or -1 when there is no memory.
int iqmgr_create(iqmgr** out);

// iqmgr_destroy - free a queue manager; the queued files stay on disk
//
// Returns 0, or -1 for null. No other thread may be using it.
int iqmgr_destroy(iqmgr* manager);

// iqmgr_erase - delete one message file from disk
//
// path  full path of the file
//
// Allocates nothing. Returns 0, or -1 when the file could not be removed. Any thread.
int iqmgr_erase(char const* path);

// iqmgr_erase_files - delete message files from disk, whether queued or not
//
// Returns 0, also when a file could not be removed. Any thread.
int iqmgr_erase_files(std::vector<std::string> const& files);

}  // namespace zelieml

#endif
