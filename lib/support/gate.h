// gate.h - a gate that threads wait at until it is open

#ifndef ZELIEML_SUPPORT_GATE_H
#define ZELIEML_SUPPORT_GATE_H

#include <condition_variable>
#include <mutex>

namespace zelieml
{

class gate
{
public:
    // Lets every thread through, now and until close().
    void open()
    {
        std::lock_guard<std::mutex> const hold(guard_);
        open_ = true;
        changed_.notify_all();
    }

    // Makes threads wait from now on. A new gate is closed.
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
