// libmsg_model_test.cpp - random messages against a small model of the message file
//
// Each round has a file of its own: a file system may write a file that is replaced to the disk at
// once, which takes many times as long as the rest of the round.

#include <gtest/gtest.h>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "libmsg/libmsg.h"
#include "tests/support/files.h"

namespace zelieml
{
namespace
{

// A message as the model sees it: the fields in the order of the file.
struct message {
    std::string header[7] = {"UTF-8", "", "", "", "", "", ""};
    std::string body;
};

char const* const keys[7] = {
    "encoding: ", "from: ", "to: ", "cc: ", "subject: ", "replyto: ", "messageid: "};

bool operator==(message const& a, message const& b)
{
    for (int i = 0; i < 7; ++i) {
        if (a.header[i] != b.header[i]) {
            return false;
        }
    }
    return a.body == b.body;
}

void PrintTo(message const& m, std::ostream* out)
{
    for (int i = 0; i < 7; ++i) {
        *out << "\n  " << keys[i] << testing::PrintToString(m.header[i]);
    }
    *out << "\n  body " << testing::PrintToString(m.body);
}

std::string without(char c, std::string text)
{
    for (std::size_t at = text.find(c); at != std::string::npos; at = text.find(c)) {
        text.erase(at, 1);
    }
    return text;
}

std::string file_of(message const& m)
{
    std::string bytes;
    for (int i = 0; i < 7; ++i) {
        bool const optional = i == 3 || i == 6;
        if (!optional || m.header[i] != "") {
            bytes += without('\r', keys[i] + m.header[i]) + "\n";
        }
    }
    return bytes + without('\r', m.body);
}

message message_of(std::string const& bytes)
{
    message     m;
    std::size_t start = 0;
    for (;;) {
        std::size_t const end  = bytes.find('\n', start);
        std::string const line = bytes.substr(start, end == std::string::npos ? end : end - start);

        bool header = false;
        for (int i = 0; i < 7 && !header; ++i) {
            if (line.find(keys[i]) == 0) {
                m.header[i] = line.substr(std::string(keys[i]).size());
                header      = true;
            }
        }
        if (!header) {
            m.body += (m.body.empty() ? "" : "\r\n") + line;
        }
        if (end == std::string::npos) {
            break;
        }
        start = end + 1;
    }
    for (std::string& text : m.header) {
        text = text.substr(0, text.find('\0'));
    }
    m.body = m.body.substr(0, m.body.find('\0'));
    return m;
}

// CR LF for every line break; a string of nothing but lone breaks stays.
std::string stored_body(std::string const& text)
{
    std::string body;
    bool        lone_breaks_only = true;
    for (std::size_t i = 0; i < text.size(); ++i) {
        bool const pair  = text.compare(i, 2, "\r\n") == 0;
        bool const alone = !pair && (text[i] == '\r' || text[i] == '\n');
        lone_breaks_only = lone_breaks_only && alone;
        body += pair || alone ? "\r\n" : std::string(1, text[i]);
        i += pair ? 1 : 0;
    }
    return lone_breaks_only ? text : body;
}

std::string random_text(std::mt19937& random, std::vector<std::string> const& pieces)
{
    std::string text;
    for (auto count = random() % 12; count > 0; --count) {
        text += pieces[random() % pieces.size()];
    }
    return text;
}

std::vector<std::string> const pieces = {
    "a",
    "word ",
    "\n",
    "\n",
    "\r",
    "\r\n",
    " ",
    "to: ",
    "\nto: x",
    "\ncc: ",
    "\nfrom: f",
    "From: ",
    "\nencoding: E",
    ":",
    "\nsub",
    "ject: s",
    "replyto: ",
    "\nreplyto: ",
    "id: ",
    "\xe3\x83\x88",
    "\t",
    "\nmess",
    "ageid: 1",
    "subject: s",
    "\xff\x01",
    ".",
    std::string(9000, 'x'),
};

message get_all(void* msg)
{
    message m;
    m.header[0] = msg_get_encoding(msg);
    m.header[1] = msg_get_from(msg);
    m.header[2] = msg_get_to(msg);
    m.header[3] = msg_get_cc(msg);
    m.header[4] = msg_get_subject(msg);
    m.header[5] = msg_get_replyto(msg);
    m.header[6] = msg_get_messageid(msg);
    m.body      = msg_get_body(msg);
    return m;
}

TEST(RandomMessages, AreSavedAndLoadedAsTheModelSays)
{
    test::temp_dir dir;
    std::mt19937   random(20240131);
    for (int round = 0; round < 4000 && !testing::Test::HasFailure(); ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        std::string const path = dir.file(std::to_string(round));
        message           m;
        for (int i = 1; i < 7; ++i) {
            m.header[i] = random_text(random, pieces);
        }
        std::string const body = random_text(random, pieces);
        bool const        jis  = random() % 2 == 0;
        m.header[0]            = jis ? "ISO-2022-JP" : "UTF-8";
        m.body                 = stored_body(body);

        void* msg = nullptr;
        ASSERT_EQ(msg_create(&msg), 0);
        EXPECT_EQ(msg_set_encoding(msg, jis ? eml_encoding_iso2022jp : eml_encoding_utf8), 0);
        EXPECT_EQ(msg_set_from(msg, m.header[1].c_str()), 0);
        EXPECT_EQ(msg_set_to(msg, m.header[2].c_str()), 0);
        EXPECT_EQ(msg_set_cc(msg, m.header[3].c_str()), 0);
        EXPECT_EQ(msg_set_subject(msg, m.header[4].c_str()), 0);
        EXPECT_EQ(msg_set_replyto(msg, m.header[5].c_str()), 0);
        EXPECT_EQ(msg_set_messageid(msg, m.header[6].c_str()), 0);
        EXPECT_EQ(msg_set_body(msg, body.c_str()), 0);
        EXPECT_EQ(get_all(msg), m);
        EXPECT_EQ(msg_save(msg, path.c_str()), 0);
        msg_destroy(msg);

        std::string const bytes = test::read_file(path);
        EXPECT_EQ(bytes, file_of(m));
        void* loaded = nullptr;
        EXPECT_EQ(msg_load(&loaded, path.c_str()), 0);
        EXPECT_EQ(get_all(loaded), message_of(bytes));
        msg_destroy(loaded);
    }
}

TEST(RandomMessageFiles, AreLoadedAsTheModelSays)
{
    std::vector<std::string> all = pieces;
    all.push_back(std::string(1, '\0'));
    all.push_back(std::string("\n\0", 2));

    test::temp_dir dir;
    std::mt19937   random(7);
    for (int round = 0; round < 2000 && !testing::Test::HasFailure(); ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        std::string const path  = dir.file(std::to_string(round));
        std::string const bytes = random_text(random, all) + random_text(random, all);
        test::write_file(path, bytes);
        void* loaded = nullptr;
        EXPECT_EQ(msg_load(&loaded, path.c_str()), 0);
        EXPECT_EQ(get_all(loaded), message_of(bytes));
        msg_destroy(loaded);
    }
}

}  // namespace
}  // namespace zelieml
