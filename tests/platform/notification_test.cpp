// notification_test.cpp - observers and posts within one process, on every back end

#include "platform/notification.h"

#include <atomic>
#include <chrono>
#include <gtest/gtest.h>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "libnotifyw/libnotifyw.h"
#include "support/gate.h"
#include "tests/support/case_name.h"
#include "tests/support/notification_room.h"
#include "tests/support/skip.h"
#include "tests/support/threads.h"

namespace zelieml::test
{
namespace
{

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;

using texts = std::vector<std::string>;

std::string all_bytes_but_nul()
{
    std::string bytes;
    for (int i = 1; i < 255; ++i) {
        bytes += static_cast<char>(i);
    }
    return bytes;
}

// ------------------------------------------------------------------ addresses

TEST(Address, IsTheWholeSymbolByteForByte)
{
    struct {
        std::string symbol;
        char const* reason;
    } const cases[] = {
        {"zelieml_stocksymbol", "the usual one"},
        {"zelieml_stocksymbo", "a beginning of another"},
        {"zelieml_stocksymbol2", "a continuation of another"},
        {"ZELIEML_STOCKSYMBOL", "another case"},
        {"zelieml_stocksymbol ", "a blank at the end"},
        {" zelieml_stocksymbol", "a blank at the beginning"},
        {"a", "one byte"},
        {" ", "nothing but a blank"},
        {".", "a directory's name for itself"},
        {"..", "and for its parent"},
        {"/", "the root"},
        {"../../etc/passwd", "a way out of a directory"},
        {"%s%n%d", "printf directives"},
        {"%", "a lone percent sign"},
        {"two\nlines\r\n", "line ends"},
        {"\xff\xfe\x80 \xc3", "invalid UTF-8"},
        {"\xe5\x8d\xb0\xe5\x88\xb7", "valid UTF-8"},
        {"-rf", "an option"},
        {"*?[a]", "wild cards"},
        {std::string(254, 'x'), "the longest"},
        {std::string(253, 'x'), "the longest but one"},
        {std::string(253, 'x') + "y", "the longest, but for the last byte"},
        {all_bytes_but_nul(), "every byte"},
        // Pairs with the same FNV-1a hash of 64 bits.
        {"8yn0iYCKYHlIj4-BwPqk", "a collision"},
        {"GReLUrM4wMqfg9yzV3KQ", "a collision"},
        {"7mohtcOFVz", "a collision"},
        {"c1E51sSEyx", "a collision"},
    };
    notification_room const                room;
    std::vector<std::unique_ptr<listener>> listeners;
    for (auto const& c : cases) {
        listeners.push_back(std::make_unique<listener>(c.symbol));
        EXPECT_EQ(listeners.back()->added(), 0) << c.reason;
    }
    for (auto const& c : cases) {
        EXPECT_EQ(post(c.symbol, c.reason), 0) << c.reason;
    }
    // What went astray before would be there when this comes.
    for (std::size_t i = 0; i < listeners.size(); ++i) {
        post(cases[i].symbol, "last");
        EXPECT_EQ(listeners[i]->heard().wait_for(2), 2U) << cases[i].reason;
        EXPECT_EQ(listeners[i]->heard().all(), (texts{cases[i].reason, "last"}));
    }
}

TEST(Address, IsTheNameAsWell)
{
    notification_room const room;
    listener                usual("object");
    listener                longer("object", test_name + std::string("s"));
    listener                shorter("object", "the nam");
    listener                shifted("eobject", "the nam");  // the same bytes one after the other
    listener                other("object", "another name");
    for (char const* const name : {"the name", "the names", "the nam", "another name"}) {
        EXPECT_EQ(platform::post_notification(name, "object", test_key, name), 0);
    }
    platform::post_notification("the nam", "eobject", test_key, "shifted");
    EXPECT_EQ(shifted.heard().wait_for(1), 1U);
    for (auto const& [who, value] :
         {std::pair(&usual, "the name"), std::pair(&longer, "the names"),
          std::pair(&shorter, "the nam"), std::pair(&other, "another name"),
          std::pair(&shifted, "shifted")}) {
        who->heard().wait_for(1);
        EXPECT_EQ(who->heard().all(), texts{value});
    }
}

TEST(Address, IsSharedByAnyNumberOfObservers)
{
    notification_room const                room;
    std::vector<std::unique_ptr<listener>> listeners;
    for (int i = 0; i < 5; ++i) {
        listeners.push_back(std::make_unique<listener>("one for all"));
    }
    listener other("another");
    post("one for all", "hello");
    for (auto const& one : listeners) {
        EXPECT_EQ(one->heard().wait_for(1), 1U);
        EXPECT_EQ(one->heard().all(), texts{"hello"});
    }
    EXPECT_EQ(listeners[2]->remove(), 0);
    post("one for all", "again");
    EXPECT_EQ(listeners[4]->heard().wait_for(2), 2U);
    EXPECT_EQ(listeners[2]->heard().all(), texts{"hello"});
    EXPECT_TRUE(other.heard().all().empty());
}

TEST(Address, NeedsNobodyWhoListens)
{
    notification_room const room;
    auto const              start = steady_clock::now();
    for (int i = 0; i < 100; ++i) {
        EXPECT_EQ(post("nobody", "hello"), 0);
    }
    EXPECT_LT(steady_clock::now() - start, seconds(2));
    EXPECT_TRUE(room.everything().empty()) << "a post leaves nothing behind";
}

TEST(Address, IsWhatASenderOfMessageFilesPostsTo)
{
    notification_room const room;
    heard_values            heard;
    auto const              note = [](platform::notification_center*, void* observer,
                         platform::notification_text const*, platform::notification_text const*,
                         platform::notification_info const* info) {
        char path[400];
        if (platform::notification_value(info, "new_mail_file_path", path, sizeof path)) {
            static_cast<heard_values*>(observer)->add(path);
        }
    };
    ASSERT_EQ(platform::add_observer("zelieml_notifyname", "symbol", note, &heard), 0);
    inotifyw_sender sender;
    EXPECT_EQ(sender.send("/w/a.sme", "symbol"), 0);
    EXPECT_EQ(heard.wait_for(1), 1U);
    EXPECT_EQ(heard.all(), texts{"/w/a.sme"});
    EXPECT_EQ(platform::remove_observer("zelieml_notifyname", "symbol", &heard), 0);
}

// ------------------------------------------------------------------ the value

struct value_outcome {
    bool        found = false;
    std::string text;
    bool        kept_to_the_buffer = false;
};

constexpr char asked_key[] = "path";

// Asks for the value of asked_key from within the callback, where the notification lives.
struct value_asker {
    std::size_t                size;  // of its buffer
    std::vector<value_outcome> outcomes;
    gate                       done;

    static void proc(platform::notification_center*, void* observer,
                     platform::notification_text const*, platform::notification_text const*,
                     platform::notification_info const* info)
    {
        auto* const   self = static_cast<value_asker*>(observer);
        std::string   bytes(self->size + 8, '#');
        value_outcome outcome;
        outcome.found = platform::notification_value(info, asked_key, bytes.data(), self->size);
        outcome.text  = outcome.found ? bytes.c_str() : "";
        outcome.kept_to_the_buffer = bytes.substr(self->size) == "########";
        self->outcomes.push_back(outcome);
        self->done.open();
    }
};

// A path that is posted with its key and fits the 400 bytes at which it is wanted.
struct value_case : named_case {
    using named_case::named_case;

    value_case& posted(std::optional<std::string> const& posted_value)
    {
        value = posted_value;
        return *this;
    }
    value_case& under(char const* posted_key)
    {
        key = posted_key;
        return *this;
    }
    value_case& into(std::size_t buffer_size)
    {
        size = buffer_size;
        return *this;
    }
    value_case& is_not_found()
    {
        found = false;
        return *this;
    }

    char const*                key   = asked_key;
    std::optional<std::string> value = "/w/a.sme";
    std::size_t                size  = 400;
    bool                       found = true;
};

TEST(Value, IsCopiedWholeOrNotAtAll)
{
    value_case const cases[] = {
        value_case("a path"),
        value_case("odd bytes").posted("/w/\xff\n%s \x01.sme"),
        value_case("an empty value is one").posted(""),
        value_case("an empty value and its NUL").posted("").into(1),
        value_case("there is no value").posted(std::nullopt).is_not_found(),
        value_case("there is another key").under("paths").is_not_found(),
        value_case("the key is a beginning").under("pat").is_not_found(),
        value_case("the key is empty").under("").is_not_found(),
        value_case("399 bytes fit").posted(std::string(399, 'a')),
        value_case("400 bytes do not").posted(std::string(400, 'a')).is_not_found(),
        value_case("nor do 5000").posted(std::string(5000, 'a')).is_not_found(),
        value_case("5000 bytes fit elsewhere").posted(std::string(5000, 'a')).into(5001),
        value_case("nothing fits nowhere").posted("").into(0).is_not_found(),
    };
    notification_room const room;
    for (value_case const& c : cases) {
        value_asker asker;
        asker.size = c.size;
        ASSERT_EQ(platform::add_observer("n", "o", value_asker::proc, &asker), 0) << c;
        EXPECT_EQ(
            platform::post_notification("n", "o", c.key, c.value ? c.value->c_str() : nullptr), 0);
        asker.done.wait();
        EXPECT_EQ(platform::remove_observer("n", "o", &asker), 0) << c;
        ASSERT_EQ(asker.outcomes.size(), 1U) << c;
        EXPECT_EQ(asker.outcomes[0].found, c.found) << c;
        EXPECT_EQ(asker.outcomes[0].text, c.found ? *c.value : "") << c;
        EXPECT_TRUE(asker.outcomes[0].kept_to_the_buffer) << c;
    }
}

TEST(Order, IsThatOfTheThreadThatPosts)
{
    // macOS may drop some when there are very many.
    int const               each = has_backend("macos") ? 50 : 500;
    notification_room const room;
    listener                one("object");
    std::thread             threads[4];
    for (int t = 0; t < 4; ++t) {
        threads[t] = std::thread([t, each] {
            for (int i = 0; i < each; ++i) {
                post("object", std::to_string(t) + " " + std::to_string(i));
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    auto const posted = static_cast<std::size_t>(4 * each);
    EXPECT_EQ(one.heard().wait_for(posted), posted);
    int next[4] = {};
    for (std::string const& value : one.heard().all()) {
        int& expected = next[value[0] - '0'];
        EXPECT_EQ(value.substr(2), std::to_string(expected));
        ++expected;
    }
}

// ------------------------------------------------------------------ removing

// Waits until nothing of so many posts is on its way to whoever else observes what the witness
// does.
//
// threads  those that run when nobody else observes
void expect_all_delivered(listener& witness, std::size_t posts, int threads)
{
    // The threads of others end; those who share one with the witness are called before it is over.
    EXPECT_TRUE(wait_for_running_threads(threads));
    EXPECT_EQ(witness.heard().wait_for(posts), posts);
    post(witness.object(), "end");
    EXPECT_TRUE(witness.heard().wait_for_last("end"));
}

TEST(Removing, WaitsForADeliveryInProgress)
{
    notification_room const room;
    listener                witness("object");
    texts const             sockets = notification_room::sockets(room.own());
    int const               threads = running_threads();
    gate                    begun;
    gate                    may_end;
    std::atomic<bool>       ended{false};
    listener                one("object", test_name, [&](std::string const&) {
        begun.open();
        may_end.wait();
        ended = true;
    });
    post("object", "the one in progress");
    begun.wait();
    for (int i = 0; i < 5; ++i) {
        post("object", "waiting in the socket");
    }
    waiter remover([&] {
        EXPECT_EQ(one.remove(), 0);
        EXPECT_TRUE(ended);
    });
    EXPECT_TRUE(remover.gets_blocked());
    EXPECT_EQ(notification_room::sockets(room.own()), sockets) << "nobody is to post to it";
    may_end.open();
    remover.join();
    expect_all_delivered(witness, 6, threads);
    EXPECT_EQ(one.heard().all(), texts{"the one in progress"}) << "nothing after the removal";
}

TEST(Removing, FromItsOwnDeliveryReturnsAtOnceAndIsTheEnd)
{
    notification_room const room;
    listener                witness("object");
    texts const             sockets = notification_room::sockets(room.own());
    int const               threads = running_threads();
    gate                    begun;
    gate                    may_remove;
    gate                    removed;
    int                     result = -2;
    listener*               self   = nullptr;
    listener                one("object", test_name, [&](std::string const&) {
        begun.open();
        may_remove.wait();
        result = self->remove();
        removed.open();
    });
    self = &one;
    post("object", "the first");
    begun.wait();
    post("object", "the second");
    post("object", "the third");
    may_remove.open();
    removed.wait();
    EXPECT_EQ(result, 0);
    EXPECT_EQ(one.remove(), -1);
    expect_all_delivered(witness, 3, threads);
    EXPECT_EQ(one.heard().all(), texts{"the first"});
    EXPECT_EQ(notification_room::sockets(room.own()), sockets);
}

TEST(Removing, AnotherFromADeliveryWaitsForThatOne)
{
    notification_room const room;
    gate                    done;
    int                     result = -2;
    listener                witness("victim");
    listener                victim("victim");
    listener                one("object", test_name, [&](std::string const&) {
        result = victim.remove();
        done.open();
    });
    post("object", "now");
    done.wait();
    EXPECT_EQ(result, 0);
    EXPECT_EQ(one.remove(), 0);
    int const threads = running_threads();
    post("victim", "too late");
    expect_all_delivered(witness, 1, threads);
    EXPECT_TRUE(victim.heard().all().empty());
}

TEST(Removing, FindsOnlyWhatWasAdded)
{
    notification_room const room;
    listener                one("object");
    int                     another = 0;
    EXPECT_EQ(platform::remove_observer("another", "object", &one), -1) << "another name";
    EXPECT_EQ(platform::remove_observer(test_name, "another", &one), -1) << "another object";
    EXPECT_EQ(platform::remove_observer(test_name, "object", &another), -1) << "another observer";
    EXPECT_EQ(platform::remove_observer(test_name, "object", nullptr), -1) << "no observer";
    EXPECT_EQ(one.remove(), 0);
    EXPECT_EQ(one.remove(), -1) << "removed already";
}

TEST(Removing, OneOfTwoEqualObserversLeavesTheOther)
{
    notification_room const room;
    heard_values            heard;
    auto const              note = [](platform::notification_center*, void* observer,
                         platform::notification_text const*, platform::notification_text const*,
                         platform::notification_info const*) {
        static_cast<heard_values*>(observer)->add("heard");
    };
    ASSERT_EQ(platform::add_observer("n", "o", note, &heard), 0);
    ASSERT_EQ(platform::add_observer("n", "o", note, &heard), 0);
    platform::post_notification("n", "o", "k", "v");
    EXPECT_EQ(heard.wait_for(2), 2U);
    EXPECT_EQ(platform::remove_observer("n", "o", &heard), 0);
    platform::post_notification("n", "o", "k", "v");
    EXPECT_EQ(heard.wait_for(3), 3U);
    EXPECT_EQ(platform::remove_observer("n", "o", &heard), 0);
    EXPECT_EQ(platform::remove_observer("n", "o", &heard), -1);
    EXPECT_EQ(heard.all().size(), 3U);
}

TEST(Removing, IsDoneByOneOfTwoThreads)
{
    notification_room const room;
    for (int i = 0; i < 50; ++i) {
        listener         one("object");
        std::atomic<int> removed{0};
        auto const       remove = [&] { removed += one.remove() == 0 ? 1 : 0; };
        std::thread      other(remove);
        remove();
        other.join();
        EXPECT_EQ(removed, 1);
    }
}

TEST(Adding, IsAllowedFromADelivery)
{
    notification_room const   room;
    std::unique_ptr<listener> second;
    gate                      added;
    listener                  one("object", test_name, [&](std::string const&) {
        second = std::make_unique<listener>("second");
        added.open();
    });
    post("object", "now");
    added.wait();
    EXPECT_EQ(second->added(), 0);
    post("second", "hello");
    EXPECT_EQ(second->heard().wait_for(1), 1U);
}

TEST(Posting, IsAllowedFromADelivery)
{
    notification_room const room;
    listener                one("object", test_name, [](std::string const& value) {
        if (value.size() < 5) {
            post("object", value + "+");
        }
    });
    post("object", "a");
    EXPECT_EQ(one.heard().wait_for(5), 5U);
    EXPECT_EQ(one.heard().all(), (texts{"a", "a+", "a++", "a+++", "a++++"}));
}

// ------------------------------------------------------------------ many at once

TEST(AddingAndRemoving, ByThreadsAtOnceWhileOthersPost)
{
    notification_room const  room;
    std::atomic<bool>        enough{false};
    std::vector<std::thread> threads;
    for (int t = 0; t < 2; ++t) {
        threads.emplace_back([&enough] {
            while (!enough) {
                post("object", "hello");
            }
        });
    }
    std::thread adders[2];
    for (std::thread& adder : adders) {
        adder = std::thread([] { add_and_remove(60); });
    }
    for (std::thread& adder : adders) {
        adder.join();
    }
    enough = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_TRUE(notification_room::sockets(room.own()).empty());
}

// ------------------------------------------------------------------ delivery

TEST(Delivery, OutlivesWhatAProcThrows)
{
    notification_room const room;
    listener                one("object", test_name, [](std::string const& value) {
        if (value == "an exception") {
            throw std::runtime_error("any");
        }
        if (value == "a number") {
            throw 7;
        }
    });
    texts const             values = {"an exception", "a number", "nothing", "an exception", "end"};
    for (std::string const& value : values) {
        post("object", value);
    }
    EXPECT_EQ(one.heard().wait_for(values.size()), values.size());
    EXPECT_EQ(one.heard().all(), values);
    EXPECT_EQ(one.remove(), 0);
}

TEST(Delivery, CallsOneProcAtATime)
{
    notification_room const room;
    std::atomic<int>        inside{0};
    listener                one("object", test_name, [&](std::string const&) {
        EXPECT_EQ(++inside, 1);
        std::this_thread::sleep_for(milliseconds(1));
        --inside;
    });
    std::thread             other([] {
        for (int i = 0; i < 30; ++i) {
            post("object", "hello");
        }
    });
    for (int i = 0; i < 30; ++i) {
        post("object", "hello");
    }
    other.join();
    EXPECT_EQ(one.heard().wait_for(60), 60U);
}

}  // namespace
}  // namespace zelieml::test
