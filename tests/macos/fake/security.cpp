// security.cpp - keys and transforms of the Security framework, by libnettle

#include <Security/Security.h>
#include <atomic>
#include <condition_variable>
#include <cstring>
#include <ctime>
#include <mutex>
#include <nettle/arcfour.h>
#include <nettle/md5.h>
#include <nettle/pbkdf2.h>

#include "tests/macos/fake/fake.h"
#include "tests/macos/fake/object.h"

using namespace zelieml::fake;

// The framework's names are strings of its own; a user compares and passes them on.
CFTypeRef const kSecAttrKeyType           = CFSTR("type");
CFTypeRef const kSecAttrKeyTypeRC4        = CFSTR("25");
CFTypeRef const kSecAttrKeyClass          = CFSTR("kcls");
CFTypeRef const kSecAttrKeyClassSymmetric = CFSTR("2");
CFTypeRef const kSecAttrKeySizeInBits     = CFSTR("bsiz");
CFTypeRef const kSecAttrCanWrap           = CFSTR("wrap");
CFTypeRef const kSecAttrPRF               = CFSTR("prf");
CFTypeRef const kSecAttrPRFHmacAlgSHA1    = CFSTR("hsha1");
CFTypeRef const kSecAttrSalt              = CFSTR("salt");
CFTypeRef const kSecAttrRounds            = CFSTR("rounds");

CFStringRef const kSecTransformInputAttributeName = CFSTR("INPUT");
CFStringRef const kSecPaddingNoneKey              = CFSTR("SecPaddingNoneKey");
CFStringRef const kSecModeNoneKey                 = CFSTR("SecModeNoneKey");
CFStringRef const kSecPaddingKey                  = CFSTR("SecPaddingKey");
CFStringRef const kSecEncryptionMode              = CFSTR("SecEncryptionMode");
CFStringRef const kSecDigestMD5                   = CFSTR("MD5 Digest");

namespace
{

std::atomic<int> derivations{0};

constexpr CFIndex errors[] = {errSecAllocate, errSecParam};

struct key_object : object {
    static constexpr kind what = kind::key;
    static constexpr auto name = "NSObject";
    bytes                 material;
};

enum class transform_type {
    md5,
    rc4
};

struct transform_object : object {
    static constexpr kind what = kind::transform;
    static constexpr auto name = "NSObject";

    ~transform_object()
    {
        for (CFTypeRef const held : {input, mode, padding, key}) {
            if (held != nullptr) {
                CFRelease(held);
            }
        }
    }

    transform_type type    = transform_type::md5;
    CFTypeRef      key     = nullptr;
    CFTypeRef      input   = nullptr;
    CFTypeRef      mode    = nullptr;
    CFTypeRef      padding = nullptr;
    bool           ran     = false;
};

// A transform that runs on a thread of its own.
struct execution {
    explicit execution(transform_object* run) : transform(run) {}

    transform_object* const transform;
    CFTypeRef               result = nullptr;
    bool                    ended  = false;
    std::mutex              guard;
    std::condition_variable changed;
};

constexpr timespec holding = {0, 2000000};  // how long that thread holds the transform after it

// The value of an attribute without which the framework does not do what is wanted.
CFTypeRef required(CFDictionaryRef attributes, CFTypeRef name, char const* function)
{
    CFTypeRef const value = CFDictionaryGetValue(attributes, name);
    if (value == nullptr) {
        refuse(function, "an attribute is missing");
    }
    return value;
}

void require_equal(CFDictionaryRef attributes, CFTypeRef name, CFTypeRef value,
                   char const* function)
{
    if (CFEqual(required(attributes, name, function), value) == FALSE) {
        refuse(function, "an attribute with a value that the fake does not have");
    }
}

SecKeyRef make_key(bytes const& material)
{
    auto* const made = make<key_object>();
    made->material   = material;
    return reinterpret_cast<SecKeyRef>(made);
}

SecTransformRef make_cipher(SecKeyRef key, CFErrorRef* error, char const* function)
{
    as<key_object>(key, function);
    if (!may_create()) {
        fail(error, errors[0]);
        return nullptr;
    }
    auto* const made = make<transform_object>();
    made->type       = transform_type::rc4;
    made->key        = CFRetain(key);
    return made;
}

CFTypeRef run_md5(bytes const& input)
{
    unsigned char digest[MD5_DIGEST_SIZE];
    md5_ctx       context;
    ::md5_init(&context);
    ::md5_update(&context, input.size(), input.data());
    ::md5_digest(&context, sizeof digest, digest);
    return make_data(digest, sizeof digest);
}

CFTypeRef run_rc4(bytes const& key, bytes const& input)
{
    arcfour_ctx context;
    ::arcfour_set_key(&context, key.size(), key.data());
    data_object* const made = make_data(input.data(), input.size());
    ::arcfour_crypt(&context, input.size(), made->content.data(), input.data());
    return made;
}

void* run(void* argument)
{
    constexpr char    function[] = "a transform's thread";
    auto* const       running    = static_cast<execution*>(argument);
    transform_object* transform  = running->transform;
    bytes const&      input      = as<data_object>(transform->input, function)->content;
    CFTypeRef const   result =
        transform->type == transform_type::rc4
              ? run_rc4(as<key_object>(transform->key, function)->material, input)
              : run_md5(input);
    {
        std::lock_guard<std::mutex> const hold(running->guard);
        running->result = result;
        running->ended  = true;
        running->changed.notify_all();  // under the lock: then the execution is gone
    }
    ::nanosleep(&holding, nullptr);
    let_go(transform, function);
    return nullptr;
}

}  // namespace

int zelieml::fake::key_derivations()
{
    return derivations;
}

SecKeyRef SecKeyDeriveFromPassword(CFStringRef password, CFDictionaryRef attributes,
                                   CFErrorRef* error)
{
    constexpr char function[] = "SecKeyDeriveFromPassword";
    ++derivations;
    require_equal(attributes, kSecAttrKeyType, kSecAttrKeyTypeRC4, function);
    require_equal(attributes, kSecAttrKeyClass, kSecAttrKeyClassSymmetric, function);
    require_equal(attributes, kSecAttrPRF, kSecAttrPRFHmacAlgSHA1, function);
    require_equal(attributes, kSecAttrCanWrap, kCFBooleanFalse, function);
    auto const* const salt =
        as<data_object>(required(attributes, kSecAttrSalt, function), function);
    auto const* const rounds =
        as<number_object>(required(attributes, kSecAttrRounds, function), function);
    auto const* const size =
        as<number_object>(required(attributes, kSecAttrKeySizeInBits, function), function);
    text phrase;
    encode(*as<string_object>(password, function), kCFStringEncodingUTF8, phrase);
    if (rounds->integer <= 0) {
        refuse(function, "so many rounds as the framework thinks fit");
    }
    bool const fits = size->integer > 0 && size->integer % 8 == 0 && size->integer <= 2048;
    if (!may_create() || !fits) {
        fail(error, errors[fits ? 0 : 1]);
        return nullptr;
    }
    bytes material(static_cast<std::size_t>(size->integer) / 8);
    ::pbkdf2_hmac_sha1(phrase.size(), reinterpret_cast<unsigned char const*>(phrase.data()),
                       static_cast<unsigned>(rounds->integer), salt->content.size(),
                       salt->content.data(), material.size(), material.data());
    return make_key(material);
}

SecKeyRef SecKeyCreateFromData(CFDictionaryRef attributes, CFDataRef data, CFErrorRef* error)
{
    constexpr char function[] = "SecKeyCreateFromData";
    require_equal(attributes, kSecAttrKeyType, kSecAttrKeyTypeRC4, function);
    bytes const& material = as<data_object>(data, function)->content;
    bool const   fits     = !material.empty() && material.size() <= 256;
    if (!may_create() || !fits) {
        fail(error, errors[fits ? 0 : 1]);
        return nullptr;
    }
    return make_key(material);
}

OSStatus SecItemExport(CFTypeRef item, SecExternalFormat format, SecItemImportExportFlags flags,
                       SecItemImportExportKeyParameters const* /*parameters*/, CFDataRef* exported)
{
    auto const* const key = as<key_object>(item, "SecItemExport");
    if (exported == nullptr) {
        refuse("SecItemExport", "null");
    }
    if (format != kSecFormatRawKey || flags != 0) {
        return errSecUnimplemented;
    }
    if (!may_create()) {
        return errSecAllocate;
    }
    *exported = reinterpret_cast<CFDataRef>(make_data(key->material.data(), key->material.size()));
    return errSecSuccess;
}

SecTransformRef SecEncryptTransformCreate(SecKeyRef key, CFErrorRef* error)
{
    return make_cipher(key, error, "SecEncryptTransformCreate");
}

SecTransformRef SecDecryptTransformCreate(SecKeyRef key, CFErrorRef* error)
{
    return make_cipher(key, error, "SecDecryptTransformCreate");
}

SecTransformRef SecDigestTransformCreate(CFTypeRef type, CFIndex length, CFErrorRef* error)
{
    if (CFEqual(type, kSecDigestMD5) == FALSE || length != 0) {
        refuse("SecDigestTransformCreate", "a digest that the fake does not have");
    }
    if (!may_create()) {
        fail(error, errors[0]);
        return nullptr;
    }
    return make<transform_object>();
}

Boolean SecTransformSetAttribute(SecTransformRef transform, CFStringRef key, CFTypeRef value,
                                 CFErrorRef* error)
{
    constexpr char function[] = "SecTransformSetAttribute";
    auto* const    held       = as<transform_object>(transform, function);
    checked(value, function);
    if (!may_create()) {
        fail(error, errors[0]);
        return FALSE;
    }
    bool const ciphers = held->type == transform_type::rc4;
    CFTypeRef* slot    = nullptr;
    if (CFEqual(key, kSecTransformInputAttributeName) != FALSE) {
        as<data_object>(value, function);
        slot = &held->input;
    } else if (ciphers && CFEqual(key, kSecEncryptionMode) != FALSE) {
        slot = &held->mode;
    } else if (ciphers && CFEqual(key, kSecPaddingKey) != FALSE) {
        slot = &held->padding;
    } else {
        refuse(function, "no attribute of this transform");
    }
    if (*slot != nullptr || held->ran) {
        fail(error, errors[1]);
        return FALSE;
    }
    *slot = CFRetain(value);
    return TRUE;
}

CFTypeRef SecTransformExecute(SecTransformRef transform, CFErrorRef* error)
{
    constexpr char function[] = "SecTransformExecute";
    auto* const    held       = as<transform_object>(transform, function);
    bool const     ciphers    = held->type == transform_type::rc4;
    if (held->input == nullptr ||
        (ciphers && (held->mode == nullptr || held->padding == nullptr))) {
        refuse(function, "an attribute is missing");
    }
    if (ciphers && (CFEqual(held->mode, kSecModeNoneKey) == FALSE ||
                    CFEqual(held->padding, kSecPaddingNoneKey) == FALSE)) {
        refuse(function, "RC4 has neither mode nor padding");
    }
    if (std::exchange(held->ran, true)) {
        refuse(function, "a transform runs once");
    }
    if (!may_create()) {
        fail(error, errors[0]);
        return nullptr;
    }
    execution running(held);
    hold_for_a_while(held, function);
    ::pthread_detach(start_thread(run, &running));
    std::unique_lock<std::mutex> hold(running.guard);
    running.changed.wait(hold, [&] { return running.ended; });
    return running.result;
}
