// preview.cpp - a mail as a send would say it, without a server

#include "libsendw/preview.h"

#include <string>
#include <vector>

#include "libmsg/libmsg.h"
#include "libsendw/libsendw.h"
#include "libsendw/send_settings.h"
#include "libsendw/smtpmsg.h"
#include "support/c_boundary.h"

namespace zelieml
{

int preview(char const* conf_fullpath, void* msg, preview_proc proc, void* user)
{
    void* made = nullptr;
    if (msg == nullptr || proc == nullptr || msg_create(&made) != 0) {
        return -1;
    }
    message_holder const sent(made);
    msg_read_back(*static_cast<_s_msg const*>(msg), *static_cast<_s_msg*>(made));

    std::string const        sender = msg_get_replyto(made);
    std::vector<std::string> recipients;
    envelope_recipients(made, recipients);
    std::vector<char const*> addresses;
    addresses.reserve(recipients.size() + 1);
    for (std::string const& recipient : recipients) {
        addresses.push_back(recipient.c_str());
    }
    addresses.push_back(nullptr);

    std::vector<std::string> lines;
    if (smtpmsg_create_multiline(made, lines, read_send_settings(conf_fullpath)) != 0) {
        return -1;
    }
    std::string& text = lines.front();
    for (std::size_t i = 1; i < lines.size(); ++i) {
        text += lines[i];
    }

    eml_preview const shown = {sizeof shown,     sender.c_str(),
                               addresses.data(), static_cast<int>(recipients.size()),
                               text.c_str(),     text.size()};
    contained([&] { proc(&shown, user); });
    return 0;
}

}  // namespace zelieml
