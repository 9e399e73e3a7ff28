// work_dir.h - a directory of a benchmark's own, and sums over its timings

#ifndef ZELIEML_BENCH_WORK_DIR_H
#define ZELIEML_BENCH_WORK_DIR_H

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

// Gone, with all in it, when the object is.
class work_dir
{
public:
    work_dir()
    {
        std::string pattern =
            (std::filesystem::temp_directory_path() / "zelieml-bench-XXXXXX").string();
        if (::mkdtemp(pattern.data()) == nullptr) {
            throw std::runtime_error("no temporary directory");
        }
        path_ = pattern;
    }
    ~work_dir() { std::filesystem::remove_all(path_); }
    work_dir(work_dir const&)            = delete;
    work_dir& operator=(work_dir const&) = delete;

    std::string const& path() const { return path_; }

private:
    std::string path_;
};

using bench_clock = std::chrono::steady_clock;

inline double microseconds_since(bench_clock::time_point start)
{
    return std::chrono::duration<double, std::micro>(bench_clock::now() - start).count();
}

// What a call takes.
template <class Body>
double microseconds(Body const& run)
{
    auto const start = bench_clock::now();
    run();
    return microseconds_since(start);
}

struct figures {
    double median;
    double p99;
    double longest;
};

inline figures summarise(std::vector<double> times)
{
    std::sort(times.begin(), times.end());
    return {times[times.size() / 2], times[times.size() * 99 / 100], times.back()};
}

inline void print(char const* name, figures const& of)
{
    std::printf("%-28s median %7.1f us   99th percentile %7.1f us   longest %7.1f us\n", name,
                of.median, of.p99, of.longest);
}

#endif
