// interface_test.cpp - making and freeing objects behind interfaces

#include "support/interface.h"

#include <gtest/gtest.h>

#include "tests/support/failing_new.h"
#include <type_traits>

#include "libcryptw/libcryptw.h"
#include "libemlw/libemlw.h"
#include "liblockw/liblockw.h"
#include "libnotifyw/libnotifyw.h"
#include "libsendw/libsendw.h"
#include "libtimew/libtimew.h"

namespace
{

int live = 0;

// What a call returns while there is no memory.
template <class Call>
int without_memory(Call call)
{
    zelieml::test::failing_new const none(0);
    return call();
}

}  // namespace

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

// Without a virtual destructor, delete through an interface would free an object without destroying
// it: it must not compile.
template <class... Interfaces>
constexpr bool none_can_be_deleted = !(std::is_destructible_v<Interfaces> || ...);

static_assert(none_can_be_deleted<icrypt, ilock, ifactory_lock, ieml, ifactory_eml, inotify_sender,
                                  ifactory_notify_sender, isend, isend_sys, itime>);

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
    thingw    object;
    ithing*   thing = &object;
    int const created =
        without_memory([&] { return templ_create_interface<thingw, ithing>(&thing); });
    EXPECT_EQ(created, -1);
    EXPECT_EQ(thing, nullptr);
}

TEST(InterfaceTemplates, MakeAndFreeAnObjectWithoutAnInterface)
{
    thingw* thing = nullptr;
    EXPECT_EQ(templ_create_iinterface<thingw>(&thing), 0);
    ASSERT_NE(thing, nullptr);
    EXPECT_EQ(live, 1);
    EXPECT_EQ(templ_destroy_iinterface<thingw>(thing), 0);
    EXPECT_EQ(live, 0);
    EXPECT_EQ(templ_destroy_iinterface<thingw>(nullptr), 0);

    int const created = without_memory([&] { return templ_create_iinterface<thingw>(&thing); });
    EXPECT_EQ(created, -1);
    EXPECT_EQ(thing, nullptr);
}

class thing_with_context
{
public:
    thing_with_context() { ++live; }
    ~thing_with_context() { --live; }
    thing_with_context(thing_with_context const&)            = delete;
    thing_with_context& operator=(thing_with_context const&) = delete;

    int create_context() { return context_made; }

    static int context_made;
};

int thing_with_context::context_made = 0;

TEST(InterfaceTemplates, MakeAnObjectAndItsContextOrNeither)
{
    thing_with_context* thing = nullptr;
    EXPECT_EQ(create_with_context<thing_with_context>(&thing), 0);
    ASSERT_NE(thing, nullptr);
    EXPECT_EQ(live, 1);

    auto* const other                = thing;
    thing_with_context::context_made = -1;
    EXPECT_EQ(create_with_context<thing_with_context>(&thing), -1);
    EXPECT_EQ(thing, nullptr);
    EXPECT_EQ(live, 1) << "the object without a context is freed";
    thing_with_context::context_made = 0;

    thing = other;
    int const created =
        without_memory([&] { return create_with_context<thing_with_context>(&thing); });
    EXPECT_EQ(created, -1);
    EXPECT_EQ(thing, nullptr);

    templ_destroy_iinterface<thing_with_context>(other);
    EXPECT_EQ(live, 0);
}

}  // namespace
}  // namespace zelieml
