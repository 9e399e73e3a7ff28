// descriptor.h - a descriptor that is closed with its object, for all tools

#ifndef ZELIEML_TOOLS_DESCRIPTOR_H
#define ZELIEML_TOOLS_DESCRIPTOR_H

#include <unistd.h>
#include <utility>

namespace zelieml
{

class descriptor
{
public:
    explicit descriptor(int fd = -1) : fd_(fd) {}
    descriptor(descriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    descriptor& operator=(descriptor&& other) noexcept
    {
        std::swap(fd_, other.fd_);
        return *this;
    }
    ~descriptor()
    {
        if (fd_ >= 0) {
            ::close(fd_);
        }
    }

    explicit operator bool() const { return fd_ >= 0; }
    int      get() const { return fd_; }

private:
    int fd_;
};

}  // namespace zelieml

#endif
