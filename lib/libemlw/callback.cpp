// callback.cpp - from result numbers to result records

#include "libemlw/callback.h"

#include "libcb/libcb.h"
#include "liblog/trace.h"
#include "libsendw/libsendw.h"
#include "libsendw/pop.h"

namespace zelieml
{

eml_send_e get_callback_code(int result)
{
    constexpr int pop_not_resolved = 2001;  // nobody returns it now; a connection failure as ever
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
        return "error(connectioin)";  // spelled so on purpose
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
    return cb;
}

}  // namespace zelieml
