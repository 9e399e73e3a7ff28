// service_output.h - what a service prints
//
// Nothing here waits for whoever reads it.

#ifndef ZELIEML_TOOLS_ZELIEML_SERVICE_OUTPUT_H
#define ZELIEML_TOOLS_ZELIEML_SERVICE_OUTPUT_H

#include <memory>
#include <string>

#include "tools/zelieml/line_writer.h"

namespace zelieml::program
{

// Any thread.
class service_output
{
public:
    service_output();

    // report - a line on standard output
    void report(std::string const& line) { out_.add(line); }

    // complain - a line on standard error; text in UTF-8, which is made printable
    void complain(std::string const& text) noexcept;

    // finish - waits until all is printed, for a second at most
    void finish() const;

private:
    std::shared_ptr<line_writer> const err_;
    line_writer                        out_;
};

// A complaint that is made once each time that its cause begins to hold.
class complaint
{
public:
    explicit complaint(service_output& output) : output_(output) {}

    void begin(std::string const& text)
    {
        if (!holds_) {
            holds_ = true;
            output_.complain(text);
        }
    }

    // Whether it held.
    bool end()
    {
        bool const held = holds_;
        holds_          = false;
        return held;
    }

private:
    service_output& output_;
    bool            holds_ = false;
};

}  // namespace zelieml::program

#endif
