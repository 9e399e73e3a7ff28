// ledger.cpp - which messages the engine has been told of

#include "tools/zelieml/ledger.h"

#include <algorithm>

namespace zelieml::program
{

bool ledger::has(std::string const& name) const
{
    std::lock_guard<std::mutex> const hold(guard_);
    return entries_.count(name) != 0;
}

std::size_t ledger::places() const
{
    std::lock_guard<std::mutex> const hold(guard_);
    return most - std::min(most, entries_.size());
}

bool ledger::is_low() const
{
    std::lock_guard<std::mutex> const hold(guard_);
    std::size_t const                 tried = std::min(most, entries_.size() - untried_.size());
    return untried_.size() <= (most - tried) / 2 && entries_.size() < most;
}

void ledger::add(spooled const& file, clock::time_point now)
{
    std::lock_guard<std::mutex> const hold(guard_);
    entries_[file.name] = {file, ++announced_, now};
    untried_.emplace(announced_, file.name);
    hear_of(now);
}

std::optional<spooled> ledger::file(std::string const& name) const
{
    std::lock_guard<std::mutex> const hold(guard_);
    auto const                        found = entries_.find(name);
    return found != entries_.end() ? std::optional<spooled>(found->second.file) : std::nullopt;
}

std::optional<ledger::clock::time_point> ledger::announced(std::string const& name) const
{
    std::lock_guard<std::mutex> const hold(guard_);
    auto const                        found = entries_.find(name);
    bool const is_untried                   = found != entries_.end() && found->second.number != 0;
    return is_untried ? std::optional<clock::time_point>(found->second.since) : std::nullopt;
}

void ledger::settle(std::string const& name, bool last, clock::time_point now)
{
    std::lock_guard<std::mutex> const hold(guard_);
    hear_of(now);
    // Also one that is not known: a file that was announced once more just when it had been sent
    // is in the engine's queue until its second attempt.
    entry& tried = entries_[name];
    if (tried.number != 0) {
        tried_ = std::max(tried_, tried.number);
        untried_.erase(tried.number);
        tried.number = 0;
    }
    tried.file.name = name;
    tried.since     = now;
    if (last) {
        entries_.erase(name);
    }
}

bool ledger::has_passed_over() const
{
    std::lock_guard<std::mutex> const hold(guard_);
    return !untried_.empty() && untried_.begin()->first < tried_;
}

std::vector<std::string> ledger::passed_over(clock::time_point now)
{
    std::lock_guard<std::mutex> const hold(guard_);
    std::vector<std::string>          names;
    while (!untried_.empty() && untried_.begin()->first < tried_) {
        std::string const name = untried_.begin()->second;
        untried_.erase(untried_.begin());
        entries_[name].number = ++announced_;
        names.push_back(name);
    }
    // After the loop: what it has just given out has a number beyond tried_.
    for (std::string const& name : names) {
        untried_.emplace(entries_[name].number, name);
    }
    if (!names.empty()) {
        hear_of(now);
    }
    return names;
}

std::vector<std::string> ledger::overdue(clock::time_point now)
{
    std::lock_guard<std::mutex> const hold(guard_);
    std::vector<std::string>          names;
    if (untried_.empty() || now < progress_ + patience_) {
        return names;
    }
    for (auto const& [number, name] : untried_) {
        names.push_back(name);
    }
    progress_ = now;
    patience_ = std::min(2 * patience_, last_patience);
    return names;
}

std::optional<ledger::clock::time_point> ledger::overdue_at() const
{
    std::lock_guard<std::mutex> const hold(guard_);
    return untried_.empty() ? std::nullopt
                            : std::optional<clock::time_point>(progress_ + patience_);
}

void ledger::forget_stuck(clock::time_point now)
{
    std::lock_guard<std::mutex> const hold(guard_);
    for (auto each = entries_.begin(); each != entries_.end();) {
        bool const stuck = each->second.number == 0 && now - each->second.since > stuck_after;
        each             = stuck ? entries_.erase(each) : std::next(each);
    }
}

void ledger::hear_of(clock::time_point now)
{
    progress_ = now;
    patience_ = first_patience;
}

}  // namespace zelieml::program
