// attempt.cpp - how an attempt at a mail ended

#include "tools/zelieml/attempt.h"

#include <sysexits.h>

#include "tools/zelieml/library_text.h"

namespace zelieml::program
{

namespace
{

std::string without_line_end(std::string text)
{
    text.resize(text.find_last_not_of("\r\n") + 1);
    return text;
}

// A step in which a server refuses who wants to log in. The library says EHLO only to log in.
bool is_login(std::string const& step)
{
    return step == "login" || step == "pop login" || step == "ehlo";
}

// A step of which the settings file alone does not tell enough.
bool is_tls(std::string const& step)
{
    return step == "tls" || step == "pop tls";
}

// Of an exit status before anything was attempted.
eml_cause cause_of(int status)
{
    switch (status) {
    case EX_DATAERR:
        return eml_cause_message;
    case EX_CONFIG:
        return eml_cause_settings;
    case EX_SOFTWARE:
        return eml_cause_memory;
    default:
        return eml_cause_file;
    }
}

}  // namespace

attempt attempt_of(void* record)
{
    attempt made;
    eml_cb_get_code(record, &made.code);
    eml_cb_get_number(record, &made.number);
    eml_cb_get_cause(record, &made.cause);
    eml_cb_get_attempt(record, &made.attempt_number);
    eml_cb_get_seconds(record, &made.seconds);
    made.step =
        library_text([&](char* buf, int size) { return eml_cb_get_step(record, buf, size); });
    made.reason =
        library_text([&](char* buf, int size) { return eml_cb_get_reason(record, buf, size); });
    made.reply = without_line_end(
        library_text([&](char* buf, int size) { return eml_cb_get_message(record, buf, size); }));
    made.file =
        library_text([&](char* buf, int size) { return eml_cb_get_file(record, buf, size); });
    return made;
}

attempt not_attempted(eml_cause cause, std::string const& reason, std::string const& mend)
{
    attempt made;
    made.code   = eml_send_error_other;
    made.number = 100;
    made.cause  = cause;
    made.step   = "message";
    made.reason = reason;
    made.mend   = mend;
    return made;
}

attempt not_attempted(failure const& fault)
{
    return not_attempted(cause_of(fault.status()), fault.what(), "do as the reason says");
}

json to_json(attempt const& made)
{
    json all = {
        {"code", static_cast<int>(made.code)},
        {"number", made.number},
        {"cause", name_of(made.cause)},
        {"step", made.step},
        {"reason", made.reason},
        {"reply", made.reply},
        {"seconds", made.seconds},
    };
    if (!made.file.empty()) {
        all["file"] = made.file;
    }
    return all;
}

std::string why(attempt const& made)
{
    // Without memory there is no reason.
    return made.reason.empty() ? "the mail was not sent" : made.reason;
}

std::string remedy(attempt const& made)
{
    constexpr int not_confirmed = 1006;
    if (made.number == not_confirmed) {
        return "the server has taken the mail, do not send it again";
    }
    if (!made.mend.empty()) {
        return made.mend;
    }
    switch (made.cause) {
    case eml_cause_message:
        return "mend the message";
    case eml_cause_file:
        return "make room, give this user the right to write there, or use another directory";
    case eml_cause_settings:
        return is_tls(made.step) ? "'zelieml check' says more"
                                 : "'zelieml settings check' says more";
    case eml_cause_unreachable:
    case eml_cause_protocol:
    case eml_cause_tls:
        return "'zelieml check' says more";
    case eml_cause_lost:
        return made.step == "text"
                   ? "the server may have taken the mail: look before you send it again"
                   : "'zelieml check' says more";
    case eml_cause_refused_now:
        return "try again later";
    case eml_cause_refused:
        return made.step == "recipient" ? "nobody has got the mail, mend the address"
               : is_login(made.step)    ? "'zelieml check' says more"
                                        : "do as the reply says";
    default:
        return "try again";
    }
}

char const* name_of(eml_cause cause)
{
    switch (cause) {
    case eml_cause_none:
        return "none";
    case eml_cause_memory:
        return "memory";
    case eml_cause_file:
        return "file";
    case eml_cause_message:
        return "message";
    case eml_cause_settings:
        return "settings";
    case eml_cause_unreachable:
        return "unreachable";
    case eml_cause_lost:
        return "lost";
    case eml_cause_refused_now:
        return "refused_now";
    case eml_cause_refused:
        return "refused";
    case eml_cause_protocol:
        return "protocol";
    case eml_cause_tls:
        return "tls";
    case eml_cause_32_bits:
        break;
    }
    return "unknown";  // of a newer library
}

int exit_status(attempt const& made)
{
    bool const unsaved = made.cause == eml_cause_file && made.attempt_number == 0;
    return unsaved ? EX_CANTCREAT : exit_status(made.cause, made.step);
}

int exit_status(eml_cause cause, std::string const& step)
{
    switch (cause) {
    case eml_cause_none:
        return EX_OK;
    case eml_cause_message:
        return EX_DATAERR;
    case eml_cause_settings:
        return EX_CONFIG;
    case eml_cause_unreachable:
    case eml_cause_lost:
    case eml_cause_tls:
        return EX_UNAVAILABLE;
    case eml_cause_refused_now:
        return step == "quit" ? EX_PROTOCOL : EX_TEMPFAIL;  // the server has taken the mail
    case eml_cause_refused:
        return step == "recipient" ? EX_NOUSER : is_login(step) ? EX_NOPERM : EX_PROTOCOL;
    case eml_cause_protocol:
        return EX_PROTOCOL;
    case eml_cause_memory:
    case eml_cause_file:
    case eml_cause_32_bits:
        break;
    }
    return EX_SOFTWARE;
}

}  // namespace zelieml::program
