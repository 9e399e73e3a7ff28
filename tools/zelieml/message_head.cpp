// message_head.cpp - what a list shows of a message file

#include "tools/zelieml/message_head.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "tools/descriptor.h"
#include "tools/zelieml/library_text.h"
#include "tools/zelieml/locale_text.h"
#include "zelieml.h"

namespace zelieml::program
{

namespace
{

constexpr off_t       largest       = 64 << 20;
constexpr std::size_t read_of_it    = 64 << 10;
constexpr std::size_t longest_field = 1024;

// Why the engine would not send what was opened, or nothing.
std::string fault_of(descriptor const& file, int error)
{
    struct stat status = {};
    if (!file && (error == ELOOP || error == EMLINK)) {
        return "a link, which is never sent";
    }
    if (!file || ::fstat(file.get(), &status) != 0) {
        return std::strerror(error);
    }
    if (!S_ISREG(status.st_mode)) {
        return "not a file, so it is never sent";
    }
    if (status.st_nlink != 1) {
        return "a file with more than one name, which is never sent";
    }
    if (status.st_size > largest) {
        return "a file of more than 64 MiB, which is not read here";
    }
    return "";
}

struct file_closer {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using temporary_file = std::unique_ptr<std::FILE, file_closer>;

// The beginning of a file, as a file without a name; nothing when that does not work. The library
// loads a file as a whole, and somebody can make one longer meanwhile.
temporary_file beginning_of(descriptor const& file)
{
    temporary_file    beginning(std::tmpfile());
    std::vector<char> bytes(read_of_it);
    ssize_t const     got = ::pread(file.get(), bytes.data(), bytes.size(), 0);
    if (beginning && got >= 0 &&
        std::fwrite(bytes.data(), 1, static_cast<std::size_t>(got), beginning.get()) ==
            static_cast<std::size_t>(got) &&
        std::fflush(beginning.get()) == 0) {
        return beginning;
    }
    return nullptr;
}

}  // namespace

message_head read_head(std::string const& path)
{
    message_head     head;
    descriptor const file(
        ::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    head.fault = fault_of(file, errno);
    if (!head.fault.empty()) {
        return head;
    }
    temporary_file const beginning = beginning_of(file);
    std::string const    path_of_it =
        beginning ? "/dev/fd/" + std::to_string(::fileno(beginning.get())) : "";
    void*     loaded = nullptr;
    int const result = beginning ? eml_msg_load(&loaded, path_of_it.c_str()) : -1;
    std::unique_ptr<void, decltype(&eml_msg_destroy)> const msg(loaded, eml_msg_destroy);
    if (result != 0) {
        head.fault = "it could not be loaded";
        return head;
    }
    auto const text = [&](int (*getter)(void*, char*, int)) {
        return library_text([&](char* buf, int size) { return getter(msg.get(), buf, size); });
    };
    auto const field = [&](int (*getter)(void*, char*, int)) {
        return cut_text(text(getter), longest_field);
    };
    head.from    = field(eml_msg_get_from);
    head.to      = field(eml_msg_get_to);
    head.cc      = field(eml_msg_get_cc);
    head.subject = cut_text(from_charset(text(eml_msg_get_subject), text(eml_msg_get_encoding)),
                            longest_field);
    if (head.from.empty() && head.to.empty() && head.cc.empty() && head.subject.empty()) {
        head.fault = "no message: it has no sender, no recipient and no subject";
    }
    return head;
}

}  // namespace zelieml::program
