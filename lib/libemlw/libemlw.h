// libemlw.h - the engine, its factory, and posting
//
// An engine sends the messages of one work directory. Notifications that carry its stock symbol
// tell it of new message files; any process may post. A synchronous post needs no engine.

#ifndef ZELIEML_LIBEMLW_LIBEMLW_H
#define ZELIEML_LIBEMLW_LIBEMLW_H

#include "libemlw/file.h"
#include "libmsg/message_file.h"

namespace zelieml
{

struct _s_iemlw;

class ieml
{
public:
    // start - start the worker for a work directory and a stock symbol
    //
    // workdir       at most 255 bytes, without a trailing separator
    // stock_symbol  1 to 254 bytes
    //
    // Returns 0 when the engine runs; see start_thread. Returns -1 when a name is too long or the
    // worker could not be started. The calling thread must not be cancelled during start or stop.
    virtual int start(char const* workdir, char const* stock_symbol) = 0;

    // stop - end the worker; see stop_thread. Returns 0, or -1 when there is no worker or it could
    // not be joined.
    virtual int stop() = 0;

    // post - post a message to this engine, as ifactory_eml::post does
    virtual int post(void* msg) = 0;

    // set_callback, reset_callback - see set_callback_raw and reset_callback_raw
    virtual int set_callback(int (*proc)(void*, void*), void* user) = 0;
    virtual int reset_callback(int (*proc)(void*, void*))           = 0;

    virtual int       create_context()  = 0;
    virtual int       destroy_context() = 0;
    virtual _s_iemlw* get_context()     = 0;

protected:
    ~ieml() = default;
};

class iemlw final : public ieml
{
public:
    int       start(char const* workdir, char const* stock_symbol) override;
    int       stop() override;
    int       post(void* msg) override;
    int       set_callback(int (*proc)(void*, void*), void* user) override;
    int       reset_callback(int (*proc)(void*, void*)) override;
    int       create_context() override;
    int       destroy_context() override;
    _s_iemlw* get_context() override;

private:
    _s_iemlw* context_ = nullptr;
};

class ifactory_eml
{
public:
    // create - make an engine; start starts it
    //
    // out  receives the engine, which the caller frees with destroy; null on failure
    //
    // Returns 0, or -1 when there is no memory.
    virtual int create(ieml** out) = 0;

    // destroy - free an engine, which must have been stopped. Returns 0, or -1 for null.
    virtual int destroy(ieml* eml) = 0;

    // post - save a message into a work directory and announce it
    //
    // workdir       work directory of the engine
    // stock_symbol  of the engine, which may run in another process, or not at all
    // msg           message record; the caller keeps it
    //
    // Returns 0 when the message was saved, whether or not an engine was told. Returns -1 when it
    // was not saved; an incomplete file may then be left in the work directory.
    virtual int post(char const* workdir, char const* stock_symbol, void* msg) = 0;

    // post_sync - send a message now, on the caller's thread
    //
    // workdir  work directory
    // msg      message record; the caller keeps it
    // result   receives a result record, which the caller frees with cb_destroy; null when there
    //          was no memory for one
    //
    // Returns 0 when the message was sent, -1 otherwise. The message file is deleted in both cases;
    // an incomplete one is left behind when saving failed half way.
    virtual int post_sync(char const* workdir, void* msg, void** result) = 0;

    // post - announce an existing message file
    //
    // Returns what notify returns, and -1 for null.
    virtual int post(char const* fullpath, char const* stock_symbol) = 0;

protected:
    ~ifactory_eml() = default;
};

class ifactory_emlw final : public ifactory_eml
{
public:
    int create(ieml** out) override;
    int destroy(ieml* eml) override;
    int post(char const* workdir, char const* stock_symbol, void* msg) override;
    int post_sync(char const* workdir, void* msg, void** result) override;
    int post(char const* fullpath, char const* stock_symbol) override;
};

// queue_message_file - queue a message file, which anybody may own, with an engine of this process
//
// Returns what queue_file of thread.h returns; -1 for null, and in a forked child, where a thread of
// the parent may have held the queue's lock.
int queue_message_file(ieml* eml, char const* fullpath);

// The steps of posting.

// create_fullpath - choose the name of a new message file and create the file
//
// workdir  work directory
// out      receives the path, made of the directory, the local time to the second, the microseconds
//          and the process id
//
// The file is created empty, so that no other thread or process gets the same name. When it exists
// already, a second name is tried, with a backslash as the separator and the year plus one. Any
// other error is left for the save to report: the name is returned all the same.
//
// Returns 0, or -1 when both names exist or one does not fit. Any thread or process.
int create_fullpath(char const* workdir, char (&out)[fullpath_size]);

// create_fullpath - the same, with the file
//
// file  receives it, open; no file when creating it failed for another reason than its name
int create_fullpath(char const* workdir, char (&out)[fullpath_size], message_file& file);

// notify - announce a message file to the engine of a stock symbol
//
// Returns 0, whether or not an engine was told; -1 when the symbol is empty, there is no memory, or
// the system refuses.
int notify(char const* fullpath, char const* stock_symbol);

}  // namespace zelieml

#endif
