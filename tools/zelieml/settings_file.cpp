// settings_file.cpp - the settings file as the library reads it, and how it is changed

#include "tools/zelieml/settings_file.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <fcntl.h>
#include <set>
#include <sys/file.h>
#include <sys/stat.h>
#include <sysexits.h>
#include <thread>
#include <unistd.h>

#include "tools/zelieml/failure.h"
#include "tools/zelieml/setting_keys.h"
#include "zelieml.h"

namespace zelieml::program
{

namespace
{

constexpr std::size_t longest_line = 1023;  // with its CR

constexpr auto lock_limit = std::chrono::seconds(10);
constexpr auto lock_pause = std::chrono::milliseconds(20);

constexpr char blanks[] = " \t";

// What the library sees of a line.
std::string seen(std::string const& line)
{
    return line.substr(0, line.find('\0'));
}

bool is_comment(std::string const& line)
{
    return !line.empty() && line[0] == '#';
}

bool is_line_of(std::string const& line, std::string const& key)
{
    return !is_comment(line) && seen(line).find(key) != std::string::npos;
}

std::string trimmed(std::string const& text)
{
    constexpr char    ends[] = " \t\r";
    std::size_t const first  = text.find_first_not_of(ends);
    return first == text.npos ? "" : text.substr(first, text.find_last_not_of(ends) + 1 - first);
}

// What its writer takes for the key of a line; empty for a comment.
std::string key_of(std::string const& line)
{
    return is_comment(line) ? "" : trimmed(seen(line).substr(0, seen(line).find('=')));
}

// Whether a line says nothing but the value of a key: the key, blanks and "=", and no NUL.
bool is_own_line_of(std::string const& line, std::string const& key)
{
    std::size_t const sign = line.find_first_not_of(blanks, key.size());
    return line.compare(0, key.size(), key) == 0 && sign != line.npos && line[sign] == '=' &&
           seen(line) == line;
}

reading reading_of(std::string const& whole, std::size_t number)
{
    std::string const line = seen(whole);
    std::size_t const sign = line.find('=');
    if (sign == line.npos) {
        return {number, key_of(line), "", false, false};
    }
    std::string rest  = line.substr(sign + 1);
    rest              = rest.substr(std::min(rest.find_first_not_of(blanks), rest.size()));
    bool const has_cr = !rest.empty() && rest.back() == '\r';
    rest.resize(rest.empty() ? 0 : rest.size() - 1);
    return {number, key_of(line), rest, true, has_cr};
}

// The bytes of the settings file; nothing when there is none.
std::optional<std::string> read_bytes(std::string const& path)
{
    descriptor const file(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    struct stat      is = {};
    if (!file && errno == ENOENT) {
        if (::lstat(path.c_str(), &is) != 0) {
            return std::nullopt;
        }
        throw failure(EX_CONFIG, path + " is a link that leads nowhere: remove it");
    }
    if (!file || ::fstat(file.get(), &is) != 0) {
        throw failure(EX_CONFIG, path, errno, "let its owner look at it");
    }
    if (!S_ISREG(is.st_mode)) {
        throw failure(EX_CONFIG, path + " is not a regular file: replace it by one");
    }
    std::string bytes;
    char        piece[4096];
    ssize_t     got = 0;
    while ((got = ::read(file.get(), piece, sizeof piece)) > 0) {
        bytes.append(piece, static_cast<std::size_t>(got));
    }
    if (got < 0) {
        throw failure(EX_CONFIG, path, errno, "look at the disk");
    }
    return bytes;
}

[[noreturn]] void fail_to_write(std::string const& path, int error)
{
    throw failure(EX_CANTCREAT, path, error, "it is as it was; look at its rights and at the disk");
}

// A link that a stranger put there may lead to a file whose rights are not meant for passwords.
void refuse_strange_link(std::string const& path)
{
    struct stat link   = {};
    struct stat target = {};
    if (::lstat(path.c_str(), &link) == 0 && S_ISLNK(link.st_mode) && link.st_uid != ::geteuid() &&
        ::stat(path.c_str(), &target) == 0 && link.st_uid != target.st_uid) {
        throw failure(EX_CONFIG, path + " is a link of another user: replace it by a file");
    }
}

// A copy of the settings file, with its owner and rights, that nobody else can see. One that a
// killed program has left is removed; changes are made one at a time.
class private_copy
{
public:
    explicit private_copy(std::string const& workdir)
        : folder_(workdir + "/.settings-" + std::to_string(::geteuid())),
          path_(settings_path(folder_))
    {
        remove();
        if (::mkdir(folder_.c_str(), S_IRWXU) != 0) {
            throw failure(EX_CANTCREAT, folder_, errno,
                          errno == EEXIST ? "remove it, it is not a folder of this program"
                                          : "let its owner change the settings");
        }
    }
    ~private_copy() { remove(); }
    private_copy(private_copy const&)            = delete;
    private_copy& operator=(private_copy const&) = delete;

    // The library replaces a link by a file with the contents, the owner and the rights of what it
    // leads to.
    void make(std::string const& original, std::string const& key, std::string const& value) const
    {
        if (::symlink(original.c_str(), path_.c_str()) != 0) {
            fail_to_write(original, errno);
        }
        if (eml_cf_set_string(key.c_str(), value.c_str(), path_.c_str()) != 0) {
            throw failure(EX_CANTCREAT, original + " cannot be written: its owner or root can, "
                                                   "if there is room on the disk");
        }
    }

    void fill(std::string const& original, std::string const& bytes) const
    {
        descriptor const file(::open(path_.c_str(), O_WRONLY | O_TRUNC | O_NOFOLLOW | O_CLOEXEC));
        std::size_t      done = 0;
        while (file && done < bytes.size()) {
            ssize_t const put = ::write(file.get(), bytes.data() + done, bytes.size() - done);
            if (put < 0) {
                break;
            }
            done += static_cast<std::size_t>(put);
        }
        if (!file || done < bytes.size() || ::fsync(file.get()) != 0) {
            fail_to_write(original, errno);
        }
    }

    void rename_to(std::string const& original) const
    {
        if (::rename(path_.c_str(), original.c_str()) != 0) {
            fail_to_write(original, errno);
        }
    }

    // As the library reads it.
    std::string read(std::string const& key) const
    {
        char         value[longest_line + 1];
        unsigned int length = sizeof value;
        return eml_cf_get_string(key.c_str(), value, &length, path_.c_str()) == 0 ? value : "";
    }

private:
    void remove() const
    {
        descriptor const folder(
            ::open(folder_.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        struct stat is = {};
        if (!folder || ::fstat(folder.get(), &is) != 0 || is.st_uid != ::geteuid()) {
            return;
        }
        for (char const* const name : {"zelismes.cf", "zelismes.cf.tmp"}) {
            ::unlinkat(folder.get(), name, 0);
        }
        ::rmdir(folder_.c_str());
    }

    std::string folder_;
    std::string path_;
};

descriptor lock_directory(std::string const& workdir)
{
    descriptor directory(::open(workdir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!directory) {
        throw failure(EX_CANTCREAT, workdir, errno, "let its owner change the settings");
    }
    auto const end = std::chrono::steady_clock::now() + lock_limit;
    while (::flock(directory.get(), LOCK_EX | LOCK_NB) != 0) {
        if (errno != EWOULDBLOCK && errno != EINTR) {
            throw failure(EX_CANTCREAT, workdir, errno, "it cannot be locked");
        }
        if (std::chrono::steady_clock::now() > end) {
            throw failure(EX_TEMPFAIL, workdir + " is locked: look for another program that "
                                                 "changes its settings, and try again");
        }
        std::this_thread::sleep_for(lock_pause);
    }
    return directory;
}

}  // namespace

std::string set_command(std::string const& key)
{
    setting_key const* const known = find_setting(key);
    bool const               asks  = known != nullptr && known->kind == setting_kind::password;
    return "(zelieml settings set " + key + (asks ? ")" : " VALUE)");
}

settings_text::settings_text(std::string const& bytes)
{
    for (std::size_t begin = 0; begin < bytes.size();) {
        std::size_t const end = std::min(bytes.find('\n', begin), bytes.size());
        lines_.push_back(bytes.substr(begin, end - begin));
        begin = end + 1;
    }
    auto const too_long = std::find_if(lines_.begin(), lines_.end(), [](std::string const& line) {
        return line.size() > longest_line;
    });
    readable_           = static_cast<std::size_t>(too_long - lines_.begin());
}

std::string settings_text::bytes() const
{
    std::string all;
    for (std::string const& line : lines_) {
        all += line + "\n";
    }
    return all;
}

std::size_t settings_text::index_of(std::string const& key) const
{
    for (std::size_t i = 0; i < readable_; ++i) {
        if (is_line_of(lines_[i], key)) {
            return i;
        }
    }
    return lines_.size();
}

std::optional<reading> settings_text::read(std::string const& key) const
{
    std::size_t const index = index_of(key);
    if (index == lines_.size()) {
        return std::nullopt;
    }
    return reading_of(lines_[index], index + 1);
}

std::size_t settings_text::contested(std::string const& key) const
{
    std::size_t const own = index_of(key);
    for (std::size_t i = 0; i < lines_.size(); ++i) {
        std::string const& line = lines_[i];
        bool const fits = own < lines_.size() && line == lines_[own] && is_own_line_of(line, key);
        if (!fits && !is_comment(line) && line.find(key) != line.npos) {
            return i + 1;
        }
    }
    return 0;
}

std::string settings_text::bitten_by(std::size_t index, settings_text const& before) const
{
    std::set<std::string> keys;
    for (setting_key const& known : setting_keys()) {
        keys.insert(known.name);
    }
    for (std::string const& line : before.lines_) {
        keys.insert(key_of(line));
    }
    keys.erase("");
    keys.erase(key_of(lines_[index]));
    for (std::string const& key : keys) {
        std::optional<reading> const was = before.read(key);
        bool const                   own = was && was->key == key;
        if (index_of(key) == index && (own || find_setting(key) != nullptr)) {
            return key;
        }
    }
    return "";
}

void settings_text::set(std::string const& key, std::string const& value)
{
    if (overlong() != 0) {
        throw failure(EX_CONFIG, "line " + std::to_string(overlong()) +
                                     " of the settings file is longer than 1023 bytes and hides "
                                     "all that follow: shorten it with an editor");
    }
    settings_text              others;
    std::optional<std::size_t> place;
    for (std::string const& line : lines_) {
        if (key_of(line) != key) {
            others.lines_.push_back(line);
        } else if (!place) {
            place = others.lines_.size();
        }
    }
    others.readable_ = others.lines_.size();

    // Its old place, or the last one before which no line contains the key: there it is in the way
    // of the fewest others.
    std::size_t const last = others.index_of(key);
    std::string const own  = key + " = " + value + "\r";
    std::string       bitten;
    for (std::size_t const index : {std::min(place.value_or(last), last), last}) {
        settings_text changed = others;
        changed.lines_.insert(changed.lines_.begin() + static_cast<std::ptrdiff_t>(index), own);
        ++changed.readable_;
        bitten = changed.bitten_by(index, *this);
        if (bitten.empty()) {
            *this = changed;
            return;
        }
    }
    std::optional<reading> const was = read(bitten);
    throw failure(EX_CONFIG,
                  "the line of " + key + " would contain \"" + bitten +
                      "\" and be read for that key: " +
                      (was && was->key == bitten ? "choose another value"
                                                 : "set that key first " + set_command(bitten)));
}

std::string settings_path(std::string const& workdir)
{
    return workdir + "/zelismes.cf";
}

settings_text read_settings(std::string const& workdir)
{
    std::string const                path  = settings_path(workdir);
    std::optional<std::string> const bytes = read_bytes(path);
    if (!bytes) {
        throw failure(EX_CONFIG, path + " is missing: make it " + set_command("smtp_server"));
    }
    return settings_text(*bytes);
}

std::string needed(settings_text const& settings, std::string const& key,
                   std::string const& workdir)
{
    std::string const            path  = settings_path(workdir);
    std::optional<reading> const found = settings.read(key);
    if (!found) {
        setting_key const* const known = find_setting(key);
        throw failure(EX_CONFIG, key + " is missing in " + path +
                                     ", which means: " + known->missing +
                                     (settings.overlong() != 0
                                          ? "; line " + std::to_string(settings.overlong()) +
                                                " is too long and hides what follows: shorten it"
                                          : ": set it " + set_command(key)));
    }
    std::string const line = path + ", line " + std::to_string(found->line);
    if (found->key != key) {
        throw failure(EX_CONFIG, line + " contains \"" + key + "\" and is read for that key: set " +
                                     key + " " + set_command(key));
    }
    if (!found->has_sign || !found->has_cr) {
        throw failure(EX_CONFIG, line + ", " + key + ": " +
                                     (found->has_sign ? "its CR is missing, so the last character "
                                                        "of the value is lost"
                                                      : "it has no \"=\"") +
                                     ": set it anew " + set_command(key));
    }
    return found->value;
}

bool are_clear(settings_text const& settings)
{
    std::optional<reading> const raw = settings.read("passwd_raw");
    return raw && raw->has_sign && raw->value != "no";
}

settings_change::settings_change(std::string const& workdir)
    : workdir_(workdir), lock_(lock_directory(workdir)),
      before_(read_bytes(settings_path(workdir))), settings_(before_.value_or(""))
{
    refuse_strange_link(settings_path(workdir));
}

void settings_change::write(std::string const& key, std::string const& value)
{
    std::string const path = settings_path(workdir_);
    if (before_) {
        replace(key, value);
    } else if (eml_cf_set_string(key.c_str(), value.c_str(), path.c_str()) != 0) {
        throw failure(EX_CANTCREAT, path + " cannot be made: look at the rights of the directory "
                                           "and at the disk");
    }
    // The new name is on the disk, too; whether or not it can be asked for.
    ::fsync(lock_.get());
}

void settings_change::replace(std::string const& key, std::string const& value)
{
    std::string const  path = settings_path(workdir_);
    private_copy const copy(workdir_);
    copy.make(path, key, value);
    copy.fill(path, settings_.bytes());
    if (copy.read(key) != value) {
        throw failure(EX_SOFTWARE, path + " would not be read as it is meant: it is as it was");
    }
    if (read_bytes(path) != before_) {
        throw failure(EX_TEMPFAIL, path + " was changed by another program meanwhile: try again");
    }
    copy.rename_to(path);
}

}  // namespace zelieml::program
