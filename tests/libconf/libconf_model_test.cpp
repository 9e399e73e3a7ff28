// libconf_model_test.cpp - random settings files against a small model of them
//
// Each round has a file of its own: a file system may write a file that is replaced to the disk at
// once, which takes many times as long as the rest of the round.

#include <gtest/gtest.h>
#include <random>
#include <string>
#include <vector>

#include "libconf/libconf.h"
#include "tests/libconf/settings_model.h"
#include "tests/support/files.h"

namespace zelieml
{
namespace
{

class random_settings
{
public:
    explicit random_settings(unsigned seed) : random_(seed) {}

    std::size_t below(std::size_t limit) { return random_() % limit; }

    std::string pick(std::vector<std::string> const& choices)
    {
        return choices[below(choices.size())];
    }

    std::string key()
    {
        return pick({"a", "ab", "smtp_auth", "smtp_auth_type", "k", "=", "", " ", "#", "k#"});
    }

    std::string value()
    {
        return pick({"", "x", "yes", "a", "#", "  b", "b\t", "c=d", "\xff\x80",
                     std::string(300, 'v'), std::string(1015, 'v'), std::string(1022, 'w'), "x\ny",
                     "z\r"});
    }

    std::string line_end() { return pick({"\r\n", "\r\n", "\r\n", "\n", "\r\r\n", ""}); }

    std::string file()
    {
        std::string bytes;
        for (std::size_t count = below(20); count > 0; --count) {
            switch (below(8)) {
            case 0:
                bytes += line_end();
                break;
            case 1:
                bytes += "#" + key() + value() + line_end();
                break;
            case 2:
                bytes += key() + line_end();
                break;
            case 3:
                bytes += key() + std::string(1, '\0') + key() + "=" + value() + line_end();
                break;
            default:
                bytes += key() + pick({"=", " = ", "\t= \t"}) + value() + line_end();
                break;
            }
        }
        return bytes;
    }

private:
    std::mt19937 random_;
};

TEST(RandomSettings, AreReadAndRewrittenAsTheModelSays)
{
    test::temp_dir  dir;
    random_settings random(42);
    for (int round = 0; round < 3000 && !testing::Test::HasFailure(); ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        std::string const path = dir.file(std::to_string(round));
        std::string       file = random.file();
        test::write_file(path, file);

        for (int i = 0; i < 5; ++i) {
            std::string const key = random.key();
            std::string       buffer(random.below(3) == 0 ? 2000 : random.below(20), '#');
            std::string const before = buffer;
            unsigned int      length = static_cast<unsigned int>(buffer.size());
            int const result = conf_get_string(key.c_str(), &buffer[0], &length, path.c_str());
            EXPECT_EQ((test::reading{result, length, buffer}), test::model_get(file, key, before))
                << key;

            buffer                  = before;
            length                  = static_cast<unsigned int>(buffer.size());
            int const from_settings = conf_get_string(key.c_str(), &buffer[0], &length,
                                                      conf_settings(path.c_str(), {key.c_str()}));
            EXPECT_EQ((test::reading{from_settings, length, buffer}),
                      test::model_get(file, key, before))
                << key;
        }

        std::string const key   = random.key();
        std::string const value = random.value();
        bool const        done  = test::model_set(file, key, value);
        EXPECT_EQ(conf_set_string(key.c_str(), value.c_str(), path.c_str()), done ? 0 : -1);
        EXPECT_EQ(test::read_file(path), file);
    }
}

}  // namespace
}  // namespace zelieml
