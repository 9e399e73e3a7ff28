// work_room.h - a work directory at a time that stands still
//
// Needs fake_clock and fake_resolver.

#ifndef ZELIEML_TESTS_LIBEMLW_WORK_ROOM_H
#define ZELIEML_TESTS_LIBEMLW_WORK_ROOM_H

#include <cstdint>
#include <cstdio>
#include <ctime>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>

#include "tests/support/fake_clock.h"
#include "tests/support/fake_resolver.h"
#include "tests/support/files.h"
#include "tests/support/workplace.h"

namespace zelieml::test
{

class work_room : public ::testing::Test
{
protected:
    static constexpr std::time_t start_time = 1700000000;

    work_room()
    {
        clear_hosts();
        add_host("*", "192.0.2.10");  // the name of this machine
        set_wall_clock(start_time, 0);
        ::mkdir(workdir().c_str(), 0777);
    }

    std::string workdir() const { return dir_.file("w"); }
    std::string file(std::string const& name) const { return workdir() + "/" + name + ".sme"; }
    strings     on_disk() const { return messages_in(workdir()); }

    // Settings for an SMTP server on this machine. Without any, each attempt fails at once.
    void settings(std::uint16_t port) const
    {
        write_file(workdir() + "/zelismes.cf", settings_for(port));
    }

    // A message file, to that name at a.test; the path. It comes into the work directory complete.
    std::string message(std::string const& name) const
    {
        write_file(dir_.file(name),
                   "encoding: UTF-8\nfrom: f\nto: " + name + "@a.test\nsubject: s\nreplyto: r\n");
        EXPECT_EQ(std::rename(dir_.file(name).c_str(), file(name).c_str()), 0);
        return file(name);
    }

    temp_dir const dir_;
};

}  // namespace zelieml::test

#endif
