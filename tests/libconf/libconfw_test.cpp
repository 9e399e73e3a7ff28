// libconfw_test.cpp - the settings file within its lock

#include "libconfw/libconfw.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "tests/support/fake_heap.h"
#include "tests/support/files.h"
#include "tests/support/trace_recorder.h"

namespace zelieml
{
namespace
{

using strings = std::vector<std::string>;

class LockedSettings : public testing::Test
{
protected:
    void SetUp() override
    {
        test::fail_heap_after(-1);
        test::clear_traces();
        path = dir.file("zelismes.cf");
    }

    void TearDown() override
    {
        test::fail_heap_after(-1);
        EXPECT_EQ(test::live_heap_buffers(), 0) << "every lock is given back";
    }

    test::temp_dir dir;
    std::string    path;
};

TEST_F(LockedSettings, AreThoseOfTheFile)
{
    char         val[16] = "before";
    unsigned int len     = sizeof val;
    EXPECT_EQ(confw_get_string("k", val, &len, path.c_str()), -1);
    EXPECT_EQ(len, 0u);

    EXPECT_EQ(confw_set_string("k", "value", path.c_str()), 0);
    EXPECT_EQ(test::read_file(path), "k = value\r\n");

    len = sizeof val;
    EXPECT_EQ(confw_get_string("k", val, &len, path.c_str()), 0);
    EXPECT_EQ(len, 5u);
    EXPECT_STREQ(val, "value");

    EXPECT_EQ(confw_set_string("k", "a\nb", path.c_str()), -1);
    EXPECT_EQ(test::traces(), (strings{"conf_get_string key=%s", "error:ifstream(%s)",
                                       "conf_set_string key=%s val=%s", "conf_get_string key=%s",
                                       "conf_set_string key=%s val=%s", "error:put_tmp"}));
}

TEST_F(LockedSettings, AreNotTouchedWithoutALock)
{
    test::write_file(path, "k = value\r\n");
    test::fail_heap_after(0);
    char         val[16] = "before";
    unsigned int len     = sizeof val;
    EXPECT_EQ(confw_get_string("k", val, &len, path.c_str()), -1);
    EXPECT_EQ(len, sizeof val);
    EXPECT_STREQ(val, "before");
    EXPECT_EQ(confw_set_string("k", "new", path.c_str()), -1);
    EXPECT_EQ(test::read_file(path), "k = value\r\n");
    EXPECT_EQ(test::trouble_traces(), (strings{"error:ilockw_create", "error:ilockw_create"}));
}

TEST_F(LockedSettings, AreReadOnceWithinOneLock)
{
    test::write_file(path, "k = v\r\nl = w\r\n");
    test::fail_heap_after(2);
    conf_settings const settings = confw_read(path.c_str(), {"k", "l"});
    for (char const* const key : {"k", "l"}) {
        char         val[16] = "before";
        unsigned int len     = sizeof val;
        EXPECT_EQ(confw_get_string(key, val, &len, settings), 0);
        EXPECT_STREQ(val, *key == 'k' ? "v" : "w");
    }
    EXPECT_EQ(test::trouble_traces(), strings{});
}

TEST_F(LockedSettings, AreNoneWithoutALock)
{
    test::write_file(path, "k = value\r\n");
    test::fail_heap_after(0);
    conf_settings const settings = confw_read(path.c_str(), {"k", "l"});
    char                val[16]  = "before";
    unsigned int        len      = sizeof val;
    EXPECT_EQ(confw_get_string("k", val, &len, settings), -1);
    EXPECT_EQ(len, 0u);
    EXPECT_STREQ(val, "before");
    EXPECT_EQ(test::trouble_traces(), strings{"error:ilockw_create"});
}

TEST_F(LockedSettings, FailForNull)
{
    char         val[16] = "before";
    unsigned int len     = sizeof val;
    EXPECT_EQ(confw_get_string("k", val, &len, nullptr), -1);
    EXPECT_EQ(len, 0u);
    EXPECT_EQ(confw_get_string("k", val, nullptr, path.c_str()), -1);
    EXPECT_EQ(confw_set_string("k", "v", nullptr), -1);
}

TEST(GetBasename, IsWhatFollowsTheLastBackslash)
{
    struct {
        char const* path;
        char const* name;
        char const* reason;
    } const cases[] = {
        {"a\\b\\zelismes.cf", "zelismes.cf", "the last of two"},
        {"\\cf", "cf", "at the start"},
        {"cf\\", "", "at the end"},
        {"/w/zelismes.cf", "/w/zelismes.cf", "a path with / is taken whole"},
        {"/w\\x/cf", "x/cf", "/ is like any character"},
        {"cf", "cf", "no directory"},
        {"", "", "empty"},
    };
    for (auto const& c : cases) {
        EXPECT_STREQ(get_basename(c.path), c.name) << c.reason;
    }
    EXPECT_EQ(get_basename(nullptr), nullptr);
}

}  // namespace
}  // namespace zelieml
