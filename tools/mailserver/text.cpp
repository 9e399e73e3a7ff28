#include "tools/mailserver/text.h"

#include <algorithm>
#include <cstdio>

namespace zelieml::mailserver
{

namespace
{

bool continues_utf8(char byte)
{
    return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U;
}

// Bytes of the UTF-8 character at the start of text, 0 when there is none or when it is a C1
// control.
std::size_t utf8_length(std::string_view text)
{
    auto const        lead   = static_cast<unsigned char>(text[0]);
    std::size_t const length = lead < 0xC2   ? 0
                               : lead < 0xE0 ? 2
                               : lead < 0xF0 ? 3
                               : lead < 0xF5 ? 4
                                             : 0;
    if (length == 0 || text.size() < length ||
        !std::all_of(text.begin() + 1, text.begin() + static_cast<std::ptrdiff_t>(length),
                     continues_utf8)) {
        return 0;
    }
    bool const c1_control = lead == 0xC2 && static_cast<unsigned char>(text[1]) < 0xA0;
    return c1_control ? 0 : length;
}

std::string escaped(char byte)
{
    switch (byte) {
    case '\r':
        return "\\r";
    case '\n':
        return "\\n";
    case '\t':
        return "\\t";
    case '\0':
        return "\\0";
    case '\\':
        return "\\\\";
    default:
        char hex[5];
        std::snprintf(hex, sizeof hex, "\\x%02x",
                      static_cast<unsigned>(static_cast<unsigned char>(byte)));
        return hex;
    }
}

}  // namespace

std::string upper(std::string_view text)
{
    std::string result(text);
    for (char& c : result) {
        if (c >= 'a' && c <= 'z') {
            c = static_cast<char>(c - 'a' + 'A');
        }
    }
    return result;
}

bool starts_with(std::string_view text, std::string_view beginning)
{
    return text.substr(0, beginning.size()) == beginning;
}

bool ends_with(std::string_view text, std::string_view end)
{
    return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

std::string visible(std::string_view text)
{
    std::string result;
    result.reserve(text.size());
    while (!text.empty()) {
        char const  first  = text[0];
        bool const  ascii  = first >= 0x20 && first < 0x7F;
        std::size_t length = ascii ? 1 : utf8_length(text);
        if (length == 0 || first == '\\') {
            result += escaped(first);
            length = 1;
        } else {
            result += text.substr(0, length);
        }
        text.remove_prefix(length);
    }
    return result;
}

std::string_view take_word(std::string_view& text)
{
    std::string_view const word = text.substr(0, text.find(' '));
    text.remove_prefix(std::min(word.size() + 1, text.size()));
    return word;
}

std::string_view take_line(std::string_view& text)
{
    std::size_t const      lf   = text.find('\n');
    std::string_view const line = text.substr(0, lf == text.npos ? lf : lf + 1);
    text.remove_prefix(line.size());
    return line;
}

std::string_view trimmed(std::string_view text)
{
    text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
    return text.substr(0, text.find_last_not_of(' ') + 1);
}

std::string_view without_line_end(std::string_view line)
{
    for (char const end : {'\n', '\r'}) {
        if (!line.empty() && line.back() == end) {
            line.remove_suffix(1);
        }
    }
    return line;
}

}  // namespace zelieml::mailserver
