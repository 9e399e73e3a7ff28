// fake_crypto.h - a platform whose digests and key derivations fail when a test says so
//
// fake_crypto.cpp replaces platform/crypto.h with toys: they only tell pass phrases apart.

#ifndef ZELIEML_TESTS_SUPPORT_FAKE_CRYPTO_H
#define ZELIEML_TESTS_SUPPORT_FAKE_CRYPTO_H

namespace zelieml::test
{

struct crypto_faults {
    bool digest = false;
    bool derive = false;
    bool crypt  = false;
};

// From now on these operations fail.
void fail_crypto(crypto_faults faults);

// The number of key derivations so far, the failed ones included.
int derivations();

}  // namespace zelieml::test

#endif
