// send.cpp - from a message file to a result

#include "libemlw/send.h"

#include <vector>

#include "libemlw/callback.h"
#include "libemlw/file.h"
#include "liblog/liblog.h"
#include "liblog/trace.h"
#include "libmsg/libmsg.h"
#include "libqueue/libqueue.h"
#include "libsendw/libsendw.h"
#include "support/attempt_note.h"
#include "support/c_boundary.h"
#include "support/mutex_lock.h"

namespace zelieml
{

namespace
{

// One run of the send driver. An exception (lack of memory) is a failed attempt.
int run_driver(char const* dir, message_file const& message, std::string& detail)
{
    int const code = at_c_boundary<int>(send_other_failure, [&] {
        std::string const conf = conf_fullpath(dir);
        isendw            sender;
        return sender.send(message, conf.c_str(), detail);
    });
    if (code == send_other_failure) {
        note_no_memory();  // unless the driver knows better
    }
    return code;
}

// Writes the send log if there is memory for it: a failure here must not keep a sent file queued.
//
// file  a std::string, or a char const* to make one of: inside, so that a failure is contained too
template <class Path>
void log_attempt(char const* dir, Path const& file, int code, std::string const& detail)
{
    contained([&] { write_log(dir, file, code, detail); });
}

}  // namespace

int send_queue(_s_iemlw* engine, unsigned int try_count, unsigned int interval)
{
    trace_msg("send_queue in");
    if (in_forked_child(engine)) {
        return 0;  // from a callback in the first of two passes
    }
    std::vector<c_queue> entries;
    {
        mutex_lock const hold(engine->mutex);
        engine->queue.load()->get(entries, try_count, interval);
    }
    int result = send_ok;
    for (c_queue const& entry : entries) {
        if (engine->stop || in_forked_child(engine)) {
            trace_msg("warning: STOP flag ON !!");
            return 0;
        }
        // Lack of memory ends this attempt, not the pass.
        result = at_c_boundary<int>(send_other_failure, [&] {
            return _send_queue(engine, entry.path(), try_count, entry.owner());
        });
    }
    trace_msg("send_queue out %d");
    return result;
}

int _send_queue(_s_iemlw* engine, std::string const& file, unsigned int try_count,
                std::optional<uid_t> owner)
{
    trace_msg("_send_queue in %s try_count=%d");
    noting_attempt const attempt(try_count == 0 ? 1 : 2, file.c_str());
    // Allocated before anything is sent: lack of memory must not keep a sent file queued.
    std::vector<std::string> const done = {file};
    std::string                    detail;
    int const code = run_driver(engine->workdir, open_message_file(file.c_str(), owner), detail);
    trace_msg(code != send_ok ? "error:isendw::send" : "ok: SEND!! %s");
    call_callback_raw(engine, detail, code);
    if (in_forked_child(engine)) {
        return code;  // the file and the log are the parent's
    }
    log_attempt(engine->workdir, file, code, detail);

    // A first failure leaves the file queued for its second attempt.
    bool const given_up = code != send_ok && try_count != 0;
    if (given_up) {
        trace_msg("FAILED!!(SECOND)");
    }
    if (given_up || code == send_ok) {
        engine->queue.load()->erase(done);
    }
    trace_msg("_send_queue out %d");
    return code;
}

int send_sync(char const* dir, char const* file, std::string& detail)
{
    return send_sync(dir, file, open_message_file(file), detail);
}

int send_sync(char const* dir, char const* file, message_file const& message, std::string& detail)
{
    int const code = run_driver(dir, message, detail);
    trace_msg(code != send_ok ? "error:isendw::send_sync" : "ok: SEND(sync)!! %s");
    log_attempt(dir, file, code, detail);
    iqmgr_erase(file);
    return code;
}

void write_log(char const* dir, std::string const& file, int code, std::string const& detail)
{
    if (!log_yes(dir)) {
        return;
    }
    void*                loaded = nullptr;
    int const            load   = msg_load(&loaded, open_message_file(file.c_str()));
    message_holder const msg(loaded);
    if (load != 0) {
        return;
    }

    std::string line = get_callback_code_str(code);
    line += "," + msg_get_from(msg.get()) + "," + msg_get_subject(msg.get());
    if (!detail.empty()) {
        line += "," + detail;
    }
    liblog(dir, "%s", line.c_str());
}

}  // namespace zelieml
