// few_descriptors.h - a process that may open no more, or few more, files

#ifndef ZELIEML_TESTS_SUPPORT_FEW_DESCRIPTORS_H
#define ZELIEML_TESTS_SUPPORT_FEW_DESCRIPTORS_H

#include <algorithm>
#include <fcntl.h>
#include <stdexcept>
#include <sys/resource.h>
#include <vector>

#include "support/unique_fd.h"
#include "tests/support/files.h"

namespace zelieml::test
{

// While it lives there is room for so many more descriptors.
class few_descriptors
{
public:
    explicit few_descriptors(int room)
    {
        constexpr rlim_t granted = 10240;  // by macOS, which takes back no limit that is higher
        if (::getrlimit(RLIMIT_NOFILE, &before_) != 0) {
            throw std::runtime_error("the limit of descriptors cannot be read");
        }
        before_.rlim_cur = std::min(before_.rlim_cur, granted);
        // A limit is one of numbers, not of how many there are: the gaps are filled first.
        int const enough = open_descriptors() + 16;
        do {
            filling_.emplace_back(::open("/dev/null", O_RDONLY | O_CLOEXEC));
            if (!filling_.back()) {
                throw std::runtime_error("too few descriptors to fill the gaps between them");
            }
        } while (filling_.back().get() < enough);
        rlimit const now = {static_cast<rlim_t>(filling_.back().get() + 1 + room),
                            before_.rlim_max};
        if (::setrlimit(RLIMIT_NOFILE, &now) != 0) {
            throw std::runtime_error("the limit of descriptors cannot be set");
        }
    }
    ~few_descriptors() { ::setrlimit(RLIMIT_NOFILE, &before_); }
    few_descriptors(few_descriptors const&)            = delete;
    few_descriptors& operator=(few_descriptors const&) = delete;

private:
    rlimit                 before_ = {};
    std::vector<unique_fd> filling_;
};

}  // namespace zelieml::test

#endif
