// message_file.cpp - opening, locking, reading and writing message files

#include "libmsg/message_file.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

#include "support/no_cancellation.h"

namespace zelieml
{

namespace
{

constexpr mode_t new_file_mode = 0666;

unique_fd open_path(char const* path, int flags)
{
    no_cancellation const shielded;
    // A terminal must not become that of the host.
    char const* const name = path != nullptr ? path : "";
    return above_standard(unique_fd(::open(name, flags | O_CLOEXEC | O_NOCTTY, new_file_mode)));
}

bool is_regular(unique_fd const& fd, struct stat& status)
{
    return fd && ::fstat(fd.get(), &status) == 0 && S_ISREG(status.st_mode);
}

}  // namespace

message_file::message_file(unique_fd fd, std::int64_t size, std::int64_t limit)
    : fd_(std::move(fd)), limit_(limit), size_(size)
{
}

message_file message_file::none(int error)
{
    message_file file;
    file.error_ = error;
    return file;
}

message_file& message_file::operator=(message_file&& other) noexcept
{
    if (this != &other) {
        close();
        fd_     = std::move(other.fd_);
        limit_  = other.limit_;
        size_   = other.size_;
        error_  = other.error_;
        locked_ = other.locked_;
    }
    return *this;
}

std::int64_t message_file::read(char* buf, std::size_t size, std::int64_t position) const
{
    ssize_t count = 0;
    do {
        count = ::pread(fd_.get(), buf, size, static_cast<off_t>(position));
    } while (count < 0 && errno == EINTR);
    if (count > 0 && position > limit_ - count) {
        errno = EFBIG;
        return -1;
    }
    return count;
}

bool message_file::write(char const* data, std::size_t size)
{
    while (size > 0) {
        ssize_t const count = ::write(fd_.get(), data, size);
        if (count < 0 && errno != EINTR) {
            return false;
        }
        if (count > 0) {
            data += count;
            size -= static_cast<std::size_t>(count);
            size_ += count;
        }
    }
    return true;
}

void message_file::lock()
{
    locked_ = ::flock(fd_.get(), LOCK_EX | LOCK_NB) == 0;
}

bool message_file::is_locked_elsewhere() const
{
    if (::flock(fd_.get(), LOCK_SH | LOCK_NB) != 0) {
        return errno == EWOULDBLOCK;
    }
    ::flock(fd_.get(), LOCK_UN);
    return false;
}

bool message_file::close()
{
    if (!fd_) {
        return true;
    }
    if (locked_) {
        // Closing would not do it where a forked child has the file too.
        ::flock(fd_.get(), LOCK_UN);
    }
    return close_written(fd_.release());
}

message_file create_message_file(char const* path)
{
    unique_fd fd = open_path(path, O_RDWR | O_CREAT | O_EXCL);
    if (!fd) {
        return message_file::none(errno);
    }
    message_file file(std::move(fd));
    file.lock();
    return file;
}

message_file overwrite_message_file(char const* path)
{
    message_file file(open_path(path, O_WRONLY | O_CREAT));
    struct stat  status = {};
    if (!file || ::fstat(file.descriptor(), &status) != 0 || !S_ISREG(status.st_mode)) {
        return file;  // nothing to empty, and nothing that an engine sends
    }
    file.lock();
    // An empty file is not truncated: some file systems flush a truncated file to disk on close,
    // which costs many times the rest.
    bool const empty = status.st_size == 0 || ::ftruncate(file.descriptor(), 0) == 0;
    return empty ? std::move(file) : message_file();
}

message_file open_message_file(char const* path, std::optional<uid_t> owner)
{
    unique_fd fd = open_path(path, O_RDONLY | O_NOFOLLOW | O_NONBLOCK);
    if (!fd) {
        return message_file::none(errno);
    }
    struct stat        status = {};
    bool const         sound  = is_regular(fd, status) && status.st_nlink == 1;
    bool const         gone   = status.st_nlink == 0;
    bool const         own    = status.st_uid == ::geteuid() || status.st_uid == 0;
    std::int64_t const limit  = own ? message_file::unlimited : max_foreign_message;
    if (!sound || (owner && status.st_uid != *owner) || status.st_size > limit) {
        errno = gone ? ENOENT : EPERM;
        return message_file::none(errno);
    }
    return message_file(std::move(fd), status.st_size, limit);
}

message_file follow_message_file(char const* path)
{
    unique_fd   fd     = open_path(path, O_RDONLY | O_NONBLOCK);
    struct stat status = {};
    if (!is_regular(fd, status)) {
        return message_file::none(fd ? EPERM : errno);
    }
    return message_file(std::move(fd), status.st_size);
}

}  // namespace zelieml
