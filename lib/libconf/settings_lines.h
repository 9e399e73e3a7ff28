// settings_lines.h - the lines of a settings file, and what belongs to a key in them
//
// How conf_get_string reads, for whoever looks at all lines.

#ifndef ZELIEML_LIBCONF_SETTINGS_LINES_H
#define ZELIEML_LIBCONF_SETTINGS_LINES_H

#include <cstddef>
#include <cstring>
#include <sys/types.h>
#include <unistd.h>

#include "support/unique_fd.h"

namespace zelieml
{

constexpr std::size_t line_limit = 1023;  // characters, with the CR and without the LF

// The lines of an open file.
class line_reader
{
public:
    enum class result {
        line,
        end,
        overlong,
        failure
    };

    // fd    read from its current position on; the caller keeps it
    // size  how many bytes there should be. A read that brings fewer than it might, up to just this
    //       many, is the last one: it saves the one that would find the end.
    explicit line_reader(int fd, off_t size = unknown) : fd_(fd), left_(size) {}

    // Goes to the next line. After an overlong line or a failure, a read error, nothing more is
    // read.
    result next()
    {
        for (;;) {
            char* const       start = buffer_ + begin_;
            std::size_t const ready = end_ - begin_;
            void* const       lf    = std::memchr(start, '\n', ready);
            if (lf == nullptr && !at_end_ && ready <= line_limit) {
                if (!fill()) {
                    return result::failure;
                }
                continue;
            }
            if (lf == nullptr && ready == 0) {
                return result::end;
            }
            text_ = start;
            size_ =
                lf != nullptr ? static_cast<std::size_t>(static_cast<char*>(lf) - start) : ready;
            if (size_ > line_limit) {
                return result::overlong;
            }
            start[size_] = '\0';
            begin_ += size_ + (lf != nullptr ? 1 : 0);
            return result::line;
        }
    }

    // The line without its LF, NUL-terminated; valid until the next call of next().
    char const* text() const { return text_; }
    // Its length, which includes bytes after a NUL in the line.
    std::size_t size() const { return size_; }
    // Whether the end came before the size.
    bool is_short() const { return at_end_ && left_ > 0; }
    // The error of the system that ended the reading, as errno; 0 if there was none.
    int error() const { return error_; }

private:
    static constexpr off_t unknown = -1;

    bool fill();

    int         fd_;
    off_t       left_;  // of the size; never 0 if that is unknown
    int         error_  = 0;
    bool        at_end_ = false;
    std::size_t begin_  = 0;  // of the unread bytes
    std::size_t end_    = 0;
    char const* text_   = nullptr;
    std::size_t size_   = 0;
    char        buffer_[4096];
};

// open_settings - open the settings file for reading
//
// path  or null: then nothing is opened. Pipes, whose opening waits for a writer, and devices, which
//       may never end, are not opened. A directory is: reading it fails. Should a pipe take the
//       file's place after the look at it, neither opening nor reading waits.
//
// Returns no file, with errno, when it cannot be opened.
unique_fd open_settings(char const* path);

bool is_comment(char const* line);

// is_line_of - whether a line belongs to a key: to every one that it contains anywhere
bool is_line_of(char const* line, char const* key);

// is_own_line_of - whether a line has this key and no other: the key, blanks and tabs, "="
bool is_own_line_of(char const* line, char const* key);

// get_val - the value in a line; val, len and result as for conf_get_string
int get_val(char const* line, char* val, unsigned int* len);

}  // namespace zelieml

#endif
