// macos_key_test.cpp - the public values that an exchange takes

#include <cerrno>
#include <gtest/gtest.h>
#include <string>

#include "platform/key_handle.h"
#include "tests/platform/counting_provider.h"
#include "tests/support/hex.h"

namespace zelieml::test
{
namespace
{

// Group 14 of RFC 3526.
std::string const prime =
    from_hex("FFFFFFFF FFFFFFFF C90FDAA2 2168C234 C4C6628B 80DC1CD1 29024E08 8A67CC74 "
             "020BBEA6 3B139B22 514A0879 8E3404DD EF9519B3 CD3A431B 302B0A6D F25F1437 "
             "4FE1356D 6D51C245 E485B576 625E7EC6 F44C42E9 A637ED6B 0BFF5CB6 F406B7ED "
             "EE386BFB 5A899FA5 AE9F2411 7C4B1FE6 49286651 ECE45B3D C2007CB8 A163BF05 "
             "98DA4836 1C55D39A 69163FA8 FD24CF5F 83655D23 DCA3AD96 1C62F356 208552BB "
             "9ED52907 7096966D 670C354E 4ABC9804 F1746C08 CA18217C 32905E46 2E36CE3B "
             "E39E772C 180E8603 9B2783A2 EC07A28F B5C55DF0 6F4C52C9 DE2BCBF6 95581718 "
             "3995497C EA956AE5 15D22618 98FA0510 15728E5A 8AACAA68 FFFFFFFF FFFFFFFF");

// The prime, and so much more or less.
std::string prime_and(int more)
{
    std::string value = prime;
    value.back()      = static_cast<char>(static_cast<unsigned char>(value.back()) + more);
    return value;
}

struct public_value {
    char const* what;
    std::string bytes;
    int         result;
};

using Exchange = ProviderTest;

TEST_F(Exchange, TakesWhatIsAPublicValueOfItsGroup)
{
    ASSERT_EQ(prime.size(), 256U);
    std::string above = prime;
    above[8]          = '\xff';
    std::string const zero(1, '\0');
    std::string const zeros(3, '\0');

    public_value const cases[] = {
        {"nothing", "", EINVAL},
        {"0", zero, EINVAL},
        {"1", "\x01", EINVAL},
        {"1, after zeros", zeros + "\x01", EINVAL},
        {"2", "\x02", 0},
        {"two bytes", std::string("\x01\x00", 2), 0},
        {"the prime less 2", prime_and(-2), 0},
        {"the prime less 2, after zeros", zeros + prime_and(-2), 0},
        {"the prime less 1", prime_and(-1), EINVAL},
        {"the prime less 1, after zeros", zeros + prime_and(-1), EINVAL},
        {"the prime", prime, EINVAL},
        {"more than the prime", above, EINVAL},
        {"longer than the prime", "\x01" + prime.substr(1) + zero, EINVAL},
    };
    csp_buffer own_value;
    csp_key*   own = nullptr;
    ASSERT_EQ(platform::generate_exchange_pair(session, own_value, own), 0);
    take(own_value);
    for (public_value const& c : cases) {
        csp_key* key = nullptr;
        EXPECT_EQ(platform::exchange_key(session, own, data(c.bytes), CSSM_ALGID_RC4, 128, key),
                  c.result)
            << c.what;
        EXPECT_EQ(key != nullptr, c.result == 0) << c.what;
        platform::free_key(key);
    }
    platform::free_key(own);
}

}  // namespace
}  // namespace zelieml::test
