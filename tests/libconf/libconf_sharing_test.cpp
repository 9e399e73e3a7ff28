// libconf_sharing_test.cpp - writers and readers on several threads and in two processes

#include <atomic>
#include <cstdio>
#include <cstring>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "libconfw/libconfw.h"
#include "tests/support/files.h"

namespace zelieml
{
namespace
{

// Of different lengths, so that a mixture of the two would show.
std::string const short_value = "s";
std::string const long_value(900, 'l');

class SharedSettings : public testing::Test
{
protected:
    SharedSettings() { write_settings(); }

    void write_settings() const { test::write_file(path, "turns = s\r\nstays = same\r\n"); }

    // Changes one of the two values to and fro. Returns false when it cannot.
    bool write_both()
    {
        return confw_set_string("turns", long_value.c_str(), path.c_str()) == 0 &&
               confw_set_string("turns", short_value.c_str(), path.c_str()) == 0;
    }

    // Reads both values once. Returns false when something else than an old value, the new value or
    // nothing at all came: while the new file takes the place of the old one there is none.
    bool read()
    {
        for (char const* key : {"turns", "stays"}) {
            char         val[1024];
            unsigned int len = sizeof val;
            if (confw_get_string(key, val, &len, path.c_str()) != 0) {
                if (len != 0) {
                    return false;
                }
                continue;
            }
            bool const known = std::strcmp(key, "stays") == 0
                                   ? std::strcmp(val, "same") == 0
                                   : val == short_value || val == long_value;
            if (!known || len != std::strlen(val)) {
                return false;
            }
            short_seen += val == short_value ? 1 : 0;
            long_seen += val == long_value ? 1 : 0;
        }
        return true;
    }

    // Reads until both values have come often, which shows that they change meanwhile. Returns
    // false when a reading was wrong.
    bool read_until_both_came(int times)
    {
        while (short_seen < times || long_seen < times) {
            if (!read()) {
                return false;
            }
        }
        return true;
    }

    // Runs body in a process of its own, to be started before any thread is.
    static pid_t start_process(std::function<bool()> const& body)
    {
        pid_t const pid = ::fork();
        if (pid == 0) {
            ::_exit(body() ? 0 : 1);
        }
        return pid;
    }

    // Three threads that read until both values have come often. Returns whether all went well.
    bool read_on_threads(int times)
    {
        std::atomic<bool>        well{true};
        std::vector<std::thread> readers;
        for (int i = 0; i < 3; ++i) {
            readers.emplace_back([&] {
                if (!read_until_both_came(times)) {
                    well = false;
                }
            });
        }
        for (std::thread& reader : readers) {
            reader.join();
        }
        return well;
    }

    static bool ended_well(pid_t pid)
    {
        int status = -1;
        return ::waitpid(pid, &status, 0) == pid && status == 0;
    }

    test::temp_dir const dir;
    std::string const    path = dir.file("cf");
    std::atomic<int>     short_seen{0};
    std::atomic<int>     long_seen{0};
};

TEST_F(SharedSettings, AreSeenWholeByThreadsWhileAnotherProcessWrites)
{
    std::string const end    = dir.file("end");
    pid_t const       writer = start_process([&] {
        bool well = true;
        while (well && !test::file_exists(end)) {
            well = write_both();
        }
        return well;
    });
    ASSERT_GT(writer, 0);
    EXPECT_TRUE(read_on_threads(3000));
    test::write_file(end, "");
    EXPECT_TRUE(ended_well(writer));
}

TEST_F(SharedSettings, AreSeenWholeByAnotherProcessWhileAThreadWrites)
{
    pid_t const reader = start_process([this] { return read_until_both_came(3000); });
    ASSERT_GT(reader, 0);

    std::atomic<bool> ended{false};
    std::atomic<bool> well{true};
    std::thread       writer([&] {
        while (!ended) {
            if (!write_both()) {
                well = false;
            }
        }
    });
    EXPECT_TRUE(read_on_threads(3000));
    EXPECT_TRUE(ended_well(reader));
    ended = true;
    writer.join();
    EXPECT_TRUE(well);
}

// Each of them may fail, and a value may be lost: the file can be used afterwards.
TEST_F(SharedSettings, CanBeSetAfterTwoWritersMet)
{
    for (int round = 0; round < 200; ++round) {
        std::atomic<int> ready{0};
        auto const       write_along = [&](char const* key, std::string const& value, int& result) {
            ++ready;
            while (ready < 2) {
                std::this_thread::yield();
            }
            result = confw_set_string(key, value.c_str(), path.c_str());
        };
        int         first  = 1;
        int         second = 1;
        std::thread writer([&] { write_along("turns", "one", first); });
        write_along("other", "two", second);
        writer.join();
        EXPECT_TRUE(first == 0 || first == -1) << first;
        EXPECT_TRUE(second == 0 || second == -1) << second;

        EXPECT_EQ(confw_set_string("later", "three", path.c_str()), 0);
        char         val[16];
        unsigned int len = sizeof val;
        EXPECT_EQ(confw_get_string("later", val, &len, path.c_str()), 0);
        EXPECT_STREQ(val, "three");
        EXPECT_EQ(test::list_directory(dir.path()), std::vector<std::string>{"cf"});

        // A new file: one that is replaced may be written to the disk at once, which takes long.
        ASSERT_EQ(std::remove(path.c_str()), 0);
        write_settings();
    }
}

}  // namespace
}  // namespace zelieml
