#include "tests/support/main_thread.h"

int work_with_notifications(int (*work)(void* argument), void* argument)
{
    return work(argument);
}
