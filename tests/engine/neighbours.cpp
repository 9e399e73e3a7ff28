#include "tests/engine/neighbours.h"

#include <csignal>
#include <grp.h>
#include <gtest/gtest.h>
#include <new>
#include <poll.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace zelieml::test
{

namespace
{

constexpr char again = 64;  // added to the number of a step

// The user that the process acts as; root stays the saved one.
void act_as(uid_t user, std::vector<gid_t> const& groups)
{
    EXPECT_EQ(::seteuid(0), 0);
    EXPECT_EQ(::setgroups(groups.size(), groups.data()), 0);
    EXPECT_EQ(::setresgid(user, user, 0), 0);
    EXPECT_EQ(::setresuid(user, user, 0), 0);
}

std::vector<gid_t> own_groups()
{
    std::vector<gid_t> groups(static_cast<std::size_t>(::getgroups(0, nullptr)));
    groups.resize(
        static_cast<std::size_t>(::getgroups(static_cast<int>(groups.size()), groups.data())));
    return groups;
}

}  // namespace

bool become(uid_t user, std::vector<gid_t> const& groups)
{
    return ::setgroups(groups.size(), groups.data()) == 0 && ::setresgid(user, user, user) == 0 &&
           ::setresuid(user, user, user) == 0;
}

neighbour::neighbour(uid_t user, std::vector<gid_t> const& groups, std::vector<step> const& steps)
{
    EXPECT_EQ(::pipe(orders_), 0);
    EXPECT_EQ(::pipe(reports_), 0);
    void* const memory =
        ::mmap(nullptr, sizeof *rounds_, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    EXPECT_NE(memory, MAP_FAILED);
    rounds_  = new (memory) std::atomic<int>(0);
    process_ = ::fork();
    if (process_ == 0) {
        ::close(orders_[1]);
        ::close(reports_[0]);
        // Becoming another user would undo the second.
        if (become(user, groups) && ::prctl(PR_SET_PDEATHSIG, SIGKILL) == 0) {
            live(steps);
        }
        ::_exit(0);
    }
    ::close(orders_[0]);
    ::close(reports_[1]);
}

neighbour::~neighbour()
{
    ::close(orders_[1]);
    ::close(reports_[0]);
    ::waitpid(process_, nullptr, 0);
    ::munmap(rounds_, sizeof *rounds_);
}

void neighbour::live(std::vector<step> const& steps) const
{
    char order = 0;
    while (::read(orders_[0], &order, 1) == 1) {
        bool const good = order < again ? steps.at(static_cast<std::size_t>(order))()
                                        : repeat(steps.at(static_cast<std::size_t>(order - again)));
        char const done = good ? 1 : 0;
        if (::write(reports_[1], &done, 1) != 1) {
            return;
        }
    }
}

bool neighbour::repeat(step const& repeated) const
{
    bool good = true;
    while (good && !is_told_something()) {
        good = repeated();
        ++*rounds_;
    }
    char any = 0;
    return ::read(orders_[0], &any, 1) == 1 && good;
}

bool neighbour::is_told_something() const
{
    pollfd entry = {orders_[0], POLLIN, 0};
    return ::poll(&entry, 1, 0) != 0;
}

void neighbour::tell(char order) const
{
    EXPECT_EQ(::write(orders_[1], &order, 1), 1);
}

void neighbour::expect_done(std::size_t number) const
{
    char done = 0;
    EXPECT_EQ(::read(reports_[0], &done, 1), 1);
    EXPECT_EQ(done, 1) << "the neighbour's step " << number;
}

void neighbour::take(std::size_t number) const
{
    tell(static_cast<char>(number));
    expect_done(number);
}

void neighbour::begin(std::size_t number)
{
    repeated_  = number;
    repeating_ = true;
    tell(static_cast<char>(again + static_cast<char>(number)));
}

void neighbour::end()
{
    if (repeating_) {
        repeating_ = false;
        tell(0);
        expect_done(repeated_);
    }
}

void neighbour::kill() const
{
    ::kill(process_, SIGKILL);
}

acting_user::acting_user(uid_t user, std::vector<gid_t> const& groups)
    : before_(::geteuid()), groups_before_(own_groups())
{
    act_as(user, groups);
}

acting_user::~acting_user()
{
    act_as(before_, groups_before_);
}

}  // namespace zelieml::test
