// passwd_key_test.cpp - the key of stored passwords
//
// The key of stored passwords is derived once in a process, so the order matters here: all that
// concerns it is one test.

#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <vector>

#include "libcryptw/libcryptw.h"
#include "tests/libcryptw/passwords.h"
#include "tests/support/bytes_of.h"
#include "tests/support/fake_crypto.h"
#include "tests/support/fake_heap.h"
#include "tests/support/trace_recorder.h"

namespace zelieml
{

namespace
{

using strings = std::vector<std::string>;
using test::bytes_of;
using test::password_of;
using test::result;
using test::stored_form;

result encrypted(std::string const& pass_phrase, std::string const& clear)
{
    unsigned long        len = 0;
    unsigned char* const cipher =
        encrypt2(pass_phrase.c_str(), bytes_of(clear), clear.size(), &len);
    if (cipher == nullptr) {
        return std::nullopt;
    }
    std::string bytes(reinterpret_cast<char const*>(cipher), len);
    icryptw().free(cipher);
    return bytes;
}

TEST(PasswordKey, IsKeptOnceItHasBeenDerivedAndServesNoOtherPassPhrase)
{
    // Failures are not kept.
    for (test::crypto_faults const& faults :
         {test::crypto_faults{true, false, false}, test::crypto_faults{false, true, false}}) {
        test::fail_crypto(faults);
        test::clear_traces();
        EXPECT_EQ(stored_form("secret"), std::nullopt);
        EXPECT_EQ(password_of("0123"), std::nullopt);
        EXPECT_EQ(test::trouble_traces(), (strings{"error:encrypt", "error:crypt.decrypt"}));
    }
    EXPECT_EQ(test::derivations(), 2);
    test::fail_crypto({});

    // The key of another pass phrase is not kept either.
    result const other = encrypted("another phrase", "secret");
    EXPECT_EQ(test::derivations(), 3);

    // Threads that need the key at once each derive it, or find it.
    std::vector<result>      forms(8);
    std::vector<std::thread> threads;
    for (result& form : forms) {
        threads.emplace_back([&form] { form = stored_form("secret"); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (result const& form : forms) {
        ASSERT_TRUE(form);
        EXPECT_EQ(form, forms.front());
    }
    int const derived = test::derivations();
    EXPECT_GE(derived, 4);
    EXPECT_LE(derived, 11);

    // From now on it is known, also to the function that takes any pass phrase.
    EXPECT_EQ(stored_form("secret"), forms.front());
    EXPECT_EQ(password_of(*forms.front()), "secret");
    EXPECT_TRUE(encrypted(get_passwdkey(), "secret"));
    test::fail_crypto({true, true, false});
    EXPECT_EQ(stored_form("secret"), forms.front());
    test::fail_crypto({});
    EXPECT_EQ(test::derivations(), derived);

    // Another pass phrase never meets it.
    EXPECT_EQ(encrypted("another phrase", "secret"), other);
    EXPECT_NE(encrypted(get_passwdkey(), "secret"), other);
    EXPECT_NE(encrypted("", "secret"), encrypted(get_passwdkey(), "secret"));
    EXPECT_EQ(test::derivations(), derived + 2);
}

TEST(PasswordKey, ARefusedEncryptionIsAFailureAndLeavesNothingBehind)
{
    int const before = test::live_heap_buffers();
    test::clear_traces();
    test::fail_crypto({false, false, true});
    EXPECT_EQ(stored_form("secret"), std::nullopt);
    EXPECT_EQ(password_of("0123"), std::nullopt);
    EXPECT_EQ(encrypted("phrase", "secret"), std::nullopt);
    test::fail_crypto({});
    EXPECT_EQ(test::trouble_traces(), (strings{"error:encrypt", "error:crypt.decrypt"}));
    EXPECT_EQ(test::live_heap_buffers(), before);
}

}  // namespace
}  // namespace zelieml
