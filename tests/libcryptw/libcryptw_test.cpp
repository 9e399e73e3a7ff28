// libcryptw_test.cpp - digests, encryption with a pass phrase, stored passwords

#include "libcryptw/libcryptw.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "libetc/libetc.h"
#include "tests/libcryptw/passwords.h"
#include "tests/support/bytes_of.h"
#include "tests/support/fake_heap.h"
#include "tests/support/files.h"
#include "tests/support/hex.h"
#include "tests/support/skip.h"
#include "tests/support/slot.h"
#include "tests/support/trace_recorder.h"

namespace zelieml
{

namespace
{

using std::string_literals::operator""s;
using test::bytes_of;
using test::from_hex;
using test::password_of;
using test::result;
using test::stored_form;
using test::to_hex;
using strings = std::vector<std::string>;

// The bytes of a buffer, which is given back; nothing for null.
result take(unsigned char* buffer, std::size_t size)
{
    if (buffer == nullptr) {
        return std::nullopt;
    }
    std::string bytes(reinterpret_cast<char const*>(buffer), size);
    icryptw().free(buffer);
    return bytes;
}

result hex_of(result const& bytes)
{
    return bytes ? result(to_hex(bytes->data(), bytes->size())) : std::nullopt;
}

result md5(std::string const& text)
{
    return hex_of(take(icryptw().md5(bytes_of(text), text.size()), 16));
}

result hmac(std::string const& key, std::string const& text)
{
    return hex_of(
        take(icryptw().hmac_md5(bytes_of(key), key.size(), bytes_of(text), text.size()), 16));
}

result md5hexstr(std::string const& text)
{
    icryptw              crypt;
    unsigned char* const hex = crypt.md5hexstr(bytes_of(text), text.size());
    if (hex == nullptr) {
        return std::nullopt;
    }
    std::string digits = reinterpret_cast<char const*>(hex);
    crypt.md5hexstr_free(hex);
    return digits;
}

// The length that a function of this kind leaves alone when it fails.
constexpr unsigned long untouched = 4711;

template <class Function>
result crypted(Function&& function, std::string const& pass_phrase, std::string const& data)
{
    unsigned long len    = untouched;
    auto* const   buffer = function(pass_phrase.c_str(), bytes_of(data), data.size(), &len);
    if (buffer == nullptr) {
        EXPECT_EQ(len, untouched);
        return std::nullopt;
    }
    return take(buffer, len);
}

result slot_encrypt(std::string const& pass_phrase, std::string const& data)
{
    return crypted([](auto... args) { return icryptw().encrypt(args...); }, pass_phrase, data);
}

result slot_decrypt(std::string const& pass_phrase, std::string const& data)
{
    return crypted([](auto... args) { return icryptw().decrypt(args...); }, pass_phrase, data);
}

// Every test gives back what it was given.
class Crypt : public ::testing::Test
{
protected:
    void SetUp() override
    {
        buffers_before = test::live_heap_buffers();
        test::clear_traces();
    }

    void TearDown() override
    {
        test::fail_heap_after(-1);
        EXPECT_EQ(test::live_heap_buffers(), buffers_before);
    }

private:
    int buffers_before = 0;
};

struct digest_case {
    std::string text;
    char const* digest;
};

TEST_F(Crypt, Md5GivesTheDigestsOfRfc1321)
{
    digest_case const cases[] = {
        {"", "d41d8cd98f00b204e9800998ecf8427e"},
        {"abc", "900150983cd24fb0d6963f7d28e17f72"},
        {"message digest", "f96b697d7cb7938d525a2f31aaf161d0"},
        {"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789",
         "d174ab98d277d9f5a5611c2c9f419d9f"},
    };
    for (digest_case const& c : cases) {
        EXPECT_EQ(md5(c.text), c.digest) << c.text;
    }
}

TEST_F(Crypt, Md5HexIsTheDigestInUpperCase)
{
    EXPECT_EQ(md5hexstr("abc"), "900150983CD24FB0D6963F7D28E17F72");
    EXPECT_EQ(md5hexstr(""), "D41D8CD98F00B204E9800998ECF8427E");
    EXPECT_NE(md5hexstr("a\0b"s), md5hexstr("a")) << "length counts, not a NUL";
}

struct hmac_case {
    std::string key;
    std::string text;
    char const* digest;
};

TEST_F(Crypt, HmacGivesTheDigestsOfRfc2202)
{
    hmac_case const cases[] = {
        {std::string(16, '\x0b'), "Hi There", "9294727a3638bb1c13f48ef8158bfc9d"},
        {"Jefe", "what do ya want for nothing?", "750c783e6ab0b503eaa86e310a5db738"},
        {std::string(16, '\xaa'), std::string(50, '\xdd'), "56be34521d144c88dbb8c733f0e8b3f6"},
        {from_hex("0102030405060708090a0b0c0d0e0f10111213141516171819"), std::string(50, '\xcd'),
         "697eaf0aca3a3aea3a75164746ffaa79"},
        {std::string(16, '\x0c'), "Test With Truncation", "56461ef2342edc00f9bab995690efd4c"},
        {std::string(80, '\xaa'), "Test Using Larger Than Block-Size Key - Hash Key First",
         "6b1ab7fe4bd7bf8f0b62e6ce61b9d0cd"},
        {std::string(80, '\xaa'),
         "Test Using Larger Than Block-Size Key and Larger Than One Block-Size Data",
         "6f630fad67cda0ee1fb1f562db3aa53e"},
    };
    for (hmac_case const& c : cases) {
        EXPECT_EQ(hmac(c.key, c.text), c.digest) << c.text;
    }
}

TEST_F(Crypt, HmacGivesTheDigestOfRfc2195)
{
    EXPECT_EQ(hmac("tanstaaftanstaaf", "<1896.697170952@postoffice.reston.mci.net>"),
              "b913a602c7eda7a495b4e6e7334d3890");
}

TEST_F(Crypt, HmacOfALongKeyUsesTheDigestOfItsText)
{
    std::string const text = "text";
    std::string const key(80, 'k');
    EXPECT_EQ(hmac(key, text), hmac(*take(icryptw().md5(bytes_of(key), 80), 16), text));

    // Up to its NUL, not of its 80 bytes: what comes after a NUL does not count.
    std::string const with_nul = key.substr(0, 20) + '\0' + key.substr(21);
    EXPECT_EQ(hmac(with_nul, text), hmac(*take(icryptw().md5(bytes_of(key), 20), 16), text));

    // The key length only decides whether the key is digested; its NUL decides how much of it.
    EXPECT_EQ(hex_of(take(icryptw().hmac_md5(bytes_of(key), 65, bytes_of(text), 4), 16)),
              hmac(key, text));
}

TEST_F(Crypt, HmacTakesKeysOfUpTo64BytesAsTheyAre)
{
    std::string const full(64, 'k');
    EXPECT_NE(hmac(full, "text"), hmac(*take(icryptw().md5(bytes_of(full), 64), 16), "text"));
    EXPECT_EQ(hmac("k\0l"s, "text"), hmac("k\0l\0\0"s, "text")) << "padded with zeros";
    EXPECT_NE(hmac("k\0l"s, "text"), hmac("k", "text")) << "a short key counts to its last byte";
    EXPECT_EQ(hmac("", ""), "74e6f7298a9c2d168935f58c001bad88");
}

TEST_F(Crypt, HmacRefusesAMessageThatIsLongerThanMemory)
{
    EXPECT_EQ(icryptw().hmac_md5(bytes_of("k"), 1, bytes_of("t"), static_cast<unsigned long>(-1)),
              nullptr);
    EXPECT_EQ(icryptw().hmac_md5(bytes_of("k"), 1, bytes_of("t"), static_cast<unsigned long>(-64)),
              nullptr);
}

TEST_F(Crypt, InitDoesNothing)
{
    EXPECT_EQ(icryptw().init(), 0);
}

TEST_F(Crypt, FreesNull)
{
    icryptw crypt;
    crypt.free(nullptr);
    crypt.encrypt_free_passwd(nullptr);
    crypt.decrypt_free_passwd(nullptr);
    crypt.md5hexstr_free(nullptr);
}

TEST_F(Crypt, TheImplementationHasNoState)
{
    EXPECT_EQ(sizeof(icryptw), sizeof(icrypt));
    EXPECT_TRUE(std::is_final_v<icryptw>);
}

// ---- encryption with any pass phrase

TEST_F(Crypt, EncryptsToTheSameBytesOnEverySystem)
{
    // PBKDF2-HMAC-SHA1 of "phrase" with its MD5 as salt, 1000 rounds, 5 bytes, RC4; on any system.
    EXPECT_EQ(hex_of(crypted(encrypt2, "phrase", "secret")), "accc4a4bd8d1");
    EXPECT_EQ(hex_of(slot_encrypt("phrase", "secret")), "accc4a4bd8d1");

    unsigned long        len    = 0;
    unsigned char* const cipher = encrypt2("phrase", bytes_of("secret"), 6, &len);
    binhex_buffer const  hex(etc_bin2hexstr(cipher, static_cast<int>(len)));
    EXPECT_STREQ(reinterpret_cast<char const*>(hex.get()), "ACCC4A4BD8D1");
    icryptw().free(cipher);
}

TEST_F(Crypt, BothPathsReadEachOtherAtEverySize)
{
    for (std::size_t const size : {0U, 1U, 7U, 999U, 1000U, 1001U, 2000U, 2500U, 10007U}) {
        std::string clear;
        while (clear.size() < size) {
            clear += static_cast<char>(clear.size() * 31 >> 3);
        }
        result const cipher = slot_encrypt("phrase", clear);
        ASSERT_TRUE(cipher) << size;
        EXPECT_EQ(cipher->size(), size);
        EXPECT_EQ(crypted(encrypt2, "phrase", clear), cipher) << size;
        EXPECT_EQ(slot_decrypt("phrase", *cipher), clear) << size;
        EXPECT_EQ(crypted(decrypt2, "phrase", *cipher), clear) << size;
    }
}

TEST_F(Crypt, AChangedCipherTextOrAnotherPassPhraseGivesOtherClearText)
{
    std::string const clear  = "a text to keep";
    std::string       cipher = *crypted(encrypt2, "phrase", clear);
    EXPECT_NE(crypted(decrypt2, "phrasE", cipher), clear);
    EXPECT_NE(slot_decrypt("phrasE", cipher), clear);
    EXPECT_NE(crypted(decrypt2, get_passwdkey(), cipher), clear);
    cipher[0] = static_cast<char>(cipher[0] ^ 1);
    EXPECT_NE(crypted(decrypt2, "phrase", cipher), clear);
    EXPECT_NE(slot_decrypt("phrase", cipher), clear);
}

TEST_F(Crypt, AnEmptyPassPhraseIsAccepted)
{
    result const cipher = crypted(encrypt2, "", "secret");
    ASSERT_TRUE(cipher);
    EXPECT_EQ(slot_decrypt("", *cipher), "secret");
}

TEST_F(Crypt, RefusesNull)
{
    icryptw              crypt;
    unsigned char const* data = bytes_of("x");
    unsigned long        len  = untouched;
    EXPECT_EQ(crypt.md5(nullptr, 0), nullptr);
    EXPECT_EQ(crypt.md5hexstr(nullptr, 3), nullptr);
    EXPECT_EQ(test::trouble_traces(),
              (strings{"error:cdsaCspAttach", "error:cdsaCspAttach", "error:digest_message"}));
    EXPECT_EQ(crypt.hmac_md5(nullptr, 0, data, 1), nullptr);
    EXPECT_EQ(crypt.hmac_md5(data, 1, nullptr, 0), nullptr);

    for (auto* const function : {encrypt2, decrypt2}) {
        EXPECT_EQ(function(nullptr, data, 1, &len), nullptr);
        EXPECT_EQ(function("phrase", nullptr, 0, &len), nullptr);
        EXPECT_EQ(function("phrase", data, 1, nullptr), nullptr);
    }
    EXPECT_EQ(crypt.encrypt(nullptr, data, 1, &len), nullptr);
    EXPECT_EQ(crypt.encrypt("phrase", nullptr, 0, &len), nullptr);
    EXPECT_EQ(crypt.encrypt("phrase", data, 1, nullptr), nullptr);
    EXPECT_EQ(crypt.decrypt(nullptr, data, 1, &len), nullptr);
    EXPECT_EQ(crypt.decrypt("phrase", nullptr, 0, &len), nullptr);
    EXPECT_EQ(crypt.decrypt("phrase", data, 1, nullptr), nullptr);
    EXPECT_EQ(zelieml::crypt(nullptr, 5, data, 1, crypt_direction::encrypt), nullptr);
    EXPECT_EQ(zelieml::crypt(data, 1, nullptr, 1, crypt_direction::encrypt), nullptr);
    EXPECT_EQ(zelieml::crypt(data, 0, data, 1, crypt_direction::encrypt), nullptr) << "no key";
    EXPECT_EQ(len, untouched);

    test::clear_traces();
    EXPECT_EQ(crypt.encrypt_passwd(nullptr), nullptr);
    EXPECT_EQ(crypt.decrypt_passwd(nullptr), nullptr);
    EXPECT_EQ(test::trouble_traces(), (strings{"error:encrypt", "error:etc_hexstr2bin"}));
}

TEST_F(Crypt, AStagedStepThatFailsIsNamedByItsDirection)
{
    csp_session* attached = nullptr;
    ASSERT_EQ(cdsaCspAttach(attached), 0);
    csp_session_holder const session(attached);
    csp_key*                 derived = nullptr;
    ASSERT_EQ(cdsaDeriveKey(session.get(), {"p", 1}, {"saltsalt", 8}, CSSM_ALGID_RC4, 40, derived),
              0);
    csp_key_holder const key(derived);
    csp_context*         made = nullptr;
    ASSERT_EQ(genCryptHandle(session.get(), key.get(), made), 0);
    csp_context_holder const context(made);  // not begun

    unsigned long len = untouched;
    EXPECT_EQ(_crypt_raw(context.get(), bytes_of("x"), 1, &len, crypt_direction::encrypt), nullptr);
    EXPECT_EQ(test::trouble_traces(), strings{"error:cdsaStagedEncrypt"});
    test::clear_traces();
    EXPECT_EQ(_crypt_raw(context.get(), bytes_of("x"), 1, &len, crypt_direction::decrypt), nullptr);
    EXPECT_EQ(test::trouble_traces(), strings{"error:CryptEncrypt"});
    EXPECT_EQ(_crypt(session.get(), nullptr, bytes_of("x"), 1, &len, crypt_direction::encrypt),
              nullptr);
    EXPECT_EQ(len, untouched);
}

// ---- stored passwords

TEST_F(Crypt, ScramblingTakesTheOffsetAndUnscramblingGivesItBack)
{
    char text[] = "dfh";
    unhide_str(text);
    EXPECT_STREQ(text, "gik");
    hide_str(text);
    EXPECT_STREQ(text, "dfh");
    char empty[] = "";
    unhide_str(empty);
    hide_str(empty);
    EXPECT_STREQ(empty, "");
}

TEST_F(Crypt, ThePassPhraseIsAlwaysTheSameAndReadable)
{
    std::string const pass_phrase = get_passwdkey();
    EXPECT_GE(pass_phrase.size(), 16U);
    EXPECT_TRUE(std::all_of(pass_phrase.begin(), pass_phrase.end(), [](char byte) {
        return byte > ' ' && byte < '\x7f';
    })) << "UTF-8 in any case";
    EXPECT_EQ(get_passwdkey(), pass_phrase);
}

TEST_F(Crypt, ThePassPhraseIsNotReadableInTheLibrary)
{
    constexpr std::size_t window      = 8;  // shorter ones are in other words too
    std::string const     library     = test::read_file(ZELIEML_ARCHIVE);
    std::string const     pass_phrase = get_passwdkey();
    for (std::size_t at = 0; at + window <= pass_phrase.size(); ++at) {
        EXPECT_EQ(library.find(pass_phrase.substr(at, window)), std::string::npos) << at;
    }
    ASSERT_NE(library.find("error:cdsaCspAttach"), std::string::npos) << "not the library";
}

TEST_F(Crypt, AStoredPasswordHasTwoUpperCaseDigitsForEachByte)
{
    for (std::size_t size = 1; size < 100; ++size) {
        std::string const password(size, static_cast<char>(' ' + size));
        result const      stored = stored_form(password);
        ASSERT_TRUE(stored);
        EXPECT_EQ(stored->size(), 2 * size);
        EXPECT_EQ(stored->find_first_not_of("0123456789ABCDEF"), std::string::npos);
        EXPECT_EQ(password_of(*stored), password);
    }
}

TEST_F(Crypt, APasswordOfAnyBytesComesBack)
{
    std::string password;
    for (int byte = 1; byte < 256; ++byte) {
        password += static_cast<char>(byte);
    }
    EXPECT_EQ(password_of(*stored_form(password)), password);
}

TEST_F(Crypt, TheSamePasswordHasTheSameStoredForm)
{
    result const stored = stored_form("secret");
    EXPECT_EQ(stored_form("secret"), stored);
    EXPECT_NE(stored_form("Secret"), stored);

    // It depends on the pass phrase alone. It must not change: settings files hold it.
    EXPECT_EQ(hex_of(crypted(encrypt2, get_passwdkey(), "secret")), "dbaaffa61b45");
    EXPECT_EQ(stored, "DBAAFFA61B45");
    EXPECT_EQ(slot_encrypt(get_passwdkey(), "secret"), from_hex("dbaaffa61b45"));
}

TEST_F(Crypt, TheEmptyPasswordHasNoStoredForm)
{
    EXPECT_EQ(stored_form(""), std::nullopt);
    EXPECT_EQ(test::trouble_traces(), strings{"error:etc_bin2hexstr"});
}

struct stored_case {
    char const* reason;
    std::string stored;
    result      same_as;  // has the password of this stored form
};

TEST_F(Crypt, AnyPairsOfCharactersDecryptToSomething)
{
    stored_case const cases[] = {
        {"lower case is read too", "dbaaffa61b45", "DBAAFFA61B45"},
        {"a character that is no digit counts as 0", "DBAAFFA61B45G?", "DBAAFFA61B4500"},
        {"a byte of 255 counts as 0", "\xff\xff", "00"},
        {"the empty string is the empty password", "", ""},
    };
    for (stored_case const& c : cases) {
        ASSERT_TRUE(password_of(c.stored)) << c.reason;
        EXPECT_EQ(password_of(c.stored), password_of(*c.same_as)) << c.reason;
    }
    EXPECT_EQ(password_of(""), "");
    EXPECT_NE(password_of("DBAAFFA61B46"), "secret") << "tampered with";
}

TEST_F(Crypt, AnOddNumberOfDigitsIsRefused)
{
    EXPECT_EQ(password_of("DBA"), std::nullopt);
    EXPECT_EQ(test::trouble_traces(), strings{"error:etc_hexstr2bin"});
}

// ---- without memory

struct memory_case {
    char const* name;
    result (*call)();
    std::vector<strings> told;  // with 0, 1, 2... requests granted; then it works
};

TEST_F(Crypt, WithoutMemoryEachFunctionSaysWhereItFailed)
{
    SKIP_UNLESS(test::has_backend("linux"),
                "the traces are those of the requests for memory on Linux; macOS makes others");
    strings const     attach  = {"error:cdsaCspAttach"};
    strings const     digest  = {"error:cdsaCspAttach", "error:digest_message"};
    memory_case const cases[] = {
        {"md5", [] { return md5("abc"); }, {attach, attach}},
        {"md5hexstr", [] { return md5hexstr("abc"); }, {digest, digest, {"error:etc_bin2hexstr"}}},
        // The pads, then session and digest, twice.
        {"hmac_md5", [] { return hmac("key", "text"); }, {{}, attach, attach, attach, attach}},
        {"hmac_md5 of a long key",
         [] { return hmac(std::string(80, 'k'), "text"); },
         {attach, attach, {}, attach, attach, attach, attach}},
        {"encrypt_passwd",
         [] { return stored_form("secret"); },
         {{"error:encrypt"}, {"error:etc_bin2hexstr"}}},
        // No trace without memory for the last copy.
        {"decrypt_passwd",
         [] { return password_of("DBAAFFA61B45"); },
         {{"error:etc_hexstr2bin"}, {"error:crypt.decrypt"}, {}}},
        {"encrypt2", [] { return crypted(encrypt2, "phrase", "secret"); }, {{}}},
        // Session, salt, key and context; then a piece is joined to those before.
        {"encrypt",
         [] { return slot_encrypt("phrase", std::string(1500, 'x')); },
         {attach, {}, {}, {}, {"error:cdsaStagedEncrypt"}, {"error:cdsaStagedEncrypt"}}},
        {"decrypt",
         [] { return slot_decrypt("phrase", std::string(1500, 'x')); },
         {attach, {}, {}, {}, {"error:CryptEncrypt"}, {"error:CryptEncrypt"}}},
    };
    for (memory_case const& c : cases) {
        int granted = 0;
        for (strings const& told : c.told) {
            test::clear_traces();
            test::fail_heap_after(granted);
            EXPECT_EQ(c.call(), std::nullopt) << c.name << ", granted " << granted;
            EXPECT_EQ(test::trouble_traces(), told) << c.name << ", granted " << granted;
            ++granted;
        }
        test::clear_traces();
        test::fail_heap_after(granted);
        EXPECT_TRUE(c.call()) << c.name << ", granted " << granted;
        EXPECT_EQ(test::trouble_traces(), strings{}) << c.name;
    }
}

TEST(CryptInterface, KeepsTheOrderOfItsOperations)
{
    EXPECT_EQ(test::slot_of(&icrypt::md5), 0);
    EXPECT_EQ(test::slot_of(&icrypt::hmac_md5), 1);
    EXPECT_EQ(test::slot_of(&icrypt::init), 2);
    EXPECT_EQ(test::slot_of(&icrypt::encrypt), 3);
    EXPECT_EQ(test::slot_of(&icrypt::decrypt), 4);
    EXPECT_EQ(test::slot_of(&icrypt::free), 5);
    EXPECT_EQ(test::slot_of(&icrypt::encrypt_passwd), 6);
    EXPECT_EQ(test::slot_of(&icrypt::encrypt_free_passwd), 7);
    EXPECT_EQ(test::slot_of(&icrypt::decrypt_passwd), 8);
    EXPECT_EQ(test::slot_of(&icrypt::decrypt_free_passwd), 9);
    EXPECT_EQ(test::slot_of(&icrypt::md5hexstr), 10);
    EXPECT_EQ(test::slot_of(&icrypt::md5hexstr_free), 11);
}

// ---- threads

TEST_F(Crypt, ManyThreadsEncryptAtOnce)
{
    std::vector<std::thread> threads;
    for (int number = 0; number < 8; ++number) {
        threads.emplace_back([number] {
            std::string const password    = "secret of " + std::to_string(number);
            std::string const pass_phrase = "phrase of " + std::to_string(number);
            for (int round = 0; round < 20; ++round) {
                result const stored = stored_form(password);
                EXPECT_TRUE(stored);
                EXPECT_EQ(password_of(stored.value_or("")), password);
                result const cipher = crypted(encrypt2, pass_phrase, password);
                EXPECT_EQ(slot_decrypt(pass_phrase, cipher.value_or("")), password);
                EXPECT_EQ(hmac("Jefe", "what do ya want for nothing?"),
                          "750c783e6ab0b503eaa86e310a5db738");
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

}  // namespace
}  // namespace zelieml
