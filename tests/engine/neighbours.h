// neighbours.h - other users of the machine, in tests of whole engines
//
// All of it needs root.

#ifndef ZELIEML_TESTS_ENGINE_NEIGHBOURS_H
#define ZELIEML_TESTS_ENGINE_NEIGHBOURS_H

#include <atomic>
#include <cstddef>
#include <functional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace zelieml::test
{

// Becomes a user, with his own group and these, for good. Returns false if it cannot.
bool become(uid_t user, std::vector<gid_t> const& groups);

// A process of another user that takes steps when it is told to. Make it before there is an engine.
class neighbour
{
public:
    // Says whether it was taken.
    using step = std::function<bool()>;

    neighbour(uid_t user, std::vector<gid_t> const& groups, std::vector<step> const& steps);
    ~neighbour();
    neighbour(neighbour const&)            = delete;
    neighbour& operator=(neighbour const&) = delete;

    // Has a step taken, and waits until it is.
    void take(std::size_t number) const;

    // Has a step taken again and again, from begin to end.
    void begin(std::size_t number);
    void end();
    // How often it has been.
    int rounds() const { return *rounds_; }

    // Ends it by force, whatever it does.
    void kill() const;

private:
    void live(std::vector<step> const& steps) const;
    bool repeat(step const& repeated) const;
    bool is_told_something() const;
    void tell(char order) const;
    void expect_done(std::size_t number) const;

    int               orders_[2]  = {-1, -1};
    int               reports_[2] = {-1, -1};
    pid_t             process_    = 0;
    std::atomic<int>* rounds_     = nullptr;  // in memory of both processes
    std::size_t       repeated_   = 0;
    bool              repeating_  = false;
};

// While it lives, the test is this user, who keeps nothing of root but the way back.
class acting_user
{
public:
    explicit acting_user(uid_t user, std::vector<gid_t> const& groups = {});
    ~acting_user();
    acting_user(acting_user const&)            = delete;
    acting_user& operator=(acting_user const&) = delete;

private:
    uid_t              before_;
    std::vector<gid_t> groups_before_;
};

}  // namespace zelieml::test

#endif
