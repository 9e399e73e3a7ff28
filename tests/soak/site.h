// site.h - where the engines of the load are

#ifndef ZELIEML_TESTS_SOAK_SITE_H
#define ZELIEML_TESTS_SOAK_SITE_H

#include <cstdint>
#include <string>
#include <vector>

namespace zelieml::test
{

// A work directory and the stock symbol of its engine.
struct place {
    std::string work;
    std::string symbol;

    std::string file(std::string const& name) const { return work + "/" + name; }
    std::string settings() const { return file("zelismes.cf"); }

    // The names of its files but for the settings.
    std::vector<std::string> messages() const;
};

constexpr int guest_count = 2;

struct site {
    // Makes the directories. The port is that of the server.
    site(std::string const& root, std::uint16_t port);

    std::vector<place> all() const;

    place main;
    place guests[guest_count];
    place forked[guest_count];  // children of the host
    place stranger;
};

}  // namespace zelieml::test

#endif
