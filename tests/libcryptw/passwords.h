// passwords.h - passwords to their stored form and back; nothing for a failure

#ifndef ZELIEML_TESTS_LIBCRYPTW_PASSWORDS_H
#define ZELIEML_TESTS_LIBCRYPTW_PASSWORDS_H

#include <optional>
#include <string>

#include "libcryptw/libcryptw.h"
#include "tests/support/bytes_of.h"

namespace zelieml::test
{

using result = std::optional<std::string>;

inline result stored_form(std::string const& password)
{
    icryptw              crypt;
    unsigned char* const stored = crypt.encrypt_passwd(bytes_of(password));
    if (stored == nullptr) {
        return std::nullopt;
    }
    std::string form = reinterpret_cast<char const*>(stored);
    crypt.encrypt_free_passwd(stored);
    return form;
}

inline result password_of(std::string const& stored)
{
    icryptw              crypt;
    unsigned char* const clear = crypt.decrypt_passwd(bytes_of(stored));
    if (clear == nullptr) {
        return std::nullopt;
    }
    std::string password = reinterpret_cast<char const*>(clear);
    crypt.decrypt_free_passwd(clear);
    return password;
}

}  // namespace zelieml::test

#endif
