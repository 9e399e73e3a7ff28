// message_head.cpp - what a list shows of a message file

#include "tools/zelieml/message_head.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>

#include "tools/descriptor.h"
#include "tools/zelieml/library_text.h"
#include "tools/zelieml/locale_text.h"
#include "zelieml.h"

namespace zelieml::program
{

namespace
{

constexpr off_t largest = 64 << 20;

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
    void*     loaded = nullptr;
    int const status = eml_msg_load(&loaded, ("/dev/fd/" + std::to_string(file.get())).c_str());
    std::unique_ptr<void, decltype(&eml_msg_destroy)> const msg(loaded, eml_msg_destroy);
    if (status != 0) {
        head.fault = "it could not be loaded";
        return head;
    }
    auto const text = [&](int (*getter)(void*, char*, int)) {
        return library_text([&](char* buf, int size) { return getter(msg.get(), buf, size); });
    };
    head.from    = text(eml_msg_get_from);
    head.to      = text(eml_msg_get_to);
    head.cc      = text(eml_msg_get_cc);
    head.subject = from_charset(text(eml_msg_get_subject), text(eml_msg_get_encoding));
    if (head.from.empty() && head.to.empty() && head.cc.empty() && head.subject.empty()) {
        head.fault = "no message: it has no sender, no recipient and no subject";
    }
    return head;
}

}  // namespace zelieml::program
