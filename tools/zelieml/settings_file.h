// settings_file.h - the settings file as the library reads it, and how it is changed
//
// The library finds a key anywhere in a line, also in another key and in a value, and the first
// line that contains it counts (docs/FORMATS.md). Here this is seen, and never brought about.

#ifndef ZELIEML_TOOLS_ZELIEML_SETTINGS_FILE_H
#define ZELIEML_TOOLS_ZELIEML_SETTINGS_FILE_H

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "tools/descriptor.h"

namespace zelieml::program
{

// The line that counts for a key.
struct reading {
    std::size_t line;      // from 1
    std::string key;       // what stands before its "="
    std::string value;     // as the library reads it
    bool        has_sign;  // the "="; nothing is read without it
    bool        has_cr;    // without it the last character of the value is lost
};

// The lines of a settings file.
class settings_text
{
public:
    explicit settings_text(std::string const& bytes);

    std::string bytes() const;

    // The number, from 1, of the line that is too long and hides all others from itself on; or 0.
    std::size_t overlong() const { return readable_ < lines_.size() ? readable_ + 1 : 0; }

    std::optional<reading> read(std::string const& key) const;

    // contested - a line that the library minds for a key of TLS: the number, from 1, or 0
    //
    // It contains the key and is not the line that is read, nor a copy; or it is that line, but
    // does not begin with the key and "=". Lines that are hidden and bytes behind a NUL count.
    std::size_t contested(std::string const& key) const;

    // set - replaces or adds the line of a key
    //
    // All other lines stay as they are, and each other key is read as before, or from its own line
    // if it was read from another's. Otherwise a failure (EX_CONFIG) says why not, and nothing is
    // changed.
    void set(std::string const& key, std::string const& value);

private:
    settings_text() = default;

    // Of lines_; their number when there is none.
    std::size_t index_of(std::string const& key) const;
    // Whose reading the line at the index would change; empty: nobody's.
    std::string bitten_by(std::size_t index, settings_text const& before) const;

    std::vector<std::string> lines_;  // without their LF
    std::size_t              readable_ = 0;
};

// set_command - how a key is set, in brackets: a remedy
std::string set_command(std::string const& key);

// The settings file of a work directory.
std::string settings_path(std::string const& workdir);

// read_settings - the settings of a work directory
//
// Throws a failure (EX_CONFIG) when the file is missing or cannot be read.
settings_text read_settings(std::string const& workdir);

// needed - what is read for a key
//
// Throws a failure (EX_CONFIG) when it is missing, or is read from another key's line or without
// its last character.
std::string needed(settings_text const& settings, std::string const& key,
                   std::string const& workdir);

// are_clear - whether the passwords are stored in clear text
bool are_clear(settings_text const& settings);

// Changes the settings of a work directory. Other programs of this kind wait meanwhile; those that
// write by the library do not, but what they write is not lost.
class settings_change
{
public:
    // Throws a failure: EX_TEMPFAIL when another change takes long.
    explicit settings_change(std::string const& workdir);

    // The settings to be changed; empty where there are none yet.
    settings_text& settings() { return settings_; }

    // write - puts the changed settings in the place of the old ones, all at once
    //
    // key, value  one that was changed
    //
    // The file keeps its owner and rights; a new one is its owner's only. Throws a failure, and
    // leaves the file as it was: EX_CANTCREAT when it cannot be written, EX_TEMPFAIL when somebody
    // else has changed it meanwhile.
    void write(std::string const& key, std::string const& value);

private:
    void replace(std::string const& key, std::string const& value);

    std::string                workdir_;
    descriptor                 lock_;
    std::optional<std::string> before_;  // the file's bytes, if there was one
    settings_text              settings_;
};

}  // namespace zelieml::program

#endif
