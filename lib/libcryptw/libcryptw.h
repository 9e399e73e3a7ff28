// libcryptw.h - digests, and the encryption of the passwords in the settings file
//
// MD5 (RFC 1321), HMAC-MD5 (RFC 2104) for CRAM-MD5, and the stored form of passwords: RC4 with a
// key derived from a pass phrase inside the library, written as upper-case hex. This only keeps
// passwords from being read over a shoulder: anybody who has the library can decrypt them.
//
// Functions that return a buffer return null on failure, leaving nothing allocated: when a pointer
// is null, there is no memory, or the platform refuses. They may throw std::bad_alloc. Any thread.

#ifndef ZELIEML_LIBCRYPTW_LIBCRYPTW_H
#define ZELIEML_LIBCRYPTW_LIBCRYPTW_H

#include <cstddef>
#include <string>

#include "libcryptw/libCdsaCrypt.h"

namespace zelieml
{

class icrypt
{
public:
    // md5 - the MD5 digest of len bytes: 16 bytes, to be freed with free
    virtual unsigned char* md5(unsigned char const* data, unsigned long len) = 0;

    // hmac_md5 - the HMAC-MD5 of text_len bytes: 16 bytes, to be freed with free
    //
    // key  key_len bytes and a NUL. A key of more than 64 bytes is replaced by its digest, which
    //      covers the key up to its first NUL, not key_len bytes: deliberate, see docs/ODDITIES.md.
    virtual unsigned char* hmac_md5(unsigned char const* key, unsigned long key_len,
                                    unsigned char const* text, unsigned long text_len) = 0;

    // init - does nothing and returns 0
    virtual int init() = 0;

    // encrypt, decrypt - the same bytes as encrypt2 and decrypt2, through the provider's key
    // handles
    //
    // pass_phrase  NUL-terminated
    // out_len      receives the number of bytes, which is len; untouched on failure
    //
    // Returns the bytes, to be freed with free; a buffer even when there are none.
    virtual unsigned char* encrypt(char const* pass_phrase, unsigned char const* data,
                                   unsigned long len, unsigned long* out_len) = 0;
    virtual unsigned char* decrypt(char const* pass_phrase, unsigned char const* data,
                                   unsigned long len, unsigned long* out_len) = 0;

    // free - free a digest, or a buffer of encrypt or decrypt; null is accepted
    virtual void free(unsigned char* buffer) = 0;

    // encrypt_passwd - the stored form of a password
    //
    // Returns a string of two hex digits for each byte of the password, to be freed with
    // encrypt_free_passwd. The same password always has the same stored form. The empty password
    // has none: null. Deliberate, see docs/ODDITIES.md.
    virtual unsigned char* encrypt_passwd(unsigned char const* clear) = 0;
    virtual void           encrypt_free_passwd(unsigned char* buffer) = 0;

    // decrypt_passwd - the password of a stored form
    //
    // Returns a string, to be freed with decrypt_free_passwd; null for an odd number of digits. Any
    // other character counts as 0, so something that is not a stored form gives some meaningless
    // string.
    virtual unsigned char* decrypt_passwd(unsigned char const* stored) = 0;
    virtual void           decrypt_free_passwd(unsigned char* buffer)  = 0;

    // md5hexstr - the MD5 digest as 32 upper-case hex digits, to be freed with md5hexstr_free
    virtual unsigned char* md5hexstr(unsigned char const* data, unsigned long len) = 0;
    virtual void           md5hexstr_free(unsigned char* buffer)                   = 0;

protected:
    ~icrypt() = default;
};

// Made on the stack where it is needed.
class icryptw final : public icrypt
{
public:
    unsigned char* md5(unsigned char const* data, unsigned long len) override;
    unsigned char* hmac_md5(unsigned char const* key, unsigned long key_len,
                            unsigned char const* text, unsigned long text_len) override;
    int            init() override;
    unsigned char* encrypt(char const* pass_phrase, unsigned char const* data, unsigned long len,
                           unsigned long* out_len) override;
    unsigned char* decrypt(char const* pass_phrase, unsigned char const* data, unsigned long len,
                           unsigned long* out_len) override;
    void           free(unsigned char* buffer) override;
    unsigned char* encrypt_passwd(unsigned char const* clear) override;
    void           encrypt_free_passwd(unsigned char* buffer) override;
    unsigned char* decrypt_passwd(unsigned char const* stored) override;
    void           decrypt_free_passwd(unsigned char* buffer) override;
    unsigned char* md5hexstr(unsigned char const* data, unsigned long len) override;
    void           md5hexstr_free(unsigned char* buffer) override;
};

// The steps of icryptw.

// hide_str, unhide_str - scramble and unscramble a string in place
//
// text  every byte up to the NUL is lowered by 3 (hide_str) or raised by 3 (unhide_str); no byte
//       may become NUL by that
void hide_str(char* text);
void unhide_str(char* text);

// get_passwdkey - the pass phrase of stored passwords, assembled anew by each call
std::string get_passwdkey();

// encrypt2, decrypt2 - RC4 with a 40-bit key from a pass phrase
//
// pass_phrase  NUL-terminated UTF-8. The key is derived from it by PBKDF2 with HMAC-SHA1, in 1000
//              rounds, with the MD5 digest of the pass phrase as the salt.
// out_len      receives the number of bytes, which is len; untouched on failure
//
// Returns the bytes, to be freed with icryptw::free; a buffer even when there are none.
unsigned char* encrypt2(char const* pass_phrase, unsigned char const* data, unsigned long len,
                        unsigned long* out_len);
unsigned char* decrypt2(char const* pass_phrase, unsigned char const* data, unsigned long len,
                        unsigned long* out_len);

// crypt_crypt2 - encrypt2 or decrypt2
unsigned char* crypt_crypt2(char const* pass_phrase, unsigned char const* data, unsigned long len,
                            unsigned long* out_len, crypt_direction direction);

// crypt - RC4 with a key, in one step
//
// Returns len bytes, to be freed with icryptw::free.
unsigned char* crypt(unsigned char const* key, std::size_t key_size, unsigned char const* data,
                     unsigned long len, crypt_direction direction);

// crypt_crypt - icryptw's encrypt or decrypt: attach a session, derive the key, run _crypt
unsigned char* crypt_crypt(char const* pass_phrase, unsigned char const* data, unsigned long len,
                           unsigned long* out_len, crypt_direction direction);

// _crypt - staged encryption or decryption with a key
unsigned char* _crypt(csp_session* session, csp_key const* key, unsigned char const* data,
                      unsigned long len, unsigned long* out_len, crypt_direction direction);

// _crypt_raw - staged encryption or decryption in pieces of 1000 bytes
//
// context  after cdsaStagedEncDecrInit for the direction
unsigned char* _crypt_raw(csp_context* context, unsigned char const* data, unsigned long len,
                          unsigned long* out_len, crypt_direction direction);

}  // namespace zelieml

#endif
