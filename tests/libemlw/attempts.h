// attempts.h - a result callback that writes down what it is told

#ifndef ZELIEML_TESTS_LIBEMLW_ATTEMPTS_H
#define ZELIEML_TESTS_LIBEMLW_ATTEMPTS_H

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "libcb/libcb.h"

namespace zelieml::test
{

// One reported attempt.
struct attempt {
    eml_send_e  code;
    std::string text;
};

inline bool operator==(attempt const& a, attempt const& b)
{
    return a.code == b.code && a.text == b.text;
}

inline std::ostream& operator<<(std::ostream& out, attempt const& a)
{
    return out << "{" << a.code << ", " << a.text << "}";
}

// Registered as {note, &object}. Methods may be called on any thread.
class attempts
{
public:
    static int note(void* result, void* user)
    {
        static_cast<attempts*>(user)->note(result);
        return 0;
    }

    // Called in each attempt after it was written down, on the thread of the callback, where it
    // may be replaced. Set it elsewhere only when no attempt is being made.
    std::function<void()> action;

    std::vector<attempt> list() const
    {
        std::lock_guard<std::mutex> const hold(guard_);
        return list_;
    }
    std::vector<eml_send_e> codes() const
    {
        std::vector<eml_send_e> codes;
        for (attempt const& a : list()) {
            codes.push_back(a.code);
        }
        return codes;
    }

    // True when so many attempts have been made, or are within 30 s.
    bool wait_for(std::size_t count) const
    {
        std::unique_lock<std::mutex> hold(guard_);
        return changed_.wait_for(hold, std::chrono::seconds(30),
                                 [&] { return list_.size() >= count; });
    }

private:
    void note(void* result)
    {
        attempt made        = {eml_send_32_bits, ""};
        char    text[65536] = "no text";
        cb_get_code(result, &made.code);
        cb_get_message(result, text, sizeof text);
        made.text = text;
        {
            std::lock_guard<std::mutex> const hold(guard_);
            list_.push_back(made);
            changed_.notify_all();
        }
        if (auto const now = action) {
            now();
        }
    }

    mutable std::mutex              guard_;
    mutable std::condition_variable changed_;
    std::vector<attempt>            list_;
};

}  // namespace zelieml::test

#endif
