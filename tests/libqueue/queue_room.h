// queue_room.h - a queue, and a directory for its message files

#ifndef ZELIEML_TESTS_LIBQUEUE_QUEUE_ROOM_H
#define ZELIEML_TESTS_LIBQUEUE_QUEUE_ROOM_H

#include <filesystem>
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
    // Makes so many, with a prefix and numbers for names, which sort as they are made. They are
    // links to one file: to make hundreds of files takes some file systems long.
    strings messages(std::size_t count, std::string const& prefix = "") const
    {
        strings paths = {message(prefix + std::to_string(1000))};
        for (std::size_t i = 1; i < count; ++i) {
            paths.push_back(dir_.file(prefix + std::to_string(1000 + i) + ".sme"));
            std::filesystem::create_hard_link(paths[0], paths[i]);
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
