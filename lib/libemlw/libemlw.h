// libemlw.h - posting messages
//
// A post writes the message into the work directory under a name of its own. A synchronous post
// sends it from there at once.

#ifndef ZELIEML_LIBEMLW_LIBEMLW_H
#define ZELIEML_LIBEMLW_LIBEMLW_H

#include <cstddef>
#include <string>

namespace zelieml
{

// Bytes of a buffer for the full path of a new message file, its NUL included.
constexpr std::size_t fullpath_size = 255;

// conf_fullpath - the path of a work directory's settings file
std::string conf_fullpath(std::string const& workdir);

// create_fullpath - find a name for a new message file and claim it
//
// workdir  work directory
// out      receives the path: the directory, local time to the second, microseconds, process id
//
// The file is created, empty, so that nobody else gets the same name; one that exists leads to a
// second name, with a backslash for a separator and the year plus one. Only "exists" counts as
// taken: when the file cannot be created for another reason, the name is given out all the same,
// for the save to report it.
//
// Returns 0. Returns -1 when both names are taken, or when one does not fit. Any thread or
// process.
int create_fullpath(char const* workdir, char (&out)[fullpath_size]);

class ifactory_eml
{
public:
    // post_sync - send a message now, on the caller's thread
    //
    // workdir  work directory
    // msg      message record; stays the caller's
    // result   receives a result record, the caller's to free with cb_destroy; null when there
    //          was no memory for one
    //
    // Returns 0 when the message was sent, -1 otherwise. The message file is gone afterwards; a
    // part of it is left behind when saving failed after some of it had been written.
    virtual int post_sync(char const* workdir, void* msg, void** result) = 0;
};

class ifactory_emlw final : public ifactory_eml
{
public:
    int post_sync(char const* workdir, void* msg, void** result) override;
};

}  // namespace zelieml

#endif
