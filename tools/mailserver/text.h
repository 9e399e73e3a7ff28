// text.h - small text helpers of the loopback servers

#ifndef ZELIEML_TOOLS_MAILSERVER_TEXT_H
#define ZELIEML_TOOLS_MAILSERVER_TEXT_H

#include <string>
#include <string_view>

namespace zelieml::mailserver
{

// Upper case for A to Z, whatever the locale.
std::string upper(std::string_view text);

bool starts_with(std::string_view text, std::string_view beginning);
bool ends_with(std::string_view text, std::string_view end);

// The text for a reader: control bytes, and bytes that are not part of UTF-8 text, as \r \n \t \0
// or \xHH, a backslash doubled, all else as it is. Reversible.
std::string visible(std::string_view text);

// Cuts off and gives the first word; the blank behind it goes, the rest stays in text.
std::string_view take_word(std::string_view& text);

// Cuts off and gives the first line with its LF; all there is when there is no LF.
std::string_view take_line(std::string_view& text);

// Without blanks at both ends.
std::string_view trimmed(std::string_view text);

// A line without its LF or CR LF.
std::string_view without_line_end(std::string_view line);

}  // namespace zelieml::mailserver

#endif
