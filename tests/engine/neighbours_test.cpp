// neighbours_test.cpp - what other users of the machine do to an engine, and what it gets them
//
// A table: who attacks, whose engine, the mode of the work directory, with or without the place for
// all users, and the attack, which is a row. Every cell is a whole engine, from start to stop:
//
// - files of root, of the engine's user and of somebody else stay as they are,
// - two mails of the engine's user arrive, one announced, one left to the half-hourly look, and
//   besides them nothing but what the row names,
// - a setting can be written,
// - posting takes its half second at most, starting and stopping end in time,
// - descriptors, threads and memory are as before.
//
// The attacks are in neighbour_attacks.cpp.

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <mutex>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

#include "tests/engine/neighbour_attacks.h"
#include "tests/engine/neighbours.h"
#include "tests/support/case_name.h"
#include "tests/support/fake_clock.h"
#include "tests/support/fake_pause.h"
#include "tests/support/files.h"
#include "tests/support/notification_room.h"
#include "tests/support/scripted_client.h"
#include "tests/support/skip.h"
#include "tests/support/wait_until.h"
#include "tests/support/workplace.h"

namespace zelieml::test
{

namespace
{

constexpr uid_t somebody_else = 65532;
constexpr gid_t shared_group  = 65531;

constexpr int  look_s         = 1800;  // from look to look
constexpr int  retry_s        = 2400;  // until the second attempt, at most
constexpr int  lock_counts_s  = 3600;
constexpr int  enough_rounds  = 200;
constexpr auto a_post         = std::chrono::milliseconds(500);
constexpr auto slow_machine   = std::chrono::milliseconds(2500);
constexpr auto start_or_stop  = std::chrono::seconds(60);
constexpr int  more_memory_mb = 64;

std::string name_of(uid_t user)
{
    return user == root_id ? "root" : std::to_string(user);
}

std::string name_of(scene const& where)
{
    char mode[8];
    std::snprintf(mode, sizeof mode, "%o", static_cast<unsigned>(where.mode));
    return name_of(where.attacker) + "_against_" + name_of(where.victim) + "_in_" + mode + "_" +
           (where.shared ? "shared" : "own");
}

struct cell : named_case {
    cell(attack its_attack, scene const& its_scene)
        : named_case(its_attack.name), what(std::move(its_attack)), where(its_scene)
    {
    }

    attack what;
    scene  where;
};

bool is_slow()
{
    return has_sanitizer("address") || has_sanitizer("thread");
}

// Every attack in every scene in which it makes sense. Where tests are slow, one attacker does, in
// every third.
std::vector<cell> cells()
{
    using pair              = std::pair<uid_t, uid_t>;  // attacker and victim
    std::vector<pair> pairs = {{65534, root_id}};
    if (has_backend("linux")) {  // the fake of Apple's frameworks serves one user
        pairs.emplace_back(65534, 65533);
    }
    if (has_backend("linux") && !is_slow()) {
        pairs.insert(pairs.end(), {{65533, root_id}, {65533, 65534}});
    }
    std::vector<cell> all;
    for (attack const& what : attacks()) {
        std::size_t scenes = 0;
        for (auto const& [attacker, victim] : pairs) {
            for (mode_t const mode : {01777U, 01770U}) {
                for (bool const shared : {true, false}) {
                    scene const where = {attacker, victim, mode, shared};
                    if (std::all_of(what.needs.begin(), what.needs.end(),
                                    [&](need const& each) { return each.holds(where); }) &&
                        (!is_slow() || scenes++ % 3 == 0)) {
                        all.emplace_back(what, where);
                    }
                }
            }
        }
    }
    return all;
}

// What a file is, to be compared: all that somebody could change.
std::string state_of(std::string const& path)
{
    struct stat status = {};
    if (::lstat(path.c_str(), &status) != 0) {
        return path + ": none";
    }
    std::ostringstream text;
    text << path << ": " << status.st_uid << ":" << status.st_gid << " " << std::oct
         << status.st_mode << " " << (S_ISREG(status.st_mode) ? read_file(path) : "");
    return text.str();
}

// A number of kilobytes from the process's status, in megabytes.
int status_mb(std::string const& label)
{
    std::ifstream in("/proc/self/status");
    for (std::string line; std::getline(in, line);) {
        if (line.rfind(label + ":", 0) == 0) {
            return std::stoi(line.substr(label.size() + 1)) / 1024;
        }
    }
    return 0;
}

// Returns false where the system cannot.
bool begin_memory_peak()
{
    return static_cast<bool>(std::ofstream("/proc/self/clear_refs") << 5 << std::flush);
}

// Ends a neighbour who holds up the engine, which fails the test.
class patience
{
public:
    explicit patience(neighbour const& he)
        : thread_([this, &he] {
              std::unique_lock<std::mutex> hold(guard_);
              if (!changed_.wait_for(hold, std::chrono::minutes(5), [this] { return over_; })) {
                  ADD_FAILURE() << "the neighbour holds something up";
                  he.kill();
              }
          })
    {
    }
    ~patience()
    {
        {
            std::lock_guard<std::mutex> const hold(guard_);
            over_ = true;
        }
        changed_.notify_all();
        thread_.join();
    }
    patience(patience const&)            = delete;
    patience& operator=(patience const&) = delete;

private:
    std::mutex              guard_;
    std::condition_variable changed_;
    bool                    over_ = false;
    std::thread             thread_;
};

// Very many small files are made quickly in memory, where the system has a place for that.
class temporary_place
{
public:
    explicit temporary_place(bool in_memory) : in_memory_(in_memory && !::getenv("TMPDIR"))
    {
        if (in_memory_ && ::access("/dev/shm", W_OK) == 0) {
            ::setenv("TMPDIR", "/dev/shm", 1);
        }
    }
    ~temporary_place()
    {
        if (in_memory_) {
            ::unsetenv("TMPDIR");
        }
    }
    temporary_place(temporary_place const&)            = delete;
    temporary_place& operator=(temporary_place const&) = delete;

private:
    bool in_memory_;
};

class Neighbours : public ::testing::TestWithParam<cell>
{
protected:
    enum : std::size_t {
        step_before,
        step_during,
        step_announced,
        step_repeated
    };

    Neighbours()
        : what_(GetParam().what), where_(GetParam().where), place_(what_.crowds),
          work_(server_.smtp_port()), groups_{shared_group}
    {
    }

    void SetUp() override
    {
        SKIP_UNLESS_ROOT("other users act here");
        SKIP_UNLESS(what_.possible == nullptr || what_.possible(), what_.not_possible);
        ::umask(022);
        set_wall_clock(std::time(nullptr), 1);
        lay_out();
        have_server_ready();
        bool const given = what_.gift == nullptr || what_.gift(target_);
        SKIP_UNLESS(given || what_.not_given == nullptr, what_.not_given);
        ASSERT_TRUE(given);
    }

    // The server makes threads for those who come at a time, and keeps them.
    void have_server_ready() const
    {
        int const                       before = open_descriptors();
        std::vector<mailserver::stream> clients;
        for (int i = 0; i < 8; ++i) {
            clients.push_back(connect_to(server_.smtp_port()));
            ASSERT_EQ(hear_line(clients.back()).substr(0, 3), "220");
        }
        clients.clear();
        EXPECT_TRUE(wait_until([&] { return open_descriptors() == before; }));
    }

    void give(std::string const& path, uid_t user, mode_t mode)
    {
        ASSERT_EQ(::lchown(path.c_str(), user, user), 0) << path;
        ASSERT_EQ(::chmod(path.c_str(), mode), 0) << path;
    }

    void put(std::string const& path, uid_t user, mode_t mode)
    {
        write_file(path, private_text);
        give(path, user, mode);
        canaries_.push_back(path);
    }

    void lay_out()
    {
        if (where_.shared) {
            room_.share();
        }
        std::string const& outside = work_.outside();
        target_                    = {where_,
                                      work_.path(),
                                      room_.shared(),
                                      room_.root() + "/tmp",
                                      room_.own(where_.victim),
                                      room_.own(where_.attacker),
                                      outside + "/secret",
                                      outside + "/roots",
                                      outside + "/open",
                                      outside + "/folder",
                                      outside + "/elsewhere"};
        give(outside, root_id, 0755);
        ASSERT_EQ(::mkdir(target_.folder.c_str(), 0755), 0);
        give(target_.folder, where_.victim, 0755);
        put(target_.secret, where_.victim, 0600);
        put(target_.roots, root_id, 0600);
        put(target_.open, where_.victim, 0666);
        put(target_.folder + "/kept.sme", where_.victim, 0644);
        put(outside + "/others", somebody_else, 0644);
        put(target_.file("kept"), somebody_else, 0644);
        canaries_.push_back(target_.elsewhere);
        canaries_.push_back(target_.folder);
        give(target_.file(settings_name), where_.victim, 0644);
        ASSERT_EQ(::chown(work_.path(), where_.victim, shared_group), 0);
        ASSERT_EQ(::chmod(work_.path(), where_.mode), 0);
    }

    std::vector<std::string> states() const
    {
        std::vector<std::string> all;
        std::transform(canaries_.begin(), canaries_.end(), std::back_inserter(all), state_of);
        return all;
    }

    neighbour::step step(deed what) const
    {
        return [this, what] { return what == nullptr || what(target_); };
    }

    bool has(std::string const& subject) const
    {
        strings const subjects = subjects_of(server_.mails());
        return std::find(subjects.begin(), subjects.end(), subject) != subjects.end();
    }

    void post(std::string const& symbol, std::string const& subject) const
    {
        int const ms = ms_of([&] { EXPECT_EQ(post_mail(work_.path(), symbol, subject), 0); });
        EXPECT_LT(std::chrono::milliseconds(ms), a_post + slow_machine) << "post " << subject;
    }

    // Lets the engine work until a mail that was announced has come: less than until the next look.
    bool is_heard(std::string const& subject) const
    {
        int tries = 0;
        return wait_until([&] {
                   if (tries++ % 8 == 0) {
                       pass_pauses(1);
                   }
                   return has(subject) || tries / 8 > look_s / 2;
               }) &&
               has(subject);
    }

    void free_the_place() const
    {
        acting_user const administrator(root_id);
        EXPECT_EQ(std::remove(target_.own.c_str()), 0);
    }

    void restore_settings() const
    {
        acting_user const administrator(root_id);
        std::filesystem::remove_all(target_.file(settings_name));
        write_file(target_.file(settings_name),
                   settings_for(server_.smtp_port()) + "subject_use_encoding = no\r\n");
    }

    void set_a_setting() const
    {
        std::string const path   = target_.file(settings_name);
        std::string const old    = state_of(path);
        int const         status = eml_cf_set_string("hello", "neighbours", path.c_str());
        if (!what_.may(no_new_setting)) {
            EXPECT_EQ(status, 0);
        }
        EXPECT_EQ(state_of(path), old + (status == 0 ? "hello = neighbours\r\n" : ""));
    }

    static void expect_as_before(int descriptors, int threads)
    {
        EXPECT_TRUE(wait_until([&] { return open_descriptors() == descriptors; }))
            << open_descriptors() << " and not " << descriptors << " descriptors";
        // The fake of Apple's frameworks keeps a thread.
        EXPECT_TRUE(!has_backend("linux") || wait_until([&] {
            return running_threads() == threads;
        })) << running_threads()
            << " and not " << threads << " threads";
    }

    // The whole life of an engine among neighbours.
    void live(neighbour& he)
    {
        void*       eml = nullptr;
        result_list results;
        if (what_.repeated != nullptr) {
            he.begin(step_repeated);
        }
        acting_user const self(where_.victim, groups_);
        EXPECT_LT(ms_of([&] {
                      int status = eml_start_with_stocksymbol(work_.path(), "symbol", &eml);
                      if (what_.may(no_start) && where_.victim != root_id) {
                          EXPECT_EQ(status, -1);
                          post("symbol", "nobody hears");  // deleted by the next start
                          free_the_place();
                          status = eml_start_with_stocksymbol(work_.path(), "symbol", &eml);
                      }
                      ASSERT_EQ(status, 0);
                  }),
                  ms(start_or_stop));
        ASSERT_NE(eml, nullptr);
        EXPECT_EQ(eml_set_callback(eml, result_list::note, &results), 0);
        int const descriptors = open_descriptors();
        int const threads     = running_threads();

        if (what_.repeated == nullptr) {
            he.take(step_during);
            if (what_.during == what_.before && has_backend("linux")) {
                he.take(step_announced);
            }
        }
        if (what_.may(failing_posts)) {
            post_mail(work_.path(), "another", "nobody hears");
            pass_pauses(seconds_taken);
        }
        post("another", "found");
        pass_pauses(1);
        EXPECT_TRUE(wait_until([&] {
            pass_pauses(1);
            return what_.repeated == nullptr || he.rounds() >= enough_rounds;
        }));
        if (!what_.may(no_settings)) {
            set_a_setting();
        }
        post("symbol", "own");
        bool const heard = has_backend("linux") && !what_.may(deaf_engine);
        if (what_.may(no_settings)) {
            pass_pauses(look_s);
            restore_settings();
            pass_pauses(retry_s);
            pass_pauses(retry_s);
        } else if (heard) {
            EXPECT_TRUE(is_heard("own")) << "announced, and not heard";
        }
        pass_pauses(look_s);
        if (what_.may(late_look)) {
            pass_pauses(lock_counts_s);
        }
        he.end();
        EXPECT_TRUE(has("own"));
        EXPECT_TRUE(has("found") || what_.may(crowded_look));
        EXPECT_GE(results.count(), 2U);
        expect_as_before(descriptors, threads);
        EXPECT_LT(ms_of([&] { EXPECT_EQ(eml_stop(eml), 0); }), ms(start_or_stop));
    }

    static int ms(std::chrono::milliseconds time) { return static_cast<int>(time.count()); }

    void expect_nothing_else_sent() const
    {
        std::vector<mailserver::mail> const mails = server_.mails();
        for (mailserver::mail const& mail : mails) {
            EXPECT_EQ(mail.text.find("A secret."), std::string::npos) << mail.text;
        }
        strings subjects = sorted(subjects_of(mails));
        if (what_.may(mails_of_his)) {
            subjects.erase(std::remove(subjects.begin(), subjects.end(), "his"), subjects.end());
        }
        if (!what_.may(crowded_look) || subjects.size() > 1) {
            EXPECT_EQ(subjects, (strings{"found", "own"}));
        }
    }

    attack const&         what_;
    scene const&          where_;
    temporary_place const place_;

    notification_room room_;
    mail_server       server_;
    workplace         work_;

    std::vector<gid_t> const groups_;
    target                   target_;
    std::vector<std::string> canaries_;
};

TEST_P(Neighbours, HarmNobody)
{
    std::vector<std::string> const untouched = states();
    neighbour                      he(
                             where_.attacker, groups_,
                             {step(what_.before), step(what_.during), step(announce_planted), step(what_.repeated)});
    int const  descriptors = open_descriptors();
    int const  threads     = running_threads();
    bool const measured    = begin_memory_peak();
    int const  memory      = status_mb("VmRSS");
    {
        patience const limited(he);
        he.take(step_before);
        live(he);
    }
    EXPECT_EQ(states(), untouched);
    expect_nothing_else_sent();
    expect_as_before(descriptors, threads);
    if (measured && !is_slow()) {  // a sanitizer takes memory of its own
        int const most = what_.may(large_memory) ? 5 * more_memory_mb : more_memory_mb;
        EXPECT_LT(status_mb("VmHWM") - memory, most) << "megabytes at most";
    }
}

INSTANTIATE_TEST_SUITE_P(Table, Neighbours, ::testing::ValuesIn(cells()), [](auto const& each) {
    return case_name(each) + "_" + name_of(each.param.where);
});

}  // namespace

}  // namespace zelieml::test
