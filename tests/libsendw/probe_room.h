// probe_room.h - a work directory to probe, and what a probe told

#ifndef ZELIEML_TESTS_LIBSENDW_PROBE_ROOM_H
#define ZELIEML_TESTS_LIBSENDW_PROBE_ROOM_H

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "libsendw/libsendw.h"
#include "tests/support/files.h"
#include "zelieml_ext.h"

namespace zelieml::test
{

// The usual settings: no login to POP3 and no authentication, though the keys of both are set. The
// ports are those of the servers unless they are set.
class probe_settings
{
public:
    probe_settings& set(std::string const& key, std::string const& value)
    {
        auto const found = find(key);
        if (found == lines_.end()) {
            lines_.push_back({key, value});
        } else {
            found->second = value;
        }
        return *this;
    }

    probe_settings& remove(std::string const& key)
    {
        removed_.push_back(key);
        return *this;
    }

    std::string text(std::uint16_t smtp_port, std::uint16_t pop_port) const
    {
        std::string all;
        for (auto const& [key, value] : lines_) {
            if (std::find(removed_.begin(), removed_.end(), key) == removed_.end()) {
                std::string const port = std::to_string(key == "pop_port" ? pop_port : smtp_port);
                all += key + " = " + (value == "(port)" ? port : value) + "\r\n";
            }
        }
        return all;
    }

private:
    using line = std::pair<std::string, std::string>;

    std::vector<line>::iterator find(std::string const& key)
    {
        return std::find_if(lines_.begin(), lines_.end(),
                            [&](line const& l) { return l.first == key; });
    }

    std::vector<line> lines_ = {
        {"pop_before_smtp", "no"}, {"pop_server", "127.0.0.1"},  {"pop_port", "(port)"},
        {"pop_account", "anna"},   {"pop_passwd", "secret"},     {"pop_auth_type", "pop"},
        {"pop_wait_time", "0"},    {"smtp_server", "127.0.0.1"}, {"smtp_port", "(port)"},
        {"smtp_auth", "no"},       {"smtp_auth_type", "auto"},   {"smtp_account", "joe"},
        {"smtp_passwd", "secret"}, {"passwd_raw", "yes"},
    };
    std::vector<std::string> removed_;
};

// A step as it was told.
struct told_step {
    unsigned int      struct_size;
    eml_probe_outcome outcome;
    int               number;
    std::string       name;
    std::string       server;
    double            seconds;
    std::string       reply;
    std::string       reason;
    eml_cause         cause;
    void const*       user;
};

class told_steps
{
public:
    // The callback; user is the object.
    static void take(eml_probe_step const* step, void* user)
    {
        static_cast<told_steps*>(user)->steps_.push_back(
            {step->struct_size, step->outcome, step->number, step->name, step->server,
             step->seconds, step->reply, step->reason, step->cause, user});
    }

    std::vector<told_step> const& all() const { return steps_; }

    // The number of the step that failed, or 0.
    int number() const
    {
        int number = 0;
        for (told_step const& step : steps_) {
            number = step.number != 0 ? step.number : number;
        }
        return number;
    }

    // One line a step: "name outcome number: reply (remark)". CR LF of the reply is "|".
    std::string lines() const
    {
        std::string all;
        for (told_step const& step : steps_) {
            all += step.name;
            all += step.outcome == eml_probe_ok       ? " ok"
                   : step.outcome == eml_probe_failed ? " failed " + std::to_string(step.number)
                                                      : " remark";
            std::string reply = step.reply;
            for (std::size_t at = 0; (at = reply.find("\r\n")) != std::string::npos;) {
                reply.replace(at, 2, "|");
            }
            all += reply.empty() ? "" : ": " + reply;
            all += step.outcome == eml_probe_remark ? " (" + step.reason + ")" : "";
            all += "\n";
        }
        return all;
    }

private:
    std::vector<told_step> steps_;
};

class probe_room
{
public:
    probe_room(probe_settings const& settings, std::uint16_t smtp_port, std::uint16_t pop_port)
    {
        write_file(dir_.file("zelismes.cf"), settings.text(smtp_port, pop_port));
    }

    std::string workdir() const { return dir_.path(); }

    int probe(told_steps& steps, std::string const& sender = "",
              std::optional<std::string> const& recipient = std::nullopt) const
    {
        return eml_probe(workdir().c_str(), sender.c_str(),
                         recipient ? recipient->c_str() : nullptr, told_steps::take, &steps);
    }

    // What a send returns, of a mail from reply@a.test to x@b.test.
    int send() const
    {
        std::string const path = dir_.file("1.sme");
        write_file(path, "encoding: UTF-8\nto: x@b.test\nreplyto: reply@a.test\nthe text");
        std::string reply;
        return isendw().send(path.c_str(), dir_.file("zelismes.cf").c_str(), reply);
    }

private:
    temp_dir dir_;
};

}  // namespace zelieml::test

#endif
