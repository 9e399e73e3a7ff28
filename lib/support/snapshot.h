// snapshot.h - a list that several threads read and change without a lock
//
// Readers get the current list, which is never modified. A change builds a new list from the
// current one and publishes it, and starts over when another thread was faster.

#ifndef ZELIEML_SUPPORT_SNAPSHOT_H
#define ZELIEML_SUPPORT_SNAPSHOT_H

#include <memory>
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
    std::shared_ptr<list const> get() const { return std::atomic_load(&current_); }

    // update - replace the list by a changed copy
    //
    // change  called with a copy of the list; returns whether it changed the copy. May be called
    //         several times, each time with a fresh copy, so its side effects must allow that.
    //
    // Returns what the last call of change returned.
    template <class Change>
    bool update(Change&& change)
    {
        std::shared_ptr<list const> met = get();
        for (;;) {
            auto changed = std::make_shared<list>(*met);
            if (!change(*changed)) {
                return false;
            }
            std::shared_ptr<list const> next = std::move(changed);
            if (std::atomic_compare_exchange_strong(&current_, &met, next)) {
                return true;
            }
        }
    }

private:
    std::shared_ptr<list const> current_;
};

}  // namespace zelieml

#endif
