#include "tests/support/threads.h"

#include <mach/mach.h>
#include <pthread.h>

namespace zelieml::test
{

thread_id this_thread()
{
    return ::pthread_mach_thread_np(::pthread_self());
}

std::string sleep_of(thread_id thread)
{
    thread_basic_info_data_t info  = {};
    mach_msg_type_number_t   count = THREAD_BASIC_INFO_COUNT;
    if (::thread_info(static_cast<thread_act_t>(thread), THREAD_BASIC_INFO,
                      reinterpret_cast<thread_info_t>(&info), &count) != KERN_SUCCESS ||
        info.run_state != TH_STATE_WAITING) {
        return {};
    }
    // It has run between two sleeps.
    return std::to_string(info.user_time.seconds) + "." +
           std::to_string(info.user_time.microseconds) + " " +
           std::to_string(info.system_time.seconds) + "." +
           std::to_string(info.system_time.microseconds);
}

}  // namespace zelieml::test
