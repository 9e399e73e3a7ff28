// libnotifyw.cpp - telling an engine about a message file

#include "libnotifyw/libnotifyw.h"

#include <new>

#include "platform/notification.h"
#include "support/interface.h"

namespace zelieml
{

int inotifyw_sender::send(std::string const& fullpath, char const* stock_symbol)
{
    if (stock_symbol == nullptr || *stock_symbol == '\0') {
        return -1;
    }
    return platform::post_notification(notify_name, stock_symbol, notify_path_key,
                                       fullpath.c_str());
}

int inotifyw_sender::create_context()
{
    context_ = new (std::nothrow) _s_inotifyw_sender();
    return context_ != nullptr ? 0 : -1;
}

int inotifyw_sender::destroy_context()
{
    delete context_;
    context_ = nullptr;
    return 0;
}

_s_inotifyw_sender* inotifyw_sender::get_context()
{
    return context_;
}

int ifactory_notifyw_sender::create(inotify_sender** out)
{
    return create_with_context<inotifyw_sender>(out);
}

int ifactory_notifyw_sender::destroy(inotify_sender* sender)
{
    if (sender != nullptr) {
        sender->destroy_context();
    }
    return templ_destroy_interface<inotifyw_sender, inotify_sender>(sender);
}

}  // namespace zelieml
