// mail_header.cpp - the header of a received mail (RFC 5322)

#include "libreceive/mail_header.h"

#include <algorithm>
#include <cstring>

#include "support/ascii.h"

namespace zelieml
{

namespace
{

constexpr char const* names[mail_field_count] = {"From", "Subject", "Message-Id", "Date"};

// What remove_nr leaves of an empty line. An empty string is what it leaves of a line that is too
// long.
bool ends_header(std::string const& line)
{
    return line == "\r" || line == "\n";
}

bool is_continuation(std::string const& line)
{
    return !line.empty() && (line[0] == ' ' || line[0] == '\t');
}

// Whether the line is a field of this name.
bool has_name(std::string const& line, char const* name, std::size_t colon)
{
    std::size_t const length = std::strlen(name);
    return colon != std::string::npos && colon >= length &&
           equal_ignoring_case({line.data(), length}, name) &&
           line.find_first_not_of(" \t", length) == colon;
}

}  // namespace

std::string read_mail_header(std::vector<std::string> const& lines)
{
    std::string  found[mail_field_count];
    std::string* open = nullptr;  // the field that a continuation line belongs to
    for (std::string const& line : lines) {
        if (ends_header(line)) {
            break;
        }
        std::size_t begin = 0;
        if (!is_continuation(line)) {
            begin = line.find(':');
            open  = nullptr;
            for (std::size_t i = 0; i < mail_field_count; ++i) {
                if (has_name(line, names[i], begin) && found[i].empty()) {
                    open = &found[i];
                }
            }
        }
        if (open != nullptr && open->size() + line.size() - begin <= max_field_size) {
            open->append(line.c_str() + begin, line.size() - begin);  // the colon: there is a field
        } else if (open != nullptr) {
            *open = ":";
            open  = nullptr;
        }
    }
    std::string header;
    for (std::string& field : found) {
        std::replace(field.begin(), field.end(), '\n', ' ');
        header += field;
        header += '\n';
    }
    return header;
}

std::string get_mail_field(std::string const& header, mail_field field)
{
    std::size_t begin = 0;
    for (int i = 0; i < static_cast<int>(field); ++i) {
        begin = header.find('\n', begin) + 1;
    }
    std::size_t end      = header.find('\n', begin);
    auto const  is_blank = [&](std::size_t at) {
        return std::strchr(" \t\r", header[at]) != nullptr;
    };
    begin += end > begin ? 1 : 0;  // the colon
    while (end > begin && is_blank(end - 1)) {
        --end;
    }
    while (begin < end && is_blank(begin)) {
        ++begin;
    }
    return {header.c_str() + begin, end - begin};
}

}  // namespace zelieml
