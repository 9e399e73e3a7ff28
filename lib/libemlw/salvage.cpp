// salvage.cpp - message files left in the work directory

#include "libemlw/salvage.h"

#include "libemlw/file.h"
#include "liblog/trace.h"
#include "libqueue/libqueue.h"

namespace zelieml
{

int get_salvage_files(char const* dir, std::vector<std::string>& files)
{
    platform::release_pool const      pool;
    platform::text_array const* const found = FindSMEFiles(dir);
    int const count = found != nullptr ? platform::text_array_count(found) : 0;
    for (int i = 0; i < count; ++i) {
        char path[fullpath_size];
        if (platform::text_array_get(found, i, path, sizeof path)) {
            files.emplace_back(path);
        }
    }
    return 0;
}

int salvage_queue(_s_iemlw* engine, bool salvage)
{
    std::vector<std::string> files;
    int const                result = get_salvage_files(engine->workdir, files);
    if (salvage) {
        trace_msg("salvage_queue salvage");
        engine->queue.load()->add(files);
    } else {
        trace_msg("salvage_queue erase");
        iqmgr_erase_files(files);
    }
    return result;
}

}  // namespace zelieml
