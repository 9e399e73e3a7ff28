// unique_fd_test.cpp - a descriptor that closes itself

#include "support/unique_fd.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <utility>

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

}  // namespace
}  // namespace zelieml
