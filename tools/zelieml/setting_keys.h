// setting_keys.h - the keys of the settings file

#ifndef ZELIEML_TOOLS_ZELIEML_SETTING_KEYS_H
#define ZELIEML_TOOLS_ZELIEML_SETTING_KEYS_H

#include <cstddef>
#include <string>
#include <vector>

namespace zelieml::program
{

enum class setting_kind : char {
    text,
    host,
    path,
    number,
    one_of,
    password
};

struct setting_key {
    std::string              name;
    setting_kind             kind;
    std::string              help;     // what it is for
    std::string              missing;  // what happens without it
    long                     low     = 0;
    long                     high    = 0;   // of a number
    std::vector<std::string> choices = {};  // of one_of
};

// All that the library reads, in the order in which people think of them.
std::vector<setting_key> const& setting_keys();

// Null for a name that is no key.
setting_key const* find_setting(std::string const& name);

// known_setting - the key of a name
//
// Throws a failure (EX_USAGE) that says which key may be meant.
setting_key const& known_setting(std::string const& name);

// values_of - what may be written for a key, such as "yes or no"
std::string values_of(setting_key const& key);

// fault_of - why a value would not do what its writer means, and what to do; empty if it would
//
// key  of any kind but password
std::string fault_of(setting_key const& key, std::string const& value);

// The bytes that the value of a key may have, so that its line can be read.
std::size_t longest_value(std::string const& name);

}  // namespace zelieml::program

#endif
