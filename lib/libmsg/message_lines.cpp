// message_lines.cpp - the lines of a message file, and what each gives to the message

#include "libmsg/message_lines.h"

#include <algorithm>
#include <cstring>

#include "support/line_breaks.h"

namespace zelieml
{

namespace
{

constexpr std::uint64_t every_start = ~std::uint64_t{0};

// For two characters.
std::uint64_t bit_of(char const* start)
{
    return std::uint64_t{1} << ((3 * start[0] ^ start[1]) & 63);
}

// The second sum contains each word as often as there are words from it on: it depends on order.
void add_to(std::uint64_t (&sums)[2], char const* bytes, std::size_t size)
{
    std::uint64_t first  = sums[0];
    std::uint64_t second = sums[1];
    std::uint64_t word   = 0;
    for (; size >= sizeof word; bytes += sizeof word, size -= sizeof word) {
        std::memcpy(&word, bytes, sizeof word);
        first += word;
        second += first;
    }
    word = 0;
    std::memcpy(&word, bytes, size);
    sums[0] = first + word;
    sums[1] = second + sums[0];
}

}  // namespace

bool operator==(reading const& a, reading const& b)
{
    return a.count == b.count && a.sums[0] == b.sums[0] && a.sums[1] == b.sums[1];
}

message_lines::message_lines(message_file const& file, char* buffer, std::size_t size)
    : file_(file), buffer_(buffer), size_(size), joint_(ValCharCrLf)
{
    for (header_field const& field : header_fields) {
        char const* const key = *field.key;
        key_starts_ |= key[0] != '\0' && key[1] != '\0' ? bit_of(key) : every_start;
    }
}

bool message_lines::next(message_part& part)
{
    if (at_end_) {
        return false;
    }
    std::size_t lf = left_.find('\n');
    if (lf == left_.npos && !complete_) {
        if (!fill()) {
            at_end_ = failed_ = true;
            return false;
        }
        lf = left_.find('\n');
    }
    part.begins = begins_;
    part.text   = left_.substr(0, lf);
    begins_     = lf != left_.npos;
    // After a final LF one more, empty line is given: it restores the line break at the end of a
    // body.
    at_end_ = !begins_ && complete_;
    left_.remove_prefix(begins_ ? lf + 1 : left_.size());
    sort(part);
    return true;
}

bool message_lines::next_header(message_part& part)
{
    do {
        take_lines([](std::string_view) { return true; });
        if (!next(part)) {
            return false;
        }
    } while (part.header == nullptr);
    return true;
}

std::size_t message_lines::take_body(char* out, std::size_t room)
{
    if (!body_begun_ || body_ended_ || has_nul_) {
        return 0;
    }
    std::size_t count = 0;
    take_lines([&](std::string_view line) {
        if (room - count < joint_.size() + line.size()) {
            return false;
        }
        for (char const c : joint_) {
            out[count++] = c;
        }
        copy_short(out + count, room - count, left_, line.size());
        count += line.size();
        return true;
    });
    return count;
}

// Takes the next lines of the body that are whole in the buffer, as long as take returns true.
template <class Take>
void message_lines::take_lines(Take&& take)
{
    while (begins_) {
        std::size_t const      lf   = left_.find('\n');
        std::string_view const line = left_.substr(0, lf);
        if (lf == left_.npos || header_of(line) != nullptr || !take(line)) {
            return;
        }
        left_.remove_prefix(lf + 1);
        ++lines_;
    }
}

std::int64_t message_lines::most_of_body() const
{
    return read_.count + lines_ * static_cast<std::int64_t>(joint_.size());
}

header_field const* message_lines::header_of(std::string_view line) const
{
    // Most lines of a body begin with other characters than the keys.
    std::uint64_t const start = line.size() < 2 ? every_start : bit_of(line.data());
    return (key_starts_ & start) == start ? find_header_field(line) : nullptr;
}

// Fills the buffer, with what is left in front. Returns false when the file cannot be read.
bool message_lines::fill()
{
    std::size_t const kept = left_.size();
    std::size_t       have = kept;
    std::copy(left_.begin(), left_.end(), buffer_);
    while (have < size_ && !complete_) {
        std::int64_t const count = file_.read(buffer_ + have, size_ - have, read_.count);
        if (count < 0) {
            return false;
        }
        auto const taken = static_cast<std::size_t>(count);
        read_.count += count;
        // A short read need not be the last one, and the file may have grown.
        complete_ = taken == 0 || (taken < size_ - have && read_.count >= file_.size());
        have += taken;
    }
    add_to(read_.sums, buffer_ + kept, have - kept);
    left_    = {buffer_, have};
    has_nul_ = left_.find('\0') != left_.npos;
    return true;
}

// Whether the line of a part is a header, and what it gives to the message.
void message_lines::sort(message_part& part)
{
    std::string_view& text = part.text;
    part.joint             = {};
    if (part.begins) {
        ++lines_;
        header_ = header_of(text);
        if (header_ != nullptr) {
            text.remove_prefix(std::strlen(*header_->key));
            header_ended_ = false;
        } else if (body_begun_ && !body_ended_) {
            part.joint = joint_;
        }
    }
    part.header = header_;
    bool& ended = header_ != nullptr ? header_ended_ : body_ended_;
    if (ended) {
        text = {};
    } else if (has_nul_) {
        std::size_t const nul = text.find('\0');
        ended                 = nul != text.npos;
        text                  = text.substr(0, nul);
    }
    if (header_ == nullptr) {
        body_begun_ = body_begun_ || !text.empty();
    }
}

}  // namespace zelieml
