// interface_test.cpp - making and freeing objects behind interfaces

#include "support/interface.h"

#include <gtest/gtest.h>
#include <new>

namespace
{

bool no_memory = false;
int  live      = 0;

}  // namespace

// The objects are what the templates ask for in this form.
void* operator new(std::size_t size, std::nothrow_t const&) noexcept
{
    if (no_memory) {
        return nullptr;
    }
    try {
        return ::operator new(size);
    } catch (std::bad_alloc const&) {
        return nullptr;
    }
}

namespace zelieml
{
namespace
{

class ithing
{
public:
    virtual int* get_context() = 0;

protected:
    ~ithing() = default;
};

class thingw final : public ithing
{
public:
    thingw() { ++live; }
    ~thingw() { --live; }
    thingw(thingw const&)            = delete;
    thingw& operator=(thingw const&) = delete;

    int* get_context() override { return context_; }

private:
    int* context_ = nullptr;
};

TEST(InterfaceTemplates, MakeAnObjectWithoutContextAndFreeIt)
{
    ithing* thing = nullptr;
    EXPECT_EQ((templ_create_interface<thingw, ithing>(&thing)), 0);
    ASSERT_NE(thing, nullptr);
    EXPECT_EQ(thing->get_context(), nullptr);
    EXPECT_EQ(live, 1);
    EXPECT_EQ((templ_destroy_interface<thingw, ithing>(thing)), 0);
    EXPECT_EQ(live, 0);
}

TEST(InterfaceTemplates, AcceptNullForDestruction)
{
    EXPECT_EQ((templ_destroy_interface<thingw, ithing>(nullptr)), 0);
}

TEST(InterfaceTemplates, FailWithoutMemory)
{
    thingw  object;
    ithing* thing     = &object;
    no_memory         = true;
    int const created = templ_create_interface<thingw, ithing>(&thing);
    no_memory         = false;
    EXPECT_EQ(created, -1);
    EXPECT_EQ(thing, nullptr);
}

}  // namespace
}  // namespace zelieml
