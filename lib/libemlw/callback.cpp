// callback.cpp - result callbacks, and the codes and records of result numbers

#include "libemlw/callback.h"

#include <algorithm>

#include "libcb/libcb.h"
#include "libemlw/engine_record.h"
#include "liblog/trace.h"
#include "libsendw/libsendw.h"
#include "libsendw/pop.h"
#include "support/attempt_note.h"
#include "support/c_boundary.h"
#include "support/format.h"

namespace zelieml
{

using callback_list = snapshot<c_cb_param>::list;

namespace
{

void add_note(_s_cb& record, int result)
{
    record.number                  = result;
    attempt_note const* const note = current_note();
    if (note == nullptr) {
        return;
    }
    record.attempt = note->number;
    record.seconds = note->seconds();
    copy_cut(note->file, record.file, sizeof record.file);
    if (result != send_ok) {
        record.cause = note->cause;
        record.step  = note->step;
        contained([&] { record.reason = note->reason; });
    }
}

}  // namespace

bool operator==(c_cb_param const& a, c_cb_param const& b)
{
    return a.proc == b.proc;
}

int set_callback_raw(_s_iemlw* engine, int (*proc)(void*, void*), void* user)
{
    c_cb_param const added   = {proc, user};
    bool const       changed = engine->callbacks.update([&](callback_list& list) {
        if (std::find(list.begin(), list.end(), added) != list.end()) {
            return false;
        }
        list.push_back(added);
        return true;
    });
    trace_msg(changed ? "added proc" : "warning:proc already exists in callback param");
    return 0;
}

int reset_callback_raw(_s_iemlw* engine, int (*proc)(void*, void*))
{
    bool const changed = engine->callbacks.update([&](callback_list& list) {
        auto const found = std::find(list.begin(), list.end(), c_cb_param{proc, nullptr});
        if (found == list.end()) {
            return false;
        }
        list.erase(found);
        return true;
    });
    trace_msg(changed ? "the proc is erased." : "warning:the proc is not found");
    return 0;
}

int call_callback_raw(_s_iemlw* engine, std::string const& message, int result)
{
    void* const cb = create_callback_info(result, message);
    if (cb == nullptr) {
        return -1;
    }
    auto const callbacks = engine->callbacks.get();
    for (c_cb_param const& callback : *callbacks) {
        contained([&] { callback.proc(cb, callback.user); });
        if (in_forked_child(engine)) {
            break;
        }
    }
    cb_destroy(cb);
    return 0;
}

eml_send_e get_callback_code(int result)
{
    switch (result) {
    case send_ok:
        return eml_send_ok;
    case send_no_server:
    case send_not_connected:
    case send_not_ended:
    case send_helo_refused:
    case send_quit_refused:
    case pop_not_resolved:
    case pop_start_failed:
    case pop_end_failed:
        return eml_send_error_connection;
    case send_not_authenticated:
    case pop_user_refused:
    case pop_pass_refused:
    case pop_apop_refused:
        return eml_send_error_auth;
    default:
        return eml_send_error_other;
    }
}

char const* get_callback_code_str(int result)
{
    switch (get_callback_code(result)) {
    case eml_send_ok:
        return "send(ok)";
    case eml_send_error_connection:
        return "error(connectioin)";  // deliberate, see docs/ODDITIES.md
    case eml_send_error_auth:
        return "error(auth)";
    default:
        return "error(other)";
    }
}

void* create_callback_info(int result, std::string const& message)
{
    void* cb = nullptr;
    if (cb_create(&cb, get_callback_code(result), message.c_str()) != 0) {
        trace_msg("error:cb_create");
        return nullptr;
    }
    add_note(*static_cast<_s_cb*>(cb), result);
    return cb;
}

}  // namespace zelieml
