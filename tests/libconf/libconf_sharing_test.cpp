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

    // Changes one of the two values again and again. Returns false when it cannot.
    bool write(int times)
    {
        for (int i = 0; i < times; ++i) {
            std::string const& value = i % 2 == 0 ? long_value : short_value;
            if (confw_set_string("turns", value.c_str(), path.c_str()) != 0) {
                return false;
            }
        }
        return true;
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
            ++good_values;
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

    // Lets threads read until the process has ended. Returns whether all went well.
    bool read_on_threads_beside(pid_t pid)
    {
        std::atomic<bool>        ended{false};
        std::atomic<bool>        well{true};
        std::vector<std::thread> readers;
        for (int i = 0; i < 3; ++i) {
            readers.emplace_back([&] {
                while (!ended) {
                    if (!read()) {
                        well = false;
                    }
                }
            });
        }
        int  status = -1;
        bool waited = ::waitpid(pid, &status, 0) == pid;
        ended       = true;
        for (std::thread& reader : readers) {
            reader.join();
        }
        return well && waited && status == 0;
    }

    test::temp_dir const dir;
    std::string const    path = dir.file("cf");
    std::atomic<int>     good_values{0};
};

TEST_F(SharedSettings, AreSeenWholeByThreadsWhileAnotherProcessWrites)
{
    pid_t const writer = start_process([this] { return write(1000); });
    ASSERT_GT(writer, 0);
    EXPECT_TRUE(read_on_threads_beside(writer));
    EXPECT_GT(good_values, 0);
}

TEST_F(SharedSettings, AreSeenWholeByAnotherProcessWhileAThreadWrites)
{
    pid_t const reader = start_process([this] {
        for (int i = 0; i < 3000; ++i) {
            if (!read()) {
                return false;
            }
        }
        return good_values > 0;
    });
    ASSERT_GT(reader, 0);

    std::atomic<bool> ended{false};
    std::atomic<bool> well{true};
    std::thread       writer([&] {
        while (!ended) {
            if (!write(2)) {
                well = false;
            }
        }
    });
    EXPECT_TRUE(read_on_threads_beside(reader));
    ended = true;
    writer.join();
    EXPECT_TRUE(well);
}

// They may fail, and lose what they like: what is certain is that the file can be used afterwards.
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
