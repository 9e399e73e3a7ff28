// service.cpp - the service that loses no mail
//
// Threads: the service's, which looks, announces and ends; the engine's, which reports; and one
// that stops the engine. The ledger and the files that could not be deleted are shared.

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
#include <limits>
#include <map>
#include <mutex>
#include <optional>
#include <poll.h>
#include <random>
#include <set>
#include <sys/stat.h>
#include <sysexits.h>
#include <system_error>
#include <thread>
#include <tuple>
#include <unistd.h>
#include <vector>

#include "tools/zelieml/attempt_log.h"
#include "tools/zelieml/end_signals.h"
#include "tools/zelieml/failure.h"
#include "tools/zelieml/file_time.h"
#include "tools/zelieml/ledger.h"
#include "tools/zelieml/service_manager.h"
#include "tools/zelieml/spool.h"
#include "tools/zelieml/wake_pipe.h"
#include "tools/zelieml/watch.h"
#include "zelieml_ext.h"

namespace zelieml::program
{

namespace
{

using clock      = std::chrono::steady_clock;
using time_point = clock::time_point;
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr auto look_period      = seconds(30);
constexpr auto look_often       = seconds(1);  // where nothing tells of changes
constexpr auto first_use_pause  = milliseconds(4);
constexpr auto last_use_pause   = milliseconds(1000);
constexpr auto move_pause       = seconds(1);
constexpr int  look_rest        = 5;     // times what a look took, before the next one
constexpr auto most_waiting     = 4096;  // files that are remembered; the others are looked for
constexpr auto most_in_use      = 4096;
constexpr auto longest_path     = 399;  // that the engine takes
constexpr auto longest_work_dir = 255;

// What both kinds of service have: signals, the manager, and an engine that they stop in time.
class host
{
public:
    explicit host(service_options const& options) : options_(options), told_(wake_)
    {
        if (manager_.watchdog()) {
            alive_at_ = clock::now();
        }
    }
    host(host const&)            = delete;
    host& operator=(host const&) = delete;

    // start - the engine, with the callback
    void start(std::string const& directory, std::string const& symbol,
               int (*proc)(void* result, void* user), void*     user)
    {
        if (eml_start_with_stocksymbol(directory.c_str(), symbol.c_str(), &engine_) != 0) {
            throw failure(EX_OSERR, "the engine for " + options_.workdir +
                                        " cannot be started: it needs memory, a thread, and a "
                                        "place for notifications (docs/ENGINE.md)");
        }
        if (eml_set_callback(engine_, proc, user) != 0) {
            eml_stop(engine_);
            throw std::bad_alloc();
        }
    }

    // wait - until it is woken, the time has come, or this descriptor can be read
    void wait(time_point until, int fd = -1)
    {
        if (alive_at_) {
            until = std::min(until, *alive_at_);
        }
        pollfd entries[2] = {{wake_.fd(), POLLIN, 0}, {fd, POLLIN, 0}};
        ::poll(entries, 2, milliseconds_to(until));
        wake_.clear();
        if (alive_at_ && clock::now() >= *alive_at_) {
            manager_.alive();
            alive_at_ = clock::now() + *manager_.watchdog();
        }
    }

    // stop - the engine
    //
    // is_stuck  whether its callback waits for something that can take any time
    //
    // Returns EX_OK. Ends the process when that takes too long.
    int stop(std::function<bool()> const& is_stuck)
    {
        manager_.stopping("waiting for the attempt in progress");
        int const         told     = told_.ends();
        auto const        deadline = clock::now() + options_.stop_limit;
        std::atomic<bool> stopped{false};
        auto const        stop_engine = [&] {
            eml_stop(engine_);
            stopped = true;
            wake_.wake();
        };
        std::thread stopping;
        try {
            stopping = std::thread(stop_engine);
        } catch (std::system_error const&) {
            stop_engine();  // without a thread, and without a limit
            return EX_OK;
        }
        while (!stopped && clock::now() < deadline && told_.ends() <= told && !is_stuck()) {
            wait(deadline);
        }
        if (!stopped) {
            complain("the attempt in progress has not ended in time (--stop-timeout " +
                     std::to_string(options_.stop_limit.count()) + "): its mail may be sent again");
            ::_exit(EX_TEMPFAIL);
        }
        stopping.join();
        return EX_OK;
    }

    service_options const& options() const { return options_; }
    end_signals const&     told() const { return told_; }
    service_manager&       manager() { return manager_; }
    void                   wake() const { wake_.wake(); }

private:
    static int milliseconds_to(time_point until)
    {
        if (until == time_point::max()) {
            return -1;
        }
        auto const left = std::chrono::ceil<milliseconds>(until - clock::now()).count();
        return static_cast<int>(
            std::clamp<decltype(left)>(left, 0, std::numeric_limits<int>::max()));
    }

    service_options const     options_;
    wake_pipe const           wake_;
    end_signals const         told_;
    service_manager           manager_;
    std::optional<time_point> alive_at_;
    void*                     engine_ = nullptr;
};

// A name that nobody else has or can guess.
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

bool same_bytes(struct stat const& a, struct stat const& b)
{
    timespec const a_time = modified(a);
    timespec const b_time = modified(b);
    return std::tie(a.st_dev, a.st_ino, a.st_size, a_time.tv_sec, a_time.tv_nsec) ==
           std::tie(b.st_dev, b.st_ino, b.st_size, b_time.tv_sec, b_time.tv_nsec);
}

bool is_plain(struct stat const& status)
{
    return S_ISREG(status.st_mode) && status.st_nlink == 1;
}

class service
{
public:
    explicit service(service_options const& options)
        : host_(options), place_(options.workdir), log_(options.json)
    {
    }

    int run();

private:
    // A file that waits to be announced, the oldest first.
    struct waiting_file {
        timespec    time;
        std::string name;

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

    // A file that is over and cannot be deleted or moved.
    struct leftover {
        spooled     file;
        bool        was_sent;
        std::string reason;  // unless it was sent
    };

    // The service's thread.
    void       work();
    void       look();
    bool       find_place();
    bool       repair_place();
    void       watch_place();
    void       hear();
    void       add(spooled const& file);
    void       add(std::string const& name);
    void       look_again_at_used();
    void       announce_waiting();
    void       offer(std::string const& name);
    void       announce(std::vector<std::string> const& names);
    void       clear_leftovers();
    bool       is_leftover(spooled const& file);
    time_point next_time() const;

    // The engine's thread.
    static int  on_result(void* record, void* user);
    void        settle(void* record);
    void        rescue(void* record);
    void        rest();
    void        remove_sent(std::string const& name, double attempt_s);
    void        keep_reason(logged_attempt const& logged);
    std::string give_up(std::string const& name, std::string const& reason);
    void        insist(std::string const& thing, std::function<int()> const& action);
    void        keep_leftover(leftover const& left);
    std::string name_of(std::string const& path) const;
    void        wake_if_wanted();

    // Once each time that it begins to hold.
    class complaint
    {
    public:
        void begin(std::string const& text)
        {
            if (!holds_) {
                holds_ = true;
                complain(text);
            }
        }
        // Whether it held.
        bool end() { return std::exchange(holds_, false); }

    private:
        bool holds_ = false;
    };

    host                        host_;
    spool const                 place_;
    attempt_log                 log_;
    ledger                      ledger_;
    std::string const           symbol_ = private_symbol();
    std::optional<service_lock> lock_;

    watch                      watch_;
    struct stat                watched_ = {};
    std::set<waiting_file>     waiting_;
    bool                       has_more_ = false;  // in the directory than waiting_ holds
    std::map<std::string, use> in_use_;
    time_point                 look_at_;          // at the latest
    time_point                 look_not_before_;  // for news
    bool                       is_news_ = false;
    complaint                  gone_;
    complaint                  broken_;
    complaint                  unreadable_;
    complaint                  unwatched_;
    complaint                  too_long_;

    std::mutex                      guard_;
    std::condition_variable         stopping_changed_;
    bool                            stopping_ = false;  // guarded
    std::map<std::string, leftover> leftovers_;         // guarded
    std::atomic<bool>               wants_places_{false};
    std::atomic<bool>               is_stuck_{false};
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
    host_.start(place_.engine_path(), symbol_, on_result, this);

    std::exception_ptr thrown;
    try {
        work();
    } catch (...) {
        thrown = std::current_exception();
    }
    {
        std::lock_guard<std::mutex> const hold(guard_);
        stopping_ = true;
        stopping_changed_.notify_all();
    }
    int const status = host_.stop([this] { return is_stuck_.load(); });
    if (thrown) {
        std::rethrow_exception(thrown);
    }
    return status;
}

void service::work()
{
    look();
    host_.manager().ready("sending what comes to " + place_.workdir());
    while (host_.told().ends() == 0) {
        announce_waiting();
        host_.wait(next_time(), watch_.fd());
        if (watch_) {
            hear();
        }
        look_again_at_used();
        announce(ledger_.passed_over(clock::now()));
        announce(ledger_.overdue(clock::now()));
        auto const now = clock::now();
        if (host_.told().take_hangup() || now >= look_at_ ||
            (is_news_ && now >= look_not_before_)) {
            look();
        }
    }
}

time_point service::next_time() const
{
    time_point next = is_news_ ? std::min(look_at_, look_not_before_) : look_at_;
    for (auto const& [name, known] : in_use_) {
        next = std::min(next, known.again);
    }
    return std::min(next, ledger_.overdue_at().value_or(time_point::max()));
}

// Looks at everything.
void service::look()
{
    auto const begin = clock::now();
    is_news_         = false;
    bool const found = find_place();
    look_at_         = begin + (found && watch_ ? seconds(look_period) : seconds(look_often));
    if (!found) {
        return;
    }
    waiting_.clear();
    has_more_ = false;
    try {
        place_.each([&](spooled const& file) { add(file); });
        unreadable_.end();
    } catch (failure const& error) {
        unreadable_.begin(error.what());
        look_at_ = begin + look_often;
    }
    clear_leftovers();
    ledger_.forget_stuck(begin);
    auto const end   = clock::now();
    look_not_before_ = end + look_rest * (end - begin);
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
        complain("the work directory " + place_.workdir() + " is back");
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
            lock_.emplace(place_);
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

void service::hear()
{
    watch::news const news = watch_.read();
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

void service::add(std::string const& name)
{
    spooled file = {name, {}};
    if (is_message_name(name) && ::lstat(place_.path_of(name).c_str(), &file.status) == 0) {
        add(file);
    }
}

void service::add(spooled const& file)
{
    if (!is_plain(file.status) || ledger_.has(file.name) || is_leftover(file)) {
        return;
    }
    auto const known = in_use_.find(file.name);
    if (known != in_use_.end() && known->second.again != time_point::max()) {
        return;  // until then
    }
    if (place_.path_of(file.name).size() > longest_path) {
        too_long_.begin(place_.path_of(file.name) + " is not sent, nor any other of more than " +
                        std::to_string(longest_path) + " bytes: give it a shorter name");
        return;
    }
    waiting_file const waiting = {modified(file.status), file.name};
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
        spooled file = {known->first, {}};
        if (::lstat(place_.path_of(file.name).c_str(), &file.status) != 0 ||
            !is_plain(file.status)) {
            in_use_.erase(known);
            continue;
        }
        known->second.again = time_point::max();  // until it is offered
        add(file);
    }
}

void service::announce_waiting()
{
    wants_places_ = false;
    if (waiting_.empty() && has_more_ && ledger_.places() > 0) {
        look();
    }
    if (!waiting_.empty() && !repair_place()) {
        look_at_ = std::min(look_at_, clock::now() + look_often);
        return;
    }
    while (ledger_.places() > 0 && !waiting_.empty()) {
        std::string const name = waiting_.begin()->name;
        waiting_.erase(waiting_.begin());
        offer(name);
    }
    if (waiting_.empty() && has_more_ && ledger_.places() > 0) {
        is_news_ = true;  // all that was remembered was in use
    }
    wants_places_ = !waiting_.empty() || has_more_;
}

// Announces a file, unless it has to wait.
void service::offer(std::string const& name)
{
    spooled file = {name, {}};
    if (::lstat(place_.path_of(name).c_str(), &file.status) != 0 || !is_plain(file.status) ||
        ledger_.has(name) || is_leftover(file)) {
        in_use_.erase(name);
        return;
    }
    if (place_.is_in_use(file)) {
        auto const         known = in_use_.find(name);
        milliseconds const pause = known == in_use_.end()
                                       ? first_use_pause
                                       : std::min(last_use_pause, 2 * known->second.pause);
        if (known != in_use_.end() || in_use_.size() < most_in_use) {
            in_use_[name] = {clock::now() + pause, pause};
        }
        return;
    }
    in_use_.erase(name);
    ledger_.add(file, clock::now());
    announce({name});
}

// Tells the engine. One that it has in its queue already is not queued again.
void service::announce(std::vector<std::string> const& names)
{
    for (std::string const& name : names) {
        eml_post_message_file_with_stocksymbol(place_.path_of(name).c_str(), symbol_.c_str());
    }
}

bool service::is_leftover(spooled const& file)
{
    std::lock_guard<std::mutex> const hold(guard_);
    auto const                        left = leftovers_.find(file.name);
    return left != leftovers_.end() && same_bytes(left->second.file.status, file.status);
}

// Tries once more to delete what was sent, and to move what was given up.
void service::clear_leftovers()
{
    std::lock_guard<std::mutex> const hold(guard_);
    for (auto each = leftovers_.begin(); each != leftovers_.end();) {
        leftover const& left  = each->second;
        struct stat     now   = {};
        int             error = 0;
        bool            over  = ::lstat(place_.path_of(each->first).c_str(), &now) != 0 ||
                    !same_bytes(now, left.file.status);
        if (!over && left.was_sent) {
            over = ::unlink(place_.path_of(each->first).c_str()) == 0;
        } else if (!over) {
            over = !place_.give_up(each->first, left.reason, error).empty();
        }
        each = over ? leftovers_.erase(each) : std::next(each);
    }
}

int service::on_result(void* record, void* user)
{
    auto* const self = static_cast<service*>(user);
    try {
        self->settle(record);
    } catch (std::exception const& error) {
        std::fprintf(stderr, "zelieml: %s\n", error.what());
        self->rescue(record);
    }
    return 0;
}

// Settles an attempt that could not be reported, for lack of memory: as soon as there is some.
void service::rescue(void* record)
{
    for (bool done = false; !done;) {
        try {
            attempt const     made = attempt_of(record);
            bool const        sent = made.code == eml_send_ok;
            std::string const name = name_of(made.file);
            if (!sent && made.attempt_number > 1) {
                give_up(name, "");
            }
            ledger_.settle(name, sent || made.attempt_number > 1, clock::now());
            done = true;
        } catch (std::exception const&) {
            rest();
        }
    }
}

std::string service::name_of(std::string const& path) const
{
    std::string const start = place_.workdir() + "/";
    return path.compare(0, start.size(), start) == 0 ? path.substr(start.size()) : "";
}

// What the engine deletes when this has returned is of no use any more.
void service::settle(void* record)
{
    logged_attempt    logged = {attempt_of(record), "", {}, ""};
    attempt const&    made   = logged.made;
    bool const        sent   = made.code == eml_send_ok;
    bool const        last   = sent || made.attempt_number > 1;
    std::string const path   = made.file;
    logged.name              = name_of(path);

    struct stat status = {};
    if (!sent && ::lstat(path.c_str(), &status) != 0) {
        ledger_.settle(logged.name, last, clock::now());  // deleted by somebody else
        wake_if_wanted();
        return;
    }
    logged.head      = read_head(path);
    logged.made.file = logged.name;
    if (sent) {
        place_.forget_reason(logged.name);
        remove_sent(logged.name, made.seconds);
    } else if (last) {
        logged.undelivered = give_up(logged.name, json_text(to_json(logged)));
    } else {
        keep_reason(logged);
    }
    ledger_.settle(logged.name, last, clock::now());
    log_.print(logged);
    wake_if_wanted();
}

// Until the second attempt, which the engine makes half an hour after the announcement or later.
void service::keep_reason(logged_attempt const& logged)
{
    json       kept  = to_json(logged);
    auto const since = ledger_.announced(logged.name);
    if (since) {
        auto const ago    = std::chrono::duration_cast<seconds>(clock::now() - *since);
        kept["announced"] = std::time(nullptr) - ago.count();
    }
    place_.keep_reason(logged.name, json_text(kept));
}

// Deletes a file whose mail was sent; the engine would do so, and not tell when it cannot. If
// another message has taken its name meanwhile, that gets another one.
void service::remove_sent(std::string const& name, double attempt_s)
{
    spooled now = {name, {}};
    if (::lstat(place_.path_of(name).c_str(), &now.status) != 0) {
        return;
    }
    std::optional<spooled> const before  = ledger_.file(name);
    constexpr double             doubt_s = 1;  // the times are not exact: rather send it twice
    if (before && !same_bytes(before->status, now.status) &&
        static_cast<double>(changed(now.status).tv_sec) >=
            static_cast<double>(std::time(nullptr)) - attempt_s - doubt_s) {
        insist(name + " was replaced while it was sent, and cannot be renamed", [&] {
            return !place_.put_aside(name).empty() ? 0 : errno != 0 ? errno : EIO;
        });
        return;
    }
    if (::unlink(place_.path_of(name).c_str()) != 0 && errno != ENOENT) {
        complain(place_.path_of(name) + " was sent, but cannot be deleted: " +
                 std::strerror(errno) + ": let this user write to the work directory");
        keep_leftover({now, true, ""});
    }
}

// Moves a file that failed twice. Returns the name that it has then, or nothing.
std::string service::give_up(std::string const& name, std::string const& reason)
{
    std::string there;
    spooled     now = {name, {}};
    ::lstat(place_.path_of(name).c_str(), &now.status);
    insist(name + " failed twice and cannot be moved to " + place_.undelivered_path(), [&] {
        int error = 0;
        there     = place_.give_up(name, reason, error);
        if ((error == EACCES || error == EPERM) && !place_.may_delete(now)) {
            complain(place_.path_of(name) + " failed twice and cannot be moved to " +
                     place_.undelivered_path() + ": " + std::strerror(error) +
                     ": let this user write to the work directory");
            keep_leftover({now, false, reason});
            return 0;  // nor can the engine delete it
        }
        return error == ENOENT ? 0 : error;
    });
    return there;
}

// Does it again until there is no error: the engine would delete the file.
void service::insist(std::string const& thing, std::function<int()> const& action)
{
    complaint trouble;
    for (int error = action(); error != 0; error = action()) {
        trouble.begin(thing + ": " + std::strerror(error) +
                      ": nothing is sent until that works, which is tried every second");
        rest();
    }
}

// A while between two tries. Does not return when the service is to end: the engine would delete
// the file.
void service::rest()
{
    std::unique_lock<std::mutex> hold(guard_);
    stopping_changed_.wait_for(hold, move_pause, [&] { return stopping_; });
    while (stopping_) {
        is_stuck_ = true;  // until the process ends
        host_.wake();
        stopping_changed_.wait_for(hold, move_pause);
    }
}

void service::keep_leftover(leftover const& left)
{
    std::lock_guard<std::mutex> const hold(guard_);
    leftovers_[left.file.name] = left;
}

// The service's thread sleeps until it can announce many.
void service::wake_if_wanted()
{
    if ((wants_places_ && ledger_.is_low()) || ledger_.has_passed_over()) {
        wants_places_ = false;
        host_.wake();
    }
}

// The user of the callback.
struct bare_log {
    attempt_log log;
    std::string directory;
};

int log_bare(void* record, void* user)
{
    try {
        auto&             to     = *static_cast<bare_log*>(user);
        logged_attempt    logged = {attempt_of(record), "", {}, ""};
        std::string const start  = to.directory + "/";
        std::string const path   = logged.made.file;
        logged.head              = read_head(path);
        logged.name = path.compare(0, start.size(), start) == 0 ? path.substr(start.size()) : path;
        logged.made.file = logged.name;
        to.log.print(logged);
    } catch (std::exception const& error) {
        complain(error.what());
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
    service_lock::expect_none(spool(options.workdir));
    host     bare(options);
    bare_log log = {attempt_log(options.json), options.workdir};
    bare.start(options.workdir, symbol, log_bare, &log);
    bare.manager().ready("sending what is posted to " + options.workdir);
    while (bare.told().ends() == 0) {
        bare.wait(time_point::max());
        bare.told().take_hangup();
    }
    return bare.stop([] { return false; });
}

}  // namespace zelieml::program
