// libemlw.cpp - the engine, its factory, and posting

#include "libemlw/libemlw.h"

#include <cerrno>
#include <ctime>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

#include "libemlw/callback.h"
#include "libemlw/engine_record.h"
#include "libemlw/send.h"
#include "libemlw/thread.h"
#include "liblog/trace.h"
#include "libmsg/libmsg.h"
#include "libnotifyw/libnotifyw.h"
#include "libsendw/libsendw.h"
#include "libtimew/libtimew.h"
#include "platform/clock.h"
#include "platform/error_text.h"
#include "support/attempt_note.h"
#include "support/c_boundary.h"
#include "support/format.h"
#include "support/interface.h"
#include "support/step_names.h"

namespace zelieml
{

namespace
{

// Creates a file. Returns false only when it exists already: other errors are left for the save,
// which is then given no file.
bool claim(char const* path, message_file& file)
{
    file = create_message_file(path);
    return file || errno != EEXIST;
}

// Deletes a claimed file if the save wrote nothing to it.
void drop_empty_claim(char const* path)
{
    struct stat status = {};
    if (::lstat(path, &status) == 0 && S_ISREG(status.st_mode) && status.st_size == 0) {
        ::unlink(path);
    }
}

// Why a message could not be saved.
void note_not_saved(char const* workdir, void const* msg, int error)
{
    if (msg == nullptr) {
        note_failure(eml_cause_message, step_name::message, "no message is given");
    } else {
        note_failure(error == ENOMEM ? eml_cause_memory : eml_cause_file, step_name::message,
                     "the message cannot be saved in %s: %s", workdir,
                     platform::error_text(error).c_str());
    }
}

// How a save ends whose path does not fit. Returns -1.
int too_long_for_a_message()
{
    note_failure(eml_cause_file, step_name::message,
                 "the message cannot be saved: the path of the work directory is too long");
    return -1;
}

// How a save ends that has failed. Returns -1.
int not_saved(char const* path)
{
    trace_msg("error:msg_save(%s)");
    drop_empty_claim(path);
    return -1;
}

// Saves a message under a fresh name, through the descriptor that claimed it: whoever can write to
// the directory can have the name mean another file by now.
//
// file  receives the file, open
//
// Returns 0, or -1 when it was not saved.
int save_message(char const* workdir, void* msg, char (&path)[fullpath_size], message_file& file)
{
    if (workdir == nullptr) {
        note_failure(eml_cause_file, step_name::message, "no work directory is given");
        return -1;
    }
    if (create_fullpath(workdir, path, file) != 0) {
        return -1;
    }
    if (msg_write(msg, file) != 0) {
        note_not_saved(workdir, msg, file ? errno : file.error());
        return not_saved(path);
    }
    return 0;
}

struct sender_destroyer {
    void operator()(inotify_sender* sender) const { ifactory_notifyw_sender().destroy(sender); }
};
using sender_holder = std::unique_ptr<inotify_sender, sender_destroyer>;

// Copies a name into the engine record, whole or not at all.
template <std::size_t size>
bool copy_name(char const* name, char (&out)[size])
{
    return name != nullptr && copy_to_caller(name, out, static_cast<int>(size)) == 0;
}

}  // namespace

int create_fullpath(char const* workdir, char (&out)[fullpath_size])
{
    message_file file;
    return create_fullpath(workdir, out, file);
}

int create_fullpath(char const* workdir, char (&out)[fullpath_size], message_file& file)
{
    std::tm const now          = platform::local_time(platform::wall_seconds());
    int const     microseconds = platform::wall_microseconds();
    int const     process      = static_cast<int>(::getpid());

    auto form = [&](char separator, int year) {
        return format_text(out, "%s%c%04d%02d%02d%02d%02d%02d-%08d-%04d.sme", workdir, separator,
                           year, now.tm_mon + 1, now.tm_mday, now.tm_hour, now.tm_min, now.tm_sec,
                           microseconds, process);
    };

    int const year = modify_year(now.tm_year);
    if (form('/', year) == -1) {
        return too_long_for_a_message();
    }
    if (claim(out, file)) {
        return 0;
    }
    trace_msg("warning:existing file:%s");

    // The backslash and the next year are deliberate, see docs/ODDITIES.md.
    if (form('\\', year + 1) == -1) {
        return too_long_for_a_message();  // the year has a digit more
    }
    if (claim(out, file)) {
        return 0;
    }
    trace_msg("error:existing file:%s");
    note_failure(eml_cause_file, step_name::message,
                 "the message cannot be saved: there is already a file %s", out);
    return -1;
}

int notify(char const* fullpath, char const* stock_symbol)
{
    ifactory_notifyw_sender factory;
    inotify_sender*         sender = nullptr;
    if (factory.create(&sender) != 0) {
        trace_msg("error:inotify_send_create");
        return -1;
    }
    sender_holder const held(sender);
    // The message is saved by now, so lack of memory must not make the post fail.
    int const status =
        at_c_boundary(-1, [&] { return sender->send(std::string(fullpath), stock_symbol); });
    if (status != 0) {
        trace_msg("error:inotify_send::send");
    }
    return status;
}

int iemlw::start(char const* workdir, char const* stock_symbol)
{
    if (!copy_name(workdir, context_->workdir)) {
        return -1;
    }
    trace_msg("workdir = %s");
    if (!copy_name(stock_symbol, context_->stock_symbol)) {
        return -1;
    }
    trace_msg("stock_symbol = %s");

    isendw_sys sending;
    sending.init();
    if (start_thread(context_) != 0) {
        trace_msg("error:start_thread");
        return -1;
    }
    return 0;
}

int iemlw::stop()
{
    if (stop_thread(context_) != 0) {
        trace_msg("error:stop_thread");
        return -1;
    }
    isendw_sys sending;
    sending.end();
    return 0;
}

int iemlw::post(void* msg)
{
    return ifactory_emlw().post(context_->workdir, context_->stock_symbol, msg);
}

int iemlw::set_callback(int (*proc)(void*, void*), void* user)
{
    return set_callback_raw(context_, proc, user);
}

int iemlw::reset_callback(int (*proc)(void*, void*))
{
    return reset_callback_raw(context_, proc);
}

int iemlw::create_context()
{
    return at_c_boundary(-1, [&] {
        context_ = new _s_iemlw();
        return 0;
    });
}

int iemlw::destroy_context()
{
    if (context_ != nullptr) {
        release_engine(context_);  // a worker stopped from its own callback still has a share
        context_ = nullptr;
    }
    return 0;
}

_s_iemlw* iemlw::get_context()
{
    return context_;
}

int ifactory_emlw::create(ieml** out)
{
    return create_with_context<iemlw>(out);
}

int ifactory_emlw::destroy(ieml* eml)
{
    if (eml == nullptr) {
        trace_msg("error:eml == 0");
        return -1;
    }
    eml->destroy_context();
    return templ_destroy_interface<iemlw, ieml>(eml);
}

int ifactory_emlw::post(char const* workdir, char const* stock_symbol, void* msg)
{
    trace_msg("post in workdir=%s");
    char         path[fullpath_size] = {};
    message_file file;
    if (stock_symbol == nullptr || save_message(workdir, msg, path, file) != 0) {
        return -1;
    }
    if (msg_close(file) != 0) {
        return not_saved(path);
    }
    if (notify(path, stock_symbol) != 0) {
        // Saved and not announced is a success, since salvage finds the file. The text of the save
        // error is deliberate, see docs/ODDITIES.md.
        trace_msg("error:msg_save(%s)");
    }
    trace_msg("post out");
    return 0;
}

int ifactory_emlw::post_sync(char const* workdir, void* msg, void** result)
{
    trace_msg("post_sync in workdir=%s");
    if (result == nullptr) {
        return -1;
    }
    *result = nullptr;

    noting_attempt attempt;
    char           path[fullpath_size] = {};
    message_file   file;
    if (save_message(workdir, msg, path, file) != 0) {
        *result = create_callback_info(send_other_failure, "");
        return -1;
    }

    attempt->number = 1;
    attempt->file   = path;
    isendw_sys sending;
    sending.init();
    std::string text;
    int const   code = send_sync(workdir, path, file, text);
    if (code != send_ok) {
        trace_msg("error:send_sync(%s)");
        *result = create_callback_info(code, text);
        sending.end();
        return -1;
    }
    sending.end();
    trace_msg("post_sync out");
    *result = create_callback_info(code, text);
    return 0;
}

int ifactory_emlw::post(char const* fullpath, char const* stock_symbol)
{
    if (fullpath == nullptr || stock_symbol == nullptr) {
        return -1;
    }
    trace_msg("post fullpath=%s");
    trace_msg("post stock_symbol=%s");
    return notify(fullpath, stock_symbol);
}

int queue_message_file(ieml* eml, char const* fullpath)
{
    if (eml == nullptr || in_forked_child(eml->get_context())) {
        return -1;
    }
    return queue_file(eml->get_context(), fullpath, {});
}

}  // namespace zelieml
