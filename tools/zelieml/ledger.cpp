// ledger.cpp - which of the messages that the service holds are where

#include "tools/zelieml/ledger.h"

#include <algorithm>
#include <iterator>

namespace zelieml::program
{

using hold = std::lock_guard<std::mutex>;

bool ledger::knows(std::string const& name) const
{
    hold const held(guard_);
    return later_.count(name) != 0 || over_.count(name) != 0 || find(name) != given_.end() ||
           std::find(next_.begin(), next_.end(), name) != next_.end();
}

void ledger::add(std::string const& name)
{
    hold const held(guard_);
    next_.push_back(name);
}

void ledger::add_in_front(std::string const& name)
{
    hold const held(guard_);
    next_.push_front(name);
}

bool ledger::has_next() const
{
    hold const held(guard_);
    return !next_.empty();
}

std::optional<std::string> ledger::take()
{
    hold const held(guard_);
    if (next_.empty()) {
        return std::nullopt;
    }
    std::string name = std::move(next_.front());
    next_.pop_front();
    return name;
}

void ledger::add_later(std::string const& name, time_point due)
{
    hold const held(guard_);
    if (later_.count(name) != 0) {
        return;
    }
    auto const timed = by_time_.emplace(due, name);
    try {
        later_.emplace(name, due);
    } catch (...) {
        by_time_.erase(timed);
        throw;
    }
}

std::optional<std::string> ledger::take_due(time_point now)
{
    hold const held(guard_);
    if (by_time_.empty() || by_time_.begin()->first > now) {
        return std::nullopt;
    }
    std::string name = std::move(by_time_.begin()->second);
    by_time_.erase(by_time_.begin());
    later_.erase(name);
    return name;
}

std::optional<ledger::time_point> ledger::next_due() const
{
    hold const held(guard_);
    return by_time_.empty() ? std::nullopt : std::optional<time_point>(by_time_.begin()->first);
}

std::size_t ledger::places() const
{
    hold const held(guard_);
    return most - std::min(most, given_.size());
}

std::size_t ledger::places_for_second_attempts() const
{
    hold const held(guard_);
    auto const count = static_cast<std::size_t>(std::count_if(
        given_.begin(), given_.end(), [](given const& each) { return each.is_second_attempt; }));
    return most_second_attempts - std::min(most_second_attempts, count);
}

bool ledger::is_low() const
{
    hold const held(guard_);
    return given_.size() <= most / 2;
}

bool ledger::is_low_of_second_attempts() const
{
    return places_for_second_attempts() >= most_second_attempts / 2;
}

bool ledger::give(std::string const& name, bool is_second_attempt, time_point now)
{
    hold const held(guard_);
    if (given_.size() > most) {
        return false;
    }
    if (given_.empty()) {
        told_ = now;
    }
    given_.push_back({name, is_second_attempt});
    return true;
}

void ledger::take_back(std::string const& name)
{
    hold const held(guard_);
    auto const found = find(name);
    if (found != given_.end()) {
        given_.erase(found);
    }
}

bool ledger::is_given(std::string const& name) const
{
    hold const held(guard_);
    return find(name) != given_.end();
}

std::vector<std::string> ledger::settle(std::string const& name, time_point now)
{
    hold const               held(guard_);
    std::vector<std::string> passed;
    auto const               found = find(name);
    if (found != given_.end()) {
        std::transform(given_.cbegin(), found, std::back_inserter(passed),
                       [](given const& each) { return each.name; });
        given_.erase(given_.cbegin(), found + 1);
    }
    told_ = now;
    return passed;
}

ledger::clock::duration ledger::silence(time_point now) const
{
    hold const held(guard_);
    return given_.empty() ? clock::duration::zero() : now - told_;
}

void ledger::keep_over(std::string const& name)
{
    hold const held(guard_);
    over_.insert(name);
}

void ledger::forget_over(std::string const& name)
{
    hold const held(guard_);
    over_.erase(name);
}

std::vector<std::string> ledger::all_over() const
{
    hold const held(guard_);
    return {over_.begin(), over_.end()};
}

std::deque<ledger::given>::const_iterator ledger::find(std::string const& name) const
{
    return std::find_if(given_.begin(), given_.end(),
                        [&](given const& each) { return each.name == name; });
}

}  // namespace zelieml::program
