#include <gtest/gtest.h>
#include <string>

#include "platform/key_handle.h"
#include "tests/platform/counting_provider.h"
#include "tests/support/skip.h"

namespace zelieml::platform
{

namespace
{

constexpr unsigned rsa_bits = 1024;

class KeyPair : public test::ProviderTest
{
protected:
    void SetUp() override
    {
        ProviderTest::SetUp();
        ASSERT_EQ(generate_key_pair(session, CSSM_ALGID_RSA, rsa_bits, public_key, private_key), 0);
    }

    void TearDown() override
    {
        EXPECT_EQ(free_key(public_key), 0);
        EXPECT_EQ(free_key(private_key), 0);
        ProviderTest::TearDown();
    }

    csp_key* public_key  = nullptr;
    csp_key* private_key = nullptr;
};

TEST_F(KeyPair, ASignatureHasTheSizeOfTheKey)
{
    csp_buffer signature;
    ASSERT_EQ(sign_at_once(session, private_key, CSSM_ALGID_SHA256WithRSA, data("text"), signature),
              0);
    EXPECT_EQ(take(signature).size(), rsa_bits / 8);
}

TEST_F(KeyPair, ASignatureOfTheWrongSizeIsRefused)
{
    csp_buffer signature;
    ASSERT_EQ(sign_at_once(session, private_key, CSSM_ALGID_SHA256WithRSA, data("text"), signature),
              0);
    std::string const right = take(signature);
    auto const        check = [&](std::string const& bytes) {
        return verify_at_once(session, public_key, CSSM_ALGID_SHA256WithRSA, data("text"),
                                     data(bytes));
    };
    EXPECT_EQ(check(right), 0);
    EXPECT_NE(check(""), 0);
    EXPECT_NE(check(right.substr(1)), 0);
    EXPECT_NE(check('\0' + right), 0);
    EXPECT_NE(check(std::string(right.size(), '\xff')), 0) << "above the modulus";
}

TEST_F(KeyPair, EachKeyHasItsOwnUse)
{
    csp_key*     symmetric = rc4_key();
    csp_context* signing   = nullptr;
    csp_context* verifying = nullptr;
    csp_context* none      = nullptr;
    csp_key*     no_key    = nullptr;
    csp_buffer   out;
    csp_data     text = data("text");
    ASSERT_EQ(make_signature_context(session, private_key, CSSM_ALGID_SHA1WithRSA, signing), 0);
    ASSERT_EQ(make_signature_context(session, public_key, CSSM_ALGID_SHA1WithRSA, verifying), 0);

    EXPECT_NE(sign_at_once(session, public_key, CSSM_ALGID_SHA1WithRSA, text, out), 0);
    EXPECT_NE(verify_at_once(session, private_key, CSSM_ALGID_SHA1WithRSA, text, text), 0);
    EXPECT_NE(staged_sign(verifying, text, &out), 0);
    EXPECT_NE(staged_verify(signing, text, &text), 0);
    EXPECT_NE(staged_digest(signing, text, &out), 0);
    for (csp_key* const wrong : {no_key, symmetric}) {
        EXPECT_NE(make_signature_context(session, wrong, CSSM_ALGID_SHA1WithRSA, none), 0);
        EXPECT_NE(
            exchange_key(session, wrong, data(std::string(32, 'x')), CSSM_ALGID_RC4, 40, no_key),
            0);
    }
    EXPECT_NE(make_crypt_context(session, private_key, none), 0);
    EXPECT_NE(make_signature_context(nullptr, private_key, CSSM_ALGID_SHA1WithRSA, none), 0);
    EXPECT_NE(make_signature_context(session, private_key, CSSM_ALGID_MD5, none), 0);
    EXPECT_NE(staged_sign(nullptr, text, &out), 0);
    EXPECT_NE(staged_verify(nullptr, text, &text), 0);
    EXPECT_EQ(out.data, nullptr);
    EXPECT_EQ(none, nullptr);
    EXPECT_EQ(no_key, nullptr);

    EXPECT_EQ(free_context(signing), 0);
    EXPECT_EQ(free_context(verifying), 0);
    EXPECT_EQ(free_key(symmetric), 0);
}

struct refused_pair {
    char const*    reason;
    cssm_algorithm algorithm;
    unsigned       key_bits;
};

TEST_F(KeyPair, RefusesPairsThatItCannotMake)
{
    refused_pair const cases[] = {
        {"not for signatures", CSSM_ALGID_RC4, rsa_bits},
        {"no bits", CSSM_ALGID_RSA, 0},
        {"too small for a signature", CSSM_ALGID_RSA, 511},
        {"takes for ever", CSSM_ALGID_RSA, 16385},
    };
    for (refused_pair const& c : cases) {
        csp_key* one   = nullptr;
        csp_key* other = nullptr;
        EXPECT_NE(generate_key_pair(session, c.algorithm, c.key_bits, one, other), 0) << c.reason;
        EXPECT_EQ(one, nullptr);
        EXPECT_EQ(other, nullptr);
    }
}

struct refused_exchange {
    char const*    reason;
    std::string    public_value;
    cssm_algorithm algorithm;
    unsigned       key_bits;
};

TEST_F(KeyPair, RefusesExchangesThatGiveNoKey)
{
    csp_buffer own_value;
    csp_key*   own = nullptr;
    ASSERT_EQ(generate_exchange_pair(session, own_value, own), 0);
    std::string const value = take(own_value);
    ASSERT_GE(value.size(), 32U);

    refused_exchange const cases[] = {
        {"no public value", "", CSSM_ALGID_RC4, 40},
        {"a value that makes the same secret with every key", std::string(value.size(), '\0'),
         CSSM_ALGID_RC4, 40},
        {"not a symmetric key", value, CSSM_ALGID_RSA, 40},
        {"no bits", value, CSSM_ALGID_RC4, 0},
        {"half a byte", value, CSSM_ALGID_RC4, 44},
        {"more than the exchange gives", value, CSSM_ALGID_RC4, 264},
    };
    for (refused_exchange const& c : cases) {
        csp_key* key = nullptr;
        EXPECT_NE(exchange_key(session, own, data(c.public_value), c.algorithm, c.key_bits, key), 0)
            << c.reason;
        EXPECT_EQ(key, nullptr);
    }
    EXPECT_EQ(free_key(own), 0);
}

TEST_F(KeyPair, RefusesExchangesWithAValueOfAnotherSize)
{
    SKIP_UNLESS(test::has_backend("linux"), "which sizes macOS takes is for its provider to say");
    csp_buffer own_value;
    csp_key*   own = nullptr;
    csp_key*   key = nullptr;
    ASSERT_EQ(generate_exchange_pair(session, own_value, own), 0);
    std::string const value = take(own_value);
    ASSERT_EQ(value.size(), 32U);
    EXPECT_NE(exchange_key(session, own, data(value.substr(1)), CSSM_ALGID_RC4, 40, key), 0);
    EXPECT_NE(exchange_key(session, own, data(value + "x"), CSSM_ALGID_RC4, 40, key), 0);
    EXPECT_EQ(key, nullptr);
    EXPECT_EQ(free_key(own), 0);
}

TEST_F(KeyPair, WithoutMemoryNothingIsMade)
{
    csp_buffer   value;
    csp_key*     own     = nullptr;
    csp_context* signing = nullptr;
    csp_context* none    = nullptr;
    csp_key*     key     = nullptr;
    csp_key*     other   = nullptr;
    csp_buffer   out;
    ASSERT_EQ(generate_exchange_pair(session, value, own), 0);
    std::string const peer = take(value);
    ASSERT_EQ(make_signature_context(session, private_key, CSSM_ALGID_SHA1WithRSA, signing), 0);

    for (int const granted : {0, 1}) {
        memory.left = granted;
        EXPECT_NE(generate_key_pair(session, CSSM_ALGID_RSA, rsa_bits, key, other), 0) << granted;
        memory.left = granted;
        EXPECT_NE(generate_exchange_pair(session, out, key), 0) << granted;
        memory.left = granted;
        EXPECT_NE(sign_at_once(session, private_key, CSSM_ALGID_SHA1WithRSA, data("text"), out), 0)
            << granted;
    }
    memory.left = 0;
    EXPECT_NE(make_signature_context(session, private_key, CSSM_ALGID_SHA1WithRSA, none), 0);
    EXPECT_NE(staged_sign(signing, data("text"), &out), 0);
    EXPECT_NE(exchange_key(session, own, data(peer), CSSM_ALGID_RC4, 40, key), 0);
    EXPECT_NE(generate_key_pair(nullptr, CSSM_ALGID_RSA, rsa_bits, key, other), 0);
    EXPECT_NE(generate_exchange_pair(nullptr, out, key), 0);
    memory.left = -1;

    EXPECT_EQ(key, nullptr);
    EXPECT_EQ(other, nullptr);
    EXPECT_EQ(none, nullptr);
    EXPECT_EQ(out.data, nullptr);
    EXPECT_EQ(free_context(signing), 0);
    EXPECT_EQ(free_key(own), 0);
}

}  // namespace
}  // namespace zelieml::platform
