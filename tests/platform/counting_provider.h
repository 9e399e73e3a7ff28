// counting_provider.h - a session whose memory a test counts and withholds

#ifndef ZELIEML_TESTS_PLATFORM_COUNTING_PROVIDER_H
#define ZELIEML_TESTS_PLATFORM_COUNTING_PROVIDER_H

#include <cstdlib>
#include <gtest/gtest.h>
#include <string>

#include "platform/key_handle.h"

namespace zelieml::test
{

struct counting_memory {
    int live = 0;
    int left = -1;  // requests that are still granted; negative: all

    bool granted()
    {
        if (left == 0) {
            return false;
        }
        if (left > 0) {
            --left;
        }
        ++live;
        return true;
    }

    csp_memory functions()
    {
        return {[](std::size_t size, void* ref) {
                    return static_cast<counting_memory*>(ref)->granted() ? std::malloc(size)
                                                                         : nullptr;
                },
                [](void* buffer, void* ref) {
                    if (buffer != nullptr) {
                        --static_cast<counting_memory*>(ref)->live;
                    }
                    std::free(buffer);
                },
                [](void* buffer, std::size_t size, void* /*ref*/) {
                    return std::realloc(buffer, size);
                },
                [](std::uint32_t count, std::size_t size, void* ref) {
                    return static_cast<counting_memory*>(ref)->granted() ? std::calloc(count, size)
                                                                         : nullptr;
                },
                this};
    }
};

// A test with a session, at whose end everything has to have been given back.
class ProviderTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_EQ(platform::start_provider(), 0);
        ASSERT_EQ(platform::attach(memory.functions(), session), 0);
    }

    void TearDown() override
    {
        memory.left = -1;
        EXPECT_EQ(memory.live, 1) << "keys, contexts and buffers have not been freed";
        EXPECT_EQ(platform::detach(session), 0);
        EXPECT_EQ(memory.live, 0);
    }

    // Frees a buffer of the session's and gives its bytes.
    std::string take(csp_buffer& buffer)
    {
        std::string      bytes(reinterpret_cast<char const*>(buffer.data), buffer.size);
        csp_memory const functions = memory.functions();
        functions.free_func(buffer.data, functions.ref);
        buffer = {};
        return bytes;
    }

    csp_key* rc4_key()
    {
        csp_key* key = nullptr;
        EXPECT_EQ(platform::derive_key(session, data("phrase"), data("saltsalt"), 1000,
                                       CSSM_ALGID_RC4, 40, key),
                  0);
        return key;
    }

    static csp_data data(std::string const& bytes) { return {bytes.data(), bytes.size()}; }

    counting_memory memory;
    csp_session*    session = nullptr;
};

}  // namespace zelieml::test

#endif
