// fake_test.cpp - the fake is as strict as it says: what it lets pass elsewhere is right

#include "tests/macos/fake/fake.h"

#include <CoreFoundation/CoreFoundation.h>
#include <Security/Security.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/directory.h"

namespace zelieml::test
{
namespace
{

CFStringRef made_string(char const* text)
{
    return CFStringCreateWithCString(kCFAllocatorDefault, text, kCFStringEncodingUTF8);
}

TEST(Fake, CountsWhatIsAlive)
{
    long const before = fake::live_objects();
    CFTypeRef  one    = made_string("one");
    EXPECT_EQ(fake::live_objects(), before + 1);
    CFRetain(one);
    CFRelease(one);
    EXPECT_EQ(fake::live_objects(), before + 1);
    CFRelease(one);
    EXPECT_EQ(fake::live_objects(), before);
}

TEST(Fake, CountsNoConstants)
{
    long const before = fake::live_objects();
    EXPECT_EQ(CFSTR("a constant"), CFSTR("a constant"));
    CFRelease(CFSTR("a constant"));
    EXPECT_TRUE(CFEqual(CFSTR("a constant"), CFSTR("a constant")));
    EXPECT_EQ(fake::live_objects(), before);
}

TEST(Fake, FailsTheCreationThatItIsToldTo)
{
    fake::fail_creation(2);
    CFStringRef const first  = made_string("first");
    CFStringRef const second = made_string("second");
    CFStringRef const third  = made_string("third");
    EXPECT_NE(first, nullptr);
    EXPECT_EQ(second, nullptr);
    EXPECT_NE(third, nullptr);
    EXPECT_TRUE(fake::creation_failed());
    fake::fail_creation(0);
    CFRelease(first);
    CFRelease(third);
}

TEST(Fake, KeepsEveryByteInTheSystemEncoding)
{
    char all[256];
    for (int i = 0; i < 255; ++i) {
        all[i] = static_cast<char>(i + 1);
    }
    all[255]                 = '\0';
    CFStringRef const string = CFStringCreateWithCString(nullptr, all, CFStringGetSystemEncoding());
    char              back[256] = {};
    EXPECT_TRUE(CFStringGetCString(string, back, 256, CFStringGetSystemEncoding()));
    EXPECT_STREQ(back, all);
    EXPECT_FALSE(CFStringGetCString(string, back, 255, CFStringGetSystemEncoding()));
    CFRelease(string);
}

TEST(Fake, RefusesTextsThatAreNotInTheirEncoding)
{
    EXPECT_EQ(made_string("\xff"), nullptr);
    EXPECT_EQ(made_string("\xc0\x80"), nullptr) << "longer than need be";
    EXPECT_EQ(made_string("\xed\xa0\x80"), nullptr) << "half a pair";
    CFStringRef const string = made_string("\xe5\x8d\xb0\xf0\x9f\x93\xa7");
    char              back[16];
    EXPECT_EQ(CFStringGetLength(string), 3);
    EXPECT_TRUE(CFStringGetCString(string, back, sizeof back, kCFStringEncodingUTF8));
    EXPECT_STREQ(back, "\xe5\x8d\xb0\xf0\x9f\x93\xa7");
    EXPECT_FALSE(CFStringGetCString(string, back, sizeof back, kCFStringEncodingMacRoman));
    CFRelease(string);
}

// ------------------------------------------------------------------ what aborts

TEST(FakeDeathTest, AbortsOnOverRelease)
{
    CFStringRef const one = made_string("one");
    CFRelease(one);
    EXPECT_DEATH(CFRelease(one), "CFRelease: no object, or no more");
    EXPECT_DEATH(CFStringGetLength(one), "no object, or no more");
}

TEST(FakeDeathTest, AbortsOnNullAndOnTheWrongType)
{
    EXPECT_DEATH(CFRelease(nullptr), "null");
    EXPECT_DEATH(CFRetain(nullptr), "null");
    EXPECT_DEATH(CFArrayGetCount(reinterpret_cast<CFArrayRef>(CFSTR("a string"))),
                 "an object of another type");
}

TEST(FakeDeathTest, AbortsWithoutAPool)
{
    EXPECT_DEATH(platform::text_array_autorelease(platform::text_array_create()),
                 "no pool in place");
}

TEST(FakeDeathTest, AbortsWhenATransformLacksAnAttribute)
{
    EXPECT_DEATH(
        {
            SecTransformRef const transform = SecDigestTransformCreate(kSecDigestMD5, 0, nullptr);
            SecTransformExecute(transform, nullptr);
        },
        "an attribute is missing");
    EXPECT_DEATH(
        {
            CFMutableDictionaryRef const attributes = CFDictionaryCreateMutable(
                nullptr, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks);
            SecKeyDeriveFromPassword(CFSTR("phrase"), attributes, nullptr);
        },
        "an attribute is missing");
}

TEST(FakeDeathTest, AbortsWhenAForkedChildUsesTheCenter)
{
    EXPECT_DEATH(CFNotificationCenterGetDistributedCenter(), "a forked child");
}

TEST(FakeDeathTest, AProcessThatLeavesObjectsBehindFails)
{
    ::testing::GTEST_FLAG(death_test_style) = "threadsafe";  // a process of its own, not a fork
    EXPECT_EXIT(
        {
            made_string("left");
            std::exit(0);
        },
        ::testing::ExitedWithCode(fake::leak_exit_code), "left behind: 1 of string");
}

}  // namespace
}  // namespace zelieml::test
