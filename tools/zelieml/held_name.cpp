// held_name.cpp - the names of the messages that a service has taken from the work directory

#include "tools/zelieml/held_name.h"

#include <array>
#include <cctype>
#include <chrono>
#include <cstdio>

namespace zelieml::program
{

namespace
{

constexpr char                       message_ending[] = ".sme";
constexpr std::size_t                longest_posted   = 90;  // so that the engine takes the path
constexpr std::size_t                longest_key      = 135;
constexpr std::array<char const*, 3> words            = {".first", ".tried", ".second"};

bool is_number(std::string const& text)
{
    if (text.empty()) {
        return false;
    }
    for (char const c : text) {
        if (std::isxdigit(static_cast<unsigned char>(c)) == 0 && c != '-') {
            return false;
        }
    }
    return true;
}

bool is_continuation(char c)
{
    return (static_cast<unsigned char>(c) & 0xC0U) == 0x80U;
}

std::string cut(std::string const& posted)
{
    if (posted.size() <= longest_posted) {
        return posted;
    }
    std::size_t size = longest_posted - (sizeof message_ending - 1);
    while (size > 0 && is_continuation(posted[size])) {
        --size;
    }
    return posted.substr(0, size) + message_ending;
}

std::string nanoseconds()
{
    char       text[24];
    auto const now = std::chrono::system_clock::now().time_since_epoch();
    std::snprintf(text, sizeof text, "%016llx",
                  static_cast<unsigned long long>(
                      std::chrono::duration_cast<std::chrono::nanoseconds>(now).count()));
    return text;
}

}  // namespace

held_name held_name::of(std::string const& file)
{
    std::size_t const sign = file.rfind('~');
    std::size_t const dot  = file.rfind('.');
    if (sign != file.npos && dot != file.npos && dot > sign) {
        std::string const number = file.substr(sign + 1, dot - sign - 1);
        for (std::size_t i = 0; i < words.size(); ++i) {
            if (file.compare(dot, file.npos, words[i]) == 0 && is_number(number)) {
                return {file.substr(0, sign), number, static_cast<stage>(i)};
            }
        }
    }
    return {cut(file), "", stage::first};
}

std::string held_name::file() const
{
    return key() + words[static_cast<std::size_t>(reached)];
}

bool held_name::fits() const
{
    return key().size() <= longest_key;
}

std::string held_name::key() const
{
    return posted + "~" + number;
}

held_names::held_names() : start_(nanoseconds()) {}

held_name held_names::make(std::string const& posted, stage reached)
{
    return {cut(posted), start_ + "-" + std::to_string(++count_), reached};
}

}  // namespace zelieml::program
