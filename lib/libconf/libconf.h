// libconf.h - the settings file: one line for a key and its value
//
// A line is written as the key, " = ", the value, CR, LF. A line that begins with "#" is a comment.
// Any other line belongs to every key that it contains anywhere, and a key is read from the first
// line that contains it: with "smtp_auth_type = auto" above "smtp_auth = yes", the key smtp_auth
// has the value auto. Deliberate, see docs/ODDITIES.md.
//
// Lines have at most 1023 characters, the CR included. Reading ends at a longer one.
//
// Threads and processes: any, but nothing synchronises them. A reader that comes just when a writer
// replaces the file finds none; otherwise it reads the old file or the new one. Two writers at the
// same time use the same name for their temporary files: they can fail, lose each other's change,
// or lose other settings, in the worst case all. Allow only one writer at a time.

#ifndef ZELIEML_LIBCONF_LIBCONF_H
#define ZELIEML_LIBCONF_LIBCONF_H

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

namespace zelieml
{

// What a settings file says at one moment, for callers that need several keys: the file is opened,
// read and closed once, and all values come from the same version of it. Only the lines of these
// keys are kept in memory, however large the file is.
class conf_settings
{
public:
    // path  settings file; null, or one that conf_get_string cannot open, gives no settings
    // keys  path and keys must stay while the object is used
    conf_settings(char const* path, std::initializer_list<char const*> keys);

    bool        has_path() const { return path_ != nullptr; }
    char const* path() const { return path_; }
    // Why the file could not be opened or read, as errno: EINVAL for a pipe or a device; 0 if it
    // could.
    int error() const { return error_; }
    // Whether the file could be opened.
    explicit operator bool() const { return opened_; }

    // The line that conf_get_string reads a key from, or null. Other keys than those given to the
    // constructor have none.
    char const* find(char const* key) const;

    // Whether the file was read to its end, and did not become shorter meanwhile. One with overlong
    // lines or NULs is read up to 16 MiB.
    bool is_whole() const { return whole_; }

    // Whether a key may stand where find does not look: the file is not whole, or the key is behind
    // a NUL, or in or behind an overlong line. Comments do not count, nor copies of the line that
    // find has.
    bool hides(char const* key) const;

    // Whether lines that can be read disagree on a key: the one that find has does not begin with
    // the key and "=", or another one contains the key too and is no copy of it.
    bool is_contested(char const* key) const;

private:
    static constexpr std::size_t no_line = static_cast<std::size_t>(-1);

    struct asked_key {
        std::string_view name;
        std::uint64_t    characters;
        std::size_t      line      = no_line;  // where it begins in lines_
        bool             hidden    = false;    // see hides
        bool             elsewhere = false;    // whether a line that is no copy contains it too
    };

    // Keeps a line that contains keys without one.
    void take(char const* line);

    char const* line_of(asked_key const& key) const { return lines_.c_str() + key.line; }

    asked_key const* asked(char const* key) const;

    // Notes which of the keys are where no line of theirs is.
    void look_for_hidden(int file, off_t its_size);
    void note_hidden(std::string_view part, bool is_whole);

    char const*            path_;
    bool                   opened_ = false;
    bool                   whole_  = false;
    bool                   hidden_ = false;  // any key is
    int                    error_  = 0;
    std::vector<asked_key> keys_;
    std::string            lines_;  // each with its NUL
};

// conf_get_string - read the value of a key
//
// key   searched anywhere in a line, case-sensitively
// val   receives the value and its NUL; all *len bytes are cleared once a line was found
// len   in: bytes at val; a value of v characters needs v + 2. Out: length of the value
// path  settings file
//
// The value begins after the first "=" of the line and the blanks and tabs that follow it, and ends
// before the CR; trailing blanks belong to it. A line without CR loses its last character. The file
// is opened and closed by each call; nothing is cached.
//
// Returns 0. Returns -1 with *len 0 when an argument is null, the file cannot be opened or read or
// is not a regular file, no line up to the first overlong one contains the key, or the value does
// not fit. Returns -1 with *len unchanged when the line has no "=".
int conf_get_string(char const* key, char* val, unsigned int* len, char const* path);

// conf_get_string - the same, from settings that have been read
int conf_get_string(char const* key, char* val, unsigned int* len, conf_settings const& settings);

// conf_set_string - set the value of a key
//
// key   not empty, without "#" at its beginning, and without "=", CR and LF: otherwise the value
//       could not be read back
// val   without CR and LF; the line made of key and val has at most 1023 characters. Leading blanks
//       are written but not read back.
// path  settings file. When there is none, one is created with mode 0600, whatever the umask, and
//       if root creates it, with owner and group of its directory. A link that leads nowhere is not
//       followed.
//
// Every line that contains the key is replaced; when there is none, a line is added at the end.
// Comments and all other lines keep their bytes and their order; empty lines are dropped.
//
// The new settings are written to a new file "<path>.tmp", which gets owner, group, permission bits
// and access list of the settings file and is then renamed. If the group or the access list cannot
// be kept, only the owner keeps his rights. Whatever was left or put there is deleted first; only a
// directory with files stays, and the call fails. "<path>.bak" is deleted likewise and never
// written. A symbolic link is replaced by a file; its target stays unchanged. If the link is
// neither this user's nor of the target's owner, only the owner keeps his rights: the target may
// have been protected by its directory.
//
// Returns 0. Returns -1 when an argument is null or breaks a rule above, a line of the file is
// overlong, a file cannot be read, written, removed or renamed, the settings file is not a regular
// file, its owner cannot be kept, or another writer took the temporary file away. The settings file
// is then unchanged, or was created empty. One exception: when the final renaming failed, only
// "<path>.tmp" is left, and it is complete. Nothing repairs this: the next call deletes it and
// begins with an empty file. After other failures "<path>.tmp" may be left too, incomplete.
int conf_set_string(char const* key, char const* val, char const* path);

}  // namespace zelieml

#endif
