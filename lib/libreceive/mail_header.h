// mail_header.h - the header of a received mail (RFC 5322)

#ifndef ZELIEML_LIBRECEIVE_MAIL_HEADER_H
#define ZELIEML_LIBRECEIVE_MAIL_HEADER_H

#include <cstddef>
#include <string>
#include <vector>

namespace zelieml
{

// The fields that are kept of a header.
enum class mail_field {
    from,
    subject,
    messageid,
    date
};
constexpr std::size_t mail_field_count = 4;

// Bytes of a field. One that has more counts as missing.
constexpr std::size_t max_field_size = std::size_t{16} * 1024;

// read_mail_header - find the fields of a mail
//
// lines  the lines of the mail, as pop_retr_alllines gives them, without the status line
//
// The first field of a name counts, with upper and lower case alike. Lines from the first empty one
// on are the body's. A line of more than 4095 bytes is passed over, and what continues it.
//
// Returns the kept fields, a line each, for get_mail_field. One string, because a mailbox may have
// many mails.
std::string read_mail_header(std::vector<std::string> const& lines);

// get_mail_field - a field as the server sent it
//
// header  what read_mail_header returned
//
// Returns the field without its name and the blanks around it, continuation lines joined; an empty
// string when the mail has none.
std::string get_mail_field(std::string const& header, mail_field field);

}  // namespace zelieml

#endif
