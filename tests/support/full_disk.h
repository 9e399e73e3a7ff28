// full_disk.h - a disk without room, for as long as a test wants it

#ifndef ZELIEML_TESTS_SUPPORT_FULL_DISK_H
#define ZELIEML_TESTS_SUPPORT_FULL_DISK_H

#include <csignal>
#include <sys/resource.h>

namespace zelieml::test
{

// While the object lives no file of this process grows past a number of bytes: a write beyond it
// fails, as it does on a full disk.
class full_disk
{
public:
    explicit full_disk(rlim_t bytes)
    {
        ::getrlimit(RLIMIT_FSIZE, &before_);
        rlimit const now = {bytes, before_.rlim_max};
        handler_         = std::signal(SIGXFSZ, SIG_IGN);
        ::setrlimit(RLIMIT_FSIZE, &now);
    }
    ~full_disk()
    {
        ::setrlimit(RLIMIT_FSIZE, &before_);
        std::signal(SIGXFSZ, handler_);
    }
    full_disk(full_disk const&)            = delete;
    full_disk& operator=(full_disk const&) = delete;

private:
    rlimit before_        = {};
    void (*handler_)(int) = SIG_DFL;
};

}  // namespace zelieml::test

#endif
