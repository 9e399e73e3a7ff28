// etc.cpp - the exported functions: settings, passwords, hashes
//
// Each calls the unit that does the work, as an exported_call. The contracts are in zelieml.h.

#include <cstring>

#include "libconfw/libconfw.h"
#include "libcryptw/libcryptw.h"
#include "zelieml.h"
#include "zelieml/exported_call.h"

using namespace zelieml;

namespace
{

// exported_call for the functions that return a string.
template <class Body>
unsigned char* exported_text(Body&& body)
{
    return exported_call(static_cast<unsigned char*>(nullptr), body);
}

}  // namespace

int eml_cf_get_string(char const* key, char* val, unsigned int* length, char const* path)
{
    return exported_call(-1, [&] { return confw_get_string(key, val, length, path); });
}

int eml_cf_set_string(char const* key, char const* val, char const* path)
{
    return exported_call(-1, [&] { return confw_set_string(key, val, path); });
}

unsigned char* eml_encrypt_passwd(unsigned char* password)
{
    return exported_text([&] { return icryptw().encrypt_passwd(password); });
}

void eml_encrypt_free_passwd(unsigned char* text)
{
    icryptw().encrypt_free_passwd(text);
}

unsigned char* eml_decrypt_passwd(unsigned char* text)
{
    return exported_text([&] { return icryptw().decrypt_passwd(text); });
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
    return exported_text([&] {
        return icryptw().md5hexstr(reinterpret_cast<unsigned char const*>(text), std::strlen(text));
    });
}

void eml_hash_free_hexstr(unsigned char* text)
{
    icryptw().md5hexstr_free(text);
}
