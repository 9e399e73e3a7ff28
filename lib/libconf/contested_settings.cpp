// contested_settings.cpp - whether a settings file may say more of a key than what is read

#include "libconf/libconf.h"

#include <algorithm>
#include <cstring>
#include <unistd.h>

#include "libconf/settings_lines.h"

namespace zelieml
{

namespace
{

// How much of a file with overlong lines or NULs is looked at: others who may write to the work
// directory can make a file of any size there.
constexpr off_t most_searched = off_t{16} << 20;

}  // namespace

// Lines of any length, with anything in them. Those that may be the one that find has are seen whole;
// of others the pieces overlap by more than a key.
void conf_settings::look_for_hidden(int file, off_t its_size)
{
    constexpr std::size_t longest = 1024;
    constexpr std::size_t overlap = 64;
    char                  bytes[4096];
    std::size_t           size    = 0;
    off_t                 at      = 0;
    ssize_t               got     = 0;
    bool                  begins  = true;
    bool                  comment = false;
    do {
        got = ::pread(file, bytes + size, sizeof bytes - size, at);
        at += got;
        std::string_view rest(bytes, size + static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
        while (!rest.empty()) {
            std::size_t const end = rest.find('\n');
            if (end == rest.npos && got > 0 && rest.size() <= longest) {
                break;
            }
            comment = begins ? rest[0] == '#' : comment;
            if (!comment) {
                note_hidden(rest.substr(0, end), begins && (end != rest.npos || got == 0));
            }
            begins = end != rest.npos;
            rest.remove_prefix(begins ? end + 1 : rest.size() - std::min(rest.size(), overlap));
            if (!begins) {
                break;
            }
        }
        size = rest.size();
        std::memmove(bytes, rest.data(), size);
    } while (got > 0 && at < most_searched);
    whole_ = whole_ && got == 0 && at >= its_size;
}

// part      of a line
// is_whole  whether it is all of it: only then it can be a copy
void conf_settings::note_hidden(std::string_view part, bool is_whole)
{
    for (asked_key& key : keys_) {
        key.hidden = key.hidden || (part.find(key.name) != std::string_view::npos &&
                                    !(is_whole && key.line != no_line && part == line_of(key)));
        hidden_    = hidden_ || key.hidden;
    }
}

bool conf_settings::hides(char const* key) const
{
    if (!whole_) {
        return true;
    }
    asked_key const* const known = hidden_ ? asked(key) : nullptr;
    return known != nullptr && known->hidden;
}

bool conf_settings::is_contested(char const* key) const
{
    asked_key const* const known = asked(key);
    return known != nullptr && known->line != no_line &&
           (known->elsewhere || !is_own_line_of(line_of(*known), key));
}

}  // namespace zelieml
