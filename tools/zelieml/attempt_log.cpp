// attempt_log.cpp - what the service prints

#include "tools/zelieml/attempt_log.h"

#include <cstdio>
#include <ctime>

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

std::string sentence_of(logged_attempt const& logged)
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

logged_attempt logged(void* record)
{
    constexpr std::size_t longest = 4096;
    logged_attempt        all     = {attempt_of(record), "", {}, ""};
    all.made.reply                = cut_text(all.made.reply, longest);
    all.made.reason               = cut_text(all.made.reason, longest);
    return all;
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

std::string line_of(logged_attempt const& logged, bool as_json)
{
    return as_json ? json_text(to_json(logged)) : to_terminal(sentence_of(logged));
}

}  // namespace zelieml::program
