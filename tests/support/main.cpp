// main.cpp - the main function of the programs of tests, instead of GoogleTest's: tests hear
// notifications on every system

#include <gtest/gtest.h>

#include "tests/support/main_thread.h"

int main(int argc, char** argv)
{
    testing::InitGoogleTest(&argc, argv);
    return work_with_notifications([](void*) { return RUN_ALL_TESTS(); }, nullptr);
}
