// queue_room.h - a queue, and a directory for its message files

#ifndef ZELIEML_TESTS_LIBQUEUE_QUEUE_ROOM_H
#define ZELIEML_TESTS_LIBQUEUE_QUEUE_ROOM_H

#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "libqueue/libqueue.h"
#include "tests/support/files.h"

namespace zelieml::test
{

using strings = std::vector<std::string>;

class queue_room : public ::testing::Test
{
protected:
    queue_room() { EXPECT_EQ(iqmgr_create(&made_), 0); }
    ~queue_room() override { EXPECT_EQ(iqmgr_destroy(made_), 0); }

    iqmgr& queue() { return *made_; }

    // Makes a message file of this name. Returns its path.
    std::string message(std::string const& name) const
    {
        std::string path = dir_.file(name + ".sme");
        write_file(path, name);
        return path;
    }
    // Makes so many, with a prefix and numbers for names, which sort as they are made.
    strings messages(std::size_t count, std::string const& prefix = "") const
    {
        strings paths;
        for (std::size_t i = 0; i < count; ++i) {
            paths.push_back(message(prefix + std::to_string(1000 + i)));
        }
        return paths;
    }

    // What is due now.
    strings get(unsigned int try_count, unsigned int interval)
    {
        strings files;
        EXPECT_EQ(queue().get(files, try_count, interval), 0);
        return files;
    }
    // The whole queue: hands out what was never handed out, and then everything there is.
    strings queued()
    {
        get(0, 0);
        return get(1, 0);
    }
    // The paths of the files in the directory, sorted.
    strings on_disk() const
    {
        strings paths;
        for (std::string const& name : list_directory(dir_.path())) {
            paths.push_back(dir_.file(name));
        }
        return paths;
    }

    temp_dir const dir_;

private:
    iqmgr* made_ = nullptr;
};

}  // namespace zelieml::test

#endif
