// replay.cpp - run a target over its corpus, without a fuzzer
//
// use: TARGET FOLDER
//
// Takes the place of libFuzzer's main, so that inputs that once found a fault run with the ordinary
// tests.

#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "fuzz/support/fuzz.h"

namespace
{

namespace fs = std::filesystem;

void run(std::string const& bytes)
{
    LLVMFuzzerTestOneInput(reinterpret_cast<std::uint8_t const*>(bytes.data()), bytes.size());
}

// Returns the number of files.
int run_all(fs::path const& folder)
{
    int count = 0;
    for (fs::directory_entry const& entry : fs::directory_iterator(folder)) {
        std::printf("%s\n", entry.path().c_str());
        std::fflush(stdout);  // the last one printed is the one that ended the program
        std::ifstream in(entry.path(), std::ios::binary);
        run({std::istreambuf_iterator<char>(in), {}});
        ++count;
    }
    return count;
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "use: %s FOLDER\n", argv[0]);
        return 2;
    }
    try {
        run("");
        if (run_all(argv[1]) > 0) {
            return 0;
        }
        std::fprintf(stderr, "no file in %s\n", argv[1]);
    } catch (std::exception const& error) {
        std::fprintf(stderr, "%s\n", error.what());
    }
    return 1;
}
