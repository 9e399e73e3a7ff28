// message_file.h - a message file that is open
//
// Where other users can write to a directory, a name may mean another file from one moment to the
// next. So a message file is opened once, what was opened is checked, and that is read or written.
//
// While a process writes a message file, or sends it on the spot, it holds an advisory lock (flock)
// on it: an engine that looks through the directory passes the file over. On a file system without
// locks the file is simply not locked.

#ifndef ZELIEML_LIBMSG_MESSAGE_FILE_H
#define ZELIEML_LIBMSG_MESSAGE_FILE_H

#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <sys/types.h>

#include "support/unique_fd.h"

namespace zelieml
{

// The largest message file of a user who is neither root nor the one who reads it.
constexpr std::int64_t max_foreign_message = std::int64_t{64} << 20;

// One thread at a time.
class message_file
{
public:
    static constexpr std::int64_t unlimited = std::numeric_limits<std::int64_t>::max();

    // No file.
    message_file() = default;
    // size   of the file
    // limit  of the bytes that can be read
    explicit message_file(unique_fd fd, std::int64_t size = 0, std::int64_t limit = unlimited);
    // No file; why, as errno.
    static message_file none(int error);
    ~message_file() { close(); }
    message_file(message_file&& other) noexcept = default;
    message_file& operator=(message_file&& other) noexcept;

    explicit operator bool() const { return static_cast<bool>(fd_); }
    int      descriptor() const { return fd_.get(); }
    // Why there is no file, as errno; 0 where that is not known.
    int error() const { return error_; }

    // read - read from a position on, at most size bytes
    //
    // Returns the number of bytes, 0 at the end of the file, or -1 with errno: EFBIG when the file
    // is larger than its limit. Some file systems give fewer bytes than they are asked for in the
    // middle of a file.
    std::int64_t read(char* buf, std::size_t size, std::int64_t position) const;

    // The size that the file had when it was opened, and what was written to it since.
    std::int64_t size() const { return size_; }

    // write - append bytes. Returns false when not all of them could be written.
    bool write(char const* data, std::size_t size);

    // lock - have engines pass the file over until it is closed, if locks are to be had
    void lock();

    // Whether another open file, maybe of another process, has the lock.
    bool is_locked_elsewhere() const;

    // close - unlock and close. Returns false when closing reports that something was not written.
    bool close();

private:
    unique_fd    fd_;
    std::int64_t limit_  = 0;
    std::int64_t size_   = 0;
    int          error_  = 0;
    bool         locked_ = false;
};

// create_message_file - create a file, locked, for writing and reading
//
// Returns no file, with errno, when it cannot be created: EEXIST when the name is taken, be it by a
// link that leads nowhere. A new file gets mode 0666 less the umask.
message_file create_message_file(char const* path);

// overwrite_message_file - open a file for writing, locked; create or empty it
//
// Follows links, and waits for the reader of a pipe, as any program does that is given a path.
//
// Returns no file when it cannot be opened or emptied.
message_file overwrite_message_file(char const* path);

// open_message_file - open a file for reading, as an engine does
//
// path   a link is not followed, and a pipe not waited for
// owner  who the file must belong to; nothing: it may be anybody's
//
// Returns no file, with errno, when it cannot be opened (ENOENT when there is none), or is not to
// be sent (EPERM): when it is not a regular file, has a second name, belongs to somebody other than
// owner, or is larger than max_foreign_message and neither this user's nor root's. One that grows
// beyond that later cannot be read to its end.
message_file open_message_file(char const* path, std::optional<uid_t> owner = {});

// follow_message_file - open a regular file for reading, as a user of the library asks for it
//
// path  links are followed; a pipe or a device is refused and not waited for
//
// Returns no file, with errno, when it cannot be opened, or is refused (EPERM).
message_file follow_message_file(char const* path);

}  // namespace zelieml

#endif
