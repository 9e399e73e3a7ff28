// zelieml.cpp - the exported functions: messages, posting, the engine, result records,
// server records and login tests, receiving
//
// Each calls the unit that does the work, as an exported_call. The contracts are in zelieml.h.

#include "zelieml.h"

#include <sys/types.h>
#include <unistd.h>

#include "libaccess/libaccess.h"
#include "libcb/libcb.h"
#include "libemlw/libemlw.h"
#include "liblog/trace.h"
#include "libmsg/libmsg.h"
#include "libreceive/libreceive.h"
#include "support/c_boundary.h"
#include "support/no_cancellation.h"
#include "zelieml/exported_call.h"

using namespace zelieml;

namespace
{

constexpr char default_stock_symbol[] = "zelieml_stocksymbol";

// The process that has an eml_stop_multi in progress, 0 for none. A plain flag that turns nested
// calls away: not an atomic object, nor a lock. The accesses are relaxed atomics because threads
// may call at the same time. A forked child inherits the flag, but not the call that resets it.
pid_t g_in_stop_multi = 0;

void stop_and_destroy(void* eml)
{
    no_cancellation const shielded;
    auto* const           engine = static_cast<ieml*>(eml);
    contained([&] { engine->stop(); });  // freed whether it stopped or not
    contained([&] { ifactory_emlw().destroy(engine); });
}

}  // namespace

int eml_msg_create(void** msg)
{
    return exported_call(-1, [&] { return msg_create(msg); });
}

int eml_msg_destroy(void* msg)
{
    return exported_call(-1, [&] { return msg_destroy(msg); });
}

int eml_msg_set_from(void* msg, char const* from)
{
    return exported_call(-1, [&] { return msg_set_from(msg, from); });
}

int eml_msg_set_to(void* msg, char const* to)
{
    return exported_call(-1, [&] { return msg_set_to(msg, to); });
}

int eml_msg_set_cc(void* msg, char const* cc)
{
    return exported_call(-1, [&] { return msg_set_cc(msg, cc); });
}

int eml_msg_set_subject(void* msg, char const* subject)
{
    return exported_call(-1, [&] { return msg_set_subject(msg, subject); });
}

int eml_msg_set_replyto(void* msg, char const* replyto)
{
    return exported_call(-1, [&] { return msg_set_replyto(msg, replyto); });
}

int eml_msg_set_messageid(void* msg, char const* id)
{
    return exported_call(-1, [&] { return msg_set_messageid(msg, id); });
}

int eml_msg_set_body(void* msg, char const* body)
{
    return exported_call(-1, [&] { return msg_set_body(msg, body); });
}

int eml_msg_set_encoding(void* msg, eml_encoding enc)
{
    return exported_call(-1, [&] { return msg_set_encoding(msg, enc); });
}

int eml_msg_get_from(void* msg, char* buf, int size)
{
    return exported_call(-1, [&] { return msg_get_from(msg, buf, size); });
}

int eml_msg_get_to(void* msg, char* buf, int size)
{
    return exported_call(-1, [&] { return msg_get_to(msg, buf, size); });
}

int eml_msg_get_cc(void* msg, char* buf, int size)
{
    return exported_call(-1, [&] { return msg_get_cc(msg, buf, size); });
}

int eml_msg_get_subject(void* msg, char* buf, int size)
{
    return exported_call(-1, [&] { return msg_get_subject(msg, buf, size); });
}

int eml_msg_get_replyto(void* msg, char* buf, int size)
{
    return exported_call(-1, [&] { return msg_get_replyto(msg, buf, size); });
}

int eml_msg_get_encoding(void* msg, char* buf, int size)
{
    return exported_call(-1, [&] { return msg_get_encoding(msg, buf, size); });
}

int eml_msg_get_body(void* msg, char* buf, int size)
{
    return exported_call(-1, [&] { return msg_get_body(msg, buf, size); });
}

int eml_msg_get_messageid(void* msg, char* buf, int size)
{
    return exported_call(-1, [&] { return msg_get_messageid(msg, buf, size); });
}

int eml_msg_save(void* msg, char const* path)
{
    return exported_call(-1, [&] { return msg_save(msg, path); });
}

int eml_msg_load(void** msg, char const* path)
{
    return exported_call(-1, [&] { return msg_load(msg, path); });
}

int eml_post(char const* workdir, void* msg)
{
    return eml_post_with_stocksymbol(workdir, default_stock_symbol, msg);
}

int eml_post_with_stocksymbol(char const* workdir, char const* stock_symbol, void* msg)
{
    return exported_call(-1, [&] { return ifactory_emlw().post(workdir, stock_symbol, msg); });
}

int eml_post_sys(void* eml, void* msg)
{
    trace_msg("eml_post in");
    if (eml == nullptr) {
        return -1;
    }
    if (exported_call(-1, [&] { return static_cast<ieml*>(eml)->post(msg); }) != 0) {
        trace_msg("errro:eml_post");  // deliberate, see docs/ODDITIES.md
        return -1;
    }
    trace_msg("eml_post out");
    return 0;
}

int eml_post_message_file(char const* fullpath)
{
    return eml_post_message_file_with_stocksymbol(fullpath, default_stock_symbol);
}

int eml_post_message_file_with_stocksymbol(char const* fullpath, char const* stock_symbol)
{
    return exported_call(-1, [&] { return ifactory_emlw().post(fullpath, stock_symbol); });
}

int eml_post_sync(char const* workdir, void* msg, void** result)
{
    return exported_call(-1, [&] { return ifactory_emlw().post_sync(workdir, msg, result); });
}

int eml_start(char const* workdir, void** eml)
{
    return eml_start_with_stocksymbol(workdir, default_stock_symbol, eml);
}

int eml_start_with_stocksymbol(char const* workdir, char const* stock_symbol, void** eml)
{
    no_cancellation const shielded;
    trace_msg("eml_start in");
    ifactory_emlw factory;
    ieml*         engine = nullptr;
    if (eml == nullptr || at_c_boundary(-1, [&] { return factory.create(&engine); }) != 0) {
        trace_msg("error:ieml_create");
        return -1;
    }
    engine->get_context();  // a step of every start; the answer is not used
    if (at_c_boundary(-1, [&] { return engine->start(workdir, stock_symbol); }) != 0) {
        trace_msg("error: ieml::start");
        contained([&] { factory.destroy(engine); });
        return -1;
    }
    *eml = engine;
    trace_msg("eml_start out %x");
    return 0;
}

int eml_stop(void* eml)
{
    trace_msg("eml_stop in");
    if (eml == nullptr) {
        trace_msg("error:eml_stop eml == 0");
        return -1;
    }
    stop_and_destroy(eml);
    trace_msg("eml_stop out");
    return 0;
}

int eml_stop_multi(void** eml)
{
    void* const engine = eml != nullptr ? *eml : nullptr;
    trace_msg("eml_stop_multi in %x");
    if (engine == nullptr) {
        trace_msg("eml_stop_multi out eml == 0 now !!");
    } else if (__atomic_load_n(&g_in_stop_multi, __ATOMIC_RELAXED) != ::getpid()) {
        // Tested and set in two steps, deliberately: it turns a nested call away and is no lock.
        __atomic_store_n(&g_in_stop_multi, ::getpid(), __ATOMIC_RELAXED);
        stop_and_destroy(engine);
        *eml = nullptr;
        __atomic_store_n(&g_in_stop_multi, 0, __ATOMIC_RELAXED);
        trace_msg("eml_stop_multi out");
    } else {
        // It is set: deliberate, see docs/ODDITIES.md.
        trace_msg("g_in_stop_multi == 0");
    }
    return 0;
}

int eml_set_callback(void* eml, int (*proc)(void*, void*), void* user)
{
    if (eml == nullptr || proc == nullptr) {
        return -1;
    }
    return exported_call(-1, [&] { return static_cast<ieml*>(eml)->set_callback(proc, user); });
}

int eml_reset_callback(void* eml, int (*proc)(void*, void*))
{
    if (eml == nullptr || proc == nullptr) {
        return -1;
    }
    return exported_call(-1, [&] { return static_cast<ieml*>(eml)->reset_callback(proc); });
}

int eml_cb_get_code(void* cb, eml_send_e* code)
{
    return exported_call(-1, [&] { return cb_get_code(cb, code); });
}

int eml_cb_get_message(void* cb, char* buf, int size)
{
    return exported_call(-1, [&] { return cb_get_message(cb, buf, size); });
}

int eml_cb_duplicate(void* cb, void** copy)
{
    return exported_call(-1, [&] { return cb_duplicate(cb, copy); });
}

int eml_cb_delete(void* cb)
{
    return exported_call(-1, [&] { return cb_destroy(cb); });
}

int server_info_create(void** server)
{
    return exported_call(-1, [&] { return server_create(server); });
}

int server_info_destroy(void* server)
{
    return exported_call(-1, [&] { return server_destroy(server); });
}

int server_info_set_pop(void* server, char const* host, char const* user, char const* password,
                        char const* auth_type, int port, int wait_ms)
{
    return exported_call(
        -1, [&] { return set_pop(server, host, user, password, auth_type, port, wait_ms); });
}

int server_info_set_smtp(void* server, char const* host, char const* user, char const* password,
                         char const* auth, int port)
{
    return exported_call(-1, [&] { return set_smtp(server, host, user, password, auth, port); });
}

eml_send_e test_pop_auth(void* server, char* message)
{
    return exported_call(eml_send_error_other,
                         [&] { return zelieml::test_pop_auth(server, message); });
}

eml_send_e test_smtp_auth(void* server, char const* pop_before_smtp, char* message)
{
    return exported_call(eml_send_error_other,
                         [&] { return zelieml::test_smtp_auth(server, pop_before_smtp, message); });
}

int eml_receive_msg_create(void** list)
{
    return exported_call(-1, [&] { return receive_msg_create(list); });
}

int eml_receive_msg_destroy(void* list)
{
    return exported_call(-1, [&] { return receive_msg_destroy(list); });
}

int eml_receive_msg_count(void* list)
{
    return exported_call(0, [&] { return receive_msg_count(list); });
}

int eml_receive_mails(void* server, void* list, char const* domains)
{
    return exported_call(-1, [&] { return receive_mails(server, list, domains); });
}

int eml_receive_msg_get_from(void* list, int index, char* buf, int size)
{
    return exported_call(-1, [&] { return receive_msg_get_from(list, index, buf, size); });
}

int eml_receive_msg_get_subject(void* list, int index, char* buf, int size)
{
    return exported_call(-1, [&] { return receive_msg_get_subject(list, index, buf, size); });
}
