// libqueue.h - message files waiting to be sent
//
// Keeps file paths in arrival order, each with the second it was queued and the number of attempts
// so far. Picks the files due for a first or a second attempt and holds at most 500: the oldest
// file is deleted to make room.
//
// Threads: nothing here locks. The notification callback holds the manager's mutex around add();
// the worker holds the engine's around get(), and nothing around its own add() and erase(). These
// do not exclude each other, so the queue is a list that is replaced as a whole: each operation
// applies its change to the list it meets, and starts over when another was faster.
//
// No other file deletes message files from disk once they are complete.

#ifndef ZELIEML_LIBQUEUE_LIBQUEUE_H
#define ZELIEML_LIBQUEUE_LIBQUEUE_H

#include <ctime>
#include <memory>
#include <pthread.h>
#include <string>
#include <vector>

#include "support/snapshot.h"

namespace zelieml
{

// The most files that a queue holds.
constexpr std::size_t max_queue = 500;

// One queue entry: a file, since when it waits, and how often it was handed out.
class c_queue
{
public:
    // Queued now, never handed out.
    explicit c_queue(std::string const& path);

    std::time_t        queued_time() const { return queued_time_; }
    std::string const& path() const { return *path_; }
    unsigned int       try_count() const { return try_count_; }

    // Counts one more attempt.
    void hand_out() { ++try_count_; }

private:
    std::time_t                        queued_time_;  // never renewed
    std::shared_ptr<std::string const> path_;         // shared by the copies that changes make
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
    // Takes memory for an empty queue. Returns 0, or -1 when there is none.
    int create_context();

    // Frees the queue; the files stay. Returns 0.
    int destroy_context();

    // add - append files to the queue
    //
    // files  full paths; those already queued are passed over
    //
    // A full queue gives up its oldest file, which is deleted from the disk, for the first new one,
    // and the rest of the list is not queued: those files are found again by salvage.
    //
    // Returns 0. Throws std::bad_alloc, with the file it had come to and those after it not queued,
    // when there is no memory.
    int add(std::vector<std::string> const& files);

    // get - the files that are due; each counts as handed out once more and stays queued
    //
    // files      receives the paths, appended in queue order
    // try_count  0: those never handed out; 1: those handed out before and queued long enough ago
    // interval   milliseconds since queueing that count as long enough; cut to whole seconds
    //
    // Returns 0. Throws std::bad_alloc, with nothing handed out, when there is no memory.
    int get(std::vector<std::string>& files, unsigned int try_count, unsigned int interval);

    // erase - delete files from the disk, and then remove them from the queue
    //
    // files  full paths; one that is not queued is left alone. One that cannot be deleted leaves
    //        the queue all the same.
    //
    // Returns 0. Throws std::bad_alloc when there is no memory: the file it had come to is deleted
    // then, but still queued, and those after it are untouched.
    int erase(std::vector<std::string> const& files);

    // For callers of add() that may meet each other.
    pthread_mutex_t& mutex() { return mutex_; }

private:
    friend int iqmgr_create(iqmgr** out);
    friend int iqmgr_destroy(iqmgr* manager);

    _s_iqmgr*       context_ = nullptr;
    pthread_mutex_t mutex_   = {};  // initialised by iqmgr_create
};

// iqmgr_create - make a queue manager with an empty queue
//
// out  receives it, the caller's to give back with iqmgr_destroy; null on failure
//
// Returns 0, or -1 when there is no memory.
int iqmgr_create(iqmgr** out);

// iqmgr_destroy - free a queue manager; the files of its queue stay
//
// Returns 0, or -1 for null. Nobody may use it meanwhile.
int iqmgr_destroy(iqmgr* manager);

// iqmgr_erase - delete one message file from the disk
//
// path  full path of the file
//
// Needs no memory. Returns 0, or -1 when it could not be removed. Any thread.
int iqmgr_erase(char const* path);

// iqmgr_erase_files - delete message files from the disk without looking at any queue
//
// Returns 0, also when a file could not be removed. Any thread.
int iqmgr_erase_files(std::vector<std::string> const& files);

}  // namespace zelieml

#endif
