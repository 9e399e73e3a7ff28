// files.h - directories and files of a test's own

#ifndef ZELIEML_TESTS_SUPPORT_FILES_H
#define ZELIEML_TESTS_SUPPORT_FILES_H

#include <string>
#include <vector>

namespace zelieml::test
{

// A fresh directory under the system's temporary one; gone, with all in it, when the object is.
class temp_dir
{
public:
    temp_dir();
    ~temp_dir();
    temp_dir(temp_dir const&)            = delete;
    temp_dir& operator=(temp_dir const&) = delete;

    std::string const& path() const { return path_; }
    // The path of a name in the directory.
    std::string file(std::string const& name) const { return path_ + "/" + name; }

private:
    std::string path_;
};

// The bytes of a file; fails the running test when it cannot be read.
std::string read_file(std::string const& path);

// Writes a file, replacing what was there; fails the running test when it cannot.
void write_file(std::string const& path, std::string const& bytes);

bool file_exists(std::string const& path);

// The names in a directory, sorted, without "." and "..".
std::vector<std::string> list_directory(std::string const& path);

// The number of descriptors that the process has open, with any that its resolver keeps.
int open_descriptors();

}  // namespace zelieml::test

#endif
