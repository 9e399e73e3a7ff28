#include "fuzz/support/mail_text.h"

#include "fuzz/support/fuzz.h"

namespace zelieml::fuzz
{

bool ends_only_at_its_end(std::string const& text)
{
    return (text + end_of_mail).find(end_of_mail) == text.size();
}

void require_command_line(std::string const& sent)
{
    require(sent.size() <= 1023, "a command has at most 1023 bytes");
    require(sent.size() >= 2 && sent.find('\n') == sent.size() - 1 && sent[sent.size() - 2] == '\r',
            "a command is one line, ended by CR LF");
}

}  // namespace zelieml::fuzz
