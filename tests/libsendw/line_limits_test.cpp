// line_limits_test.cpp - the lengths that zelieml.h names for one line of 998 bytes

#include <gtest/gtest.h>
#include <string>

#include "libsendw/smtpmsg.h"

namespace zelieml::test
{

namespace
{

// Without its CR LF.
std::size_t length_of(std::string const& line)
{
    return line.size() - 2;
}

}  // namespace

TEST(LineLimit, IsKeptByHeadersOfTheLengthsNamed)
{
    struct row {
        std::string (*header)(std::string const& text);
        std::size_t longest;
        std::size_t limit;
        char const* reason;
    };
    row const rows[] = {
        {get_subject_utf8_base64, 732, 998, "a subject in UTF-8"},
        {get_subject_jis_base64, 726, 998, "a subject in ISO-2022-JP"},
        {get_subject_no_encoding, 989, 998, "a subject as it is"},
        {get_from, 992, 998, "From"},
        {get_replyto, 988, 998, "Reply-To"},
        {get_messageid, 986, 998, "Message-Id"},
        {get_subject_utf8_base64, 45, 75 + sizeof "Subject: " - 1, "an encoded word of RFC 2047"},
        {get_subject_jis_base64, 42, 75 + sizeof "Subject: " - 1, "likewise in ISO-2022-JP"},
    };
    for (row const& r : rows) {
        EXPECT_LE(length_of(r.header(std::string(r.longest, 'x'))), r.limit) << r.reason;
        EXPECT_GT(length_of(r.header(std::string(r.longest + 1, 'x'))), r.limit) << r.reason;
    }
}

}  // namespace zelieml::test
