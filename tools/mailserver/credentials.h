// credentials.h - who may log in, and how that is proved
//
// The exchanges of SMTP authentication (RFC 4954: CRAM-MD5 of RFC 2195, PLAIN of RFC 4616) and of
// POP3 (RFC 1939), seen from the server. Digests and Base64 come from Nettle.

#ifndef ZELIEML_TOOLS_MAILSERVER_CREDENTIALS_H
#define ZELIEML_TOOLS_MAILSERVER_CREDENTIALS_H

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zelieml::mailserver
{

struct account {
    std::string user;
    std::string password;
};
using accounts = std::vector<account>;

// One line, no breaks.
std::string base64_encode(std::string_view bytes);

// Nothing when the text is not Base64, padding included.
std::optional<std::string> base64_decode(std::string_view text);

// 32 lower-case hex digits.
std::string md5_hex(std::string_view text);
std::string hmac_md5_hex(std::string_view key, std::string_view text);

// A text "<...@...>" that no one was given before, as a challenge or for a POP3 banner.
std::string fresh_time_stamp();

// The checks. Each gives the user who has proved who he is, or nothing.
std::optional<std::string> check_password(accounts const& known, std::string_view user,
                                          std::string_view password);

// answer  the decoded answer to the challenge: user, blank, digest in lower-case hex
std::optional<std::string> check_cram_md5(accounts const& known, std::string_view challenge,
                                          std::string_view answer);

// message  the decoded message: authorisation identity, NUL, user, NUL, password. The identity
//          must be empty or the user's.
std::optional<std::string> check_plain(accounts const& known, std::string_view message);

// stamp   the banner's time stamp, angle brackets included
// digest  lower-case hex
std::optional<std::string> check_apop(accounts const& known, std::string_view stamp,
                                      std::string_view user, std::string_view digest);

}  // namespace zelieml::mailserver

#endif
