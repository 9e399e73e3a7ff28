// gate.h - a gate, and threads that wait until it is open

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

    // Holds up those who come from now on. A gate is closed at first.
    void close()
    {
        std::lock_guard<std::mutex> const hold(guard_);
        open_ = false;
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
