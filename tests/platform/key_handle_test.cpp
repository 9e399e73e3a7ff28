#include "platform/key_handle.h"

#include <gtest/gtest.h>
#include <string>

#include "tests/platform/counting_provider.h"
#include "tests/support/hex.h"

namespace zelieml::platform
{

namespace
{

using test::to_hex;

using KeyHandle = test::ProviderTest;

TEST_F(KeyHandle, StartingTheProviderAgainChangesNothing)
{
    EXPECT_EQ(start_provider(), 0);
    EXPECT_EQ(start_provider(), 0);
}

TEST_F(KeyHandle, FreeingNullDoesNothing)
{
    EXPECT_EQ(detach(nullptr), 0);
    EXPECT_EQ(free_key(nullptr), 0);
    EXPECT_EQ(free_context(nullptr), 0);
}

struct digest_case {
    cssm_algorithm algorithm;
    char const*    digest;  // of "abc"
};

TEST_F(KeyHandle, DigestsAtOnceAndInPieces)
{
    // RFC 1321 and FIPS 180.
    digest_case const cases[] = {
        {CSSM_ALGID_MD5, "900150983cd24fb0d6963f7d28e17f72"},
        {CSSM_ALGID_SHA1, "a9993e364706816aba3e25717850c26c9cd0d89d"},
        {CSSM_ALGID_SHA256, "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"},
    };
    for (digest_case const& c : cases) {
        csp_buffer digest;
        ASSERT_EQ(digest_at_once(session, c.algorithm, data("abc"), digest), 0);
        std::string const whole = take(digest);
        EXPECT_EQ(to_hex(whole.data(), whole.size()), c.digest);

        csp_context* context = nullptr;
        ASSERT_EQ(make_digest_context(session, c.algorithm, context), 0);
        EXPECT_EQ(staged_digest(context, data("a"), nullptr), 0);
        EXPECT_EQ(staged_digest(context, {nullptr, 0}, nullptr), 0);
        EXPECT_EQ(staged_digest(context, data("bc"), &digest), 0);
        EXPECT_EQ(free_context(context), 0);
        EXPECT_EQ(take(digest), whole);
    }
}

TEST_F(KeyHandle, RefusesDigestsThatAreNone)
{
    csp_buffer   digest;
    csp_context* context = nullptr;
    for (cssm_algorithm const algorithm :
         {CSSM_ALGID_NONE, CSSM_ALGID_RC4, CSSM_ALGID_RSA, CSSM_ALGID_SHA1WithRSA}) {
        EXPECT_NE(digest_at_once(session, algorithm, data("abc"), digest), 0) << algorithm;
        EXPECT_NE(make_digest_context(session, algorithm, context), 0) << algorithm;
    }
    EXPECT_EQ(digest.data, nullptr);
    EXPECT_EQ(context, nullptr);
}

TEST_F(KeyHandle, EncryptsInPiecesAsAtOnce)
{
    // The published streams have keys that cannot be derived: compared with rc4_crypt instead.
    csp_key*      key = rc4_key();
    unsigned char raw_key[5];
    ASSERT_EQ(derive_rc4_key("phrase", 6, reinterpret_cast<unsigned char const*>("saltsalt"), 8,
                             1000, raw_key, 40),
              0);
    std::string const text(100, 'x');
    std::string       want(text.size(), '\0');
    ASSERT_EQ(rc4_crypt(raw_key, 5, crypt_direction::encrypt,
                        reinterpret_cast<unsigned char const*>(text.data()), text.size(),
                        reinterpret_cast<unsigned char*>(want.data())),
              0);

    csp_context* context = nullptr;
    ASSERT_EQ(make_crypt_context(session, key, context), 0);
    EXPECT_EQ(free_key(key), 0);  // the context has its own copy

    csp_buffer whole;
    EXPECT_EQ(crypt_at_once(context, crypt_direction::encrypt, data(text), whole), 0);
    EXPECT_EQ(take(whole), want);

    // Twice: beginning again begins a new text.
    for (int round = 0; round < 2; ++round) {
        EXPECT_EQ(begin_staged_crypt(context, crypt_direction::encrypt), 0);
        std::string   joined;
        unsigned char out[40];
        for (std::size_t const end : {33U, 33U, 66U, 100U}) {
            std::size_t produced = 0;
            EXPECT_EQ(staged_crypt(context, crypt_direction::encrypt,
                                   data(text.substr(joined.size(), end - joined.size())),
                                   end == 100, out, sizeof out, produced),
                      0);
            joined.append(reinterpret_cast<char const*>(out), produced);
        }
        EXPECT_EQ(joined, want);
    }
    EXPECT_EQ(free_context(context), 0);
}

TEST_F(KeyHandle, StagedStepsNeedABeginningOfTheirDirectionAndRoom)
{
    csp_key*     key     = rc4_key();
    csp_context* context = nullptr;
    ASSERT_EQ(make_crypt_context(session, key, context), 0);

    unsigned char out[4];
    std::size_t   produced = 0;
    auto const    step     = [&](crypt_direction direction, std::string const& piece, bool last) {
        return staged_crypt(context, direction, data(piece), last, out, sizeof out, produced);
    };
    EXPECT_NE(step(crypt_direction::encrypt, "x", false), 0) << "not begun";
    ASSERT_EQ(begin_staged_crypt(context, crypt_direction::decrypt), 0);
    EXPECT_NE(step(crypt_direction::encrypt, "x", false), 0) << "begun for decrypting";
    EXPECT_NE(step(crypt_direction::decrypt, "12345", false), 0) << "no room";
    EXPECT_EQ(step(crypt_direction::decrypt, "1234", true), 0);
    EXPECT_NE(step(crypt_direction::decrypt, "x", true), 0) << "after the last piece";

    EXPECT_EQ(free_context(context), 0);
    EXPECT_EQ(free_key(key), 0);
}

TEST_F(KeyHandle, RefusesKeysThatAreNoRc4Keys)
{
    csp_key* key = nullptr;
    EXPECT_NE(derive_key(session, data("p"), data("saltsalt"), 1000, CSSM_ALGID_RSA, 40, key), 0);
    EXPECT_NE(derive_key(session, data("p"), data("saltsalt"), 0, CSSM_ALGID_RC4, 40, key), 0);
    EXPECT_NE(derive_key(session, data("p"), data("saltsalt"), 1000, CSSM_ALGID_RC4, 41, key), 0);
    EXPECT_NE(derive_key(nullptr, data("p"), data("saltsalt"), 1000, CSSM_ALGID_RC4, 40, key), 0);
    EXPECT_EQ(key, nullptr);
}

TEST_F(KeyHandle, RefusesNullObjectsAndObjectsOfTheWrongKind)
{
    csp_key*      key    = rc4_key();
    csp_context*  crypt  = nullptr;
    csp_context*  digest = nullptr;
    csp_context*  none   = nullptr;
    csp_buffer    out;
    unsigned char byte     = 0;
    std::size_t   produced = 0;
    ASSERT_EQ(make_crypt_context(session, key, crypt), 0);
    ASSERT_EQ(make_digest_context(session, CSSM_ALGID_MD5, digest), 0);

    EXPECT_NE(make_crypt_context(nullptr, key, none), 0);
    EXPECT_NE(make_crypt_context(session, nullptr, none), 0);
    EXPECT_NE(make_digest_context(nullptr, CSSM_ALGID_MD5, none), 0);
    EXPECT_NE(digest_at_once(nullptr, CSSM_ALGID_MD5, data("x"), out), 0);
    for (csp_context* const wrong : {none, digest}) {
        EXPECT_NE(crypt_at_once(wrong, crypt_direction::encrypt, data("x"), out), 0);
        EXPECT_NE(begin_staged_crypt(wrong, crypt_direction::encrypt), 0);
        EXPECT_NE(
            staged_crypt(wrong, crypt_direction::encrypt, data("x"), true, &byte, 1, produced), 0);
    }
    EXPECT_NE(staged_digest(none, data("x"), &out), 0);
    EXPECT_NE(staged_digest(crypt, data("x"), &out), 0);
    EXPECT_EQ(none, nullptr);
    EXPECT_EQ(out.data, nullptr);

    EXPECT_EQ(free_context(crypt), 0);
    EXPECT_EQ(free_context(digest), 0);
    EXPECT_EQ(free_key(key), 0);
}

TEST_F(KeyHandle, WithoutMemoryNothingIsMade)
{
    csp_key*     key     = rc4_key();
    csp_context* crypt   = nullptr;
    csp_context* digest  = nullptr;
    csp_session* another = nullptr;
    csp_context* none    = nullptr;
    csp_key*     no_key  = nullptr;
    csp_buffer   out;
    ASSERT_EQ(make_crypt_context(session, key, crypt), 0);
    ASSERT_EQ(make_digest_context(session, CSSM_ALGID_MD5, digest), 0);

    memory.left = 0;
    EXPECT_NE(attach(memory.functions(), another), 0);
    EXPECT_NE(derive_key(session, data("p"), data("saltsalt"), 1000, CSSM_ALGID_RC4, 40, no_key),
              0);
    EXPECT_NE(make_crypt_context(session, key, none), 0);
    EXPECT_NE(make_digest_context(session, CSSM_ALGID_MD5, none), 0);
    EXPECT_NE(crypt_at_once(crypt, crypt_direction::decrypt, data("x"), out), 0);
    EXPECT_NE(digest_at_once(session, CSSM_ALGID_SHA1, data("x"), out), 0);
    EXPECT_NE(staged_digest(digest, data("x"), &out), 0);
    memory.left = -1;

    EXPECT_EQ(another, nullptr);
    EXPECT_EQ(no_key, nullptr);
    EXPECT_EQ(none, nullptr);
    EXPECT_EQ(out.data, nullptr);
    EXPECT_EQ(free_context(crypt), 0);
    EXPECT_EQ(free_context(digest), 0);
    EXPECT_EQ(free_key(key), 0);
}

}  // namespace
}  // namespace zelieml::platform
