// attempt_log.h - what the service prints: a line, or a JSON object, for each attempt

#ifndef ZELIEML_TOOLS_ZELIEML_ATTEMPT_LOG_H
#define ZELIEML_TOOLS_ZELIEML_ATTEMPT_LOG_H

#include <string>

#include "tools/zelieml/attempt.h"
#include "tools/zelieml/message_head.h"
#include "tools/zelieml/output.h"

namespace zelieml::program
{

// complain - a line on standard error
void complain(std::string const& text);

// An attempt at a message of the work directory.
struct logged_attempt {
    attempt      made;
    std::string  name;         // of the message, as in the work directory
    message_head head;         // what its file says
    std::string  undelivered;  // the name that it was given up under; or empty
};

// to_json - time (of the end), file, to, subject, attempt, and what to_json of an attempt has
json to_json(logged_attempt const& logged);

// Threads: the engine's only.
class attempt_log
{
public:
    explicit attempt_log(bool as_json) : as_json_(as_json) {}

    // Prints it. Where that fails, complains once, and throws nothing but std::bad_alloc.
    void print(logged_attempt const& logged);

private:
    bool as_json_;
    bool has_complained_ = false;
};

}  // namespace zelieml::program

#endif
