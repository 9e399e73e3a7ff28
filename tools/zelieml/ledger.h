// ledger.h - which of the messages that the service holds are where
//
// Some are to be sent as soon as there is a place, some later, and some the engine has queued. The
// engine reports in the order in which it was given them. One that it passes over it has tried
// without a report, for lack of memory.
//
// Threads: the service's, and the engine's, which settles. The ledger locks.

#ifndef ZELIEML_TOOLS_ZELIEML_LEDGER_H
#define ZELIEML_TOOLS_ZELIEML_LEDGER_H

#include <chrono>
#include <cstddef>
#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace zelieml::program
{

// Messages are named as they lie in the service's folder.
class ledger
{
public:
    using clock      = std::chrono::steady_clock;
    using time_point = clock::time_point;

    // The engine holds 500, and deletes the oldest beyond that: so that it is always one that is
    // over. One more than these asks the engine whether it still tells.
    static constexpr std::size_t most = 400;

    // So that what fails never keeps what is new from being sent.
    static constexpr std::size_t most_second_attempts = 20;

    bool knows(std::string const& name) const;

    // ---- to be sent as soon as there is a place

    void                       add(std::string const& name);
    void                       add_in_front(std::string const& name);
    bool                       has_next() const;
    std::optional<std::string> take();

    // ---- later

    // However many: who keeps thousands in use must not keep others from being remembered.
    void                       add_later(std::string const& name, time_point due);
    std::optional<std::string> take_due(time_point now);
    std::optional<time_point>  next_due() const;

    // ---- the engine's

    std::size_t places() const;
    std::size_t places_for_second_attempts() const;

    // Whether half of what the engine may hold has been tried.
    bool is_low() const;
    bool is_low_of_second_attempts() const;

    // give - the engine is about to be given it; take_back - it was not
    //
    // Returns false when the engine has too many, which must not be given it.
    bool give(std::string const& name, bool is_second_attempt, time_point now);
    void take_back(std::string const& name);
    bool is_given(std::string const& name) const;

    // settle - an attempt is over, perhaps at a message that it was not given under this name
    //
    // Returns those that were given before it, and of which the engine has not told.
    std::vector<std::string> settle(std::string const& name, time_point now);

    // silence - for how long the engine has not told of any attempt, though it has some to make; zero
    // when it has none
    clock::duration silence(time_point now) const;

    // ---- over, though the file is still there

    void                     keep_over(std::string const& name);
    void                     forget_over(std::string const& name);
    std::vector<std::string> all_over() const;

private:
    struct given {
        std::string name;
        bool        is_second_attempt;
    };
    std::deque<given>::const_iterator find(std::string const& name) const;

    mutable std::mutex                     guard_;
    std::deque<std::string>                next_;
    std::map<std::string, time_point>      later_;
    std::multimap<time_point, std::string> by_time_;
    std::deque<given>                      given_;  // in this order
    std::set<std::string>                  over_;
    time_point                             told_;
};

}  // namespace zelieml::program

#endif
