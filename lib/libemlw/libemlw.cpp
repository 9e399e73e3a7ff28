// libemlw.cpp - posting messages

#include "libemlw/libemlw.h"

#include <cerrno>
#include <ctime>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "libemlw/callback.h"
#include "libemlw/send.h"
#include "liblog/trace.h"
#include "libmsg/libmsg.h"
#include "libqueue/libqueue.h"
#include "libsendw/libsendw.h"
#include "libtimew/libtimew.h"
#include "platform/clock.h"
#include "support/format.h"
#include "support/unique_fd.h"

namespace zelieml
{

namespace
{

// Creates a file that did not exist. Returns false only when it did.
bool claim(char const* path)
{
    unique_fd const fd(::open(path, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
    return fd || errno != EEXIST;
}

// Takes a claim back if the save wrote nothing; what it wrote is left.
void drop_empty_claim(char const* path)
{
    struct stat status = {};
    if (::stat(path, &status) == 0 && S_ISREG(status.st_mode) && status.st_size == 0) {
        iqmgr_erase(path);
    }
}

}  // namespace

std::string conf_fullpath(std::string const& workdir)
{
    return workdir + "/" + "zelismes.cf";
}

int create_fullpath(char const* workdir, char (&out)[fullpath_size])
{
    std::tm const now          = platform::local_time(platform::wall_seconds());
    int const     microseconds = platform::wall_microseconds();
    int const     process      = static_cast<int>(::getpid());

    auto form = [&](char separator, int year) {
        return format_text(out, "%s%c%04d%02d%02d%02d%02d%02d-%08d-%04d.sme", workdir, separator,
                           year, now.tm_mon + 1, now.tm_mday, now.tm_hour, now.tm_min, now.tm_sec,
                           microseconds, process);
    };

    int const year = modify_year(now.tm_year);
    if (form('/', year) == -1) {
        return -1;
    }
    if (claim(out)) {
        return 0;
    }
    trace_msg("warning:existing file:%s");

    // The backslash and the year plus one are meant so.
    if (form('\\', year + 1) == -1) {
        return -1;
    }
    if (claim(out)) {
        return 0;
    }
    trace_msg("error:existing file:%s");
    return -1;
}

int ifactory_emlw::post_sync(char const* workdir, void* msg, void** result)
{
    trace_msg("post_sync in workdir=%s");
    if (result == nullptr) {
        return -1;
    }
    *result = nullptr;

    char path[fullpath_size] = {};
    if (workdir == nullptr || msg == nullptr || create_fullpath(workdir, path) != 0) {
        *result = create_callback_info(send_other_failure, "");
        return -1;
    }
    if (msg_save(msg, path) != 0) {
        trace_msg("error:msg_save(%s)");
        drop_empty_claim(path);
        *result = create_callback_info(send_other_failure, "");
        return -1;
    }

    isendw_sys sending;
    sending.init();
    std::string text;
    int const   code = send_sync(workdir, path, text);
    if (code != send_ok) {
        trace_msg("error:send_sync(%s)");
    }
    *result = create_callback_info(code, text);
    sending.end();
    if (code != send_ok) {
        return -1;
    }
    trace_msg("post_sync out");
    return 0;
}

}  // namespace zelieml
