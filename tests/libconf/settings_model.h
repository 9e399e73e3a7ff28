// settings_model.h - the settings file as docs/FORMATS.md describes it, in memory

#ifndef ZELIEML_TESTS_LIBCONF_SETTINGS_MODEL_H
#define ZELIEML_TESTS_LIBCONF_SETTINGS_MODEL_H

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace zelieml::test
{

// The result of reading: what conf_get_string returns and leaves.
struct reading {
    int          result;
    unsigned int length;
    std::string  buffer;  // all its bytes
};

inline bool operator==(reading const& a, reading const& b)
{
    return a.result == b.result && a.length == b.length && a.buffer == b.buffer;
}

inline void PrintTo(reading const& r, std::ostream* out)
{
    *out << r.result << ", length " << r.length << ", " << testing::PrintToString(r.buffer);
}

// The lines of a file, without their LF; complete says whether all could be read.
inline std::vector<std::string> lines_of(std::string const& file, bool& complete)
{
    std::vector<std::string> lines;
    complete = true;
    for (std::size_t start = 0; start < file.size() && complete;) {
        std::size_t end = file.find('\n', start);
        if (end == std::string::npos) {
            end = file.size();
        }
        if (end - start > 1023) {
            complete = false;
        } else {
            lines.push_back(file.substr(start, end - start));
        }
        start = end + 1;
    }
    return lines;
}

inline bool belongs_to(std::string const& line, std::string const& key)
{
    std::string const text = line.substr(0, line.find('\0'));
    return text[0] != '#' && text.find(key) != std::string::npos;
}

inline reading model_get(std::string const& file, std::string const& key, std::string const& before)
{
    unsigned int const size     = static_cast<unsigned int>(before.size());
    bool               complete = false;
    for (std::string const& line : lines_of(file, complete)) {
        if (!belongs_to(line, key)) {
            continue;
        }
        std::string       buffer(size, '\0');
        std::string const text  = line.substr(0, line.find('\0'));
        std::size_t       begin = text.find('=');
        if (begin == std::string::npos) {
            return {-1, size, buffer};
        }
        begin             = text.find_first_not_of(" \t", begin + 1);
        std::string value = begin != std::string::npos ? text.substr(begin) : "";
        if (value.size() + 1 > size) {
            return {-1, 0, buffer};
        }
        if (!value.empty()) {
            value.pop_back();
        }
        buffer.replace(0, value.size(), value);
        return {0, static_cast<unsigned int>(value.size()), buffer};
    }
    return {-1, 0, before};
}

// False when the setting is refused.
inline bool model_set(std::string& file, std::string const& key, std::string const& value)
{
    std::string const new_line = key + " = " + value + "\r";
    bool              complete = false;
    std::string       after;
    bool              seen = false;
    for (std::string const& line : lines_of(file, complete)) {
        if (belongs_to(line, key)) {
            after += new_line + "\n";
            seen = true;
        } else if (line != "" && line != "\r") {
            after += line + "\n";
        }
    }
    if (!complete || new_line.size() > 1023 || key.empty() || key[0] == '#' ||
        key.find('=') != std::string::npos ||
        (key + value).find_first_of("\r\n") != std::string::npos) {
        return false;
    }
    file = after + (seen ? "" : new_line + "\n");
    return true;
}

}  // namespace zelieml::test

#endif
