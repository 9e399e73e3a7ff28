#include "tools/mailserver/mail_store.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <mutex>
#include <sstream>
#include <stdexcept>
#include <unistd.h>

namespace zelieml::mailserver
{

namespace
{

namespace fs = std::filesystem;

long long microseconds_now()
{
    return std::chrono::duration_cast<std::chrono::microseconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

class memory_store final : public mail_store
{
public:
    void add(std::string const& text) override
    {
        std::lock_guard<std::mutex> hold(guard_);
        // Padded, so that the map's order is that of arrival.
        char id[48];
        std::snprintf(id, sizeof id, "%012llu.%lld", ++count_, started_);
        mails_[id] = text;
    }

    std::vector<entry> list() override
    {
        std::lock_guard<std::mutex> hold(guard_);
        std::vector<entry>          result;
        for (auto const& [id, text] : mails_) {
            result.push_back({id, text.size()});
        }
        return result;
    }

    std::optional<std::string> read(std::string const& id) override
    {
        std::lock_guard<std::mutex> hold(guard_);
        auto const                  found = mails_.find(id);
        return found != mails_.end() ? std::optional(found->second) : std::nullopt;
    }

    bool remove(std::string const& id) override
    {
        std::lock_guard<std::mutex> hold(guard_);
        mails_.erase(id);
        return true;
    }

private:
    long long const                    started_ = microseconds_now();
    std::mutex                         guard_;
    unsigned long long                 count_ = 0;
    std::map<std::string, std::string> mails_;
};

// The name of a new file, as the Maildir convention has it: sorts by time, and no two are equal.
std::string fresh_name()
{
    static std::atomic<unsigned> count{0};
    long long const              now = microseconds_now();
    char                         name[96];
    std::snprintf(name, sizeof name, "%lld.M%06lldQ%06uP%ld.localhost", now / 1000000,
                  now % 1000000, ++count, static_cast<long>(::getpid()));
    return name;
}

class maildir_store final : public mail_store
{
public:
    explicit maildir_store(std::string const& directory) : directory_(directory)
    {
        for (char const* const part : {"tmp", "new", "cur"}) {
            std::error_code error;
            fs::create_directories(directory_ / part, error);
            if (error) {
                throw std::runtime_error("cannot make " + (directory_ / part).string() + ": " +
                                         error.message());
            }
        }
    }

    void add(std::string const& text) override
    {
        std::string const name    = fresh_name();
        fs::path const    unready = directory_ / "tmp" / name;
        std::ofstream     out(unready, std::ios::binary);
        out.write(text.data(), static_cast<std::streamsize>(text.size()));
        out.close();
        std::error_code error;
        if (out) {
            fs::rename(unready, directory_ / "new" / name, error);
        }
        if (!out || error) {
            std::error_code ignored;
            fs::remove(unready, ignored);
            throw std::runtime_error("cannot write a mail in " + directory_.string());
        }
    }

    std::vector<entry> list() override
    {
        std::vector<entry> result;
        for (char const* const part : {"new", "cur"}) {
            std::error_code ended;
            for (fs::directory_iterator file(directory_ / part, ended), end; !ended && file != end;
                 file.increment(ended)) {
                std::string const name = file->path().filename().string();
                std::error_code   gone;
                auto const        bytes = file->file_size(gone);
                if (!gone && name[0] != '.') {
                    result.push_back({id_of(name), static_cast<std::size_t>(bytes)});
                }
            }
        }
        std::sort(result.begin(), result.end(),
                  [](entry const& a, entry const& b) { return a.id < b.id; });
        return result;
    }

    std::optional<std::string> read(std::string const& id) override
    {
        std::ifstream in(path_of(id), std::ios::binary);
        if (!in) {
            return std::nullopt;
        }
        std::ostringstream text;
        text << in.rdbuf();
        return text.str();
    }

    bool remove(std::string const& id) override
    {
        fs::path const  path = path_of(id);
        std::error_code error;
        if (!path.empty()) {
            fs::remove(path, error);
        }
        return !error;
    }

private:
    // Mail programs append flags (":2,S") to the name of a mail; it stays the same mail.
    static std::string id_of(std::string const& name) { return name.substr(0, name.find(':')); }

    // Where the mail is now; empty when it is gone.
    fs::path path_of(std::string const& id) const
    {
        for (char const* const part : {"new", "cur"}) {
            std::error_code ended;
            for (fs::directory_iterator file(directory_ / part, ended), end; !ended && file != end;
                 file.increment(ended)) {
                if (id_of(file->path().filename().string()) == id) {
                    return file->path();
                }
            }
        }
        return {};
    }

    fs::path const directory_;
};

}  // namespace

std::unique_ptr<mail_store> make_memory_store()
{
    return std::make_unique<memory_store>();
}

std::unique_ptr<mail_store> make_maildir_store(std::string const& directory)
{
    return std::make_unique<maildir_store>(directory);
}

}  // namespace zelieml::mailserver
