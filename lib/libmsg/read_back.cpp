// read_back.cpp - a message as it comes back from its file, without the file

#include "libmsg/libmsg.h"

namespace zelieml
{

void msg_read_back(_s_msg const& msg, _s_msg& read)
{
    std::string file;
    for (header_field const& field : header_fields) {
        std::string const& text = msg.*field.text;
        if (!text.empty() || !field.left_out_when_empty) {
            file += *field.key;
            file += saved_text(text);
            file += '\n';
        }
    }
    file += saved_text(msg.body);

    for (std::size_t start = 0, end = 0; end != file.npos; start = end + 1) {
        end = file.find('\n', start);
        set_msg(file.substr(start, end - start), &read);
    }
}

std::string saved_text(std::string const& text)
{
    std::string saved;
    for (char const* c = text.c_str(); *c != '\0'; ++c) {
        if (*c != '\r') {
            saved += *c;
        }
    }
    return saved;
}

}  // namespace zelieml
