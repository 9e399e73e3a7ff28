// scratch.h - a file of a target's own, written anew for each input

#ifndef ZELIEML_FUZZ_SUPPORT_SCRATCH_H
#define ZELIEML_FUZZ_SUPPORT_SCRATCH_H

#include <string>

#include "tests/support/files.h"

namespace zelieml::fuzz
{

// scratch_directory - the program's own, under TMPDIR; gone when the program ends in order
test::temp_dir const& scratch_directory();

class scratch_file
{
public:
    // name  of the file, in scratch_directory()
    explicit scratch_file(char const* name) : path_(scratch_directory().file(name)) {}

    char const* path() const { return path_.c_str(); }

    // write - replace the file. It is removed first: some file systems write a file that is
    // truncated to the disk at once.
    void write(std::string const& bytes) const;

    std::string read() const;
    bool        exists() const;
    void        remove() const;

private:
    std::string path_;
};

}  // namespace zelieml::fuzz

#endif
