// snapshot.h - a list that several threads read and change at the same time
//
// Readers get the current list, which is never modified. A change builds a new list from the
// current one and publishes it, and starts over when another thread was faster.
//
// The lock is held only while the pointer to the list is copied or exchanged. It belongs to one
// snapshot: in a forked child a snapshot of the parent may stay locked, one of the child's own
// never does. The locks behind std::atomic_load are shared by the whole process.

#ifndef ZELIEML_SUPPORT_SNAPSHOT_H
#define ZELIEML_SUPPORT_SNAPSHOT_H

#include <memory>
#include <mutex>
#include <utility>
#include <vector>

namespace zelieml
{

template <class T>
class snapshot
{
public:
    using list = std::vector<T>;

    snapshot() : current_(std::make_shared<list const>()) {}

    // The current list; it never changes.
    std::shared_ptr<list const> get() const
    {
        std::lock_guard<std::mutex> const hold(guard_);
        return current_;
    }

    // update - replace the list by a changed copy
    //
    // change  called with a copy of the list; returns whether it changed the copy. May be called
    //         several times, each time with a fresh copy, so its side effects must allow that.
    //
    // Returns what the last call of change returned.
    template <class Change>
    bool update(Change&& change)
    {
        for (;;) {
            std::shared_ptr<list const> const met     = get();
            auto const                        changed = std::make_shared<list>(*met);
            if (!change(*changed)) {
                return false;
            }
            if (publish(changed, met)) {
                return true;
            }
        }
    }

private:
    // Replaces the list that was met, which the caller still holds: so it is not freed in here.
    // Returns false when it is not the current one any more.
    bool publish(std::shared_ptr<list const> next, std::shared_ptr<list const> const& met)
    {
        std::lock_guard<std::mutex> const hold(guard_);
        if (current_ != met) {
            return false;
        }
        current_ = std::move(next);
        return true;
    }

    mutable std::mutex          guard_;
    std::shared_ptr<list const> current_;
};

}  // namespace zelieml

#endif
