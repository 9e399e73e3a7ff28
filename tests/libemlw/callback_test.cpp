// callback_test.cpp - what becomes of a result number, and who is told

#include "libemlw/callback.h"

#include <atomic>
#include <functional>
#include <gtest/gtest.h>
#include <limits>
#include <memory>
#include <new>
#include <stdexcept>
#include <thread>
#include <vector>

#include "libcb/libcb.h"
#include "libemlw/engine_record.h"
#include "tests/support/failing_new.h"
#include "tests/support/trace_recorder.h"

using namespace zelieml;

using strings = std::vector<std::string>;

TEST(ResultNumbers, HaveOneOfFourCodesAndItsText)
{
    struct row {
        int         number;
        eml_send_e  code;
        char const* text;
        char const* reason;
    };
    constexpr char const* ok         = "send(ok)";
    constexpr char const* other      = "error(other)";
    constexpr char const* connection = "error(connectioin)";  // spelled so on purpose
    constexpr char const* auth       = "error(auth)";
    row const             rows[]     = {
                        {0, eml_send_ok, ok, "sent"},
                        {1000, eml_send_error_connection, connection, "no SMTP server in the settings"},
                        {1001, eml_send_error_connection, connection, "not connected, or no good greeting"},
                        {1002, eml_send_error_connection, connection, "not ended"},
                        {1003, eml_send_error_connection, connection, "HELO refused"},
                        {1004, eml_send_error_auth, auth, "EHLO or authentication refused"},
                        {1005, eml_send_error_other, other, "message refused"},
                        {1006, eml_send_error_connection, connection, "QUIT refused"},
                        {2001, eml_send_error_connection, connection, "of POP3, used by nobody"},
                        {2002, eml_send_error_connection, connection, "POP3 session not started"},
                        {2003, eml_send_error_connection, connection, "POP3 session not ended"},
                        {2004, eml_send_error_auth, auth, "USER refused"},
                        {2005, eml_send_error_auth, auth, "PASS refused"},
                        {2006, eml_send_error_auth, auth, "APOP refused"},
                        {100, eml_send_error_other, other, "before any sending"},
                        {7, eml_send_error_other, other, "nobody's number"},
                        {-1, eml_send_error_other, other, "a plain failure"},
                        {1, eml_send_error_other, other, "a code is not a number"},
                        {2, eml_send_error_other, other, "likewise"},
                        {3, eml_send_error_other, other, "likewise"},
                        {999, eml_send_error_other, other, "just below the SMTP numbers"},
                        {1007, eml_send_error_other, other, "just above them"},
                        {2000, eml_send_error_other, other, "just below the POP3 numbers"},
                        {2007, eml_send_error_other, other, "just above them"},
                        {std::numeric_limits<int>::max(), eml_send_error_other, other, "the largest"},
                        {std::numeric_limits<int>::min(), eml_send_error_other, other, "the smallest"},
    };
    for (row const& r : rows) {
        EXPECT_EQ(get_callback_code(r.number), r.code) << r.number << ": " << r.reason;
        EXPECT_STREQ(get_callback_code_str(r.number), r.text) << r.number << ": " << r.reason;
    }
}

namespace
{

struct record_deleter {
    void operator()(void* cb) const { cb_destroy(cb); }
};
using record_holder = std::unique_ptr<void, record_deleter>;

}  // namespace

TEST(CallbackInfo, IsARecordWithTheCodeOfTheNumberAndTheText)
{
    record_holder const cb(create_callback_info(1004, "535 no\r\n"));
    ASSERT_NE(cb, nullptr);
    eml_send_e code = eml_send_ok;
    char       text[32];
    EXPECT_EQ(cb_get_code(cb.get(), &code), 0);
    EXPECT_EQ(code, eml_send_error_auth);
    EXPECT_EQ(cb_get_message(cb.get(), text, sizeof text), 0);
    EXPECT_STREQ(text, "535 no\r\n");
}

// The message ends at a NUL, like every string of the library.
TEST(CallbackInfo, TakesTheTextUpToANul)
{
    record_holder const cb(create_callback_info(0, std::string("a\0b", 3)));
    char                text[32];
    EXPECT_EQ(cb_get_message(cb.get(), text, sizeof text), 0);
    EXPECT_STREQ(text, "a");
}

TEST(CallbackInfo, WithoutMemoryIsNullAndTraced)
{
    std::string const long_text(200, 'x');  // has to be allocated, too
    for (int good = 0; good < 2; ++good) {
        test::clear_traces();
        void* cb = nullptr;
        {
            test::failing_new const once(good, 1);
            cb = create_callback_info(0, long_text);
        }
        EXPECT_EQ(cb, nullptr);
        EXPECT_EQ(test::traces(), strings{"error:cb_create"});
    }
}

// -------------------------------------------------------------- the callbacks

namespace
{

using callback = int (*)(void*, void*);

// What the numbered callbacks do besides writing down that they were called.
struct notes {
    // The numbers of those that were called, in order.
    std::vector<int> called;
    // By number.
    std::function<int(void* result)> action[4];
};

// Callbacks that differ in nothing but their number.
template <int number>
int numbered(void* result, void* user)
{
    auto* const n = static_cast<notes*>(user);
    n->called.push_back(number);
    return n->action[number] ? n->action[number](result) : 0;
}

constexpr callback numbered_callbacks[] = {numbered<0>, numbered<1>, numbered<2>, numbered<3>};

std::string text_of(void* result)
{
    char text[256] = "no text";
    cb_get_message(result, text, sizeof text);
    return text;
}

}  // namespace

TEST(CallbackParameter, EqualsAnotherOfTheSameFunction)
{
    int user = 0;
    EXPECT_TRUE(
        (c_cb_param{numbered_callbacks[0], &user} == c_cb_param{numbered_callbacks[0], nullptr}));
    EXPECT_FALSE(
        (c_cb_param{numbered_callbacks[0], &user} == c_cb_param{numbered_callbacks[1], &user}));
}

class Callbacks : public ::testing::Test
{
protected:
    Callbacks() { test::clear_traces(); }

    void set(int number)
    {
        EXPECT_EQ(set_callback_raw(&engine_, numbered_callbacks[number], &notes_), 0);
    }
    void reset(int number)
    {
        EXPECT_EQ(reset_callback_raw(&engine_, numbered_callbacks[number]), 0);
    }

    // Those that one attempt calls.
    std::vector<int> called(int result = 0)
    {
        notes_.called.clear();
        EXPECT_EQ(call_callback_raw(&engine_, "text", result), 0);
        return notes_.called;
    }

    _s_iemlw engine_;
    notes    notes_;
};

using numbers = std::vector<int>;

TEST_F(Callbacks, AreCalledInTheOrderOfRegistration)
{
    set(2);
    set(0);
    set(1);
    EXPECT_EQ(test::traces(), strings(3, "added proc"));
    EXPECT_EQ(called(), (numbers{2, 0, 1}));
    EXPECT_EQ(called(), (numbers{2, 0, 1})) << "each time";
}

TEST_F(Callbacks, ThatNobodyRegisteredAreNoFailure)
{
    EXPECT_EQ(called(), numbers());
    EXPECT_EQ(test::traces(), strings());
}

TEST_F(Callbacks, KeepTheirFirstUserData)
{
    notes other;
    set(0);
    test::clear_traces();
    EXPECT_EQ(set_callback_raw(&engine_, numbered_callbacks[0], &other), 0);
    EXPECT_EQ(test::traces(), strings{"warning:proc already exists in callback param"});
    EXPECT_EQ(called(), numbers{0}) << "one entry";
    EXPECT_EQ(other.called, numbers());
}

TEST_F(Callbacks, MayHaveTheSameUserDataOrNone)
{
    static int      called       = 0;
    static callback without_user = [](void*, void* user) {
        called += user == nullptr ? 1 : 100;
        return 0;
    };
    EXPECT_EQ(set_callback_raw(&engine_, without_user, nullptr), 0);
    EXPECT_EQ(call_callback_raw(&engine_, "", 0), 0);
    EXPECT_EQ(called, 1);
}

TEST_F(Callbacks, KeepTheirOrderWhenOneGoes)
{
    set(0);
    set(1);
    set(2);
    set(3);
    test::clear_traces();
    reset(1);
    EXPECT_EQ(test::traces(), strings{"the proc is erased."});
    EXPECT_EQ(called(), (numbers{0, 2, 3}));
    set(1);
    EXPECT_EQ(called(), (numbers{0, 2, 3, 1})) << "one that comes again is the last";
    reset(0);
    reset(1);
    reset(2);
    reset(3);
    EXPECT_EQ(called(), numbers());
}

TEST_F(Callbacks, StayWhenOneGoesThatNeverWasThere)
{
    reset(0);
    set(1);
    reset(2);
    EXPECT_EQ(test::traces(), (strings{"warning:the proc is not found", "added proc",
                                       "warning:the proc is not found"}));
    EXPECT_EQ(called(), numbers{1});
}

TEST_F(Callbacks, GetTheCodeAndTheText)
{
    struct row {
        int         result;
        std::string message;
        eml_send_e  code;
    };
    row const rows[] = {
        {0, "221 bye\r\n", eml_send_ok},
        {1004, "535 no\r\n", eml_send_error_auth},
        {7, "", eml_send_error_other},
        {1001, "-ERR late\r\n", eml_send_error_connection},
    };
    eml_send_e  code = eml_send_32_bits;
    std::string text;
    notes_.action[0] = [&](void* result) {
        EXPECT_EQ(cb_get_code(result, &code), 0);
        text = text_of(result);
        return 0;
    };
    set(0);
    for (row const& r : rows) {
        EXPECT_EQ(call_callback_raw(&engine_, r.message, r.result), 0);
        EXPECT_EQ(code, r.code) << r.result;
        EXPECT_EQ(text, r.message) << r.result;
    }
}

TEST_F(Callbacks, ShareOneRecordAndMayKeepACopy)
{
    std::vector<void*> records;
    void*              copy = nullptr;
    notes_.action[0]        = [&](void* result) {
        records.push_back(result);
        return eml_cb_duplicate(result, &copy);
    };
    notes_.action[1] = [&](void* result) {
        records.push_back(result);
        return 0;
    };
    set(0);
    set(1);
    EXPECT_EQ(called(1005), (numbers{0, 1}));
    ASSERT_EQ(records.size(), 2U);
    EXPECT_EQ(records[0], records[1]);

    eml_send_e code = eml_send_ok;
    EXPECT_EQ(eml_cb_get_code(copy, &code), 0);
    EXPECT_EQ(code, eml_send_error_other);
    EXPECT_EQ(text_of(copy), "text") << "the copy outlives the call";
    EXPECT_EQ(eml_cb_delete(copy), 0);
}

TEST_F(Callbacks, AreNotAskedWhetherTheySucceeded)
{
    for (int number = 0; number < 4; ++number) {
        notes_.action[number] = [number](void*) { return number - 1; };
        set(number);
    }
    EXPECT_EQ(called(), (numbers{0, 1, 2, 3}));
}

TEST_F(Callbacks, AreCalledAlsoAfterOneThatThrows)
{
    notes_.action[0] = [](void*) -> int { throw std::runtime_error("a callback's own"); };
    notes_.action[1] = [](void*) -> int { throw 1; };
    set(0);
    set(1);
    set(2);
    EXPECT_EQ(called(), (numbers{0, 1, 2}));
}

TEST_F(Callbacks, AreNotCalledWithoutMemoryForTheRecord)
{
    set(0);
    std::string const long_text(200, 'x');
    for (int good = 0; good < 2; ++good) {
        test::clear_traces();
        int called = 0;
        {
            test::failing_new const once(good, 1);
            called = call_callback_raw(&engine_, long_text, 0);
        }
        EXPECT_EQ(called, -1);
        EXPECT_EQ(notes_.called, numbers());
        EXPECT_EQ(test::traces(), strings{"error:cb_create"});
    }
}

TEST_F(Callbacks, AreAsTheyWereWhenThereIsNoMemoryForAChange)
{
    set(0);
    set(1);
    EXPECT_THROW(
        {
            test::failing_new const none(0);
            set_callback_raw(&engine_, numbered_callbacks[2], &notes_);
        },
        std::bad_alloc);
    EXPECT_THROW(
        {
            test::failing_new const none(0);
            reset_callback_raw(&engine_, numbered_callbacks[0]);
        },
        std::bad_alloc);
    EXPECT_EQ(called(), (numbers{0, 1}));
}

// -------------------------------------------------- changes during an attempt

TEST_F(Callbacks, MayChangeTheListWhichTakesEffectForTheNextAttempt)
{
    struct row {
        char const*           reason;
        std::function<void()> change;  // made by the second of 0, 1, 2
        numbers               next;
    };
    row const rows[] = {
        {"it removes itself", [&] { reset(1); }, {0, 2}},
        {"it removes one that was called", [&] { reset(0); }, {1, 2}},
        {"it removes one that is still to come", [&] { reset(2); }, {0, 1}},
        {"it registers another", [&] { set(3); }, {0, 1, 2, 3}},
        {"it registers itself once more", [&] { set(1); }, {0, 1, 2}},
        {"it puts itself at the end",
         [&] {
             reset(1);
             set(1);
         },
         {0, 2, 1}},
        {"it removes all",
         [&] {
             reset(0);
             reset(1);
             reset(2);
         },
         {}},
    };
    for (row const& r : rows) {
        notes_.action[1] = nullptr;
        for (int number = 0; number < 4; ++number) {
            reset(number);
        }
        set(0);
        set(1);
        set(2);
        notes_.action[1] = [&](void*) {
            r.change();
            return 0;
        };
        EXPECT_EQ(called(), (numbers{0, 1, 2})) << r.reason;
        notes_.action[1] = nullptr;
        EXPECT_EQ(called(), r.next) << r.reason;
    }
}

// Attempts are reported while other threads register and remove: each attempt has every callback
// that stays, in its order, and none twice.
TEST(CallbackContention, LosesNoCallbackAndCallsNoneTwice)
{
    struct counts {
        int called[4] = {};
    };
    static thread_local counts* in_this_attempt = nullptr;

    struct counting {
        static int stays(void*, void*) { return ++in_this_attempt->called[0]; }
        static int comes_and_goes(void*, void*) { return ++in_this_attempt->called[1]; }
        static int goes_and_comes(void*, void*) { return ++in_this_attempt->called[2]; }
        static int is_last(void*, void*) { return ++in_this_attempt->called[3]; }
    };

    _s_iemlw engine;
    set_callback_raw(&engine, counting::stays, nullptr);
    std::atomic<int>         changing{3};
    std::vector<std::thread> threads;
    for (callback const p : {counting::comes_and_goes, counting::goes_and_comes}) {
        threads.emplace_back([&engine, &changing, p] {
            for (int i = 0; i < 2000; ++i) {
                set_callback_raw(&engine, p, nullptr);
                reset_callback_raw(&engine, p);
            }
            --changing;
        });
    }
    threads.emplace_back([&] {
        for (int i = 0; i < 2000; ++i) {
            set_callback_raw(&engine, counting::is_last, nullptr);
        }
        --changing;
    });
    for (int reporters = 0; reporters < 2; ++reporters) {
        threads.emplace_back([&] {
            while (changing > 0) {
                counts seen;
                in_this_attempt = &seen;
                EXPECT_EQ(call_callback_raw(&engine, "", 0), 0);
                EXPECT_EQ(seen.called[0], 1);
                for (int number = 1; number < 4; ++number) {
                    EXPECT_LE(seen.called[number], 1);
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    auto const left = engine.callbacks.get();
    ASSERT_EQ(left->size(), 2U);
    EXPECT_EQ((*left)[0].proc, counting::stays);
    EXPECT_EQ((*left)[1].proc, counting::is_last);
}
