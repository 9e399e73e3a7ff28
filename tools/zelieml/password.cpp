// password.cpp - zelieml password: encrypt a password for the settings file

#include <memory>
#include <sysexits.h>

#include "tools/zelieml/command.h"
#include "tools/zelieml/output.h"
#include "tools/zelieml/secret.h"

namespace zelieml::program
{

namespace
{

int encrypt(bool as_json, int fd)
{
    std::string const stored = encrypted(read_secret("Password: ", fd, asked::twice));
    if (as_json) {
        print_json({{"encrypted", stored}});
    } else {
        print_line(stored);
    }
    return EX_OK;
}

}  // namespace

void add_password(command_line& line)
{
    auto const fd     = std::make_shared<int>(-1);
    CLI::App& command = line.add(line.app(), "password", "Encrypt a password for the settings file",
                                 "  zelieml password\n"
                                 "  zelieml password < password.txt\n"
                                 "  zelieml password --password-fd 3 3< password.txt",
                                 [&line, fd] { return encrypt(line.options().json, *fd); });
    line.add_json(command);
    add_password_fd(command, *fd);
}

}  // namespace zelieml::program
