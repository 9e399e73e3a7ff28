// message_lines.h - the lines of a message file, and what each gives to the message
//
// The file is read once, in pieces. The rules of msg_load are applied here: which line is a header,
// what joins the lines of the body, and that a NUL ends a value.

#ifndef ZELIEML_LIBMSG_MESSAGE_LINES_H
#define ZELIEML_LIBMSG_MESSAGE_LINES_H

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "libmsg/libmsg.h"

namespace zelieml
{

// What a line gives to the message, or a part of it. The strings are valid until the next part is
// asked for.
struct message_part {
    header_field const* header = nullptr;  // that the text belongs to; null: the body
    bool                begins = false;    // the line: the text replaces what the header had
    std::string_view    joint  = {};       // of the body, before the text
    std::string_view    text   = {};
};

// How many bytes were read, and sums of them, which differ when a byte has changed.
struct reading {
    std::int64_t  count   = 0;
    std::uint64_t sums[4] = {};
};

bool operator==(reading const& a, reading const& b);

class message_lines
{
public:
    // file          the caller keeps it open
    // buffer, size  for pieces of the file, longer than the keys; the caller keeps it. A line that
    //               fits comes in one part.
    message_lines(message_file const& file, char* buffer, std::size_t size);

    // next - the next part
    //
    // Returns false when there is none, or when the file cannot be read: see failed.
    bool next(message_part& part);

    // next_header - the next part of a header
    //
    // Quicker than to pass over parts of the body, which next does not give correctly afterwards.
    bool next_header(message_part& part);

    // take_body - the next parts of the body, joints included, as long as they are whole lines
    //
    // Quicker than next, but gives only what is at hand: it may be nothing before the end.
    //
    // Returns the number of bytes written to out.
    std::size_t take_body(char* out, std::size_t room);

    // Whether the file could not be read; then errno says why.
    bool failed() const { return failed_; }

    // What was read so far.
    reading const& so_far() const { return read_; }

    // How many bytes the body of all lines so far has at most.
    std::int64_t most_of_body() const;

private:
    void pass_body();

    header_field const* header_of(std::string_view line) const;
    bool                fill();
    void                sort(message_part& part);

    message_file const&    file_;
    char* const            buffer_;
    std::size_t const      size_;
    std::string_view const joint_;
    reading                read_;
    std::int64_t           lines_ = 0;
    std::string_view       left_;                    // of the buffer
    std::uint64_t          key_starts_   = 0;        // a bit for the beginning of each key
    header_field const*    header_       = nullptr;  // of the line
    bool                   begins_       = true;     // what is left begins a line
    bool                   complete_     = false;    // what is left is the end of the file
    bool                   at_end_       = false;
    bool                   failed_       = false;
    bool                   has_nul_      = false;  // the buffer
    bool                   header_ended_ = false;  // by a NUL
    bool                   body_ended_   = false;  // likewise
    bool                   body_begun_   = false;
};

}  // namespace zelieml

#endif
