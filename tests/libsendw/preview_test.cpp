// preview_test.cpp - what a preview shows, beside the mail that is then sent

#include <cstdlib>
#include <ctime>
#include <gtest/gtest.h>
#include <string>
#include <unistd.h>
#include <utility>
#include <vector>

#include "libmsg/libmsg.h"
#include "tests/support/case_name.h"
#include "tests/support/fake_clock.h"
#include "tests/support/files.h"
#include "tests/support/mail_server.h"
#include "zelieml_ext.h"

namespace zelieml::test
{

namespace
{

using strings = std::vector<std::string>;

// What a preview showed.
struct shown {
    int         calls = 0;
    std::string sender;
    strings     recipients;
    std::string text;

    static void take(eml_preview const* preview, void* user)
    {
        auto& self = *static_cast<shown*>(user);
        EXPECT_EQ(preview->struct_size, sizeof *preview);
        ++self.calls;
        self.sender = preview->sender;
        self.recipients.assign(preview->recipients, preview->recipients + preview->recipient_count);
        EXPECT_EQ(preview->recipients[preview->recipient_count], nullptr);
        self.text.assign(preview->text, preview->text_size);
        EXPECT_EQ(preview->text[preview->text_size], '\0');
    }
};

// The text as a server keeps it.
std::string received(std::string text)
{
    text += "\r\n";
    for (std::size_t at = 0; (at = text.find("\r\n..", at)) != std::string::npos; at += 3) {
        text.erase(at + 2, 1);
    }
    return text;
}

// A mail in UTF-8 from printer@a.test to x@b.test, unless it says otherwise.
struct preview_case : named_case {
    using named_case::named_case;

    preview_case& with(int (*set)(void*, char const*), std::string const& value)
    {
        values.emplace_back(set, value);
        return *this;
    }
    preview_case& jis()
    {
        encoding = eml_encoding_iso2022jp;
        return *this;
    }
    preview_case& settings(std::string const& its_settings)
    {
        more_settings = its_settings;
        return *this;
    }
    preview_case& goes_to(strings const& addresses)
    {
        recipients = addresses;
        return *this;
    }

    std::vector<std::pair<int (*)(void*, char const*), std::string>> values;
    eml_encoding                                                     encoding = eml_encoding_utf8;
    std::string                                                      more_settings;
    strings                                                          recipients = {"x@b.test"};
};

class Preview : public testing::Test
{
protected:
    Preview()
    {
        ::setenv("TZ", "UTC0", 1);
        ::tzset();
        set_wall_clock(1700000000, 0);
        set_zone_offset(0);
        EXPECT_EQ(eml_msg_create(&msg_), 0);
        eml_msg_set_from(msg_, "printer@a.test");
        eml_msg_set_to(msg_, "x@b.test");
        eml_msg_set_replyto(msg_, "reply@a.test");
        eml_msg_set_subject(msg_, "tray 2");
        eml_msg_set_body(msg_, "the paper is empty\n");
    }
    ~Preview() override { eml_msg_destroy(msg_); }

    void write_settings(std::string const& text) const
    {
        write_file(work_.file("zelismes.cf"), text);
    }

    shown preview() const
    {
        shown s;
        EXPECT_EQ(eml_msg_preview(work_.path().c_str(), msg_, shown::take, &s), 0);
        EXPECT_EQ(s.calls, 1);
        return s;
    }

    temp_dir work_;
    void*    msg_ = nullptr;
};

class PreviewOf : public Preview, public testing::WithParamInterface<preview_case>
{
};

}  // namespace

TEST_P(PreviewOf, IsWhatIsThenSent)
{
    preview_case const& c = GetParam();
    mail_server         server;
    write_settings("smtp_server = 127.0.0.1\r\nsmtp_port = " + std::to_string(server.smtp_port()) +
                   "\r\n" + c.more_settings);
    eml_msg_set_encoding(msg_, c.encoding);
    for (auto const& [set, value] : c.values) {
        EXPECT_EQ(set(msg_, value.c_str()), 0);
    }
    _s_msg const before = *static_cast<_s_msg*>(msg_);

    shown const s = preview();
    EXPECT_EQ(s.recipients, c.recipients);
    EXPECT_EQ(static_cast<_s_msg*>(msg_)->body, before.body);
    EXPECT_TRUE(server.mails().empty());

    void* result = nullptr;
    EXPECT_EQ(eml_post_sync(work_.path().c_str(), msg_, &result), 0);
    eml_cb_delete(result);
    ASSERT_TRUE(server.wait_for_mails(1));
    mailserver::mail const mail = server.mails()[0];
    EXPECT_EQ(mail.sender, s.sender);
    EXPECT_EQ(mail.recipients, s.recipients);
    EXPECT_TRUE(mail.text == received(s.text)) << mail.text << "\nwas shown as\n" << s.text;
}

INSTANTIATE_TEST_SUITE_P(
    Cases, PreviewOf,
    testing::Values(
        preview_case("an ordinary mail"),
        preview_case("all headers")
            .with(eml_msg_set_cc, "cc@b.test")
            .with(eml_msg_set_messageid, "<1@a.test>")
            .goes_to({"x@b.test", "cc@b.test"}),
        preview_case("the same recipient again")
            .with(eml_msg_set_to, "x@b.test, y@b.test,x@b.test")
            .with(eml_msg_set_cc, "y @b.test")
            .goes_to({"x@b.test", "y@b.test"}),
        preview_case("the null sender").with(eml_msg_set_replyto, ""),
        preview_case("dots in ISO-2022-JP").jis().with(eml_msg_set_body, ".\n..a\nb.\n\n"),
        preview_case("dots in UTF-8").with(eml_msg_set_body, ".\n..a\nb.\n\n"),
        preview_case("a subject without encoding").settings("subject_use_encoding = no\r\n"),
        preview_case("no body").with(eml_msg_set_body, ""),
        preview_case("empty lines first").with(eml_msg_set_body, "\n\n\ntext"),
        preview_case("line breaks alone").jis().with(eml_msg_set_body, "\n\n"),
        preview_case("a body line that is a header")
            .with(eml_msg_set_body, "one\nto: y@b.test\ntwo")
            .goes_to({"y@b.test"}),
        preview_case("a line break in a header")
            .with(eml_msg_set_subject, "tray\r\ncc: cc@b.test\r\nrest")
            .goes_to({"x@b.test", "cc@b.test"}),
        preview_case("a long body").with(eml_msg_set_body, std::string(300000, 'x')),
        preview_case("a long body in ISO-2022-JP")
            .jis()
            .with(eml_msg_set_body, std::string(900, 'x') + "\n.\n" + std::string(100000, 'y'))),
    case_name<preview_case>);

TEST_F(Preview, IsToldWhole)
{
    eml_msg_set_encoding(msg_, eml_encoding_iso2022jp);
    eml_msg_set_body(msg_, ".tray\n");
    shown const s = preview();
    EXPECT_EQ(s.sender, "reply@a.test");
    EXPECT_EQ(s.text, "Date: Tue, 14 Nov 2023 22:13:20 -0000\r\n"
                      "From: printer@a.test\r\n"
                      "To: x@b.test\r\n"
                      "Subject: =?ISO-2022-JP?B?dHJheSAy?=\r\n"
                      "Reply-To: reply@a.test\r\n"
                      "Mime-Version: 1.0\r\n"
                      "Content-Type: text/plain; charset=\"ISO-2022-JP\"\r\n"
                      "Content-Transfer-Encoding: 7bit\r\n"
                      "\r\n"
                      "..tray\r\n");
}

TEST_F(Preview, NeedsNoSettingsAndLeavesNoFile)
{
    EXPECT_NE(preview().text.find("Subject: =?UTF-8?B?"), std::string::npos);
    EXPECT_EQ(::rmdir(work_.path().c_str()), 0) << "the directory is empty";
    EXPECT_NE(preview().text.find("Subject: =?UTF-8?B?"), std::string::npos);
}

TEST_F(Preview, ShowsWhatServersRefuse)
{
    eml_msg_set_to(msg_, "");
    EXPECT_EQ(preview().recipients, strings());
    eml_msg_set_to(msg_, "x@b.test,,");
    EXPECT_EQ(preview().recipients, (strings{"x@b.test", ""}));
}

TEST_F(Preview, RefusesNull)
{
    shown             s;
    std::string const work = work_.path();
    EXPECT_EQ(eml_msg_preview(nullptr, msg_, shown::take, &s), -1);
    EXPECT_EQ(eml_msg_preview(work.c_str(), nullptr, shown::take, &s), -1);
    EXPECT_EQ(eml_msg_preview(work.c_str(), msg_, nullptr, &s), -1);
    EXPECT_EQ(s.calls, 0);
}

}  // namespace zelieml::test
