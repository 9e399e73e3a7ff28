#include "tools/mailserver/fault.h"

#include <algorithm>
#include <charconv>
#include <stdexcept>

#include "tools/mailserver/text.h"

namespace zelieml::mailserver
{

namespace
{

enum class argument {
    none,
    text,    // may be left out
    number,  // must be there
};

struct action_name {
    std::string_view name;
    fault::action    what;
    argument         takes;
};

action_name const actions[] = {
    {"refuse", fault::action::refuse, argument::text},
    {"close", fault::action::close, argument::none},
    {"reset", fault::action::reset, argument::none},
    {"silent", fault::action::silent, argument::none},
    {"delay", fault::action::delay, argument::number},
    {"trickle", fault::action::trickle, argument::number},
    {"cut", fault::action::cut, argument::number},
};

bool names(std::string_view fault_step, protocol which, std::string_view step)
{
    std::string const prefix = std::string(name_of(which)) + ".";
    return fault_step == step || fault_step == prefix + std::string(step);
}

bool is_step(std::string_view fault_step)
{
    for (protocol const which : {protocol::smtp, protocol::pop}) {
        for (std::string_view const step : steps_of(which)) {
            if (names(fault_step, which, step)) {
                return true;
            }
        }
    }
    return false;
}

}  // namespace

char const* name_of(protocol which)
{
    return which == protocol::smtp ? "smtp" : "pop";
}

std::vector<std::string_view> steps_of(protocol which)
{
    if (which == protocol::smtp) {
        return {"greeting", "helo", "ehlo", "auth", "answer", "mail", "rcpt",   "data",
                "text",     "rset", "noop", "vrfy", "help",   "quit", "unknown"};
    }
    return {"greeting", "capa", "user", "pass", "apop", "stat", "list",   "uidl",
            "retr",     "top",  "dele", "rset", "noop", "quit", "unknown"};
}

fault parse_fault(std::string const& text)
{
    std::size_t const equals = text.find('=');
    if (equals == std::string::npos) {
        throw std::invalid_argument("a fault is written step=action or step=action:argument");
    }
    fault result;
    result.step = text.substr(0, equals);
    if (!is_step(result.step)) {
        throw std::invalid_argument("there is no step \"" + result.step + "\"");
    }
    std::size_t const  colon  = text.find(':', equals);
    bool const         argued = colon != std::string::npos;
    std::string const  word   = text.substr(equals + 1, argued ? colon - equals - 1 : colon);
    std::string const  value  = argued ? text.substr(colon + 1) : "";
    action_name const* known  = std::find_if(std::begin(actions), std::end(actions),
                                             [&](action_name const& a) { return a.name == word; });
    if (known == std::end(actions)) {
        throw std::invalid_argument("there is no action \"" + word + "\"");
    }
    result.what = known->what;
    switch (known->takes) {
    case argument::none:
        if (argued) {
            throw std::invalid_argument("the action " + word + " takes no argument");
        }
        break;
    case argument::text:
        result.text = value;
        break;
    case argument::number: {
        char const* const end  = value.data() + value.size();
        auto const        read = std::from_chars(value.data(), end, result.amount);
        if (read.ec != std::errc() || read.ptr != end || result.amount < 0) {
            throw std::invalid_argument("the action " + word + " takes a number, as in " + word +
                                        ":50");
        }
        break;
    }
    }
    return result;
}

std::optional<fault> fault_table::take(protocol which, std::string_view step)
{
    std::lock_guard<std::mutex> hold(guard_);
    for (fault& f : faults_) {
        if (f.times != 0 && names(f.step, which, step)) {
            if (f.times > 0) {
                --f.times;
            }
            return f;
        }
    }
    return std::nullopt;
}

}  // namespace zelieml::mailserver
