// faults.cpp - every call fails in turn; see faults.h

#include "tests/faults/faults.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/faults/playground.h"
#include "tests/faults/symbols.h"

#include <zelieml.h>

namespace zelieml::test
{

namespace
{

// What went wrong, and what is worth counting.
struct verdict {
    std::string wrong;              // empty: nothing
    bool        again     = false;  // a mail was sent twice, as the documents say
    bool        unwelcome = false;  // a mail was sent though the call that posted it had failed
};

using judge = verdict (*)(trial const&, sighting const&, playground&);

struct scenario {
    char const*    name;
    scenario_body* body;
    judge          check;
    char const*    clean;  // what playground::account_of says when nothing fails
    stage          set_up;
};

// The message files for a recipient, or for any.
int messages_left(playground const& place, std::string const& recipient = "")
{
    int count = 0;
    for (auto const& [name, contents] : place.files()) {
        count += is_message(name) && contents.find("to: " + recipient) != std::string::npos ? 1 : 0;
    }
    return count;
}

int files_left(playground const& place)
{
    int count = 0;
    for (auto const& [name, contents] : place.files()) {
        count += is_message(name) ? 1 : 0;
    }
    return count;
}

bool fails(trial const& what, std::initializer_list<call> calls, sighting const& seen)
{
    if (seen.record.reached == 0) {
        return false;
    }
    int const made = seen.record.made[what.plan.thread][what.plan.number - 1];
    return std::any_of(calls.begin(), calls.end(), [&](call c) { return c == made; });
}

bool lacks_memory(trial const& what, sighting const& seen)
{
    return fails(what, {call_malloc, call_calloc, call_realloc}, seen);
}

bool lacks_anything(trial const& what)
{
    return what.lack.descriptors >= 0 || what.lack.file_size >= 0 || what.lack.pages >= 0 ||
           what.lack.read_only;
}

bool cannot_delete(trial const& what, sighting const& seen)
{
    return what.lack.read_only || fails(what, {call_remove, call_unlink, call_unlinkat}, seen);
}

// A line of a message file for which there is no memory is missing from it, as eml_msg_save says.
bool may_lose_a_line(trial const& what, sighting const& seen)
{
    return what.plan.thread == 0 && lacks_memory(what, seen);
}

verdict check_engine(trial const& what, sighting const& seen, playground& place)
{
    static char const* const recipients[] = {"one@", "two@"};

    verdict                found;
    outcome const&         told   = seen.told;
    std::vector<int> const copies = place.copies();
    if (told.started != 0) {
        found.wrong = copies[0] + copies[1] > 0 ? "an engine that did not start has sent" : "";
        return found;
    }
    bool const was_told = told.report_count >= 0;
    int const  oks      = static_cast<int>(
        std::count(told.reports, told.reports + std::max(told.report_count, 0), 0));
    int const  failures = std::max(told.report_count, 0) - oks;
    int        lost     = 0;
    bool const lasting  = what.plan.for_good != 0 || lacks_anything(what);
    for (std::size_t i = 0; i < 2; ++i) {
        bool const posted = told.result[i] == 0;
        bool const left   = messages_left(place, recipients[i]) > 0;
        lost += posted && copies[i] == 0 && !left ? 1 : 0;
        if (posted && copies[i] > 1) {
            found.again = true;
            if (failures == 0 && was_told && !cannot_delete(what, seen)) {
                found.wrong = std::string("the mail to ") + recipients[i] + " was sent twice";
            }
        }
        found.unwelcome = found.unwelcome || (!posted && copies[i] > 0);
    }
    // Only after two failed attempts, each of which is reported unless there is no memory for that.
    if (2 * lost > failures && !(lasting && lacks_memory(what, seen))) {
        found.wrong = lost > 1 ? "both mails are lost" : "a mail is lost";
    }
    if (oks > place.mails()) {
        found.wrong = "a mail was reported as sent and was not";
    }
    return found;
}

// The part of a message file that fits stays, as eml_post and eml_post_sync say: exactly what there
// was room for.
bool was_cut_short(trial const& what, sighting const& seen, playground const& place)
{
    long const room = what.lack.pages >= 0 ? what.lack.pages * page_size : what.lack.file_size;
    auto const left = place.files();
    return fails(what, {call_write, call_writev, call_close, call_fclose}, seen) ||
           (room > 0 && std::all_of(left.begin(), left.end(), [&](auto const& file) {
                return !is_message(file.first) ||
                       file.second.size() == static_cast<std::size_t>(room);
            }));
}

verdict check_sync(trial const& what, sighting const& seen, playground& place)
{
    verdict        found;
    outcome const& told = seen.told;
    int const      sent = place.copies()[0];
    found.unwelcome     = told.result[0] == -1 && sent > 0;
    if (told.result[0] == not_called) {
        found.wrong = lacks_memory(what, seen) ? "" : "the scenario could not make its message";
    } else if (told.result[0] == 0 && (sent != 1 || (told.has_record != 0 && told.code != 0))) {
        found.wrong = "a mail was reported as sent and was not";
    } else if (sent > 1) {
        found.wrong = "the mail was sent twice";
    } else if (told.result[0] == -1 && told.code == 0 && told.has_record != 0) {
        found.wrong = "the call failed and its record says ok";
    } else if (told.has_record == 0 && !lacks_memory(what, seen)) {
        found.wrong = "there is no result record";
    } else if (files_left(place) > 0 && !cannot_delete(what, seen) &&
               !was_cut_short(what, seen, place)) {
        found.wrong = "the message file was left behind";
    }
    return found;
}

// A test that went well has ended with a session in which the server said this.
verdict check_login(trial const& what, sighting const& seen, playground& place, char const* welcome)
{
    verdict found;
    if (seen.told.code == not_called) {
        found.wrong = lacks_memory(what, seen) ? "" : "there was no test";
    } else if (seen.told.code == 0) {
        std::vector<std::string> const sessions = place.sessions();
        std::string const              last     = sessions.empty() ? "" : sessions.back();
        std::size_t const              login    = last.find(welcome);
        if (login == std::string::npos || last.find("C: quit", login) == std::string::npos) {
            found.wrong = "a login was reported that the server has not seen";
        }
    }
    return found;
}

verdict check_pop_login(trial const& what, sighting const& seen, playground& place)
{
    return check_login(what, seen, place, "S: +OK welcome");
}

verdict check_smtp_login(trial const& what, sighting const& seen, playground& place)
{
    return check_login(what, seen, place, "S: 235 ");
}

constexpr char encoded_subject[] = "=?ISO-8859-1?Q?tray?=";

verdict check_receive(trial const& what, sighting const& seen, playground& place)
{
    verdict        found;
    outcome const& told = seen.told;
    if (told.result[0] == not_called) {
        found.wrong = lacks_memory(what, seen) ? "" : "nothing was received";
    } else if (told.result[0] == -1 && told.mails != 0) {
        found.wrong = "a failed call has returned mails";
    } else if (told.result[0] == 0 && (told.senders[0] < 1 || told.senders[1] < 1)) {
        found.wrong = "a mail is lost";
    } else if (told.result[0] == 0 && place.mails_in_mailbox() != 0) {
        found.wrong = "a mail has stayed";
    } else if (told.result[1] == 0 && std::strcmp(told.value, "tray") != 0 &&
               std::strcmp(told.value, encoded_subject) != 0 &&
               std::strstr(told.value, "\xEF\xBF\xBD") == nullptr) {
        found.wrong = "a subject is another";
    }
    found.again = told.senders[0] > 1 || told.senders[1] > 1;
    return found;
}

// Either all old or all new, except that the documents allow a failure in the renaming to leave the
// new settings under the temporary name.
verdict check_settings(trial const&, sighting const& seen, playground& place)
{
    verdict     found;
    auto const  files = place.files();
    auto const  named = files.find("zelismes.cf");
    auto const  other = files.find("zelismes.cf.tmp");
    auto const  kept  = named != files.end() ? named : other;
    std::string text  = kept != files.end() ? kept->second : "";
    bool const  old   = text.find("smtp_account = old account\r\n") != std::string::npos;
    bool const  fresh = text.find("smtp_account = a new account\r\n") != std::string::npos;
    bool const  whole = text.find("last = line\r\n") != std::string::npos;
    if (old == fresh || !whole) {
        found.wrong = "settings are lost: \"" + text + "\"";
    } else if (seen.told.result[0] == 0 && (!fresh || named == files.end())) {
        found.wrong = "a setting was reported as written and was not";
    } else if (seen.told.result[1] == 0 &&
               std::strcmp(seen.told.value, fresh ? "a new account" : "old account") != 0) {
        found.wrong = std::string("a setting was read as \"") + seen.told.value + "\"";
    }
    return found;
}

char const first_setting[] = "smtp_account = a new account\r\n";

verdict check_first_setting(trial const&, sighting const& seen, playground& place)
{
    verdict    found;
    auto       files   = place.files();
    bool const written = files["zelismes.cf"] == first_setting;
    if (seen.told.result[0] == 0 && !written) {
        found.wrong = "a setting was reported as written and was not";
    } else if (!written && !files["zelismes.cf"].empty()) {
        found.wrong = "a part of a setting: " + files["zelismes.cf"];
    } else if (seen.told.result[1] == 0 && std::strcmp(seen.told.value, "a new account") != 0) {
        found.wrong = std::string("a setting was read as \"") + seen.told.value + "\"";
    }
    return found;
}

verdict check_post(trial const& what, sighting const& seen, playground& place)
{
    verdict found;
    int     complete = 0;
    for (auto const& [name, contents] : place.files()) {
        complete += is_message(name) && ends_with(contents, message_end) ? 1 : 0;
    }
    if (seen.told.result[0] == 0 && complete != 1 &&
        !(may_lose_a_line(what, seen) && files_left(place) == 1)) {
        found.wrong = "a message was reported as saved and was not";
    } else if (seen.told.result[0] == not_called && !lacks_memory(what, seen)) {
        found.wrong = "there was no message";
    } else if (seen.told.result[0] == -1 && files_left(place) > 0) {
        found.unwelcome = true;  // at the worst it is sent
    }
    return found;
}

verdict check_saved(trial const& what, sighting const& seen, playground& place)
{
    verdict    found;
    auto const files = place.files();
    auto const saved = files.find("saved.sme");
    bool const whole = saved != files.end() && ends_with(saved->second, message_end);
    if (seen.told.result[0] == 0 && !whole &&
        !(may_lose_a_line(what, seen) && saved != files.end())) {
        found.wrong = "a message was reported as saved and was not";
    } else if (seen.told.result[1] == 0 && whole && !may_lose_a_line(what, seen) &&
               std::strcmp(seen.told.value, "one@office.test") != 0) {
        found.wrong = std::string("a message was loaded with the recipient ") + seen.told.value;
    }
    return found;
}

verdict check_password(trial const&, sighting const& seen, playground&)
{
    verdict found;
    if (seen.told.result[1] == 0 &&
        std::strcmp(seen.told.value, "a password longer than any string keeps in itself") != 0) {
        found.wrong = std::string("the password came back as ") + seen.told.value;
    }
    return found;
}

std::string stored(std::string password)
{
    unsigned char* const text =
        eml_encrypt_passwd(reinterpret_cast<unsigned char*>(password.data()));
    std::string const copy = reinterpret_cast<char const*>(text);
    eml_encrypt_free_passwd(text);
    return copy;
}

std::vector<scenario> scenarios()
{
    std::string const to_find = "from: a@b.test\nto: old@office.test\nreplyto: a@b.test\nold";
    std::string const login   = "smtp_auth = yes\r\nsmtp_account = user\r\npasswd_raw = no\r\n"
                                "smtp_passwd = " +
                              stored("password") + "\r\n";
    std::string const pop =
        "pop_before_smtp = yes\r\npop_account = user\r\npop_auth_type = apop\r\n"
        "pop_passwd = password\r\npasswd_raw = yes\r\n";
    auto const mail = [](char const* who) {
        return std::string("From: ") + who + "@office.test\r\nSubject: " + encoded_subject +
               "\r\n\r\nbody\r\n";
    };
    return {
        {"engine",
         live_as_engine,
         check_engine,
         "started 0, results 0 0, reports 0 0, mails 2, sent 1 1",
         {""}},
        {"scan",
         look_for_files,
         check_engine,
         "started 0, results 0 -, reports 0, mails 1, sent 1 0",
         {"", {}, {{"old.sme", to_find}}}},
        {"send-with-login",
         send_and_wait,
         check_sync,
         "results 0 -, code 0, records 1, mails 1, sent 1 0",
         {login}},
        {"send-long",
         send_long_and_wait,
         check_sync,
         "results 0 -, code 0, records 1, mails 1, sent 1 0",
         {""}},
        {"send-after-pop",
         send_and_wait,
         check_sync,
         "results 0 -, code 0, records 1, mails 1, sent 1 0",
         {pop}},
        {"pop-login", try_pop_login, check_pop_login, "code 0", {""}},
        {"smtp-login", try_smtp_login, check_smtp_login, "code 0", {""}},
        {"receive",
         receive_two_mails,
         check_receive,
         "results 0 0, senders 1 1, value tray",
         {"", {mail("one"), mail("two")}}},
        {"settings",
         change_settings,
         check_settings,
         "results 0 0, value a new account",
         {"smtp_account = old account\r\n# a comment\r\n\r\nlast = line\r\n"}},
        {"first-setting",
         change_settings,
         check_first_setting,
         "results 0 0, value a new account",
         {"", {}, {}, {}, true}},
        {"post", post_to_nobody, check_post, "results 0 0, messages 1", {""}},
        {"save-and-load",
         save_and_load,
         check_saved,
         "results 0 0, messages 1, value one@office.test",
         {""}},
        {"password",
         keep_a_password,
         check_password,
         "results 0 0, value a password longer than any string keeps in itself",
         {""}},
    };
}

// ------------------------------------------------------------------ one run

char const* name_of_failure(int failure)
{
    switch (failure) {
    case failure_half:
        return "HALF";
    case failure_end:
        return "END";
    default:
        return ::strerrorname_np(failure);
    }
}

int failure_of_name(std::string const& name)
{
    for (int failure = failure_end; failure < 200; ++failure) {
        char const* const known = failure == 0 ? nullptr : name_of_failure(failure);
        if (known != nullptr && name == known) {
            return failure;
        }
    }
    throw std::invalid_argument("there is no failure " + name);
}

// As the command line takes it.
std::string spell(trial const& what)
{
    if (what.lack.descriptors >= 0) {
        return "descriptors:" + std::to_string(what.lack.descriptors);
    }
    if (what.lack.file_size >= 0) {
        return "file-size:" + std::to_string(what.lack.file_size);
    }
    if (what.lack.pages >= 0) {
        return "pages:" + std::to_string(what.lack.pages);
    }
    if (what.lack.read_only) {
        return "read-only";
    }
    return std::to_string(what.plan.thread) + ":" + std::to_string(what.plan.number) + ":" +
           name_of_failure(what.plan.failure) + (what.plan.for_good != 0 ? ":good" : "");
}

trial parse(std::string const& text, scenario_body* body)
{
    std::vector<std::string> parts;
    std::istringstream       in(text);
    for (std::string part; std::getline(in, part, ':');) {
        parts.push_back(part);
    }
    trial what;
    what.body = body;
    if (parts[0] == "descriptors" && parts.size() == 2) {
        what.lack.descriptors = std::stoi(parts[1]);
    } else if (parts[0] == "file-size" && parts.size() == 2) {
        what.lack.file_size = std::stol(parts[1]);
    } else if (parts[0] == "pages" && parts.size() == 2) {
        what.lack.pages = std::stoi(parts[1]);
    } else if (parts[0] == "read-only") {
        what.lack.read_only = true;
    } else if (parts.size() >= 3) {
        what.plan.thread   = std::stoi(parts[0]);
        what.plan.number   = std::stoi(parts[1]);
        what.plan.failure  = failure_of_name(parts[2]);
        what.plan.for_good = parts.size() > 3 ? 1 : 0;
    } else {
        throw std::invalid_argument("what is " + text + "?");
    }
    return what;
}

std::string name_of_call(trial const& what, sighting const& seen)
{
    return seen.record.reached != 0
               ? call_kinds[seen.record.made[what.plan.thread][what.plan.number - 1]].name
               : "";
}

verdict judge_all(scenario const& which, trial const& what, sighting const& seen, playground& place)
{
    verdict found;
    if (seen.hung) {
        found.wrong = "it took longer than 20 s";
    } else if (WIFSIGNALED(seen.status)) {
        found.wrong = std::string("it died of ") + ::sigdescr_np(WTERMSIG(seen.status));
    } else if (seen.told.finished == 0) {
        found.wrong = "it has ended the process";
    } else if (seen.told.descriptors != 0) {
        found.wrong = std::to_string(seen.told.descriptors) + " descriptors more than before";
    } else if (seen.told.threads > 0) {
        found.wrong = std::to_string(seen.told.threads) + " threads more than before";
    } else if (seen.record.blocks != 0) {
        found.wrong = std::to_string(seen.record.blocks) + " blocks of memory were not freed";
    } else if (!place.sockets().empty()) {
        // Unless it could not be deleted.
        if (!fails(what, {call_unlinkat, call_unlink, call_remove}, seen)) {
            found.wrong = "a socket file is left: " + place.sockets()[0];
        }
    }
    return found.wrong.empty() ? which.check(what, seen, place) : found;
}

// The lines of the library that made the call, for a developer.
void print_sites(call_record const& record)
{
    std::string command = "addr2line -Cfpse " ZELIEML_LIBRARY;
    for (int i = 0; i < record.site_count; ++i) {
        char offset[32];
        std::snprintf(offset, sizeof offset, " 0x%zx", record.sites[i] - 1);
        command += offset;
    }
    std::fflush(stdout);
    if (record.site_count > 0 && std::system(command.c_str()) != 0) {
        std::printf("(addr2line could not say where)\n");
    }
}

// ------------------------------------------------------------------ all runs

// Every failure of every call that the scenario makes, and what a process may lack besides.
std::vector<trial> trials_of(scenario const& which, call_record const& record, bool small_disks)
{
    std::vector<trial> all;
    trial              what;
    what.body = which.body;
    for (int thread = 0; thread < max_threads; ++thread) {
        if (record.calls[thread] > max_calls) {
            throw std::runtime_error(std::string(which.name) + " makes too many calls");
        }
        for (int number = 1; number <= record.calls[thread]; ++number) {
            auto const& kind = call_kinds[record.made[thread][number - 1]];
            for (int i = 0; i < max_failures && kind.failures[i] != 0; ++i) {
                what.plan = {0, thread, number, kind.failures[i], 0, kill_never};
                all.push_back(what);
            }
            if (kind.failures[0] != EINTR) {
                what.plan = {0, thread, number, kind.failures[0], 1, kill_never};
                all.push_back(what);
            }
        }
    }
    what.plan = {};
    for (int descriptors = 0; descriptors < 12; ++descriptors) {
        what.lack             = {};
        what.lack.descriptors = descriptors;
        all.push_back(what);
    }
    for (long const size : {0L, 1L, 50L, 150L}) {
        what.lack           = {};
        what.lack.file_size = size;
        all.push_back(what);
    }
    for (int pages = 0; small_disks && pages < 4; ++pages) {
        what.lack       = {};
        what.lack.pages = pages;
        all.push_back(what);
    }
    what.lack           = {};
    what.lack.read_only = true;
    all.push_back(what);
    return all;
}

// Returns packed counts, which in_parallel can add up.
constexpr long long counts_limit  = 1LL << 15;
constexpr long long one_wrong     = 1;
constexpr long long one_again     = one_wrong * counts_limit;
constexpr long long one_unwelcome = one_again * counts_limit;
constexpr long long one_missed    = one_unwelcome * counts_limit;

constexpr int tries = 3;  // of a run in which the call was not made

// At most so many runs of all may miss their call at each try.
long long bearable(std::size_t runs)
{
    return std::max<long long>(5, static_cast<long long>(runs) / 50);
}

long long run_one(scenario const& which, trial const& what, int try_number = 1)
{
    playground     place(which.set_up, what.lack.pages >= 0);
    sighting const seen  = place.play(what);
    verdict const  found = judge_all(which, what, seen, place);
    if (!found.wrong.empty()) {
        std::printf("  %s: ./run faults %s %s   %s\n", found.wrong.c_str(), which.name,
                    spell(what).c_str(), name_of_call(what, seen).c_str());
        std::fflush(stdout);
    }
    bool const missed = what.plan.number != 0 && seen.record.reached == 0;
    if (missed && found.wrong.empty() && try_number < tries) {
        return run_one(which, what, try_number + 1);
    }
    return (found.wrong.empty() ? 0 : one_wrong) + (found.again ? one_again : 0) +
           (found.unwelcome ? one_unwelcome : 0) + (missed ? one_missed : 0);
}

int run_scenario(scenario const& which, bool small_disks)
{
    auto const  begun = std::chrono::steady_clock::now();
    call_record record;
    {
        playground place(which.set_up);
        trial      what;
        what.body                 = which.body;
        sighting const    seen    = place.play(what);
        verdict const     found   = judge_all(which, what, seen, place);
        std::string const account = place.account_of(seen.told);
        record                    = seen.record;
        if (!found.wrong.empty() || account != which.clean) {
            std::printf("%s fails without a fault: %s\n  expected: %s\n  observed: %s\n",
                        which.name, found.wrong.c_str(), which.clean, account.c_str());
            return 1;
        }
    }
    int calls = 0;
    for (int const of_thread : record.calls) {
        calls += of_thread;
    }
    std::vector<trial> const all    = trials_of(which, record, small_disks);
    long long const          sum    = in_parallel(static_cast<int>(all.size()), [&](int i) {
        return run_one(which, all[static_cast<std::size_t>(i)]);
    });
    int                      wrong  = static_cast<int>(sum % counts_limit);
    long long const          missed = sum / one_missed;
    double const             took =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - begun).count();
    std::printf("%-16s %6d %6zu %7.1f %6lld %6lld %9lld %6d\n", which.name, calls, all.size(), took,
                missed, sum / one_again % counts_limit, sum / one_unwelcome % counts_limit, wrong);
    if (missed > bearable(all.size())) {
        std::printf("  %s: %lld runs did not make the call that was to fail\n", which.name, missed);
        ++wrong;
    }
    std::fflush(stdout);
    return wrong;
}

int run_named(scenario const& which, std::string const& text)
{
    trial const    what = parse(text, which.body);
    playground     place(which.set_up, what.lack.pages >= 0);
    sighting const seen  = place.play(what);
    verdict const  found = judge_all(which, what, seen, place);
    std::printf("%s\n", found.wrong.empty() ? "nothing wrong" : found.wrong.c_str());
    std::printf("%s\n", place.account_of(seen.told).c_str());
    for (auto const& [name, contents] : place.files()) {
        std::printf("left: %s, %zu bytes\n", name.c_str(), contents.size());
    }
    std::printf("%s\n", name_of_call(what, seen).c_str());
    print_sites(seen.record);
    return found.wrong.empty() ? 0 : 1;
}

}  // namespace

int run_faults(std::string const& name, std::string const& what)
{
    int wrong = 0;
    for (std::string const& call : unknown_calls()) {
        std::printf("nothing is known of the call %s: see tests/faults/calls.h\n", call.c_str());
        ++wrong;
    }
    std::string const why_no_small_disks = allow_small_disks();
    if (!why_no_small_disks.empty()) {
        std::printf("a full disk is not tried: %s\n", why_no_small_disks.c_str());
    }
    if (what.empty()) {
        std::printf("%-16s %6s %6s %7s %6s %6s %9s %6s\n", "scenario", "calls", "runs", "seconds",
                    "missed", "again", "unwelcome", "found");
    }
    wrong += run_scenarios(scenarios(), name, [&](scenario const& which) {
        return what.empty() ? run_scenario(which, why_no_small_disks.empty())
                            : run_named(which, what);
    });
    return wrong == 0 ? 0 : 1;
}

}  // namespace zelieml::test
