// engine_room.h - an engine whose time, notifications and names are the test's
//
// Needs fake_clock, fake_pause, fake_notification and fake_resolver.

#ifndef ZELIEML_TESTS_LIBEMLW_ENGINE_ROOM_H
#define ZELIEML_TESTS_LIBEMLW_ENGINE_ROOM_H

#include "libemlw/engine_record.h"
#include "libemlw/libemlw.h"
#include "libnotifyw/libnotifyw.h"
#include "tests/libemlw/work_room.h"
#include "tests/support/fake_notification.h"
#include "tests/support/fake_pause.h"
#include "zelieml.h"

namespace zelieml::test
{

class engine_room : public work_room
{
protected:
    static constexpr char symbol[] = "stock";

    engine_room() { reset_notifications(); }
    ~engine_room() override
    {
        if (engine_ != nullptr) {
            stop();
        }
        EXPECT_EQ(observers(), 0);
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
        ASSERT_EQ(eml_set_callback(engine_, result_list::note, &attempts_), 0);
    }
    void stop()
    {
        EXPECT_EQ(eml_stop(engine_), 0);
        engine_ = nullptr;
    }
    _s_iemlw& context() { return *static_cast<ieml*>(engine_)->get_context(); }
    iqmgr&    queue() { return *context().queue.load(); }

    result_list attempts_;
    void*       engine_ = nullptr;
};

}  // namespace zelieml::test

#endif
