// authorities.cpp - the certificate authorities that are trusted

#include "plugins/tls/gnutls/authorities.h"

#include <algorithm>
#include <chrono>
#include <mutex>
#include <new>
#include <sys/stat.h>
#include <tuple>
#include <utility>
#include <vector>

#include "platform/file_time.h"
#include "platform/trust_store.h"
#include "plugins/tls/ca_file.h"
#include "plugins/tls/failure.h"

namespace zelieml::tls
{

namespace
{

using since_1970 = std::chrono::nanoseconds;

// Which file it is, and as of when.
using version = std::tuple<dev_t, ino_t, off_t, since_1970, since_1970>;

struct entry {
    std::string ca_file;
    version     of;
    credentials held;
};

constexpr std::size_t most_entries = 4;

// Within this time a file can change once more and keep its times: those of file systems are
// coarse.
constexpr std::chrono::seconds unsettled(2);

struct cache {
    std::mutex         lock;
    std::vector<entry> entries;  // the oldest first
};

// Made when the plug-in is loaded: nobody waits for a thread that makes it. Never destroyed: a
// thread may need it while the process exits.
union never_destroyed {
    never_destroyed() : all() {}
    ~never_destroyed() {}

    cache all;
} holder;

cache& kept()
{
    return holder.all;
}

since_1970 since(timespec const& when)
{
    return std::chrono::seconds(when.tv_sec) + std::chrono::nanoseconds(when.tv_nsec);
}

version version_of(struct stat const& is)
{
    return {is.st_dev, is.st_ino, is.st_size, since(platform::modified(is)),
            since(platform::changed(is))};
}

bool is_settled(struct stat const& is)
{
    since_1970 const last = std::max(since(platform::modified(is)), since(platform::changed(is)));
    return last + unsettled < std::chrono::system_clock::now().time_since_epoch();
}

// Another thread may have held the lock when this process was forked: nobody waits for it.
credentials find(std::string const& ca_file, version const& of)
{
    std::unique_lock<std::mutex> const held(kept().lock, std::try_to_lock);
    if (held) {
        for (entry const& known : kept().entries) {
            if (known.ca_file == ca_file && known.of == of) {
                return known.held;
            }
        }
    }
    return nullptr;
}

void keep(entry fresh)
{
    std::unique_lock<std::mutex> const held(kept().lock, std::try_to_lock);
    if (!held) {
        return;
    }
    std::vector<entry>& all = kept().entries;
    all.erase(std::remove_if(all.begin(), all.end(),
                             [&](entry const& known) { return known.ca_file == fresh.ca_file; }),
              all.end());
    if (all.size() == most_entries) {
        all.erase(all.begin());
    }
    all.push_back(std::move(fresh));
}

credentials none_yet()
{
    gnutls_certificate_credentials_t fresh = nullptr;
    if (gnutls_certificate_allocate_credentials(&fresh) != 0) {
        throw std::bad_alloc();
    }
    return credentials(fresh, gnutls_certificate_free_credentials);
}

credentials load_of_system()
{
    credentials fresh = none_yet();
    int const   count = gnutls_certificate_set_x509_system_trust(fresh.get());
    if (count == GNUTLS_E_MEMORY_ERROR) {
        throw std::bad_alloc();
    }
    if (count <= 0) {
        throw failure{eml_cause_settings,
                      "this system has no trusted authorities: install them, or set tls_ca_file"};
    }
    return fresh;
}

credentials load(std::string text, std::string const& ca_file)
{
    credentials          fresh = none_yet();
    gnutls_datum_t const pem   = {reinterpret_cast<unsigned char*>(text.data()),
                                  static_cast<unsigned>(text.size())};
    int const count = gnutls_certificate_set_x509_trust_mem(fresh.get(), &pem, GNUTLS_X509_FMT_PEM);
    if (count == GNUTLS_E_MEMORY_ERROR) {
        throw std::bad_alloc();
    }
    if (count == 0 || count == GNUTLS_E_NO_CERTIFICATE_FOUND) {
        no_certificates(ca_file);
    }
    if (count < 0) {
        damaged_certificate(ca_file);
    }
    return fresh;
}

}  // namespace

credentials trusted(std::string const& ca_file)
{
    char const* const path = ca_file.empty() ? platform::trust_store_file() : ca_file.c_str();
    if (path == nullptr) {
        return load_of_system();
    }
    struct stat     is   = {};
    unique_fd const file = open_ca_file(path, is);
    version const   now  = version_of(is);
    credentials     held = find(ca_file, now);
    if (!held) {
        held = ca_file.empty() ? load_of_system() : load(read_ca_file(file, ca_file), ca_file);
        if (is_settled(is)) {
            keep({ca_file, now, held});
        }
    }
    return held;
}

}  // namespace zelieml::tls
