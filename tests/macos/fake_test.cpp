// fake_test.cpp - the fake is as strict as it says: what it lets pass elsewhere is right

#include "tests/macos/fake/fake.h"

#include <CoreFoundation/CoreFoundation.h>
#include <Security/Security.h>
#include <cstdlib>
#include <gtest/gtest.h>
#include <string>

#include "platform/directory.h"
#include "tests/support/notification_room.h"

namespace zelieml::test
{
namespace
{

CFStringRef made_string(char const* text)
{
    return CFStringCreateWithCString(kCFAllocatorDefault, text, kCFStringEncodingUTF8);
}

// A digest of nothing, not run yet.
SecTransformRef made_transform()
{
    SecTransformRef const transform = SecDigestTransformCreate(kSecDigestMD5, 0, nullptr);
    CFDataRef const       input     = CFDataCreate(nullptr, reinterpret_cast<UInt8 const*>(""), 0);
    SecTransformSetAttribute(transform, kSecTransformInputAttributeName, input, nullptr);
    CFRelease(input);
    return transform;
}

CFTypeRef run_transform()
{
    SecTransformRef const transform = made_transform();
    CFTypeRef const       result    = SecTransformExecute(transform, nullptr);
    CFRelease(transform);
    return result;
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

TEST(Fake, LeavesRubbishWhereAStringCannotBeConverted)
{
    char              back[] = "before";
    CFStringRef const longer = made_string("too long");
    CFStringRef const other  = made_string("\xe5\x8d\xb0");
    EXPECT_FALSE(CFStringGetCString(longer, back, sizeof back, kCFStringEncodingUTF8));
    EXPECT_EQ(std::string(back, sizeof back), "???????");
    back[0] = 0;
    EXPECT_FALSE(CFStringGetCString(other, back, sizeof back, kCFStringEncodingMacRoman));
    EXPECT_EQ(std::string(back, sizeof back), "???????");
    CFRelease(longer);
    CFRelease(other);
}

TEST(Fake, HasNoBytesInEmptyData)
{
    CFDataRef const data = CFDataCreate(nullptr, reinterpret_cast<UInt8 const*>(""), 0);
    EXPECT_EQ(CFDataGetBytePtr(data), nullptr);
    EXPECT_EQ(CFDataGetLength(data), 0);
    CFRelease(data);
}

// Its thread holds it for a while after the result: whoever counts waits for that.
TEST(Fake, CountsNoTransformThatIsAboutToBeReleased)
{
    long const            before    = fake::live_objects();
    SecTransformRef const transform = made_transform();
    CFTypeRef const       result    = SecTransformExecute(transform, nullptr);
    CFRelease(transform);
    CFRelease(result);
    EXPECT_EQ(fake::live_objects(), before);
}

TEST(Fake, TakesAnAttributeOnceAndBeforeTheTransformRuns)
{
    SecTransformRef const transform = made_transform();
    CFDataRef const       input     = CFDataCreate(nullptr, reinterpret_cast<UInt8 const*>("x"), 1);
    CFErrorRef            error     = nullptr;
    EXPECT_FALSE(
        SecTransformSetAttribute(transform, kSecTransformInputAttributeName, input, &error));
    ASSERT_NE(error, nullptr);
    CFRelease(error);
    CFRelease(SecTransformExecute(transform, nullptr));
    EXPECT_FALSE(
        SecTransformSetAttribute(transform, kSecTransformInputAttributeName, input, nullptr));
    CFRelease(input);
    CFRelease(transform);
}

// ------------------------------------------------------------------ what aborts

// In processes of their own, not forked children, which may not use the frameworks.
class FakeDeathTest : public ::testing::Test
{
protected:
    FakeDeathTest() { ::testing::GTEST_FLAG(death_test_style) = "threadsafe"; }
};

TEST_F(FakeDeathTest, AbortsOnOverRelease)
{
    CFStringRef const one = made_string("one");
    CFRelease(one);
    EXPECT_DEATH(CFRelease(one), "CFRelease: no object, or no more");
    EXPECT_DEATH(CFStringGetLength(one), "no object, or no more");
}

TEST_F(FakeDeathTest, AbortsOnNullAndOnTheWrongType)
{
    EXPECT_DEATH(CFRelease(nullptr), "null");
    EXPECT_DEATH(CFRetain(nullptr), "null");
    EXPECT_DEATH(CFArrayGetCount(reinterpret_cast<CFArrayRef>(CFSTR("a string"))),
                 "an object of another type");
}

TEST_F(FakeDeathTest, AbortsWithoutAPool)
{
    EXPECT_DEATH(platform::text_array_autorelease(platform::text_array_create()),
                 "no pool in place");
}

TEST_F(FakeDeathTest, AbortsWhenATransformLacksAnAttribute)
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

TEST(FakeForkDeathTest, AbortsOnAnyCallInAForkedChild)
{
    ::testing::GTEST_FLAG(death_test_style) = "fast";
    CFRelease(run_transform());
    EXPECT_DEATH(CFNotificationCenterGetDistributedCenter(), "a forked child");
    EXPECT_DEATH(run_transform(), "a forked child");
    EXPECT_DEATH(CFRelease(CFSTR("a constant")), "a forked child");
    EXPECT_DEATH(made_string("new"), "a forked child");
    EXPECT_DEATH(CFStringGetSystemEncoding(), "a forked child");
    EXPECT_DEATH(CFDataGetTypeID(), "a forked child");
    EXPECT_DEATH(CFTimeZoneCopyDefault(), "a forked child");
    EXPECT_DEATH(CFAbsoluteTimeGetCurrent(), "a forked child");
    EXPECT_DEATH(CSSM_ModuleLoad(nullptr, CSSM_KEY_HIERARCHY_NONE, nullptr, nullptr),
                 "a forked child");
}

TEST_F(FakeDeathTest, AbortsOnAPostThatMayBeHeldBack)
{
    EXPECT_DEATH(CFNotificationCenterPostNotification(CFNotificationCenterGetDistributedCenter(),
                                                      CFSTR("name"), CFSTR("object"), nullptr,
                                                      FALSE),
                 "in the background");
}

void ignore(CFNotificationCenterRef /*center*/, void* /*observer*/, CFStringRef /*name*/,
            void const* /*object*/, CFDictionaryRef /*info*/)
{
}

TEST_F(FakeDeathTest, AbortsWhenAnObserverIsRemovedThatIsNotExactlyOne)
{
    notification_room const room;
    int                     who    = 0;
    int                     other  = 0;
    auto const              center = CFNotificationCenterGetDistributedCenter();
    auto const              add    = [&] {
        CFNotificationCenterAddObserver(center, &who, ignore, CFSTR("name"), CFSTR("object"),
                                                        CFNotificationSuspensionBehaviorHold);
    };
    auto const remove = [&](void const* observer, CFStringRef name, CFStringRef object) {
        CFNotificationCenterRemoveObserver(center, observer, name, object);
    };
    add();
    EXPECT_DEATH(remove(&other, CFSTR("name"), CFSTR("object")), "no such observer");
    EXPECT_DEATH(remove(&who, CFSTR("names"), CFSTR("object")), "no such observer");
    EXPECT_DEATH(remove(&who, CFSTR("name"), CFSTR("objects")), "no such observer");
    EXPECT_DEATH(
        {
            add();
            remove(&who, CFSTR("name"), CFSTR("object"));
        },
        "or several");
    remove(&who, CFSTR("name"), CFSTR("object"));
}

TEST_F(FakeDeathTest, AbortsWhenAContextIsInitialisedForASecondText)
{
    CSSM_VERSION const          version = {2, 0};
    CSSM_GUID const             caller  = {};
    CSSM_API_MEMORY_FUNCS const memory  = {
         [](CSSM_SIZE size, void*) { return std::malloc(size); },
         [](void* buffer, void*) { std::free(buffer); },
         [](void* buffer, CSSM_SIZE size, void*) { return std::realloc(buffer, size); },
         [](uint32 count, CSSM_SIZE size, void*) { return std::calloc(count, size); }, nullptr};
    CSSM_ACCESS_CREDENTIALS const nobody   = {};
    uint8                         bytes[5] = {1, 2, 3, 4, 5};
    CSSM_KEY                      key      = {};
    key.KeyHeader.HeaderVersion            = CSSM_KEYHEADER_VERSION;
    key.KeyHeader.AlgorithmId              = CSSM_ALGID_RC4;
    key.KeyHeader.KeyUsage                 = CSSM_KEYUSE_ANY;
    key.KeyData                            = {sizeof bytes, bytes};

    CSSM_PVC_MODE      policy  = CSSM_PVC_NONE;
    CSSM_MODULE_HANDLE session = 0;
    CSSM_CC_HANDLE     context = 0;
    ASSERT_EQ(CSSM_Init(&version, CSSM_PRIVILEGE_SCOPE_NONE, &caller, CSSM_KEY_HIERARCHY_NONE,
                        &policy, nullptr),
              CSSM_OK);
    ASSERT_EQ(CSSM_ModuleLoad(&gGuidAppleCSP, CSSM_KEY_HIERARCHY_NONE, nullptr, nullptr), CSSM_OK);
    ASSERT_EQ(CSSM_ModuleAttach(&gGuidAppleCSP, &version, &memory, 0, CSSM_SERVICE_CSP, 0,
                                CSSM_KEY_HIERARCHY_NONE, nullptr, 0, nullptr, &session),
              CSSM_OK);
    ASSERT_EQ(CSSM_CSP_CreateSymmetricContext(session, CSSM_ALGID_RC4, CSSM_ALGMODE_NONE, &nobody,
                                              &key, nullptr, CSSM_PADDING_NONE, nullptr, &context),
              CSSM_OK);
    EXPECT_EQ(CSSM_EncryptDataInit(context), CSSM_OK);
    EXPECT_DEATH(CSSM_EncryptDataInit(context), "initialised again");
    EXPECT_DEATH(CSSM_DecryptDataInit(context), "initialised again");
    EXPECT_EQ(CSSM_DeleteContext(context), CSSM_OK);
    EXPECT_EQ(CSSM_ModuleDetach(session), CSSM_OK);
}

TEST_F(FakeDeathTest, AProcessThatLeavesObjectsBehindFails)
{
    EXPECT_EXIT(
        {
            made_string("left");
            std::exit(0);
        },
        ::testing::ExitedWithCode(fake::leak_exit_code), "left behind: 1 of string");
}

}  // namespace
}  // namespace zelieml::test
