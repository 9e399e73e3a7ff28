// attempt_log.cpp - what the service prints

#include "tools/zelieml/attempt_log.h"

#include <cstdio>
#include <ctime>

#include "tools/zelieml/failure.h"
#include "tools/zelieml/locale_text.h"

namespace zelieml::program
{

namespace
{

// RFC 3339, with the zone: 2026-02-03T04:05:06+01:00
std::string time_text(std::time_t seconds)
{
    std::tm local = {};
    ::localtime_r(&seconds, &local);
    char              text[64];
    std::size_t const size = std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S%z", &local);
    std::string       all(text, size);
    return all.insert(all.size() - 2, ":");
}

std::string seconds_text(double seconds)
{
    char text[64];
    std::snprintf(text, sizeof text, "%.2f s", seconds);
    return text;
}

std::string line_of(logged_attempt const& logged)
{
    bool const sent = logged.made.code == eml_send_ok;
    bool const over = !sent && logged.made.attempt_number > 1;

    std::string line = time_text(std::time(nullptr)) +
                       (sent   ? " sent "
                        : over ? " gave up "
                               : " failed ") +
                       logged.name + " to " + logged.head.to + ", subject \"" +
                       logged.head.subject + "\", attempt " +
                       std::to_string(logged.made.attempt_number) + ", " +
                       seconds_text(logged.made.seconds);
    if (!sent) {
        line += ": " + why(logged.made);
    }
    if (!logged.undelivered.empty()) {
        line += "; it is undelivered/" + logged.undelivered;
    }
    return line;
}

}  // namespace

void complain(std::string const& text)
{
    std::fprintf(stderr, "zelieml: %s\n", text.c_str());
}

json to_json(logged_attempt const& logged)
{
    json all = {
        {"time", time_text(std::time(nullptr))},
        {"file", logged.name},
        {"to", logged.head.to},
        {"subject", logged.head.subject},
        {"attempt", logged.made.attempt_number},
    };
    json const made = to_json(logged.made);
    for (auto const& [key, value] : made.items()) {
        if (!all.contains(key)) {
            all[key] = value;
        }
    }
    if (!logged.undelivered.empty()) {
        all["undelivered"] = logged.undelivered;
    }
    return all;
}

void attempt_log::print(logged_attempt const& logged)
{
    try {
        if (as_json_) {
            print_json(to_json(logged));
        } else {
            print_line(to_terminal(line_of(logged)));
        }
    } catch (failure const& error) {
        std::clearerr(stdout);
        if (!has_complained_) {
            has_complained_ = true;
            complain(error.what());
        }
    }
}

}  // namespace zelieml::program
