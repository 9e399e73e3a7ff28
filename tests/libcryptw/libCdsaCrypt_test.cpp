// libCdsaCrypt_test.cpp - the wrappers over key handles and key pairs

#include "libcryptw/libCdsaCrypt.h"

#include <climits>
#include <cstdint>
#include <gtest/gtest.h>
#include <string>

#include "tests/support/fake_heap.h"
#include "tests/support/hex.h"

namespace zelieml
{

namespace
{

using test::to_hex;

csp_data data(std::string const& bytes)
{
    return {bytes.data(), bytes.size()};
}

// A session, at whose end every buffer has to have been given back.
class Wrappers : public ::testing::Test
{
protected:
    void SetUp() override
    {
        buffers_before        = test::live_heap_buffers();
        csp_session* attached = nullptr;
        ASSERT_EQ(cdsaCspAttach(attached), 0);
        holder.reset(attached);
    }

    void TearDown() override
    {
        holder.reset();
        EXPECT_EQ(test::live_heap_buffers(), buffers_before);
    }

    csp_session* session() const { return holder.get(); }

    // Frees a buffer of the session's and gives its bytes.
    static std::string take(csp_buffer& buffer)
    {
        std::string bytes(reinterpret_cast<char const*>(buffer.data), buffer.size);
        appFree(buffer.data, nullptr);
        buffer = {};
        return bytes;
    }

    csp_key_holder derived_key(std::string const& pass_phrase, unsigned bits = 128)
    {
        csp_key* key = nullptr;
        EXPECT_EQ(cdsaDeriveKey(session(), data(pass_phrase), data("saltsalt"), CSSM_ALGID_RC4,
                                bits, key),
                  0);
        return csp_key_holder(key);
    }

    csp_context_holder crypt_handle(csp_key_holder const& key)
    {
        csp_context* context = nullptr;
        EXPECT_EQ(genCryptHandle(session(), key.get(), context), 0);
        return csp_context_holder(context);
    }

    // The cipher text that tells keys apart.
    std::string encrypted(csp_key_holder const& key, std::string const& clear)
    {
        csp_context_holder const context = crypt_handle(key);
        csp_buffer               cipher;
        EXPECT_EQ(cdsaEncrypt(context.get(), data(clear), cipher), 0);
        return take(cipher);
    }

    std::string decrypted(csp_key_holder const& key, std::string const& cipher)
    {
        csp_context_holder const context = crypt_handle(key);
        csp_buffer               clear;
        EXPECT_EQ(cdsaDecrypt(context.get(), data(cipher), clear), 0);
        return take(clear);
    }

private:
    int                buffers_before = 0;
    csp_session_holder holder;
};

TEST(AppMemory, IsTheLibrarysHeap)
{
    int const before = test::live_heap_buffers();
    auto*     bytes  = static_cast<unsigned char*>(appMalloc(3, nullptr));
    ASSERT_NE(bytes, nullptr);
    bytes[2] = 'x';
    bytes    = static_cast<unsigned char*>(appRealloc(bytes, 3000, nullptr));
    ASSERT_NE(bytes, nullptr);
    EXPECT_EQ(bytes[2], 'x');
    EXPECT_EQ(test::live_heap_buffers(), before + 1);
    appFree(bytes, nullptr);
    appFree(nullptr, nullptr);
    EXPECT_EQ(test::live_heap_buffers(), before);
}

TEST(AppMemory, CountedBytesAreZero)
{
    auto* const bytes = static_cast<unsigned char*>(appCalloc(100, 7, nullptr));
    ASSERT_NE(bytes, nullptr);
    EXPECT_EQ(std::string(bytes, bytes + 700), std::string(700, '\0'));
    appFree(bytes, nullptr);
    void* const nothing = appCalloc(0, 8, nullptr);
    EXPECT_NE(nothing, nullptr);
    appFree(nothing, nullptr);
}

TEST(AppMemory, ACountThatOverflowsIsRefused)
{
    EXPECT_EQ(appCalloc(2, SIZE_MAX / 2 + 1, nullptr), nullptr);
    EXPECT_EQ(appCalloc(UINT32_MAX, SIZE_MAX / 2, nullptr), nullptr);
}

TEST(AppMemory, FailsWhenThereIsNone)
{
    test::fail_heap_after(0);
    EXPECT_EQ(appMalloc(1, nullptr), nullptr);
    EXPECT_EQ(appRealloc(nullptr, 1, nullptr), nullptr);
    EXPECT_EQ(appCalloc(1, 1, nullptr), nullptr);
    csp_session* session = nullptr;
    EXPECT_NE(cdsaCspAttach(session), 0);
    EXPECT_EQ(session, nullptr);
    test::fail_heap_after(-1);
}

TEST_F(Wrappers, StartUpMayBeRepeated)
{
    EXPECT_EQ(cssmStartup(), 0);
    EXPECT_EQ(cssmStartup(), 0);
}

TEST_F(Wrappers, DigestAndStagedDigestAgreeAndAChangedMessageHasAnother)
{
    csp_buffer whole;
    csp_buffer staged;
    csp_buffer changed;
    ASSERT_EQ(cdsaDigest(session(), CSSM_ALGID_MD5, data("message digest"), whole), 0);
    ASSERT_EQ(cdsaDigest(session(), CSSM_ALGID_MD5, data("message digesT"), changed), 0);

    csp_context* made = nullptr;
    ASSERT_EQ(cdsaStagedDigestInit(session(), CSSM_ALGID_MD5, made), 0);
    csp_context_holder const context(made);
    EXPECT_EQ(cdsaStagedDigest(context.get(), data("message "), nullptr), 0);
    EXPECT_EQ(cdsaStagedDigest(context.get(), data("digest"), &staged), 0);

    std::string const digest = take(whole);
    EXPECT_EQ(to_hex(digest.data(), digest.size()), "f96b697d7cb7938d525a2f31aaf161d0");
    EXPECT_EQ(take(staged), digest);
    EXPECT_NE(take(changed), digest);
}

TEST_F(Wrappers, DigestWithoutASessionIsTheSame)
{
    unsigned char digest[16];
    ASSERT_EQ(cdsaDigest2(data("abc"), digest), 0);
    EXPECT_EQ(to_hex(digest, sizeof digest), "900150983cd24fb0d6963f7d28e17f72");
}

TEST_F(Wrappers, DecryptingGivesTheClearTextAgain)
{
    csp_key_holder const key = derived_key("phrase");
    for (std::size_t const size : {0U, 1U, 999U, 5000U}) {
        std::string const clear(size, 'x');
        std::string const cipher = encrypted(key, clear);
        EXPECT_EQ(cipher.size(), size);
        EXPECT_EQ(decrypted(key, cipher), clear);
    }
}

TEST_F(Wrappers, AChangedCipherTextOrAnotherKeyGivesOtherClearText)
{
    csp_key_holder const key    = derived_key("phrase");
    std::string const    clear  = "a text to keep";
    std::string          cipher = encrypted(key, clear);
    EXPECT_NE(cipher, clear);
    EXPECT_NE(decrypted(derived_key("phrasf"), cipher), clear);
    cipher[3] = static_cast<char>(cipher[3] ^ 1);
    EXPECT_NE(decrypted(key, cipher), clear);
}

TEST_F(Wrappers, StagedEncryptionAndDecryptionAgreeWithTheOneShotForms)
{
    csp_key_holder const     key     = derived_key("phrase");
    csp_context_holder const context = crypt_handle(key);
    std::string const        clear   = "first piece, second piece, third";
    std::string const        cipher  = encrypted(key, clear);

    auto const in_pieces = [&](auto step, crypt_direction direction, std::string const& text) {
        EXPECT_EQ(cdsaStagedEncDecrInit(context.get(), direction), 0);
        std::string joined;
        for (std::size_t at = 0; at < text.size(); at += 13) {
            std::string const piece = text.substr(at, 13);
            unsigned char     out[21];
            std::size_t       produced = 0;
            EXPECT_EQ(
                step(context.get(), data(piece), at + 13 >= text.size(), out, sizeof out, produced),
                0);
            joined.append(reinterpret_cast<char const*>(out), produced);
        }
        return joined;
    };
    EXPECT_EQ(in_pieces(cdsaStagedEncrypt, crypt_direction::encrypt, clear), cipher);
    EXPECT_EQ(in_pieces(cdsaStagedDecrypt, crypt_direction::decrypt, cipher), clear);

    std::string tampered = cipher;
    tampered[20]         = static_cast<char>(tampered[20] ^ 0x80);
    EXPECT_NE(in_pieces(cdsaStagedDecrypt, crypt_direction::decrypt, tampered), clear);
}

TEST_F(Wrappers, DerivedKeysDependOnPassPhraseSaltAndSize)
{
    std::string const text(16, '\0');
    std::string const stream = encrypted(derived_key("phrase"), text);
    EXPECT_EQ(encrypted(derived_key("phrase"), text), stream);
    EXPECT_NE(encrypted(derived_key("phrase "), text), stream);
    EXPECT_NE(encrypted(derived_key("phrase", 40), text), stream);

    csp_key* other_salt = nullptr;
    ASSERT_EQ(
        cdsaDeriveKey(session(), data("phrase"), data("SaltSalt"), CSSM_ALGID_RC4, 128, other_salt),
        0);
    EXPECT_NE(encrypted(csp_key_holder(other_salt), text), stream);
}

TEST_F(Wrappers, DerivationWithoutASessionGivesTheSameKey)
{
    unsigned char key[16];
    ASSERT_EQ(cdsaDeriveKey2(data("phrase"), reinterpret_cast<unsigned char const*>("saltsalt"), 8,
                             128, key),
              0);
    unsigned char       stream[16];
    unsigned char const zeros[16] = {};
    ASSERT_EQ(
        platform::rc4_crypt(key, sizeof key, crypt_direction::encrypt, zeros, sizeof zeros, stream),
        0);
    EXPECT_EQ(encrypted(derived_key("phrase"), std::string(16, '\0')),
              std::string(stream, stream + sizeof stream));
}

// ---- key pairs

class KeyPairs : public Wrappers
{
protected:
    void SetUp() override
    {
        Wrappers::SetUp();
        csp_key* made_public  = nullptr;
        csp_key* made_private = nullptr;
        ASSERT_EQ(cdsaGenerateKeyPair(session(), CSSM_ALGID_RSA, 1024, made_public, made_private),
                  0);
        public_key.reset(made_public);
        private_key.reset(made_private);
    }

    void TearDown() override
    {
        public_key.reset();
        private_key.reset();
        Wrappers::TearDown();
    }

    std::string signed_text(cssm_algorithm algorithm, std::string const& text)
    {
        csp_buffer signature;
        EXPECT_EQ(cdsaSign(session(), private_key.get(), algorithm, data(text), signature), 0);
        return take(signature);
    }

    csp_key_holder public_key;
    csp_key_holder private_key;
};

constexpr cssm_algorithm signature_algorithms[] = {CSSM_ALGID_SHA1WithRSA,
                                                   CSSM_ALGID_SHA256WithRSA};

TEST_F(KeyPairs, ASignatureFitsOnlyItsMessageItsKeyAndItsAlgorithm)
{
    csp_key* other_public  = nullptr;
    csp_key* other_private = nullptr;
    ASSERT_EQ(cdsaGenerateKeyPair(session(), CSSM_ALGID_RSA, 1024, other_public, other_private), 0);
    csp_key_holder const hold_public(other_public);
    csp_key_holder const hold_private(other_private);

    for (cssm_algorithm const algorithm : signature_algorithms) {
        std::string const signature = signed_text(algorithm, "a text");
        auto const        check     = [&](csp_key* key, cssm_algorithm by, std::string const& text,
                               std::string const& bytes) {
            return cdsaVerify(session(), key, by, data(text), data(bytes));
        };
        EXPECT_EQ(check(public_key.get(), algorithm, "a text", signature), 0);
        EXPECT_NE(check(public_key.get(), algorithm, "a texT", signature), 0);
        EXPECT_NE(check(public_key.get(), algorithm, "", signature), 0);
        EXPECT_NE(check(other_public, algorithm, "a text", signature), 0);
        cssm_algorithm const other =
            algorithm == CSSM_ALGID_SHA1WithRSA ? CSSM_ALGID_SHA256WithRSA : CSSM_ALGID_SHA1WithRSA;
        EXPECT_NE(check(public_key.get(), other, "a text", signature), 0);
        std::string tampered = signature;
        tampered[100]        = static_cast<char>(tampered[100] ^ 1);
        EXPECT_NE(check(public_key.get(), algorithm, "a text", tampered), 0);
    }
}

TEST_F(KeyPairs, StagedSigningAndVerifyingAgreeWithTheOneShotForms)
{
    for (cssm_algorithm const algorithm : signature_algorithms) {
        csp_context* made = nullptr;
        ASSERT_EQ(cdsaStagedSignVerifyInit(session(), private_key.get(), algorithm, made), 0);
        csp_context_holder const signing(made);
        csp_buffer               buffer;
        EXPECT_EQ(cdsaStagedSign(signing.get(), data("first, "), nullptr), 0);
        EXPECT_EQ(cdsaStagedSign(signing.get(), data("second"), &buffer), 0);
        std::string const signature = take(buffer);
        EXPECT_EQ(signature, signed_text(algorithm, "first, second"));

        ASSERT_EQ(cdsaStagedSignVerifyInit(session(), public_key.get(), algorithm, made), 0);
        csp_context_holder const verifying(made);
        csp_data const           claimed = data(signature);
        EXPECT_EQ(cdsaStagedVerify(verifying.get(), data("first, sec"), nullptr), 0);
        EXPECT_EQ(cdsaStagedVerify(verifying.get(), data("ond"), &claimed), 0);
        EXPECT_EQ(cdsaStagedVerify(verifying.get(), data("first, sec"), nullptr), 0);
        EXPECT_NE(cdsaStagedVerify(verifying.get(), data("onD"), &claimed), 0);
    }
}

TEST_F(Wrappers, BothSidesOfAnExchangeGetTheSameKey)
{
    csp_buffer here_buffer;
    csp_buffer there_buffer;
    csp_key*   made = nullptr;
    ASSERT_EQ(cdsaDhGenerateKeyPair(session(), here_buffer, made), 0);
    csp_key_holder const here(made);
    ASSERT_EQ(cdsaDhGenerateKeyPair(session(), there_buffer, made), 0);
    csp_key_holder const there(made);
    std::string const    here_value  = take(here_buffer);
    std::string const    there_value = take(there_buffer);
    EXPECT_NE(here_value, there_value);

    std::string const zeros(64, '\0');
    auto const        stream = [&](csp_key_holder const& own, std::string const& value) {
        csp_key* key = nullptr;
        EXPECT_EQ(cdsaDhKeyExchange(session(), own.get(), data(value), CSSM_ALGID_RC4, 128, key),
                         0);
        return encrypted(csp_key_holder(key), zeros);
    };
    std::string const agreed = stream(here, there_value);
    EXPECT_EQ(stream(there, here_value), agreed);

    std::string tampered = there_value;
    tampered[7]          = static_cast<char>(tampered[7] ^ 1);
    EXPECT_NE(stream(here, tampered), agreed);
    EXPECT_NE(stream(here, here_value), agreed);
}

}  // namespace
}  // namespace zelieml
