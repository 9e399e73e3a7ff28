// service.cpp - the service that loses no mail
//
// A message goes through these states; held_name.h has the names of the files. Whatever lies in the
// service's folder and is not known is taken up again.
//
//     posted, in DIR
//       -> first     taken into the service's folder, and queued with the engine
//       -> tried     its first attempt failed
//       -> second    half an hour later, queued again: by another path, so for the engine it is new
//       -> undelivered
//
// The engine deletes a file when it was sent, or failed twice in its own eyes. That never happens:
// when an attempt has failed, the file gets another name before the engine goes on. Its entry in the
// engine's queue is dead then, and what the engine reports of it later is not listened to.
//
// Threads: the service's, which looks, takes and ends; the engine's, which reports; those that print;
// and one that stops the engine. The ledger is shared.

#include "tools/zelieml/service.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <exception>
#include <functional>
#include <map>
#include <mutex>
#include <new>
#include <optional>
#include <random>
#include <set>
#include <sys/stat.h>
#include <sysexits.h>
#include <thread>
#include <tuple>
#include <vector>

#include "tools/zelieml/attempt_log.h"
#include "tools/zelieml/failure.h"
#include "tools/zelieml/file_time.h"
#include "tools/zelieml/held_name.h"
#include "tools/zelieml/ledger.h"
#include "tools/zelieml/retry_pause.h"
#include "tools/zelieml/service_host.h"
#include "tools/zelieml/spool.h"
#include "tools/zelieml/watch.h"

namespace zelieml::program
{

namespace
{

using clock      = service_host::clock;
using time_point = service_host::time_point;
using std::chrono::milliseconds;
using std::chrono::minutes;
using std::chrono::seconds;

constexpr auto look_period      = seconds(30);
constexpr auto look_often       = seconds(1);  // where nothing tells of changes
constexpr auto first_use_pause  = milliseconds(4);
constexpr auto last_use_pause   = milliseconds(1000);
constexpr auto held_use_pause   = seconds(10);
constexpr auto try_pause        = seconds(1);   // where the system has no room just now
constexpr auto refusal_pause    = minutes(10);  // without one, before it is complained of again
constexpr int  look_rest        = 5;            // times what a look took, before the next one
constexpr auto most_waiting     = 4096;  // files that are remembered; the others are looked for
constexpr auto most_in_use      = 4096;
constexpr int  most_refused     = 3;  // by an engine that has taken no message yet
constexpr auto longest_work_dir = 255;

// Whether an error is of this moment, and not of this file.
bool may_pass(int error)
{
    switch (error) {
    case ENOSPC:
    case EDQUOT:
    case EIO:
    case ENOMEM:
    case EMFILE:
    case ENFILE:
    case EROFS:
        return true;
    default:
        return false;
    }
}

// A name that nobody else has or can guess: the engine is told of messages in another way.
std::string private_symbol()
{
    std::random_device random;
    std::string        symbol = "zelieml-service";
    for (int i = 0; i < 4; ++i) {
        char part[16];
        std::snprintf(part, sizeof part, "-%08x", static_cast<unsigned>(random()));
        symbol += part;
    }
    return symbol;
}

// What is kept of an attempt; of one that waits, until when. Made before its message is moved: JSON
// ends the process where it lacks memory to end.
std::string reason_of(logged_attempt const& made)
{
    return json_text(to_json(made));
}

std::string reason_until(logged_attempt const& made, std::time_t next)
{
    json kept    = to_json(made);
    kept["next"] = next;
    return json_text(kept);
}

bool is_plain(struct stat const& status)
{
    return S_ISREG(status.st_mode) && status.st_nlink == 1;
}

class service
{
public:
    explicit service(service_options const& options) : host_(options), place_(options.workdir) {}

    int run();

private:
    // A file that waits to be taken, the oldest first.
    struct waiting_file {
        timespec    time;
        std::string name;
        bool        looked_for = false;  // not told of

        bool operator<(waiting_file const& other) const
        {
            return std::tie(time.tv_sec, time.tv_nsec, name) <
                   std::tie(other.time.tv_sec, other.time.tv_nsec, other.name);
        }
    };

    // A file that is being written or sent by somebody else, and when it is looked at again.
    struct use {
        time_point   again;
        milliseconds pause;
    };

    // The service's thread.
    void       work();
    void       send_wait_and_look();
    void       look_around();
    bool       find_place();
    bool       repair_place();
    void       watch_place();
    void       look_at_posted();
    void       look_at_held();
    void       take_up(std::string const& file);
    time_point second_attempt_of(held_name const& name) const;
    void       ask_the_engine();
    bool       give(std::string const& file, bool is_second_attempt);
    void       hear();
    void       add(waiting_file const& waiting);
    void       add(std::string const& name);
    bool       is_left_alone(spooled const& file) const;
    void       look_again_at_used();
    void       send_waiting();
    void       send_second_attempts();
    void       take_posted();
    void       offer(std::string const& name);
    void       wait_for_user_of(std::string const& name);
    void       refuse(std::string const& name, int error);
    void       complain_once(int error, std::string const& text);
    bool       queue(std::string const& file);
    bool       not_now(std::string const& file);
    void       set_aside(std::string const& file);
    bool       complain_of_silence();
    time_point next_time() const;

    // The engine's thread.
    static int on_result(void* record, void* user);
    struct settlement;
    void        settle(void* record, settlement& work);
    bool        begin(void* record, settlement& work);
    void        remove_sent(std::string const& file);
    void        put_off(settlement& work, held_name const& tried);
    void        give_up(settlement& work);
    void        wake_for_places();
    bool        rename(std::string const& file, held_name const& as);
    void        wait_a_moment();
    std::string held_file(std::string const& path) const;

    service_host                host_;
    spool const                 place_;
    held_names                  names_;
    ledger                      ledger_;
    std::optional<service_lock> lock_;

    watch                       watch_;
    struct stat                 watched_ = {};
    std::set<waiting_file>      waiting_;
    bool                        has_more_ = false;  // in the directory than waiting_ holds
    std::optional<waiting_file> offered_;           // the last one that was looked for
    std::map<std::string, use>  in_use_;
    std::map<int, time_point>   refusals_;         // by errno
    time_point                  look_at_;          // at the latest
    time_point                  look_not_before_;  // unless a signal asks for it
    time_point                  send_not_before_;
    std::string                 question_;           // to the engine, the last one
    bool                        has_given_ = false;  // the engine a message, ever
    int                         refused_   = 0;
    bool                        is_news_   = false;
    complaint                   gone_{host_.output()};
    complaint                   broken_{host_.output()};
    complaint                   unreadable_{host_.output()};
    complaint                   unwatched_{host_.output()};
    complaint                   silent_{host_.output()};

    std::mutex              guard_;
    std::condition_variable stopping_changed_;
    bool                    stopping_ = false;  // guarded
    std::atomic<bool>       wants_places_{false};
    std::atomic<bool>       has_due_{false};
    std::atomic<bool>       is_stuck_{false};
    std::atomic<bool>       waits_{false};  // the engine, for room or memory
};

int service::run()
{
    if (place_.engine_path().size() > longest_work_dir) {
        throw failure(EX_CONFIG, "the path of the work directory " + place_.workdir() +
                                     " is too long: use one of at most " +
                                     std::to_string(longest_work_dir + place_.workdir().size() -
                                                    place_.engine_path().size()) +
                                     " bytes");
    }
    place_.make();
    lock_.emplace(place_);
    place_.forget_old_reasons();
    host_.start(place_.engine_path(), private_symbol(), on_result, this);

    int status = EX_OK;
    try {
        work();
    } catch (failure const& error) {
        status = error.status();
        host_.output().complain(error.what());
    } catch (std::exception const& error) {
        status = EX_SOFTWARE;
        host_.output().complain(error.what());
    }
    {
        std::lock_guard<std::mutex> const hold(guard_);
        stopping_ = true;
        stopping_changed_.notify_all();
    }
    host_.stop([this] { return is_stuck_.load(); });
    return status;
}

void service::work()
{
    look_around();
    host_.manager().ready("sending what comes to " + place_.workdir());
    while (host_.told().ends() == 0) {
        try {
            send_wait_and_look();
        } catch (std::bad_alloc const&) {
            look_at_ = clock::now();  // what was begun lies in a folder, and is found again
            std::this_thread::sleep_for(try_pause);
        }
    }
}

void service::send_wait_and_look()
{
    send_waiting();
    host_.wait(next_time(), watch_.fd(), complain_of_silence());
    if (watch_) {
        hear();
    }
    look_again_at_used();
    auto const now = clock::now();
    if (host_.told().take_hangup() || now >= look_at_ || (is_news_ && now >= look_not_before_)) {
        look_around();
    }
}

// Returns whether the engine has ended no attempt for so long that it may never end one, and does not
// wait for the service.
bool service::complain_of_silence()
{
    auto const limit = 2 * quiet_pause();
    if (ledger_.silence(clock::now()) <= limit || waits_) {
        silent_.end();
        return false;
    }
    auto const passed = std::chrono::duration_cast<minutes>(limit).count();
    silent_.begin("no attempt has ended for " + std::to_string(passed) +
                  " minutes, and nothing else is sent meanwhile: perhaps the server keeps the "
                  "connection open after QUIT: end the service and start it again, or have "
                  "systemd do that (WatchdogSec=)");
    return true;
}

time_point service::next_time() const
{
    time_point next = is_news_ ? std::min(look_at_, look_not_before_) : look_at_;
    if (wants_places_ && ledger_.is_low() && (ledger_.has_next() || !waiting_.empty())) {
        return clock::now();  // the engine was faster
    }
    for (auto const& [name, known] : in_use_) {
        next = std::min(next, known.again);
    }
    auto const now = clock::now();
    auto const due = ledger_.next_due().value_or(time_point::max());
    if (send_not_before_ > now) {
        next = std::min(next, send_not_before_);
    } else if (due > now || (ledger_.places() > 0 && ledger_.places_for_second_attempts() > 0)) {
        next =
            std::min(next, due);  // what is due, but has no place, waits for the engine to report
    }
    return next;
}

// ---------------------------------------------------------------- looking

// Looks at everything.
void service::look_around()
{
    auto const begin = clock::now();
    is_news_         = false;
    bool const found = find_place();
    look_at_         = begin + (found && watch_ ? seconds(look_period) : seconds(look_often));
    if (!found) {
        return;
    }
    try {
        look_at_held();
        look_at_posted();
        unreadable_.end();
    } catch (failure const& error) {
        unreadable_.begin(error.what());
        look_at_ = begin + look_often;
    }
    ask_the_engine();
    auto const end   = clock::now();
    look_not_before_ = end + look_rest * (end - begin);
    look_at_         = std::max(look_at_, look_not_before_);
}

// Whether the work directory is there, with all that the service needs; watched, if that works.
bool service::find_place()
{
    struct stat status = {};
    if (::stat(place_.workdir().c_str(), &status) != 0 || !S_ISDIR(status.st_mode)) {
        watch_.end();
        gone_.begin("the work directory " + place_.workdir() +
                    " is not there any more: it is looked for every second");
        host_.manager().status("looking for " + place_.workdir());
        return false;
    }
    if (!repair_place()) {
        return false;
    }
    if (gone_.end()) {
        host_.output().complain("the work directory " + place_.workdir() + " is back");
        host_.manager().status("sending what comes to " + place_.workdir());
    }
    if (!watch_ || status.st_dev != watched_.st_dev || status.st_ino != watched_.st_ino) {
        watched_ = status;
        watch_place();
    }
    return true;
}

// Makes what is missing. Throws a failure when something is there that may not be used, or another
// service is.
bool service::repair_place()
{
    try {
        if (!place_.is_whole()) {
            place_.make();
        }
        if (!lock_->is_valid(place_)) {
            service_lock another(place_);  // if this throws, it has the old one
            lock_.emplace(std::move(another));
        }
    } catch (failure const& error) {
        if (error.status() == EX_CONFIG || error.status() == EX_TEMPFAIL) {
            throw;
        }
        broken_.begin(error.what());
        return false;
    }
    broken_.end();
    return true;
}

void service::watch_place()
{
    int const error = watch_.begin(place_.workdir());
    if (error == 0) {
        unwatched_.end();
    } else if (error != ENOENT) {
        unwatched_.begin("the work directory " + place_.workdir() + " cannot be watched: " +
                         std::strerror(error) + ": it is looked at every second");
    }
}

// Goes on behind the last one that was offered while not all are remembered: so none that cannot be
// taken keeps others from being taken.
void service::look_at_posted()
{
    if (!has_more_) {
        offered_.reset();
    }
    has_more_ = false;
    waiting_.clear();
    for (auto each = in_use_.begin(); each != in_use_.end();) {
        auto const known = each++;
        if (known->second.again == time_point::max()) {
            in_use_.erase(known);  // it was in waiting_, and is added again if it is still there
        }
    }
    place_.each([&](spooled const& file) {
        waiting_file const waiting = {modified(file.status), file.name, true};
        if (!is_left_alone(file) && (!offered_ || *offered_ < waiting)) {
            add(waiting);
        }
    });
}

// Takes up what is not known: from a service before this one, or of a directory that was away.
void service::look_at_held()
{
    for (std::string const& file : ledger_.all_over()) {
        int const error = place_.remove_held(file);
        if (error == 0 || error == ENOENT) {
            ledger_.forget_over(file);
        }
    }
    for (spooled const& file : place_.held()) {
        if (!ledger_.knows(file.name)) {
            take_up(file.name);
        }
    }
}

void service::take_up(std::string const& file)
{
    held_name const name     = held_name::of(file);
    bool const      is_tried = name.reached == stage::tried;
    if (is_tried && name.fits()) {
        ledger_.add_later(file, second_attempt_of(name));
        return;
    }
    // The engine may know it by this name, or not take it.
    held_name const another = names_.make(name.posted, name.reached);
    if (place_.rename_held(file, another) != 0) {
        return;
    }
    if (is_tried) {
        ledger_.add_later(another.file(), second_attempt_of(another));
    } else {
        ledger_.add(another.file());
    }
}

// When a message that is not known is due: by the wall clock, which may have been set meanwhile.
time_point service::second_attempt_of(held_name const& name) const
{
    json const kept = json::parse(place_.reason(name), nullptr, false);
    seconds    rest = retry_pause();  // where nothing is known
    if (kept.is_object() && kept.contains("next") && kept["next"].is_number_integer()) {
        std::time_t const left = kept["next"].get<std::time_t>() - std::time(nullptr);
        rest                   = std::clamp(seconds(left), seconds(0), rest);
    }
    return clock::now() + rest;
}

// Without memory the engine makes an attempt and does not tell. The next one that it tells of shows
// that; so after a while it is given one that is not there. One at a time: an attempt can take hours.
void service::ask_the_engine()
{
    auto const now = clock::now();
    if (ledger_.silence(now) > quiet_pause() && !ledger_.is_given(question_)) {
        question_ = names_.make("nothing.sme", stage::first).file();
        give(question_, false);
    }
}

void service::hear()
{
    watch::news const news = watch_.read(is_message_name);
    for (std::string const& name : news.names) {
        in_use_.erase(name);  // perhaps not any more
        add(name);
    }
    if (news.over) {
        watch_.end();
        look_not_before_ = clock::now();
    }
    is_news_ = is_news_ || news.look || news.over;
}

bool service::is_left_alone(spooled const& file) const
{
    auto const known = in_use_.find(file.name);
    return !is_plain(file.status) ||
           (known != in_use_.end() && known->second.again != time_point::max());
}

void service::add(std::string const& name)
{
    spooled file = {name, {}};
    if (is_message_name(name) && ::lstat(place_.path_of(name).c_str(), &file.status) == 0 &&
        !is_left_alone(file)) {
        add({modified(file.status), name, false});
    }
}

void service::add(waiting_file const& waiting)
{
    if (has_more_ && !waiting_.empty() && *waiting_.rbegin() < waiting) {
        return;  // others come first, which are not remembered either
    }
    waiting_.insert(waiting);
    if (waiting_.size() > most_waiting) {
        waiting_.erase(std::prev(waiting_.end()));
        has_more_ = true;
    }
}

void service::look_again_at_used()
{
    auto const now = clock::now();
    for (auto each = in_use_.begin(); each != in_use_.end();) {
        auto const known = each++;
        if (known->second.again > now) {
            continue;
        }
        known->second.again = time_point::max();  // until it is offered
        struct stat status  = {};
        if (::lstat(place_.path_of(known->first).c_str(), &status) != 0 || !is_plain(status)) {
            in_use_.erase(known);
            continue;
        }
        add({modified(status), known->first, false});
    }
}

// ---------------------------------------------------------------- sending

void service::send_waiting()
{
    wants_places_   = false;
    has_due_        = false;
    auto const now  = clock::now();
    bool const more = ledger_.has_next() || !waiting_.empty() || has_more_ ||
                      ledger_.next_due().value_or(time_point::max()) <= now;
    if (!more || now < send_not_before_) {
        return;
    }
    if (!repair_place()) {
        send_not_before_ = now + look_often;
        return;
    }
    while (ledger_.places() > 0 && ledger_.has_next()) {
        if (!queue(*ledger_.take())) {
            return;
        }
    }
    send_second_attempts();
    take_posted();
    wants_places_ = ledger_.has_next() || !waiting_.empty() || has_more_;
    has_due_      = ledger_.next_due().value_or(time_point::max()) <= clock::now();
}

void service::send_second_attempts()
{
    while (ledger_.places() > 0 && ledger_.places_for_second_attempts() > 0) {
        auto const file = ledger_.take_due(clock::now());
        if (!file) {
            return;
        }
        held_name const name  = held_name::of(*file);
        held_name const next  = name.reached == stage::tried ? name.at(stage::second) : name;
        int const       error = *file == next.file() ? 0 : place_.rename_held(*file, next);
        if (error == 0) {
            if (!queue(next.file())) {
                return;
            }
        } else if (error != ENOENT) {
            ledger_.add_later(*file, clock::now() + look_period);
        }
    }
}

void service::take_posted()
{
    if (waiting_.empty() && has_more_ && ledger_.places() > 0 && clock::now() >= look_not_before_) {
        look_around();
    }
    while (ledger_.places() > 0 && !waiting_.empty() && clock::now() >= send_not_before_) {
        waiting_file const first = *waiting_.begin();
        waiting_.erase(waiting_.begin());
        if (first.looked_for) {
            offered_ = first;
        }
        offer(first.name);
    }
    if (waiting_.empty() && has_more_ && ledger_.places() > 0) {
        is_news_ = true;  // of all that was remembered none could be taken
    }
}

// Takes a posted file, unless it has to wait.
void service::offer(std::string const& name)
{
    struct stat status = {};
    look const  found  = ::lstat(place_.path_of(name).c_str(), &status) != 0 || !is_plain(status)
                             ? look::gone
                             : place_.look_at(name);
    if (found == look::in_use || found == look::not_now) {
        wait_for_user_of(name);
        return;
    }
    in_use_.erase(name);
    if (found == look::unreadable) {
        refuse(name, EACCES);
    } else if (found == look::ready) {
        held_name const held  = names_.make(name, stage::first);
        int const       error = place_.take(name, held);
        if (error == 0) {
            queue(held.file());
        } else if (error != ENOENT) {
            refuse(name, error);
        }
    }
}

void service::wait_for_user_of(std::string const& name)
{
    auto const         known = in_use_.find(name);
    milliseconds const pause = known == in_use_.end()
                                   ? first_use_pause
                                   : std::min(last_use_pause, 2 * known->second.pause);
    if (known != in_use_.end() || in_use_.size() < most_in_use) {
        in_use_[name] = {clock::now() + pause, pause};
    }
}

// Leaves a posted file where it is, until the next look.
void service::refuse(std::string const& name, int error)
{
    bool const forbidden = error == EACCES || error == EPERM;
    complain_once(error, place_.path_of(name) + " is not sent: " + std::strerror(error) +
                             (forbidden ? ": let this user read it, and take it out of the work "
                                          "directory"
                                        : "; it is tried again"));
}

// Once for each cause, as long as that lasts.
void service::complain_once(int error, std::string const& text)
{
    auto const now   = clock::now();
    auto const known = refusals_.find(error);
    if (known == refusals_.end() || now - known->second > refusal_pause) {
        host_.output().complain(text);
    }
    refusals_[error] = now;
}

// Queues a held file with the engine, after a look at it: somebody else could change it until it was
// taken. Returns false when there is no room for any just now.
bool service::queue(std::string const& file)
{
    switch (place_.look_at_held(file)) {
    case look::gone:
        return true;
    case look::not_now:
        return not_now(file);
    case look::in_use:
        ledger_.add_later(file, clock::now() + held_use_pause);
        return true;
    case look::unreadable:
    case look::no_message:
        set_aside(file);
        return true;
    case look::ready:
        break;
    }
    return give(file, held_name::of(file).reached == stage::second) || not_now(file);
}

// Gives the engine a file, unless there is no room for it.
bool service::give(std::string const& file, bool is_second_attempt)
{
    std::string const path = place_.held_path(file);
    if (!ledger_.give(file, is_second_attempt, clock::now())) {
        return false;
    }
    if (host_.queue(path)) {
        has_given_ = true;
        return true;
    }
    ledger_.take_back(file);
    if (!has_given_ && ++refused_ == most_refused) {
        throw failure(EX_SOFTWARE,
                      "the engine takes no message: there is no memory, or was none for its queue "
                      "when it started: start the service again");
    }
    return false;
}

bool service::not_now(std::string const& file)
{
    ledger_.add_in_front(file);
    send_not_before_ = clock::now() + try_pause;
    return false;
}

// Moves what was put in the place of a message while that was taken: nothing is deleted.
void service::set_aside(std::string const& file)
{
    std::string there;
    int const   error = place_.give_up(file, "", there);
    if (error == 0) {
        host_.output().complain(place_.undelivered_path(there) +
                                " is no message that can be sent: something was put in its place");
    } else {
        complain_once(error, place_.held_path(file) +
                                 " is no message that can be sent, and cannot "
                                 "be moved: " +
                                 std::strerror(error));
    }
}

// ---------------------------------------------------------------- results

// What becomes of a message when an attempt is over: one step after the other. Where one lacks memory,
// it is made again, and none before it.
struct service::settlement {
    enum class step {
        begin,
        move,
        remember,
        report
    };

    step                     next = step::begin;
    logged_attempt           made;
    std::string              file;
    held_name                name;
    bool                     was_here = false;
    std::string              later;   // its name, if it waits for another attempt
    std::vector<std::string> passed;  // of others, of which the engine has not told
};

int service::on_result(void* record, void* user)
{
    auto* const self = static_cast<service*>(user);
    settlement  work;
    for (;;) {
        try {
            self->settle(record, work);
            self->waits_ = false;
            return 0;
        } catch (std::bad_alloc const&) {
            self->wait_a_moment();
        } catch (std::exception const& error) {
            self->host_.output().complain(error.what());
            self->waits_ = false;
            return 0;
        }
    }
}

std::string service::held_file(std::string const& path) const
{
    std::string const start = place_.held_path("");
    return path.compare(0, start.size(), start) == 0 ? path.substr(start.size()) : "";
}

void service::settle(void* record, settlement& work)
{
    using step = settlement::step;
    if (work.next == step::begin) {
        if (!begin(record, work)) {
            return;
        }
        work.next = step::move;
    }
    if (work.next == step::move) {
        if (work.made.made.code == eml_send_ok) {
            remove_sent(work.file);
        } else if (work.was_here && work.name.reached == stage::second) {
            give_up(work);
        } else if (work.was_here) {
            put_off(work, work.name.at(stage::tried));
        }
        work.next = step::remember;
    }
    if (work.next == step::remember) {
        if (!work.later.empty()) {
            ledger_.add_later(work.later, clock::now() + retry_pause());
            host_.wake();
        }
        work.passed = ledger_.settle(work.file, clock::now());
        work.next   = step::report;
    }
    for (; !work.passed.empty(); work.passed.pop_back()) {
        take_up(work.passed.back());
    }
    wake_for_places();
    if (work.was_here) {
        host_.output().report(line_of(work.made, host_.options().json));
    }
}

// Reads what the engine tells, and the file. Returns false when there is nothing to do.
bool service::begin(void* record, settlement& work)
{
    work.made = logged(record);
    work.file = held_file(work.made.made.file);
    if (!ledger_.is_given(work.file)) {
        ledger_.settle(work.file, clock::now());
        return false;  // the engine's second attempt at what has another name by now
    }
    work.name = held_name::of(work.file);
    work.was_here =
        work.made.made.code == eml_send_ok || place_.look_at_held(work.file) != look::gone;
    work.made.name                = work.name.posted;
    work.made.made.file           = work.name.posted;
    work.made.made.attempt_number = work.name.reached == stage::second ? 2 : 1;
    if (work.was_here) {
        work.made.head = read_head(place_.held_path(work.file));
    }
    return true;
}

// The service's thread sleeps until it can give many.
void service::wake_for_places()
{
    if (ledger_.has_next() || (wants_places_ && ledger_.is_low()) ||
        (has_due_ && ledger_.is_low_of_second_attempts())) {
        wants_places_ = false;
        has_due_      = false;
        host_.wake();
    }
}

void service::remove_sent(std::string const& file)
{
    int const error = place_.remove_held(file);
    if (error != 0 && error != ENOENT) {
        host_.output().complain(place_.held_path(file) + " was sent, but cannot be deleted: " +
                                std::strerror(error) + ": it is sent again by the next service");
        ledger_.keep_over(file);
    }
}

// Renames a file after its first attempt, to wait for the next.
void service::put_off(settlement& work, held_name const& tried)
{
    std::string later = tried.file();
    place_.keep_reason(tried, reason_until(work.made, std::time(nullptr) + retry_pause().count()));
    if (rename(work.file, tried)) {
        work.later = std::move(later);
    }
}

// After the second. What cannot be moved to the undelivered waits for one more attempt.
void service::give_up(settlement& work)
{
    std::string const reason = reason_of(work.made);
    int const         error  = place_.give_up(work.file, reason, work.made.undelivered);
    if (error == 0 || error == ENOENT) {
        return;
    }
    host_.output().complain(work.name.posted + " failed twice and cannot be moved to " +
                            place_.undelivered_path() + ": " + std::strerror(error) +
                            ": it is tried once more");
    // Under another number: the engine knows the one of this second attempt.
    put_off(work, names_.make(work.name.posted, stage::tried));
}

// Renames a held file before the engine goes on, which could delete it by its name. Returns whether
// it has the new name.
bool service::rename(std::string const& file, held_name const& as)
{
    complaint trouble(host_.output());
    int       error = place_.rename_held(file, as);
    while (may_pass(error)) {
        trouble.begin(place_.held_path(file) +
                      " failed and cannot be renamed: " + std::strerror(error) +
                      ": nothing is sent until that works, which is tried every second");
        wait_a_moment();
        error = place_.rename_held(file, as);
    }
    if (error != 0 && error != ENOENT) {
        host_.output().complain(place_.held_path(file) +
                                " failed and cannot be renamed: " + std::strerror(error));
    }
    return error == 0;
}

// Does not return when the service is to end.
void service::wait_a_moment()
{
    std::unique_lock<std::mutex> hold(guard_);
    waits_ = true;
    stopping_changed_.wait_for(hold, try_pause, [&] { return stopping_; });
    while (stopping_) {
        is_stuck_ = true;  // until the process ends
        host_.wake();
        stopping_changed_.wait_for(hold, try_pause);
    }
}

int log_bare(void* record, void* user)
{
    auto& host = *static_cast<service_host*>(user);
    try {
        logged_attempt    made  = logged(record);
        std::string const start = host.options().workdir + "/";
        std::string const path  = made.made.file;
        made.head               = read_head(path);
        made.name = path.compare(0, start.size(), start) == 0 ? path.substr(start.size()) : path;
        made.made.file = made.name;
        host.output().report(line_of(made, host.options().json));
    } catch (std::exception const& error) {
        host.output().complain(error.what());
    }
    return 0;
}

}  // namespace

int serve(service_options const& options)
{
    return service(options).run();
}

int serve_bare(service_options const& options, std::string const& symbol)
{
    service_lock const lock(spool(options.workdir), true);
    service_host       bare(options);
    bare.start(options.workdir, symbol, log_bare, &bare);
    bare.manager().ready("sending what is posted to " + options.workdir);
    while (bare.told().ends() == 0) {
        bare.wait(time_point::max());
        bare.told().take_hangup();
    }
    return bare.stop([] { return false; });
}

}  // namespace zelieml::program
