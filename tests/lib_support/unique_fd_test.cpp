// unique_fd_test.cpp - a descriptor that closes itself

#include "support/unique_fd.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>
#include <utility>

#include "tests/support/closed_standard.h"

namespace zelieml
{
namespace
{

int open_one()
{
    return ::open("/dev/null", O_RDONLY | O_CLOEXEC);
}

bool is_open(int fd)
{
    return ::fcntl(fd, F_GETFD) != -1;
}

TEST(UniqueFd, ClosesAtTheEndOfItsScope)
{
    int const fd = open_one();
    {
        unique_fd const holder(fd);
        EXPECT_TRUE(holder);
        EXPECT_EQ(holder.get(), fd);
        EXPECT_TRUE(is_open(fd));
    }
    EXPECT_FALSE(is_open(fd));
}

TEST(UniqueFd, HoldsNothingByDefault)
{
    unique_fd const holder;
    EXPECT_FALSE(holder);
    EXPECT_EQ(holder.get(), -1);
}

TEST(UniqueFd, HandsOver)
{
    int const fd = open_one();
    {
        unique_fd holder(fd);
        EXPECT_EQ(holder.release(), fd);
        EXPECT_FALSE(holder);
    }
    EXPECT_TRUE(is_open(fd));
    ::close(fd);
}

TEST(UniqueFd, MovesAndClosesWhatItHeldBefore)
{
    int const first  = open_one();
    int const second = open_one();
    unique_fd from(second);
    unique_fd to(first);
    to = std::move(from);
    EXPECT_EQ(to.get(), second);
    EXPECT_FALSE(is_open(first));
    EXPECT_TRUE(is_open(second));

    unique_fd const last(std::move(to));
    EXPECT_EQ(last.get(), second);
    EXPECT_TRUE(is_open(second));
}

TEST(UniqueFd, CanBeGivenAnother)
{
    int const first  = open_one();
    int const second = open_one();
    unique_fd holder(first);
    holder.reset(second);
    EXPECT_FALSE(is_open(first));
    EXPECT_EQ(holder.get(), second);
    holder.reset();
    EXPECT_FALSE(is_open(second));
    EXPECT_FALSE(holder);
}

TEST(AboveStandard, LeavesOtherNumbersAlone)
{
    int const       fd    = open_one();
    unique_fd const moved = above_standard(unique_fd(fd));
    EXPECT_EQ(moved.get(), fd);
    EXPECT_FALSE(above_standard(unique_fd()));
}

TEST(AboveStandard, MovesTheStandardOnes)
{
    EXPECT_TRUE(test::keeps_clear_of_standard([] {
        unique_fd moved[4];
        for (unique_fd& fd : moved) {
            fd             = above_standard(unique_fd(::open("/dev/zero", O_RDONLY | O_CLOEXEC)));
            char      byte = 'x';
            int const mode = ::fcntl(fd.get(), F_GETFD);
            if (fd.get() <= 2 || mode != FD_CLOEXEC || ::read(fd.get(), &byte, 1) != 1) {
                return false;
            }
        }
        return true;
    }));
}

}  // namespace
}  // namespace zelieml
