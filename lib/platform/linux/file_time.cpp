// file_time.cpp - st_mtim and st_ctim

#include "platform/file_time.h"

namespace zelieml::platform
{

namespace
{

since_1970 since(timespec const& when)
{
    return std::chrono::seconds(when.tv_sec) + std::chrono::nanoseconds(when.tv_nsec);
}

}  // namespace

since_1970 modified(struct stat const& file)
{
    return since(file.st_mtim);
}

since_1970 changed(struct stat const& file)
{
    return since(file.st_ctim);
}

}  // namespace zelieml::platform
