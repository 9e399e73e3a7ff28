// password.cpp - zelieml password: encrypt a password for the settings file

#include <cstdio>
#include <memory>
#include <sysexits.h>

#include "tools/zelieml/command.h"
#include "tools/zelieml/failure.h"
#include "tools/zelieml/output.h"
#include "tools/zelieml/secret.h"
#include "zelieml.h"

namespace zelieml::program
{

namespace
{

int encrypt()
{
    std::string password = read_secret("Password: ", -1);
    std::unique_ptr<unsigned char, decltype(&eml_encrypt_free_passwd)> const text(
        eml_encrypt_passwd(reinterpret_cast<unsigned char*>(password.data())),
        eml_encrypt_free_passwd);
    if (text == nullptr) {
        throw failure(EX_SOFTWARE, "there is not enough memory");
    }
    print_line(reinterpret_cast<char const*>(text.get()));
    return EX_OK;
}

}  // namespace

void add_password(command_line& line)
{
    line.add(line.app(), "password", "Encrypt a password for the settings file",
             "  zelieml password\n"
             "  zelieml password < password.txt",
             encrypt);
}

}  // namespace zelieml::program
