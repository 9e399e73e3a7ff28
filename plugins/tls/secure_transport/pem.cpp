// pem.cpp - certificates in a text (RFC 7468)

#include "plugins/tls/secure_transport/pem.h"

#include <climits>

#include "libbase64/libbase64.h"

namespace zelieml::tls
{

namespace
{

constexpr char begin_mark[] = "-----BEGIN CERTIFICATE-----";
constexpr char end_mark[]   = "-----END CERTIFICATE-----";

constexpr std::size_t group_size = 4;

// Decodes whole groups of Base64, with blanks and line ends anywhere. Returns nothing for anything
// else.
std::string decoded(std::string const& body)
{
    std::string groups;
    for (char const c : body) {
        if (std::string(" \t\r\n").find(c) == std::string::npos) {
            groups += c;
        }
    }
    std::size_t const padding = groups.find('=');
    bool const        is_whole =
        groups.size() % group_size == 0 && groups.size() <= INT_MAX &&
        (padding == groups.npos ||
         (padding + 2 >= groups.size() && groups.find_first_not_of('=', padding) == groups.npos));
    int                 size = 0;
    base64_buffer const bytes(
        is_whole ? base64_decode_ex(reinterpret_cast<unsigned char const*>(groups.data()),
                                    static_cast<int>(groups.size()), &size)
                 : nullptr);
    return bytes ? std::string(reinterpret_cast<char const*>(bytes.get()),
                               static_cast<std::size_t>(size))
                 : std::string();
}

}  // namespace

std::vector<std::string> certificates_in(std::string const& text)
{
    std::vector<std::string> all;
    std::size_t              at = text.find(begin_mark);
    while (at != text.npos) {
        at += sizeof begin_mark - 1;
        std::size_t const end = text.find(end_mark, at);
        all.push_back(end != text.npos ? decoded(text.substr(at, end - at)) : "");
        at = text.find(begin_mark, end);
    }
    return all;
}

}  // namespace zelieml::tls
