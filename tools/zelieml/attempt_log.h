// attempt_log.h - what the service prints: a line, or a JSON object, for each attempt

#ifndef ZELIEML_TOOLS_ZELIEML_ATTEMPT_LOG_H
#define ZELIEML_TOOLS_ZELIEML_ATTEMPT_LOG_H

#include <string>

#include "tools/zelieml/attempt.h"
#include "tools/zelieml/message_head.h"
#include "tools/zelieml/output.h"

namespace zelieml::program
{

// An attempt at a message of the work directory.
struct logged_attempt {
    attempt      made;         // its reply and reason cut to 4 KiB
    std::string  name;         // of the message, as it was posted
    message_head head;         // what its file says
    std::string  undelivered;  // the name that it was given up under; or empty
};

// logged - what a record of a callback says
logged_attempt logged(void* record);

// to_json - time (of the end), file, to, subject, attempt, and what to_json of an attempt has
json to_json(logged_attempt const& logged);

// line_of - for people, or as JSON; without its end
std::string line_of(logged_attempt const& logged, bool as_json);

}  // namespace zelieml::program

#endif
