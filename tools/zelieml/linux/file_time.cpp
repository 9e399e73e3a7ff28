#include "tools/zelieml/file_time.h"

namespace zelieml::program
{

timespec modified(struct stat const& status)
{
    return status.st_mtim;
}

timespec changed(struct stat const& status)
{
    return status.st_ctim;
}

}  // namespace zelieml::program
