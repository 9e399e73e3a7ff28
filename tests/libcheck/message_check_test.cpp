// message_check_test.cpp - what the check of a message finds

#include "libcheck/message_check.h"

#include <gtest/gtest.h>
#include <limits>
#include <stdexcept>
#include <string>
#include <vector>

#include "libmsg/libmsg.h"
#include "libsendw/smtpmsg.h"
#include "tests/libcheck/found.h"
#include "tests/support/case_name.h"
#include "tests/support/failing_new.h"
#include "tests/support/files.h"
#include "tests/support/random_values.h"

namespace zelieml
{
namespace
{

using test::found;
using lines = std::vector<std::string>;

_s_msg good_message()
{
    _s_msg msg;
    msg_init(&msg);
    msg_set_from(&msg, "printer7@office.test");
    msg_set_to(&msg, "anna@office.test, ben@office.test");
    msg_set_subject(&msg, "tray 2");
    msg_set_replyto(&msg, "help@office.test");
    msg_set_messageid(&msg, "<42@printer7.office.test>");
    msg_set_body(&msg, "tray 2 is empty\n\ngoodbye\n");
    return msg;
}

std::vector<found> findings_of(_s_msg msg)
{
    std::vector<found> all;
    int const          worst = msg_check(&msg, test::keep, &all);
    EXPECT_EQ(worst, test::worst_of(all));
    return all;
}

std::string repeated(std::string const& text, int count)
{
    std::string all;
    for (; count > 0; --count) {
        all += text;
    }
    return all;
}

// A good message, but for what it names.
struct message_case : test::named_case {
    using named_case::named_case;

    message_case from(std::string const& text) const { return with(&_s_msg::from, text); }
    message_case to(std::string const& text) const { return with(&_s_msg::to, text); }
    message_case cc(std::string const& text) const { return with(&_s_msg::cc, text); }
    message_case subject(std::string const& text) const { return with(&_s_msg::subject, text); }
    message_case replyto(std::string const& text) const { return with(&_s_msg::replyto, text); }
    message_case messageid(std::string const& text) const { return with(&_s_msg::messageid, text); }
    message_case encoding(std::string const& text) const { return with(&_s_msg::encoding, text); }
    message_case stored_body(std::string const& text) const { return with(&_s_msg::body, text); }
    message_case body(std::string const& text) const
    {
        message_case c = *this;
        msg_set_body(&c.msg, text.c_str());
        return c;
    }
    message_case jis() const { return encoding("ISO-2022-JP"); }
    message_case finds(lines const& some) const
    {
        message_case c = *this;
        c.expected     = some;
        return c;
    }

    message_case with(std::string _s_msg::*member, std::string const& text) const
    {
        message_case c = *this;
        c.msg.*member  = text;
        return c;
    }

    _s_msg msg = good_message();
    lines  expected;
};

// What is wrong with an address.
std::string is_not_plain(std::string const& field, std::string const& address)
{
    return "error " + field + ": \"" + address +
           "\" is no plain address: write user@host, without names or brackets, and commas between "
           "recipients";
}

std::string is_not_ascii(std::string const& field, std::string const& address)
{
    return "error " + field + ": \"" + address +
           "\" is not ASCII, and servers refuse it: use another address";
}

std::string has_no_host(std::string const& field, std::string const& address)
{
    return "warning " + field + ": \"" + address +
           "\" is not of the form user@host: servers may refuse it";
}

std::string is_key(int line, std::string const& key)
{
    return "error " + std::to_string(line) + " body: it begins with \"" + key +
           "\", is taken as that header and is missing from the body: indent it";
}

std::string is_too_long(std::string const& field, int limit)
{
    return "warning " + field + ": it makes a line that relays may refuse: keep it within " +
           std::to_string(limit) + " bytes";
}

std::string is_invalid(std::string const& place, int byte, std::string const& encoding)
{
    return "error " + place + ": byte " + std::to_string(byte) + " is not valid in " + encoding +
           ": convert the text";
}

std::string is_open(std::string const& place)
{
    return "warning " + place + ": it does not return to ASCII at its end: write ESC ( B there";
}

std::string has_cr(std::string const& place)
{
    return "warning " + place +
           ": a CR is removed when the message is saved, and stays in a file that is posted as it "
           "is: write LF line ends";
}

std::string breaks_off(std::string const& field)
{
    return "error " + field +
           ": what follows its line break is read as another line of the message: remove it";
}

std::string loses_break(std::string const& field)
{
    return "note " + field + ": the line break at its end is removed";
}

std::string loses_empty(int line)
{
    return "warning " + std::to_string(line) +
           " body: empty lines before the first text are lost: begin with a space";
}

lines ten(std::string (*finding)(int line))
{
    lines all;
    for (int line = 1; line <= 10; ++line) {
        all.push_back(finding(line));
    }
    return all;
}

lines joined(std::vector<lines> const& parts)
{
    lines all;
    for (lines const& part : parts) {
        all.insert(all.end(), part.begin(), part.end());
    }
    return all;
}

char const empty_recipient[] = "a recipient is empty, and servers refuse \"<>\": remove its comma";
char const no_recipient[] =
    "error to: there is no recipient: set an address, even if there is a Cc";
char const spaces[] = ": the spaces inside an address are removed";
char const long_line[] =
    " body: it is a line that relays may refuse: break it after 998 bytes at most";
char const bad_id[] =
    "warning messageid: it is not of the form <name@host>: programs may ignore it";
char const not_shown[] =
    "warning from: it is sent as it is, and programs may not show it: use ASCII only";
char const longer[]   = "\" is longer than servers have to take";
char const not_sent[] = "\" is too long to be sent";

std::string const kanji       = "\033$B%H%l!<\033(B";
std::string const other_kanji = "\033$@%H\033(J";

// An address of a number of bytes, and how it is quoted.
std::string address_of(std::size_t size)
{
    return std::string(size - 2, 'a') + "@b";
}
std::string const quoted_address = std::string(80, 'a') + "...";

message_case const cases[] = {
    message_case("a good message"),
    message_case("a good message with a Cc in ISO-2022-JP")
        .jis()
        .cc("chef@office.test")
        .subject(kanji)
        .body(kanji + "\n.\n" + other_kanji + "\n\033(B\tend\n"),
    message_case("a good message in UTF-8")
        .subject("\u30c8")
        .body("\u30c8\ud7ff\ue000\U0010ffff\n"),

    message_case("body lines that begin with keys")
        .body("one\nto: anna@x.test\ncc: \nTo: x\n to: x\nsubject:x\nencoding: UTF-8\n")
        .finds({is_key(2, "to: "), is_key(3, "cc: "), is_key(7, "encoding: ")}),
    message_case("a body line whose header counts then")
        .body("to: anna\n")
        .finds({has_no_host("to", "anna"), is_key(1, "to: ")}),
    message_case("a body line that makes another encoding")
        .body("\u30c8\nencoding: ISO-2022-JP\n")
        .finds({is_invalid("1 body", 1, "ISO-2022-JP"), is_key(2, "encoding: ")}),
    message_case("a key that a lone CR hides")
        .stored_body("x\nt\ro: a@b.test")
        .finds({has_cr("2 body"), is_key(2, "to: ")}),
    message_case("more than ten lines that begin with a key")
        .body(repeated("replyto: a@b\n", 11))
        .finds(ten([](int line) { return is_key(line, "replyto: "); })),

    message_case("empty lines at the start of the body").body("\n\nx\n").finds({loses_empty(1)}),
    message_case("an empty line behind a key")
        .body("cc: a@b\n\nx\n")
        .finds({is_key(1, "cc: "), loses_empty(2)}),
    message_case("a body of lone LFs").body("\n\n").finds({loses_empty(1)}),
    message_case("a body of lone CRs").body("\r\r").finds({has_cr("1 body")}),
    message_case("no body").body(""),
    message_case("a body without line end").body("x"),
    message_case("CRs within a body")
        .stored_body("a\r\nb\rc\r\nd\re\r\n")
        .finds({has_cr("2 body")}),
    message_case("a CR behind a line end").stored_body("a\r\n\rb").finds({has_cr("2 body")}),
    message_case("CRs of a file with CR LF line ends")
        .subject("tray\r")
        .stored_body("a\r\r\nb\r\r\n")
        .finds({has_cr("subject"), has_cr("1 body")}),

    message_case("a line break in the subject").subject("a\nb").finds({breaks_off("subject")}),
    message_case("a line break that makes another header")
        .subject("a\r\nreplyto: Anna")
        .replyto("x@y")
        .finds({breaks_off("subject")}),
    message_case("a line break that makes a header that is not set")
        .from("a\ncc: Anna")
        .finds({breaks_off("from"), has_no_host("cc", "Anna")}),
    message_case("a line break that makes a body before the body")
        .messageid("<a@b>\nc")
        .body("\nx\n")
        .finds({breaks_off("messageid")}),
    message_case("line breaks at the end of headers")
        .subject("a\r\n")
        .to("a@b\n\n")
        .finds({loses_break("to"), loses_break("subject")}),
    message_case("a lone CR in a header").to("a@b\r,c@d").finds({has_cr("to")}),

    message_case("an unknown encoding")
        .encoding("iso-2022-jp")
        .body("\xff")
        .finds({"warning encoding: \"iso-2022-jp\" counts as UTF-8: write UTF-8 or ISO-2022-JP",
                is_invalid("1 body", 1, "UTF-8")}),
    message_case("an unknown encoding that cannot be shown")
        .encoding("a\x01\xff\u0085\u00e4\x7f")
        .finds({"warning encoding: \"a???\u00e4?\" counts as UTF-8: write UTF-8 or ISO-2022-JP"}),

    message_case("no sender")
        .from("")
        .finds({"warning from: there is no sender, which servers may refuse: set one"}),
    message_case("a sender that is not ASCII").from("J\u00fcrgen <j@x.test>").finds({not_shown}),
    message_case("a sender with a control character").from("a\x01@b").finds({not_shown}),
    message_case("a sender with name and tab").from("Anna,\t(x) <a@b>"),
    message_case("the longest sender").from(std::string(992, 'a')),
    message_case("a longer sender").from(std::string(993, 'a')).finds({is_too_long("from", 992)}),

    message_case("no recipient").to("").finds({no_recipient}),
    message_case("recipients that are all empty").to(" , ,").finds({no_recipient}),
    message_case("a recipient in the Cc only").to("").cc("a@b").finds({no_recipient}),
    message_case("a comma at the end")
        .to("a@b, ")
        .finds({std::string("error to: ") + empty_recipient}),
    message_case("two commas, and a Cc of a space")
        .to("a@b,,c@d")
        .cc(" ")
        .finds({std::string("error to: ") + empty_recipient,
                std::string("error cc: ") + empty_recipient}),
    message_case("spaces in addresses")
        .to(" a @b ,c@ d ")
        .cc("  a@b  ,  c@d  ")
        .finds({std::string("note to") + spaces}),
    message_case("names with addresses")
        .to("Anna Smith <a@b>")
        .cc("a@b;c@d,(e)f@g")
        .replyto("<a@b>")
        .finds({std::string("note to") + spaces, is_not_plain("to", "AnnaSmith<a@b>"),
                is_not_plain("cc", "a@b;c@d"), is_not_plain("cc", "(e)f@g"),
                is_not_plain("replyto", "<a@b>")}),
    message_case("control characters in addresses")
        .to("a\t@b")
        .replyto("a\x7f@b")
        .finds({is_not_plain("to", "a?@b"), is_not_plain("replyto", "a?@b")}),
    message_case("two addresses in the reply-to")
        .replyto("a@b,c@d")
        .finds({is_not_plain("replyto", "a@b,c@d")}),
    message_case("a space in the reply-to")
        .replyto("a@b ")
        .finds({is_not_plain("replyto", "a@b ")}),
    message_case("addresses that are not ASCII")
        .to("\u00e4@b")
        .replyto("a@\u30c8")
        .finds({is_not_ascii("to", "\u00e4@b"), is_not_ascii("replyto", "a@\u30c8")}),
    message_case("addresses without user or host")
        .to("anna,a@,@b")
        .replyto("help")
        .finds({has_no_host("to", "anna"), has_no_host("to", "a@"), has_no_host("to", "@b"),
                has_no_host("replyto", "help")}),
    message_case("more than ten recipients of a kind")
        .to(repeated("anna,", 6) + repeated("<a@b>,", 7) + "c@d")
        .cc(repeated("anna,", 6) + repeated("<a@b>,", 7) + repeated("\u00e4@b,", 11) + "c@d")
        .replyto("<a@b>")
        .finds(joined({lines(6, has_no_host("to", "anna")),
                       lines(7, is_not_plain("to", "<a@b>")),
                       lines(4, has_no_host("cc", "anna")),
                       lines(3, is_not_plain("cc", "<a@b>")),
                       lines(10, is_not_ascii("cc", "\u00e4@b")),
                       {is_not_plain("replyto", "<a@b>")}})),
    message_case("more than ten recipients that are too long")
        .to(repeated(address_of(1024 - 13) + ",", 11) + repeated(address_of(513 - 13) + ",", 11) +
            "c@d")
        .finds(joined({lines(10, "error to: \"" + quoted_address + not_sent),
                       lines(10, "warning to: \"" + quoted_address + longer)})),
    message_case("addresses that servers have to take")
        .to(address_of(512 - 13))
        .replyto(address_of(512 - 15)),
    message_case("longer addresses")
        .to(address_of(513 - 13))
        .replyto(address_of(513 - 15))
        .finds({"warning to: \"" + quoted_address + longer,
                "warning replyto: \"" + quoted_address + longer}),
    message_case("the longest addresses that are sent")
        .to(address_of(1023 - 13))
        .replyto(address_of(1023 - 15))
        .finds({"warning to: \"" + quoted_address + longer,
                "warning replyto: \"" + quoted_address + longer}),
    message_case("addresses that are not sent")
        .cc(address_of(1024 - 13))
        .replyto(address_of(1024 - 15))
        .finds({"error cc: \"" + quoted_address + not_sent,
                "error replyto: \"" + quoted_address + not_sent}),

    message_case("no reply-to")
        .replyto("")
        .finds(
            {"warning replyto: it is empty, so bounces are lost: set the address that is to get them"}),

    message_case("the longest subject").subject(std::string(732, 's')),
    message_case("a longer subject")
        .subject(std::string(733, 's'))
        .finds({is_too_long("subject", 732)}),
    message_case("the longest subject in ISO-2022-JP").jis().subject(std::string(726, 's')),
    message_case("a longer subject in ISO-2022-JP")
        .jis()
        .subject(std::string(727, 's'))
        .finds({is_too_long("subject", 726)}),
    message_case("a subject that is not in UTF-8")
        .subject("ab\xe4")
        .finds({is_invalid("subject", 3, "UTF-8")}),
    message_case("a subject that does not return to ASCII")
        .jis()
        .subject(other_kanji)
        .finds({is_open("subject")}),

    message_case("no Message-Id")
        .messageid("")
        .finds({"note messageid: there is none, and not every server adds one: set <name@host>"}),
    message_case("the shortest Message-Id").messageid("<x@y>"),
    message_case("the longest Message-Id").messageid("<" + address_of(984) + ">"),
    message_case("a longer Message-Id")
        .messageid("<" + address_of(985) + ">")
        .finds({is_too_long("messageid", 986)}),
    message_case("a Message-Id of brackets only").messageid("<>").finds({bad_id}),
    message_case("a Message-Id without name and host").messageid("<@>").finds({bad_id}),
    message_case("a Message-Id of one bracket").messageid("<").finds({bad_id}),
    message_case("a Message-Id without brackets").messageid("x@y").finds({bad_id}),
    message_case("a Message-Id without name").messageid("<@y>").finds({bad_id}),
    message_case("a Message-Id without host").messageid("<x@>").finds({bad_id}),
    message_case("a Message-Id without @").messageid("<xy>").finds({bad_id}),
    message_case("a Message-Id with more behind it").messageid("<x@y> ").finds({bad_id}),
    message_case("a Message-Id with a space").messageid("<x @y>").finds({bad_id}),
    message_case("a Message-Id with two brackets").messageid("<<x@y>").finds({bad_id}),
    message_case("a Message-Id that is not ASCII").messageid("<\u00e4@y>").finds({bad_id}),

    message_case("bytes that are not UTF-8")
        .body(
            "a\n\x80\n\xc3\n\xc0\xaf\n\xed\xa0\x80\n\xf4\x90\x80\x80\n\xe0\x9f\xbf\n\xf0\x8f\xbf\xbf\n")
        .finds({is_invalid("2 body", 1, "UTF-8"), is_invalid("3 body", 1, "UTF-8"),
                is_invalid("4 body", 1, "UTF-8"), is_invalid("5 body", 1, "UTF-8"),
                is_invalid("6 body", 1, "UTF-8"), is_invalid("7 body", 1, "UTF-8"),
                is_invalid("8 body", 1, "UTF-8")}),
    message_case("more than ten lines that are not UTF-8")
        .body(repeated("\xff\n", 12))
        .finds(
            ten([](int line) { return is_invalid(std::to_string(line) + " body", 1, "UTF-8"); })),
    message_case("bytes that are not ISO-2022-JP")
        .jis()
        .body(
            "a\xe3\n\033(Ix\033(B\n\016x\n\033\n\033$B%\033(B\n\033$B% \033(B\n\033$B%H\xa5\033(B\nx\033$\n")
        .finds({is_invalid("1 body", 2, "ISO-2022-JP"), is_invalid("2 body", 1, "ISO-2022-JP"),
                is_invalid("3 body", 1, "ISO-2022-JP"), is_invalid("4 body", 1, "ISO-2022-JP"),
                is_invalid("5 body", 4, "ISO-2022-JP"), is_invalid("6 body", 4, "ISO-2022-JP"),
                is_invalid("7 body", 6, "ISO-2022-JP"), is_invalid("8 body", 2, "ISO-2022-JP")}),
    message_case("lines that do not return to ASCII")
        .jis()
        .body("\033$B%H\n%H\n%H\033(B\n\033(J\nx\n")
        .finds({is_open("1 body"), is_open("2 body"), is_open("5 body")}),
    message_case("characters at the ends of ISO-2022-JP")
        .jis()
        .body("\033$B!!~~\033(B\n\033$B!\x7f\033(B\n")
        .finds({is_invalid("2 body", 4, "ISO-2022-JP")}),
    message_case("half a character at the end of a line")
        .jis()
        .body("\033$B%\n")
        .finds({is_invalid("1 body", 4, "ISO-2022-JP"), is_open("1 body")}),
    message_case("the longest line in ISO-2022-JP").jis().body("." + std::string(997, 'x')),
    message_case("longer lines in ISO-2022-JP")
        .jis()
        .body("a\n" + std::string(999, 'x') + "\n")
        .finds({std::string("warning 2") + long_line}),
    message_case("longer lines in UTF-8").body(std::string(5000, 'x')),
};

class MessageCheck : public testing::TestWithParam<message_case>
{
};

TEST_P(MessageCheck, FindsWhatTheCaseSays)
{
    EXPECT_EQ(test::in_lines(findings_of(GetParam().msg)), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(Cases, MessageCheck, testing::ValuesIn(cases),
                         test::case_name<message_case>);

TEST(MessageCheck, FindsWhatIsDocumented)
{
    std::vector<found> all;
    for (message_case const& c : cases) {
        std::vector<found> const some = findings_of(c.msg);
        all.insert(all.end(), some.begin(), some.end());
    }
    test::expect_documented("Messages", all);
}

TEST(MessageCheck, LeavesTheRecordAsItIs)
{
    for (message_case const& c : cases) {
        _s_msg             msg = c.msg;
        std::vector<found> all;
        msg_check(&msg, test::keep, &all);
        for (header_field const& field : header_fields) {
            EXPECT_EQ(msg.*field.text, c.msg.*field.text);
        }
        EXPECT_EQ(msg.body, c.msg.body);
    }
}

TEST(MessageCheck, NeedsAMessageAndACallback)
{
    _s_msg msg = good_message();
    EXPECT_EQ(msg_check(nullptr, test::keep, nullptr), -1);
    EXPECT_EQ(msg_check(&msg, nullptr, nullptr), -1);
}

TEST(MessageCheck, GoesOnWhenItsCallbackThrows)
{
    _s_msg msg   = good_message();
    int    calls = 0;
    msg_set_replyto(&msg, "");
    msg_set_to(&msg, "");
    auto const count_and_throw = [](eml_finding const*, void* user) {
        ++*static_cast<int*>(user);
        throw std::runtime_error("in a callback");
    };
    EXPECT_EQ(eml_msg_check(&msg, count_and_throw, &calls), eml_severity_error);
    EXPECT_EQ(calls, 2);
}

TEST(MessageCheck, FailsOnlyForLackOfMemory)
{
    _s_msg msg = good_message();
    msg_set_subject(&msg, "a subject of some length,\nfollowed by another line");
    for (int const bad : {1, std::numeric_limits<int>::max()}) {
        int result = -1;
        for (int good = 0; result == -1 && good < 1000; ++good) {
            auto const none = [](eml_finding const*, void*) {};
            bool       refused;
            {
                test::failing_new const no_memory(good, bad);
                result  = eml_msg_check(&msg, none, nullptr);
                refused = test::failing_new::refused();
            }
            EXPECT_EQ(result == -1, refused) << good;
        }
        EXPECT_EQ(result, eml_severity_error);
    }
}

// Anything that grew with the square of the size would take hours.
TEST(MessageCheck, TakesALongBody)
{
    int const megabytes = 3;
    struct row {
        char const* piece;
        int         result;
    };
    for (row const r : {row{"\n", eml_severity_warning}, row{"x", eml_severity_warning},
                        row{"to: a@b\n", eml_severity_error}, row{"\033$B%H", eml_severity_warning},
                        row{"\xff", eml_severity_error}, row{"\r", eml_severity_warning}}) {
        _s_msg      msg   = good_message();
        std::string piece = r.piece;
        msg.encoding      = "ISO-2022-JP";
        msg.body          = repeated(piece, (megabytes << 20) / static_cast<int>(piece.size()));
        std::vector<found> all;
        EXPECT_EQ(msg_check(&msg, test::keep, &all), r.result) << testing::PrintToString(piece);
        EXPECT_LE(all.size(), 11U);
    }
}

// A message of random pieces, often without any fault.
_s_msg random_message(test::random_values& random)
{
    static lines const  good   = {"a", "tray 2", " ", "x@y", ".", "\u30c8", "to:", "\t"};
    static lines const  bad    = {"\n",   "\r",   "\r\n",     "to: ",       "encoding: ISO-2022-JP",
                                  "\xff", "\033", "\033$B%H", "subject: s", "\x01"};
    std::uint32_t const chance = random.percent(50) ? 0 : random.below(50);
    auto const          text   = [&](std::uint32_t limit) {
        std::string result;
        for (std::uint32_t count = random.below(limit); count > 0; --count) {
            result += random.pick(random.percent(chance) ? bad : good);
        }
        return result;
    };
    _s_msg msg = good_message();
    for (header_field const& field : header_fields) {
        if (random.percent(chance)) {
            msg.*field.text = text(6);
        }
    }
    msg.subject = text(8);
    std::string body;
    for (std::uint32_t count = random.below(8); count > 0; --count) {
        body += text(6) + (random.percent(80) ? "\n" : "");
    }
    if (random.percent(chance)) {
        msg.body = body;
    } else {
        msg_set_body(&msg, body.c_str());
    }
    if (random.percent(40)) {
        msg_set_encoding(&msg, eml_encoding_iso2022jp);
    }
    return msg;
}

// The text that is sent of a message, without its date.
lines sent(_s_msg msg)
{
    lines text;
    EXPECT_EQ(smtpmsg_create_multiline(&msg, text, nullptr), 0);
    text.erase(text.begin());
    return text;
}

TEST(RandomMessages, AreSentAsTheyAreIfNothingIsFound)
{
    test::temp_dir const dir;
    test::random_values  random(77);
    int                  faultless = 0;
    for (int round = 0; round < 10000 && !HasFailure(); ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        _s_msg                   msg = random_message(random);
        std::vector<found> const all = findings_of(msg);
        for (found const& f : all) {
            EXPECT_LE(f.line, 1 + std::count(msg.body.begin(), msg.body.end(), '\n'));
        }
        if (test::worst_of(all) > eml_severity_note) {
            continue;
        }
        ++faultless;
        std::string const path   = dir.file(std::to_string(round));  // a new one: that is faster
        void*             loaded = nullptr;
        ASSERT_EQ(msg_save(&msg, path.c_str()), 0);
        ASSERT_EQ(msg_load(&loaded, path.c_str()), 0);
        message_holder const owner(loaded);
        for (header_field const& field : header_fields) {
            std::string& value = msg.*field.text;  // but for line breaks at its end
            value.erase(value.find_last_not_of("\r\n") + 1);
        }
        msg_set_body(&msg, std::string(msg.body).c_str());  // lone LFs
        EXPECT_EQ(sent(*static_cast<_s_msg*>(loaded)), sent(msg));
    }
    EXPECT_GT(faultless, 1000);
}

TEST(RandomMessages, OfAnyBytesAreChecked)
{
    test::random_values random(78);
    for (int round = 0; round < 3000; ++round) {
        _s_msg msg;
        msg_init(&msg);
        auto const fill = [&](std::string& text) {
            text.clear();
            for (std::uint32_t count = random.below(40); count > 0; --count) {
                text += static_cast<char>(1 + random.below(255));
            }
        };
        for (header_field const& field : header_fields) {
            fill(msg.*field.text);
        }
        fill(msg.body);
        if (random.percent(50)) {
            msg.encoding = "ISO-2022-JP";
        }
        for (found const& f : findings_of(msg)) {
            EXPECT_EQ(f.text.find_first_of("\n\r\t\x01\x7f"), std::string::npos) << f.text;
        }
    }
}

}  // namespace
}  // namespace zelieml
