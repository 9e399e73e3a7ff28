#include "tests/support/fake_crypto.h"

#include <atomic>

#include "platform/crypto.h"

namespace
{

std::atomic<bool> digest_fails{false};
std::atomic<bool> derive_fails{false};
std::atomic<bool> crypt_fails{false};
std::atomic<int>  derived{0};

constexpr int failure = 42;

// FNV-1a, continued.
unsigned hash(unsigned start, unsigned char const* data, std::size_t size)
{
    for (std::size_t i = 0; i < size; ++i) {
        start = (start ^ data[i]) * 16777619U;
    }
    return start;
}

void fill(unsigned number, unsigned char* out, std::size_t size)
{
    for (std::size_t i = 0; i < size; ++i) {
        out[i] = static_cast<unsigned char>(number >> 8 * (i % 4));
    }
}

}  // namespace

namespace zelieml
{

int platform::digest_md5(void const* data, std::size_t size, unsigned char (&digest)[md5_size])
{
    if (digest_fails) {
        return failure;
    }
    fill(hash(2166136261U, static_cast<unsigned char const*>(data), size), digest, sizeof digest);
    return 0;
}

int platform::derive_rc4_key(char const* pass_phrase, std::size_t pass_phrase_size,
                             unsigned char const* salt, std::size_t salt_size, unsigned rounds,
                             unsigned char* key, unsigned key_bits)
{
    ++derived;
    if (derive_fails) {
        // What it leaves behind must not be kept as a key.
        fill(0, key, key_bits / 8);
        return failure;
    }
    unsigned const number =
        hash(rounds, reinterpret_cast<unsigned char const*>(pass_phrase), pass_phrase_size);
    fill(hash(number, salt, salt_size), key, key_bits / 8);
    return 0;
}

int platform::rc4_crypt(unsigned char const* key, std::size_t               key_size,
                        crypt_direction /*direction*/, unsigned char const* in, std::size_t size,
                        unsigned char* out)
{
    if (crypt_fails) {
        return failure;
    }
    for (std::size_t i = 0; i < size; ++i) {
        out[i] = static_cast<unsigned char>(in[i] ^ key[i % key_size]);
    }
    return 0;
}

void test::fail_crypto(crypto_faults faults)
{
    digest_fails = faults.digest;
    derive_fails = faults.derive;
    crypt_fails  = faults.crypt;
}

int test::derivations()
{
    return derived;
}

}  // namespace zelieml
