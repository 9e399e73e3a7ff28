// locale_text.cpp - conversions by iconv

#include "tools/zelieml/locale_text.h"

#include <algorithm>
#include <cerrno>
#include <clocale>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <iconv.h>
#include <langinfo.h>
#include <sysexits.h>

#include "tools/zelieml/failure.h"

namespace zelieml::program
{

namespace
{

constexpr char utf8_name[] = "UTF-8";

bool is_c_locale()
{
    std::string const name = std::setlocale(LC_CTYPE, nullptr);
    return name == "C" || name == "POSIX";
}

// Of a character of UTF-8, any byte but its first.
bool is_continuation(char c)
{
    return (static_cast<unsigned char>(c) & 0xC0U) == 0x80U;
}

std::string locale_charset()
{
    return is_c_locale() ? utf8_name : ::nl_langinfo(CODESET);
}

// The bytes of the character of UTF-8 at a position, or of what stands there instead of one.
std::size_t character_size(std::string const& text, std::size_t at)
{
    unsigned char const first = static_cast<unsigned char>(text[at]);
    std::size_t const   most  = first < 0xC0 ? 1 : first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
    std::size_t         size  = 1;
    while (size < most && at + size < text.size() && is_continuation(text[at + size])) {
        ++size;
    }
    return size;
}

// The number of a valid character.
unsigned long code_point(std::string const& character)
{
    std::size_t const size = character.size();
    unsigned long     code = static_cast<unsigned char>(character[0]);
    code &= size == 1 ? 0x7FU : 0x7FU >> size;
    for (std::size_t i = 1; i < size; ++i) {
        code = (code << 6U) | (static_cast<unsigned char>(character[i]) & 0x3FU);
    }
    return code;
}

// Whether this may be a charset's name: some systems take a path, or options, for a name as well.
bool is_charset_name(std::string const& name)
{
    constexpr std::size_t longest = 40;
    constexpr char usual[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";
    return !name.empty() && name.size() <= longest && name.find_first_not_of(usual) == name.npos;
}

class converter
{
public:
    converter(std::string const& to, std::string const& from)
        : handle_(::iconv_open(to.c_str(), from.c_str()))
    {
        if (reinterpret_cast<std::intptr_t>(handle_) == -1) {
            throw failure(EX_DATAERR, "this system cannot convert " + from + " to " + to +
                                          ": use a locale with UTF-8, and --encoding utf-8");
        }
    }
    ~converter() { ::iconv_close(handle_); }
    converter(converter const&)            = delete;
    converter& operator=(converter const&) = delete;

    // Adds what these bytes mean. Returns how many were converted before the first that could not
    // be: size when all were.
    std::size_t add(char const* bytes, std::size_t size, std::string& out)
    {
        char*       in   = const_cast<char*>(bytes);  // which iconv does not write to
        std::size_t left = size;
        while (left > 0) {
            char        piece[4096];
            char*       end   = piece;
            std::size_t room  = sizeof piece;
            std::size_t count = ::iconv(handle_, &in, &left, &end, &room);
            int const   error = errno;
            if (count != 0 && count != std::size_t(-1)) {
                return size - left - 1;  // a "?" or the like for what it cannot express
            }
            out.append(piece, end);
            if (count == std::size_t(-1) && error != E2BIG) {
                break;
            }
        }
        return size - left;
    }

    // Returns to the initial state.
    void finish(std::string& out)
    {
        char        piece[16];
        char*       end  = piece;
        std::size_t room = sizeof piece;
        ::iconv(handle_, nullptr, nullptr, &end, &room);
        out.append(piece, end);
    }

private:
    iconv_t handle_;
};

// Converts from UTF-8, character by character: only so does every iconv tell which one it cannot
// express. That one is given to replacement.
template <class Replacement>
std::string by_character(std::string const& text, std::string const& charset,
                         Replacement&& replacement)
{
    converter   from_utf8(charset, utf8_name);
    std::string out;
    out.reserve(text.size());
    for (std::size_t at = 0; at < text.size();) {
        std::size_t const size = character_size(text, at);
        if (from_utf8.add(text.data() + at, size, out) != size) {
            char const shown = replacement(at, text.substr(at, size));
            from_utf8.add(&shown, 1, out);
        }
        at += size;
    }
    from_utf8.finish(out);
    return out;
}

std::string line_at(std::string const& text, std::size_t at)
{
    auto const end = text.begin() + static_cast<std::ptrdiff_t>(at);
    return "line " + std::to_string(1 + std::count(text.begin(), end, '\n'));
}

// The bytes of the line before a position.
std::string line_before(std::string const& text, std::size_t at)
{
    std::string const before = text.substr(0, at);
    return before.substr(before.rfind('\n') + 1);
}

std::size_t characters(std::string const& text)
{
    return text.size() -
           static_cast<std::size_t>(std::count_if(text.begin(), text.end(), is_continuation));
}

std::string hexadecimal(int digits, unsigned long number)
{
    char text[24];
    std::snprintf(text, sizeof text, "%0*lX", digits, number);
    return text;
}

failure not_valid(std::string const& text, std::size_t at, std::string const& thing,
                  std::string const& fault)
{
    return {EX_DATAERR, thing + ", " + line_at(text, at) + ", byte " +
                            std::to_string(1 + line_before(text, at).size()) + ": " + fault};
}

bool is_control(std::string const& character)
{
    unsigned long const code = code_point(character);
    return (code < 0x20 && code != '\t') || (code >= 0x7F && code < 0xA0);
}

// Whether a character can have text shown in another order than it is written in.
bool turns_text(std::string const& character)
{
    unsigned long const code = code_point(character);
    return code == 0x200E || code == 0x200F || (code >= 0x202A && code <= 0x202E) ||
           (code >= 0x2066 && code <= 0x2069);
}

}  // namespace

void use_locale()
{
    // A locale that is not installed leaves the C locale.
    std::setlocale(LC_CTYPE, "");
}

std::string to_utf8(std::string const& text, std::string const& thing)
{
    std::size_t const nul = text.find('\0');
    if (nul != text.npos) {
        throw not_valid(text, nul, thing, "a NUL, which no mail can hold: is this a text?");
    }
    std::string const charset = locale_charset();
    converter         from_locale(utf8_name, charset);
    std::string       out;
    out.reserve(text.size());
    std::size_t const done = from_locale.add(text.data(), text.size(), out);
    if (done != text.size()) {
        unsigned char const byte = static_cast<unsigned char>(text[done]);
        throw not_valid(text, done, thing,
                        "0x" + hexadecimal(2, byte) + " is not valid in " + charset +
                            ", the charset of the locale: convert the text, or set LC_ALL");
    }
    return out;
}

std::string to_charset(std::string const& utf8, std::string const& charset,
                       std::string const& thing)
{
    if (charset == utf8_name) {
        return utf8;
    }
    return by_character(utf8, charset, [&](std::size_t at, std::string const& character) -> char {
        throw failure(EX_DATAERR, thing + ", " + line_at(utf8, at) + ", character " +
                                      std::to_string(1 + characters(line_before(utf8, at))) + ": " +
                                      "U+" + hexadecimal(4, code_point(character)) +
                                      " cannot be written in " + charset +
                                      ": use --encoding utf-8, or another character");
    });
}

std::string from_charset(std::string const& text, std::string const& charset)
{
    if (charset == utf8_name || !is_charset_name(charset)) {
        return text;
    }
    try {
        converter   from(utf8_name, charset);
        std::string out;
        return from.add(text.data(), text.size(), out) == text.size() ? out : text;
    } catch (failure const&) {
        return text;
    }
}

std::string cut_text(std::string const& utf8, std::size_t most)
{
    if (utf8.size() <= most) {
        return utf8;
    }
    while (most > 0 && is_continuation(utf8[most])) {
        --most;
    }
    return utf8.substr(0, most);
}

std::string to_terminal(std::string const& utf8)
{
    std::string shown;
    for (std::size_t at = 0; at < utf8.size();) {
        std::string const character = utf8.substr(at, character_size(utf8, at));
        shown += is_control(character) || turns_text(character) ? "?" : character;
        at += character.size();
    }
    return by_character(shown, locale_charset(),
                        [](std::size_t, std::string const&) { return '?'; });
}

}  // namespace zelieml::program
