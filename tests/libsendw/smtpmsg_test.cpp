// smtpmsg_test.cpp - the lines of a composed mail

#include "libsendw/smtpmsg.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <memory>
#include <new>
#include <random>
#include <unistd.h>

#include "libmsg/libmsg.h"
#include "tests/support/clean_machine.h"
#include "tests/support/failing_new.h"
#include "tests/support/files.h"

namespace zelieml::test
{

namespace
{

message_holder new_message()
{
    void* msg = nullptr;
    EXPECT_EQ(msg_create(&msg), 0);
    return message_holder(msg);
}

_s_msg& record(message_holder const& msg)
{
    return *static_cast<_s_msg*>(msg.get());
}

// Base64 written once more, so that the expectations do not come from the code under test.
std::string base64(std::string const& bytes)
{
    static char const letters[] =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    unsigned    bits  = 0;
    int         count = 0;
    for (char const c : bytes) {
        bits = bits << 8 | static_cast<unsigned char>(c);
        for (count += 8; count >= 6; count -= 6) {
            text += letters[bits >> (count - 6) & 63];
        }
    }
    if (count > 0) {
        text += letters[bits << (6 - count) & 63];
    }
    while (text.size() % 4 != 0) {
        text += '=';
    }
    return text;
}

// Base64 with CR LF after every full line of 76 characters.
std::string base64_lines(std::string const& bytes)
{
    std::string const text = base64(bytes);
    std::string       lines;
    for (std::size_t at = 0; at < text.size(); at += 76) {
        lines += text.substr(at, 76);
        if (text.size() - at >= 76) {
            lines += "\r\n";
        }
    }
    return lines;
}

bool traced(char const* text)
{
    strings const all = traces();
    return std::count(all.begin(), all.end(), text) == 1;
}

std::string joined(strings const& pieces)
{
    std::string text;
    for (std::string const& piece : pieces) {
        text += piece;
    }
    return text;
}

}  // namespace

class Composition : public on_a_clean_machine
{
protected:
    void SetUp() override
    {
        ::setenv("TZ", "TST-9", 1);
        set_wall_clock(1794740131, 0);  // Sun, 15 Nov 2026 10:55:31 GMT
        set_zone_offset(9 * 3600);
        write_file(conf_, "subject_use_encoding = yes\r\n");
        on_a_clean_machine::SetUp();
    }

    char const* conf() const { return conf_.c_str(); }
    void        set_conf(std::string const& text) const { write_file(conf_, text); }

    strings compose(message_holder const& msg) const
    {
        strings out = {"left over from before"};
        EXPECT_EQ(smtpmsg_create_multiline(msg.get(), out, conf()), 0);
        return out;
    }

private:
    temp_dir    dir_;
    std::string conf_ = dir_.file("zelismes.cf");
};

// ------------------------------------------------------------------ whole mails

TEST_F(Composition, AWholeUtf8MailByteForByte)
{
    auto const msg         = new_message();
    record(msg).from       = "Printer 7 <printer@a.test>";
    record(msg).to         = "anna@b.test, bert@c.test";
    record(msg).cc         = "chef @d.test";
    record(msg).subject    = "紙がありません";
    record(msg).replyto    = "reply@a.test";
    record(msg).messageid  = "<1.2@a.test>";
    record(msg).body       = "The paper tray of the printer in room 7 is empty, please fill it.\r\n"
                             ".\r\n用紙を補給してください。\r\n";
    std::string const text = "Date: Sun, 15 Nov 2026 19:55:31 +0900\r\n"
                             "From: Printer 7 <printer@a.test>\r\n"
                             "To: anna@b.test,\r\n"
                             " bert@c.test\r\n"
                             "Cc: chef@d.test\r\n"
                             "Subject: =?UTF-8?B?57SZ44GM44GC44KK44G+44Gb44KT?=\r\n"
                             "Reply-To: reply@a.test\r\n"
                             "Mime-Version: 1.0\r\n"
                             "Content-Type: text/plain; charset=\"UTF-8\"\r\n"
                             "Content-Transfer-Encoding: base64\r\n"
                             "Message-Id: <1.2@a.test>\r\n"
                             "\r\n"
                             "VGhlIHBhcGVyIHRyYXkgb2YgdGhlIHByaW50ZXIgaW4gcm9vbSA3IGlzIGVtcHR5LCBwb"
                             "GVhc2Ug\r\n"
                             "ZmlsbCBpdC4NCi4NCueUqOe0meOCkuijnOe1puOBl+OBpuOBj+OBoOOBleOBhOOAgg0K";

    strings const out = compose(msg);

    EXPECT_EQ(joined(out), text);
    EXPECT_EQ(out.size(), 12U);
    EXPECT_TRUE(traced("encoding: UTF-8"));
    EXPECT_EQ(trouble_traces(), strings());
}

TEST_F(Composition, AWholeIso2022JpMailByteForByte)
{
    auto const msg = new_message();
    EXPECT_EQ(msg_set_encoding(msg.get(), eml_encoding_iso2022jp), 0);
    record(msg).from       = "printer@a.test";
    record(msg).to         = "anna@b.test";
    record(msg).subject    = "\x1b$B;f\x1b(B";
    record(msg).replyto    = "reply@a.test";
    record(msg).body       = ".first\n\x1b$B;f\x1b(B\r..\r\nlast";
    std::string const text = "Date: Sun, 15 Nov 2026 19:55:31 +0900\r\n"
                             "From: printer@a.test\r\n"
                             "To: anna@b.test\r\n"
                             "Subject: =?ISO-2022-JP?B?GyRCO2YbKEI=?=\r\n"
                             "Reply-To: reply@a.test\r\n"
                             "Mime-Version: 1.0\r\n"
                             "Content-Type: text/plain; charset=\"ISO-2022-JP\"\r\n"
                             "Content-Transfer-Encoding: 7bit\r\n"
                             "\r\n"
                             "..first\r\n\x1b$B;f\x1b(B\r\n...\r\nlast";

    EXPECT_EQ(joined(compose(msg)), text);
    EXPECT_TRUE(traced("encoding: IOS-2022-JP"));
    EXPECT_EQ(trouble_traces(), strings());
}

TEST_F(Composition, WithoutCcAndMessageIdThereAreEightHeaderLinesAnEmptyOneAndTheBody)
{
    auto const msg   = new_message();
    record(msg).to   = "x@a.test";
    record(msg).body = "b";

    strings const out = compose(msg);

    ASSERT_EQ(out.size(), 10U);
    for (std::size_t line = 0; line < 8; ++line) {
        EXPECT_GT(out[line].size(), 2U);
        EXPECT_EQ(out[line].substr(out[line].size() - 2), "\r\n") << out[line];
    }
    EXPECT_EQ(out[8], "\r\n");
    EXPECT_EQ(out[9], "Yg==");
}

TEST_F(Composition, TheOutputIsEmptiedFirstAndTheZoneIsWrittenAsItComes)
{
    auto const msg = new_message();
    record(msg).to = "x@a.test";
    set_zone_offset(-5 * 3600);
    EXPECT_EQ(compose(msg).front(), "Date: Sun, 15 Nov 2026 19:55:31 --500\r\n");
}

TEST_F(Composition, TheEncodingTextIsComparedByteForByte)
{
    struct row {
        char const* encoding;
        bool        jis;
        char const* reason;
    };
    row const rows[] = {
        {"ISO-2022-JP", true, "the one string that counts"},
        {"iso-2022-jp", false, "lower case is another string"},
        {"ISO-2022-JP\r", false, "a CR from a file with CR LF line ends"},
        {"ISO-2022-JP-2", false, "longer"},
        {"ISO-2022-J", false, "shorter"},
        {" ISO-2022-JP", false, "a blank before it"},
        {"", false, "none"},
        {"UTF-8", false, "the default"},
    };
    for (row const& r : rows) {
        auto const msg       = new_message();
        record(msg).encoding = r.encoding;
        record(msg).to       = "x@a.test";
        record(msg).body     = "a\n.b";
        clear_traces();

        strings const out = compose(msg);

        EXPECT_TRUE(traced(r.jis ? "encoding: IOS-2022-JP" : "encoding: UTF-8")) << r.reason;
        EXPECT_EQ(out[7], r.jis ? "Content-Transfer-Encoding: 7bit\r\n"
                                : "Content-Transfer-Encoding: base64\r\n")
            << r.reason;
        EXPECT_EQ(out.back(), r.jis ? "a\r\n..b" : base64("a\n.b")) << r.reason;
        EXPECT_EQ(record(msg).body, r.jis ? "a\r\n..b" : "a\n.b")
            << "a UTF-8 body is not rewritten; " << r.reason;
    }
}

TEST_F(Composition, AnEmptyReplyToStillHasItsHeader)
{
    auto const msg = new_message();
    record(msg).to = "x@a.test";
    EXPECT_EQ(compose(msg)[4], "Reply-To: \r\n");
}

TEST_F(Composition, WithoutAnyRecipientTheToLineIsEmptyAndCompositionGoesOn)
{
    auto const    msg = new_message();
    strings const out = compose(msg);
    ASSERT_EQ(out.size(), 10U);
    EXPECT_EQ(out[2], "");
    EXPECT_EQ(trouble_traces(), (strings{"error:no address", "error:smtpmsg_split_address"}));
}

TEST_F(Composition, HeaderTextsAreWrittenAsStored)
{
    auto const msg        = new_message();
    record(msg).from      = "  ,;\"<>\xff ";
    record(msg).to        = "x@a.test";
    record(msg).replyto   = " two@a.test, three@a.test ";
    record(msg).messageid = "no brackets";

    strings const out = compose(msg);

    EXPECT_EQ(out[1], "From:   ,;\"<>\xff \r\n");
    EXPECT_EQ(out[4], "Reply-To:  two@a.test, three@a.test \r\n");
    EXPECT_EQ(out[8], "Message-Id: no brackets\r\n");
}

TEST_F(Composition, TheTwoFormsCanBeComposedDirectlyAndTakeTheBodyAsItIs)
{
    auto const msg   = new_message();
    record(msg).to   = "x@a.test";
    record(msg).body = "\n.a";
    strings out      = {"left over"};

    EXPECT_EQ(smtpmsg_create_jis_multiline(msg.get(), out, conf()), 0);
    ASSERT_EQ(out.size(), 10U);
    EXPECT_EQ(out[3], "Subject: =?ISO-2022-JP?B?"
                      "?=\r\n");
    EXPECT_EQ(out[6], "Content-Type: text/plain; charset=\"ISO-2022-JP\"\r\n");
    EXPECT_EQ(out[9], "\n.a");

    EXPECT_EQ(smtpmsg_create_utf8_multiline(msg.get(), out, conf()), 0);
    ASSERT_EQ(out.size(), 10U);
    EXPECT_EQ(out[3], "Subject: =?UTF-8?B?"
                      "?=\r\n");
    EXPECT_EQ(out[6], "Content-Type: text/plain; charset=\"UTF-8\"\r\n");
    EXPECT_EQ(out[9], base64("\n.a"));
}

TEST_F(Composition, HeaderAndBodyAreAppendedToWhatIsThere)
{
    auto const msg   = new_message();
    record(msg).to   = "x@a.test";
    record(msg).body = "b";
    strings out      = {"before"};
    EXPECT_EQ(msg_body_utf8(msg.get(), out), 0);
    EXPECT_EQ(msg_body_jis(msg.get(), out), 0);
    EXPECT_EQ(out, (strings{"before", "Yg==", "b"}));
    EXPECT_EQ(msg_header_utf8(msg.get(), out, conf()), 0);
    EXPECT_EQ(msg_header_jis(msg.get(), out, conf()), 0);
    EXPECT_EQ(out.size(), 3U + 8 + 8);
}

TEST_F(Composition, NullArgumentsNeverCrash)
{
    strings out;
    // A null record is an empty one; without settings the subject is encoded.
    EXPECT_EQ(smtpmsg_create_multiline(nullptr, out, nullptr), 0);
    ASSERT_EQ(out.size(), 10U);
    EXPECT_EQ(out[3], "Subject: =?UTF-8?B?"
                      "?=\r\n");
    EXPECT_EQ(out[9], "");
    EXPECT_EQ(smtpmsg_create_jis_multiline(nullptr, out, nullptr), 0);
    EXPECT_EQ(out.size(), 10U);
    modify_body(nullptr);
    EXPECT_TRUE(subject_use_encoding(nullptr));
}

// --------------------------------------------------------------------- subject

TEST_F(Composition, TheSettingsDecideWhetherTheSubjectIsEncoded)
{
    struct row {
        char const* settings;
        bool        encoded;
        bool        read_failure;
        char const* reason;
    };
    row const rows[] = {
        {"subject_use_encoding = yes\r\n", true, false, "yes"},
        {"subject_use_encoding = no\r\n", false, false, "no"},
        {"subject_use_encoding = YES\r\n", false, false, "upper case is not yes"},
        {"subject_use_encoding = yes \r\n", false, false, "blanks behind the value belong to it"},
        {"subject_use_encoding = on\r\n", false, false, "another word"},
        {"", true, true, "the key is missing: encoded is the default"},
        {"smtp_server = a.test\r\n", true, true, "likewise, with other settings"},
        {"subject_use_encoding\r\n", true, true, "no value"},
    };
    for (row const& r : rows) {
        set_conf(r.settings);
        auto const msg      = new_message();
        record(msg).to      = "x@a.test";
        record(msg).subject = "hi";
        clear_traces();

        EXPECT_EQ(compose(msg)[3], r.encoded ? "Subject: =?UTF-8?B?aGk=?=\r\n" : "Subject: hi\r\n")
            << r.reason;
        EXPECT_EQ(subject_use_encoding(conf()), r.encoded) << r.reason;
        strings const trouble = r.read_failure ? strings(2, "error:conf_get_string %s") : strings();
        EXPECT_EQ(trouble_traces(), trouble) << r.reason;
    }
}

TEST_F(Composition, IsTheSameWithSettingsThatHaveBeenRead)
{
    for (char const* const settings : {"subject_use_encoding = no\r\n", "", "subject = x\r\n"}) {
        for (char const* const encoding : {"UTF-8", "ISO-2022-JP"}) {
            set_conf(settings);
            strings out[2];
            strings traced[2];
            for (int read_before = 0; read_before < 2; ++read_before) {
                auto const msg       = new_message();
                record(msg).to       = ",";
                record(msg).subject  = "hi";
                record(msg).encoding = encoding;
                record(msg).body     = ".a\n.b";
                conf_settings const read(conf(), {key_subject_use_encoding});
                clear_traces();
                EXPECT_EQ(read_before != 0 ? smtpmsg_create_multiline(msg.get(), out[1], read)
                                           : smtpmsg_create_multiline(msg.get(), out[0], conf()),
                          0);
                traced[read_before] = traces();
            }
            EXPECT_EQ(out[1], out[0]) << settings << encoding;
            EXPECT_EQ(traced[1], traced[0]) << settings << encoding;
        }
    }
}

TEST_F(Composition, AMissingSettingsFileMeansAnEncodedSubject)
{
    temp_dir const empty;
    EXPECT_TRUE(subject_use_encoding(empty.file("zelismes.cf").c_str()));
    EXPECT_EQ(trouble_traces().back(), "error:conf_get_string %s");
}

TEST_F(Composition, ALongSubjectIsOneEncodedWordOnOneLine)
{
    std::string const subject(4000, 'x');
    std::string const plain = "Subject: " + subject + "\r\n";
    EXPECT_EQ(get_subject_utf8_base64(subject), "Subject: =?UTF-8?B?" + base64(subject) + "?=\r\n");
    EXPECT_EQ(get_subject_jis_base64(subject),
              "Subject: =?ISO-2022-JP?B?" + base64(subject) + "?=\r\n");
    EXPECT_EQ(get_subject_no_encoding(subject), plain);
}

TEST_F(Composition, APlainSubjectMayHoldAnyBytes)
{
    set_conf("subject_use_encoding = no\r\n");
    auto const msg      = new_message();
    record(msg).to      = "x@a.test";
    record(msg).subject = "\xe7\xb4\x99 =?x?=";
    EXPECT_EQ(compose(msg)[3], "Subject: \xe7\xb4\x99 =?x?=\r\n");
    record(msg).encoding = "ISO-2022-JP";
    EXPECT_EQ(compose(msg)[3], "Subject: \xe7\xb4\x99 =?x?=\r\n");
}

// ------------------------------------------------------------------- addresses

TEST(Addresses, AreSplitAtCommasAndLoseTheirBlanks)
{
    struct row {
        char const* list;
        strings     entries;
        char const* reason;
    };
    row const rows[] = {
        {"a@a.test", {"a@a.test"}, "one"},
        {"a@a.test,b@b.test", {"a@a.test", "b@b.test"}, "two"},
        {" a @ a.test , b b@b.test,", {"a@a.test", "bb@b.test", ""}, "blanks around and inside"},
        {"a,,b", {"a", "", "b"}, "an empty entry stays"},
        {",", {"", ""}, "two empty entries"},
        {"   ", {""}, "only blanks: one empty entry"},
        {"a;b", {"a;b"}, "a semicolon separates nothing"},
        {"a\tb,\r\nc", {"a\tb", "\r\nc"}, "tabs and line breaks stay in the address"},
        {"\"x, y\" <a@a.test>", {"\"x", "y\"<a@a.test>"}, "quotes protect nothing"},
    };
    for (row const& r : rows) {
        strings out = {"left over"};
        EXPECT_EQ(smtpmsg_split_address(r.list, out), 0) << r.reason;
        EXPECT_EQ(out, r.entries) << r.reason;
    }
}

TEST(Addresses, AnEmptyListIsAFailure)
{
    clear_traces();
    strings out = {"left over"};
    EXPECT_EQ(smtpmsg_split_address("", out), -1);
    EXPECT_EQ(out, strings());
    EXPECT_EQ(trouble_traces(), strings{"error:no address"});
}

TEST(Addresses, StandOnALineEach)
{
    EXPECT_EQ(get_to("a@a.test"), "To: a@a.test\r\n");
    EXPECT_EQ(get_to("a@a.test,b@b.test"), "To: a@a.test,\r\n b@b.test\r\n");
    EXPECT_EQ(get_cc("a@a.test,b@b.test,c@c.test"), "Cc: a@a.test,\r\n b@b.test,\r\n c@c.test\r\n");
}

TEST(Addresses, ATrailingCommaEndsTheHeaderWithALineOfOneBlank)
{
    EXPECT_EQ(get_to(" a b@a.test , c@c.test ,"), "To: ab@a.test,\r\n c@c.test,\r\n \r\n");
}

TEST(Addresses, AThousandOfThemMakeAThousandLines)
{
    std::string list;
    std::string header = "To:";
    for (int i = 0; i < 1000; ++i) {
        std::string const address = "user" + std::to_string(i) + "@a.test";
        list += (i == 0 ? "" : ", ") + address;
        header += " " + address + (i < 999 ? "," : "") + "\r\n";
    }
    EXPECT_EQ(get_to(list), header);
}

TEST(Addresses, AnAddressIsNeverFoldedHoweverLong)
{
    std::string const address(5000, 'a');
    EXPECT_EQ(get_cc(address), "Cc: " + address + "\r\n");
}

TEST(Addresses, AnEmptyListGivesNoHeaderAtAll)
{
    clear_traces();
    EXPECT_EQ(get_to(""), "");
    EXPECT_EQ(get_cc(""), "");
    strings const once = {"error:no address", "error:smtpmsg_split_address"};
    EXPECT_EQ(trouble_traces(), (strings{once[0], once[1], once[0], once[1]}));
}

TEST(Addresses, OfNoneOnlyTheLabelIsLeft)
{
    EXPECT_EQ(get_multiline({}, "To:"), "To:");
    EXPECT_EQ(get_multiline({"x"}, "Label"), "Label x\r\n");
}

TEST(Addresses, ACommaFollowsWhileTwoOrMoreAreLeft)
{
    EXPECT_EQ(_next(3), ",");
    EXPECT_EQ(_next(2), ",");
    EXPECT_EQ(_next(1), "");
    EXPECT_EQ(_next(0), "");
    EXPECT_EQ(_next(-1), "");
}

TEST(Addresses, OnlyTheBlankIsRemoved)
{
    EXPECT_EQ(eliminate_space(" a  b\tc \r\n"), "ab\tc\r\n");
    EXPECT_EQ(eliminate_space("    "), "");
    EXPECT_EQ(eliminate_space(""), "");
    EXPECT_EQ(eliminate_space("\xa0\xe3\x80\x80"), "\xa0\xe3\x80\x80") << "other spaces stay";
}

// ----------------------------------------------------------------- header lines

TEST(HeaderLines, OfFixedText)
{
    EXPECT_EQ(get_mime_version(), "Mime-Version: 1.0\r\n");
    EXPECT_EQ(get_content_type_utf8(), "Content-Type: text/plain; charset=\"UTF-8\"\r\n");
    EXPECT_EQ(get_content_type_jis(), "Content-Type: text/plain; charset=\"ISO-2022-JP\"\r\n");
    EXPECT_EQ(get_content_transfer_encoding_base64(), "Content-Transfer-Encoding: base64\r\n");
    EXPECT_EQ(get_content_transfer_encoding_7bit(), "Content-Transfer-Encoding: 7bit\r\n");
    EXPECT_EQ(get_crlf(), "\r\n");
}

TEST(HeaderLines, WithATextOfTheirOwn)
{
    EXPECT_EQ(get_from("f"), "From: f\r\n");
    EXPECT_EQ(get_from(""), "From: \r\n");
    EXPECT_EQ(get_replyto("r"), "Reply-To: r\r\n");
    EXPECT_EQ(get_messageid("<m>"), "Message-Id: <m>\r\n");
    EXPECT_EQ(get_subject_no_encoding(""), "Subject: \r\n");
}

// ------------------------------------------------------------------ Base64 body

class BodyLength : public Composition, public testing::WithParamInterface<std::size_t>
{
};

// 54 bytes make a line of 72 characters; 55, 56 and 57 make a full one, which CR LF follows, as
// the last line too; 58 begin the next.
TEST_P(BodyLength, DecidesWhereTheLinesOfTheUtf8BodyEnd)
{
    std::string body;
    for (std::size_t i = 0; i < GetParam(); ++i) {
        body += static_cast<char>('a' + i % 26);
    }
    auto const msg   = new_message();
    record(msg).to   = "x@a.test";
    record(msg).body = body;
    EXPECT_EQ(compose(msg).back(), base64_lines(body));
}

INSTANTIATE_TEST_SUITE_P(Lines, BodyLength,
                         testing::Values(0, 1, 2, 3, 54, 55, 56, 57, 58, 111, 112, 113, 114, 115,
                                         5700, 100000));

TEST(Base64Body, OfFiftySevenAndFiftyEightBytes)
{
    std::string const full(57, 'a');
    EXPECT_EQ(_base64(full, true), base64(full) + "\r\n");
    EXPECT_EQ(_base64(full + "b", true), base64(full) + "\r\nYg==");
    EXPECT_EQ(_base64(full + "b", false), base64(full + "b"));
}

TEST(Base64Body, OfFiftyFiveAndFiftySixBytesIsAFullLineToo)
{
    for (std::size_t const length : {std::size_t{55}, std::size_t{56}}) {
        std::string const body(length, 'a');
        std::string const text = _base64(body, true);
        EXPECT_EQ(text.size(), 78U);
        EXPECT_EQ(text, base64(body) + "\r\n");
    }
}

TEST(Base64Body, ConvertsNothing)
{
    std::string const bytes("\x00\xff\x80 \x1b$B", 7);
    EXPECT_EQ(_utf8(bytes), bytes);
    EXPECT_EQ(_jis(bytes), bytes);
    EXPECT_EQ(_base64(bytes, false), base64(bytes));
    EXPECT_EQ(_utf8_base64(bytes, true), base64(bytes));
    EXPECT_EQ(_jis_base64(bytes, false), base64(bytes));
    EXPECT_EQ(_base64("", true), "");
}

// ------------------------------------------------------------------- in pieces

namespace
{

constexpr unsigned piece = 57 * 1024;

// A message file.
class message_on_disk
{
public:
    message_on_disk(std::string const& encoding, std::string const& body)
    {
        write_file(dir_.file("a.sme"), "encoding: " + encoding + "\nto: x@a.test\n" + body);
        file_ = follow_message_file(dir_.file("a.sme").c_str());
    }

    message_holder whole() const
    {
        void* msg = nullptr;
        EXPECT_EQ(msg_load(&msg, file_), 0);
        return message_holder(msg);
    }

    message_holder without_body(message_body& body) const
    {
        void* msg = nullptr;
        EXPECT_EQ(body.load(&msg, file_), 0);
        EXPECT_TRUE(mail_text::takes(msg, body));
        return message_holder(msg);
    }

    // Whether a body of so many bytes can be composed in pieces; it has nothing but NULs.
    bool can_be_composed_in_pieces(std::int64_t size) const
    {
        EXPECT_EQ(::truncate(dir_.file("a.sme").c_str(), static_cast<off_t>(size)), 0);
        void*        msg = nullptr;
        message_body body;
        EXPECT_EQ(body.load(&msg, file_), 0);
        EXPECT_GE(body.most(), size);
        message_holder const holder(msg);
        return mail_text::takes(msg, body);
    }

    void change() const { write_file(dir_.file("a.sme"), "to: y"); }

private:
    temp_dir const dir_;
    message_file   file_;
};

// The strings of a mail that is composed in pieces, one after the other.
std::string in_pieces(message_on_disk const& message, conf_settings const& settings, int& pieces)
{
    message_body         body;
    mail_text            text;
    strings              first;
    message_holder const msg = message.without_body(body);
    EXPECT_EQ(text.begin(msg.get(), body, first, settings), 0);
    std::string sent = joined(first);
    EXPECT_EQ(first.back(), "");
    for (pieces = 0; !text.done(); ++pieces) {
        EXPECT_TRUE(text.next(first.back()));
        sent += first.back();
    }
    return sent;
}

}  // namespace

TEST_F(Composition, InPiecesIsTheSame)
{
    conf_settings const settings(conf(), {key_subject_use_encoding});
    std::mt19937        random(4);
    for (unsigned const size : {0u,
                                1u,
                                2u,
                                3u,
                                55u,
                                56u,
                                57u,
                                58u,
                                76u,
                                1023u,
                                piece - 2,
                                piece - 1,
                                piece,
                                piece + 1,
                                piece + 2,
                                piece + 3,
                                piece + 55,
                                piece + 56,
                                piece + 57,
                                piece + 58,
                                2 * piece - 1,
                                2 * piece,
                                2 * piece + 1,
                                3 * piece,
                                3 * piece + 1,
                                4 * piece - 1,
                                400000u}) {
        for (char const* const encoding : {"UTF-8", "ISO-2022-JP", "iso-2022-jp"}) {
            for (bool const lines : {false, true}) {
                SCOPED_TRACE(encoding + (" " + std::to_string(size)));
                std::string body(size, lines ? 'x' : '.');
                for (char& c : body) {
                    if (lines) {
                        c = "\r\n.."[random() % 4];
                        c = random() % 4 == 0 ? c : static_cast<char>(1 + random() % 255);
                    }
                }
                message_on_disk const message(encoding, body);

                clear_traces();
                strings    whole;
                auto const msg    = message.whole();
                auto const length = static_cast<int>(record(msg).body.size());
                EXPECT_EQ(smtpmsg_create_multiline(msg.get(), whole, settings), 0);
                strings const as_a_whole = traces();
                clear_traces();
                int pieces = 0;
                EXPECT_TRUE(in_pieces(message, settings, pieces) == joined(whole));
                EXPECT_EQ(traces(), as_a_whole);
                EXPECT_EQ(pieces, length / static_cast<int>(piece) + 1);
            }
        }
    }
}

// A piece that ends between CR and LF, or whose next one begins with a dot.
TEST_F(Composition, InPiecesIsTheSameAtEveryBorder)
{
    conf_settings const settings(conf(), {key_subject_use_encoding});
    for (std::string const cut : {"\r", "\r\r", "\n", "\n.", "\r.", "\r\n.\n..\r", "..", "\n\n"}) {
        for (unsigned before = 0; before <= 2 * cut.size(); ++before) {
            for (char const* const after : {"", "x\n"}) {
                SCOPED_TRACE(testing::PrintToString(cut) + " after " + std::to_string(before));
                std::string const     body = std::string(piece - before, 'x') + cut + after;
                message_on_disk const message("ISO-2022-JP", body);
                strings               whole;
                int                   pieces = 0;
                EXPECT_EQ(smtpmsg_create_multiline(message.whole().get(), whole, settings), 0);
                EXPECT_TRUE(in_pieces(message, settings, pieces) == joined(whole));
            }
        }
    }
}

TEST_F(Composition, InPiecesIsForBodiesThatTheWholeFormDoesNotLeaveOut)
{
    constexpr std::int64_t limit = std::numeric_limits<int>::max() / 4;  // in ISO-2022-JP
    EXPECT_TRUE(message_on_disk("UTF-8", "").can_be_composed_in_pieces(limit + 1));
    EXPECT_TRUE(message_on_disk("ISO-2022-JP", "").can_be_composed_in_pieces(limit - 100));
    EXPECT_FALSE(message_on_disk("ISO-2022-JP", "").can_be_composed_in_pieces(limit + 1));
}

TEST_F(Composition, InPiecesEndsWhereTheFileHasChanged)
{
    conf_settings const settings(conf(), {key_subject_use_encoding});
    for (char const* const encoding : {"UTF-8", "ISO-2022-JP"}) {
        message_on_disk const message(encoding, std::string(200000, 'x'));
        message_body          body;
        mail_text             text;
        strings               out;
        auto const            msg = message.without_body(body);
        ASSERT_EQ(text.begin(msg.get(), body, out, settings), 0);
        EXPECT_TRUE(text.next(out.back()));
        message.change();
        bool more = true;
        while (more) {
            ASSERT_FALSE(text.done());
            more = text.next(out.back());
        }
        EXPECT_EQ(errno, 0);
    }
}

// ------------------------------------------------------------------ no memory

TEST_F(Composition, WithoutMemoryForBase64TheTextIsEmpty)
{
    std::string const text(30, 'x');  // a short one needs none
    std::string       encoded;
    for (bool const line_breaks : {false, true}) {
        {
            failing_new const no_memory(0);
            encoded = _base64(text, line_breaks);
        }
        EXPECT_EQ(encoded, "");
    }
    {
        failing_new const no_memory(1, 1);  // there is a copy, but no result
        encoded = get_subject_utf8_base64(text);
    }
    EXPECT_EQ(encoded, "Subject: =?UTF-8?B?"
                       "?=\r\n");
    EXPECT_EQ(trouble_traces(), strings(3, "error:base64_encode"));
}

TEST_F(Composition, WithoutMemoryForBase64AMailIsComposedAllTheSame)
{
    auto const msg   = new_message();
    record(msg).to   = "x@a.test";
    record(msg).body = std::string(100, 'x');
    conf_settings const settings(conf(), {key_subject_use_encoding});
    bool                without_body = false;
    for (int good = 0; good < 40 && !without_body; ++good) {
        strings out;
        bool    composed = true;
        clear_traces();
        try {
            failing_new const no_memory(good, 1);
            smtpmsg_create_multiline(msg.get(), out, settings);
        } catch (std::bad_alloc const&) {
            composed = false;  // somewhere else
        }
        without_body = composed && out.size() == 10 && out[9].empty();
        EXPECT_EQ(trouble_traces(), without_body ? strings{"error:base64_encode"} : strings{});
    }
    EXPECT_TRUE(without_body);
}

TEST_F(Composition, WithoutMemoryForTheBeginningALongBodyIsLeftOut)
{
    conf_settings const   settings(conf(), {key_subject_use_encoding});
    message_on_disk const message("UTF-8", std::string(200000, 'x'));
    int                   without_body = 0;
    bool                  refused      = true;
    for (int good = 0; refused; ++good) {
        ASSERT_LT(good, 100);
        message_body body;
        mail_text    text;
        strings      out;
        auto const   msg      = message.without_body(body);
        bool         composed = true;
        clear_traces();
        {
            failing_new const no_memory(good, 1);
            try {
                text.begin(msg.get(), body, out, settings);
                text.next(out.back());
            } catch (std::bad_alloc const&) {
                composed = false;  // somewhere else
            }
            refused = failing_new::refused();
        }
        bool const left_out = composed && out.back().empty();
        EXPECT_EQ(trouble_traces(), left_out ? strings{"error:base64_encode"} : strings{});
        EXPECT_EQ(text.done(), left_out);
        without_body += left_out ? 1 : 0;
        if (composed && !left_out) {
            failing_new const no_memory(0);
            while (!text.done()) {
                EXPECT_TRUE(text.next(out.back()));
            }
            EXPECT_FALSE(failing_new::refused()) << "what follows takes no more memory";
        }
    }
    EXPECT_EQ(without_body, 1);
}

TEST_F(Composition, WithoutMemoryToConvertItALongBodyInJisIsSentAsItIs)
{
    conf_settings const   settings(conf(), {key_subject_use_encoding});
    message_on_disk const message("ISO-2022-JP", ".a\n" + std::string(200000, 'x') + "\r");
    message_body          body;
    mail_text             text;
    strings               out;
    auto const            msg = message.without_body(body);
    ASSERT_EQ(text.begin(msg.get(), body, out, settings), 0);
    std::string sent;
    {
        failing_new const no_memory(0, 1);
        EXPECT_TRUE(text.next(out.back()));
        EXPECT_TRUE(failing_new::refused());
    }
    sent += out.back();
    while (!text.done()) {
        EXPECT_TRUE(text.next(out.back()));
        sent += out.back();
    }
    EXPECT_EQ(sent, ".a\r\n" + std::string(200000, 'x') + "\r");
}

TEST_F(Composition, WithoutMemoryToConvertItABodyInJisIsSentAsItIs)
{
    auto const msg           = new_message();
    record(msg).encoding     = "ISO-2022-JP";
    record(msg).body         = ".a\n" + std::string(100000, 'x');
    std::string const before = record(msg).body;
    {
        failing_new const no_memory(0, 1);
        modify_body(msg.get());
        EXPECT_TRUE(failing_new::refused());
    }
    EXPECT_EQ(record(msg).body, before);
}

TEST_F(Composition, OfALongBodyDoesNotGoOnWithAGap)
{
    message_on_disk const message("UTF-8", std::string(200000, 'x'));
    message_body          body;
    mail_text             text;
    strings               out;
    auto const            msg = message.without_body(body);
    ASSERT_EQ(text.begin(msg.get(), body, out, conf_settings(conf(), {key_subject_use_encoding})),
              0);
    EXPECT_TRUE(text.next(out.back()));
    std::string       other;  // without the memory of the first piece
    failing_new const no_memory(0);
    EXPECT_THROW(text.next(other), std::bad_alloc);
}

TEST_F(Composition, WithoutALockForTheSettingsTheSubjectIsEncoded)
{
    set_conf("subject_use_encoding = no\r\n");
    auto const msg      = new_message();
    record(msg).to      = "x@a.test";
    record(msg).subject = "hi";
    fail_heap_after(0);
    EXPECT_EQ(compose(msg)[3], "Subject: =?UTF-8?B?aGk=?=\r\n");
    EXPECT_EQ(trouble_traces(), (strings{"error:ilockw_create", "error:conf_get_string %s"}));
}

TEST_F(Composition, WithoutMemoryTheIso2022JpBodyStaysAsItIs)
{
    auto const msg       = new_message();
    record(msg).encoding = "ISO-2022-JP";
    record(msg).body     = "\n.a";
    fail_heap_after(0);
    modify_body(msg.get());
    EXPECT_EQ(record(msg).body, "\n.a");
}

TEST_F(Composition, GivesAllItsBuffersBack)
{
    auto const msg      = new_message();
    record(msg).to      = "x@a.test";
    record(msg).subject = "hi";
    record(msg).body    = "text\n.";
    for (char const* encoding : {"UTF-8", "ISO-2022-JP"}) {
        record(msg).encoding = encoding;
        for (int good = 0; good < 12; ++good) {
            fail_heap_after(good);
            compose(msg);
        }
    }
    EXPECT_EQ(live_heap_buffers(), 0);
}

// ----------------------------------------------------------- ISO-2022-JP bodies

TEST_F(Composition, AnIso2022JpBodyGetsItsLineEndsAndItsDotsOnce)
{
    struct row {
        std::string before;
        std::string after;
        char const* reason;
    };
    row const rows[] = {
        {"a\n.b\r.c", "a\r\n..b\r\n..c",
         "each lone line break becomes CR LF, each opening dot two"},
        {"", "", "empty stays empty"},
        {"\n", "\r\n", "a lone line break"},
        {"\n\r\n", "\r\n\r\n", "a line break of each kind"},
        {"a.b\r\nc.", "a.b\r\nc.", "other dots stay"},
        {".", "..", "a body that is the end mark itself"},
        {"..", "...", "only the first dot of a line is doubled"},
        {"a\r\n.\r\nb", "a\r\n..\r\nb", "an end mark inside"},
        {"\r\r\n", "\r\n\r\n", "a lone CR before CR LF"},
    };
    for (row const& r : rows) {
        auto const msg       = new_message();
        record(msg).encoding = "ISO-2022-JP";
        record(msg).body     = r.before;
        modify_body(msg.get());
        EXPECT_EQ(record(msg).body, r.after) << r.reason;

        record(msg).encoding = "UTF-8";
        record(msg).body     = r.before;
        modify_body(msg.get());
        EXPECT_EQ(record(msg).body, r.before) << "UTF-8: " << r.reason;
    }
}

namespace
{

// What modify_body_data has to make of a body, in three plain steps.
std::string fit_to_be_sent(std::string text)
{
    for (std::size_t at = 0; (at = text.find("\r\n", at)) != std::string::npos;) {
        text.erase(at, 1);
    }
    std::replace(text.begin(), text.end(), '\r', '\n');

    std::string result;
    bool        opens_line = true;
    for (char const c : text) {
        result += opens_line && c == '.' ? ".." : c == '\n' ? "\r\n" : std::string(1, c);
        opens_line = c == '\n';
    }
    return result;
}

// Runs modify_body_data in a heap buffer of exactly this size, so that a sanitizer sees every
// byte too far.
int modify(std::string const& in, int capacity, std::string& out, int& length)
{
    std::vector<char> buffer(static_cast<std::size_t>(capacity), 'x');
    length           = capacity;
    int const result = modify_body_data(in.c_str(), buffer.data(), &length);
    out              = result == 0 ? std::string(buffer.data()) : std::string();
    if (result == 0) {
        for (std::size_t i = out.size(); i < buffer.size(); ++i) {
            EXPECT_EQ(buffer[i], '\0') << "all bytes of the buffer are cleared";
        }
    }
    return result;
}

}  // namespace

TEST(BodyData, IsWhatThreePlainStepsMakeOfAnyText)
{
    std::mt19937 random(7);
    for (int round = 0; round < 5000; ++round) {
        std::string in;
        auto const  length = 1 + random() % 40;
        while (in.size() < length) {
            in += "\r\n..a "[random() % 6];
        }
        std::string const wanted = fit_to_be_sent(in);
        int const         needed = static_cast<int>(wanted.size()) + 1;

        std::string out;
        int         size = 0;
        ASSERT_EQ(modify(in, needed, out, size), 0) << testing::PrintToString(in);
        EXPECT_EQ(out, wanted) << testing::PrintToString(in);
        EXPECT_EQ(size, needed - 1);

        int const half = (static_cast<int>(in.size()) + 1) * 2;
        ASSERT_EQ(modify(in, half, out, size), 0) << "twice the body is always enough";
        EXPECT_EQ(out, wanted);

        // Every smaller buffer is refused and keeps its size.
        int const small = 1 + static_cast<int>(random() % static_cast<unsigned>(needed - 1));
        EXPECT_EQ(modify(in, small, out, size), -1) << testing::PrintToString(in);
        EXPECT_EQ(size, small);
    }
}

TEST(BodyData, NeedsRoomForItsNul)
{
    struct row {
        char const* in;
        int         needed;
        char const* reason;
    };
    row const rows[] = {
        {"a", 2, "one byte and the NUL"},
        {"\n", 3, "CR LF and the NUL"},
        {"\r\n", 3, "likewise"},
        {".", 3, "two dots and the NUL"},
        {"abc\n.", 8, "abc, CR LF, two dots and the NUL"},
    };
    for (row const& r : rows) {
        std::string out;
        int         size = 0;
        EXPECT_EQ(modify(r.in, r.needed, out, size), 0) << r.reason;
        for (int capacity = 1; capacity < r.needed; ++capacity) {
            EXPECT_EQ(modify(r.in, capacity, out, size), -1) << r.reason << " in " << capacity;
        }
    }
}

TEST(BodyData, RefusesWhatItCannotUse)
{
    char out[8] = "kept";
    int  size   = 8;
    EXPECT_EQ(modify_body_data(nullptr, out, &size), -1);
    EXPECT_EQ(modify_body_data("a", nullptr, &size), -1);
    EXPECT_EQ(modify_body_data("a", out, nullptr), -1);
    EXPECT_EQ(modify_body_data("", out, &size), -1);
    for (int const too_small : {0, -1, -2147483647 - 1}) {
        size = too_small;
        EXPECT_EQ(modify_body_data("a", out, &size), -1);
        EXPECT_EQ(size, too_small);
    }
    EXPECT_STREQ(out, "kept");
}

}  // namespace zelieml::test
