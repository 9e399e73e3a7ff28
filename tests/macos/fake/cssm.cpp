// cssm.cpp - the key-handle interface, with a provider made of libnettle and libhogweed
//
// What a caller gets wrong with handles aborts; what a provider may refuse is an error code. Keys
// are given out as data only, in a form of the provider's own; sessions, contexts and keys count
// among the live objects.

#include <Security/Security.h>
#include <cstring>
#include <gmp.h>
#include <mutex>
#include <nettle/arcfour.h>
#include <nettle/bignum.h>
#include <nettle/md5.h>
#include <nettle/nettle-meta.h>
#include <nettle/pbkdf2.h>
#include <nettle/rsa.h>
#include <nettle/sha1.h>
#include <nettle/sha2.h>
#include <sys/random.h>

#include "tests/macos/fake/object.h"

using namespace zelieml::fake;

CSSM_GUID const gGuidAppleCSP = {
    0x87191ca2, 0x0fc9, 0x11d4, {0x84, 0x9a, 0x00, 0x05, 0x02, 0xb5, 0x21, 0x22}};

namespace
{

constexpr CSSM_RETURN no_memory  = -2147415038;
constexpr CSSM_RETURN bad_input  = -2147415036;
constexpr CSSM_RETURN bad_verify = -2147415794;
constexpr CSSM_RETURN not_ready  = -2147417599;

constexpr std::size_t smallest_salt = 8;
constexpr uint32      fewest_rounds = 1000;

enum class purpose {
    cipher,
    digest,
    derive,
    generate,
    sign
};

enum class stage {
    idle,
    encrypting,
    decrypting,
    digesting,
    signing,
    verifying
};

// A digest in progress.
struct hash_run {
    nettle_hash const* hash = nullptr;
    union {
        md5_ctx    md5;
        sha1_ctx   sha1;
        sha256_ctx sha256;
    } state;

    void begin(nettle_hash const* of)
    {
        hash = of;
        hash->init(&state);
    }
};

struct session {
    CSSM_CSP_HANDLE       handle = 0;
    CSSM_API_MEMORY_FUNCS memory = {};
    list<void const*>     keys;  // the data of those that are not freed
};

struct context {
    CSSM_CC_HANDLE  handle    = 0;
    CSSM_CSP_HANDLE csp       = 0;
    purpose         what      = purpose::cipher;
    CSSM_ALGORITHMS algorithm = CSSM_ALGID_NONE;
    stage           at        = stage::idle;
    CSSM_KEY const* key       = nullptr;  // the caller's, which has to live
    uint32          bits      = 0;
    uint32          rounds    = 0;
    bytes           salt;
    bytes           parameters;
    hash_run        digest;
    bool            ciphers = false;  // has been initialised
    arcfour_ctx     cipher  = {};
};

struct provider {
    std::mutex     guard;
    int            started = 0;
    bool           loaded  = false;
    CSSM_HANDLE    last    = 0;
    list<session*> sessions;
    list<context*> contexts;
};

provider& the_provider()
{
    static provider* const one = new (malloc_allocator<provider>().allocate(1)) provider();
    return *one;
}

// Finds by handle; refuses what is not, or no more.
template <class T, class Handle>
T* find(list<T*> const& all, Handle handle, char const* function)
{
    require_first_process(function);
    std::lock_guard<std::mutex> const hold(the_provider().guard);
    for (T* const one : all) {
        if (one->handle == handle) {
            return one;
        }
    }
    refuse(function, "no such handle, or no more");
}

session* session_of(CSSM_CSP_HANDLE handle, char const* function)
{
    return find(the_provider().sessions, handle, function);
}

context* context_of(CSSM_CC_HANDLE handle, purpose what, char const* function)
{
    context* const found = find(the_provider().contexts, handle, function);
    if (found->what != what) {
        refuse(function, "a context for something else");
    }
    return found;
}

template <class T>
void drop(list<T*>& all, T* gone)
{
    std::lock_guard<std::mutex> const hold(the_provider().guard);
    for (T*& one : all) {
        if (one == gone) {
            one = all.back();
            all.pop_back();
            break;
        }
    }
    gone->~T();
    std::free(gone);
}

template <class T>
T* add(list<T*>& all)
{
    T* const                          made = new (malloc_allocator<T>().allocate(1)) T();
    provider&                         one  = the_provider();
    std::lock_guard<std::mutex> const hold(one.guard);
    made->handle = static_cast<decltype(made->handle)>(++one.last);
    all.push_back(made);
    return made;
}

CSSM_RETURN make_context(CSSM_CSP_HANDLE csp, purpose what, CSSM_ALGORITHMS algorithm,
                         CSSM_CC_HANDLE* out, char const* function, context*& made)
{
    session_of(csp, function);
    if (out == nullptr) {
        refuse(function, "null");
    }
    if (!may_create()) {
        return no_memory;
    }
    made            = add(the_provider().contexts);
    made->csp       = csp;
    made->what      = what;
    made->algorithm = algorithm;
    *out            = made->handle;
    count_in("key-handle context");
    return CSSM_OK;
}

nettle_hash const* hash_of(CSSM_ALGORITHMS algorithm)
{
    switch (algorithm) {
    case CSSM_ALGID_MD5:
        return &nettle_md5;
    case CSSM_ALGID_SHA1:
    case CSSM_ALGID_SHA1WithRSA:
        return &nettle_sha1;
    case static_cast<CSSM_ALGORITHMS>(CSSM_ALGID_SHA256):
    case static_cast<CSSM_ALGORITHMS>(CSSM_ALGID_SHA256WithRSA):
        return &nettle_sha256;
    default:
        return nullptr;
    }
}

void check_pieces(CSSM_DATA const* pieces, uint32 count, char const* function)
{
    if (pieces == nullptr || count == 0) {
        refuse(function, "no input");
    }
    for (uint32 i = 0; i < count; ++i) {
        if (pieces[i].Data == nullptr) {
            refuse(function, "null data");
        }
    }
}

// Gives bytes to the caller, in its own buffer when it brought one.
CSSM_RETURN give(context const& from, void const* begin, std::size_t size, CSSM_DATA* out,
                 char const* function)
{
    if (out == nullptr) {
        refuse(function, "null");
    }
    session* const owner = session_of(from.csp, function);
    if (out->Data == nullptr) {
        out->Data = static_cast<uint8*>(owner->memory.malloc_func(size, owner->memory.AllocRef));
        if (out->Data == nullptr) {
            return no_memory;
        }
    } else if (out->Length < size) {
        return bad_input;
    }
    std::memcpy(out->Data, begin, size);
    out->Length = size;
    return CSSM_OK;
}

// ---- keys: numbers one after the other, each with its length before it

using number = mpz_t;

void put(bytes& out, mpz_srcptr value)
{
    std::size_t const size = ::nettle_mpz_sizeinbase_256_u(const_cast<mpz_ptr>(value));
    out.push_back(static_cast<unsigned char>(size >> 8));
    out.push_back(static_cast<unsigned char>(size));
    out.resize(out.size() + size);
    ::nettle_mpz_get_str_256(size, out.data() + out.size() - size, const_cast<mpz_ptr>(value));
}

// Takes the next number. Returns false when there is none.
bool take(CSSM_DATA& in, mpz_ptr value)
{
    if (in.Length < 2) {
        return false;
    }
    std::size_t const size = static_cast<std::size_t>(in.Data[0] << 8 | in.Data[1]);
    if (in.Length - 2 < size) {
        return false;
    }
    ::nettle_mpz_set_str_256_u(value, size, in.Data + 2);
    in.Data += 2 + size;
    in.Length -= 2 + size;
    return true;
}

CSSM_RETURN give_key(context const& from, bytes const& material, CSSM_ALGORITHMS algorithm,
                     CSSM_KEYCLASS key_class, uint32 bits, uint32 usage, uint32 attributes,
                     CSSM_KEY* key, char const* function)
{
    constexpr uint32 how =
        CSSM_KEYATTR_RETURN_DATA | CSSM_KEYATTR_RETURN_REF | CSSM_KEYATTR_RETURN_NONE;
    if (key == nullptr || (attributes & how) != CSSM_KEYATTR_RETURN_DATA) {
        refuse(function, "the fake gives keys out as data");
    }
    if (key_class != CSSM_KEYCLASS_PUBLIC_KEY && (attributes & CSSM_KEYATTR_EXTRACTABLE) == 0) {
        refuse(function, "a key that may not be extracted is not given out as data");
    }
    std::memset(key, 0, sizeof *key);
    CSSM_RETURN const given = give(from, material.data(), material.size(), &key->KeyData, function);
    if (given != CSSM_OK) {
        return given;
    }
    CSSM_KEYHEADER& header      = key->KeyHeader;
    header.HeaderVersion        = CSSM_KEYHEADER_VERSION;
    header.CspId                = gGuidAppleCSP;
    header.BlobType             = CSSM_KEYBLOB_RAW;
    header.Format               = CSSM_KEYBLOB_RAW_FORMAT_OCTET_STRING;
    header.AlgorithmId          = algorithm;
    header.KeyClass             = key_class;
    header.LogicalKeySizeInBits = bits;
    header.KeyAttr              = attributes & ~how;
    header.KeyUsage             = usage;
    session_of(from.csp, function)->keys.push_back(key->KeyData.Data);
    count_in("key-handle key");
    return CSSM_OK;
}

CSSM_KEY const* usable(CSSM_KEY const* key, CSSM_ALGORITHMS algorithm, uint32 usage,
                       char const* function)
{
    if (key == nullptr || key->KeyData.Data == nullptr) {
        refuse(function, "no key");
    }
    CSSM_KEYHEADER const& header = key->KeyHeader;
    if (header.HeaderVersion != CSSM_KEYHEADER_VERSION || header.BlobType != CSSM_KEYBLOB_RAW ||
        header.AlgorithmId != algorithm ||
        (header.KeyUsage & (static_cast<uint32>(CSSM_KEYUSE_ANY) | usage)) == 0) {
        refuse(function, "a key for something else");
    }
    return key;
}

// ---- random numbers, for libhogweed

void fill_random(void* /*context*/, std::size_t size, std::uint8_t* out)
{
    while (size > 0) {
        std::size_t const piece = size < 256 ? size : 256;
        if (::getentropy(out, piece) != 0) {
            std::abort();
        }
        out += piece;
        size -= piece;
    }
}

// ---- RSA

struct rsa_pair {
    rsa_pair()
    {
        ::rsa_public_key_init(&open);
        ::rsa_private_key_init(&secret);
    }
    ~rsa_pair()
    {
        ::rsa_private_key_clear(&secret);
        ::rsa_public_key_clear(&open);
    }
    rsa_pair(rsa_pair const&)            = delete;
    rsa_pair& operator=(rsa_pair const&) = delete;

    bool read_public(CSSM_DATA& in)
    {
        return take(in, open.n) && take(in, open.e) && ::rsa_public_key_prepare(&open) != 0;
    }

    bool read_private(CSSM_DATA& in)
    {
        return read_public(in) && take(in, secret.d) && take(in, secret.p) && take(in, secret.q) &&
               take(in, secret.a) && take(in, secret.b) && take(in, secret.c) &&
               ::rsa_private_key_prepare(&secret) != 0;
    }

    rsa_public_key  open;
    rsa_private_key secret;
};

CSSM_RETURN generate_rsa(context const& from, bytes& open, bytes& secret)
{
    rsa_pair pair;
    ::mpz_set_ui(pair.open.e, 65537);
    if (::rsa_generate_keypair(&pair.open, &pair.secret, nullptr, fill_random, nullptr, nullptr,
                               from.bits, 0) == 0) {
        return bad_input;
    }
    put(open, pair.open.n);
    put(open, pair.open.e);
    secret = open;
    for (mpz_srcptr const value : {pair.secret.d, pair.secret.p, pair.secret.q, pair.secret.a,
                                   pair.secret.b, pair.secret.c}) {
        put(secret, value);
    }
    return CSSM_OK;
}

// ---- Diffie-Hellman

// Takes one DER element. Returns false when it is not one of this tag.
bool take_der(CSSM_DATA& in, unsigned char tag, CSSM_DATA& content)
{
    if (in.Length < 2 || in.Data[0] != tag) {
        return false;
    }
    std::size_t at   = 2;
    std::size_t size = in.Data[1];
    if (size >= 0x80) {
        std::size_t const more = size & 0x7f;
        if (more > 2 || in.Length < 2 + more) {
            return false;
        }
        size = 0;
        for (; at < 2 + more; ++at) {
            size = size << 8 | in.Data[at];
        }
    }
    if (in.Length - at < size) {
        return false;
    }
    content = {size, in.Data + at};
    in.Data += at + size;
    in.Length -= at + size;
    return true;
}

// Prime and base, from a parameter block: the object identifier of PKCS 3, and its parameters.
bool read_group(bytes& block, mpz_ptr prime, mpz_ptr base)
{
    constexpr unsigned char pkcs3[] = {0x2a, 0x86, 0x48, 0x86, 0xf7, 0x0d, 0x01, 0x03, 0x01};

    CSSM_DATA in = {block.size(), block.data()};
    CSSM_DATA outer;
    CSSM_DATA identifier;
    CSSM_DATA parameters;
    CSSM_DATA p;
    CSSM_DATA g;
    if (!take_der(in, 0x30, outer) || in.Length != 0 || !take_der(outer, 0x06, identifier) ||
        identifier.Length != sizeof pkcs3 ||
        std::memcmp(identifier.Data, pkcs3, sizeof pkcs3) != 0 ||
        !take_der(outer, 0x30, parameters) || outer.Length != 0 || !take_der(parameters, 0x02, p) ||
        !take_der(parameters, 0x02, g)) {
        return false;
    }
    ::nettle_mpz_set_str_256_u(prime, p.Length, p.Data);
    ::nettle_mpz_set_str_256_u(base, g.Length, g.Data);
    return true;
}

struct exchange_numbers {
    exchange_numbers() { ::mpz_inits(prime, base, secret, open, nullptr); }
    ~exchange_numbers() { ::mpz_clears(prime, base, secret, open, nullptr); }
    exchange_numbers(exchange_numbers const&)            = delete;
    exchange_numbers& operator=(exchange_numbers const&) = delete;

    number prime;
    number base;
    number secret;
    number open;
};

CSSM_RETURN generate_exchange(context& from, bytes& open, bytes& secret)
{
    exchange_numbers numbers;
    if (!read_group(from.parameters, numbers.prime, numbers.base) ||
        (::mpz_sizeinbase(numbers.prime, 2) + 7) / 8 != (from.bits + 7) / 8) {
        return bad_input;
    }
    ::nettle_mpz_random(numbers.secret, nullptr, fill_random, numbers.prime);
    ::mpz_powm(numbers.open, numbers.base, numbers.secret, numbers.prime);
    open.resize(::nettle_mpz_sizeinbase_256_u(numbers.open));
    ::nettle_mpz_get_str_256(open.size(), open.data(), numbers.open);
    put(secret, numbers.prime);
    put(secret, numbers.secret);
    return CSSM_OK;
}

CSSM_RETURN derive_exchange(context const& from, CSSM_DATA const& other, bytes& material)
{
    exchange_numbers numbers;
    CSSM_DATA        own = from.key->KeyData;
    if (other.Length == 0 || !take(own, numbers.prime) || !take(own, numbers.secret)) {
        return bad_input;
    }
    ::nettle_mpz_set_str_256_u(numbers.base, other.Length, other.Data);
    if (::mpz_cmp(numbers.base, numbers.prime) >= 0) {
        return bad_input;
    }
    ::mpz_powm(numbers.open, numbers.base, numbers.secret, numbers.prime);
    bytes shared((::mpz_sizeinbase(numbers.prime, 2) + 7) / 8);
    ::nettle_mpz_get_str_256(shared.size(), shared.data(), numbers.open);
    if (material.size() > shared.size()) {
        return bad_input;
    }
    std::memcpy(material.data(), shared.data(), material.size());
    return CSSM_OK;
}

CSSM_RETURN derive_pbkdf2(context const& from, CSSM_DATA const& parameter, bytes& material)
{
    if (parameter.Length != sizeof(CSSM_PKCS5_PBKDF2_PARAMS)) {
        refuse("CSSM_DeriveKey", "no parameters of PKCS 5");
    }
    CSSM_PKCS5_PBKDF2_PARAMS parameters;
    std::memcpy(&parameters, parameter.Data, sizeof parameters);
    if (parameters.PseudoRandomFunction != CSSM_PKCS5_PBKDF2_PRF_HMAC_SHA1 ||
        parameters.Passphrase.Data == nullptr || from.salt.size() < smallest_salt ||
        from.rounds < fewest_rounds) {
        return bad_input;
    }
    ::pbkdf2_hmac_sha1(parameters.Passphrase.Length, parameters.Passphrase.Data, from.rounds,
                       from.salt.size(), from.salt.data(), material.size(), material.data());
    return CSSM_OK;
}

// ---- steps that several functions share

CSSM_RETURN begin_hash(CSSM_CC_HANDLE handle, purpose what, stage next, char const* function)
{
    context* const running = context_of(handle, what, function);
    if (!may_create()) {
        return no_memory;
    }
    running->digest.begin(hash_of(running->algorithm));
    running->at = next;
    return CSSM_OK;
}

CSSM_RETURN update_hash(CSSM_CC_HANDLE handle, purpose what, stage wanted, CSSM_DATA const* pieces,
                        uint32 count, char const* function)
{
    context* const running = context_of(handle, what, function);
    check_pieces(pieces, count, function);
    if (running->at != wanted) {
        refuse(function, "not begun");
    }
    if (!may_create()) {
        return no_memory;
    }
    for (uint32 i = 0; i < count; ++i) {
        running->digest.hash->update(&running->digest.state, pieces[i].Length, pieces[i].Data);
    }
    return CSSM_OK;
}

// The context of a text that ends, and its digest.
context* end_hash(CSSM_CC_HANDLE handle, purpose what, stage wanted,
                  unsigned char (&digest)[SHA256_DIGEST_SIZE], char const* function)
{
    context* const running = context_of(handle, what, function);
    if (running->at != wanted) {
        refuse(function, "not begun");
    }
    running->at = stage::idle;
    running->digest.hash->digest(&running->digest.state, running->digest.hash->digest_size, digest);
    return running;
}

CSSM_RETURN begin_cipher(CSSM_CC_HANDLE handle, stage next, char const* function)
{
    context* const running = context_of(handle, purpose::cipher, function);
    if (running->ciphers) {
        refuse(function, "initialised again, it loses the cipher that it has");
    }
    if (!may_create()) {
        return no_memory;
    }
    CSSM_DATA const& key = running->key->KeyData;
    if (key.Length == 0 || key.Length > ARCFOUR_MAX_KEY_SIZE) {
        return bad_input;
    }
    ::arcfour_set_key(&running->cipher, key.Length, key.Data);
    running->ciphers = true;
    running->at      = next;
    return CSSM_OK;
}

CSSM_RETURN update_cipher(CSSM_CC_HANDLE handle, stage wanted, CSSM_DATA const* in, uint32 in_count,
                          CSSM_DATA* out, uint32 out_count, CSSM_SIZE* produced,
                          char const* function)
{
    context* const running = context_of(handle, purpose::cipher, function);
    check_pieces(in, in_count, function);
    if (running->at != wanted || in_count != 1 || out_count != 1 || out == nullptr ||
        out->Data == nullptr || produced == nullptr) {
        refuse(function, "not begun, or not from one buffer to another");
    }
    if (!may_create()) {
        return no_memory;
    }
    if (out->Length < in->Length) {
        return bad_input;
    }
    ::arcfour_crypt(&running->cipher, in->Length, out->Data, in->Data);
    *produced = in->Length;
    return CSSM_OK;
}

CSSM_RETURN end_cipher(CSSM_CC_HANDLE handle, stage wanted, CSSM_DATA* rest, char const* function)
{
    context* const running = context_of(handle, purpose::cipher, function);
    if (running->at != wanted || rest == nullptr) {
        refuse(function, "not begun, or null");
    }
    running->at = stage::idle;
    if (!may_create()) {
        return no_memory;
    }
    rest->Length = 0;  // a stream cipher holds nothing back
    return CSSM_OK;
}

}  // namespace

// ------------------------------------------------------------------ modules

CSSM_RETURN CSSM_Init(CSSM_VERSION const* version, CSSM_PRIVILEGE_SCOPE /*scope*/,
                      CSSM_GUID const*    caller, CSSM_KEY_HIERARCHY /*hierarchy*/,
                      CSSM_PVC_MODE* policy, void const* reserved)
{
    require_first_process("CSSM_Init");
    if (version == nullptr || version->Major != 2 || caller == nullptr || policy == nullptr ||
        reserved != nullptr) {
        refuse("CSSM_Init", "not as the standard says");
    }
    if (!may_create()) {
        return no_memory;
    }
    ++the_provider().started;
    return CSSM_OK;
}

CSSM_RETURN CSSM_ModuleLoad(CSSM_GUID const* module, CSSM_KEY_HIERARCHY /*hierarchy*/,
                            CSSM_API_ModuleEventHandler /*notify*/, void* /*context*/)
{
    require_first_process("CSSM_ModuleLoad");
    if (module == nullptr || std::memcmp(module, &gGuidAppleCSP, sizeof *module) != 0) {
        refuse("CSSM_ModuleLoad", "a module that the fake does not have");
    }
    if (the_provider().started == 0) {
        return not_ready;
    }
    if (!may_create()) {
        return no_memory;
    }
    the_provider().loaded = true;
    return CSSM_OK;
}

CSSM_RETURN CSSM_ModuleAttach(CSSM_GUID const* module, CSSM_VERSION const* version,
                              CSSM_API_MEMORY_FUNCS const* memory, uint32 /*subservice*/,
                              CSSM_SERVICE_TYPE            type, CSSM_ATTACH_FLAGS /*flags*/,
                              CSSM_KEY_HIERARCHY /*hierarchy*/, CSSM_FUNC_NAME_ADDR* /*functions*/,
                              uint32 /*function_count*/, void const* /*reserved*/,
                              CSSM_MODULE_HANDLE_PTR handle)
{
    constexpr char function[] = "CSSM_ModuleAttach";
    require_first_process(function);
    if (module == nullptr || version == nullptr || memory == nullptr || handle == nullptr ||
        type != CSSM_SERVICE_CSP || memory->malloc_func == nullptr ||
        memory->free_func == nullptr || memory->realloc_func == nullptr ||
        memory->calloc_func == nullptr) {
        refuse(function, "not as the standard says");
    }
    if (!the_provider().loaded) {
        return not_ready;
    }
    if (!may_create()) {
        return no_memory;
    }
    session* const made = add(the_provider().sessions);
    made->memory        = *memory;
    *handle             = made->handle;
    count_in("key-handle session");
    return CSSM_OK;
}

CSSM_RETURN CSSM_ModuleDetach(CSSM_MODULE_HANDLE handle)
{
    constexpr char function[] = "CSSM_ModuleDetach";
    session* const ended      = session_of(handle, function);
    if (!ended->keys.empty()) {
        refuse(function, "a key is not freed");
    }
    {
        std::lock_guard<std::mutex> const hold(the_provider().guard);
        for (context const* const one : the_provider().contexts) {
            if (one->csp == handle) {
                refuse(function, "a context is not deleted");
            }
        }
    }
    drop(the_provider().sessions, ended);
    count_out("key-handle session");
    return CSSM_OK;
}

// ------------------------------------------------------------------ contexts

CSSM_RETURN CSSM_CSP_CreateSignatureContext(CSSM_CSP_HANDLE csp, CSSM_ALGORITHMS algorithm,
                                            CSSM_ACCESS_CREDENTIALS const* /*credentials*/,
                                            CSSM_KEY const* key, CSSM_CC_HANDLE* handle)
{
    constexpr char function[] = "CSSM_CSP_CreateSignatureContext";
    usable(key, CSSM_ALGID_RSA, CSSM_KEYUSE_SIGN | CSSM_KEYUSE_VERIFY, function);
    if (hash_of(algorithm) == nullptr) {
        refuse(function, "a signature that the fake does not have");
    }
    context*          made   = nullptr;
    CSSM_RETURN const status = make_context(csp, purpose::sign, algorithm, handle, function, made);
    if (status == CSSM_OK) {
        made->key = key;
    }
    return status;
}

CSSM_RETURN CSSM_CSP_CreateSymmetricContext(CSSM_CSP_HANDLE csp, CSSM_ALGORITHMS algorithm,
                                            CSSM_ENCRYPT_MODE              mode,
                                            CSSM_ACCESS_CREDENTIALS const* credentials,
                                            CSSM_KEY const* key, CSSM_DATA const* /*vector*/,
                                            CSSM_PADDING    padding, void* /*reserved*/,
                                            CSSM_CC_HANDLE* handle)
{
    constexpr char function[] = "CSSM_CSP_CreateSymmetricContext";
    if (algorithm != CSSM_ALGID_RC4 || mode != CSSM_ALGMODE_NONE || padding != CSSM_PADDING_NONE ||
        credentials == nullptr) {
        refuse(function, "not what RC4 takes");
    }
    usable(key, CSSM_ALGID_RC4, CSSM_KEYUSE_ENCRYPT | CSSM_KEYUSE_DECRYPT, function);
    context*          made = nullptr;
    CSSM_RETURN const status =
        make_context(csp, purpose::cipher, algorithm, handle, function, made);
    if (status == CSSM_OK) {
        made->key = key;
    }
    return status;
}

CSSM_RETURN CSSM_CSP_CreateDigestContext(CSSM_CSP_HANDLE csp, CSSM_ALGORITHMS algorithm,
                                         CSSM_CC_HANDLE* handle)
{
    constexpr char function[] = "CSSM_CSP_CreateDigestContext";
    if (hash_of(algorithm) == nullptr) {
        refuse(function, "a digest that the fake does not have");
    }
    context* made = nullptr;
    return make_context(csp, purpose::digest, algorithm, handle, function, made);
}

CSSM_RETURN CSSM_CSP_CreateDeriveKeyContext(CSSM_CSP_HANDLE csp, CSSM_ALGORITHMS algorithm,
                                            CSSM_KEY_TYPE derived_type, uint32 derived_bits,
                                            CSSM_ACCESS_CREDENTIALS const* /*credentials*/,
                                            CSSM_KEY const* base, uint32 iterations,
                                            CSSM_DATA const* salt, CSSM_CRYPTO_DATA const* /*seed*/,
                                            CSSM_CC_HANDLE*  handle)
{
    constexpr char function[] = "CSSM_CSP_CreateDeriveKeyContext";
    bool const     exchange   = algorithm == CSSM_ALGID_DH;
    if (derived_type != CSSM_ALGID_RC4 || derived_bits == 0 ||
        (!exchange && (algorithm != CSSM_ALGID_PKCS5_PBKDF2 || salt == nullptr))) {
        refuse(function, "a derivation that the fake does not have");
    }
    if (exchange) {
        usable(base, CSSM_ALGID_DH, CSSM_KEYUSE_DERIVE, function);
    }
    context*          made = nullptr;
    CSSM_RETURN const status =
        make_context(csp, purpose::derive, algorithm, handle, function, made);
    if (status == CSSM_OK) {
        made->key    = base;
        made->bits   = derived_bits;
        made->rounds = iterations;
        if (salt != nullptr) {
            made->salt.assign(salt->Data, salt->Data + salt->Length);
        }
    }
    return status;
}

CSSM_RETURN CSSM_CSP_CreateKeyGenContext(CSSM_CSP_HANDLE csp, CSSM_ALGORITHMS algorithm,
                                         uint32 bits, CSSM_CRYPTO_DATA const* /*seed*/,
                                         CSSM_DATA const* /*salt*/, CSSM_DATE const* /*start*/,
                                         CSSM_DATE const* /*end*/, CSSM_DATA const* parameters,
                                         CSSM_CC_HANDLE* handle)
{
    constexpr char function[] = "CSSM_CSP_CreateKeyGenContext";
    if (algorithm != CSSM_ALGID_RSA && (algorithm != CSSM_ALGID_DH || parameters == nullptr)) {
        refuse(function, "keys that the fake does not have");
    }
    context*          made = nullptr;
    CSSM_RETURN const status =
        make_context(csp, purpose::generate, algorithm, handle, function, made);
    if (status == CSSM_OK) {
        made->bits = bits;
        if (parameters != nullptr) {
            made->parameters.assign(parameters->Data, parameters->Data + parameters->Length);
        }
    }
    return status;
}

CSSM_RETURN CSSM_DeleteContext(CSSM_CC_HANDLE handle)
{
    drop(the_provider().contexts, find(the_provider().contexts, handle, "CSSM_DeleteContext"));
    count_out("key-handle context");
    return CSSM_OK;
}

// ------------------------------------------------------------------ signatures

CSSM_RETURN CSSM_SignDataInit(CSSM_CC_HANDLE handle)
{
    return begin_hash(handle, purpose::sign, stage::signing, "CSSM_SignDataInit");
}

CSSM_RETURN CSSM_SignDataUpdate(CSSM_CC_HANDLE handle, CSSM_DATA const* pieces, uint32 count)
{
    return update_hash(handle, purpose::sign, stage::signing, pieces, count, "CSSM_SignDataUpdate");
}

CSSM_RETURN CSSM_SignDataFinal(CSSM_CC_HANDLE handle, CSSM_DATA_PTR signature)
{
    constexpr char function[] = "CSSM_SignDataFinal";
    unsigned char  digest[SHA256_DIGEST_SIZE];
    context* const running = end_hash(handle, purpose::sign, stage::signing, digest, function);
    rsa_pair       pair;
    CSSM_DATA      key = usable(running->key, CSSM_ALGID_RSA, CSSM_KEYUSE_SIGN, function)->KeyData;
    number         value;
    if (!may_create() || !pair.read_private(key)) {
        return no_memory;
    }
    ::mpz_init(value);
    auto const  sign   = running->algorithm == CSSM_ALGID_SHA1WithRSA ? ::rsa_sha1_sign_digest_tr
                                                                      : ::rsa_sha256_sign_digest_tr;
    CSSM_RETURN status = bad_input;
    if (sign(&pair.open, &pair.secret, nullptr, fill_random, digest, value) != 0) {
        bytes made(pair.secret.size);
        ::nettle_mpz_get_str_256(made.size(), made.data(), value);
        status = give(*running, made.data(), made.size(), signature, function);
    }
    ::mpz_clear(value);
    return status;
}

CSSM_RETURN CSSM_VerifyDataInit(CSSM_CC_HANDLE handle)
{
    return begin_hash(handle, purpose::sign, stage::verifying, "CSSM_VerifyDataInit");
}

CSSM_RETURN CSSM_VerifyDataUpdate(CSSM_CC_HANDLE handle, CSSM_DATA const* pieces, uint32 count)
{
    return update_hash(handle, purpose::sign, stage::verifying, pieces, count,
                       "CSSM_VerifyDataUpdate");
}

CSSM_RETURN CSSM_VerifyDataFinal(CSSM_CC_HANDLE handle, CSSM_DATA const* signature)
{
    constexpr char function[] = "CSSM_VerifyDataFinal";
    unsigned char  digest[SHA256_DIGEST_SIZE];
    context* const running = end_hash(handle, purpose::sign, stage::verifying, digest, function);
    check_pieces(signature, 1, function);
    rsa_pair  pair;
    CSSM_DATA key = usable(running->key, CSSM_ALGID_RSA, CSSM_KEYUSE_VERIFY, function)->KeyData;
    number    value;
    if (!may_create() || !pair.read_public(key)) {
        return no_memory;
    }
    if (signature->Length != pair.open.size) {
        return bad_verify;
    }
    ::nettle_mpz_init_set_str_256_u(value, signature->Length, signature->Data);
    auto const verify = running->algorithm == CSSM_ALGID_SHA1WithRSA ? ::rsa_sha1_verify_digest
                                                                     : ::rsa_sha256_verify_digest;
    CSSM_RETURN const status = verify(&pair.open, digest, value) != 0 ? CSSM_OK : bad_verify;
    ::mpz_clear(value);
    return status;
}

// ------------------------------------------------------------------ digests

CSSM_RETURN CSSM_DigestDataInit(CSSM_CC_HANDLE handle)
{
    return begin_hash(handle, purpose::digest, stage::digesting, "CSSM_DigestDataInit");
}

CSSM_RETURN CSSM_DigestDataUpdate(CSSM_CC_HANDLE handle, CSSM_DATA const* pieces, uint32 count)
{
    return update_hash(handle, purpose::digest, stage::digesting, pieces, count,
                       "CSSM_DigestDataUpdate");
}

CSSM_RETURN CSSM_DigestDataFinal(CSSM_CC_HANDLE handle, CSSM_DATA_PTR out)
{
    constexpr char function[] = "CSSM_DigestDataFinal";
    unsigned char  digest[SHA256_DIGEST_SIZE];
    context* const running = end_hash(handle, purpose::digest, stage::digesting, digest, function);
    return may_create() ? give(*running, digest, running->digest.hash->digest_size, out, function)
                        : no_memory;
}

// ------------------------------------------------------------------ encryption

CSSM_RETURN CSSM_EncryptDataInit(CSSM_CC_HANDLE handle)
{
    return begin_cipher(handle, stage::encrypting, "CSSM_EncryptDataInit");
}

CSSM_RETURN CSSM_EncryptDataUpdate(CSSM_CC_HANDLE handle, CSSM_DATA const* clear,
                                   uint32 clear_count, CSSM_DATA_PTR cipher, uint32 cipher_count,
                                   CSSM_SIZE* produced)
{
    return update_cipher(handle, stage::encrypting, clear, clear_count, cipher, cipher_count,
                         produced, "CSSM_EncryptDataUpdate");
}

CSSM_RETURN CSSM_EncryptDataFinal(CSSM_CC_HANDLE handle, CSSM_DATA_PTR rest)
{
    return end_cipher(handle, stage::encrypting, rest, "CSSM_EncryptDataFinal");
}

CSSM_RETURN CSSM_DecryptDataInit(CSSM_CC_HANDLE handle)
{
    return begin_cipher(handle, stage::decrypting, "CSSM_DecryptDataInit");
}

CSSM_RETURN CSSM_DecryptDataUpdate(CSSM_CC_HANDLE handle, CSSM_DATA const* cipher,
                                   uint32 cipher_count, CSSM_DATA_PTR clear, uint32 clear_count,
                                   CSSM_SIZE* produced)
{
    return update_cipher(handle, stage::decrypting, cipher, cipher_count, clear, clear_count,
                         produced, "CSSM_DecryptDataUpdate");
}

CSSM_RETURN CSSM_DecryptDataFinal(CSSM_CC_HANDLE handle, CSSM_DATA_PTR rest)
{
    return end_cipher(handle, stage::decrypting, rest, "CSSM_DecryptDataFinal");
}

// ------------------------------------------------------------------ keys

CSSM_RETURN CSSM_GenerateKeyPair(CSSM_CC_HANDLE handle, uint32 public_usage,
                                 uint32       public_attributes, CSSM_DATA const* /*public_label*/,
                                 CSSM_KEY_PTR public_key, uint32 private_usage,
                                 uint32 private_attributes, CSSM_DATA const* /*private_label*/,
                                 CSSM_RESOURCE_CONTROL_CONTEXT const* /*credentials*/,
                                 CSSM_KEY_PTR private_key)
{
    constexpr char function[] = "CSSM_GenerateKeyPair";
    context* const from       = context_of(handle, purpose::generate, function);
    if (!may_create()) {
        return no_memory;
    }
    bytes             open;
    bytes             secret;
    CSSM_RETURN const made = from->algorithm == CSSM_ALGID_RSA
                                 ? generate_rsa(*from, open, secret)
                                 : generate_exchange(*from, open, secret);
    if (made != CSSM_OK) {
        return made;
    }
    CSSM_RETURN const first =
        give_key(*from, open, from->algorithm, CSSM_KEYCLASS_PUBLIC_KEY, from->bits, public_usage,
                 public_attributes, public_key, function);
    if (first != CSSM_OK) {
        return first;
    }
    CSSM_RETURN const second =
        give_key(*from, secret, from->algorithm, CSSM_KEYCLASS_PRIVATE_KEY, from->bits,
                 private_usage, private_attributes, private_key, function);
    if (second != CSSM_OK) {
        CSSM_FreeKey(from->csp, nullptr, public_key, CSSM_FALSE);
    }
    return second;
}

CSSM_RETURN CSSM_DeriveKey(CSSM_CC_HANDLE handle, CSSM_DATA_PTR parameter, uint32 usage,
                           uint32 attributes, CSSM_DATA const* /*label*/,
                           CSSM_RESOURCE_CONTROL_CONTEXT const* /*credentials*/, CSSM_KEY_PTR key)
{
    constexpr char function[] = "CSSM_DeriveKey";
    context* const from       = context_of(handle, purpose::derive, function);
    check_pieces(parameter, 1, function);
    if (!may_create()) {
        return no_memory;
    }
    bytes             material((from->bits + 7) / 8);
    CSSM_RETURN const made = from->algorithm == CSSM_ALGID_DH
                                 ? derive_exchange(*from, *parameter, material)
                                 : derive_pbkdf2(*from, *parameter, material);
    return made != CSSM_OK ? made
                           : give_key(*from, material, CSSM_ALGID_RC4, CSSM_KEYCLASS_SESSION_KEY,
                                      from->bits, usage, attributes, key, function);
}

CSSM_RETURN CSSM_FreeKey(CSSM_CSP_HANDLE csp, CSSM_ACCESS_CREDENTIALS const* /*credentials*/,
                         CSSM_KEY_PTR    key, CSSM_BOOL /*remove*/)
{
    constexpr char function[] = "CSSM_FreeKey";
    session* const owner      = session_of(csp, function);
    if (key == nullptr) {
        refuse(function, "null");
    }
    for (void const*& known : owner->keys) {
        if (known == key->KeyData.Data) {
            known = owner->keys.back();
            owner->keys.pop_back();
            owner->memory.free_func(key->KeyData.Data, owner->memory.AllocRef);
            key->KeyData = {0, nullptr};
            count_out("key-handle key");
            return CSSM_OK;
        }
    }
    refuse(function, "no key of this session, or no more");
}
