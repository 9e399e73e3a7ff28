// encoded_words.cpp - header fields as text (RFC 2047)

#include "libreceive/encoded_words.h"

#include <algorithm>
#include <cstring>
#include <string_view>

#include "platform/charset.h"
#include "support/ascii.h"
#include "support/utf8.h"

namespace zelieml
{

namespace
{

constexpr char        blanks[]      = " \t\r\n";
constexpr char        iso_2022_jp[] = "ISO-2022-JP";
constexpr std::size_t longest_name  = 20;

// The charsets that mails use besides UTF-8. Others are not converted: a system has hundreds of
// converters, and the sender of a mail is not to choose among them.
constexpr char charsets[] =
    " ISO-8859-1 ISO-8859-2 ISO-8859-3 ISO-8859-4 ISO-8859-5 ISO-8859-6 ISO-8859-7 ISO-8859-8"
    " ISO-8859-9 ISO-8859-10 ISO-8859-11 ISO-8859-13 ISO-8859-14 ISO-8859-15 ISO-8859-16"
    " WINDOWS-874 WINDOWS-1250 WINDOWS-1251 WINDOWS-1252 WINDOWS-1253 WINDOWS-1254 WINDOWS-1255"
    " WINDOWS-1256 WINDOWS-1257 WINDOWS-1258 KOI8-R KOI8-U TIS-620 MACINTOSH"
    " ISO-2022-JP SHIFT_JIS EUC-JP WINDOWS-31J EUC-KR BIG5 GB2312 GBK GB18030 ";

// The first bytes of a text that has as many, and the bytes after them. substr would bring the code
// that throws.
std::string_view head(std::string_view text, std::size_t size)
{
    return {text.data(), size};
}

std::string_view tail(std::string_view text, std::size_t size)
{
    text.remove_prefix(size);
    return text;
}

int hex_digit(char digit)
{
    char const letter = ascii_upper(digit);
    return letter >= '0' && letter <= '9'   ? letter - '0'
           : letter >= 'A' && letter <= 'F' ? letter - 'A' + 10
                                            : -1;
}

int base64_digit(char digit)
{
    constexpr char digits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    char const*    found    = digit != '\0' ? std::strchr(digits, digit) : nullptr;
    return found != nullptr ? static_cast<int>(found - digits) : -1;
}

// A charset that is converted, in upper case.
class charset
{
public:
    // Without the language that RFC 2231 allows after it.
    explicit charset(std::string_view name)
    {
        name = head(name, std::min(name.find('*'), name.size()));
        if (name.size() <= longest_name) {
            std::transform(name.begin(), name.end(), name_, ascii_upper);
            size_ = name.size();
        }
    }

    bool operator==(charset const& other) const { return name() == other.name(); }

    bool is_unicode() const { return name() == "UTF-8" || name() == "US-ASCII"; }
    bool has_states() const { return name() == iso_2022_jp; }
    bool is_known() const
    {
        std::string const entry = " " + std::string(name()) + " ";
        return is_unicode() || std::string_view(charsets).find(entry) != std::string_view::npos;
    }

    // Appends text as UTF-8, or almost: plain_text follows. Returns false when the system cannot.
    bool append(std::string const& text, std::string& out) const
    {
        if (is_unicode()) {
            out += text;
            return true;
        }
        return platform::append_as_utf8(name_, text, out);
    }

private:
    std::string_view name() const { return {name_, size_}; }

    char        name_[longest_name + 1] = "";
    std::size_t size_                   = 0;
};

// "_" is a blank, "=" and two hexadecimal digits a byte.
void append_q(std::string_view text, std::string& bytes)
{
    for (std::size_t i = 0; i < text.size(); ++i) {
        int const high = text[i] == '=' && i + 2 < text.size() ? hex_digit(text[i + 1]) : -1;
        int const low  = high >= 0 ? hex_digit(text[i + 2]) : -1;
        if (low >= 0) {
            bytes += static_cast<char>(high * 16 + low);
            i += 2;
        } else {
            bytes += text[i] == '_' ? ' ' : text[i];
        }
    }
}

// Base64; missing "=" at the end are forgiven. Returns false for anything else.
bool append_b(std::string_view text, std::string& bytes)
{
    text               = head(text, text.find_last_not_of('=') + 1);
    unsigned collected = 0;
    int      bits      = 0;
    for (char const each : text) {
        int const digit = base64_digit(each);
        if (digit < 0) {
            return false;
        }
        collected = (collected << 6 | static_cast<unsigned>(digit)) & 0xFFFF;
        bits += 6;
        if (bits >= 8) {
            bits -= 8;
            bytes += static_cast<char>(collected >> bits & 0xFF);
        }
    }
    return true;
}

// Takes what comes before the next "?" off the text, and the "?". Returns false when there is none,
// or a blank before it.
bool take(std::string_view& text, std::string_view& taken)
{
    std::size_t const at = text.find_first_of("? ");
    if (at == std::string_view::npos || text[at] == ' ') {
        return false;
    }
    taken = head(text, at);
    text.remove_prefix(at + 1);
    return true;
}

// Encoded words that are converted as one text.
struct run {
    charset     name = charset({});
    std::string bytes;
    std::size_t size = 0;  // of the words and the blanks between them, still encoded
};

// Adds the word at the beginning of rest, if there is one that belongs to the run. Returns its size.
std::size_t add_word(std::string_view const rest, run& words)
{
    std::string_view text = rest;
    std::string_view name;
    std::string_view encoding;
    std::string_view content;
    if (text.size() < 2 || text[0] != '=' || text[1] != '?') {
        return 0;
    }
    text.remove_prefix(2);
    if (!take(text, name) || !take(text, encoding) || !take(text, content) || text.empty() ||
        text.front() != '=' || encoding.size() != 1) {
        return 0;
    }
    charset const known(name);
    if (words.size == 0) {
        words.name = known;
    }
    bool const fits =
        words.size == 0 ? known.is_known() : known == words.name && !known.has_states();
    if (!fits) {
        return 0;
    }
    std::size_t const before = words.bytes.size();
    if (ascii_upper(encoding[0]) == 'Q') {
        append_q(content, words.bytes);
    } else if (ascii_upper(encoding[0]) != 'B' || !append_b(content, words.bytes)) {
        words.bytes.resize(before);
        return 0;
    }
    std::replace(words.bytes.begin() + static_cast<std::ptrdiff_t>(before), words.bytes.end(), '\0',
                 ' ');
    return static_cast<std::size_t>(text.data() - rest.data()) + 1;
}

run read_run(std::string_view field)
{
    run         words;
    std::size_t at = 0;
    for (;;) {
        std::size_t const size = add_word(tail(field, at), words);
        if (size == 0) {
            return words;
        }
        words.size = at + size;
        at         = std::min(field.find_first_not_of(blanks, words.size), field.size());
    }
}

// Appends the encoded words at the beginning of the field. Returns the size of what they were.
std::size_t append_words(std::string_view field, std::string& out)
{
    std::size_t used = 0;
    std::size_t at   = 0;
    for (;;) {
        run const words = read_run(tail(field, at));
        if (words.size == 0) {
            return used;
        }
        if (!words.name.append(words.bytes, out)) {
            out += tail(head(field, at + words.size), used);  // with the blanks
            return at + words.size;
        }
        used = at + words.size;
        at   = std::min(field.find_first_not_of(blanks, used), field.size());
    }
}

// Appends the ISO-2022-JP at the beginning of the field, up to the sequence that leads back to
// ASCII. Returns the size of what it was.
std::size_t append_jis(std::string_view field, std::string& out)
{
    constexpr std::string_view back_to_ascii = "\x1B(B";
    if (field.size() < 2 || field[0] != '\x1B' || (field[1] != '$' && field[1] != '(')) {
        return 0;
    }
    std::size_t const end  = field.find(back_to_ascii);
    std::size_t const size = end == std::string_view::npos ? field.size() : end + 3;
    std::string       text(head(field, size));
    std::replace(text.begin(), text.end(), '\0', ' ');
    if (!platform::append_as_utf8(iso_2022_jp, text, out)) {
        out += text;
    }
    return size;
}

}  // namespace

std::string plain_text(std::string const& field)
{
    std::string text;
    text.reserve(field.size());
    for (std::size_t i = 0; i < field.size();) {
        char const* const at   = field.c_str() + i;
        std::size_t const size = printable_size(at);
        if (size > 0) {
            text.append(at, size);
            i += size;
        } else if (*at == '\xC2' && (static_cast<unsigned char>(at[1]) & 0xC0) == 0x80) {
            text += ' ';
            i += 2;
        } else {
            auto const byte = static_cast<unsigned char>(*at);
            text += byte < 0x80 ? " " : platform::replacement_character;
            ++i;
        }
    }
    return text;
}

std::string decoded_text(std::string const& field)
{
    std::string      text;
    std::string_view rest = field;
    while (!rest.empty()) {
        std::size_t used = append_words(rest, text);
        if (used == 0) {
            used = append_jis(rest, text);
        }
        if (used == 0) {
            used = std::min(rest.find_first_of("=\x1B", 1), rest.size());
            text += head(rest, used);
        }
        rest.remove_prefix(used);
    }
    return plain_text(text);
}

}  // namespace zelieml
