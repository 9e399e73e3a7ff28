// queue.cpp - zelieml queue: the messages that wait or were not delivered
//
// A message is named as 'queue list' names it: one that waits by the name that it was posted under,
// or as "sending/FILE" where several have that; an undelivered one as "undelivered/NAME". A name never
// leads out of the work directory.

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <ctime>
#include <functional>
#include <iterator>
#include <map>
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
constexpr char held_prefix[]        = "sending/";

enum class folder {
    posted,  // the work directory
    held,    // the service's
    undelivered
};

// A message, and how the commands name it.
struct queued {
    folder      where = folder::posted;
    spooled     file;
    std::string label;
};

failure not_there(std::string const& label)
{
    return {EX_NOINPUT, label + " is not in the queue: 'zelieml queue list' names what is"};
}

bool begins(std::string const& text, std::string const& start)
{
    return text.compare(0, start.size(), start) == 0;
}

// All that wait, the oldest first.
std::vector<queued> waiting(spool const& place, std::vector<spooled> const& held)
{
    std::vector<queued>        all;
    std::map<std::string, int> names;
    place.each([&](spooled const& file) { all.push_back({folder::posted, file, file.name}); });
    for (spooled const& file : held) {
        all.push_back({folder::held, file, held_name::of(file.name).posted});
    }
    for (queued const& message : all) {
        ++names[message.label];
    }
    for (queued& message : all) {
        if (message.where == folder::held && names[message.label] > 1) {
            message.label = held_prefix + message.file.name;
        }
    }
    std::sort(all.begin(), all.end(),
              [](queued const& a, queued const& b) { return a.file < b.file; });
    return all;
}

std::vector<queued> undelivered(spool const& place)
{
    std::vector<queued> all;
    for (spooled const& file : place.undelivered()) {
        all.push_back({folder::undelivered, file, undelivered_prefix + file.name});
    }
    return all;
}

// What a word of the command line names, also as a terminal shows it. Throws a failure when that is
// no message, or several.
queued message_named(spool const& place, std::string const& word)
{
    std::vector<queued> all =
        begins(word, undelivered_prefix) ? undelivered(place) : waiting(place, place.held());
    auto const keep = [&](auto&& is_meant) {
        std::vector<queued> kept;
        std::copy_if(all.begin(), all.end(), std::back_inserter(kept), is_meant);
        return kept;
    };
    std::vector<queued> meant = keep([&](queued const& message) {
        return message.label == word ||
               (message.where == folder::held && held_prefix + message.file.name == word);
    });
    if (meant.empty()) {
        meant = keep([&](queued const& message) { return to_terminal(message.label) == word; });
    }
    if (meant.empty()) {
        throw not_there(to_terminal(word));
    }
    if (meant.size() > 1) {
        throw failure(EX_NOINPUT,
                      to_terminal(word) +
                          " is the name of several messages: name one by its file, as 'zelieml "
                          "queue list' does");
    }
    return meant.front();
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
    std::string const& name = message.file.name;
    std::string const  kept = message.where == folder::held ? place.reason(held_name::of(name))
                              : message.where == folder::undelivered ? place.undelivered_reason(name)
                                                                     : "";
    return json::parse(kept, nullptr, false);
}

std::string path_of(spool const& place, queued const& message)
{
    switch (message.where) {
    case folder::held:
        return place.held_path(message.file.name);
    case folder::undelivered:
        return place.undelivered_path(message.file.name);
    case folder::posted:
        break;
    }
    return place.path_of(message.file.name);
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

json described(spool const& place, queued const& message)
{
    message_head const head   = read_head(path_of(place, message));
    json const         kept   = kept_reason(place, message);
    struct stat const& status = message.file.status;
    json               shown;
    shown["file"]    = message.label;
    shown["state"]   = message.where == folder::undelivered ? "undelivered" : "waiting";
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
    auto const show = [&](std::vector<queued> const& messages) {
        for (queued const& message : messages) {
            if (names_only) {
                print_line(to_terminal(message.label));
                continue;
            }
            json const shown = described(place, message);
            if (as_json) {
                all.push_back(shown);
            } else {
                print_described(shown, message.file.status);
            }
        }
    };
    // What a folder of another user's would show is left out, and the status says so.
    int         status = EX_OK;
    std::string unread;
    auto const  unless_unread = [&](auto&& files) -> decltype(files()) {
        try {
            return files();
        } catch (failure const& fault) {
            unread = fault.what();
            status = EX_NOINPUT;
        }
        return {};
    };
    show(waiting(place, unless_unread([&] { return place.held(); })));
    show(unless_unread([&] { return undelivered(place); }));
    if (as_json) {
        print_json(all);
    }
    if (status != EX_OK) {
        throw failure(status, unread);
    }
    return status;
}

// ---- retry, drop

void retry(spool const& place, queued const& message)
{
    std::string const& name = message.file.name;
    if (message.where == folder::undelivered) {
        if (place.put_back(name).empty()) {
            throw not_there(message.label);
        }
    } else if (message.where == folder::posted) {
        throw failure(EX_TEMPFAIL, to_terminal(message.label) +
                                       " has not been tried yet: a service tries it when it runs");
    } else if (held_name::of(name).reached != stage::tried) {
        throw failure(EX_TEMPFAIL, to_terminal(message.label) +
                                       " is about to be tried: a service tries it when it runs");
    } else if (place.put_back_held(name).empty()) {
        throw failure(EX_TEMPFAIL, to_terminal(message.label) +
                                       " is just being tried again: wait for that attempt");
    }
}

void drop(spool const& place, queued const& message)
{
    std::string const& name    = message.file.name;
    bool const         dropped = message.where == folder::posted ? place.drop(name)
                                 : message.where == folder::held ? place.drop_held(name)
                                                                 : place.drop_undelivered(name);
    if (!dropped) {
        throw not_there(to_terminal(message.label));
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
            action(place, message_named(place, word));
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
    for (queued const& message : undelivered(place)) {
        words.push_back(message.label);
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
