// macos_delivery_test.cpp - notifications that a run loop delivers, and those that come late
//
// Nothing is delivered unless a test runs the loop: the main function is GoogleTest's.

#include <CoreFoundation/CoreFoundation.h>
#include <atomic>
#include <gtest/gtest.h>
#include <pthread.h>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

#include "platform/notification.h"
#include "support/gate.h"
#include "tests/macos/fake/fake.h"
#include "tests/support/notification_room.h"
#include "tests/support/threads.h"
#include "tests/support/wait_until.h"

namespace zelieml::test
{
namespace
{

using texts = std::vector<std::string>;

// Whether so many notifications come to wait for their delivery.
bool wait_for_undelivered(int count)
{
    return wait_until([&] { return fake::undelivered() == count; });
}

SInt32 run_loop(double seconds, bool one_only = false)
{
    return CFRunLoopRunInMode(kCFRunLoopDefaultMode, seconds, one_only);
}

class RunLoop : public ::testing::Test
{
protected:
    notification_room const room_;
};

TEST_F(RunLoop, DeliversOnItsThreadAndWhenItRuns)
{
    std::thread::id where;
    listener        one("object", test_name,
                        [&](std::string const&) { where = std::this_thread::get_id(); });
    post("object", "first");
    post("object", "second");
    ASSERT_TRUE(wait_for_undelivered(2));
    EXPECT_TRUE(one.heard().all().empty());
    EXPECT_EQ(run_loop(10, true), kCFRunLoopRunHandledSource);
    EXPECT_EQ(one.heard().all(), texts{"first"});
    EXPECT_EQ(where, std::this_thread::get_id());
    EXPECT_EQ(run_loop(0.01), kCFRunLoopRunTimedOut);
    EXPECT_EQ(one.heard().all(), (texts{"first", "second"}));
}

// The turns of a host with a loop of its own.
TEST_F(RunLoop, DeliversAllThereIsInTurnsWithoutTime)
{
    listener one("object");
    for (char const* const value : {"first", "second", "third"}) {
        post("object", value);
    }
    ASSERT_TRUE(wait_for_undelivered(3));
    run_loop(0);
    EXPECT_EQ(one.heard().all(), texts{"first"}) << "a single turn";
    while (run_loop(0, true) == kCFRunLoopRunHandledSource) {
    }
    EXPECT_EQ(one.heard().all(), (texts{"first", "second", "third"}));
}

TEST_F(RunLoop, NeedNotRunForAnObserverToBeRemoved)
{
    listener one("object");
    post("object", "never heard");
    ASSERT_TRUE(wait_for_undelivered(1));
    EXPECT_EQ(one.remove(), 0);
    EXPECT_EQ(run_loop(0.01), kCFRunLoopRunTimedOut);
    EXPECT_TRUE(one.heard().all().empty());
}

TEST_F(RunLoop, MayRemoveAnObserverFromItsDelivery)
{
    listener* self   = nullptr;
    int       result = -2;
    listener  one("object", test_name, [&](std::string const&) { result = self->remove(); });
    self = &one;
    post("object", "the only one");
    post("object", "too late");
    ASSERT_TRUE(wait_for_undelivered(2));
    run_loop(0.05);
    EXPECT_EQ(result, 0);
    EXPECT_EQ(one.heard().all(), texts{"the only one"});
}

// The center settles whom it calls before it calls the first.
TEST_F(RunLoop, MayCallWhoWasRemovedByTheCallBefore)
{
    listener* second = nullptr;
    listener  one("object", test_name, [&](std::string const&) {
        if (second != nullptr) {
            EXPECT_EQ(second->remove(), 0);
        }
    });
    listener  other("object");
    second = &other;
    post("object", "for both");
    ASSERT_TRUE(wait_for_undelivered(1));
    run_loop(0.05);
    EXPECT_EQ(one.heard().all(), texts{"for both"});
    EXPECT_TRUE(other.heard().all().empty()) << "it had been removed";
    second = nullptr;
}

TEST_F(RunLoop, IsWaitedForByWhoRemovesFromAnotherThread)
{
    gate              begun;
    gate              may_end;
    std::atomic<bool> ended{false};
    listener          one("object", test_name, [&](std::string const&) {
        begun.open();
        may_end.wait();
        ended = true;
    });
    post("object", "in progress");
    ASSERT_TRUE(wait_for_undelivered(1));
    std::thread remover([&] {
        begun.wait();
        thread_id const removing = this_thread();
        std::thread     opener([&] {
            EXPECT_TRUE(wait_until_blocked(removing));
            may_end.open();
        });
        EXPECT_EQ(one.remove(), 0);
        EXPECT_TRUE(ended);
        opener.join();
    });
    run_loop(1, true);
    remover.join();
}

// Does not return: the thread is cancelled in a delivery, and ends after it.
void be_cancelled_in_a_delivery()
{
    listener one("object", test_name, [](std::string const&) {
        ::pthread_cancel(::pthread_self());
        ::pthread_testcancel();
    });
    post("object", "the last");
    if (!wait_for_undelivered(1)) {
        return;
    }
    // It ends the process, which would go on without its main thread.
    auto const look = [](void* observer) {
        listener&  cancelled     = *static_cast<listener*>(observer);
        bool const holds_nothing = fake::undelivered() == 0 && cancelled.remove() == 0;
        ::_exit(holds_nothing && cancelled.heard().all() == texts{"the last"} ? 0 : 1);
    };
    pthread_cleanup_push(look, &one);
    run_loop(0, true);
    ::pthread_testcancel();
    pthread_cleanup_pop(0);
}

// The thread is the host's. In a process of its own, not a forked child.
TEST(RunLoopDeathTest, MayBeThatOfACancelledThread)
{
    ::testing::GTEST_FLAG(death_test_style) = "threadsafe";
    EXPECT_EXIT(be_cancelled_in_a_delivery(), ::testing::ExitedWithCode(0), "");
}

TEST_F(RunLoop, DeliversNothingOnAnotherThread)
{
    listener one("object");
    post("object", "for the main thread");
    ASSERT_TRUE(wait_for_undelivered(1));
    std::thread other([] { EXPECT_EQ(run_loop(10), kCFRunLoopRunFinished); });
    other.join();
    EXPECT_TRUE(one.heard().all().empty());
    run_loop(0);
    EXPECT_EQ(one.heard().all(), texts{"for the main thread"});
}

TEST_F(RunLoop, RunsUntilItIsToldToStop)
{
    listener one("object");
    CFRunLoopStop(CFRunLoopGetMain());
    EXPECT_EQ(run_loop(0.01), kCFRunLoopRunTimedOut) << "it did not run when it was told";
    thread_id const running = this_thread();
    std::thread     stopper([&] {
        EXPECT_TRUE(wait_until_blocked(running));
        CFRunLoopStop(CFRunLoopGetMain());
    });
    EXPECT_EQ(run_loop(60), kCFRunLoopRunStopped);
    stopper.join();
}

TEST_F(RunLoop, LeavesAloneWhatIsNoText)
{
    listener                     one("object");
    CFMutableDictionaryRef const info = CFDictionaryCreateMutable(
        nullptr, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks);
    CFStringRef const name   = CFStringCreateWithCString(nullptr, test_name, kCFStringEncodingUTF8);
    CFStringRef const object = CFStringCreateWithCString(nullptr, "object", kCFStringEncodingUTF8);
    CFNotificationCenterRef const center = CFNotificationCenterGetDistributedCenter();
    CFNotificationCenterPostNotification(center, name, object, nullptr, TRUE);
    CFNotificationCenterPostNotification(center, name, object, info, TRUE);
    CFRelease(info);
    CFRelease(object);
    CFRelease(name);
    ASSERT_TRUE(wait_for_undelivered(2));
    run_loop(0.05);
    EXPECT_EQ(one.heard().all(), (texts{"(no value)", "(no value)"}));
}

}  // namespace
}  // namespace zelieml::test
