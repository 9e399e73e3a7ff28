// callback_test.cpp - what becomes of a result number

#include "libemlw/callback.h"

#include <gtest/gtest.h>
#include <limits>
#include <memory>
#include <vector>

#include "libcb/libcb.h"
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

// The text ends at a NUL, like every text of the library.
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
