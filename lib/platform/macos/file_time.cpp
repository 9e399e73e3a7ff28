// file_time.cpp - st_mtimespec and st_ctimespec

#include "platform/file_time.h"

namespace zelieml::platform
{

timespec modified(struct stat const& file)
{
    return file.st_mtimespec;
}

timespec changed(struct stat const& file)
{
    return file.st_ctimespec;
}

}  // namespace zelieml::platform
