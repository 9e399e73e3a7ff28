// mail_header.cpp - the header of a received mail as text
//
// The input is the lines of a mail.

#include <vector>

#include "fuzz/support/fuzz.h"
#include "fuzz/support/scarce_memory.h"
#include "libreceive/encoded_words.h"
#include "libreceive/mail_header.h"
#include "support/utf8.h"

using namespace zelieml;
using fuzz::require;

namespace
{

// As the lines of a mail come from pop_retr_alllines.
std::vector<std::string> lines_of(std::string const& text)
{
    std::vector<std::string> lines;
    for (std::size_t begin = 0; begin < text.size();) {
        std::size_t const end = text.find('\n', begin);
        lines.push_back(text.substr(begin, end - begin));
        begin = end == std::string::npos ? text.size() : end + 1;
    }
    return lines;
}

void check_text(std::string const& text, std::string const& field)
{
    require(text.size() <= 3 * field.size(), "a text has at most three bytes for one of the field");
    for (std::size_t i = 0; i < text.size();) {
        std::size_t const size = printable_size(text.c_str() + i);
        require(size > 0, "a text is UTF-8 without control characters");
        i += size;
    }
}

void check_field(std::string const& header, mail_field field)
{
    std::string const content = get_mail_field(header, field);
    require(content.size() < max_field_size, "a field has its limit");
    check_text(plain_text(content), content);
    std::string const text = decoded_text(content);
    check_text(text, content);
    require(content.find_first_of("=\x1B") != std::string::npos || text == plain_text(content),
            "only encoded words and escape sequences are decoded");
}

}  // namespace

int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    fuzz::no_descriptor_left const guard;
    fuzz::input                    input(data, size);
    std::vector<std::string> const lines = lines_of(input.rest());
    fuzz::with_memory(input.memory(), [&] {
        std::string const header = read_mail_header(lines);
        for (mail_field const field :
             {mail_field::from, mail_field::subject, mail_field::messageid, mail_field::date}) {
            check_field(header, field);
        }
    });
    return 0;
}
