#include "tests/support/files.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <netdb.h>
#include <sstream>
#include <stdexcept>
#include <sys/utsname.h>
#include <unistd.h>

namespace zelieml::test
{

namespace fs = std::filesystem;

namespace
{

// The resolver of a system may keep a descriptor from a process's first look-up on. A forked child
// has its parent's, and makes no look-up here: macOS allows it none.
void make_first_look_up()
{
    [[maybe_unused]] static bool const made = [] {
        utsname machine = {};  // gethostname is a fake in some programs
        return ::uname(&machine) == 0 && ::gethostbyname(machine.nodename) != nullptr;
    }();
}

}  // namespace

temp_dir::temp_dir()
{
    std::string pattern = (fs::temp_directory_path() / "zelieml-test-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) {
        throw std::runtime_error("no temporary directory: " + pattern);
    }
    path_ = pattern;
}

temp_dir::~temp_dir()
{
    std::error_code ignored;
    fs::remove_all(path_, ignored);
}

std::string read_file(std::string const& path)
{
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        ADD_FAILURE() << "cannot read " << path;
        return {};
    }
    std::ostringstream bytes;
    bytes << in.rdbuf();
    return bytes.str();
}

void write_file(std::string const& path, std::string const& bytes)
{
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << bytes;
    out.close();
    if (!out) {
        ADD_FAILURE() << "cannot write " << path;
    }
}

bool file_exists(std::string const& path)
{
    return fs::exists(fs::symlink_status(path));
}

std::vector<std::string> list_directory(std::string const& path)
{
    std::vector<std::string> names;
    for (fs::directory_entry const& entry : fs::directory_iterator(path)) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

int open_descriptors()
{
    make_first_look_up();
    int count = 0;
    for (fs::directory_entry const& entry : fs::directory_iterator("/dev/fd")) {
        (void)entry;
        ++count;
    }
    return count;
}

}  // namespace zelieml::test
