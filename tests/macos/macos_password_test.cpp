// macos_password_test.cpp - how often stored passwords make the framework derive their key
//
// The framework may keep what each derivation attaches until the process ends: a daemon that logs in
// for each mail must not derive the key for each of them.

#include <gtest/gtest.h>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "tests/libcryptw/passwords.h"
#include "tests/macos/fake/fake.h"

namespace zelieml::test
{
namespace
{

// Encrypts and decrypts passwords; returns how many came back as they were.
int passwords_back(int count)
{
    int back = 0;
    for (int i = 0; i < count; ++i) {
        std::string const password = "password " + std::to_string(i);
        result const      stored   = stored_form(password);
        back += stored && password_of(*stored) == password ? 1 : 0;
    }
    return back;
}

// One test, because the key is known from the first password to the end of the process.
TEST(StoredPasswords, HaveTheirKeyDerivedOnce)
{
    EXPECT_EQ(passwords_back(100), 100);
    EXPECT_EQ(fake::key_derivations(), 1);

    std::vector<int>         back(4);
    std::vector<std::thread> threads;
    for (int& each : back) {
        threads.emplace_back([&each] { each = passwords_back(25); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(back, std::vector<int>(4, 25));
    EXPECT_EQ(fake::key_derivations(), 1);

    // A forked child knows the key, but cannot use it.
    pid_t const child = ::fork();
    if (child == 0) {
        ::_exit(stored_form("secret") || fake::key_derivations() != 1 ? 1 : 0);
    }
    int status = -1;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}

}  // namespace
}  // namespace zelieml::test
