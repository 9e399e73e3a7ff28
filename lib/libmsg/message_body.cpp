// message_body.cpp - the body of a long message, which stays in its file until it is sent

#include "libmsg/message_body.h"

#include <cerrno>
#include <string_view>

#include "libmsg/load_message.h"
#include "support/no_cancellation.h"

namespace zelieml
{

namespace
{

constexpr std::size_t buffer_size = 65536;

// Moves as much of a text as fits to out. Returns the number of bytes.
std::size_t take(std::string_view& text, char* out, std::size_t room)
{
    std::size_t const count = text.copy(out, room);
    text.remove_prefix(count);
    return count;
}

}  // namespace

int message_body::load(void** msg, message_file const& file)
{
    return load_message(msg, file, [&](_s_msg& record) {
        buffer_.reset(new char[buffer_size]);
        message_lines lines(file, buffer_.get(), buffer_size);
        for (message_part part; lines.next_header(part);) {
            set_header(part, record);
        }
        loaded_ = lines.so_far();
        most_   = lines.most_of_body();
        lines_.emplace(file, buffer_.get(), buffer_size);
        return !lines.failed();
    });
}

bool message_body::read(char* out, std::size_t size, std::size_t& count)
{
    no_cancellation const shielded;
    count = 0;
    for (;;) {
        count += take(part_.joint, out + count, size - count);
        count += take(part_.text, out + count, size - count);
        if (part_.text.empty()) {
            count += lines_->take_body(out + count, size - count);
        }
        if (count == size) {
            return true;
        }
        if (!lines_->next(part_)) {
            errno = lines_->failed() ? errno : 0;
            return !lines_->failed() && lines_->so_far() == loaded_;
        }
        if (part_.header != nullptr) {
            part_ = {};
        }
    }
}

}  // namespace zelieml
