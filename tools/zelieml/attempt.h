// attempt.h - how an attempt at a mail ended: for programs, for people, as an exit status

#ifndef ZELIEML_TOOLS_ZELIEML_ATTEMPT_H
#define ZELIEML_TOOLS_ZELIEML_ATTEMPT_H

#include <string>

#include "tools/zelieml/failure.h"
#include "tools/zelieml/output.h"
#include "zelieml_ext.h"

namespace zelieml::program
{

// What a result record says.
struct attempt {
    eml_send_e  code           = eml_send_ok;
    int         number         = 0;  // eml_cb_get_number
    eml_cause   cause          = eml_cause_none;
    int         attempt_number = 0;  // 1, 2; 0: the message could not be saved
    double      seconds        = 0;
    std::string step;    // that failed, or empty
    std::string reason;  // a sentence, or empty
    std::string reply;   // the server's last, without the line end after its last line; or empty
    std::string file;    // of the message, which may be gone; or empty
    std::string mend;    // what to do, where that is known better than by the cause; or empty
};

// attempt_of - what a record of eml_post_sync or of a callback says
attempt attempt_of(void* record);

// not_attempted - of a mail that cannot be sent as it is, read or saved
attempt not_attempted(eml_cause cause, std::string const& reason, std::string const& mend = "");

// not_attempted - of a failure before an attempt was made
attempt not_attempted(failure const& fault);

// to_json - code, number, cause, step, reason, reply, seconds, and file if there was one
json to_json(attempt const& made);

// why - one sentence for people, never empty; the attempt failed
std::string why(attempt const& made);

// remedy - what to do about it, a phrase; the attempt failed
std::string remedy(attempt const& made);

// name_of - a cause, as JSON has it: "refused_now"
char const* name_of(eml_cause cause);

// exit_status - of an attempt, or of a step of the probe: the one way from a cause to a status
int exit_status(attempt const& made);
int exit_status(eml_cause cause, std::string const& step);

}  // namespace zelieml::program

#endif
