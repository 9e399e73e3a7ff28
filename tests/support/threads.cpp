#include "tests/support/threads.h"

#include "tests/support/wait_until.h"

namespace zelieml::test
{

namespace
{

// Says whether a thread has slept from one look to the next.
class watch
{
public:
    bool sees_one_sleep(thread_id thread)
    {
        std::string const now   = sleep_of(thread);
        bool const        slept = !now.empty() && now == last_;
        last_                   = now;
        return slept;
    }

private:
    std::string last_;
};

}  // namespace

bool wait_until_ended(thread_id thread)
{
    return wait_until([&] { return has_ended(thread); });
}

bool wait_for_running_threads(int count)
{
    return wait_until([&] { return running_threads() == count; });
}

bool wait_until_blocked(thread_id thread)
{
    watch observed;
    return wait_until([&] { return observed.sees_one_sleep(thread); });
}

bool waiter::gets_blocked() const
{
    watch observed;
    bool  blocked = false;
    wait_until([&] {
        blocked = id_ != 0 && !over_ && observed.sees_one_sleep(id_);
        return blocked || over_;
    });
    return blocked;
}

void waiter::join()
{
    if (thread_.joinable()) {
        thread_.join();
    }
}

}  // namespace zelieml::test
