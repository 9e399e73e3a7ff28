// file_time.cpp - st_mtim and st_ctim

#include "platform/file_time.h"

namespace zelieml::platform
{

timespec modified(struct stat const& file)
{
    return file.st_mtim;
}

timespec changed(struct stat const& file)
{
    return file.st_ctim;
}

}  // namespace zelieml::platform
