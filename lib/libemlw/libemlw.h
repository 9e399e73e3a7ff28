// libemlw.h - the engine, its factory, and posting
//
// An engine sends the messages of one work directory. It is told of new message files by
// notifications that carry its stock symbol; the poster may be any process. A synchronous post
// needs no engine.

#ifndef ZELIEML_LIBEMLW_LIBEMLW_H
#define ZELIEML_LIBEMLW_LIBEMLW_H

#include "libemlw/file.h"

namespace zelieml
{

struct _s_iemlw;

class ieml
{
public:
    // start - start the worker for a work directory and a stock symbol
    //
    // workdir       under 256 bytes, without a separator at its end
    // stock_symbol  1 to 254 bytes
    //
    // Returns 0 when the engine runs; see start_thread. Returns -1 when a name does not fit or the
    // worker could not be started. The thread must not be cancelled meanwhile, nor in stop.
    virtual int start(char const* workdir, char const* stock_symbol) = 0;

    // stop - end the worker; see stop_thread. Returns 0, or -1 when there is none to end or it
    // could not be waited for.
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
    // create - make an engine that does not run yet
    //
    // out  receives it, the caller's to give back with destroy; null on failure
    //
    // Returns 0, or -1 when there is no memory.
    virtual int create(ieml** out) = 0;

    // destroy - free an engine; stop it before. Returns 0, or -1 for null.
    virtual int destroy(ieml* eml) = 0;

    // post - save a message into a work directory and announce it
    //
    // workdir       work directory of the engine
    // stock_symbol  of the engine, which may run in another process, or not at all
    // msg           message record; stays the caller's
    //
    // Returns 0 when the message was saved, whether an engine has heard of it or not. Returns -1
    // when it was not saved; a part of it may then be left in the work directory.
    virtual int post(char const* workdir, char const* stock_symbol, void* msg) = 0;

    // post_sync - send a message now, on the caller's thread
    //
    // workdir  work directory
    // msg      message record; stays the caller's
    // result   receives a result record, the caller's to free with cb_destroy; null when there
    //          was no memory for one
    //
    // Returns 0 when the message was sent, -1 otherwise. The message file is gone afterwards; a
    // part of it is left behind when saving failed after some of it had been written.
    virtual int post_sync(char const* workdir, void* msg, void** result) = 0;

    // post - announce a message file that exists
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

// The steps of posting.

// create_fullpath - find a name for a new message file and claim it
//
// workdir  work directory
// out      receives the path: the directory, local time to the second, microseconds, process id
//
// The file is created, empty, so that nobody else gets the same name; one that exists leads to a
// second name, with a backslash for a separator and the year plus one. Only "exists" counts as
// taken: when the file cannot be created for another reason, the name is given out all the same,
// for the save to report it.
//
// Returns 0. Returns -1 when both names are taken, or when one does not fit. Any thread or
// process.
int create_fullpath(char const* workdir, char (&out)[fullpath_size]);

// notify - announce a message file to the engine of a stock symbol
//
// Returns 0, whether an engine heard it or not; -1 when the symbol is empty, there is no memory, or
// the system refuses.
int notify(char const* fullpath, char const* stock_symbol);

}  // namespace zelieml

#endif
