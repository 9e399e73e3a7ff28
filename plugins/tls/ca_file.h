// ca_file.h - the file with certificates of authorities

#ifndef ZELIEML_PLUGINS_TLS_CA_FILE_H
#define ZELIEML_PLUGINS_TLS_CA_FILE_H

#include <string>
#include <sys/stat.h>

#include "support/unique_fd.h"

namespace zelieml::tls
{

// open_ca_file - open it for reading
//
// is  receives what the system knows of it
//
// Throws a failure when it cannot be read, or is not a regular file.
unique_fd open_ca_file(std::string const& path, struct stat& is);

// read_ca_file - all that is in it
//
// file  of open_ca_file; nothing was read from it. Throws a failure when it cannot be read, or has
//       more than 16 MiB.
std::string read_ca_file(unique_fd const& file, std::string const& path);

// no_certificates - throw the failure of a file that has none
[[noreturn]] void no_certificates(std::string const& path);

// damaged_certificate - throw the failure of a file that has one that cannot be used
[[noreturn]] void damaged_certificate(std::string const& path);

}  // namespace zelieml::tls

#endif
