// libconf_test.cpp - the settings file: what is read, what is written, what is refused

#include "libconf/libconf.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <initializer_list>
#include <optional>
#include <string>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>
#include <vector>

#include "support/unique_fd.h"
#include "tests/support/failing_new.h"
#include "tests/support/files.h"
#include "tests/support/full_disk.h"
#include "tests/support/trace_recorder.h"

namespace zelieml
{
namespace
{

using strings = std::vector<std::string>;

class SettingsFile : public testing::Test
{
protected:
    void SetUp() override
    {
        test::clear_traces();
        path = dir.file("zelismes.cf");
    }

    // What a key reads as; its length is checked on the way. Failures read as "(-1)".
    std::string get(char const* key)
    {
        char         val[2048];
        unsigned int len = sizeof val;
        std::memset(val, '#', sizeof val);
        if (conf_get_string(key, val, &len, path.c_str()) != 0) {
            EXPECT_EQ(len, 0u) << key;
            return "(-1)";
        }
        EXPECT_EQ(len, std::strlen(val)) << key;
        return val;
    }

    int set(std::string const& key, std::string const& val)
    {
        return conf_set_string(key.c_str(), val.c_str(), path.c_str());
    }

    // What has been reported since the last time this was asked.
    strings reported()
    {
        strings all = test::trouble_traces();
        test::clear_traces();
        return all;
    }

    test::temp_dir dir;
    std::string    path;
};

// One that cannot be removed.
void make_full_directory(std::string const& name)
{
    ASSERT_EQ(::mkdir(name.c_str(), 0700), 0);
    test::write_file(name + "/x", "");
}

// The whole sequence; the other tests look at what is reported.
TEST_F(SettingsFile, IsTracedByEachCall)
{
    get("k");
    set("k", "v");
    get("k");
    get("missing");
    set("", "v");
    EXPECT_EQ(test::traces(),
              (strings{"conf_get_string key=%s", "error:ifstream(%s)",                //
                       "conf_set_string key=%s val=%s",                               //
                       "conf_get_string key=%s",                                      //
                       "conf_get_string key=%s", "conf_get_string key=%s not found",  //
                       "conf_set_string key=%s val=%s", "error:put_tmp"}));
}

TEST_F(SettingsFile, ThatIsMissingHasNoValues)
{
    char         val[8] = "before";
    unsigned int len    = sizeof val;
    EXPECT_EQ(conf_get_string("k", val, &len, path.c_str()), -1);
    EXPECT_EQ(len, 0u);
    EXPECT_STREQ(val, "before");
    EXPECT_EQ(reported(), strings{"error:ifstream(%s)"});
    EXPECT_FALSE(test::file_exists(path));
}

TEST_F(SettingsFile, IsMadeByTheFirstSetting)
{
    EXPECT_EQ(set("smtp_server", "mail.a.test"), 0);
    EXPECT_EQ(test::read_file(path), "smtp_server = mail.a.test\r\n");
    EXPECT_EQ(reported(), strings());
    EXPECT_EQ(test::list_directory(dir.path()), strings{"zelismes.cf"});
    EXPECT_EQ(get("smtp_server"), "mail.a.test");
    EXPECT_EQ(reported(), strings());
}

TEST_F(SettingsFile, IsReadAsTheseLinesSay)
{
    struct {
        std::string file;
        char const* key;
        char const* value;
        char const* reason;
    } const cases[] = {
        {"smtp_port=25\r\n", "smtp_port", "25", "no blanks"},
        {"k = v\r\n", "k", "v", "as it is written"},
        {"k = v\r", "k", "v", "no final LF"},
        {"k \t= \t v w \t\r\n", "k", "v w \t", "blanks before the value go, those behind it stay"},
        {"k = a=b\r\n", "k", "a=b", "the first = counts"},
        {"k =\r\n", "k", "", "an empty value"},
        {"k = \t \r\n", "k", "", "a value of blanks"},
        {"k = v\n", "k", "", "without the CR the last character is lost"},
        {"k = value\n", "k", "valu", "without the CR the last character is lost"},
        {"k =\n", "k", "", "nothing behind =, and no CR"},
        {"k =", "k", "", "nothing behind = at the end of the file"},
        {"k =\r\r\n", "k", "\r", "only the last CR goes"},
        {"smtp_auth_type = auto\r\nsmtp_auth = yes\r\n", "smtp_auth", "auto",
         "the first line with the key in it"},
        {"smtp_auth = yes\r\nsmtp_auth_type = auto\r\n", "smtp_auth", "yes",
         "the first line with the key in it, in the other order"},
        {"a = port\r\nport = 25\r\n", "port", "port", "a key found in a value"},
        {"k = 1\r\nk = 2\r\n", "k", "1", "the first of two"},
        {"#k = 1\r\nk = 2\r\n", "k", "2", "a comment is not found"},
        {" #k = 1\r\n", "k", "1", "a # that is not the first character"},
        {"\r\n\n\r\nk = v\r\n", "k", "v", "empty lines are passed over"},
        {"K = 1\r\nk = 2\r\n", "k", "2", "keys are compared case-sensitively"},
        {std::string("k = v\0w\r\n", 9), "k", "",
         "a NUL ends the line, and the v goes in place of the CR"},
        {std::string("a\0k = 1\r\nk = 2\r\n", 16), "k", "2", "a key behind a NUL is not seen"},
        {"k = \xe3\x83\x88\xff\r\n", "k", "\xe3\x83\x88\xff", "bytes above 127"},
    };
    for (auto const& c : cases) {
        test::write_file(path, c.file);
        EXPECT_EQ(get(c.key), c.value) << c.reason;
    }
}

TEST_F(SettingsFile, DoesNotFindWhatIsNotThere)
{
    struct {
        char const* file;
        char const* key;
        char const* reason;
    } const cases[] = {
        {"", "k", "an empty file"},
        {"a = b\r\n", "k", "another key"},
        {"#smtp_server = x\r\n", "smtp_server", "a comment"},
        {"smtp = x\r\n", "smtp_server", "the beginning of the key"},
        {"smtp_\nserver = x\r\n", "smtp_server", "over two lines"},
    };
    for (auto const& c : cases) {
        test::write_file(path, c.file);
        EXPECT_EQ(get(c.key), "(-1)") << c.reason;
        EXPECT_EQ(reported(), strings()) << c.reason;
    }
}

TEST_F(SettingsFile, LeavesTheLengthWhenTheLineHasNoValue)
{
    test::write_file(path, "this is about k\r\nk = v\r\n");
    char         val[] = "before";
    unsigned int len   = 4;
    EXPECT_EQ(conf_get_string("k", val, &len, path.c_str()), -1);
    EXPECT_EQ(len, 4u) << "here alone it stays";
    EXPECT_EQ(std::string(val, 6), std::string("\0\0\0\0re", 6)) << "cleared as far as it goes";
    EXPECT_EQ(reported(), strings());
}

TEST_F(SettingsFile, NeedsTwoBytesMoreThanTheValueHas)
{
    struct {
        unsigned int size;
        int          result;
        char const*  reason;
    } const cases[] = {
        {7, 0, "value, CR and NUL"},
        {8, 0, "one more"},
        {6, -1, "the CR is counted although it is not stored"},
        {5, -1, "the NUL is counted too"},
        {1, -1, "room for the NUL"},
        {0, -1, "no room"},
    };
    test::write_file(path, "k = value\r\n");
    for (auto const& c : cases) {
        char val[9];
        std::memset(val, '#', sizeof val);
        unsigned int len = c.size;
        EXPECT_EQ(conf_get_string("k", val, &len, path.c_str()), c.result) << c.reason;
        EXPECT_EQ(len, c.result == 0 ? 5u : 0u) << c.reason;
        std::string wanted(c.size, '\0');
        if (c.result == 0) {
            wanted.replace(0, 5, "value");
        }
        wanted.resize(sizeof val, '#');
        EXPECT_EQ(std::string(val, sizeof val), wanted) << c.reason << ": the rest is cleared";
        EXPECT_EQ(reported(), strings()) << c.reason;
    }
}

TEST_F(SettingsFile, GivesAValueOfAThousandCharactersTo1002Bytes)
{
    std::string const value(1000, 'v');
    EXPECT_EQ(set("k", value), 0);
    char         val[1002];
    unsigned int len = 1002;
    EXPECT_EQ(conf_get_string("k", val, &len, path.c_str()), 0);
    EXPECT_EQ(len, 1000u);
    EXPECT_EQ(val, value);
    len = 1001;
    EXPECT_EQ(conf_get_string("k", val, &len, path.c_str()), -1);
    EXPECT_EQ(len, 0u);
}

TEST_F(SettingsFile, GivesAnEmptyValueWithoutCrToOneByte)
{
    test::write_file(path, "k =\nl =\r\n");
    char         val[] = "##";
    unsigned int len   = 1;
    EXPECT_EQ(conf_get_string("k", val, &len, path.c_str()), 0);
    EXPECT_EQ(len, 0u);
    EXPECT_EQ(std::string(val, 2), std::string("\0#", 2));
    len = 1;
    EXPECT_EQ(conf_get_string("l", val, &len, path.c_str()), -1) << "with the CR it takes two";
    len = 0;
    EXPECT_EQ(conf_get_string("k", val, &len, path.c_str()), -1);
    EXPECT_EQ(std::string(val, 2), std::string("\0#", 2)) << "a length of 0 clears nothing";
}

TEST_F(SettingsFile, SaysTheSameFromSettingsThatHaveBeenRead)
{
    std::string const line    = "k = " + std::string(1018, 'v');  // 1023 characters with the CR
    std::string const files[] = {
        "",
        "k = v\r\n",
        "#k = x\r\n#\r\nk = v\r\nk = w\r\n",
        "key = first\r\nk = second\r\n",
        "this is about k\r\nk = v\r\n",
        "\r\n\n\nk=\r\n",
        "k = without CR\nl = v",
        std::string("a = b\0k = hidden\r\nk = x\0y\r\n", 27),
        line + "\r\nl = v\r\n",
        line + "x\r\nl = v\r\n",
        "l = v\r\n" + line + "x\r\nm = v\r\n",
        std::string(5000, '\n') + "k = v\r\n",
        std::string(5000, 'x'),
    };
    auto const both = [&](char const* key, char* val, unsigned int const* size, char const* name) {
        struct {
            int          result;
            unsigned int length;
            std::string  value;
            strings      traced;
        } said[2];
        for (int read_before = 0; read_before < 2; ++read_before) {
            auto&               now = said[read_before];
            conf_settings const settings(name, {"k", "l", "m", "key", "", " ", "="});
            std::string         buffer(2000, '#');
            unsigned int        length = size != nullptr ? *size : 0;
            char* const         out    = val != nullptr ? buffer.data() : nullptr;
            unsigned int* const len    = size != nullptr ? &length : nullptr;
            test::clear_traces();
            now.result = read_before != 0 ? conf_get_string(key, out, len, settings)
                                          : conf_get_string(key, out, len, name);
            now.traced = test::traces();
            now.length = length;
            now.value  = buffer;
        }
        EXPECT_EQ(said[1].result, said[0].result);
        EXPECT_EQ(said[1].length, said[0].length);
        EXPECT_EQ(said[1].value, said[0].value);
        EXPECT_EQ(said[1].traced, said[0].traced);
    };
    char               val[1]  = "";
    unsigned int const sizes[] = {0, 1, 3, 2000};
    for (std::string const& file : files) {
        test::write_file(path, file);
        for (char const* const key : {"k", "l", "m", "key", "", " ", "="}) {
            for (unsigned int const& size : sizes) {
                SCOPED_TRACE(testing::PrintToString(file.substr(0, 40)) + ", key " + key);
                both(key, val, &size, path.c_str());
            }
        }
    }
    both(nullptr, val, sizes, path.c_str());
    both("k", nullptr, sizes, path.c_str());
    both("k", val, nullptr, path.c_str());
    both("k", val, sizes, nullptr);
    both("k", val, sizes, dir.path().c_str());
    both("k", val, sizes, (path + ".not").c_str());
    ASSERT_EQ(::mkfifo((path + ".pipe").c_str(), 0600), 0);
    both("k", val, sizes, (path + ".pipe").c_str());
}

TEST_F(SettingsFile, IsReadOnceForSeveralKeys)
{
    test::write_file(path, "k = v\r\nl = w\r\n");
    conf_settings const settings(path.c_str(), {"k", "l"});
    test::write_file(path, "k = new\r\nl = new\r\n");
    char         val[8];
    unsigned int len = sizeof val;
    EXPECT_EQ(conf_get_string("k", val, &len, settings), 0);
    EXPECT_STREQ(val, "v");
    len = sizeof val;
    EXPECT_EQ(conf_get_string("l", val, &len, settings), 0);
    EXPECT_STREQ(val, "w");
}

TEST_F(SettingsFile, KeepsWhyItCouldNotBeRead)
{
    auto const error = [](std::string const& name) {
        return conf_settings(name.c_str(), {"k"}).error();
    };
    EXPECT_EQ(error(path + ".not"), ENOENT);
    EXPECT_EQ(error(dir.path()), EISDIR);
    ASSERT_EQ(::mkfifo((path + ".pipe").c_str(), 0600), 0);
    EXPECT_EQ(error(path + ".pipe"), EINVAL);
    test::write_file(path, "k = v\r\n");
    EXPECT_EQ(error(path), 0);
    test::write_file(path, std::string(5000, 'x'));
    EXPECT_EQ(error(path), 0) << "an overlong line is no error of the system";
    EXPECT_STREQ(conf_settings(path.c_str(), {"k"}).path(), path.c_str());
}

// A path may lead to any file.
TEST_F(SettingsFile, IsReadInLittleMemoryHoweverLargeItIs)
{
    std::string lines;
    for (int i = 0; i < 1000; ++i) {
        lines += std::string(1000, 'x') + "\r\n\n";
    }
    test::write_file(path, lines + "kept = the value\r\n" + lines + "kept = another\r\nw = y\r\n");
    ASSERT_EQ(::truncate(path.c_str(), 1 << 30), 0);  // a hole, which is an overlong line
    std::optional<conf_settings> settings;
    {
        test::failing_new const no_memory(2);  // for the lines, and for the text of one of them
        settings.emplace(path.c_str(), std::initializer_list<char const*>{"kept", "w", "none"});
    }
    for (char const* const key : {"kept", "w", "none"}) {
        char         val[2][20] = {"", ""};
        unsigned int len[2]     = {sizeof val[0], sizeof val[1]};
        EXPECT_EQ(conf_get_string(key, val[0], &len[0], *settings),
                  conf_get_string(key, val[1], &len[1], path.c_str()))
            << key;
        EXPECT_EQ(len[0], len[1]) << key;
        EXPECT_STREQ(val[0], val[1]) << key;
    }
}

TEST_F(SettingsFile, IsRewrittenAsTheseLinesSay)
{
    struct {
        std::string before;
        std::string after;
        char const* reason;
    } const cases[] = {
        {"", "k = new\r\n", "added to an empty file"},
        {"a = b\r\n", "a = b\r\nk = new\r\n", "added at the end"},
        {"k = old\r\na = b\r\n", "k = new\r\na = b\r\n", "replaced where it stands"},
        {"k = 1\r\na = b\r\nk = 2\r\n", "k = new\r\na = b\r\nk = new\r\n", "both of two"},
        {"k_long = 1\r\n", "k = new\r\n", "every line with the key in it, a longer key's too"},
        {"a = k\r\n", "k = new\r\n", "every line with the key in it, in its value too"},
        {"#k = 1\r\n# x\n", "#k = 1\r\n# x\nk = new\r\n", "comments stay, CR or not"},
        {"a=1\nb = 2\r\n", "a=1\nb = 2\r\nk = new\r\n", "kept lines keep their line end"},
        {"\r\n\na = b\r\n\r\n", "a = b\r\nk = new\r\n", "empty lines go, with CR or without"},
        {" \r\n", " \r\nk = new\r\n", "a blank is not empty"},
        {"\r\r\n", "\r\r\nk = new\r\n", "two CRs are not empty"},
        {"a = b", "a = b\nk = new\r\n", "a last line without LF gets one"},
        {"a = b\r", "a = b\r\nk = new\r\n", "a last line without LF keeps its CR"},
        {"\r", "k = new\r\n", "a last line of CR alone is empty"},
        {"k = old", "k = new\r\n", "replaced at the end of the file"},
        {std::string("a\0b = c\r\n", 9), std::string("a\0b = c\r\nk = new\r\n", 18),
         "bytes behind a NUL stay"},
        {std::string("a\0k = c\r\n", 9), std::string("a\0k = c\r\nk = new\r\n", 18),
         "bytes behind a NUL are not searched"},
        {std::string("#\0\xff\r\n", 5), std::string("#\0\xff\r\nk = new\r\n", 14),
         "bytes behind a NUL stay in comments as well"},
    };
    for (auto const& c : cases) {
        test::write_file(path, c.before);
        test::clear_traces();
        EXPECT_EQ(set("k", "new"), 0) << c.reason;
        EXPECT_EQ(test::read_file(path), c.after) << c.reason;
        EXPECT_EQ(reported(), strings()) << c.reason;
        EXPECT_EQ(test::list_directory(dir.path()), strings{"zelismes.cf"}) << c.reason;
    }
}

TEST_F(SettingsFile, LosesTheBlanksAtTheBeginningOfAValue)
{
    EXPECT_EQ(set("k", " \tv "), 0);
    EXPECT_EQ(test::read_file(path), "k =  \tv \r\n") << "written as it is";
    EXPECT_EQ(get("k"), "v ");
}

TEST_F(SettingsFile, TakesAnEmptyValue)
{
    EXPECT_EQ(set("k", ""), 0);
    EXPECT_EQ(test::read_file(path), "k = \r\n");
    EXPECT_EQ(get("k"), "");
}

TEST_F(SettingsFile, IsRewrittenBeyondAnyBuffer)
{
    std::string before;
    for (int i = 0; i < 3000; ++i) {
        before += "key" + std::to_string(i) +
                  "_ = " + std::string(static_cast<std::size_t>(i % 700), 'v') + "\r\n";
    }
    test::write_file(path, before + "k_ = old\r\n" + before);
    EXPECT_EQ(set("k_", "new"), 0);
    EXPECT_TRUE(test::read_file(path) == before + "k_ = new\r\n" + before);
    EXPECT_EQ(get("key2999_"), std::string(2999 % 700, 'v'));
    EXPECT_EQ(get("k_"), "new");
}

TEST_F(SettingsFile, IsReadWhereverItsLinesMeetTheEndOfABuffer)
{
    for (std::size_t size : {4096u, 8192u}) {
        for (std::size_t total = size - 3; total <= size + 3; ++total) {
            // Short lines, then one that makes the file this long.
            std::string file;
            while (total - file.size() > 1000) {
                file += "a = " + std::string(500, 'v') + "\r\n";
            }
            file += "k = " + std::string(total - file.size() - 6, 'w') + "x\r";
            ASSERT_EQ(file.size(), total);
            std::string const value =
                file.substr(file.rfind(' ') + 1, file.size() - file.rfind(' ') - 2);
            for (std::string const& end :
                 {std::string(), std::string("\n"), std::string("\nb = 1\r\n")}) {
                test::write_file(path, file + end);
                EXPECT_EQ(get("k"), value) << total;
            }
            EXPECT_EQ(get("b"), "1") << total;
        }
    }
}

TEST_F(SettingsFile, HasLinesOfAtMost1023Characters)
{
    struct {
        std::size_t length;  // of the line, the CR counted
        bool        readable;
    } const cases[] = {{1022, true},  {1023, true},  {1024, false},
                       {1025, false}, {5000, false}, {100000, false}};
    for (auto const& c : cases) {
        SCOPED_TRACE("a line of " + std::to_string(c.length));
        std::string const value(c.length - std::strlen("long = \r"), 'v');
        for (char const* end : {"\n", ""}) {
            std::string const file = "a = 1\r\nlong = " + value + "\r" + end;
            test::write_file(path, file);
            EXPECT_EQ(get("a"), "1") << "above the long line";
            EXPECT_EQ(get("long"), c.readable ? value : "(-1)");
            EXPECT_EQ(reported(), strings());

            EXPECT_EQ(set("k", "new"), c.readable ? 0 : -1);
            EXPECT_EQ(reported(), c.readable ? strings() : strings{"error:put_tmp"});
            EXPECT_EQ(test::read_file(path),
                      c.readable ? "a = 1\r\nlong = " + value + "\r\nk = new\r\n" : file);
        }
        test::write_file(path, "long = " + value + "\r\na = 1\r\n");
        EXPECT_EQ(get("a"), c.readable ? "1" : "(-1)") << "below the long line";

        std::string const comment = "#" + std::string(c.length - 1, 'x') + "\na = 1\r\n";
        test::write_file(path, comment);
        EXPECT_EQ(get("a"), c.readable ? "1" : "(-1)") << "below a long comment";
    }
}

TEST_F(SettingsFile, IsLeftAloneWhenALineToWriteCouldNotBeReadBack)
{
    struct {
        std::string key;
        std::string value;
        int         result;
        char const* reason;
    } const cases[] = {
        {"k", std::string(1018, 'v'), 0, "1023 characters with the CR"},
        {"k", std::string(1019, 'v'), -1, "1024 characters with the CR"},
        {std::string(1019, 'k'), "", 0, "a long key, 1023 characters"},
        {std::string(1020, 'k'), "", -1, "a long key, 1024 characters"},
        {"k", std::string(100000, 'v'), -1, "far too long"},
        {"k", "a\nb", -1, "a LF in the value"},
        {"k", "a\r", -1, "a CR in the value"},
        {"k\n", "a", -1, "a LF in the key"},
        {"\rk", "a", -1, "a CR in the key"},
        {"", "a", -1, "the empty key, which is found in every line"},
        {"#k", "a", -1, "a comment"},
        {"k#", "a", 0, "a # that makes no comment"},
        {"k=l", "a", -1, "a = in the key"},
        {"=", "a", -1, "a = as the key"},
    };
    for (auto const& c : cases) {
        ::unlink(path.c_str());
        test::clear_traces();
        EXPECT_EQ(set(c.key, c.value), c.result) << c.reason;
        EXPECT_EQ(reported(), c.result == 0 ? strings() : strings{"error:put_tmp"}) << c.reason;
        EXPECT_EQ(test::list_directory(dir.path()),
                  c.result == 0 ? strings{"zelismes.cf"} : strings())
            << c.reason << ": nothing is made for a refused setting";
        if (c.result == 0) {
            EXPECT_EQ(get(c.key.c_str()), c.value) << c.reason;
        }

        test::write_file(path, "other = yes\r\n");
        EXPECT_EQ(set(c.key, c.value), c.result) << c.reason;
        EXPECT_EQ(get("other"), "yes") << c.reason;
        EXPECT_EQ(test::list_directory(dir.path()), strings{"zelismes.cf"}) << c.reason;
    }
}

mode_t mode_of(std::string const& path)
{
    struct stat info = {};
    EXPECT_EQ(::stat(path.c_str(), &info), 0) << path;
    return info.st_mode & 0777;
}

TEST_F(SettingsFile, KeepsItsPermissionBits)
{
    mode_t const before = ::umask(022);
    for (mode_t const mode : {0600u, 0640u, 0644u, 0660u, 0664u, 0666u, 0400u, 0755u}) {
        test::write_file(path, "k = old\r\n");
        ASSERT_EQ(::chmod(path.c_str(), mode), 0);
        EXPECT_EQ(set("k", "new"), 0) << std::oct << mode;
        EXPECT_EQ(mode_of(path), mode);
        EXPECT_EQ(get("k"), "new") << std::oct << mode;
        ::unlink(path.c_str());
    }
    ::umask(before);
}

TEST_F(SettingsFile, ReplacesATemporaryFileThatWasLeftBehind)
{
    test::write_file(path, "k = old\r\n");
    ::chmod(path.c_str(), 0600);
    test::write_file(path + ".tmp", std::string(10000, 'x'));
    ::chmod((path + ".tmp").c_str(), 0666);
    EXPECT_EQ(set("k", "new"), 0);
    EXPECT_EQ(test::read_file(path), "k = new\r\n");
    EXPECT_EQ(mode_of(path), 0600u) << "not open to all, as the left file was";
    EXPECT_EQ(test::list_directory(dir.path()), strings{"zelismes.cf"});
}

TEST_F(SettingsFile, HasItsBackupDeletedAndNoneMade)
{
    test::write_file(path, "k = old\r\n");
    test::write_file(path + ".bak", "backup");
    EXPECT_EQ(set("k", "new"), 0);
    EXPECT_EQ(test::list_directory(dir.path()), strings{"zelismes.cf"});
    EXPECT_EQ(set("k", "newer"), 0);
    EXPECT_EQ(test::list_directory(dir.path()), strings{"zelismes.cf"});
}

TEST_F(SettingsFile, BehindALinkStaysAndTheLinkBecomesTheNewFile)
{
    std::string const target = dir.file("target");
    test::write_file(target, "k = old\r\na = b\r\n");
    ASSERT_EQ(::symlink(target.c_str(), path.c_str()), 0);
    EXPECT_EQ(set("k", "new"), 0);
    EXPECT_EQ(test::read_file(path), "k = new\r\na = b\r\n");
    EXPECT_EQ(test::read_file(target), "k = old\r\na = b\r\n");
    struct stat info = {};
    ASSERT_EQ(::lstat(path.c_str(), &info), 0);
    EXPECT_TRUE(S_ISREG(info.st_mode));
}

// What a failed call leaves: a trace, and the settings as they were.
TEST_F(SettingsFile, ReportsWhatCannotBeOpened)
{
    test::write_file(dir.file("file"), "");
    std::string const through_file = dir.file("file/zelismes.cf");
    std::string const no_directory = dir.file("none/zelismes.cf");
    for (std::string const& where : {through_file, no_directory, std::string()}) {
        path = where;
        test::clear_traces();
        EXPECT_EQ(get("k"), "(-1)") << where;
        EXPECT_EQ(reported(), strings{"error:ifstream(%s)"}) << where;
        EXPECT_EQ(set("k", "v"), -1) << where;
        EXPECT_EQ(reported(), strings{"error:ofstream(%s)"}) << where;
    }
    EXPECT_EQ(test::list_directory(dir.path()), strings{"file"});
}

// By a name in the current directory: an address has room for 104 bytes on some systems.
void make_socket(std::string const& path)
{
    namespace fs             = std::filesystem;
    fs::path const    before = fs::current_path();
    std::string const name   = fs::path(path).filename().string();
    unique_fd const   socket(::socket(AF_UNIX, SOCK_STREAM, 0));
    sockaddr_un       address = {};
    address.sun_family        = AF_UNIX;
    std::memcpy(address.sun_path, name.c_str(), name.size() + 1);
    fs::current_path(fs::path(path).parent_path());
    EXPECT_EQ(::bind(socket.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    fs::current_path(before);
}

TEST_F(SettingsFile, ReportsWhatIsThereButCannotBeOpened)
{
    make_socket(path);
    EXPECT_EQ(get("k"), "(-1)");
    EXPECT_EQ(reported(), strings{"error:ifstream(%s)"});
    EXPECT_EQ(set("k", "v"), -1);
    EXPECT_EQ(reported(), strings{"error:ifstream(%s)"});
    EXPECT_EQ(test::list_directory(dir.path()), strings{"zelismes.cf"});
}

// Otherwise whoever put it there would prevent every change.
TEST_F(SettingsFile, ReplacesWhateverHasItsTemporaryName)
{
    std::string const tmp = path + ".tmp";
    struct {
        char const*           what;
        std::function<void()> make;
    } const cases[] = {
        {"a pipe", [&] { ASSERT_EQ(::mkfifo(tmp.c_str(), 0600), 0); }},
        {"a socket", [&] { make_socket(tmp); }},
        {"an empty directory", [&] { ASSERT_EQ(::mkdir(tmp.c_str(), 0700), 0); }},
    };
    for (auto const& c : cases) {
        test::write_file(path, "k = old\r\n");
        c.make();
        EXPECT_EQ(set("k", "new"), 0) << c.what;
        EXPECT_EQ(reported(), strings()) << c.what;
        EXPECT_EQ(test::read_file(path), "k = new\r\n") << c.what;
        EXPECT_EQ(test::list_directory(dir.path()), strings{"zelismes.cf"}) << c.what;
    }
}

TEST_F(SettingsFile, ReportsADirectoryWithFilesUnderItsTemporaryName)
{
    test::write_file(path, "k = old\r\n");
    make_full_directory(path + ".tmp");
    EXPECT_EQ(set("k", "new"), -1);
    EXPECT_EQ(reported(), strings{"error:ofstream(%s)"});
    EXPECT_EQ(get("k"), "old");
    EXPECT_EQ(test::list_directory(path + ".tmp"), strings{"x"});
}

TEST_F(SettingsFile, StaysEmptyWhenItWasMadeAndALaterStepFails)
{
    make_full_directory(path + ".tmp");
    EXPECT_EQ(set("k", "new"), -1);
    EXPECT_EQ(reported(), strings{"error:ofstream(%s)"});
    EXPECT_EQ(test::read_file(path), "");
}

// Opening a pipe would wait for a writer, and a device may never come to an end.
TEST_F(SettingsFile, ThatIsAPipeOrADeviceIsNeitherReadNorReplaced)
{
    ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
    ASSERT_EQ(::symlink(path.c_str(), dir.file("pipe").c_str()), 0);
    ASSERT_EQ(::symlink("/dev/zero", dir.file("device").c_str()), 0);
    strings const names = test::list_directory(dir.path());
    for (char const* name : {"zelismes.cf", "pipe", "device"}) {
        path = dir.file(name);
        test::clear_traces();
        EXPECT_EQ(get("k"), "(-1)") << name;
        EXPECT_EQ(reported(), strings{"error:ifstream(%s)"}) << name;
        EXPECT_EQ(set("k", "v"), -1) << name;
        EXPECT_EQ(reported(), strings{"error:ifstream(%s)"}) << name;
    }
    EXPECT_EQ(test::list_directory(dir.path()), names);
}

TEST_F(SettingsFile, ThatIsADirectoryIsNeitherReadNorReplaced)
{
    ASSERT_EQ(::mkdir(path.c_str(), 0700), 0);
    EXPECT_EQ(get("k"), "(-1)");
    EXPECT_EQ(reported(), strings());
    EXPECT_EQ(set("k", "v"), -1);
    EXPECT_EQ(reported(), strings{"error:put_tmp"});
    EXPECT_EQ(test::list_directory(path), strings());
}

TEST_F(SettingsFile, ReportsABackupThatCannotBeDeleted)
{
    test::write_file(path, "k = old\r\n");
    make_full_directory(path + ".bak");
    EXPECT_EQ(set("k", "new"), -1);
    EXPECT_EQ(reported(), (strings{"error:remove(%s)", "error:rename_tmp"}));
    EXPECT_EQ(get("k"), "old");
    EXPECT_EQ(test::read_file(path + ".tmp"), "k = new\r\n") << "left behind, nothing repairs it";
}

TEST_F(SettingsFile, StaysAsItWasOnAFullDisk)
{
    struct {
        std::size_t size;  // of a value that is in the file
        rlim_t      room;
        char const* reason;
    } const cases[] = {
        {10, 0, "no byte fits"},
        {10, 20, "the kept line fits, the new one in part"},
        {900, 500, "not even the kept line fits"},
    };
    for (auto const& c : cases) {
        std::string file;
        for (int i = 0; i < 20; ++i) {
            file += "a" + std::to_string(i) + " = " + std::string(c.size, 'v') + "\r\n";
        }
        test::write_file(path, file);
        test::clear_traces();
        int result = 0;
        {
            test::full_disk const limit(c.room);
            result = set("k", "new");
        }
        EXPECT_EQ(result, -1) << c.reason;
        EXPECT_EQ(reported(), strings{"error:put_tmp"}) << c.reason;
        EXPECT_EQ(test::read_file(path), file) << c.reason;
    }
    EXPECT_EQ(set("k", "new"), 0) << "with room again";
    EXPECT_EQ(get("k"), "new");
}

TEST_F(SettingsFile, IsNotTouchedForNull)
{
    test::write_file(path, "k = v\r\n");
    char         val[8] = "before";
    unsigned int len    = sizeof val;
    EXPECT_EQ(conf_get_string(nullptr, val, &len, path.c_str()), -1);
    EXPECT_EQ(len, 0u);
    len = sizeof val;
    EXPECT_EQ(conf_get_string("k", nullptr, &len, path.c_str()), -1);
    EXPECT_EQ(len, 0u);
    len = sizeof val;
    EXPECT_EQ(conf_get_string("k", val, &len, nullptr), -1);
    EXPECT_EQ(len, 0u);
    EXPECT_EQ(conf_get_string("k", val, nullptr, path.c_str()), -1);
    EXPECT_STREQ(val, "before");

    EXPECT_EQ(conf_set_string(nullptr, "v", path.c_str()), -1);
    EXPECT_EQ(conf_set_string("k", nullptr, path.c_str()), -1);
    EXPECT_EQ(conf_set_string("k", "v", nullptr), -1);
    EXPECT_EQ(test::read_file(path), "k = v\r\n");
    EXPECT_EQ(test::list_directory(dir.path()), strings{"zelismes.cf"});
}

TEST_F(SettingsFile, LeavesNoDescriptorOpen)
{
    int const before = test::open_descriptors();
    set("k", "v");
    get("k");
    get("l");
    test::write_file(path, "k = v\r\n" + std::string(2000, 'x'));
    set("k", "v");
    get("l");
    ::unlink((path + ".tmp").c_str());
    make_full_directory(path + ".tmp");
    set("k", "v");
    EXPECT_EQ(test::open_descriptors(), before);
}

}  // namespace
}  // namespace zelieml
