// macos_failure_test.cpp - every creation of the frameworks that can fail, fails once
//
// Whichever it is, the seam's function fails cleanly or does without, and nothing is left behind.

#include <Security/Security.h>
#include <cstring>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "platform/charset.h"
#include "platform/crypto.h"
#include "platform/directory.h"
#include "platform/key_handle.h"
#include "platform/notification.h"
#include "platform/zone.h"
#include "support/c_boundary.h"
#include "tests/macos/fake/fake.h"
#include "tests/platform/counting_provider.h"
#include "tests/support/files.h"

namespace zelieml::test
{
namespace
{

// What a function is to do when something that it needs cannot be made.
enum class without {
    fails,     // says so
    may_pass,  // does without it, where that is possible
};

struct seam_call {
    char const*           name;
    without               then;
    std::function<bool()> succeeds;  // calls it, and gives back what it made
};

// Makes each creation of a call fail in turn, until none is left to fail.
void fail_each(seam_call const& call)
{
    SCOPED_TRACE(call.name);
    ASSERT_TRUE(call.succeeds());
    long const before = fake::live_objects();
    for (int nth = 1;; ++nth) {
        ASSERT_LT(nth, 200);
        fake::fail_creation(nth);
        bool const succeeded = call.succeeds();
        bool const failed    = fake::creation_failed();
        fake::fail_creation(0);
        EXPECT_EQ(fake::live_objects(), before) << "creation " << nth;
        if (!failed) {
            EXPECT_TRUE(succeeded);
            EXPECT_GT(nth, 1) << "nothing was made";
            return;
        }
        EXPECT_TRUE(!succeeded || call.then == without::may_pass) << "creation " << nth;
    }
}

unsigned char const salt[]  = {1, 2, 3, 4, 5, 6, 7, 8};
unsigned char const input[] = {'t', 'e', 'x', 't'};

TEST(Failure, OfCryptographyIsAnErrorCode)
{
    unsigned char key[5];
    unsigned char out[sizeof input];
    unsigned char digest[platform::md5_size];
    fail_each({"digest_md5", without::fails,
               [&] { return platform::digest_md5(input, sizeof input, digest) == 0; }});
    fail_each({"derive_rc4_key", without::fails, [&] {
                   return platform::derive_rc4_key("phrase", 6, salt, sizeof salt, 1000, key, 40) ==
                          0;
               }});
    for (crypt_direction const direction : {crypt_direction::encrypt, crypt_direction::decrypt}) {
        fail_each({"rc4_crypt", without::fails, [&] {
                       return platform::rc4_crypt(key, sizeof key, direction, input, sizeof input,
                                                  out) == 0;
                   }});
    }
}

TEST(Failure, OfTheDirectoryIsFalseOrNull)
{
    temp_dir const folder;
    write_file(folder.path() + "/a.sme", "");
    fail_each({"directory_names", without::may_pass, [&] {
                   std::vector<std::string> names;
                   return platform::directory_names(folder.path().c_str(), names);
               }});
    fail_each({"text_array", without::fails, [] {
                   platform::text_array* const array = platform::text_array_create();
                   if (array == nullptr) {
                       return false;
                   }
                   bool const appended = platform::text_array_append(array, "a text");
                   EXPECT_EQ(platform::text_array_count(array), appended ? 1 : 0);
                   platform::text_array_release(array);
                   return appended;
               }});
}

TEST(Failure, OfTheZoneIsGreenwich)
{
    fake::set_default_zone(32400);
    fail_each({"zone_offset_seconds", without::fails,
               [] { return platform::zone_offset_seconds({}) == 32400; }});
    fake::fail_creation(1);
    EXPECT_EQ(platform::zone_offset_seconds({}), 0);
    fake::fail_creation(0);
    fake::reset_default_zone();
}

// Which memory or which byte is missing, the framework does not say.
TEST(Failure, OfAConversionIsAnUnknownCharsetOrByte)
{
    fail_each({"append_as_utf8", without::may_pass, [] {
                   std::string out;
                   bool const  known = platform::append_as_utf8("ISO-8859-1", "\xE9", out);
                   EXPECT_TRUE(known ? out == "\u00E9" || out == "\uFFFD" : out.empty()) << out;
                   return known && out == "\u00E9";
               }});
}

void ignore(platform::notification_center* /*center*/, void* /*observer*/,
            platform::notification_text const* /*name*/,
            platform::notification_text const* /*object*/,
            platform::notification_info const* /*info*/)
{
}

TEST(Failure, OfAddingAnObserverLeavesNone)
{
    int who = 0;
    fail_each({"add_observer", without::fails, [&] {
                   bool const added = platform::add_observer("n", "o", ignore, &who) == 0;
                   EXPECT_EQ(platform::remove_observer("n", "o", &who), added ? 0 : -1);
                   return added;
               }});
}

// Posting fails only if its strings cannot be made; without the rest nobody hears the post.
TEST(Failure, OfPostingIsNotBeingHeard)
{
    fail_each({"post_notification", without::may_pass,
               [] { return platform::post_notification("n", "o", "k", "v") == 0; }});
    fake::fail_creation(1);
    EXPECT_EQ(platform::post_notification("n", "o", "k", "v"), -1);
    fake::fail_creation(2);
    EXPECT_EQ(platform::post_notification("n", "o", "k", "v"), -1);
    fake::fail_creation(3);
    EXPECT_EQ(platform::post_notification("n", "o", "k", "v"), 0) << "without a dictionary";
    fake::fail_creation(0);
}

using KeyHandleFailure = ProviderTest;

TEST_F(KeyHandleFailure, OfASessionIsAnErrorCode)
{
    fail_each({"attach", without::fails, [&] {
                   csp_session* made = nullptr;
                   if (platform::attach(memory.functions(), made) != 0) {
                       EXPECT_EQ(made, nullptr);
                       return false;
                   }
                   return platform::detach(made) == 0;
               }});
}

TEST_F(KeyHandleFailure, OfDigestsIsAnErrorCode)
{
    fail_each({"digest_at_once", without::fails, [&] {
                   csp_buffer digest;
                   if (platform::digest_at_once(session, CSSM_ALGID_SHA1, data("text"), digest) !=
                       0) {
                       EXPECT_EQ(digest.data, nullptr);
                       return false;
                   }
                   take(digest);
                   return true;
               }});
}

TEST_F(KeyHandleFailure, OfAPieceEndsItsText)
{
    csp_buffer   digest;
    csp_context* context = nullptr;
    ASSERT_EQ(platform::digest_at_once(session, CSSM_ALGID_SHA1, data("text"), digest), 0);
    std::string const wanted = take(digest);

    ASSERT_EQ(platform::make_digest_context(session, CSSM_ALGID_SHA1, context), 0);
    EXPECT_EQ(platform::staged_digest(context, data("first"), nullptr), 0);
    fake::fail_creation(1);
    EXPECT_NE(platform::staged_digest(context, data("second"), nullptr), 0);
    fake::fail_creation(0);
    EXPECT_EQ(platform::staged_digest(context, data("text"), &digest), 0);
    EXPECT_EQ(take(digest), wanted);
    platform::free_context(context);
}

TEST_F(KeyHandleFailure, OfEncryptionIsAnErrorCode)
{
    fail_each({"derive_key, crypt_at_once", without::fails, [&] {
                   csp_key*     key     = nullptr;
                   csp_context* context = nullptr;
                   csp_buffer   out;
                   bool const done = platform::derive_key(session, data("phrase"), data("saltsalt"),
                                                          1000, CSSM_ALGID_RC4, 40, key) == 0 &&
                                     platform::make_crypt_context(session, key, context) == 0 &&
                                     platform::crypt_at_once(context, crypt_direction::encrypt,
                                                             data("text"), out) == 0;
                   EXPECT_EQ(out.data != nullptr, done);
                   platform::free_context(context);
                   platform::free_key(key);
                   if (done) {
                       take(out);
                   }
                   return done;
               }});
}

TEST_F(KeyHandleFailure, OfKeyPairsIsAnErrorCode)
{
    fail_each(
        {"generate_key_pair, sign, verify", without::fails, [&] {
             csp_key*   open   = nullptr;
             csp_key*   secret = nullptr;
             csp_buffer signature;
             bool const done =
                 platform::generate_key_pair(session, CSSM_ALGID_RSA, 512, open, secret) == 0 &&
                 platform::sign_at_once(session, secret, CSSM_ALGID_SHA256WithRSA, data("text"),
                                        signature) == 0 &&
                 platform::verify_at_once(session, open, CSSM_ALGID_SHA256WithRSA, data("text"),
                                          {signature.data, signature.size}) == 0;
             platform::free_key(open);
             platform::free_key(secret);
             if (signature.data != nullptr) {
                 take(signature);
             }
             return done;
         }});
    fail_each({"generate_exchange_pair, exchange_key", without::fails, [&] {
                   csp_key*   own    = nullptr;
                   csp_key*   common = nullptr;
                   csp_buffer value;
                   bool const done = platform::generate_exchange_pair(session, value, own) == 0 &&
                                     platform::exchange_key(session, own, {value.data, value.size},
                                                            CSSM_ALGID_RC4, 128, common) == 0;
                   platform::free_key(common);
                   platform::free_key(own);
                   if (value.data != nullptr) {
                       take(value);
                   }
                   return done;
               }});
}

}  // namespace
}  // namespace zelieml::test
