// engine_room.h - an engine whose time, notifications and names are the test's
//
// Needs fake_clock, fake_pause, fake_notification and fake_resolver.

#ifndef ZELIEML_TESTS_LIBEMLW_ENGINE_ROOM_H
#define ZELIEML_TESTS_LIBEMLW_ENGINE_ROOM_H

#include <algorithm>
#include <cstdio>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <vector>

#include "libemlw/engine_record.h"
#include "libemlw/libemlw.h"
#include "libnotifyw/libnotifyw.h"
#include "tests/libemlw/attempts.h"
#include "tests/support/fake_clock.h"
#include "tests/support/fake_notification.h"
#include "tests/support/fake_pause.h"
#include "tests/support/fake_resolver.h"
#include "tests/support/files.h"
#include "zelieml.h"

namespace zelieml::test
{

using strings = std::vector<std::string>;

class engine_room : public ::testing::Test
{
protected:
    static constexpr std::time_t start_time = 1700000000;
    static constexpr char        symbol[]   = "stock";

    engine_room()
    {
        reset_notifications();
        clear_hosts();
        add_host("*", "192.0.2.10");  // the name of this machine
        set_wall_clock(start_time, 0);
        ::mkdir(workdir().c_str(), 0777);
    }
    ~engine_room() override
    {
        if (engine_ != nullptr) {
            stop();
        }
        EXPECT_EQ(observers(), 0);
    }

    std::string workdir() const { return dir_.file("w"); }
    std::string file(std::string const& name) const { return workdir() + "/" + name + ".sme"; }

    // Settings for an SMTP server on this machine. Without any, each attempt fails at once.
    void settings(int port) const
    {
        write_file(workdir() + "/zelismes.cf",
                   "smtp_server = 127.0.0.1\r\nsmtp_port = " + std::to_string(port) + "\r\n");
    }

    // A message file, to that name at a.test; the path. It comes into the work directory complete.
    std::string message(std::string const& name) const
    {
        write_file(dir_.file(name),
                   "encoding: UTF-8\nfrom: f\nto: " + name + "@a.test\nsubject: s\nreplyto: r\n");
        EXPECT_EQ(std::rename(dir_.file(name).c_str(), file(name).c_str()), 0);
        return file(name);
    }
    // Tells the engine of a file.
    static void announce(std::string const& path)
    {
        deliver(notify_name, symbol, notify_path_key, path.c_str());
    }
    void post(std::string const& name) const { announce(message(name)); }

    // Starts the engine, which reports to attempts_.
    void start()
    {
        ASSERT_EQ(eml_start_with_stocksymbol(workdir().c_str(), symbol, &engine_), 0);
        ASSERT_EQ(eml_set_callback(engine_, attempts::note, &attempts_), 0);
    }
    void stop()
    {
        EXPECT_EQ(eml_stop(engine_), 0);
        engine_ = nullptr;
    }
    _s_iemlw& context() { return *static_cast<ieml*>(engine_)->get_context(); }
    iqmgr&    queue() { return *context().queue.load(); }

    // The names of the work directory's files but for the settings.
    strings on_disk() const
    {
        strings names = list_directory(workdir());
        names.erase(std::remove(names.begin(), names.end(), "zelismes.cf"), names.end());
        return names;
    }

    temp_dir const dir_;
    attempts       attempts_;
    void*          engine_ = nullptr;
};

}  // namespace zelieml::test

#endif
