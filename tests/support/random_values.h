// random_values.h - random choices that can be repeated

#ifndef ZELIEML_TESTS_SUPPORT_RANDOM_VALUES_H
#define ZELIEML_TESTS_SUPPORT_RANDOM_VALUES_H

#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace zelieml::test
{

class random_values
{
public:
    explicit random_values(std::uint32_t seed) : random_(seed) {}

    std::uint32_t below(std::uint32_t limit)
    {
        return static_cast<std::uint32_t>(random_()) % limit;
    }

    // True so many times of a hundred.
    bool percent(std::uint32_t chance) { return below(100) < chance; }

    std::string const& pick(std::vector<std::string> const& choices)
    {
        return choices[below(static_cast<std::uint32_t>(choices.size()))];
    }

    // Fewer than limit pieces in a row.
    std::string text(std::vector<std::string> const& pieces, std::uint32_t limit)
    {
        std::string text;
        for (std::uint32_t count = below(limit); count > 0; --count) {
            text += pick(pieces);
        }
        return text;
    }

private:
    std::mt19937 random_;
};

}  // namespace zelieml::test

#endif
