// memory.h - how much memory a benchmark takes

#ifndef ZELIEML_BENCH_MEMORY_H
#define ZELIEML_BENCH_MEMORY_H

#include <fstream>
#include <string>

// Kilobytes of this process, by their name in its status file: "VmRSS:" now, "VmHWM:" at the peak.
inline long kilobytes(std::string const& name)
{
    std::ifstream status("/proc/self/status");
    std::string   word;
    long          size = 0;
    while (status >> word && word != name) {
    }
    status >> size;
    return size;
}

#endif
