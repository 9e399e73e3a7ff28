// libmsg_model_test.cpp - random messages against a small model of the message file
//
// Each round has a file of its own: a file system may write a file that is replaced to the disk at
// once, which takes many times as long as the rest of the round.

#include <fstream>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <vector>

#include "libmsg/libmsg.h"
#include "tests/libmsg/message_model.h"
#include "tests/support/files.h"

namespace zelieml
{
namespace
{

std::string random_text(std::mt19937& random, std::vector<std::string> const& pieces)
{
    std::string text;
    for (auto count = random() % 12; count > 0; --count) {
        text += pieces[random() % pieces.size()];
    }
    return text;
}

std::vector<std::string> const pieces = [] {
    std::vector<std::string> all = test::file_pieces;
    all.push_back(std::string(9000, 'x'));
    return all;
}();

TEST(RandomMessages, AreSavedAndLoadedAsTheModelSays)
{
    test::temp_dir dir;
    std::mt19937   random(20240131);
    for (int round = 0; round < 4000 && !testing::Test::HasFailure(); ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        std::string const path = dir.file(std::to_string(round));
        test::message     m;
        for (int i = 1; i < 7; ++i) {
            m.header[i] = random_text(random, pieces);
        }
        std::string const body = random_text(random, pieces);
        bool const        jis  = random() % 2 == 0;
        m.header[0]            = jis ? "ISO-2022-JP" : "UTF-8";
        m.body                 = test::stored_body(body);

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
        EXPECT_EQ(test::get_all(msg), m);
        EXPECT_EQ(msg_save(msg, path.c_str()), 0);
        void* read = nullptr;
        ASSERT_EQ(msg_create(&read), 0);
        msg_read_back(*static_cast<_s_msg*>(msg), *static_cast<_s_msg*>(read));
        EXPECT_EQ(test::get_all(read), test::message_of(test::file_of(m))) << "without a file";
        msg_destroy(read);
        msg_destroy(msg);

        std::string const bytes = test::read_file(path);
        EXPECT_EQ(bytes, test::file_of(m));
        void* loaded = nullptr;
        EXPECT_EQ(msg_load(&loaded, path.c_str()), 0);
        EXPECT_EQ(test::get_all(loaded), test::message_of(bytes));
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
        EXPECT_EQ(test::get_all(loaded), test::message_of(bytes));
        msg_destroy(loaded);

        std::ifstream stream(path);
        ASSERT_EQ(msg_create(&loaded), 0);
        EXPECT_EQ(read_msg(stream, static_cast<_s_msg*>(loaded)), 0);
        EXPECT_EQ(test::get_all(loaded), test::message_of(bytes)) << "by way of a stream";
        msg_destroy(loaded);
    }
}

// A file is read in pieces: lines and line ends fall on their borders.
TEST(MessageFilesOfAllSizes, AreLoadedAsTheModelSays)
{
    test::temp_dir dir;
    for (std::size_t const size : {16383u, 16384u, 16385u, 32767u, 32768u, 32769u, 50000u}) {
        for (std::size_t const period : {1u, 2u, 7u, 16384u, 100000u}) {
            SCOPED_TRACE(std::to_string(size) + " bytes, lines of " + std::to_string(period));
            std::string bytes(size, 'x');
            for (std::size_t lf = period - 1; lf < size; lf += period) {
                bytes[lf] = '\n';
            }
            bytes.replace(size - 6, 6, "\ncc: c");
            for (char const last : {'c', '\n'}) {
                bytes.back() = last;
                test::write_file(dir.file("a"), bytes);
                void* loaded = nullptr;
                EXPECT_EQ(msg_load(&loaded, dir.file("a").c_str()), 0);
                EXPECT_TRUE(test::get_all(loaded) == test::message_of(bytes));
                msg_destroy(loaded);
            }
        }
    }
}

// A long body is written in pieces.
TEST(BodiesOfAllSizes, AreSavedAsTheModelSays)
{
    test::temp_dir dir;
    void*          msg = nullptr;
    ASSERT_EQ(msg_create(&msg), 0);
    std::string& body = static_cast<_s_msg*>(msg)->body;
    for (std::size_t const size : {262143u, 262144u, 262145u}) {
        for (char const* const period : {"\r", "\nab\r", "an ordinary line\r\n"}) {
            for (std::size_t const nul : {size, size - 1}) {
                SCOPED_TRACE(std::to_string(size) + " bytes, a NUL at " + std::to_string(nul));
                body.clear();
                while (body.size() < size) {
                    body += period;
                }
                body.resize(size);
                std::string::size_type const end = std::min(nul, size);
                if (nul < size) {
                    body[nul] = '\0';
                }
                test::message m;
                m.header[0]       = "UTF-8";
                m.body            = body.substr(0, end);
                message_file file = create_message_file(dir.file("b").c_str());
                EXPECT_EQ(msg_write(msg, file), 0);
                EXPECT_TRUE(test::read_file(dir.file("b")) == test::file_of(m));

                void* loaded = nullptr;
                EXPECT_EQ(msg_load(&loaded, file), 0) << "from the file that was written";
                EXPECT_TRUE(test::get_all(loaded) == test::message_of(test::file_of(m)));
                msg_destroy(loaded);

                ASSERT_EQ(msg_create(&loaded), 0);
                msg_read_back(*static_cast<_s_msg*>(msg), *static_cast<_s_msg*>(loaded));
                EXPECT_TRUE(test::get_all(loaded) == test::message_of(test::file_of(m)));
                msg_destroy(loaded);
                ::unlink(dir.file("b").c_str());
            }
        }
    }
    msg_destroy(msg);
}

}  // namespace
}  // namespace zelieml
