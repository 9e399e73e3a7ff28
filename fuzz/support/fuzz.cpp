#include "fuzz/support/fuzz.h"

#include <cstdio>
#include <cstdlib>
#include <poll.h>

namespace zelieml::fuzz
{

namespace
{

// One call, since it runs twice for each input.
descriptors open_descriptors()
{
    descriptors found;
    pollfd      asked[found.size()];
    for (std::size_t fd = 0; fd < found.size(); ++fd) {
        asked[fd] = {static_cast<int>(fd), 0, 0};
    }
    require(::poll(asked, found.size(), 0) >= 0, "the descriptors can be counted");
    for (std::size_t fd = 0; fd < found.size(); ++fd) {
        found[fd] = (asked[fd].revents & POLLNVAL) == 0;
    }
    return found;
}

}  // namespace

void require(bool holds, char const* rule)
{
    if (!holds) {
        std::fprintf(stderr, "does not hold: %s\n", rule);
        std::abort();
    }
}

bool begins_with(std::string const& text, char const* start)
{
    return text.rfind(start, 0) == 0;
}

input::input(std::uint8_t const* data, std::size_t size)
    : rest_(reinterpret_cast<char const*>(data), size)
{
    if (size >= 4 && data[size - 4] == field_separator && data[size - 3] == 'm') {
        int const first = data[size - 2];
        memory_ = {static_cast<memory_choice::kind>(first % 4), first / 4 * 256 + data[size - 1]};
        rest_.resize(size - 4);
    }
}

unsigned char input::byte()
{
    if (rest_.empty()) {
        return 0;
    }
    auto const first = static_cast<unsigned char>(rest_[0]);
    rest_.erase(0, 1);
    return first;
}

std::string input::field(char separator)
{
    std::size_t const end  = rest_.find(separator);
    std::string       text = rest_.substr(0, end);
    rest_.erase(0, end == std::string::npos ? end : end + 1);
    return text;
}

std::string input::c_string(char separator)
{
    return field(separator).c_str();
}

no_descriptor_left::no_descriptor_left() : before_(open_descriptors()) {}

no_descriptor_left::~no_descriptor_left()
{
    require(open_descriptors() == before_, "no descriptor is left open");
}

}  // namespace zelieml::fuzz
