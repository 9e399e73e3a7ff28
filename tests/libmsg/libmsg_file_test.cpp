// libmsg_file_test.cpp - the message file: layout, failures, and what comes back

#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "libmsg/libmsg.h"
#include "tests/support/fake_heap.h"
#include "tests/support/files.h"
#include "tests/support/full_disk.h"
#include "tests/support/trace_recorder.h"

namespace zelieml
{
namespace
{

using strings = std::vector<std::string>;

class MessageFile : public testing::Test
{
protected:
    void SetUp() override
    {
        test::fail_heap_after(-1);
        test::clear_traces();
        ASSERT_EQ(msg_create(&msg), 0);
        path = dir.file("m.sme");
    }

    void TearDown() override
    {
        test::fail_heap_after(-1);
        msg_destroy(msg);
        msg_destroy(loaded);
        EXPECT_EQ(test::live_heap_buffers(), 0);
    }

    // Loads a file of these bytes into loaded.
    void load(std::string const& bytes)
    {
        test::write_file(path, bytes);
        msg_destroy(loaded);
        loaded = nullptr;
        EXPECT_EQ(msg_load(&loaded, path.c_str()), 0);
        EXPECT_EQ(test::trouble_traces(), strings());
    }

    test::temp_dir dir;
    std::string    path;
    void*          msg    = nullptr;
    void*          loaded = nullptr;
};

TEST(MessageFileKeys, AreWhatOtherProgramsExpect)
{
    EXPECT_STREQ(KeyFrom, "from: ");
    EXPECT_STREQ(KeyTo, "to: ");
    EXPECT_STREQ(KeyCc, "cc: ");
    EXPECT_STREQ(KeySubject, "subject: ");
    EXPECT_STREQ(KeyReplyTo, "replyto: ");
    EXPECT_STREQ(KeyEncoding, "encoding: ");
    EXPECT_STREQ(KeyMessageID, "messageid: ");
    EXPECT_STREQ(ValCharLf, "\n");
    EXPECT_STREQ(ValCharCrLf, "\r\n");
}

TEST_F(MessageFile, OfAFreshRecordHasTheFiveConstantLines)
{
    EXPECT_EQ(msg_save(msg, path.c_str()), 0);
    EXPECT_EQ(test::read_file(path), "encoding: UTF-8\nfrom: \nto: \nsubject: \nreplyto: \n");
    EXPECT_EQ(test::trouble_traces(), strings());
}

// The whole sequence; the other tests look at what is reported.
TEST_F(MessageFile, IsTracedWhenItFailsAndNotWhenItDoesNot)
{
    EXPECT_EQ(msg_save(msg, path.c_str()), 0);
    EXPECT_EQ(msg_load(&loaded, path.c_str()), 0);
    EXPECT_EQ(test::traces(), strings());

    EXPECT_EQ(msg_save(nullptr, path.c_str()), -1);
    EXPECT_EQ(msg_save(msg, dir.path().c_str()), -1);
    msg_destroy(loaded);
    EXPECT_EQ(msg_load(&loaded, dir.path().c_str()), -1);
    test::fail_heap_after(0);
    EXPECT_EQ(msg_save(msg, path.c_str()), 0);
    EXPECT_EQ(test::traces(),
              (strings{"error:msg_save msg==0", "error:ofstream(%s)", "error:ifstream(%s)",
                       "error:malloc", "error:malloc", "error:malloc", "error:malloc",
                       "error:malloc", "error:malloc"}));
}

TEST_F(MessageFile, HasItsLinesInOneOrder)
{
    msg_set_body(msg, "first\nsecond");
    msg_set_messageid(msg, "<1@a.test>");
    msg_set_replyto(msg, "r@a.test");
    msg_set_subject(msg, "s");
    msg_set_cc(msg, "c@a.test");
    msg_set_to(msg, "t@a.test");
    msg_set_from(msg, "f@a.test");
    msg_set_encoding(msg, eml_encoding_iso2022jp);
    EXPECT_EQ(msg_save(msg, path.c_str()), 0);
    EXPECT_EQ(test::read_file(path), "encoding: ISO-2022-JP\n"
                                     "from: f@a.test\n"
                                     "to: t@a.test\n"
                                     "cc: c@a.test\n"
                                     "subject: s\n"
                                     "replyto: r@a.test\n"
                                     "messageid: <1@a.test>\n"
                                     "first\nsecond");
}

TEST_F(MessageFile, HoldsNoCr)
{
    msg_set_subject(msg, "\ra\r\rb\r");
    msg_set_body(msg, "x\r\n\r\ny\r");
    EXPECT_EQ(msg_save(msg, path.c_str()), 0);
    EXPECT_EQ(test::read_file(path),
              "encoding: UTF-8\nfrom: \nto: \nsubject: ab\nreplyto: \nx\n\ny\n");
}

TEST_F(MessageFile, ReplacesALongerOne)
{
    test::write_file(path, std::string(5000, 'x'));
    EXPECT_EQ(msg_save(msg, path.c_str()), 0);
    EXPECT_EQ(test::read_file(path), "encoding: UTF-8\nfrom: \nto: \nsubject: \nreplyto: \n");
}

TEST_F(MessageFile, GetsTheModeThatTheUmaskLeaves)
{
    mode_t const before = ::umask(027);
    EXPECT_EQ(msg_save(msg, path.c_str()), 0);
    ::umask(before);
    struct stat info = {};
    ASSERT_EQ(::stat(path.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0640u);
}

TEST_F(MessageFile, BringsTheBodyBack)
{
    struct {
        char const* body;
        char const* file_end;
        char const* loaded;
        char const* reason;
    } const cases[] = {
        {"a\r\nb", "a\nb", "a\r\nb", "two lines"},
        {"a\r\n", "a\n", "a\r\n", "a final line break"},
        {"a", "a", "a", "no final line break"},
        {"a\r\n\r\n\r\n", "a\n\n\n", "a\r\n\r\n\r\n", "empty lines at the end stay"},
        {"a\r\n\r\nb", "a\n\nb", "a\r\n\r\nb", "empty lines within stay"},
        {"\r\nx", "\nx", "x", "an empty line at the start is lost"},
        {"\r\n\r\n", "\n\n", "", "a body of empty lines is lost"},
        {"\n", "\n", "", "a body of one lone LF is lost"},
        {"a\r\nto: b\r\nc", "a\nto: b\nc", "a\r\nc", "a line that begins with a key is the field"},
        {"a\r\n to: b", "a\n to: b", "a\r\n to: b", "a blank before the key: a line of the body"},
        {"", "", "", "no body"},
    };
    for (auto const& c : cases) {
        msg_set_body(msg, c.body);
        EXPECT_EQ(msg_save(msg, path.c_str()), 0) << c.reason;
        EXPECT_EQ(test::read_file(path),
                  std::string("encoding: UTF-8\nfrom: \nto: \nsubject: \nreplyto: \n") + c.file_end)
            << c.reason;
        msg_destroy(loaded);
        ASSERT_EQ(msg_load(&loaded, path.c_str()), 0) << c.reason;
        EXPECT_EQ(msg_get_body(loaded), c.loaded) << c.reason;
    }
}

TEST_F(MessageFile, SplitsAHeaderValueAtItsLineBreak)
{
    msg_set_subject(msg, "one\ntwo\nfrom: three");
    msg_set_body(msg, "four");
    EXPECT_EQ(msg_save(msg, path.c_str()), 0);
    ASSERT_EQ(msg_load(&loaded, path.c_str()), 0);
    EXPECT_EQ(msg_get_subject(loaded), "one");
    EXPECT_EQ(msg_get_from(loaded), "three");
    EXPECT_EQ(msg_get_body(loaded), "two\r\nfour");
}

// What a file of these bytes is as a record; what is not named is as in a fresh one.
struct reading_case {
    char const* reason;
    std::string bytes;
    _s_msg      record;
};

_s_msg record_with(std::string _s_msg::*field, std::string const& text,
                   std::string const& body = "")
{
    _s_msg record;
    record.encoding = "UTF-8";
    record.body     = body;
    record.*field   = text;
    return record;
}

void expect_equal(void* loaded, _s_msg const& wanted, char const* reason)
{
    EXPECT_EQ(msg_get_from(loaded), wanted.from) << reason;
    EXPECT_EQ(msg_get_to(loaded), wanted.to) << reason;
    EXPECT_EQ(msg_get_cc(loaded), wanted.cc) << reason;
    EXPECT_EQ(msg_get_subject(loaded), wanted.subject) << reason;
    EXPECT_EQ(msg_get_replyto(loaded), wanted.replyto) << reason;
    EXPECT_EQ(msg_get_body(loaded), wanted.body) << reason;
    EXPECT_EQ(msg_get_encoding(loaded), wanted.encoding) << reason;
    EXPECT_EQ(msg_get_messageid(loaded), wanted.messageid) << reason;
}

TEST_F(MessageFile, IsReadLineByLine)
{
    auto const nul = [](char const* bytes, std::size_t size) { return std::string(bytes, size); };
    reading_case const cases[] = {
        {"an empty file", "", record_with(&_s_msg::body, "")},
        {"one field", "subject: hi", record_with(&_s_msg::subject, "hi")},
        {"an encoding of another program", "encoding: x-sjis\n",
         record_with(&_s_msg::encoding, "x-sjis")},
        {"an empty value replaces the encoding", "encoding: \n",
         record_with(&_s_msg::encoding, "")},
        {"a key within a key's line", "replyto: r", record_with(&_s_msg::replyto, "r")},
        {"a key in a value", "subject: from: to: x", record_with(&_s_msg::subject, "from: to: x")},
        {"values are not trimmed", "to:  a \t", record_with(&_s_msg::to, " a \t")},
        {"keys are compared case-sensitively", "To: a", record_with(&_s_msg::body, "To: a")},
        {"the blank is part of the key", "to:a", record_with(&_s_msg::body, "to:a")},
        {"a key cut short is body", "messageid:", record_with(&_s_msg::body, "messageid:")},
        {"a key alone gives an empty field", "messageid: ", record_with(&_s_msg::messageid, "")},
        {"a repeated key overwrites", "to: a\nto: b", record_with(&_s_msg::to, "b")},
        {"a field after the body has begun", "one\ncc: c\ntwo",
         record_with(&_s_msg::cc, "c", "one\r\ntwo")},
        {"a final LF after a field adds nothing to an empty body", "cc: c\n",
         record_with(&_s_msg::cc, "c")},
        {"a field as the last line: the empty line behind it joins the body", "one\ncc: c\n",
         record_with(&_s_msg::cc, "c", "one\r\n")},
        {"CR LF line ends keep their CR", "subject: s\r\nb\r\n",
         record_with(&_s_msg::subject, "s\r", "b\r\r\n")},
        {"a line of CR alone is not empty", "\r\nx", record_with(&_s_msg::body, "\r\r\nx")},
        {"bytes above 127", "subject: \xe3\x83\x88\xff",
         record_with(&_s_msg::subject, "\xe3\x83\x88\xff")},
        {"a NUL ends a field's value", nul("subject: a\0b\nto: t", 18),
         [] {
             _s_msg record = record_with(&_s_msg::subject, "a");
             record.to     = "t";
             return record;
         }()},
        {"a NUL ends the body, but not the fields behind it", nul("one\ntw\0o\nthree\ncc: c", 20),
         record_with(&_s_msg::cc, "c", "one\r\ntw")},
        {"a NUL before a key keeps it from being one", nul("\0to: t", 6),
         record_with(&_s_msg::body, "")},
    };
    for (reading_case const& c : cases) {
        load(c.bytes);
        expect_equal(loaded, c.record, c.reason);
    }
}

TEST_F(MessageFile, BringsALargeBodyBack)
{
    std::string text;
    while (text.size() < 3000000) {
        text += "an ordinary line\r\n";
        text += std::string(text.size() % 20000, 'x') + "\r\n";
    }
    msg_set_body(msg, text.c_str());
    ASSERT_EQ(msg_save(msg, path.c_str()), 0);
    ASSERT_EQ(msg_load(&loaded, path.c_str()), 0);
    EXPECT_TRUE(msg_get_body(loaded) == text);
}

TEST_F(MessageFile, ReportsWhatCannotBeOpened)
{
    test::write_file(dir.file("file"), "");
    struct {
        std::string path;
        char const* reason;
    } const cases[] = {
        {dir.file("none/m.sme"), "no such directory"},
        {dir.file("file/m.sme"), "a path through a file"},
        {dir.path(), "a directory"},
        {"", "no name"},
        {dir.file(std::string(300, 'x')), "a name too long"},
    };
    for (auto const& c : cases) {
        test::clear_traces();
        EXPECT_EQ(msg_save(msg, c.path.c_str()), -1) << c.reason;
        EXPECT_EQ(test::trouble_traces(), strings{"error:ofstream(%s)"}) << c.reason;

        test::clear_traces();
        EXPECT_EQ(msg_load(&loaded, c.path.c_str()), -1) << c.reason;
        EXPECT_EQ(test::trouble_traces(), strings{"error:ifstream(%s)"}) << c.reason;
        ASSERT_NE(loaded, nullptr) << c.reason << ": the record is there nevertheless";
        expect_equal(loaded, record_with(&_s_msg::body, ""), c.reason);
        msg_destroy(loaded);
        loaded = nullptr;
    }
}

// Opening a pipe would wait for a writer, and reading the device would never come to an end.
TEST_F(MessageFile, ThatIsNoRegularFileIsNotLoaded)
{
    ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
    ASSERT_EQ(::symlink(path.c_str(), dir.file("link").c_str()), 0);
    for (std::string const& pipe_or_device :
         {path, dir.file("link"), std::string("/dev/zero"), std::string("/dev/null")}) {
        test::clear_traces();
        EXPECT_EQ(msg_load(&loaded, pipe_or_device.c_str()), -1) << pipe_or_device;
        EXPECT_EQ(test::trouble_traces(), strings{"error:ifstream(%s)"}) << pipe_or_device;
        msg_destroy(loaded);
        loaded = nullptr;
    }
}

TEST_F(MessageFile, IsLoadedThroughALink)
{
    test::write_file(path, "subject: s");
    ASSERT_EQ(::symlink(path.c_str(), dir.file("link").c_str()), 0);
    EXPECT_EQ(msg_load(&loaded, dir.file("link").c_str()), 0);
    EXPECT_EQ(msg_get_subject(loaded), "s");
}

TEST_F(MessageFile, ThatIsMissingCannotBeLoaded)
{
    EXPECT_EQ(msg_load(&loaded, path.c_str()), -1);
    EXPECT_EQ(test::trouble_traces(), strings{"error:ifstream(%s)"});
    ASSERT_NE(loaded, nullptr);
    expect_equal(loaded, record_with(&_s_msg::body, ""), "an empty record");
}

TEST_F(MessageFile, IsNotTouchedForNull)
{
    EXPECT_EQ(msg_save(nullptr, path.c_str()), -1);
    EXPECT_EQ(test::trouble_traces(), strings{"error:msg_save msg==0"});
    EXPECT_FALSE(test::file_exists(path));

    test::clear_traces();
    EXPECT_EQ(msg_save(nullptr, nullptr), -1);
    EXPECT_EQ(test::trouble_traces(), strings{"error:msg_save msg==0"});

    test::clear_traces();
    EXPECT_EQ(msg_save(msg, nullptr), -1);
    EXPECT_EQ(test::trouble_traces(), strings{"error:ofstream(%s)"});

    test::clear_traces();
    EXPECT_EQ(msg_load(nullptr, path.c_str()), -1);
    EXPECT_EQ(test::trouble_traces(), strings());

    EXPECT_EQ(msg_load(&loaded, nullptr), -1);
    EXPECT_EQ(test::trouble_traces(), strings{"error:ifstream(%s)"});
    EXPECT_NE(loaded, nullptr);
}

TEST_F(MessageFile, ReportsAFullDisk)
{
    struct {
        std::size_t body;
        rlim_t      room;
        char const* reason;
    } const cases[] = {
        {10, 0, "no byte fits; shows when the file is closed"},
        {10, 30, "the lines fit in part; shows when the file is closed"},
        {100000, 50000, "shows while the body is written"},
        {100000, 100000, "the last bytes do not fit"},
    };
    for (auto const& c : cases) {
        test::clear_traces();
        msg_set_body(msg, std::string(c.body, 'x').c_str());
        int result = 0;
        {
            test::full_disk const limit(c.room);
            result = msg_save(msg, path.c_str());
        }
        EXPECT_EQ(result, -1) << c.reason;
        EXPECT_EQ(test::trouble_traces(), strings{"error:ofstream(%s)"}) << c.reason;
        EXPECT_TRUE(test::file_exists(path)) << c.reason << ": what was written stays";
    }
    EXPECT_EQ(msg_save(msg, path.c_str()), 0) << "with room again";
}

TEST_F(MessageFile, LeavesOutALineThatThereIsNoMemoryFor)
{
    msg_set_subject(msg, "s");
    msg_set_body(msg, "b");
    test::fail_heap_after(2);  // encoding and from
    EXPECT_EQ(msg_save(msg, path.c_str()), 0);
    EXPECT_EQ(test::read_file(path), "encoding: UTF-8\nfrom: \n");
    EXPECT_EQ(test::trouble_traces(),
              (strings{"error:malloc", "error:malloc", "error:malloc", "error:malloc"}))
        << "to, subject, replyto, body";
}

TEST_F(MessageFile, LeavesOutALongBodyThatThereIsNoMemoryFor)
{
    msg_set_body(msg, std::string(100000, 'b').c_str());
    test::fail_heap_after(5);  // five lines
    EXPECT_EQ(msg_save(msg, path.c_str()), 0);
    EXPECT_EQ(test::read_file(path), "encoding: UTF-8\nfrom: \nto: \nsubject: \nreplyto: \n");
    EXPECT_EQ(test::trouble_traces(), strings{"error:malloc"});
}

TEST_F(MessageFile, KeepsTheCrsOfALineWithoutMemoryToRemoveThem)
{
    msg_set_body(msg, "a\r\nb");
    test::fail_heap_after(6);  // five lines without CR, and the body's
    EXPECT_EQ(msg_save(msg, path.c_str()), 0);
    EXPECT_EQ(test::read_file(path), "encoding: UTF-8\nfrom: \nto: \nsubject: \nreplyto: \na\r\nb");
    EXPECT_EQ(test::trouble_traces(), strings{"error:malloc"});
}

TEST_F(MessageFile, LeavesNoDescriptorOpen)
{
    int const before = test::open_descriptors();
    msg_save(msg, path.c_str());
    msg_load(&loaded, path.c_str());
    msg_destroy(loaded);
    msg_load(&loaded, dir.path().c_str());
    {
        test::full_disk const limit(3);
        msg_save(msg, path.c_str());
    }
    EXPECT_EQ(test::open_descriptors(), before);
}

TEST_F(MessageFile, IsWrittenLineByLineByItsSteps)
{
    std::string value = "v\ra\rl";
    {
        std::ofstream out(path);
        EXPECT_EQ(write_key_dat(out, "k\rey: ", value, true), 0);
        EXPECT_EQ(write_key_dat(out, "", value, false), 0);
        EXPECT_EQ(write_key_dat(out, nullptr, value, true), -1);
        test::fail_heap_after(0);
        EXPECT_EQ(write_key_dat(out, "key: ", value, true), -1);
    }
    EXPECT_EQ(test::read_file(path), "key: val\nval");
    EXPECT_EQ(value, "v\ra\rl");
    EXPECT_EQ(test::trouble_traces(), strings{"error:malloc"});
}

TEST_F(MessageFile, SetsOneFieldForALine)
{
    _s_msg record;
    EXPECT_EQ(set_msg("to: a", &record), 0);
    EXPECT_EQ(set_msg("", &record), 0);
    EXPECT_EQ(set_msg("b", &record), 0);
    EXPECT_EQ(set_msg("", &record), 0);
    EXPECT_EQ(record.to, "a");
    EXPECT_EQ(record.body, "b\r\n");
    EXPECT_EQ(set_msg("x", nullptr), -1);

    std::string field = "kept";
    EXPECT_EQ(set_dat("k: v", "k: ", field), 0);
    EXPECT_EQ(field, "v");
    EXPECT_EQ(set_dat("k", "k: ", field), -1);
    EXPECT_EQ(set_dat("k: v", nullptr, field), -1);
    EXPECT_EQ(field, "v");
}

TEST_F(MessageFile, EndsWhereItsStreamDoes)
{
    _s_msg        record;
    std::ifstream directory(dir.path());
    EXPECT_EQ(read_msg(directory, &record), 0) << "the stream was not told to throw";
    std::ifstream missing(path);
    EXPECT_EQ(read_msg(missing, &record), 0);
    EXPECT_EQ(record.body, "");
    EXPECT_EQ(read_msg(missing, nullptr), -1);
}

TEST(RemoveR, DeletesEveryCr)
{
    struct {
        char const* text;
        char const* without;
    } const cases[] = {
        {"", ""},           {"abc", "abc"}, {"\r", ""},   {"\r\r\r", ""},
        {"a\r\nb", "a\nb"}, {"\ra", "a"},   {"a\r", "a"}, {"a\rb\r\rc\r", "abc"},
    };
    test::fail_heap_after(-1);
    for (auto const& c : cases) {
        std::string text = c.text;
        text += '\0';
        remove_r(&text[0]);
        EXPECT_STREQ(text.c_str(), c.without) << c.text;
    }
    remove_r(nullptr);
    EXPECT_EQ(test::live_heap_buffers(), 0);
}

TEST(RemoveR, LeavesTheStringWithoutMemory)
{
    test::clear_traces();
    test::fail_heap_after(0);
    char with[] = "a\rb";
    remove_r(with);
    EXPECT_STREQ(with, "a\rb");
    EXPECT_EQ(test::trouble_traces(), strings{"error:malloc"});

    test::clear_traces();
    char without[] = "ab";
    remove_r(without);
    EXPECT_STREQ(without, "ab");
    EXPECT_EQ(test::trouble_traces(), strings()) << "nothing to remove, nothing to ask for";
    test::fail_heap_after(-1);
}

}  // namespace
}  // namespace zelieml
