// base64_model.h - Base64 as libbase64.h describes it, character by character

#ifndef ZELIEML_TESTS_LIBBASE64_BASE64_MODEL_H
#define ZELIEML_TESTS_LIBBASE64_BASE64_MODEL_H

#include <optional>
#include <string>

namespace zelieml::test
{

constexpr char base64_alphabet[] =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/=";

// With line_breaks a CR LF follows every 76th character.
inline std::string model_encode(std::string const& bytes, bool line_breaks)
{
    std::string bits;
    for (char const byte : bytes) {
        for (int bit = 7; bit >= 0; --bit) {
            bits += (static_cast<unsigned char>(byte) >> bit) % 2 != 0 ? '1' : '0';
        }
    }
    std::string text;
    for (std::size_t at = 0, characters = 0; at < bits.size() || characters % 4 != 0; at += 6) {
        if (at < bits.size()) {
            std::string six = bits.substr(at, 6);
            six.resize(6, '0');
            text += base64_alphabet[std::stoul(six, nullptr, 2)];
        } else {
            text += '=';
        }
        ++characters;
        text += line_breaks && characters % 76 == 0 ? "\r\n" : "";
    }
    return text;
}

// Nothing when the text is refused.
inline std::optional<std::string> model_decode(std::string text)
{
    std::string const alphabet = base64_alphabet;
    std::string       bytes;
    for (;;) {
        for (int i = 0; i < 2 && text.size() >= 4 && (text[0] == '\r' || text[0] == '\n'); ++i) {
            text.erase(0, 1);
        }
        if (text.size() < 4) {
            return bytes;
        }
        std::size_t value[4];
        for (std::size_t i = 0; i < 4; ++i) {
            value[i] = alphabet.find(text[i]);
            if (value[i] == std::string::npos) {
                return std::nullopt;
            }
        }
        bytes += static_cast<char>(value[0] << 2 | value[1] >> 4);
        if (text[2] != '=') {
            bytes += static_cast<char>(value[1] << 4 | value[2] >> 2);
        }
        if (text[3] != '=') {
            bytes += static_cast<char>(value[2] << 6 | value[3]);
        }
        text.erase(0, 4);
    }
}

}  // namespace zelieml::test

#endif
