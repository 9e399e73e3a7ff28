// gate.h - a gate that is opened once, and threads that wait for it

#ifndef ZELIEML_SUPPORT_GATE_H
#define ZELIEML_SUPPORT_GATE_H

#include <condition_variable>
#include <mutex>

namespace zelieml
{

class gate
{
public:
    // Lets everybody through, now and later.
    void open()
    {
        std::lock_guard<std::mutex> const hold(guard_);
        open_ = true;
        changed_.notify_all();
    }

    // Returns when the gate is open.
    void wait()
    {
        std::unique_lock<std::mutex> hold(guard_);
        changed_.wait(hold, [this] { return open_; });
    }

private:
    std::mutex              guard_;
    std::condition_variable changed_;
    bool                    open_ = false;
};

}  // namespace zelieml

#endif
