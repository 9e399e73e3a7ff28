#include "tools/mailserver/mail_store.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <stdexcept>

#include "tests/support/files.h"

namespace zelieml::mailserver
{

namespace
{

using test::temp_dir;

std::vector<std::string> texts(mail_store& store)
{
    std::vector<std::string> result;
    for (auto const& entry : store.list()) {
        result.push_back(store.read(entry.id).value_or("(gone)"));
        EXPECT_EQ(entry.bytes, result.back().size());
    }
    return result;
}

}  // namespace

class MailStore : public testing::TestWithParam<std::string>
{
protected:
    temp_dir                    dir_;
    std::unique_ptr<mail_store> store_ =
        GetParam() == "Maildir" ? make_maildir_store(dir_.file("mail")) : make_memory_store();
};

TEST_P(MailStore, KeepsMailsByteForByteInTheOrderOfArrival)
{
    std::vector<std::string> const mails = {"one\r\n", std::string("a\0b\r\n", 5), "", "\n.\r\r\n"};
    for (std::string const& mail : mails) {
        store_->add(mail);
    }
    EXPECT_EQ(texts(*store_), mails);
}

TEST_P(MailStore, NeverGivesANameAgain)
{
    store_->add("one");
    std::string const first = store_->list()[0].id;
    EXPECT_TRUE(store_->remove(first));
    store_->add("two");
    EXPECT_NE(store_->list()[0].id, first);
    EXPECT_EQ(first.find(' '), std::string::npos);
    EXPECT_LE(first.size(), 70u);
}

TEST_P(MailStore, ForgetsARemovedMail)
{
    store_->add("one");
    store_->add("two");
    std::string const first = store_->list()[0].id;
    EXPECT_TRUE(store_->remove(first));
    EXPECT_EQ(texts(*store_), std::vector<std::string>{"two"});
    EXPECT_EQ(store_->read(first), std::nullopt);
    EXPECT_TRUE(store_->remove(first)) << "a mail that is not there counts as removed";
}

INSTANTIATE_TEST_SUITE_P(, MailStore, testing::Values("Memory", "Maildir"),
                         [](auto const& kind) { return kind.param; });

TEST(Maildir, IsMadeWhenMissing)
{
    temp_dir dir;
    make_maildir_store(dir.file("a/b"));
    EXPECT_EQ(test::list_directory(dir.file("a/b")),
              (std::vector<std::string>{"cur", "new", "tmp"}));
}

TEST(Maildir, HoldsEachMailAsOneFileInNew)
{
    temp_dir dir;
    auto     store = make_maildir_store(dir.path());
    store->add("one\r\n");
    auto const names = test::list_directory(dir.file("new"));
    ASSERT_EQ(names.size(), 1u);
    EXPECT_EQ(test::read_file(dir.file("new/" + names[0])), "one\r\n");
    EXPECT_EQ(test::list_directory(dir.file("tmp")), std::vector<std::string>{});
}

TEST(Maildir, ShowsWhatOthersBrought)
{
    temp_dir dir;
    auto     store = make_maildir_store(dir.path());
    test::write_file(dir.file("new/2.b.host"), "second");
    test::write_file(dir.file("cur/1.a.host:2,S"), "first");
    test::write_file(dir.file("new/.hidden"), "not a mail");
    EXPECT_EQ(texts(*store), (std::vector<std::string>{"first", "second"}));
    EXPECT_EQ(store->list()[0].id, "1.a.host") << "flags are no part of the name";
    EXPECT_TRUE(store->remove("1.a.host"));
    EXPECT_EQ(test::list_directory(dir.file("cur")), std::vector<std::string>{});
}

TEST(Maildir, KeepsItsMailsForTheNextServer)
{
    temp_dir dir;
    make_maildir_store(dir.path())->add("one");
    EXPECT_EQ(texts(*make_maildir_store(dir.path())), std::vector<std::string>{"one"});
}

TEST(Maildir, SaysWhenItCannotBeMade)
{
    temp_dir dir;
    test::write_file(dir.file("file"), "");
    EXPECT_THROW(make_maildir_store(dir.file("file/mail")), std::runtime_error);
}

TEST(Maildir, SaysWhenAMailCannotBeWritten)
{
    temp_dir dir;
    auto     store = make_maildir_store(dir.file("mail"));
    std::filesystem::remove(dir.file("mail/tmp"));
    EXPECT_THROW(store->add("one"), std::runtime_error);
    test::write_file(dir.file("mail/tmp"), "a file in the way");
    EXPECT_THROW(store->add("one"), std::runtime_error);
    EXPECT_EQ(texts(*store), std::vector<std::string>{});
}

}  // namespace zelieml::mailserver
