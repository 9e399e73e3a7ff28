#include "tests/support/threads.h"

#include <mach/mach.h>
#include <pthread.h>

namespace zelieml::test
{

thread_id this_thread()
{
    return ::pthread_mach_thread_np(::pthread_self());
}

namespace
{

// Returns false when there is no such thread.
bool look_at(thread_id thread, thread_basic_info_data_t& info)
{
    mach_msg_type_number_t count = THREAD_BASIC_INFO_COUNT;
    return ::thread_info(static_cast<thread_act_t>(thread), THREAD_BASIC_INFO,
                         reinterpret_cast<thread_info_t>(&info), &count) == KERN_SUCCESS;
}

}  // namespace

std::string sleep_of(thread_id thread)
{
    thread_basic_info_data_t info = {};
    if (!look_at(thread, info) || info.run_state != TH_STATE_WAITING) {
        return {};
    }
    // It has run between two sleeps.
    return std::to_string(info.user_time.seconds) + "." +
           std::to_string(info.user_time.microseconds) + " " +
           std::to_string(info.system_time.seconds) + "." +
           std::to_string(info.system_time.microseconds);
}

bool has_ended(thread_id thread)
{
    thread_basic_info_data_t info = {};
    return !look_at(thread, info);
}

int running_threads()
{
    return 0;
}

}  // namespace zelieml::test
