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

// Of two words side by side. The second sum of each contains a word as often as there are words from
// it on: it depends on order.
void add_to(std::uint64_t (&sums)[4], char const* bytes, std::size_t size)
{
    std::uint64_t words[2]  = {};
    std::uint64_t first[2]  = {sums[0], sums[1]};
    std::uint64_t second[2] = {sums[2], sums[3]};
    auto const    add       = [&] {
        for (int i = 0; i < 2; ++i) {
            first[i] += words[i];
            second[i] += first[i];
        }
    };
    for (; size >= sizeof words; bytes += sizeof words, size -= sizeof words) {
        std::memcpy(words, bytes, sizeof words);
        add();
    }
    words[0] = words[1] = 0;
    std::memcpy(words, bytes, size);
    add();
    std::uint64_t const all[4] = {first[0], first[1], second[0], second[1]};
    std::memcpy(sums, all, sizeof all);
}

std::int64_t count_lfs(std::string_view text)
{
    constexpr std::size_t piece = 128;  // known to the compiler, and its sum fits a byte
    std::int64_t          count = 0;
    for (; text.size() >= piece; text.remove_prefix(piece)) {
        std::uint8_t sum = 0;
        for (std::size_t i = 0; i < piece; ++i) {
            sum = static_cast<std::uint8_t>(sum + (text[i] == '\n' ? 1 : 0));
        }
        count += sum;
    }
    return count + std::count(text.begin(), text.end(), '\n');
}

}  // namespace

bool operator==(reading const& a, reading const& b)
{
    return a.count == b.count && std::equal(a.sums, a.sums + 4, b.sums);
}

message_lines::message_lines(message_file const& file, char* buffer, std::size_t size)
    : file_(file), buffer_(buffer), size_(size), joint_(ValCharCrLf)
{
    for (header_field const& field : header_fields) {
        std::string_view const key = *field.key;
        key_starts_ |= key.size() >= 2 ? bit_of(key.data()) : every_start;
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
        pass_body();
        if (!next(part)) {
            return false;
        }
    } while (part.header == nullptr);
    return true;
}

std::size_t message_lines::take_body(char* out, std::size_t room)
{
    std::size_t count = 0;
    while (begins_ && body_begun_ && !body_ended_ && !has_nul_) {
        std::size_t const      lf   = left_.find('\n');
        std::string_view const line = left_.substr(0, lf);
        if (lf == left_.npos || header_of(line) != nullptr ||
            room - count < joint_.size() + line.size()) {
            break;
        }
        for (char const c : joint_) {
            out[count++] = c;
        }
        copy_short(out + count, room - count, left_, line.size());
        count += line.size();
        left_.remove_prefix(lf + 1);
        ++lines_;
    }
    return count;
}

// Drops what is left of the buffer up to the next header, or to its last line.
//
// Each key ends with its only colon and a blank: a line in which they follow something else is none.
void message_lines::pass_body()
{
    constexpr std::string_view key_end = ": ";
    if (!begins_) {
        return;
    }
    std::string_view lines = left_.substr(0, left_.rfind('\n') + 1);
    for (std::size_t at = lines.find(key_end); at != lines.npos;
         at             = lines.find(key_end, lines.find('\n', at))) {
        std::size_t const line = lines.rfind('\n', at) + 1;
        if (header_of(lines.substr(line)) != nullptr) {
            lines = lines.substr(0, line);
            break;
        }
    }
    lines_ += count_lfs(lines);
    left_.remove_prefix(lines.size());
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
