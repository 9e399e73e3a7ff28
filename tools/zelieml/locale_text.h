// locale_text.h - text in the charset of the locale, in UTF-8, and in the encoding of a mail
//
// Users type and pipe text in the charset of their locale; the program works in UTF-8. In the C
// locale, the one of cron jobs and services, the charset counts as UTF-8: its own, ASCII, is a part
// of that, so a byte beyond ASCII means either UTF-8 or nothing, and text in another charset is as
// good as never valid UTF-8.

#ifndef ZELIEML_TOOLS_ZELIEML_LOCALE_TEXT_H
#define ZELIEML_TOOLS_ZELIEML_LOCALE_TEXT_H

#include <cstddef>
#include <string>

namespace zelieml::program
{

// use_locale - takes the charset, and nothing else, from the environment. For main.
//
// Messages of the system stay English, and numbers keep their point.
void use_locale();

// to_utf8 - text in the charset of the locale, as UTF-8
//
// thing  what it is, for the failure: "--subject", the name of a file
//
// Throws a failure (EX_DATAERR) with line and byte for what is not valid in that charset, or a NUL.
std::string to_utf8(std::string const& text, std::string const& thing);

// to_charset - valid UTF-8 in another charset, in its initial state at the end
//
// Throws a failure (EX_DATAERR) with line and character for what that charset cannot express.
std::string to_charset(std::string const& utf8, std::string const& charset,
                       std::string const& thing);

// from_charset - text in another charset, as UTF-8; as it is where it is not valid in that charset,
// or this system does not know it. The name of the charset may come from anywhere.
std::string from_charset(std::string const& text, std::string const& charset);

// cut_text - the beginning of a text in UTF-8, of so many bytes at most, in whole characters
std::string cut_text(std::string const& utf8, std::size_t most);

// to_terminal - a line from elsewhere, in UTF-8 as a rule, in the charset of the locale
//
// Control characters but tabs, those that change the direction of text, and what is not valid or
// cannot be expressed there, become "?".
std::string to_terminal(std::string const& utf8);

}  // namespace zelieml::program

#endif
