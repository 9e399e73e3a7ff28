// crypto.cpp - the Security framework's transforms
//
// A transform is made, given its attributes, and executed once over the whole input. The calling
// thread waits for threads of the system, which a forked child does not have: it would wait for
// ever.

#include "platform/crypto.h"

#include <Security/Security.h>
#include <cstdint>
#include <cstring>

#include "platform/macos/cf_owner.h"
#include "platform/macos/first_process.h"

namespace zelieml::platform
{

namespace
{

using transform_owner  = cf_owner<SecTransformRef>;
using key_owner        = cf_owner<SecKeyRef>;
using error_owner      = cf_owner<CFErrorRef>;
using data_owner       = cf_owner<CFDataRef>;
using dictionary_owner = cf_owner<CFMutableDictionaryRef>;

// The code of an error; never 0, whatever the framework stored.
int code_of(error_owner const& error)
{
    CFIndex const code = error ? ::CFErrorGetCode(error.get()) : 0;
    return code != 0 ? static_cast<int>(code) : errSecAllocate;
}

// A copy of some bytes. Empty when there is no memory.
data_owner make_data(void const* bytes, std::size_t size)
{
    static UInt8 const nothing = 0;
    if (!fits_cf_index(size)) {
        return nullptr;
    }
    return data_owner(::CFDataCreate(kCFAllocatorDefault,
                                     size != 0 ? static_cast<UInt8 const*>(bytes) : &nothing,
                                     static_cast<CFIndex>(size)));
}

// Copies the bytes of a result, which must have this size. Returns 0 or an error code.
int take_bytes(CFTypeRef result, unsigned char* out, std::size_t size)
{
    if (::CFGetTypeID(result) != ::CFDataGetTypeID()) {
        return errSecParam;
    }
    auto const data = static_cast<CFDataRef>(result);
    if (static_cast<std::size_t>(::CFDataGetLength(data)) != size) {
        return errSecParam;
    }
    std::memcpy(out, ::CFDataGetBytePtr(data), size);
    return 0;
}

// An attribute of a transform.
struct attribute {
    CFStringRef name;
    CFTypeRef   value;
};

// Runs a transform. Returns 0, with size bytes at out, or an error code.
template <std::size_t count>
int execute(SecTransformRef transform, attribute const (&attributes)[count], unsigned char* out,
            std::size_t size)
{
    error_owner error;
    for (attribute const& each : attributes) {
        if (::SecTransformSetAttribute(transform, each.name, each.value,
                                       cf_out<CFErrorRef>(error)) == 0) {
            return code_of(error);
        }
    }
    cf_owner<CFTypeRef> const result(::SecTransformExecute(transform, cf_out<CFErrorRef>(error)));
    return result ? take_bytes(result.get(), out, size) : code_of(error);
}

// An empty dictionary; an empty owner when there is no memory.
dictionary_owner make_dictionary()
{
    return dictionary_owner(::CFDictionaryCreateMutable(
        kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
}

cf_owner<CFNumberRef> make_number(unsigned value)
{
    auto const number = static_cast<std::int32_t>(value);
    return cf_owner<CFNumberRef>(
        ::CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt32Type, &number));
}

// The attributes of a key to be derived. Empty when there is no memory.
dictionary_owner derivation(CFDataRef salt, unsigned rounds, unsigned key_bits)
{
    dictionary_owner            attributes   = make_dictionary();
    cf_owner<CFNumberRef> const round_number = make_number(rounds);
    cf_owner<CFNumberRef> const size_number  = make_number(key_bits);
    if (!attributes || !round_number || !size_number) {
        return nullptr;
    }
    CFMutableDictionaryRef const all = attributes.get();
    ::CFDictionarySetValue(all, kSecAttrKeyType, kSecAttrKeyTypeRC4);
    ::CFDictionarySetValue(all, kSecAttrSalt, salt);
    ::CFDictionarySetValue(all, kSecAttrPRF, kSecAttrPRFHmacAlgSHA1);
    ::CFDictionarySetValue(all, kSecAttrRounds, round_number.get());
    ::CFDictionarySetValue(all, kSecAttrKeySizeInBits, size_number.get());
    ::CFDictionarySetValue(all, kSecAttrKeyClass, kSecAttrKeyClassSymmetric);
    ::CFDictionarySetValue(all, kSecAttrCanWrap, kCFBooleanFalse);
    return attributes;
}

}  // namespace

int digest_md5(void const* data, std::size_t size, unsigned char (&digest)[md5_size])
{
    if (is_forked()) {
        return errSecUnimplemented;
    }
    data_owner const input = make_data(data, size);
    if (!input) {
        return errSecAllocate;
    }
    error_owner           error;
    transform_owner const transform(
        ::SecDigestTransformCreate(kSecDigestMD5, 0, cf_out<CFErrorRef>(error)));  // 0: its length
    if (!transform) {
        return code_of(error);
    }
    attribute const attributes[] = {{kSecTransformInputAttributeName, input.get()}};
    return execute(transform.get(), attributes, digest, md5_size);
}

int derive_rc4_key(char const* pass_phrase, std::size_t pass_phrase_size, unsigned char const* salt,
                   std::size_t salt_size, unsigned rounds, unsigned char* key, unsigned key_bits)
{
    if (is_forked()) {
        return errSecUnimplemented;
    }
    // The framework takes at most 31 bits of rounds, and chooses for itself when given 0.
    if (rounds == 0 || rounds > INT32_MAX || key_bits == 0 || key_bits % 8 != 0 ||
        key_bits / 8 > rc4_max_size || !fits_cf_index(pass_phrase_size)) {
        return errSecParam;
    }
    cf_owner<CFStringRef> const phrase(::CFStringCreateWithBytes(
        kCFAllocatorDefault, reinterpret_cast<UInt8 const*>(pass_phrase),
        static_cast<CFIndex>(pass_phrase_size), kCFStringEncodingUTF8, 0));
    data_owner const            salt_data = make_data(salt, salt_size);
    dictionary_owner const      attributes =
        salt_data ? derivation(salt_data.get(), rounds, key_bits) : nullptr;
    if (!phrase || !attributes) {
        return errSecAllocate;
    }

    error_owner     error;
    key_owner const derived(
        ::SecKeyDeriveFromPassword(phrase.get(), attributes.get(), cf_out<CFErrorRef>(error)));
    if (!derived) {
        return code_of(error);
    }
    data_owner     raw;
    OSStatus const status =
        ::SecItemExport(derived.get(), kSecFormatRawKey, 0, nullptr, cf_out<CFDataRef>(raw));
    if (status != errSecSuccess) {
        return static_cast<int>(status);
    }
    return raw ? take_bytes(raw.get(), key, key_bits / 8) : errSecAllocate;
}

int rc4_crypt(unsigned char const* key, std::size_t key_size, crypt_direction direction,
              unsigned char const* in, std::size_t size, unsigned char* out)
{
    if (is_forked()) {
        return errSecUnimplemented;
    }
    if (key_size == 0 || key_size > rc4_max_size) {
        return errSecParam;
    }
    if (size == 0) {
        return 0;  // a transform without input has no output, which reads as a failure
    }
    data_owner const       key_data   = make_data(key, key_size);
    data_owner const       input      = make_data(in, size);
    dictionary_owner const parameters = make_dictionary();
    if (!key_data || !input || !parameters) {
        return errSecAllocate;
    }
    ::CFDictionarySetValue(parameters.get(), kSecAttrKeyType, kSecAttrKeyTypeRC4);

    error_owner     error;
    key_owner const made(
        ::SecKeyCreateFromData(parameters.get(), key_data.get(), cf_out<CFErrorRef>(error)));
    if (!made) {
        return code_of(error);
    }
    auto const            create = direction == crypt_direction::encrypt ? SecEncryptTransformCreate
                                                                         : SecDecryptTransformCreate;
    transform_owner const transform(create(made.get(), cf_out<CFErrorRef>(error)));
    if (!transform) {
        return code_of(error);
    }
    attribute const attributes[] = {{kSecEncryptionMode, kSecModeNoneKey},
                                    {kSecPaddingKey, kSecPaddingNoneKey},
                                    {kSecTransformInputAttributeName, input.get()}};
    return execute(transform.get(), attributes, out, size);
}

}  // namespace zelieml::platform
