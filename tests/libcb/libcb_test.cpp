// libcb_test.cpp - the result record

#include "libcb/libcb.h"

#include <cstring>
#include <gtest/gtest.h>
#include <memory>

using namespace zelieml;

namespace
{

struct record_deleter {
    void operator()(void* cb) const { cb_destroy(cb); }
};
using record_holder = std::unique_ptr<void, record_deleter>;

record_holder new_record(eml_send_e code, char const* message)
{
    void* cb = nullptr;
    EXPECT_EQ(cb_create(&cb, code, message), 0);
    return record_holder(cb);
}

std::string message_of(void* cb)
{
    char buf[4096];
    EXPECT_EQ(cb_get_message(cb, buf, sizeof buf), 0);
    return buf;
}

eml_send_e code_of(void* cb)
{
    eml_send_e code = eml_send_32_bits;
    EXPECT_EQ(cb_get_code(cb, &code), 0);
    return code;
}

}  // namespace

TEST(ResultRecord, KeepsCodeAndMessageAsGiven)
{
    std::string const long_message(2000, 'x');
    struct row {
        eml_send_e  code;
        char const* message;
    };
    row const rows[] = {
        {eml_send_ok, "250 ok\r\n221 bye\r\n"},
        {eml_send_error_other, ""},
        {eml_send_error_connection, long_message.c_str()},
        {eml_send_error_auth, "535 \xe7\xb4\x99\r\n"},
        {static_cast<eml_send_e>(77), "a code that has no name"},
    };
    for (row const& r : rows) {
        record_holder const cb = new_record(r.code, r.message);
        EXPECT_EQ(code_of(cb.get()), r.code);
        EXPECT_EQ(message_of(cb.get()), r.message);
    }
}

TEST(ResultRecord, OwnsACopyOfTheMessage)
{
    char                message[] = "before";
    record_holder const cb        = new_record(eml_send_ok, message);
    std::strcpy(message, "after");
    EXPECT_EQ(message_of(cb.get()), "before");
}

TEST(ResultRecord, CopiesItsMessageWholeOrNotAtAll)
{
    record_holder const cb = new_record(eml_send_ok, "12345");
    struct row {
        int         size;
        int         result;
        char const* reason;
    };
    row const rows[] = {
        {6, 0, "five bytes and the NUL"},
        {7, 0, "more than enough"},
        {5, -1, "no room for the NUL"},
        {1, -1, "room for the NUL only"},
        {0, -1, "no room"},
        {-1, -1, "a negative size"},
        {-2147483647 - 1, -1, "the most negative size"},
    };
    for (row const& r : rows) {
        char buf[8] = "kept";
        EXPECT_EQ(cb_get_message(cb.get(), buf, r.size), r.result) << r.reason;
        EXPECT_STREQ(buf, r.result == 0 ? "12345" : "kept") << r.reason;
    }
}

TEST(ResultRecord, WithAnEmptyMessageNeedsOneByte)
{
    record_holder const cb    = new_record(eml_send_error_other, "");
    char                buf[] = "x";
    EXPECT_EQ(cb_get_message(cb.get(), buf, 0), -1);
    EXPECT_STREQ(buf, "x");
    EXPECT_EQ(cb_get_message(cb.get(), buf, 1), 0);
    EXPECT_STREQ(buf, "");
}

TEST(ResultRecord, IsCopiedWholeAndLivesOnWithoutTheOriginal)
{
    record_holder original = new_record(eml_send_error_auth, "535 no\r\n");
    void*         copy     = nullptr;
    ASSERT_EQ(cb_duplicate(original.get(), &copy), 0);
    record_holder const held(copy);
    EXPECT_NE(copy, original.get());
    original.reset();
    EXPECT_EQ(code_of(copy), eml_send_error_auth);
    EXPECT_EQ(message_of(copy), "535 no\r\n");
}

TEST(ResultRecord, HasNoCauseAndNoStepUnlessTheyAreSet)
{
    record_holder const cb    = new_record(eml_send_ok, "");
    eml_cause           cause = eml_cause_32_bits;
    char                step[33];
    EXPECT_EQ(cb_get_cause(cb.get(), &cause), 0);
    EXPECT_EQ(cause, eml_cause_none);
    EXPECT_EQ(cb_get_step(cb.get(), step, 1), 0);
    EXPECT_STREQ(step, "");

    static_cast<_s_cb*>(cb.get())->cause = eml_cause_lost;
    static_cast<_s_cb*>(cb.get())->step  = "text";
    void* made                           = nullptr;
    ASSERT_EQ(cb_duplicate(cb.get(), &made), 0);
    record_holder const copy(made);
    EXPECT_EQ(cb_get_cause(copy.get(), &cause), 0);
    EXPECT_EQ(cause, eml_cause_lost);
    EXPECT_EQ(cb_get_step(copy.get(), step, 4), -1) << "whole or not at all";
    EXPECT_STREQ(step, "");
    EXPECT_EQ(cb_get_step(copy.get(), step, 5), 0);
    EXPECT_STREQ(step, "text");
}

TEST(ResultRecord, RefusesNull)
{
    record_holder const cb     = new_record(eml_send_ok, "text");
    void*               out    = cb.get();
    eml_send_e          code   = eml_send_error_auth;
    char                buf[8] = "kept";

    EXPECT_EQ(cb_create(nullptr, eml_send_ok, "x"), -1);
    EXPECT_EQ(cb_create(&out, eml_send_ok, nullptr), -1);
    EXPECT_EQ(cb_duplicate(nullptr, &out), -1);
    EXPECT_EQ(cb_duplicate(cb.get(), nullptr), -1);
    EXPECT_EQ(cb_get_code(nullptr, &code), -1);
    EXPECT_EQ(cb_get_code(cb.get(), nullptr), -1);
    EXPECT_EQ(cb_get_message(nullptr, buf, 8), -1);
    EXPECT_EQ(cb_get_message(cb.get(), nullptr, 8), -1);

    EXPECT_EQ(out, cb.get()) << "the handle is untouched by a failure";
    EXPECT_EQ(code, eml_send_error_auth);
    EXPECT_STREQ(buf, "kept");
}

TEST(ResultRecord, AcceptsNullForDestruction)
{
    EXPECT_EQ(cb_destroy(nullptr), 0);
}
