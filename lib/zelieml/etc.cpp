// etc.cpp - the exported functions: settings, passwords, hashes
//
// Each calls the unit that does the work and keeps exceptions from crossing the C interface. The
// contracts are in zelieml.h.

#include <cstring>

#include "libconfw/libconfw.h"
#include "libcryptw/libcryptw.h"
#include "support/c_boundary.h"
#include "zelieml.h"

using namespace zelieml;

namespace
{

// at_c_boundary for the functions that return a string.
template <class Body>
unsigned char* text_at_c_boundary(Body&& body)
{
    return at_c_boundary(static_cast<unsigned char*>(nullptr), body);
}

}  // namespace

int eml_cf_get_string(char const* key, char* val, unsigned int* length, char const* path)
{
    return at_c_boundary(-1, [&] { return confw_get_string(key, val, length, path); });
}

int eml_cf_set_string(char const* key, char const* val, char const* path)
{
    return at_c_boundary(-1, [&] { return confw_set_string(key, val, path); });
}

unsigned char* eml_encrypt_passwd(unsigned char* password)
{
    return text_at_c_boundary([&] { return icryptw().encrypt_passwd(password); });
}

void eml_encrypt_free_passwd(unsigned char* text)
{
    icryptw().encrypt_free_passwd(text);
}

unsigned char* eml_decrypt_passwd(unsigned char* text)
{
    return text_at_c_boundary([&] { return icryptw().decrypt_passwd(text); });
}

void eml_decrypt_free_passwd(unsigned char* text)
{
    icryptw().decrypt_free_passwd(text);
}

unsigned char* eml_hash_hexstr(char const* text)
{
    if (text == nullptr) {
        return nullptr;
    }
    return text_at_c_boundary([&] {
        return icryptw().md5hexstr(reinterpret_cast<unsigned char const*>(text), std::strlen(text));
    });
}

void eml_hash_free_hexstr(unsigned char* text)
{
    icryptw().md5hexstr_free(text);
}
