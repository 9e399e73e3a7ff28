// directory_handle.h - an open directory that closes itself

#ifndef ZELIEML_PLATFORM_LINUX_DIRECTORY_HANDLE_H
#define ZELIEML_PLATFORM_LINUX_DIRECTORY_HANDLE_H

#include <dirent.h>
#include <memory>

namespace zelieml::platform
{

struct directory_closer {
    void operator()(DIR* directory) const { ::closedir(directory); }
};

using directory_handle = std::unique_ptr<DIR, directory_closer>;

}  // namespace zelieml::platform

#endif
