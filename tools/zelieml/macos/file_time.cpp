#include "tools/zelieml/file_time.h"

namespace zelieml::program
{

timespec modified(struct stat const& status)
{
    return status.st_mtimespec;
}

timespec changed(struct stat const& status)
{
    return status.st_ctimespec;
}

}  // namespace zelieml::program
