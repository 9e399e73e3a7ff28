#include "tests/support/scripted_server.h"

#include <arpa/inet.h>
#include <atomic>
#include <condition_variable>
#include <mutex>
#include <netdb.h>
#include <string_view>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <utility>

#include "tests/support/transcript.h"
#include "tools/mailserver/socket.h"
#include "tools/mailserver/text.h"

namespace zelieml::test
{

namespace
{

using mailserver::ends_with;
using mailserver::stream;
using mailserver::visible;
using std::chrono::milliseconds;

using kind = statement::kind;

char const* const never_connects = "C: (never connects)";

std::string find_greeting_name()
{
    char name[1024] = {};
    if (::gethostname(name, sizeof name - 1) != 0) {
        return "unknown";
    }
    hostent const* const host = ::gethostbyname(name);
    if (host == nullptr || host->h_length != 4) {
        return name;
    }
    char address[INET_ADDRSTRLEN] = {};
    ::inet_ntop(AF_INET, host->h_addr_list[0], address, sizeof address);
    return "[" + std::string(address) + "]";
}

// A line as heard, for a reader.
std::string shown_line(std::string_view line)
{
    return ends_with(line, "\r\n") ? "C: " + visible(line.substr(0, line.size() - 2))
                                   : "C- " + visible(line);
}

// What came when something else was wanted.
std::string shown_arrival(stream::arrival what, std::string_view text)
{
    std::string shown = text.empty() ? "" : shown_line(text);
    if (what != stream::arrival::line) {
        shown += shown.empty() ? "" : "\n";
        shown += what == stream::arrival::closed ? "C: (closes)" : "C: (silent)";
    }
    return shown;
}

// A line however long it is, or what came of it.
stream::arrival hear_line(stream& peer, std::string& line)
{
    line.clear();
    for (;;) {
        stream::piece const piece = peer.read_line();
        line += piece.text;
        if (piece.what != stream::arrival::line || ends_with(line, "\n")) {
            return piece.what;
        }
    }
}

}  // namespace

std::string greeting_name()
{
    static std::string const name = find_greeting_name();
    return name;
}

// Plays on a thread of its own. The guard is for what that thread shares with the test's.
class scripted_server::player
{
public:
    player(std::vector<std::string> const& transcripts, milliseconds limit)
        : connections_(parse_transcripts(transcripts)), limit_(limit), door_(0),
          thread_(mailserver::start_thread([this] { run(); }))
    {
    }

    ~player()
    {
        {
            std::lock_guard<std::mutex> hold(guard_);
            over_.raise();
            if (peer_ != nullptr) {
                peer_->hang_up();
            }
        }
        join();
    }

    // Waits until the transcript is played, and ends the thread.
    void wait()
    {
        {
            std::unique_lock<std::mutex> hold(guard_);
            played_.wait(hold, [this] { return is_played_; });
        }
        over_.raise();
        join();
    }

    std::uint16_t port() const { return port_; }

    void set_host(std::string const& host)
    {
        std::lock_guard<std::mutex> hold(guard_);
        host_ = host;
    }

    // Read these after wait().
    std::string const&              heard() const { return heard_; }
    std::string const&              expected() const { return expected_; }
    std::string const&              problem() const { return problem_; }
    std::vector<std::string> const& mails() const { return mails_; }

    bool fell_silent() const { return fell_silent_; }
    int  accepted() const { return accepted_; }

private:
    void run()
    {
        bool as_written = true;
        for (std::size_t i = 0; as_written && i < connections_.size(); ++i) {
            as_written = play(i);
        }
        {
            std::lock_guard<std::mutex> hold(guard_);
            is_played_ = true;
        }
        played_.notify_all();
        turn_others_away();
    }

    // False when the client did something else.
    bool play(std::size_t index)
    {
        if (!mailserver::wait_for_client(door_, over_, limit_)) {
            fail(index, 0, never_connects);
            return false;
        }
        stream peer(door_.accept(), limit_);
        ++accepted_;
        if (index > 0) {
            as_expected("C: (connects)");
        }
        set_peer(&peer);
        held_back_.clear();
        pause_                     = milliseconds(0);
        conversation const& played = connections_[index];
        std::string         instead;
        for (std::size_t i = 0; instead.empty() && i < played.size(); ++i) {
            instead = perform(peer, played[i]);
            if (!instead.empty()) {
                fail(index, i, instead);
            }
        }
        set_peer(nullptr);
        return instead.empty();
    }

    void set_peer(stream* peer)
    {
        std::lock_guard<std::mutex> hold(guard_);
        peer_ = peer;
        if (peer != nullptr && over_.wait(milliseconds(0))) {
            peer->hang_up();
        }
    }

    // What {host} stands for. The system is asked only for a statement that has one: the answer
    // may take its time.
    std::string host_in(statement const& s)
    {
        if (!s.text.has_host()) {
            return "";
        }
        {
            std::lock_guard<std::mutex> hold(guard_);
            if (!host_.empty()) {
                return host_;
            }
        }
        return greeting_name();
    }

    // Returns what the client did, when that was not what the statement says.
    std::string perform(stream& peer, statement const& s)
    {
        switch (s.what) {
        case kind::says:
            say(peer, s);
            return "";
        case kind::says_later:
            held_back_ += s.text.bytes(host_in(s));
            return "";
        case kind::trickles:
            pause_ = milliseconds(s.amount);
            return "";
        case kind::delays:
            return delay(peer, milliseconds(s.amount));
        case kind::half_closes:
            peer.end_writing();
            return "";
        case kind::resets:
            peer.break_when_closed();
            return "";
        case kind::hears_line:
            return expect_line(peer, s);
        case kind::hears_bytes:
            return expect_bytes(peer, s);
        case kind::hears_mail:
            return expect_mail(peer);
        case kind::hears_close:
            return expect_close(peer);
        case kind::closes:
        case kind::connects:
            break;
        }
        return "";
    }

    // A client that does not take it any more shows when it is heard next.
    void say(stream& peer, statement const& s)
    {
        std::string       bytes = std::exchange(held_back_, "");
        std::string const text  = s.text.bytes(host_in(s));
        if (text.empty()) {
            fell_silent_ = true;  // (silent) alone has no text
        }
        bytes.reserve(bytes.size() + text.size() * static_cast<std::size_t>(s.amount));
        for (int i = 0; i < s.amount; ++i) {
            bytes += text;
        }
        if (pause_.count() == 0) {
            peer.write(bytes);
            return;
        }
        for (std::size_t i = 0; i < bytes.size() && peer.write(bytes.substr(i, 1)); ++i) {
            over_.wait(pause_);
        }
    }

    std::string delay(stream& peer, milliseconds time)
    {
        auto const end = std::chrono::steady_clock::now() + time;
        if (peer.speaks_within(time)) {
            return "C: (speaks out of turn)";
        }
        // The end of the stream ends the wait, but the client has not spoken.
        over_.wait(std::chrono::ceil<milliseconds>(end - std::chrono::steady_clock::now()));
        return "";
    }

    std::string expect_line(stream& peer, statement const& s)
    {
        std::string           line;
        stream::arrival const what = hear_line(peer, line);
        std::string           came = shown_arrival(what, line);
        if (what != stream::arrival::line || !ends_with(line, "\r\n") ||
            !s.text.matches(std::string_view(line).substr(0, line.size() - 2), host_in(s))) {
            return came;
        }
        as_expected(came);
        return "";
    }

    std::string expect_bytes(stream& peer, statement const& s)
    {
        std::string const wanted = s.text.bytes(host_in(s));
        std::string       got;
        stream::arrival   what = stream::arrival::line;
        while (got.size() < wanted.size() && what == stream::arrival::line) {
            stream::piece const piece = peer.read_some(wanted.size() - got.size());
            got += piece.text;
            what = piece.what;
        }
        if (got != wanted) {
            return shown_arrival(what, got);
        }
        as_expected("C- " + visible(got));
        return "";
    }

    std::string expect_mail(stream& peer)
    {
        std::string text;
        std::string line;
        do {
            stream::arrival const what = hear_line(peer, line);
            if (what != stream::arrival::line) {
                return shown_arrival(what, line);
            }
            text += line;
        } while (text != ".\r\n" && !ends_with(text, "\r\n.\r\n"));
        text.resize(text.size() - 3);
        if (ends_with(text, "\r\n")) {
            text.resize(text.size() - 2);
        }
        mails_.push_back(text);
        as_expected("C: (data)");
        return "";
    }

    std::string expect_close(stream& peer)
    {
        std::string           line;
        stream::arrival const what = hear_line(peer, line);
        if (what != stream::arrival::closed || !line.empty()) {
            return shown_arrival(what, line);
        }
        as_expected("C: (closes)");
        return "";
    }

    void as_expected(std::string const& came)
    {
        heard_ += came + "\n";
        expected_ += came + "\n";
    }

    // From that statement on, nothing went as written.
    void fail(std::size_t connection, std::size_t first, std::string const& came)
    {
        heard_ += came + "\n";
        statement const& failed = connections_[connection][first];
        problem_                = failed.where + ": ";
        if (std::string const wanted = failed.shown(host_in(failed)); !wanted.empty()) {
            problem_ += "wanted \"" + wanted + "\", ";
        }
        std::string once = came;
        if (std::size_t const end = once.find('\n'); end != once.npos) {
            once.replace(end, 1, " / ");
        }
        problem_ += "heard \"" + once + "\"";
        for (std::size_t c = connection; c < connections_.size(); ++c) {
            if (c > 0 && (c > connection || came == never_connects)) {
                expected_ += "C: (connects)\n";
            }
            for (std::size_t i = c == connection ? first : 0; i < connections_[c].size(); ++i) {
                statement const&  s    = connections_[c][i];
                std::string const line = s.shown(host_in(s));
                expected_ += line.empty() ? "" : line + "\n";
            }
        }
    }

    // Closes the connections that are not in the transcript, those included that came just
    // before the end.
    void turn_others_away()
    {
        bool last = false;
        while (!last) {
            mailserver::wait_for_client(door_, over_, std::chrono::hours(1));
            last = over_.wait(milliseconds(0));
            while (door_.accept()) {
                ++accepted_;
                if (problem_.empty()) {
                    heard_ += "C: (connects)\n";
                    problem_ = "after the end: heard \"C: (connects)\"";
                }
            }
        }
        door_.close();
    }

    void join()
    {
        std::lock_guard<std::mutex> hold(joining_);
        if (thread_.joinable()) {
            thread_.join();
        }
    }

    std::atomic<bool>               fell_silent_{false};
    std::vector<conversation> const connections_;
    milliseconds const              limit_;
    mailserver::listener            door_;
    std::uint16_t const             port_ = door_.port();
    mailserver::stop_signal         over_;
    std::atomic<int>                accepted_{0};

    // The thread's own until it has ended.
    std::string              heard_;
    std::string              expected_;
    std::string              problem_;
    std::vector<std::string> mails_;
    std::string              held_back_;
    milliseconds             pause_{0};

    std::mutex              guard_;  // of the next four
    std::condition_variable played_;
    bool                    is_played_ = false;
    std::string             host_;
    stream*                 peer_ = nullptr;

    std::mutex  joining_;
    std::thread thread_;
};

scripted_server::scripted_server(std::string const& transcript, milliseconds limit)
    : scripted_server(std::vector<std::string>{transcript}, limit)
{
}

scripted_server::scripted_server(std::vector<std::string> const& transcripts, milliseconds limit)
    : player_(std::make_unique<player>(transcripts, limit))
{
}

scripted_server::~scripted_server() = default;

std::uint16_t scripted_server::port() const
{
    return player_->port();
}

void scripted_server::set_host(std::string const& host)
{
    player_->set_host(host);
}

void scripted_server::wait()
{
    player_->wait();
}

std::string scripted_server::heard()
{
    wait();
    return player_->heard();
}

std::string scripted_server::expected()
{
    wait();
    return player_->expected();
}

bool scripted_server::ok()
{
    return problem().empty();
}

std::string scripted_server::problem()
{
    wait();
    return player_->problem();
}

std::string scripted_server::data(std::size_t index)
{
    wait();
    return index < player_->mails().size() ? player_->mails()[index] : "";
}

bool scripted_server::fell_silent() const
{
    return player_->fell_silent();
}

int scripted_server::connections() const
{
    return player_->accepted();
}

}  // namespace zelieml::test
