// macos_fork_test.cpp - what the back end does in a forked child of a process that used the frameworks
//
// Whatever the parent has used, the child uses nothing: the fake would abort it. This process never
// uses the frameworks itself, so each of its children is the first of a family.

#include <CoreFoundation/CoreFoundation.h>
#include <functional>
#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <vector>

#include "platform/charset.h"
#include "platform/crypto.h"
#include "platform/directory.h"
#include "platform/key_handle.h"
#include "platform/notification.h"
#include "platform/plugin.h"
#include "platform/zone.h"
#include "tests/macos/fake/fake.h"
#include "tests/macos/in_child.h"
#include "tests/platform/counting_provider.h"
#include "tests/support/files.h"
#include "tests/support/notification_room.h"

namespace zelieml::test
{
namespace
{

constexpr double zone_s = 32400;

// A function of the seam.
struct seam {
    char const*           name;
    std::function<bool()> works;
    std::function<bool()> works_not;  // as its contract says
};

unsigned char const salt[] = {1, 2, 3, 4, 5, 6, 7, 8};
unsigned char const text[] = {'t', 'e', 'x', 't'};

int digest()
{
    unsigned char out[platform::md5_size];
    return platform::digest_md5(text, sizeof text, out);
}

int derive()
{
    unsigned char key[5];
    return platform::derive_rc4_key("phrase", 6, salt, sizeof salt, 1000, key, 40);
}

int crypt()
{
    unsigned char const key[5] = {1, 2, 3, 4, 5};
    unsigned char       out[sizeof text];
    return platform::rc4_crypt(key, sizeof key, crypt_direction::encrypt, text, sizeof text, out);
}

int attach()
{
    counting_memory memory;
    csp_session*    session = nullptr;
    int const       status  = platform::attach(memory.functions(), session);
    return status == 0 ? platform::detach(session) : status;
}

bool lists(std::string const& directory)
{
    std::vector<std::string> names;
    return platform::directory_names(directory.c_str(), names);
}

bool converts()
{
    std::string out;
    return platform::append_as_utf8("ISO-8859-1", "a", out);
}

bool has_arrays()
{
    platform::release_pool const pool;
    platform::text_array* const  array = platform::text_array_create();
    return array != nullptr && platform::text_array_autorelease(array) == array;
}

// Whether a plug-in would be loaded, if there were one of this name.
bool looks_for_plugins()
{
    std::string error;
    EXPECT_EQ(platform::load_function("no-such-plug-in", "a_function", error), nullptr);
    return error != "a forked child has to call exec first";
}

TEST(ForkedChild, UsesNothingWhateverItsParentHasUsed)
{
    notification_room const room;
    temp_dir const          folder;
    seam const              all[] = {
                     {"digest_md5", [] { return digest() == 0; }, [] { return digest() != 0; }},
                     {"derive_rc4_key", [] { return derive() == 0; }, [] { return derive() != 0; }},
                     {"rc4_crypt", [] { return crypt() == 0; }, [] { return crypt() != 0; }},
                     {"post_notification", [] { return post("object", "value") == 0; },
                      [] { return post("object", "value") == 0; }},
                     {"add_observer", [] { return listener("object").added() == 0; },
                      [] { return listener("object").added() == -1; }},
                     {"zone_offset_seconds", [] { return platform::zone_offset_seconds({}) == zone_s; },
                      [] { return platform::zone_offset_seconds({}) == 0; }},
                     {"directory_names", [&] { return lists(folder.path()); },
                      [&] { return !lists(folder.path()); }},
                     {"load_function", looks_for_plugins, [] { return !looks_for_plugins(); }},
                     {"text_array_create", has_arrays, [] { return !has_arrays(); }},
                     {"append_as_utf8", converts, [] { return !converts(); }},
                     {"attach", [] { return platform::start_provider() == 0 && attach() == 0; },
                      [] { return platform::start_provider() != 0 && attach() != 0; }},
    };
    fake::set_default_zone(zone_s);
    for (seam const& first : all) {
        for (seam const& then : all) {
            EXPECT_TRUE(in_child([&] { return first.works() && in_child(then.works_not); }))
                << first.name << ", then " << then.name;
        }
    }
    fake::reset_default_zone();
}

TEST(ForkedChild, NeitherReadsNorRemovesWhatItsParentObserves)
{
    notification_room const room;
    EXPECT_TRUE(in_child([] {
        listener   one("object");
        auto const look = [&](platform::notification_info const* info, bool found) {
            char value[16];
            return platform::notification_value(info, test_key, value, sizeof value) == found;
        };
        CFStringRef const            key  = CFSTR("the key");
        CFMutableDictionaryRef const made = CFDictionaryCreateMutable(
            nullptr, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks);
        CFDictionarySetValue(made, key, CFSTR("value"));
        auto const* const info = reinterpret_cast<platform::notification_info const*>(made);
        bool const        as_said =
            look(info, true) && in_child([&] { return look(info, false) && one.remove() == -1; });
        CFRelease(made);
        return as_said && one.remove() == 0;
    }));
}

TEST(ForkedChild, LeavesThePoolsOfItsParentAlone)
{
    EXPECT_TRUE(in_child([] {
        std::optional<platform::release_pool> pool;
        pool.emplace();
        bool const as_said = in_child([&] {
            pool.reset();
            return true;
        });
        return as_said && has_arrays();
    }));
}

// It gets its memory back, and nothing else.
TEST(ForkedChild, CanFreeTheKeyHandlesOfItsParent)
{
    EXPECT_TRUE(in_child([] {
        counting_memory memory;
        csp_session*    session   = nullptr;
        csp_key*        key       = nullptr;
        csp_key*        open      = nullptr;
        csp_key*        secret    = nullptr;
        csp_key*        own       = nullptr;
        csp_context*    cipher    = nullptr;
        csp_context*    digest    = nullptr;
        csp_context*    signature = nullptr;
        csp_buffer      value;
        csp_data const  data = {text, sizeof text};
        bool            good =
            platform::start_provider() == 0 && platform::attach(memory.functions(), session) == 0 &&
            platform::derive_key(session, data, {salt, sizeof salt}, 1000, CSSM_ALGID_RC4, 40,
                                 key) == 0 &&
            platform::make_crypt_context(session, key, cipher) == 0 &&
            platform::begin_staged_crypt(cipher, crypt_direction::encrypt) == 0 &&
            platform::make_digest_context(session, CSSM_ALGID_MD5, digest) == 0 &&
            platform::staged_digest(digest, data, nullptr) == 0 &&
            platform::generate_key_pair(session, CSSM_ALGID_RSA, 512, open, secret) == 0 &&
            platform::make_signature_context(session, open, CSSM_ALGID_SHA1WithRSA, signature) ==
                0 &&
            platform::staged_verify(signature, data, nullptr) == 0 &&
            platform::generate_exchange_pair(session, value, own) == 0;

        auto const free_all = [&] {
            for (csp_context* const each : {cipher, digest, signature}) {
                platform::free_context(each);
            }
            for (csp_key* const each : {key, open, secret, own}) {
                platform::free_key(each);
            }
            memory.functions().free_func(value.data, &memory);
            return platform::detach(session) == 0 && memory.live == 0;
        };
        good =
            good && in_child([&] {
                csp_key*      no_key     = nullptr;
                csp_key*      other      = nullptr;
                csp_context*  no_context = nullptr;
                csp_buffer    out;
                unsigned char room[sizeof text];
                std::size_t   produced = 0;
                return platform::derive_key(session, data, {salt, sizeof salt}, 1000,
                                            CSSM_ALGID_RC4, 40, no_key) != 0 &&
                       platform::make_crypt_context(session, key, no_context) != 0 &&
                       platform::staged_crypt(cipher, crypt_direction::encrypt, data, true, room,
                                              sizeof room, produced) != 0 &&
                       platform::crypt_at_once(cipher, crypt_direction::encrypt, data, out) != 0 &&
                       platform::staged_digest(digest, data, &out) != 0 &&
                       platform::digest_at_once(session, CSSM_ALGID_MD5, data, out) != 0 &&
                       platform::generate_key_pair(session, CSSM_ALGID_RSA, 512, no_key, other) !=
                           0 &&
                       platform::generate_exchange_pair(session, out, no_key) != 0 &&
                       platform::exchange_key(session, own, {value.data, value.size},
                                              CSSM_ALGID_RC4, 128, no_key) != 0 &&
                       platform::make_signature_context(session, open, CSSM_ALGID_SHA1WithRSA,
                                                        no_context) != 0 &&
                       platform::sign_at_once(session, secret, CSSM_ALGID_SHA1WithRSA, data, out) !=
                           0 &&
                       platform::staged_verify(signature, data, nullptr) != 0 && free_all();
            });
        return free_all() && good;
    }));
}

}  // namespace
}  // namespace zelieml::test
