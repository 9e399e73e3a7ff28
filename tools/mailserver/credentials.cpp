#include "tools/mailserver/credentials.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <nettle/base64.h>
#include <nettle/hmac.h>
#include <nettle/md5.h>
#include <unistd.h>

namespace zelieml::mailserver
{

namespace
{

std::uint8_t const* bytes_of(std::string_view text)
{
    return reinterpret_cast<std::uint8_t const*>(text.data());
}

std::string hex(std::uint8_t const (&digest)[MD5_DIGEST_SIZE])
{
    static char const digits[] = "0123456789abcdef";
    std::string       result;
    for (std::uint8_t const byte : digest) {
        result += digits[byte >> 4U];
        result += digits[byte & 15U];
    }
    return result;
}

account const* find(accounts const& known, std::string_view user)
{
    for (account const& a : known) {
        if (a.user == user) {
            return &a;
        }
    }
    return nullptr;
}

std::optional<std::string> user_if(bool proved, account const* who)
{
    return proved ? std::optional(who->user) : std::nullopt;
}

}  // namespace

std::string base64_encode(std::string_view bytes)
{
    std::string result(BASE64_ENCODE_RAW_LENGTH(bytes.size()), '\0');
    nettle_base64_encode_raw(result.data(), bytes.size(), bytes_of(bytes));
    return result;
}

std::optional<std::string> base64_decode(std::string_view text)
{
    base64_decode_ctx context;
    nettle_base64_decode_init(&context);
    std::string result(BASE64_DECODE_LENGTH(text.size()), '\0');
    std::size_t length = result.size();
    if (nettle_base64_decode_update(&context, &length,
                                    reinterpret_cast<std::uint8_t*>(result.data()), text.size(),
                                    text.data()) == 0 ||
        nettle_base64_decode_final(&context) == 0) {
        return std::nullopt;
    }
    result.resize(length);
    return result;
}

std::string md5_hex(std::string_view text)
{
    md5_ctx      context;
    std::uint8_t digest[MD5_DIGEST_SIZE];
    nettle_md5_init(&context);
    nettle_md5_update(&context, text.size(), bytes_of(text));
    nettle_md5_digest(&context, sizeof digest, digest);
    return hex(digest);
}

std::string hmac_md5_hex(std::string_view key, std::string_view text)
{
    hmac_md5_ctx context;
    std::uint8_t digest[MD5_DIGEST_SIZE];
    nettle_hmac_md5_set_key(&context, key.size(), bytes_of(key));
    nettle_hmac_md5_update(&context, text.size(), bytes_of(text));
    nettle_hmac_md5_digest(&context, sizeof digest, digest);
    return hex(digest);
}

std::string fresh_time_stamp()
{
    static std::atomic<unsigned> count{0};
    auto const                   now = std::chrono::system_clock::now().time_since_epoch();
    return "<" + std::to_string(::getpid()) + "." + std::to_string(++count) + "." +
           std::to_string(std::chrono::duration_cast<std::chrono::seconds>(now).count()) +
           "@localhost>";
}

std::optional<std::string> check_password(accounts const& known, std::string_view user,
                                          std::string_view password)
{
    account const* const who = find(known, user);
    return user_if(who != nullptr && who->password == password, who);
}

std::optional<std::string> check_cram_md5(accounts const& known, std::string_view challenge,
                                          std::string_view answer)
{
    // User names may hold blanks, digests do not.
    std::size_t const blank = answer.rfind(' ');
    if (blank == std::string_view::npos) {
        return std::nullopt;
    }
    account const* const who = find(known, answer.substr(0, blank));
    return user_if(
        who != nullptr && hmac_md5_hex(who->password, challenge) == answer.substr(blank + 1), who);
}

std::optional<std::string> check_plain(accounts const& known, std::string_view message)
{
    std::size_t const first = message.find('\0');
    std::size_t const second =
        first == std::string_view::npos ? first : message.find('\0', first + 1);
    if (second == std::string_view::npos) {
        return std::nullopt;
    }
    std::string_view const identity = message.substr(0, first);
    std::string_view const user     = message.substr(first + 1, second - first - 1);
    if (!identity.empty() && identity != user) {
        return std::nullopt;
    }
    return check_password(known, user, message.substr(second + 1));
}

std::optional<std::string> check_apop(accounts const& known, std::string_view stamp,
                                      std::string_view user, std::string_view digest)
{
    account const* const who = find(known, user);
    return user_if(who != nullptr && md5_hex(std::string(stamp) + who->password) == digest, who);
}

}  // namespace zelieml::mailserver
