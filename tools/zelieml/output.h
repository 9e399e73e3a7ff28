// output.h - what the commands print

#ifndef ZELIEML_TOOLS_ZELIEML_OUTPUT_H
#define ZELIEML_TOOLS_ZELIEML_OUTPUT_H

#include <nlohmann/json.hpp>
#include <string>

namespace zelieml::program
{

// Members in the order in which they were set.
using json = nlohmann::ordered_json;

// print_line - a line on standard output, which is flushed
//
// Throws a failure when it cannot be written.
void print_line(std::string const& line);

// has_printed - whether any line was to be printed
bool has_printed();

// need_output - throws a failure when it is known that nothing can be written to standard output:
// it is closed, or open for reading only, or its reader has gone, or its device is full
void need_output();

// json_text - a JSON value on one line; bytes that are no UTF-8 become U+FFFD
std::string json_text(json const& value);

// print_json - the same, printed
void print_json(json const& value);

// printable - a text from elsewhere, for a terminal: control characters become "?"
std::string printable(std::string const& text);

}  // namespace zelieml::program

#endif
