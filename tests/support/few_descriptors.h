// few_descriptors.h - a process that may open no more, or few more, files

#ifndef ZELIEML_TESTS_SUPPORT_FEW_DESCRIPTORS_H
#define ZELIEML_TESTS_SUPPORT_FEW_DESCRIPTORS_H

#include <algorithm>
#include <sys/resource.h>
#include <unistd.h>
#include <vector>

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
        ::getrlimit(RLIMIT_NOFILE, &before_);
        before_.rlim_cur = std::min(before_.rlim_cur, granted);
        // A limit is one of numbers, not of how many there are: the gaps are filled first.
        int const enough = open_descriptors() + 16;
        do {
            filling_.push_back(::dup(0));
        } while (filling_.back() < enough);
        rlimit const now = {static_cast<rlim_t>(filling_.back() + 1 + room), before_.rlim_max};
        ::setrlimit(RLIMIT_NOFILE, &now);
    }
    ~few_descriptors()
    {
        ::setrlimit(RLIMIT_NOFILE, &before_);
        for (int const fd : filling_) {
            ::close(fd);
        }
    }
    few_descriptors(few_descriptors const&)            = delete;
    few_descriptors& operator=(few_descriptors const&) = delete;

private:
    rlimit           before_ = {};
    std::vector<int> filling_;
};

}  // namespace zelieml::test

#endif
