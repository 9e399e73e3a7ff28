#include "fuzz/support/scratch.h"

#include <fcntl.h>
#include <unistd.h>

#include "fuzz/support/fuzz.h"
#include "support/unique_fd.h"

namespace zelieml::fuzz
{

test::temp_dir const& scratch_directory()
{
    static test::temp_dir const directory;
    return directory;
}

void scratch_file::write(std::string const& bytes) const
{
    remove();
    unique_fd const file(::open(path(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    require(::write(file.get(), bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()),
            "a scratch file can be written");
}

std::string scratch_file::read() const
{
    unique_fd const file(::open(path(), O_RDONLY | O_CLOEXEC));
    std::string     bytes;
    char            piece[4096];
    ssize_t         count = 0;
    while ((count = ::read(file.get(), piece, sizeof piece)) > 0) {
        bytes.append(piece, static_cast<std::size_t>(count));
    }
    require(count == 0, "a scratch file can be read");
    return bytes;
}

bool scratch_file::exists() const
{
    return ::access(path(), F_OK) == 0;
}

void scratch_file::remove() const
{
    ::unlink(path());
}

}  // namespace zelieml::fuzz
