#include "tools/mailserver/credentials.h"

#include <gtest/gtest.h>

namespace zelieml::mailserver
{

namespace
{

accounts const known = {{"tim", "tanstaaftanstaaf"}, {"mrose", "tanstaaf"}, {"a b", "x"}};

std::string const rfc_2195_challenge = "<1896.697170952@postoffice.reston.mci.net>";

}  // namespace

TEST(Base64, EncodesAndDecodesTheVectorsOfRfc4648)
{
    std::pair<char const*, char const*> const vectors[] = {
        {"", ""},
        {"f", "Zg=="},
        {"fo", "Zm8="},
        {"foo", "Zm9v"},
        {"foob", "Zm9vYg=="},
        {"fooba", "Zm9vYmE="},
        {"foobar", "Zm9vYmFy"},
    };
    for (auto const& [text, code] : vectors) {
        EXPECT_EQ(base64_encode(text), code);
        EXPECT_EQ(base64_decode(code), text);
    }
}

TEST(Base64, RejectsWhatIsNotBase64)
{
    std::pair<char const*, char const*> const bad[] = {
        {"Zg=", "padding missing"},      {"Zg", "no padding at all"},
        {"Z===", "too much padding"},    {"Zg==Zg==", "goes on after the padding"},
        {"Zm9*", "not in the alphabet"},
    };
    for (auto const& [code, why] : bad) {
        EXPECT_EQ(base64_decode(code), std::nullopt) << why;
    }
}

// RFC 1321, appendix A.5.
TEST(Md5, GivesTheDigestsOfRfc1321)
{
    EXPECT_EQ(md5_hex(""), "d41d8cd98f00b204e9800998ecf8427e");
    EXPECT_EQ(md5_hex("message digest"), "f96b697d7cb7938d525a2f31aaf161d0");
}

// RFC 2202, test cases 2 and 6.
TEST(HmacMd5, GivesTheDigestsOfRfc2202)
{
    EXPECT_EQ(hmac_md5_hex("Jefe", "what do ya want for nothing?"),
              "750c783e6ab0b503eaa86e310a5db738");
    EXPECT_EQ(hmac_md5_hex(std::string(80, '\xaa'),
                           "Test Using Larger Than Block-Size Key - Hash Key First"),
              "6b1ab7fe4bd7bf8f0b62e6ce61b9d0cd");
}

// The example of RFC 2195, chapter 2.
TEST(CheckCramMd5, KnowsTheAnswerOfRfc2195)
{
    EXPECT_EQ(check_cram_md5(known, rfc_2195_challenge, "tim b913a602c7eda7a495b4e6e7334d3890"),
              "tim");
}

TEST(CheckCramMd5, RejectsEveryOtherAnswer)
{
    std::pair<char const*, char const*> const bad[] = {
        {"tim b913a602c7eda7a495b4e6e7334d3891", "wrong digest"},
        {"tim B913A602C7EDA7A495B4E6E7334D3890", "the digest is in lower case"},
        {"mrose b913a602c7eda7a495b4e6e7334d3890", "another user"},
        {"nobody b913a602c7eda7a495b4e6e7334d3890", "an unknown user"},
        {"tim", "no digest"},
        {"tim ", "an empty digest"},
        {"", "nothing"},
    };
    for (auto const& [answer, why] : bad) {
        EXPECT_EQ(check_cram_md5(known, rfc_2195_challenge, answer), std::nullopt) << why;
    }
}

TEST(CheckCramMd5, TakesUserNamesWithBlanks)
{
    EXPECT_EQ(check_cram_md5(known, "<c>", "a b " + hmac_md5_hex("x", "<c>")), "a b");
}

// The example of RFC 1939, chapter 7.
TEST(CheckApop, KnowsTheDigestOfRfc1939)
{
    std::string const stamp = "<1896.697170952@dbc.mtview.ca.us>";
    EXPECT_EQ(check_apop(known, stamp, "mrose", "c4c9334bac560ecc979e58001b3e22fb"), "mrose");
    EXPECT_EQ(check_apop(known, stamp, "tim", "c4c9334bac560ecc979e58001b3e22fb"), std::nullopt);
    EXPECT_EQ(check_apop(known, "<other>", "mrose", "c4c9334bac560ecc979e58001b3e22fb"),
              std::nullopt);
}

TEST(CheckPlain, TakesAnEmptyIdentityOrTheUsersOwn)
{
    EXPECT_EQ(check_plain(known, {"\0mrose\0tanstaaf", 15}), "mrose");
    EXPECT_EQ(check_plain(known, {"mrose\0mrose\0tanstaaf", 20}), "mrose");
}

TEST(CheckPlain, RejectsEverythingElse)
{
    std::pair<std::string, char const*> const bad[] = {
        {{"tim\0mrose\0tanstaaf", 18}, "the identity of another"},
        {{"\0mrose\0tanstaa", 14}, "wrong password"},
        {{"\0mrose\0tanstaaf\0", 16}, "a NUL behind the password"},
        {{"mrose\0tanstaaf", 14}, "one NUL missing"},
        {"mrose tanstaaf", "no NUL"},
        {"", "nothing"},
    };
    for (auto const& [message, why] : bad) {
        EXPECT_EQ(check_plain(known, message), std::nullopt) << why;
    }
}

TEST(FreshTimeStamp, IsNeverGivenTwice)
{
    std::string const first = fresh_time_stamp();
    EXPECT_NE(first, fresh_time_stamp());
    EXPECT_EQ(first.front(), '<');
    EXPECT_EQ(first.back(), '>');
    EXPECT_NE(first.find('@'), std::string::npos);
}

}  // namespace zelieml::mailserver
