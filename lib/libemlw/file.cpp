// file.cpp - the files of a work directory: its settings, and finding its message files

#include "libemlw/file.h"

#include <memory>
#include <vector>

#include "support/format.h"

namespace zelieml
{

namespace
{

constexpr std::size_t path_size = 256;

struct array_releaser {
    void operator()(platform::text_array* array) const { platform::text_array_release(array); }
};

}  // namespace

std::string conf_fullpath(std::string const& workdir)
{
    return workdir + "/zelismes.cf";
}

platform::text_array const* FindSMEFiles(char const* directory)
{
    std::vector<std::string> names;
    if (!platform::directory_names(directory, names) || names.empty()) {
        return nullptr;
    }

    std::unique_ptr<platform::text_array, array_releaser> files(platform::text_array_create());
    if (!files) {
        return nullptr;
    }
    for (std::string const& name : names) {
        char path[path_size];
        // Anywhere in the name: deliberate, see docs/ODDITIES.md.
        if (name.find(".sme") != std::string::npos &&
            format_text(path, "%s/%s", directory, name.c_str()) != -1) {
            platform::text_array_append(files.get(), path);
        }
    }
    if (platform::text_array_count(files.get()) == 0) {
        return nullptr;
    }
    return platform::text_array_autorelease(files.release());
}

}  // namespace zelieml
