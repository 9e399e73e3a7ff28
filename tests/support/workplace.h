// workplace.h - what a test of whole engines needs around them

#ifndef ZELIEML_TESTS_SUPPORT_WORKPLACE_H
#define ZELIEML_TESTS_SUPPORT_WORKPLACE_H

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <mutex>
#include <string>
#include <vector>

#include "tests/support/files.h"
#include "tests/support/mail_server.h"
#include "tests/support/peers.h"
#include "tests/support/threads.h"
#include "zelieml.h"

namespace zelieml::test
{

using strings = std::vector<std::string>;

// Notifications of the test's own: this process, and those it starts, meet no others. Make it
// before the first engine and the first post.
class notification_root
{
public:
    notification_root();

    // The paths of the sockets that observers have left or still have there.
    strings sockets() const;

    temp_dir const dir;
};

// Settings for an SMTP server on this machine.
std::string settings_for(std::uint16_t smtp_port);

// The names of a work directory's files but for the settings.
strings messages_in(std::string const& workdir);

// A work directory with settings for a server on this machine. Subjects go out as plain text.
class workplace
{
public:
    explicit workplace(std::uint16_t smtp_port, std::string const& more_settings = "");

    char const* path() const { return path_.c_str(); }
    // The directory that holds it, and nothing else.
    std::string const& outside() const { return dir_.path(); }
    std::string        file(std::string const& name) const { return path_ + "/" + name; }

    strings messages() const { return messages_in(path_); }

private:
    temp_dir    dir_;
    std::string path_;
};

// A mail to anna@b.test, to be freed with eml_msg_destroy.
void* new_mail(std::string const& subject, std::string const& body = "The tray is empty.\n");

// Posts such a mail; what eml_post_with_stocksymbol returned.
int post_mail(std::string const& workdir, std::string const& symbol, std::string const& subject);

// The subject of a message file; empty when it cannot be read.
std::string subject_of_file(std::string const& path);

// The subjects of mails, in order, and sorted.
strings subjects_of(std::vector<mailserver::mail> const& mails);
strings sorted(strings texts);

// "name.0", "name.1", ...
strings numbered(std::string const& name, int count);

// Those of the texts that begin so, in order.
strings beginning_with(std::string const& start, strings const& texts);

struct result {
    eml_send_e  code;
    std::string text;
};
bool operator==(result const& a, result const& b);
void PrintTo(result const& r, std::ostream* out);

// What the server of the tests says last when it has taken a mail.
result const sent = {eml_send_ok, "221 2.0.0 goodbye\r\n"};

// The results that callbacks were given; any thread.
class result_list
{
public:
    // A callback; the user is a result_list.
    static int note(void* record, void* user);

    // Called for each result after it was noted, on the thread of the callback, where it may be
    // replaced. Set it elsewhere only when no attempt is being made.
    std::function<void()> action;

    std::vector<result>     all() const;
    std::vector<eml_send_e> codes() const;
    std::size_t             count() const;
    // The thread that called last: the engine's worker.
    thread_id caller() const;

    // True when so many have come, or come in time.
    bool wait_for(std::size_t count, std::chrono::milliseconds limit = std::chrono::seconds(20));

private:
    mutable std::mutex      guard_;
    std::condition_variable changed_;
    std::vector<result>     results_;
    thread_id               caller_ = 0;
};

// A running engine whose results are kept; stopped with the object.
class running_engine
{
public:
    explicit running_engine(workplace const& work, std::string const& symbol = "symbol");
    ~running_engine() { stop(); }
    running_engine(running_engine const&)            = delete;
    running_engine& operator=(running_engine const&) = delete;

    void* handle() const { return eml_; }
    void  stop();

    result_list results;

private:
    void* eml_ = nullptr;
};

// Waits until an engine that has just been started hears other processes: Apple's center takes its
// time, and there is nothing to ask.
void wait_for_registration();

// The milliseconds that a call takes.
template <class Call>
int ms_of(Call&& call)
{
    auto const start = std::chrono::steady_clock::now();
    call();
    return static_cast<int>(std::chrono::duration_cast<std::chrono::milliseconds>(
                                std::chrono::steady_clock::now() - start)
                                .count());
}

}  // namespace zelieml::test

#endif
