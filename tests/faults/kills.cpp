// kills.cpp - processes that are killed at each call that changes something; see faults.h
//
// What they leave must be one of the states that docs/ENGINE.md and docs/FORMATS.md name, and what
// is done next with it must end as they say.

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <stdexcept>
#include <sys/wait.h>

#include "tests/faults/faults.h"
#include "tests/faults/playground.h"

namespace zelieml::test
{

namespace
{

// What a killed process has left, by its name in the table that is printed.
struct state {
    std::string name;
    std::string wrong;  // not empty: the documents do not name it
};

struct scenario {
    char const*    name;
    scenario_body* body;
    char const*    clean;  // what playground::account_of says when nothing is killed
    stage          set_up;
    state (*classify)(sighting const&, playground&);
    // Each is done with what is left of a run of its own. Returns what is wrong.
    std::vector<std::string (*)(sighting const&, playground&)> next;
};

// How many message files are left, and of which kind.
struct message_files {
    int empty = 0;
    int part  = 0;
    int whole = 0;

    explicit message_files(playground const& place)
    {
        for (auto const& [name, contents] : place.files()) {
            if (is_message(name)) {
                ++(contents.empty() ? empty : ends_with(contents, message_end) ? whole : part);
            }
        }
    }

    int count() const { return empty + part + whole; }

    // By the one that is worst off.
    std::string name() const
    {
        return empty > 0   ? "an empty message file"
               : part > 0  ? "a part of a message file"
               : whole > 0 ? "a whole message file"
                           : "no message file";
    }
};

state other_files(playground const& place)
{
    state found;
    for (auto const& [name, contents] : place.files()) {
        if (!is_message(name) && name != "zelismes.cf") {
            found.wrong = "the file " + name;
        }
    }
    return found;
}

state classify_messages(sighting const& seen, playground& place)
{
    state                  found  = other_files(place);
    std::vector<int> const copies = place.copies();
    message_files const    left(place);
    bool const             sent = copies[0] + copies[1] > 0;
    found.name                  = left.name() + (sent ? ", a mail sent" : "");
    for (std::size_t i = 0; i < 2; ++i) {
        if (copies[i] > 1) {
            found.wrong = "a mail was sent twice";
        }
        if (seen.told.result[i] == 0 && copies[i] == 0 && left.count() == 0) {
            found.wrong = "a mail is lost";
        }
    }
    return found;
}

// ------------------------------------------------------------------ what is done next

bool went_well(sighting const& seen)
{
    return !seen.hung && WIFEXITED(seen.status) && seen.told.finished != 0;
}

// Two minutes later an engine starts, and sends what is posted to it from then on.
std::string start_engine(sighting const&, playground& place)
{
    for (std::string const& socket : place.sockets()) {
        auto const made = std::filesystem::last_write_time(socket);
        std::filesystem::last_write_time(socket, made - std::chrono::minutes(2));
    }
    std::vector<int> const before = place.copies();
    trial                  what;
    what.body                    = live_as_engine;
    sighting const         seen  = place.play(what);
    std::vector<int> const after = place.copies();
    if (!went_well(seen) || seen.told.started != 0) {
        return "the next engine does not start";
    }
    if (after[0] != before[0] + 1 || after[1] != before[1] + 1) {
        return "the next engine does not send each of its own mails once, and nothing else";
    }
    if (message_files(place).count() != 0) {
        return "the next engine leaves message files";
    }
    return place.sockets().empty() ? "" : "the socket " + place.sockets()[0] + " stays";
}

// A running engine finds the files. It sends whole ones, and deletes all of them.
std::string scan(sighting const&, playground& place)
{
    message_files const    left(place);
    std::vector<int> const before = place.copies();
    for (auto const& [name, contents] : place.files()) {
        if (is_message(name)) {
            std::filesystem::rename(std::string(place.where().work) + "/" + name,
                                    std::string(place.where().aside) + "/" + name);
        }
    }
    trial what;
    what.body                    = take_files_over;
    sighting const         seen  = place.play(what);
    std::vector<int> const after = place.copies();
    int const              sent  = after[0] + after[1] - before[0] - before[1];
    if (!went_well(seen) || seen.told.started != 0) {
        return "an engine cannot run with what is left";
    }
    if (message_files(place).count() != 0) {
        return "a message file stays for ever";
    }
    return sent < left.whole               ? "a whole message file is not sent"
           : sent > left.whole + left.part ? "something was sent of nothing"
                                           : "";
}

// ------------------------------------------------------------------ settings

char const first_line[] = "smtp_server = 127.0.0.1\r\n";
char const last_line[]  = "last = line\r\n";

bool is_whole(std::string const& settings)
{
    return settings.find(first_line) == 0 && settings.find(last_line) != std::string::npos;
}

bool is_new(std::string const& settings)
{
    return settings.find("smtp_account = a new account\r\n") != std::string::npos;
}

state classify_settings(sighting const&, playground& place)
{
    state      found;
    auto       files     = place.files();
    bool const named     = files.count("zelismes.cf") != 0;
    bool const temporary = files.count("zelismes.cf.tmp") != 0;
    if (named) {
        found.name = is_new(files["zelismes.cf"]) ? "the new settings" : "the old settings";
        found.name += temporary ? " and a temporary file" : "";
        found.wrong = is_whole(files["zelismes.cf"]) ? "" : "settings cut short";
    } else {
        found.name = "the new settings under the temporary name";
        found.wrong =
            temporary && is_whole(files["zelismes.cf.tmp"]) && is_new(files["zelismes.cf.tmp"])
                ? ""
                : "no settings";
    }
    files.erase("zelismes.cf");
    files.erase("zelismes.cf.tmp");
    if (!files.empty()) {
        found.wrong = "the file " + files.begin()->first;
    }
    return found;
}

state classify_first_setting(sighting const&, playground& place)
{
    state             found;
    auto              files     = place.files();
    bool const        named     = files.count("zelismes.cf") != 0;
    bool const        temporary = files.count("zelismes.cf.tmp") != 0;
    std::string const settings  = files["zelismes.cf"];
    if (named) {
        found.name = settings.empty() ? "empty settings" : "the new settings";
        found.name += temporary ? " and a temporary file" : "";
        found.wrong = settings.empty() || is_new(settings) ? "" : "settings cut short";
    } else {
        found.name  = temporary ? "the new settings under the temporary name" : "no settings";
        found.wrong = !temporary || is_new(files["zelismes.cf.tmp"]) ? "" : "no settings";
    }
    return found;
}

// After what docs/FORMATS.md says is to be done by hand.
std::string set_again(sighting const&, playground& place)
{
    auto const files = place.files();
    if (files.count("zelismes.cf") == 0 && files.count("zelismes.cf.tmp") != 0) {
        std::filesystem::rename(place.where().settings + std::string(".tmp"),
                                place.where().settings);
    }
    trial what;
    what.body           = change_settings;
    sighting const seen = place.play(what);
    auto           now  = place.files();
    if (!went_well(seen) || seen.told.result[0] != 0 || seen.told.result[1] != 0) {
        return "the next change of the settings fails";
    }
    bool const had_more = files.count("zelismes.cf") != 0 && is_whole(files.at("zelismes.cf"));
    return now.size() == 1 && is_new(now["zelismes.cf"]) &&
                   (!had_more || is_whole(now["zelismes.cf"]))
               ? ""
               : "the next change of the settings does not do its work";
}

std::vector<scenario> scenarios()
{
    std::string const login = "smtp_auth = yes\r\nsmtp_account = user\r\npasswd_raw = yes\r\n"
                              "smtp_passwd = password\r\n";
    return {
        {"post",
         post_to_nobody,
         "results 0 0, messages 1",
         {""},
         classify_messages,
         {start_engine, scan}},
        {"engine",
         live_as_engine,
         "started 0, results 0 0, reports 0 0, mails 2, sent 1 1",
         {""},
         classify_messages,
         {start_engine, scan}},
        {"send",
         send_and_wait,
         "results 0 -, code 0, records 1, mails 1, sent 1 0",
         {login},
         classify_messages,
         {start_engine, scan}},
        {"settings",
         change_settings,
         "results 0 0, value a new account",
         {std::string("smtp_account = old account\r\n") + last_line},
         classify_settings,
         {set_again}},
        {"first-setting",
         change_settings,
         "results 0 0, value a new account",
         {"", {}, {}, {}, true},
         classify_first_setting,
         {set_again}},
    };
}

// ------------------------------------------------------------------ the runs

constexpr std::array<char const*, 4> time_names = {"", "before", "half", "after"};

std::string spell(call_plan const& plan)
{
    return std::to_string(plan.thread) + ":" + std::to_string(plan.number) + ":" +
           time_names[static_cast<std::size_t>(plan.kill)];
}

call_plan parse(std::string const& text)
{
    std::size_t const first  = text.find(':');
    std::size_t const second = text.find(':', first + 1);
    auto const        kind   = second == std::string::npos ? time_names.end()
                                                           : std::find(time_names.begin(), time_names.end(),
                                                                       text.substr(second + 1));
    if (kind == time_names.end()) {
        throw std::invalid_argument("what is " + text + "?");
    }
    return {1,
            std::stoi(text),
            std::stoi(text.substr(first + 1)),
            0,
            0,
            static_cast<int>(kind - time_names.begin())};
}

// What came of one run.
struct finding {
    std::string name;
    std::string wrong;
};

finding run_one(scenario const& which, call_plan const& plan, std::size_t next)
{
    playground place(which.set_up);
    trial      what;
    what.body           = which.body;
    what.plan           = plan;
    sighting const seen = place.play(what);
    finding        found;
    if (seen.hung || !WIFSIGNALED(seen.status) || WTERMSIG(seen.status) != SIGKILL) {
        found.wrong = seen.record.reached != 0 ? "it was not killed" : "the call was not made";
        return found;
    }
    state const left = which.classify(seen, place);
    found.name       = left.name;
    found.wrong      = left.wrong.empty() ? which.next[next](seen, place) : left.wrong;
    return found;
}

bool writes_bytes(int call)
{
    return call == call_write || call == call_send;
}

std::vector<call_plan> plans_of(call_record const& record)
{
    std::vector<call_plan> all;
    for (int thread = 0; thread < max_threads; ++thread) {
        for (int number = 1; number <= std::min<int>(record.calls[thread], max_calls); ++number) {
            all.push_back({1, thread, number, 0, 0, kill_before});
            if (writes_bytes(record.made[thread][number - 1])) {
                all.push_back({1, thread, number, 0, 0, kill_half});
            }
            all.push_back({1, thread, number, 0, 0, kill_after});
        }
    }
    return all;
}

call_record count_changes(scenario const& which)
{
    playground place(which.set_up);
    trial      what;
    what.body                 = which.body;
    what.plan.only_changes    = 1;
    sighting const    seen    = place.play(what);
    std::string const account = place.account_of(seen.told);
    if (!went_well(seen) || account != which.clean) {
        throw std::runtime_error(std::string(which.name) + " fails without being killed: " +
                                 account + " instead of " + which.clean);
    }
    return seen.record;
}

constexpr int max_runs = 4096;

// What a run has left, for the process that started it.
struct run_result {
    char state[64];
};

int run_scenario(scenario const& which)
{
    auto const                   begun  = std::chrono::steady_clock::now();
    call_record const            record = count_changes(which);
    std::vector<call_plan> const plans  = plans_of(record);
    int const                    runs   = static_cast<int>(plans.size() * which.next.size());

    shared<std::array<run_result, max_runs>> results;
    if (runs > max_runs) {
        throw std::runtime_error(std::string(which.name) + " makes too many calls");
    }
    long long const wrong = in_parallel(runs, [&](int i) {
        auto const       at    = static_cast<std::size_t>(i);
        call_plan const& plan  = plans[at / which.next.size()];
        finding const    found = run_one(which, plan, at % which.next.size());
        run_result&      told  = (*results)[at];
        std::snprintf(told.state, sizeof told.state, "%s", found.name.c_str());
        if (!found.wrong.empty()) {
            std::printf("  %s: ./run kill %s %s   %s, then %s\n", found.wrong.c_str(), which.name,
                        spell(plan).c_str(),
                        call_kinds[record.made[plan.thread][plan.number - 1]].name,
                        found.name.c_str());
            std::fflush(stdout);
        }
        return found.wrong.empty() ? 0LL : 1LL;
    });

    std::map<std::string, int> states;
    for (int i = 0; i < runs; ++i) {
        ++states[(*results)[static_cast<std::size_t>(i)].state];
    }
    int calls = 0;
    for (int const of_thread : record.calls) {
        calls += of_thread;
    }
    double const took =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - begun).count();
    std::printf("%-14s %6d %6d %7.1f %6lld\n", which.name, calls, runs, took, wrong);
    for (auto const& [name, count] : states) {
        std::printf("    %4d times %s\n", count, name.c_str());
    }
    std::fflush(stdout);
    return static_cast<int>(wrong);
}

int run_named(scenario const& which, std::string const& text)
{
    call_plan const plan  = parse(text);
    int             wrong = 0;
    for (std::size_t next = 0; next < which.next.size(); ++next) {
        finding const found = run_one(which, plan, next);
        std::printf("%s: %s\n", found.name.c_str(),
                    found.wrong.empty() ? "nothing wrong" : found.wrong.c_str());
        wrong += found.wrong.empty() ? 0 : 1;
    }
    return wrong;
}

}  // namespace

int run_kills(std::string const& name, std::string const& what)
{
    if (what.empty()) {
        std::printf("%-14s %6s %6s %7s %6s\n", "scenario", "calls", "runs", "seconds", "found");
    }
    int const wrong = run_scenarios(scenarios(), name, [&](scenario const& which) {
        return what.empty() ? run_scenario(which) : run_named(which, what);
    });
    return wrong == 0 ? 0 : 1;
}

}  // namespace zelieml::test
