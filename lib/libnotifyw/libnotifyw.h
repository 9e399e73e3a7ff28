// libnotifyw.h - telling an engine about a message file
//
// Any thread or process; the poster does not wait for the engine.

#ifndef ZELIEML_LIBNOTIFYW_LIBNOTIFYW_H
#define ZELIEML_LIBNOTIFYW_LIBNOTIFYW_H

#include <string>

namespace zelieml
{

// The notification. Its object is the engine's stock symbol; its only field is the full path.
constexpr char notify_name[]     = "zelieml_notifyname";
constexpr char notify_path_key[] = "new_mail_file_path";

struct _s_inotifyw_sender {
};

class inotify_sender
{
public:
    // send - announce a message file
    //
    // fullpath      full path of the file
    // stock_symbol  of the engine
    //
    // Returns 0, whether or not an engine was told; -1 when the symbol is empty or null, or when
    // the system refuses. Throws std::bad_alloc when there is no memory.
    virtual int send(std::string const& fullpath, char const* stock_symbol) = 0;

    virtual int                 create_context()  = 0;
    virtual int                 destroy_context() = 0;
    virtual _s_inotifyw_sender* get_context()     = 0;

protected:
    ~inotify_sender() = default;
};

class inotifyw_sender final : public inotify_sender
{
public:
    int                 send(std::string const& fullpath, char const* stock_symbol) override;
    int                 create_context() override;
    int                 destroy_context() override;
    _s_inotifyw_sender* get_context() override;

private:
    _s_inotifyw_sender* context_ = nullptr;
};

class ifactory_notify_sender
{
public:
    // create - make a sender
    //
    // out  receives the sender, which the caller frees with destroy; null on failure
    //
    // Returns 0, or -1 when there is no memory.
    virtual int create(inotify_sender** out) = 0;

    // destroy - free a sender; null is accepted. Returns 0.
    virtual int destroy(inotify_sender* sender) = 0;

protected:
    ~ifactory_notify_sender() = default;
};

class ifactory_notifyw_sender final : public ifactory_notify_sender
{
public:
    int create(inotify_sender** out) override;
    int destroy(inotify_sender* sender) override;
};

}  // namespace zelieml

#endif
