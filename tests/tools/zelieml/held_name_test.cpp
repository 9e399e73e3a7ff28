// held_name_test.cpp - the names of the messages that a service has taken

#include "tools/zelieml/held_name.h"

#include <gtest/gtest.h>
#include <set>

namespace zelieml::test
{

namespace
{

using program::held_name;
using program::held_names;
using program::stage;

TEST(HeldName, SaysWhatItWasAndHowFarItIs)
{
    held_names make;
    for (stage const reached : {stage::first, stage::tried, stage::second}) {
        held_name const name = make.make("a~1-2.tried.sme", reached);
        held_name const read = held_name::of(name.file());
        EXPECT_EQ(read.posted, "a~1-2.tried.sme");
        EXPECT_EQ(read.number, name.number);
        EXPECT_EQ(read.reached, reached);
        EXPECT_EQ(read.at(stage::second).key(), name.key());
    }
}

TEST(HeldName, IsNeverUsedTwice)
{
    held_names            make;
    held_names            of_another_service;
    std::set<std::string> files;
    for (int i = 0; i < 100; ++i) {
        files.insert(make.make("a.sme", stage::first).file());
        files.insert(of_another_service.make("a.sme", stage::first).file());
    }
    EXPECT_EQ(files.size(), 200u);
}

TEST(HeldName, IsShortEnoughForAnyName)
{
    held_names make;
    for (std::string const& posted :
         {std::string(251, 'a') + ".sme", ".sme" + std::string(251, 'a'),
          std::string(85, 'a') + "\u00e9\u00e9\u00e9.sme"}) {
        held_name const name = make.make(posted, stage::second);
        // In the deepest work directory that the engine takes.
        EXPECT_LE(239 + std::string("/.zelieml/sending/").size() + name.file().size() + 10, 399u);
        EXPECT_TRUE(name.fits());
        EXPECT_NE(name.file().find(".sme"), std::string::npos);
        EXPECT_EQ(held_name::of(name.file()).posted, name.posted);
    }
    EXPECT_EQ(make.make(std::string(85, 'a') + "\u00e9\u00e9\u00e9.sme", stage::first).posted,
              std::string(85, 'a') + ".sme")
        << "no half of a character";
}

TEST(HeldName, OfOthersMayBeTooLong)
{
    std::size_t const most = 399 - (239 + std::string("/.zelieml/sending/").size());
    std::string const rest = ".sme~1-1.second";
    EXPECT_TRUE(held_name::of(std::string(most - rest.size(), 'a') + rest).fits());
    EXPECT_FALSE(held_name::of(std::string(most - rest.size() + 1, 'a') + rest).fits());
    EXPECT_FALSE(held_name::of("a.sme~" + std::string(200, '1') + ".tried").fits());
}

TEST(HeldName, WhatIsNoneCountsAsPosted)
{
    for (char const* const file :
         {"a.sme", "a.sme~", "a.sme~2", "a.sme~12.third", "a.sme~.first", "a.sme~x.first"}) {
        EXPECT_EQ(held_name::of(file).posted, file);
        EXPECT_EQ(held_name::of(file).reached, stage::first);
    }
}

}  // namespace

}  // namespace zelieml::test
