// ledger.h - which messages the engine has been told of, and which are over
//
// The engine holds what it was told of until it has sent it or tried twice, and throws the oldest
// away beyond 500. So the service counts with it.
//
// Threads: the service's, which announces, and the engine's, which settles. The ledger locks.

#ifndef ZELIEML_TOOLS_ZELIEML_LEDGER_H
#define ZELIEML_TOOLS_ZELIEML_LEDGER_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "tools/zelieml/spool.h"

namespace zelieml::program
{

class ledger
{
public:
    using clock = std::chrono::steady_clock;

    // Far enough below the engine's 500 for what it may hold and the ledger does not know of.
    static constexpr std::size_t most = 400;

    bool        has(std::string const& name) const;
    std::size_t places() const;

    // is_low - whether half of what the engine may be told of at once has been tried
    bool is_low() const;

    // add - the engine is about to be told of this file
    void add(spooled const& file, clock::time_point now);

    // file - as it was when it was announced
    std::optional<spooled> file(std::string const& name) const;

    // announced - when; nothing for one that has been tried, or is not known
    std::optional<clock::time_point> announced(std::string const& name) const;

    // settle - an attempt is over; another one follows unless it is the last
    void settle(std::string const& name, bool last, clock::time_point now);

    bool has_passed_over() const;

    // passed_over - the files of which the engine cannot have heard: it has tried one that was
    // announced later. Each is given out once, as one that is announced again.
    std::vector<std::string> passed_over(clock::time_point now);

    // overdue - the files that may wait for an attempt in vain, because nothing was tried or
    // announced for a while, which is longer each time in a row
    std::vector<std::string> overdue(clock::time_point now);

    // When there may be something overdue; nothing: never.
    std::optional<clock::time_point> overdue_at() const;

    // forget_stuck - gives up waiting for second attempts that are hours late
    void forget_stuck(clock::time_point now);

private:
    struct entry {
        spooled           file;
        std::uint64_t     number = 0;  // of its announcement; 0 after the first attempt
        clock::time_point since;
    };

    void hear_of(clock::time_point now);

    mutable std::mutex                   guard_;
    std::map<std::string, entry>         entries_;
    std::map<std::uint64_t, std::string> untried_;  // by announcement
    std::uint64_t                        announced_ = 0;
    std::uint64_t                        tried_     = 0;  // the last announcement that was tried
    clock::time_point                    progress_;
    std::chrono::seconds                 patience_ = first_patience;

    static constexpr std::chrono::seconds first_patience = std::chrono::seconds(5);
    static constexpr std::chrono::seconds last_patience  = std::chrono::seconds(320);
    static constexpr std::chrono::hours   stuck_after    = std::chrono::hours(3);
};

}  // namespace zelieml::program

#endif
