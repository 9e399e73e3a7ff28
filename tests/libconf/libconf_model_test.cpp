// libconf_model_test.cpp - random settings files against a small model of them
//
// Each round has a file of its own: a file system may write a file that is replaced to the disk at
// once, which takes many times as long as the rest of the round.

#include <gtest/gtest.h>
#include <random>
#include <string>
#include <vector>

#include "libconf/libconf.h"
#include "tests/support/files.h"

namespace zelieml
{
namespace
{

// The result of reading: what conf_get_string returns and leaves.
struct reading {
    int          result;
    unsigned int length;
    std::string  buffer;  // all its bytes
};

bool operator==(reading const& a, reading const& b)
{
    return a.result == b.result && a.length == b.length && a.buffer == b.buffer;
}

void PrintTo(reading const& r, std::ostream* out)
{
    *out << r.result << ", length " << r.length << ", " << testing::PrintToString(r.buffer);
}

// The lines of a file, without their LF; complete says whether all could be read.
std::vector<std::string> lines_of(std::string const& file, bool& complete)
{
    std::vector<std::string> lines;
    complete = true;
    for (std::size_t start = 0; start < file.size() && complete;) {
        std::size_t end = file.find('\n', start);
        if (end == std::string::npos) {
            end = file.size();
        }
        if (end - start > 1023) {
            complete = false;
        } else {
            lines.push_back(file.substr(start, end - start));
        }
        start = end + 1;
    }
    return lines;
}

bool belongs_to(std::string const& line, std::string const& key)
{
    std::string const text = line.substr(0, line.find('\0'));
    return text[0] != '#' && text.find(key) != std::string::npos;
}

reading model_get(std::string const& file, std::string const& key, std::string const& before)
{
    unsigned int const size     = static_cast<unsigned int>(before.size());
    bool               complete = false;
    for (std::string const& line : lines_of(file, complete)) {
        if (!belongs_to(line, key)) {
            continue;
        }
        std::string       buffer(size, '\0');
        std::string const text  = line.substr(0, line.find('\0'));
        std::size_t       begin = text.find('=');
        if (begin == std::string::npos) {
            return {-1, size, buffer};
        }
        begin             = text.find_first_not_of(" \t", begin + 1);
        std::string value = begin != std::string::npos ? text.substr(begin) : "";
        if (value.size() + 1 > size) {
            return {-1, 0, buffer};
        }
        if (!value.empty()) {
            value.pop_back();
        }
        buffer.replace(0, value.size(), value);
        return {0, static_cast<unsigned int>(value.size()), buffer};
    }
    return {-1, 0, before};
}

// False when the setting is refused.
bool model_set(std::string& file, std::string const& key, std::string const& value)
{
    std::string const new_line = key + " = " + value + "\r";
    bool              complete = false;
    std::string       after;
    bool              seen = false;
    for (std::string const& line : lines_of(file, complete)) {
        if (belongs_to(line, key)) {
            after += new_line + "\n";
            seen = true;
        } else if (line != "" && line != "\r") {
            after += line + "\n";
        }
    }
    if (!complete || new_line.size() > 1023 || key.empty() || key[0] == '#' ||
        key.find('=') != std::string::npos ||
        (key + value).find_first_of("\r\n") != std::string::npos) {
        return false;
    }
    file = after + (seen ? "" : new_line + "\n");
    return true;
}

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
            EXPECT_EQ((reading{result, length, buffer}), model_get(file, key, before)) << key;
        }

        std::string const key   = random.key();
        std::string const value = random.value();
        bool const        done  = model_set(file, key, value);
        EXPECT_EQ(conf_set_string(key.c_str(), value.c_str(), path.c_str()), done ? 0 : -1);
        EXPECT_EQ(test::read_file(path), file);
    }
}

}  // namespace
}  // namespace zelieml
