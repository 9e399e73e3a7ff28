// service.h - zelieml engine: the service that loses no mail
//
// The library's engine deletes what lies in its directory when it starts, what failed twice, and
// the oldest of 501. So it runs in an empty directory of its own. The service takes a message that
// was posted into a folder of its own before it gives it to the engine, a part at a time, and takes it
// back when an attempt has failed.

#ifndef ZELIEML_TOOLS_ZELIEML_SERVICE_H
#define ZELIEML_TOOLS_ZELIEML_SERVICE_H

#include <chrono>
#include <string>

namespace zelieml::program
{

struct service_options {
    std::string          workdir;
    bool                 json = false;
    std::chrono::seconds stop_limit{20};
};

// serve - until a signal ends it
//
// Returns EX_OK, or EX_TEMPFAIL when the attempt in progress outlasted the limit and the process
// has to end without it. Throws a failure when the service cannot start, or not go on.
int serve(service_options const& options);

// serve_bare - the same with the library's engine as it is
int serve_bare(service_options const& options, std::string const& symbol);

}  // namespace zelieml::program

#endif
