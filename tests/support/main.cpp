// main.cpp - the main function of tests that hear notifications, on every system, instead of
// GoogleTest's

#include <gtest/gtest.h>

#include "tests/support/main_thread.h"

int main(int argc, char** argv)
{
    testing::InitGoogleTest(&argc, argv);
    return work_with_notifications([](void*) { return RUN_ALL_TESTS(); }, nullptr);
}
