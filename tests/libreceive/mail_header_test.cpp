// mail_header_test.cpp - which lines of a mail are its fields

#include "libreceive/mail_header.h"

#include <gtest/gtest.h>

namespace zelieml
{

namespace
{

using strings = std::vector<std::string>;

struct header_case {
    strings     lines;
    std::string subject;
    char const* reason;
};

TEST(MailHeader, HasTheFirstFieldOfAName)
{
    std::string const longest(max_field_size - 1, 's');  // with the colon
    header_case const cases[] = {
        {{}, "", "an empty mail"},
        {{"."}, "", "nothing but its end"},
        {{"Subject: paper", "\r", "."}, "paper", "as usual"},
        {{"From: a", "sUBJECT:paper", "."}, "paper", "in any case, without a blank"},
        {{"Subject \t: paper"}, "paper", "with blanks before the colon"},
        {{"Subject: 1", "Subject: 2"}, "1", "the first of two"},
        {{"Subject:", "Subject: 2"}, "", "the first, though it is empty"},
        {{"Subject:  \t paper: 7 \t "}, "paper: 7", "without blanks around it"},
        {{"X-Subject: no", "Subjects: no", "Subj: no", "Re: Subject: no"}, "", "other names"},
        {{"Subject", "Subject no"}, "", "no colon"},
        {{"From anna Sun Nov 22", "Subject: paper"}, "paper", "after a line that is no field"},
        {{"Subject: a", " b", "\tc", "X: d", " e"}, "a b\tc", "continuation lines"},
        {{"Subject:", " a", "  ", " b"}, "a   b", "one of blanks only"},
        {{" Subject: no"}, "", "a continuation of nothing"},
        {{"X: y", " Subject: no"}, "", "a continuation of another field"},
        {{"\r", "Subject: no"}, "", "in the body"},
        {{"\n", "Subject: no"}, "", "in the body, line ends without CR"},
        {{"Subject: a", "", " no", "Subject: no"},
         "a",
         "a line that was too long, and what follows"},
        {{"", "Subject: a"}, "a", "a field that was too long"},
        {{"Subject:" + longest}, longest, "the longest"},
        {{"Subject:" + longest + "s", "Subject: no"}, "", "too long"},
        {{"Subject:" + longest.substr(1), " ", " no", "Subject: no"}, "", "too long in the end"},
        {{"Subject: a\nb"}, "a b", "a line end within"},
    };
    for (header_case const& c : cases) {
        std::string const header = read_mail_header(c.lines);
        EXPECT_EQ(get_mail_field(header, mail_field::subject), c.subject) << c.reason;
        EXPECT_LE(header.size(), c.subject.size() + 60) << c.reason;
    }
}

TEST(MailHeader, HasFourFieldsInAnyOrder)
{
    std::string const header =
        read_mail_header({"Date: Sun, 22 Nov 2026 05:00:00 +0000", "Message-ID: <1@a.test>",
                          "To: no", "Subject: paper", "FROM: anna@a.test"});
    EXPECT_EQ(get_mail_field(header, mail_field::from), "anna@a.test");
    EXPECT_EQ(get_mail_field(header, mail_field::subject), "paper");
    EXPECT_EQ(get_mail_field(header, mail_field::messageid), "<1@a.test>");
    EXPECT_EQ(get_mail_field(header, mail_field::date), "Sun, 22 Nov 2026 05:00:00 +0000");

    std::string const none = read_mail_header({"X: y"});
    for (mail_field const field :
         {mail_field::from, mail_field::subject, mail_field::messageid, mail_field::date}) {
        EXPECT_EQ(get_mail_field(none, field), "");
    }
}

}  // namespace

}  // namespace zelieml
