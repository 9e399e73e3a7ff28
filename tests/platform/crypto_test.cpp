#include "platform/crypto.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "tests/support/bytes_of.h"
#include "tests/support/hex.h"
#include "tests/support/skip.h"

namespace zelieml::platform
{

namespace
{

using std::string_literals::operator""s;
using test::bytes_of;
using test::from_hex;
using test::to_hex;

struct digest_case {
    std::string text;
    char const* digest;
};

TEST(Md5, GivesTheDigestsOfRfc1321)
{
    digest_case const cases[] = {
        {"", "d41d8cd98f00b204e9800998ecf8427e"},
        {"a", "0cc175b9c0f1b6a831c399e269772661"},
        {"abc", "900150983cd24fb0d6963f7d28e17f72"},
        {"message digest", "f96b697d7cb7938d525a2f31aaf161d0"},
        {"abcdefghijklmnopqrstuvwxyz", "c3fcd3d76192e4007dfb496cca67e13b"},
        {"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789",
         "d174ab98d277d9f5a5611c2c9f419d9f"},
        {"12345678901234567890123456789012345678901234567890123456789012345678901234567890",
         "57edf4a22be3c955ac49da2e2107b67a"},
    };
    for (digest_case const& c : cases) {
        unsigned char digest[md5_size];
        ASSERT_EQ(digest_md5(c.text.data(), c.text.size(), digest), 0);
        EXPECT_EQ(to_hex(digest, sizeof digest), c.digest) << c.text;
    }
}

TEST(Md5, OfNothingMayBeGivenAsNull)
{
    unsigned char digest[md5_size];
    ASSERT_EQ(digest_md5(nullptr, 0, digest), 0);
    EXPECT_EQ(to_hex(digest, sizeof digest), "d41d8cd98f00b204e9800998ecf8427e");
}

struct derive_case {
    std::string pass_phrase;
    std::string salt;
    unsigned    rounds;
    char const* key;
};

std::string derived_key(derive_case const& c)
{
    std::vector<unsigned char> key(std::string(c.key).size() / 2);
    EXPECT_EQ(derive_rc4_key(c.pass_phrase.data(), c.pass_phrase.size(), bytes_of(c.salt),
                             c.salt.size(), c.rounds, key.data(),
                             static_cast<unsigned>(key.size() * 8)),
              0);
    return to_hex(key.data(), key.size());
}

// Of RFC 6070's vectors the one that every back end takes; others are below.
TEST(KeyDerivation, GivesTheKeyOfRfc6070)
{
    derive_case const c = {"passwordPASSWORDpassword", "saltSALTsaltSALTsaltSALTsaltSALTsalt", 4096,
                           "3d2eec4fe41c849b80c8d83662c0e44a8b291a964cf2f07038"};
    EXPECT_EQ(derived_key(c), c.key);
}

// Not its vector of 16777216 rounds, which takes seconds.
TEST(KeyDerivation, GivesTheKeysOfRfc6070WithAShortSaltOrFewRounds)
{
    SKIP_UNLESS(!test::has_backend("macos"),
                "macOS may refuse short salts and few rounds, which the library never asks for");
    derive_case const cases[] = {
        {"password", "salt", 1, "0c60c80f961f0e71f3a9b524af6012062fe037a6"},
        {"password", "salt", 2, "ea6c014dc72d6f8ccd1ed92ace1d41f0d8de8957"},
        {"password", "salt", 4096, "4b007901b765489abead49d926f721d065a429c1"},
        {"pass\0word"s, "sa\0lt"s, 4096, "56fa6aa75548099dcc37d7f03425e0c3"},
    };
    for (derive_case const& c : cases) {
        EXPECT_EQ(derived_key(c), c.key);
    }
}

TEST(KeyDerivation, AShorterKeyIsTheBeginningOfALongerOne)
{
    derive_case const longer  = {"password", "saltsalt", 1000, "................................"};
    derive_case const shorter = {"password", "saltsalt", 1000, ".........."};
    EXPECT_EQ(derived_key(shorter), derived_key(longer).substr(0, 10));
}

struct refused_derivation {
    char const* reason;
    unsigned    rounds;
    unsigned    key_bits;
};

TEST(KeyDerivation, RefusesKeysThatRc4CannotHave)
{
    refused_derivation const cases[] = {
        {"no rounds", 0, 40},
        {"no bits", 1000, 0},
        {"half a byte", 1000, 44},
        {"less than a byte", 1000, 7},
        {"more than 256 bytes", 1000, 2056},
    };
    for (refused_derivation const& c : cases) {
        unsigned char key[257];
        EXPECT_NE(derive_rc4_key("p", 1, bytes_of("saltsalt"), 8, c.rounds, key, c.key_bits), 0)
            << c.reason;
    }
    unsigned char longest[256];
    EXPECT_EQ(derive_rc4_key("p", 1, bytes_of("saltsalt"), 8, 1000, longest, 2048), 0);
}

struct stream_case {
    char const* key;
    std::size_t offset;
    char const* bytes;  // of the key stream, from the offset
};

// RFC 6229.
stream_case const streams[] = {
    {"0102030405", 0, "b2396305f03dc027ccc3524a0a1118a8 6982944f18fc82d589c403a47a0d0919"},
    {"0102030405", 240, "28cb1132c96ce286421dcaadb8b69eae 1cfcf62b03eddb641d77dfcf7f8d8c93"},
    {"0102030405", 4096, "ff25b58995996707e51fbdf08b34d875"},
    {"01020304050607", 0, "293f02d47f37c9b633f2af5285feb46b e620f1390d19bd84e2e0fd752031afc1"},
    {"0102030405060708", 0, "97ab8a1bf0afb96132f2f67258da15a8 8263efdb45c4a18684ef87e6b19e5b09"},
    {"0102030405060708090a0b0c0d0e0f10", 0,
     "9ac7cc9a609d1ef7b2932899cde41b97 5248c4959014126a6e8a84f11d1a9e1c"},
    {"0102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e1f20", 0,
     "eaa6bd25880bf93d3f5d1e4ca2611d91 cfa45c9f7e714b54bdfa80027cb14380"},
    {"833222772a", 0, "80ad97bdc973df8a2e879e92a497efda 20f060c2f2e5126501d3d4fea10d5fc0"},
};

TEST(Rc4, GivesTheKeyStreamsOfRfc6229InBothDirections)
{
    for (stream_case const& c : streams) {
        std::string const key  = from_hex(c.key);
        std::string const want = from_hex(c.bytes);
        for (crypt_direction const direction :
             {crypt_direction::encrypt, crypt_direction::decrypt}) {
            std::vector<unsigned char> const zeros(c.offset + want.size());
            std::vector<unsigned char>       out(zeros.size());
            ASSERT_EQ(rc4_crypt(bytes_of(key), key.size(), direction, zeros.data(), zeros.size(),
                                out.data()),
                      0);
            EXPECT_EQ(to_hex(out.data() + c.offset, want.size()), to_hex(want.data(), want.size()))
                << c.key << " at " << c.offset;
        }
    }
}

TEST(Rc4, WorksInPlace)
{
    std::string text = "a text in its own place";
    auto* const data = reinterpret_cast<unsigned char*>(text.data());
    ASSERT_EQ(rc4_crypt(bytes_of("key"), 3, crypt_direction::encrypt, data, text.size(), data), 0);
    EXPECT_NE(text, "a text in its own place");
    ASSERT_EQ(rc4_crypt(bytes_of("key"), 3, crypt_direction::decrypt, data, text.size(), data), 0);
    EXPECT_EQ(text, "a text in its own place");
}

TEST(Rc4, RefusesKeysOfNoBytesAndOfMoreThan256)
{
    std::string const key(257, 'k');
    unsigned char     byte = 0;
    EXPECT_NE(rc4_crypt(bytes_of(key), 0, crypt_direction::encrypt, &byte, 1, &byte), 0);
    EXPECT_NE(rc4_crypt(bytes_of(key), 257, crypt_direction::encrypt, &byte, 1, &byte), 0);
    EXPECT_EQ(rc4_crypt(bytes_of(key), 256, crypt_direction::encrypt, &byte, 1, &byte), 0);
}

}  // namespace
}  // namespace zelieml::platform
