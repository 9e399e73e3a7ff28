// libmsg_test.cpp - the message record in memory

#include "libmsg/libmsg.h"

#include <climits>
#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/mman.h>
#include <unistd.h>
#include <vector>

#include "support/unique_fd.h"
#include "tests/support/fake_heap.h"
#include "tests/support/files.h"
#include "tests/support/trace_recorder.h"

#if defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define UNDER_THREAD_SANITIZER 1
#endif
#elif defined(__SANITIZE_THREAD__)
#define UNDER_THREAD_SANITIZER 1
#endif

#ifdef UNDER_THREAD_SANITIZER
extern "C" void AnnotateIgnoreReadsBegin(char const* file, int line);
extern "C" void AnnotateIgnoreReadsEnd(char const* file, int line);
#endif

namespace zelieml
{
namespace
{

// A string of the record, and the functions that set and get it.
struct string_field {
    using setter    = int (*)(void*, char const*);
    using to_buffer = int (*)(void*, char*, int);
    using to_string = std::string (*)(void*);

    explicit string_field(char const* field) : name(field) {}

    string_field& set_by(setter function)
    {
        set = function;
        return *this;
    }
    // Each getter has two forms of one name.
    string_field& got_by(to_buffer into_a_buffer, to_string as_a_string)
    {
        copy = into_a_buffer;
        get  = as_a_string;
        return *this;
    }
    string_field& fresh_as(char const* value)
    {
        fresh = value;
        return *this;
    }

    char const* name;
    setter      set   = nullptr;  // null: not set with a string
    to_buffer   copy  = nullptr;
    to_string   get   = nullptr;
    char const* fresh = "";
};

string_field const fields[] = {
    string_field("from").set_by(msg_set_from).got_by(msg_get_from, msg_get_from),
    string_field("to").set_by(msg_set_to).got_by(msg_get_to, msg_get_to),
    string_field("cc").set_by(msg_set_cc).got_by(msg_get_cc, msg_get_cc),
    string_field("subject").set_by(msg_set_subject).got_by(msg_get_subject, msg_get_subject),
    string_field("replyto").set_by(msg_set_replyto).got_by(msg_get_replyto, msg_get_replyto),
    string_field("body").set_by(msg_set_body).got_by(msg_get_body, msg_get_body),
    string_field("encoding").fresh_as("UTF-8").got_by(msg_get_encoding, msg_get_encoding),
    string_field("messageid")
        .set_by(msg_set_messageid)
        .got_by(msg_get_messageid, msg_get_messageid),
};

class MessageRecord : public testing::Test
{
protected:
    void SetUp() override
    {
        test::fail_heap_after(-1);
        test::clear_traces();
        ASSERT_EQ(msg_create(&msg), 0);
    }

    void TearDown() override
    {
        test::fail_heap_after(-1);
        EXPECT_EQ(msg_destroy(msg), 0);
        EXPECT_EQ(test::live_heap_buffers(), 0);
        EXPECT_EQ(test::trouble_traces(), std::vector<std::string>());
    }

    void* msg = nullptr;
};

TEST_F(MessageRecord, IsEmptyAndUtf8WhenFresh)
{
    for (string_field const& field : fields) {
        EXPECT_EQ(field.get(msg), field.fresh) << field.name;
        char buf[16] = "unchanged";
        EXPECT_EQ(field.copy(msg, buf, sizeof buf), 0) << field.name;
        EXPECT_STREQ(buf, field.fresh) << field.name;
    }
    EXPECT_FALSE(msg_cc_exist(msg));
    EXPECT_FALSE(msg_messageid_exist(msg));
}

TEST_F(MessageRecord, KeepsEveryStringAsGivenInAFieldOfItsOwn)
{
    for (string_field const& field : fields) {
        if (field.set != nullptr) {
            EXPECT_EQ(field.set(msg, (std::string(" <") + field.name + "@a.test>, \t").c_str()), 0);
        }
    }
    for (string_field const& field : fields) {
        if (field.set != nullptr) {
            EXPECT_EQ(field.get(msg), std::string(" <") + field.name + "@a.test>, \t");
        }
    }
}

TEST_F(MessageRecord, ReplacesAStringByTheNextOne)
{
    for (string_field const& field : fields) {
        if (field.set != nullptr) {
            EXPECT_EQ(field.set(msg, std::string(5000, 'x').c_str()), 0) << field.name;
            EXPECT_EQ(field.set(msg, "b"), 0) << field.name;
            EXPECT_EQ(field.get(msg), "b") << field.name;
            EXPECT_EQ(field.set(msg, ""), 0) << field.name;
            EXPECT_EQ(field.get(msg), "") << field.name;
        }
    }
}

TEST_F(MessageRecord, IsFreshAgainAfterInit)
{
    for (string_field const& field : fields) {
        if (field.set != nullptr) {
            field.set(msg, "text");
        }
    }
    msg_set_encoding(msg, eml_encoding_iso2022jp);
    EXPECT_EQ(msg_init(msg), 0);
    for (string_field const& field : fields) {
        EXPECT_EQ(field.get(msg), field.fresh) << field.name;
    }
}

TEST_F(MessageRecord, HasACcOrAMessageIdWhenItIsNotEmpty)
{
    msg_set_cc(msg, "c@a.test");
    EXPECT_TRUE(msg_cc_exist(msg));
    EXPECT_FALSE(msg_messageid_exist(msg));
    msg_set_cc(msg, "");
    msg_set_messageid(msg, "1");
    EXPECT_FALSE(msg_cc_exist(msg));
    EXPECT_TRUE(msg_messageid_exist(msg));
}

TEST_F(MessageRecord, CopiesAStringWholeOrNotAtAll)
{
    struct {
        int         size;
        int         result;
        char const* reason;
    } const cases[] = {
        {6, 0, "length and NUL fit exactly"},
        {100, 0, "more than enough"},
        {5, -1, "no room for the NUL"},
        {1, -1, "room for the NUL only"},
        {0, -1, "no room"},
        {-1, -1, "a negative size"},
        {INT_MIN, -1, "the most negative size"},
    };
    for (string_field const& field : fields) {
        std::string const text = field.set != nullptr ? "12345" : "UTF-8";
        if (field.set != nullptr) {
            field.set(msg, text.c_str());
        }
        for (auto const& c : cases) {
            char buf[100] = "unchanged";
            EXPECT_EQ(field.copy(msg, buf, c.size), c.result) << field.name << ": " << c.reason;
            EXPECT_EQ(std::string(buf), c.result == 0 ? text : "unchanged")
                << field.name << ": " << c.reason;
        }
        EXPECT_EQ(field.copy(msg, nullptr, 100), -1) << field.name;
    }
}

TEST_F(MessageRecord, RefusesNullAndStaysAsItWas)
{
    for (string_field const& field : fields) {
        if (field.set == nullptr) {
            continue;
        }
        EXPECT_EQ(field.set(msg, "kept"), 0);
        EXPECT_EQ(field.set(msg, nullptr), -1) << field.name;
        EXPECT_EQ(field.get(msg), "kept") << field.name;
    }
}

TEST_F(MessageRecord, FailsForANullHandle)
{
    for (string_field const& field : fields) {
        if (field.set != nullptr) {
            EXPECT_EQ(field.set(nullptr, "x"), -1) << field.name;
        }
        char buf[16] = "unchanged";
        EXPECT_EQ(field.copy(nullptr, buf, sizeof buf), -1) << field.name;
        EXPECT_STREQ(buf, "unchanged") << field.name;
        EXPECT_EQ(field.get(nullptr), "") << field.name << ": the copy never fails";
    }
    EXPECT_EQ(msg_create(nullptr), -1);
    EXPECT_EQ(msg_init(nullptr), -1);
    EXPECT_EQ(msg_set_encoding(nullptr, eml_encoding_utf8), -1);
    EXPECT_EQ(msg_destroy(nullptr), 0);
    EXPECT_FALSE(msg_cc_exist(nullptr));
    EXPECT_FALSE(msg_messageid_exist(nullptr));
}

TEST_F(MessageRecord, KeepsTheNameOfTheEncoding)
{
    struct {
        int         value;
        char const* text;
    } const cases[] = {
        {1, "ISO-2022-JP"}, {0, "UTF-8"},          {1, "ISO-2022-JP"}, {7, "UTF-8"},
        {2, "UTF-8"},       {0x7fffffff, "UTF-8"}, {-1, "UTF-8"},      {-0x7fffffff - 1, "UTF-8"},
    };
    for (auto const& c : cases) {
        eml_encoding const encoding = static_cast<eml_encoding>(c.value);
        EXPECT_EQ(msg_set_encoding(msg, encoding), 0) << c.value;
        EXPECT_EQ(msg_get_encoding(msg), c.text) << c.value;
        EXPECT_STREQ(get_encoding_str(encoding), c.text) << c.value;
    }
}

TEST_F(MessageRecord, GivesTheBodyCrLfLineEnds)
{
    struct {
        char const* text;
        char const* body;
        char const* reason;
    } const cases[] = {
        {"", "", "nothing to convert"},
        {"a", "a", "no line break"},
        {"a\nb", "a\r\nb", "a lone LF"},
        {"a\rb", "a\r\nb", "a lone CR"},
        {"a\r\nb", "a\r\nb", "CR LF already"},
        {"a\n\rb", "a\r\n\r\nb", "LF CR is two breaks"},
        {"x\r\r\n", "x\r\n\r\n", "a lone CR before CR LF"},
        {"\r\r\n", "\r\n\r\n", "a lone CR before CR LF, and nothing else"},
        {"\r\n", "\r\n", "one CR LF"},
        {"x\n", "x\r\n", "a final break"},
        {"x\n\n", "x\r\n\r\n", "fits with one byte to spare"},
        {"\nx\n", "\r\nx\r\n", "breaks around one character"},
        {"\r\n\n", "\r\n\r\n", "CR LF leaves room for a lone LF"},
        {"\n", "\n", "nothing but a lone LF: stored as it is"},
        {"\r", "\r", "nothing but a lone CR: stored as it is"},
        {"\n\n", "\n\n", "nothing but two lone LFs: stored as they are"},
        {"\n\r", "\n\r", "nothing but a lone LF and a lone CR: stored as they are"},
    };
    for (auto const& c : cases) {
        EXPECT_EQ(msg_set_body(msg, c.text), 0) << c.reason;
        EXPECT_EQ(msg_get_body(msg), c.body) << c.reason;
    }
}

TEST_F(MessageRecord, StoresTheBodyUnchangedWithoutMemoryToConvertIt)
{
    test::fail_heap_after(0);
    EXPECT_EQ(msg_set_body(msg, "a\nb\r"), 0);
    EXPECT_EQ(msg_get_body(msg), "a\nb\r");
}

TEST_F(MessageRecord, ConvertsALargeBody)
{
    std::string text;
    std::string wanted;
    while (text.size() < 3000000) {
        text += "seventy characters or so make up an ordinary line of an ordinary mail\n";
        wanted += "seventy characters or so make up an ordinary line of an ordinary mail\r\n";
    }
    EXPECT_EQ(msg_set_body(msg, text.c_str()), 0);
    EXPECT_TRUE(msg_get_body(msg) == wanted);
}

// A string of 1 GiB that takes little memory: one block of a file, seen over and over.
class long_string
{
public:
    static constexpr std::size_t block = 4u << 20;
    static constexpr std::size_t size  = 1u << 30;

    long_string()
    {
        std::string const path = dir_.file("block");
        test::write_file(path, std::string(block, 'x'));
        unique_fd const file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
        // Reserved with a page more: its zero bytes are the NUL.
        void* const base = ::mmap(nullptr, reserved, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (base == MAP_FAILED || !file) {
            return;
        }
        bytes_ = static_cast<char*>(base);
        for (std::size_t offset = 0; offset < size; offset += block) {
            if (::mmap(bytes_ + offset, block, PROT_READ, MAP_SHARED | MAP_FIXED, file.get(), 0) ==
                MAP_FAILED) {
                ::munmap(base, reserved);
                bytes_ = nullptr;
                return;
            }
        }
    }
    ~long_string()
    {
        if (bytes_ != nullptr) {
            ::munmap(bytes_, reserved);
        }
    }
    long_string(long_string const&)            = delete;
    long_string& operator=(long_string const&) = delete;

    char const* bytes() const { return bytes_; }

private:
    static constexpr std::size_t reserved = size + 65536;

    test::temp_dir dir_;
    char*          bytes_ = nullptr;
};

// The thread sanitizer keeps a note for each byte that is read, four times its size: too much for
// 1 GiB.
class unwatched_reads
{
public:
#ifdef UNDER_THREAD_SANITIZER
    unwatched_reads()
    {
        AnnotateIgnoreReadsBegin(__FILE__, __LINE__);
    }
    ~unwatched_reads()
    {
        AnnotateIgnoreReadsEnd(__FILE__, __LINE__);
    }
#else
    unwatched_reads() {}
    ~unwatched_reads() {}
#endif
    unwatched_reads(unwatched_reads const&)            = delete;
    unwatched_reads& operator=(unwatched_reads const&) = delete;
};

TEST_F(MessageRecord, RefusesABodyWhoseDoubleDoesNotFitAnInt)
{
    msg_set_body(msg, "kept");
    unwatched_reads const quiet;
    long_string const     string;
    ASSERT_NE(string.bytes(), nullptr);
    EXPECT_EQ(msg_set_body(msg, string.bytes()), -1);
    EXPECT_EQ(msg_get_body(msg), "kept");
}

TEST(ModifyLineFeed, WritesWithinTheSizeOrFails)
{
    struct {
        char const* in;
        int         size;
        char const* out;  // null: fails
        char const* reason;
    } const cases[] = {
        {"ab", 3, "ab", "two characters and the NUL"},
        {"ab", 2, nullptr, "no room for the NUL"},
        {"a\n", 4, "a\r\n", "the break needs two"},
        {"a\n", 3, nullptr, "the CR fits, the LF takes the NUL's place"},
        {"a\n", 2, nullptr, "no room for the break at all"},
        {"\r\n", 3, "\r\n", "CR LF needs two as well"},
        {"\r\n", 2, nullptr, "CR LF and no NUL"},
        {"a", 1, nullptr, "room for the NUL only"},
        {"", 10, nullptr, "an empty string is refused"},
        {"a", 0, nullptr, "size 0"},
        {"a", -5, nullptr, "a negative size"},
    };
    for (auto const& c : cases) {
        char out[16];
        std::memset(out, '#', sizeof out);
        int       size   = c.size;
        int const result = modify_line_feed(c.in, out, &size);
        if (c.out != nullptr) {
            EXPECT_EQ(result, 0) << c.reason;
            EXPECT_STREQ(out, c.out) << c.reason;
            EXPECT_EQ(size, static_cast<int>(std::strlen(c.out))) << c.reason;
        } else {
            EXPECT_EQ(result, -1) << c.reason;
            EXPECT_EQ(size, c.size) << c.reason;
        }
        for (std::size_t i = c.size > 0 ? static_cast<std::size_t>(c.size) : 0; i < sizeof out;
             ++i) {
            EXPECT_EQ(out[i], '#') << c.reason << ": beyond the size at " << i;
        }
    }
}

TEST(ModifyLineFeed, ClearsTheWholeBuffer)
{
    char out[8];
    std::memset(out, '#', sizeof out);
    int size = sizeof out;
    EXPECT_EQ(modify_line_feed("a", out, &size), 0);
    EXPECT_EQ(std::string(out, sizeof out), std::string("a\0\0\0\0\0\0\0", 8));
}

TEST(ModifyLineFeed, RefusesNull)
{
    char out[8];
    int  size = sizeof out;
    EXPECT_EQ(modify_line_feed(nullptr, out, &size), -1);
    EXPECT_EQ(modify_line_feed("a", nullptr, &size), -1);
    EXPECT_EQ(modify_line_feed("a", out, nullptr), -1);
}

}  // namespace
}  // namespace zelieml
