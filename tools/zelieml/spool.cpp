// spool.cpp - what a work directory holds for the program

#include "tools/zelieml/spool.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <dirent.h>
#include <exception>
#include <fcntl.h>
#include <memory>
#include <set>
#include <sys/file.h>
#include <sysexits.h>
#include <tuple>
#include <unistd.h>
#include <utility>

#include "tools/zelieml/failure.h"
#include "tools/zelieml/file_time.h"

namespace zelieml::program
{

namespace
{

constexpr char message_ending[]   = ".sme";
constexpr char settings_name[]    = "zelismes.cf";
constexpr char settings_link[]    = "../../zelismes.cf";  // from the engine's folder
constexpr char service_folder[]   = "/.zelieml";
constexpr char reasons_folder[]   = "/.zelieml/reasons";
constexpr char waiting_reasons[]  = "/.zelieml/reasons/waiting";
constexpr char other_reasons[]    = "/.zelieml/reasons/undelivered";
constexpr char lock_name[]        = "lock";
constexpr char half_written[]     = ".new";  // no message's name
constexpr char give_it_another[]  = "remove it, or use another work directory";
constexpr char make_it_writable[] = "let this user write to the work directory";

// How long after its last change a file counts as in use: locked, since whoever can read a file can
// lock it; and empty, since a file is not locked yet when it is made.
constexpr std::time_t locked_s = 3600;
constexpr std::time_t empty_s  = 60;

constexpr off_t largest_reason = 1 << 16;

bool is_name(std::string const& name)
{
    return !name.empty() && name != "." && name != ".." && name.find('/') == name.npos;
}

// A folder that is only this user's. Throws a failure, but for ENOENT, which gives nothing.
descriptor own_folder(std::string const& path)
{
    descriptor  folder(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    struct stat status = {};
    if (!folder || ::fstat(folder.get(), &status) != 0) {
        int const error = errno;
        if (error == ENOENT) {
            return descriptor();
        }
        if (error == ENOTDIR || error == ELOOP || error == EMLINK) {
            throw failure(EX_CONFIG, path + " is not a folder: " + give_it_another);
        }
        bool const forbidden = error == EACCES || error == EPERM;
        throw failure(forbidden ? EX_CONFIG : EX_CANTCREAT, path, error,
                      forbidden ? "run zelieml as the user whose it is" : "mend that first");
    }
    if (status.st_uid != ::geteuid()) {
        throw failure(EX_CONFIG, path + " belongs to the user " + std::to_string(status.st_uid) +
                                     ": run zelieml as that user, or " + give_it_another);
    }
    if ((status.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
        throw failure(EX_CONFIG, path + " can be written by other users: chmod 700 " + path);
    }
    return folder;
}

// The same, made if it is not there.
descriptor made_folder(std::string const& path)
{
    if (::mkdir(path.c_str(), S_IRWXU) != 0 && errno != EEXIST) {
        throw failure(EX_CANTCREAT, path, errno, make_it_writable);
    }
    descriptor folder = own_folder(path);
    if (!folder) {
        throw failure(EX_CANTCREAT, path, ENOENT, make_it_writable);
    }
    return folder;
}

// The same where nothing may fail: nothing.
descriptor folder_if_any(std::string const& path)
{
    try {
        return own_folder(path);
    } catch (failure const&) {
        return descriptor();
    }
}

struct stream_closer {
    void operator()(DIR* stream) const { ::closedir(stream); }
};

// Calls proc for each message file in a folder.
template <class Proc>
void each_in(descriptor const& folder, std::string const& path, Proc&& proc)
{
    int const copy = ::openat(folder.get(), ".", O_RDONLY | O_CLOEXEC);
    std::unique_ptr<DIR, stream_closer> const stream(copy >= 0 ? ::fdopendir(copy) : nullptr);
    if (stream == nullptr) {
        throw failure(EX_NOINPUT, path, errno, "run zelieml as a user who may read it");
    }
    while (dirent const* const entry = ::readdir(stream.get())) {
        spooled file = {entry->d_name, {}};
        if (is_message_name(file.name) &&
            ::fstatat(folder.get(), file.name.c_str(), &file.status, AT_SYMLINK_NOFOLLOW) == 0) {
            proc(file);
        }
    }
}

bool is_there(int folder, std::string const& name)
{
    struct stat status = {};
    return ::fstatat(folder, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 || errno != ENOENT;
}

// Writes all or nothing under this name.
bool write_file(int folder, std::string const& name, std::string const& text)
{
    descriptor const file(::openat(folder, half_written,
                                   O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC,
                                   S_IRUSR | S_IWUSR));
    bool const       written =
        file && ::write(file.get(), text.data(), text.size()) == static_cast<ssize_t>(text.size());
    if (written && ::renameat(folder, half_written, folder, name.c_str()) == 0) {
        return true;
    }
    ::unlinkat(folder, half_written, 0);
    return false;
}

bool same_file(struct stat const& a, struct stat const& b)
{
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

std::vector<spooled> all_in(std::string const& path)
{
    std::vector<spooled> files;
    descriptor const     folder = own_folder(path);
    if (folder) {
        each_in(folder, path, [&](spooled const& file) { files.push_back(file); });
    }
    std::sort(files.begin(), files.end());
    return files;
}

look look_at_file(int folder, std::string const& name)
{
    descriptor const opened(
        ::openat(folder, name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    struct stat status = {};
    if (!opened || ::fstat(opened.get(), &status) != 0) {
        switch (errno) {
        case ENOENT:
            return look::gone;
        case EMFILE:
        case ENFILE:
        case ENOMEM:
            return look::not_now;
        case EACCES:
        case EPERM:
            return look::unreadable;
        case ELOOP:
        case EMLINK:
        case ENXIO:
            return look::no_message;
        default:
            return look::ready;  // the engine will say what is wrong
        }
    }
    if (!S_ISREG(status.st_mode) || status.st_nlink > 1) {
        return look::no_message;
    }
    std::time_t const age = std::time(nullptr) - modified(status).tv_sec;
    if (status.st_size == 0 && age < empty_s) {
        return look::in_use;  // its lock is not asked for: its writer may be about to take it
    }
    bool const is_locked =
        age < locked_s && ::flock(opened.get(), LOCK_SH | LOCK_NB) != 0 && errno == EWOULDBLOCK;
    if (is_locked) {
        return look::in_use;
    }
    // Only now: whoever sends it deletes it before unlocking it.
    return ::fstat(opened.get(), &status) == 0 && status.st_nlink == 0 ? look::gone : look::ready;
}

// What a folder keeps under a name: reasons, best effort.
std::string kept_in(std::string const& path, std::string const& name)
{
    descriptor const folder = folder_if_any(path);
    descriptor const file(
        folder && is_name(name)
            ? ::openat(folder.get(), name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC)
            : -1);
    struct stat status = {};
    std::string text;
    if (file && ::fstat(file.get(), &status) == 0 && status.st_size <= largest_reason) {
        text.resize(static_cast<std::size_t>(status.st_size));
        ssize_t const got = ::read(file.get(), text.data(), text.size());
        text.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
    }
    return text;
}

void keep_in(std::string const& path, std::string const& name, std::string const& text)
{
    descriptor const folder = folder_if_any(path);
    if (folder && is_name(name)) {
        write_file(folder.get(), name, text);
    }
}

void forget_in(std::string const& path, std::string const& name)
{
    descriptor const folder = folder_if_any(path);
    if (folder && is_name(name)) {
        ::unlinkat(folder.get(), name.c_str(), 0);
    }
}

// Runs a move into or within a folder; a folder that may not be used is an error like others.
template <class Move>
int in_folder(std::string const& path, Move&& move)
{
    try {
        descriptor const folder = made_folder(path);
        return move(folder.get()) == 0 ? 0 : errno;
    } catch (failure const&) {
        return EIO;
    }
}

}  // namespace

bool is_message_name(std::string const& name)
{
    return name.find(message_ending) != name.npos;
}

std::string another_name(std::string const& name)
{
    std::size_t const sign   = name.rfind('~');
    std::string       base   = name;
    unsigned long     number = 1;
    if (sign != name.npos && sign + 1 < name.size() && name.size() - sign < 10 &&
        std::all_of(name.begin() + static_cast<std::ptrdiff_t>(sign) + 1, name.end(),
                    [](unsigned char c) { return std::isdigit(c) != 0; })) {
        number = std::strtoul(name.c_str() + sign + 1, nullptr, 10);
        base   = name.substr(0, sign);
    }
    std::string const ending = "~" + std::to_string(number + 1);
    if (base.size() + ending.size() > NAME_MAX) {
        // Room is made at the beginning, or where ".sme" is not.
        std::size_t const excess = base.size() + ending.size() - NAME_MAX;
        base.erase(base.find(message_ending) >= excess ? 0 : base.size() - excess, excess);
    }
    return base + ending;
}

bool operator<(spooled const& a, spooled const& b)
{
    timespec const a_time = modified(a.status);
    timespec const b_time = modified(b.status);
    return std::tie(a_time.tv_sec, a_time.tv_nsec, a.name) <
           std::tie(b_time.tv_sec, b_time.tv_nsec, b.name);
}

void spool::make() const
{
    struct stat      top = {};
    struct stat      sub = {};
    descriptor const service(made_folder(workdir_ + service_folder));
    descriptor const engine(made_folder(engine_path()));
    made_folder(workdir_ + reasons_folder);
    made_folder(workdir_ + waiting_reasons);
    made_folder(workdir_ + other_reasons);
    for (std::string const& path : {held_path(), undelivered_path()}) {
        descriptor const folder(made_folder(path));
        if (::stat(workdir_.c_str(), &top) == 0 && ::fstat(folder.get(), &sub) == 0 &&
            top.st_dev != sub.st_dev) {
            throw failure(EX_CONFIG, path + " is on another file system: messages cannot be moved "
                                            "there");
        }
    }
    char          target[sizeof settings_link + 1];
    ssize_t const length = ::readlinkat(engine.get(), settings_name, target, sizeof target);
    if (length == static_cast<ssize_t>(sizeof settings_link - 1) &&
        std::equal(target, target + length, settings_link)) {
        return;
    }
    if ((length >= 0 || errno != ENOENT) && ::unlinkat(engine.get(), settings_name, 0) != 0) {
        throw failure(EX_CANTCREAT, engine_path() + "/" + settings_name, errno, give_it_another);
    }
    if (::symlinkat(settings_link, engine.get(), settings_name) != 0) {
        throw failure(EX_CANTCREAT, engine_path() + "/" + settings_name, errno, make_it_writable);
    }
}

bool spool::is_whole() const
{
    struct stat      status = {};
    descriptor const service(own_folder(workdir_ + service_folder));
    descriptor const engine(own_folder(engine_path()));
    descriptor const held(own_folder(held_path()));
    descriptor const undelivered(own_folder(undelivered_path()));
    descriptor const reasons(own_folder(workdir_ + reasons_folder));
    descriptor const waiting(own_folder(workdir_ + waiting_reasons));
    descriptor const others(own_folder(workdir_ + other_reasons));
    return service && engine && held && undelivered && reasons && waiting && others &&
           ::fstatat(engine.get(), settings_name, &status, AT_SYMLINK_NOFOLLOW) == 0;
}

void spool::each(std::function<void(spooled const& file)> const& proc) const
{
    descriptor const folder(::open(workdir_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!folder) {
        throw failure(EX_NOINPUT, "the work directory " + workdir_, errno,
                      "run zelieml as a user who may read it");
    }
    each_in(folder, workdir_, proc);
}

std::vector<spooled> spool::held() const
{
    return all_in(held_path());
}

std::vector<spooled> spool::undelivered() const
{
    return all_in(undelivered_path());
}

look spool::look_at(std::string const& name) const
{
    return look_at_file(AT_FDCWD, path_of(name));
}

look spool::look_at_held(std::string const& file) const
{
    return look_at_file(AT_FDCWD, held_path(file));
}

int spool::take(std::string const& name, held_name const& as) const
{
    return in_folder(held_path(), [&](int folder) {
        return ::renameat(AT_FDCWD, path_of(name).c_str(), folder, as.file().c_str());
    });
}

int spool::rename_held(std::string const& file, held_name const& as) const
{
    std::lock_guard<std::mutex> const alone(guard_);
    held_name const                   before  = held_name::of(file);
    bool const                        carries = before.key() != as.key();
    int const                         error   = in_folder(held_path(), [&](int folder) {
        return ::renameat(folder, file.c_str(), folder, as.file().c_str());
    });
    if (error == 0 && carries) {
        carry_reason(before, as);
    }
    return error;
}

// Nothing tells when there is no memory for it: its message has the new name.
void spool::carry_reason(held_name const& from, held_name const& to) const noexcept
{
    try {
        std::string const known = reason(from);
        if (!known.empty() && reason(to).empty()) {
            keep_in(workdir_ + waiting_reasons, to.key(), known);
        }
        forget_in(workdir_ + waiting_reasons, from.key());
    } catch (std::exception const&) {
    }
}

int spool::give_up(std::string const& file, std::string const& reason, std::string& there) const
{
    std::lock_guard<std::mutex> const alone(guard_);
    std::string                       name  = held_name::of(file).posted;
    std::string const                 from  = held_path(file);
    int const                         error = in_folder(undelivered_path(), [&](int folder) {
        while (is_there(folder, name)) {
            name = another_name(name);
        }
        if (!reason.empty()) {
            keep_in(workdir_ + other_reasons, name, reason);
        }
        int const moved = ::renameat(AT_FDCWD, from.c_str(), folder, name.c_str());
        if (moved != 0) {
            int const why = errno;
            forget_in(workdir_ + other_reasons, name);
            errno = why;
        }
        return moved;
    });
    if (error == 0) {
        there = std::move(name);
        forget_in(workdir_ + waiting_reasons, held_name::of(file).key());
    }
    return error;
}

int spool::remove_held(std::string const& file) const
{
    int const error = ::unlink(held_path(file).c_str()) == 0 ? 0 : errno;
    forget_in(workdir_ + waiting_reasons, held_name::of(file).key());
    return error;
}

std::string spool::reason(held_name const& name) const
{
    return kept_in(workdir_ + waiting_reasons, name.key());
}

std::string spool::undelivered_reason(std::string const& name) const
{
    return kept_in(workdir_ + other_reasons, name);
}

void spool::keep_reason(held_name const& name, std::string const& text) const
{
    std::lock_guard<std::mutex> const alone(guard_);
    keep_in(workdir_ + waiting_reasons, name.key(), text);
}

void spool::forget_old_reasons() const
{
    std::set<std::string> keys;
    for (spooled const& file : held()) {
        keys.insert(held_name::of(file.name).key());
    }
    auto const forget = [&](std::string const& path, auto&& is_old) {
        for (spooled const& file : all_in(path)) {
            if (is_old(file.name)) {
                forget_in(path, file.name);
            }
        }
    };
    forget(workdir_ + waiting_reasons,
           [&](std::string const& name) { return keys.count(name) == 0; });
    forget(workdir_ + other_reasons,
           [&](std::string const& name) { return !is_there(AT_FDCWD, undelivered_path(name)); });
}

std::string spool::put_back(std::string const& name) const
{
    descriptor const folder = own_folder(undelivered_path());
    std::string      back =
        folder && is_name(name) ? move_back(folder.get(), name, undelivered_path(name), name) : "";
    if (!back.empty()) {
        forget_in(workdir_ + other_reasons, name);
    }
    return back;
}

std::string spool::put_back_held(std::string const& file) const
{
    held_name const  name   = held_name::of(file);
    descriptor const folder = own_folder(held_path());
    std::string      back =
        folder && is_name(file) ? move_back(folder.get(), file, held_path(file), name.posted) : "";
    if (!back.empty()) {
        forget_in(workdir_ + waiting_reasons, name.key());
    }
    return back;
}

std::string spool::move_back(int folder, std::string const& name, std::string const& path,
                             std::string const& like) const
{
    if (!is_there(folder, name)) {
        return "";
    }
    std::string back = claim_another(like);
    if (back.empty()) {
        throw failure(EX_CANTCREAT, "a message file in " + workdir_, errno, make_it_writable);
    }
    if (::renameat(folder, name.c_str(), AT_FDCWD, path_of(back).c_str()) != 0) {
        int const error = errno;
        ::unlink(path_of(back).c_str());
        if (error == ENOENT) {
            return "";
        }
        throw failure(EX_CANTCREAT, path, error, make_it_writable);
    }
    return back;
}

std::string spool::claim_another(std::string const& name) const
{
    std::string another = another_name(name);
    int         made    = -1;
    while ((made = ::open(path_of(another).c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC,
                          S_IRUSR | S_IWUSR)) < 0 &&
           errno == EEXIST) {
        another = another_name(another);
    }
    if (made < 0) {
        return "";
    }
    ::close(made);
    return another;
}

namespace
{

// Returns false when there is no such file. Throws a failure when it cannot be deleted.
bool delete_file(std::string const& path)
{
    if (::unlink(path.c_str()) == 0) {
        return true;
    }
    if (errno == ENOENT) {
        return false;
    }
    int const   error  = errno;
    struct stat status = {};
    if (::lstat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode)) {
        throw failure(EX_CANTCREAT, path + " is a directory: remove it by hand");
    }
    throw failure(EX_CANTCREAT, path, error, "run zelieml as a user who may delete it");
}

}  // namespace

bool spool::drop(std::string const& name) const
{
    return is_name(name) && is_message_name(name) && delete_file(path_of(name));
}

bool spool::drop_held(std::string const& file) const
{
    bool const dropped = own_folder(held_path()) && is_name(file) && delete_file(held_path(file));
    if (dropped) {
        forget_in(workdir_ + waiting_reasons, held_name::of(file).key());
    }
    return dropped;
}

bool spool::drop_undelivered(std::string const& name) const
{
    bool const dropped =
        own_folder(undelivered_path()) && is_name(name) && delete_file(undelivered_path(name));
    if (dropped) {
        forget_in(workdir_ + other_reasons, name);
    }
    return dropped;
}

namespace
{

// Throws a failure when a service holds the lock.
void expect_lock(descriptor const& file, int kind, spool const& place)
{
    if (::flock(file.get(), kind | LOCK_NB) == 0) {
        return;
    }
    char          owner[32] = "";
    ssize_t const got       = ::pread(file.get(), owner, sizeof owner - 1, 0);
    int const     process   = got > 0 ? std::atoi(owner) : 0;
    throw failure(EX_TEMPFAIL, place.workdir() + " has a service already" +
                                   (process > 0 ? ", the process " + std::to_string(process) : "") +
                                   ": end that one first");
}

}  // namespace

service_lock::service_lock(spool const& place, bool is_shared)
{
    std::string const path = place.workdir() + service_folder + "/" + lock_name;
    do {
        descriptor const folder = made_folder(place.workdir() + service_folder);
        file_                   = descriptor(::openat(folder.get(), lock_name,
                                                      O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, S_IRUSR | S_IWUSR));
        if (!file_) {
            throw failure(EX_CANTCREAT, path, errno, make_it_writable);
        }
        expect_lock(file_, is_shared ? LOCK_SH : LOCK_EX, place);
    } while (!is_valid(place));  // its folder was removed in between
    std::string const process = std::to_string(::getpid()) + "\n";
    if (::ftruncate(file_.get(), 0) != 0 ||
        ::pwrite(file_.get(), process.data(), process.size(), 0) < 0) {
        return;  // a full disk: the lock holds without the number
    }
}

bool service_lock::is_valid(spool const& place) const
{
    struct stat held  = {};
    struct stat named = {};
    return ::fstat(file_.get(), &held) == 0 &&
           ::lstat((place.workdir() + service_folder + "/" + lock_name).c_str(), &named) == 0 &&
           same_file(held, named);
}

}  // namespace zelieml::program
