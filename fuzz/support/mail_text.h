// mail_text.h - what holds for the text of every mail, and for every command

#ifndef ZELIEML_FUZZ_SUPPORT_MAIL_TEXT_H
#define ZELIEML_FUZZ_SUPPORT_MAIL_TEXT_H

#include <string>

namespace zelieml::fuzz
{

// What ends the text of a mail in SMTP.
constexpr char end_of_mail[] = "\r\n.\r\n";

// ends_only_at_its_end - whether a server sees a mail end where the client ends it
//
// text  the text, without its end mark
bool ends_only_at_its_end(std::string const& text);

// require_command_line - what was sent is one command line: up to 1023 bytes, with one LF, at its
// end, after a CR
void require_command_line(std::string const& sent);

}  // namespace zelieml::fuzz

#endif
