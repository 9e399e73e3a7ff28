// queue.cpp - zelieml queue: the messages that wait or were not delivered
//
// A message is named as 'queue list' names it: waiting ones by their file's name, undelivered ones as
// "undelivered/NAME". A name never leads out of the work directory.

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <ctime>
#include <functional>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <sysexits.h>
#include <vector>

#include "tools/zelieml/command.h"
#include "tools/zelieml/failure.h"
#include "tools/zelieml/file_time.h"
#include "tools/zelieml/locale_text.h"
#include "tools/zelieml/message_head.h"
#include "tools/zelieml/output.h"
#include "tools/zelieml/spool.h"

namespace zelieml::program
{

namespace
{

constexpr char undelivered_prefix[] = "undelivered/";

// The library's engine touches a message again half an hour after it was announced, at the earliest.
// Shortly before that nobody else may.
constexpr std::time_t second_attempt_s = 1800;
constexpr std::time_t keep_off_s       = 60;

// A message as the commands name it.
struct queued {
    std::string name;
    bool        is_undelivered = false;
};

std::string label(queued const& message)
{
    return (message.is_undelivered ? undelivered_prefix : "") + message.name;
}

failure not_there(std::string const& label)
{
    return {EX_NOINPUT, label + " is not in the queue: 'zelieml queue list' names what is"};
}

// What a word of the command line names. Throws a failure when that can be no message.
queued message_named(std::string const& word)
{
    queued            message;
    std::size_t const length = sizeof undelivered_prefix - 1;
    message.is_undelivered   = word.compare(0, length, undelivered_prefix) == 0;
    message.name             = message.is_undelivered ? word.substr(length) : word;
    if (message.name.find('/') != message.name.npos || !is_message_name(message.name)) {
        throw not_there(printable(word));
    }
    return message;
}

// ---- list

std::string time_text(std::time_t time, char const* format, std::tm* (*broken_down)(time_t const*))
{
    char           text[64] = "";
    std::tm* const parts    = broken_down(&time);
    if (parts != nullptr) {
        std::strftime(text, sizeof text, format, parts);
    }
    return text;
}

// Why the last attempt at a message failed, as the service has kept it, if it has.
json kept_reason(spool const& place, queued const& message)
{
    return json::parse(place.reason(message.name), nullptr, false);
}

// A member of what was kept, or this when there is none of its type.
template <class Value>
Value member(json const& kept, char const* name, Value const& otherwise)
{
    try {
        return kept.is_object() ? kept.value(name, otherwise) : otherwise;
    } catch (json::exception const&) {
        return otherwise;
    }
}

json described(spool const& place, queued const& message, struct stat const& status)
{
    message_head const head =
        read_head(message.is_undelivered ? place.undelivered_path(message.name)
                                         : place.path_of(message.name));
    json const kept = kept_reason(place, message);
    json       shown;
    shown["file"]    = label(message);
    shown["state"]   = message.is_undelivered ? "undelivered" : "waiting";
    shown["since"]   = time_text(modified(status).tv_sec, "%Y-%m-%dT%H:%M:%SZ", std::gmtime);
    shown["size"]    = status.st_size;
    shown["from"]    = head.from;
    shown["to"]      = head.to;
    shown["cc"]      = head.cc;
    shown["subject"] = head.subject;
    shown["reason"]  = member(kept, "reason", std::string());
    shown["fault"]   = head.fault;
    return shown;
}

void print_described(json const& message, struct stat const& status)
{
    auto const text = [&](char const* key) { return message[key].get<std::string>(); };
    print_line(to_terminal(text("file")) + " since " +
               time_text(modified(status).tv_sec, "%Y-%m-%d %H:%M:%S", std::localtime) + ", " +
               std::to_string(status.st_size) + " bytes");
    if (!text("fault").empty()) {
        print_line("    " + to_terminal(text("fault")));
    } else {
        std::string const also = text("cc").empty() ? "" : ", " + text("cc");
        print_line("    " +
                   to_terminal(text("from") + " to " + text("to") + also + ": " + text("subject")));
    }
    if (!text("reason").empty()) {
        print_line("    " + to_terminal(text("reason")));
    }
}

int list(spool const& place, bool as_json, bool names_only)
{
    json       all  = json::array();
    auto const show = [&](std::vector<spooled> const& files, bool are_undelivered) {
        for (spooled const& file : files) {
            queued const message = {file.name, are_undelivered};
            if (names_only) {
                print_line(to_terminal(label(message)));
                continue;
            }
            json const shown = described(place, message, file.status);
            if (as_json) {
                all.push_back(shown);
            } else {
                print_described(shown, file.status);
            }
        }
    };
    std::vector<spooled> waiting;
    place.each([&](spooled const& file) { waiting.push_back(file); });
    std::sort(waiting.begin(), waiting.end());
    show(waiting, false);
    int         status = EX_OK;
    std::string unread;
    try {
        show(place.undelivered(), true);
    } catch (failure const& fault) {
        unread = fault.what();
        status = EX_NOINPUT;
    }
    if (as_json) {
        print_json(all);
    }
    if (status != EX_OK) {
        throw failure(status, unread);
    }
    return status;
}

// ---- retry, drop

// Throws a failure unless the service that runs has tried this message once and is not about to try
// it again.
void must_be_between_attempts(spool const& place, queued const& message, struct stat const& status)
{
    json const kept = kept_reason(place, message);
    if (member(kept, "attempt", 0) != 1 || member(kept, "file", std::string()) != message.name ||
        !place.is_reason_new(message.name)) {
        throw failure(EX_TEMPFAIL,
                      label(message) + " has not been tried yet: a service tries it when it runs");
    }
    // A file is announced after its last change at the earliest.
    std::time_t const announced = member(kept, "announced", changed(status).tv_sec);
    if (std::time(nullptr) - announced >= second_attempt_s - keep_off_s) {
        throw failure(EX_TEMPFAIL,
                      label(message) + " is about to be tried again: wait for that attempt");
    }
}

void retry_waiting(spool const& place, queued const& message)
{
    struct stat status = {};
    if (::lstat(place.path_of(message.name).c_str(), &status) != 0) {
        throw not_there(label(message));
    }
    must_be_between_attempts(place, message, status);
    if (place.put_aside(message.name).empty()) {
        throw failure(EX_CANTCREAT, label(message), errno,
                      "run zelieml as a user who may rename it");
    }
    place.forget_reason(message.name);
}

void retry(spool const& place, queued const& message)
{
    if (!message.is_undelivered) {
        retry_waiting(place, message);
    } else if (place.put_back(message.name).empty()) {
        throw not_there(label(message));
    }
}

void drop(spool const& place, queued const& message)
{
    if (!(message.is_undelivered ? place.drop_undelivered(message.name)
                                 : place.drop(message.name))) {
        throw not_there(label(message));
    }
}

// Does it to each, also after one with which it fails. Returns the exit status of the first failure.
int for_each(std::vector<std::string> const&                         words,
             std::function<void(spool const&, queued const&)> const& action, spool const& place,
             bool as_json)
{
    int  result = EX_OK;
    json all    = json::array();
    for (std::string const& word : words) {
        int         status = EX_OK;
        std::string reason;
        try {
            action(place, message_named(word));
        } catch (failure const& fault) {
            std::fprintf(stderr, "zelieml: %s\n", fault.what());
            status = fault.status();
            reason = fault.what();
        }
        result = result == EX_OK ? status : result;
        all.push_back({{"file", word}, {"status", status}, {"reason", reason}});
    }
    if (as_json) {
        print_json(all);
    }
    return result;
}

int retry_all(spool const& place, bool as_json)
{
    std::vector<std::string> words;
    for (spooled const& file : place.undelivered()) {
        words.push_back(undelivered_prefix + file.name);
    }
    return for_each(words, retry, place, as_json);
}

}  // namespace

void add_queue(command_line& line)
{
    auto const names = std::make_shared<bool>(false);
    auto const files = std::make_shared<std::vector<std::string>>();
    auto const place = [&line] { return spool(line.options().workdir); };

    CLI::App& group =
        line.add_group("queue", "Show, retry or drop the messages that were not sent");

    CLI::App& list_command =
        line.add(group, "list", "Show what waits and what was not delivered, the oldest first",
                 "  zelieml queue list -w /var/spool/zelieml\n"
                 "  zelieml queue list -w /var/spool/zelieml --json",
                 [&line, place, names] { return list(place(), line.options().json, *names); });
    line.add_workdir(list_command);
    line.add_json(list_command);
    list_command.add_flag("--names", *names, "Print the names of the files only")
        ->excludes("--json");

    CLI::App& retry_command =
        line.add(group, "retry", "Have messages tried again now",
                 "  zelieml queue retry -w /var/spool/zelieml\n"
                 "  zelieml queue retry -w /var/spool/zelieml undelivered/a.sme",
                 [&line, place, files] {
                     bool const as_json = line.options().json;
                     return files->empty() ? retry_all(place(), as_json)
                                           : for_each(*files, retry, place(), as_json);
                 });
    line.add_workdir(retry_command);
    line.add_json(retry_command);
    retry_command
        .add_option("MESSAGE", *files,
                    "Messages as 'queue list' names them; without any, all undelivered ones")
        ->type_name("");

    CLI::App& drop_command = line.add(
        group, "drop", "Delete messages unsent", "  zelieml queue drop -w /var/spool/zelieml a.sme",
        [&line, place, files] { return for_each(*files, drop, place(), line.options().json); });
    line.add_workdir(drop_command);
    line.add_json(drop_command);
    drop_command.add_option("MESSAGE", *files, "Messages as 'queue list' names them")
        ->type_name("")
        ->required();
}

}  // namespace zelieml::program
