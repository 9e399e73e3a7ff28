// libcryptw.cpp - icryptw, and the two paths to RC4: transforms and key handles

#include "libcryptw/libcryptw.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <limits>

#include "libetc/libetc.h"
#include "liblog/trace.h"
#include "support/heap.h"

namespace zelieml
{

namespace
{

constexpr std::size_t digest_size     = platform::md5_size;
constexpr std::size_t hmac_block_size = 64;

constexpr char          hide_offset     = 3;
constexpr unsigned      passwd_key_bits = 40;
constexpr unsigned long piece_size      = 1000;
// Since a provider may hold an incomplete block back and produce it with the next piece.
constexpr std::size_t encrypt_out_size = piece_size + 8;

// The pass phrase of stored passwords, scrambled by hide_str. Threads share it, so only copies are
// unscrambled.
constexpr char const* passwdkey_pieces[] = {"I^kqbok", "?bpfab", "qebQfa^i", "D^rdb", "\\3.\\"};

// The key of stored passwords.
using passwd_key = std::array<unsigned char, passwd_key_bits / 8>;

// The length of a string; 0 for null.
unsigned long text_length(unsigned char const* text)
{
    return text != nullptr ? std::strlen(reinterpret_cast<char const*>(text)) : 0;
}

csp_data as_data(char const* text)
{
    return {text, std::strlen(text)};
}

unsigned char* as_hex(unsigned char const* data, unsigned long len)
{
    return len <= std::numeric_limits<int>::max() ? etc_bin2hexstr(data, static_cast<int>(len))
                                                  : nullptr;
}

void shift_bytes(char* text, int offset)
{
    for (; *text != '\0'; ++text) {
        *text = static_cast<char>(*text + offset);
    }
}

// The MD5 digest of some bytes, in a session of its own. Returns 0 or the platform's error code.
int digest_message(csp_data data, csp_buffer& digest)
{
    csp_session* attached = nullptr;
    int const    status   = cdsaCspAttach(attached);
    if (status != 0) {
        return status;
    }
    csp_session_holder const session(attached);
    return cdsaDigest(session.get(), CSSM_ALGID_MD5, data, digest);
}

// The key of a pass phrase, whose own digest is the salt. Returns 0 or the platform's error code.
int derive_passwd_key(char const* pass_phrase, passwd_key& key)
{
    unsigned char salt[digest_size];
    int const     status = cdsaDigest2(as_data(pass_phrase), salt);
    if (status != 0) {
        return status;
    }
    return cdsaDeriveKey2(as_data(pass_phrase), salt, sizeof salt, passwd_key_bits, key.data());
}

// The key of the library's own pass phrase, once it has been derived: the bytes, with a flag above
// them. The pass phrase is constant and so is its key. Deriving it anew for each password of each
// message would cost the thousand rounds of PBKDF2: over three million instructions, 0.16 ms. And
// the framework of macOS may keep memory for each derivation. Threads that derive it at the same
// time store the same number.
std::atomic<std::uint64_t> own_key{0};

std::uint64_t pack(passwd_key const& key)
{
    std::uint64_t number = 1;  // the flag, in front of the bytes
    for (unsigned char const byte : key) {
        number = number << 8 | byte;
    }
    return number;
}

void unpack(std::uint64_t number, passwd_key& key)
{
    for (auto byte = key.rbegin(); byte != key.rend(); ++byte) {
        *byte = static_cast<unsigned char>(number);
        number >>= 8;
    }
}

// derive_passwd_key with a cache for the library's own pass phrase. Failures are not cached.
int find_passwd_key(char const* pass_phrase, passwd_key& key)
{
    bool const          own   = get_passwdkey() == pass_phrase;
    std::uint64_t const known = own ? own_key.load(std::memory_order_relaxed) : 0;
    if (known != 0) {
        unpack(known, key);
        return 0;
    }
    int const status = derive_passwd_key(pass_phrase, key);
    if (own && status == 0) {
        own_key.store(pack(key), std::memory_order_relaxed);
    }
    return status;
}

}  // namespace

void hide_str(char* text)
{
    shift_bytes(text, -hide_offset);
}

void unhide_str(char* text)
{
    shift_bytes(text, hide_offset);
}

std::string get_passwdkey()
{
    std::string pass_phrase;
    for (char const* const scrambled : passwdkey_pieces) {
        std::string piece(scrambled);
        unhide_str(piece.data());
        pass_phrase += piece;
        hide_str(piece.data());  // so that no readable piece is left in freed memory
    }
    return pass_phrase;
}

// ---- transforms

unsigned char* crypt(unsigned char const* key, std::size_t key_size, unsigned char const* data,
                     unsigned long len, crypt_direction direction)
{
    if (key == nullptr || data == nullptr) {
        return nullptr;
    }
    auto out = heap_array<unsigned char>(len);
    if (!out || platform::rc4_crypt(key, key_size, direction, data, len, out.get()) != 0) {
        return nullptr;
    }
    return out.release();
}

unsigned char* crypt_crypt2(char const* pass_phrase, unsigned char const* data, unsigned long len,
                            unsigned long* out_len, crypt_direction direction)
{
    passwd_key key;
    if (pass_phrase == nullptr || out_len == nullptr || find_passwd_key(pass_phrase, key) != 0) {
        return nullptr;
    }
    unsigned char* const out = crypt(key.data(), key.size(), data, len, direction);
    if (out != nullptr) {
        *out_len = len;
    }
    return out;
}

unsigned char* encrypt2(char const* pass_phrase, unsigned char const* data, unsigned long len,
                        unsigned long* out_len)
{
    return crypt_crypt2(pass_phrase, data, len, out_len, crypt_direction::encrypt);
}

unsigned char* decrypt2(char const* pass_phrase, unsigned char const* data, unsigned long len,
                        unsigned long* out_len)
{
    return crypt_crypt2(pass_phrase, data, len, out_len, crypt_direction::decrypt);
}

// ---- key handles, with the same parameters as the transforms, so that each can decrypt what the
// other encrypted

unsigned char* _crypt_raw(csp_context* context, unsigned char const* data, unsigned long len,
                          unsigned long* out_len, crypt_direction direction)
{
    bool const        encrypting = direction == crypt_direction::encrypt;
    auto const        step       = encrypting ? cdsaStagedEncrypt : cdsaStagedDecrypt;
    std::size_t const capacity   = encrypting ? encrypt_out_size : piece_size;

    heap_buffer<unsigned char> joined;
    unsigned long              joined_len = 0;
    bool                       last       = false;
    while (!last) {
        unsigned long const size = std::min(len, piece_size);
        last                     = size == len;

        unsigned char out[encrypt_out_size];
        std::size_t   produced = 0;
        void*         longer   = nullptr;
        if (step(context, {data, size}, last, out, capacity, produced) == 0) {
            longer = heap_realloc(joined.get(), joined_len + produced);
        }
        if (longer == nullptr) {
            // The text for decrypting is deliberate, see docs/ODDITIES.md.
            trace_msg(encrypting ? "error:cdsaStagedEncrypt" : "error:CryptEncrypt");
            return nullptr;
        }
        static_cast<void>(joined.release());  // heap_realloc has replaced it
        joined.reset(static_cast<unsigned char*>(longer));
        std::memcpy(joined.get() + joined_len, out, produced);
        joined_len += static_cast<unsigned long>(produced);
        data += size;
        len -= size;
    }
    *out_len = joined_len;
    return joined.release();
}

unsigned char* _crypt(csp_session* session, csp_key const* key, unsigned char const* data,
                      unsigned long len, unsigned long* out_len, crypt_direction direction)
{
    csp_context* made = nullptr;
    if (genCryptHandle(session, key, made) != 0) {
        return nullptr;
    }
    csp_context_holder const context(made);
    if (cdsaStagedEncDecrInit(context.get(), direction) != 0) {
        return nullptr;
    }
    return _crypt_raw(context.get(), data, len, out_len, direction);
}

unsigned char* crypt_crypt(char const* pass_phrase, unsigned char const* data, unsigned long len,
                           unsigned long* out_len, crypt_direction direction)
{
    if (pass_phrase == nullptr || data == nullptr || out_len == nullptr) {
        return nullptr;
    }
    csp_session* attached = nullptr;
    if (cdsaCspAttach(attached) != 0) {
        trace_msg("error:cdsaCspAttach");
        return nullptr;
    }
    csp_session_holder const session(attached);

    csp_buffer digest;
    if (cdsaDigest(session.get(), CSSM_ALGID_MD5, as_data(pass_phrase), digest) != 0) {
        return nullptr;
    }
    heap_buffer<unsigned char> const salt(digest.data);

    csp_key* derived = nullptr;
    if (cdsaDeriveKey(session.get(), as_data(pass_phrase), {salt.get(), digest.size},
                      CSSM_ALGID_RC4, passwd_key_bits, derived) != 0) {
        return nullptr;
    }
    csp_key_holder const key(derived);
    return _crypt(session.get(), key.get(), data, len, out_len, direction);
}

// ---- icryptw

unsigned char* icryptw::md5(unsigned char const* data, unsigned long len)
{
    csp_buffer digest;
    if (data == nullptr || digest_message({data, len}, digest) != 0) {
        trace_msg("error:cdsaCspAttach");
        return nullptr;
    }
    return digest.data;
}

unsigned char* icryptw::hmac_md5(unsigned char const* key, unsigned long key_len,
                                 unsigned char const* text, unsigned long text_len)
{
    if (key == nullptr || text == nullptr ||
        text_len > std::numeric_limits<std::size_t>::max() - hmac_block_size) {
        return nullptr;
    }

    heap_buffer<unsigned char> short_key;
    if (key_len > hmac_block_size) {
        // The key up to its NUL, not key_len bytes: deliberate, see docs/ODDITIES.md.
        short_key.reset(md5(key, text_length(key)));
        if (!short_key) {
            return nullptr;
        }
        key     = short_key.get();
        key_len = digest_size;
    }

    unsigned char outer[hmac_block_size + digest_size] = {};
    auto          inner = heap_array<unsigned char>(hmac_block_size + text_len);
    if (!inner) {
        return nullptr;
    }
    std::memcpy(outer, key, key_len);
    std::memcpy(inner.get(), outer, hmac_block_size);
    for (std::size_t i = 0; i < hmac_block_size; ++i) {
        inner[i] ^= 0x36;
        outer[i] ^= 0x5C;
    }

    std::memcpy(inner.get() + hmac_block_size, text, text_len);
    heap_buffer<unsigned char> const inner_digest(md5(inner.get(), hmac_block_size + text_len));
    if (!inner_digest) {
        return nullptr;
    }
    std::memcpy(outer + hmac_block_size, inner_digest.get(), digest_size);
    return md5(outer, sizeof outer);
}

int icryptw::init()
{
    return 0;  // a library that has to be set up would be set up here; callers check the result
}

unsigned char* icryptw::encrypt(char const* pass_phrase, unsigned char const* data,
                                unsigned long len, unsigned long* out_len)
{
    return crypt_crypt(pass_phrase, data, len, out_len, crypt_direction::encrypt);
}

unsigned char* icryptw::decrypt(char const* pass_phrase, unsigned char const* data,
                                unsigned long len, unsigned long* out_len)
{
    return crypt_crypt(pass_phrase, data, len, out_len, crypt_direction::decrypt);
}

void icryptw::free(unsigned char* buffer)
{
    heap_free(buffer);
}

unsigned char* icryptw::encrypt_passwd(unsigned char const* clear)
{
    if (init() != 0) {
        trace_msg("error:init");
        return nullptr;
    }
    std::string const pass_phrase = get_passwdkey();

    unsigned long                    len = 0;
    heap_buffer<unsigned char> const cipher(
        encrypt2(pass_phrase.c_str(), clear, text_length(clear), &len));
    if (!cipher) {
        trace_msg("error:encrypt");
        return nullptr;
    }
    unsigned char* const stored = as_hex(cipher.get(), len);
    if (stored == nullptr) {
        trace_msg("error:etc_bin2hexstr");
    }
    return stored;
}

void icryptw::encrypt_free_passwd(unsigned char* buffer)
{
    etc_binhex_free(buffer);
}

unsigned char* icryptw::decrypt_passwd(unsigned char const* stored)
{
    if (init() != 0) {
        trace_msg("error:init");
        return nullptr;
    }
    std::string const pass_phrase = get_passwdkey();

    int                 cipher_len = 0;
    binhex_buffer const cipher(etc_hexstr2bin(stored, &cipher_len));
    if (!cipher) {
        trace_msg("error:etc_hexstr2bin");
        return nullptr;
    }
    unsigned long                    len = 0;
    heap_buffer<unsigned char> const bytes(
        decrypt2(pass_phrase.c_str(), cipher.get(), static_cast<unsigned long>(cipher_len), &len));
    if (!bytes) {
        trace_msg("error:crypt.decrypt");
        return nullptr;
    }
    auto clear = heap_array<unsigned char>(len + 1);
    if (!clear) {
        return nullptr;
    }
    std::memcpy(clear.get(), bytes.get(), len);
    clear[len] = '\0';
    return clear.release();
}

void icryptw::decrypt_free_passwd(unsigned char* buffer)
{
    heap_free(buffer);
}

unsigned char* icryptw::md5hexstr(unsigned char const* data, unsigned long len)
{
    heap_buffer<unsigned char> const digest(md5(data, len));
    if (!digest) {
        trace_msg("error:digest_message");
        return nullptr;
    }
    unsigned char* const hex = as_hex(digest.get(), digest_size);
    if (hex == nullptr) {
        trace_msg("error:etc_bin2hexstr");
    }
    return hex;
}

void icryptw::md5hexstr_free(unsigned char* buffer)
{
    etc_binhex_free(buffer);
}

}  // namespace zelieml
