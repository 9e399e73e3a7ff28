// loopback.cpp - a mail server for a desk without one
//
// Takes mail by SMTP and gives it out by POP3, on 127.0.0.1 only; shows what client and server say
// to each other, and misbehaves on request. See --help.
//
// Exit status: 0 ended by a signal or as asked, 1 could not serve, 2 wrong usage.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <fstream>
#include <memory>
#include <mutex>
#include <optional>
#include <poll.h>
#include <stdexcept>
#include <string>
#include <unistd.h>
#include <vector>

#include "tools/mailserver/server.h"
#include "tools/mailserver/text.h"

namespace
{

using namespace zelieml::mailserver;

// What open sessions get to say goodbye after the last mail that was asked for.
constexpr std::chrono::milliseconds farewell_grace = std::chrono::seconds(2);

constexpr std::chrono::milliseconds longest_wait = std::chrono::hours(1);

constexpr int wrong_usage = 2;

// Wakes the main thread from signal handlers and from the server's threads.
class wake_pipe
{
public:
    wake_pipe()
    {
        if (::pipe(ends_) != 0) {
            throw std::runtime_error("no pipe");
        }
        for (int const end : ends_) {
            ::fcntl(end, F_SETFD, FD_CLOEXEC);
            // A full pipe has woken the reader already.
            ::fcntl(end, F_SETFL, O_NONBLOCK);
        }
    }

    // Safe in a signal handler.
    void wake() const
    {
        int const                   before  = errno;
        [[maybe_unused]] auto const written = ::write(ends_[1], "", 1);
        errno                               = before;
    }

    // Returns when woken, perhaps without a reason, or when the time has passed.
    void wait(std::chrono::milliseconds time) const
    {
        pollfd entry = {ends_[0], POLLIN, 0};
        ::poll(&entry, 1, static_cast<int>(time.count()));
        char                        ignored[256];
        [[maybe_unused]] auto const taken = ::read(ends_[0], ignored, sizeof ignored);
    }

private:
    int ends_[2] = {-1, -1};
};

wake_pipe const& waker()
{
    static wake_pipe const pipe;
    return pipe;
}

// Of what is counted on the command line.
constexpr int most = 1000000000;

std::atomic<bool> signalled{false};

extern "C" void end_by_signal(int)
{
    signalled = true;
    waker().wake();
}

struct settings {
    options                  server;
    std::optional<int>       port;
    std::vector<std::string> users;
    std::vector<std::string> passwords;
    std::vector<std::string> smtp_auth = {"cram-md5", "login", "plain"};
    std::vector<std::string> pop_auth  = {"user", "apop"};
    std::vector<std::string> faults;
    int                      fault_count = -1;
    bool                     show        = false;
    bool                     envelope    = false;
    std::string              ready_file;
    std::optional<double>    seconds;
    std::optional<unsigned>  mails;
};

char const* const details = R"(Steps of faults
  SMTP: greeting helo ehlo auth answer mail rcpt data text rset noop vrfy help quit unknown
  POP3: greeting capa user pass apop stat list uidl retr top dele rset noop quit unknown
  A step of both is meant in both, smtp.quit and pop.quit in one. "answer" is the verdict on a
  client's line within an authentication, "text" the one on a mail's text, "unknown" is any other
  command.
Actions of faults
  refuse:TEXT  answer with the text and do nothing (refuse alone: with some refusal)
  close        close instead of answering
  reset        break the connection instead of answering
  silent       never answer again
  delay:MS     answer so many milliseconds later
  trickle:MS   answer byte by byte, so many milliseconds between two
  cut:BYTES    answer with the first bytes of the answer, then close

On standard output come first the lines "smtp 127.0.0.1:PORT" and "pop3 127.0.0.1:PORT", then
what --show and --envelope ask for. All users share one mailbox, and any address is taken.
Exit status: 0 ended by a signal or as asked, 1 could not serve, 2 wrong usage.

Example
  zelieml-loopback --user me --password secret --show --fault 'rcpt=refuse:550 5.1.1 no such user'
)";

// Help with the options' arguments, without the rules for them.
class plain_help final : public CLI::Formatter
{
public:
    plain_help() { column_width(28); }

    std::string make_option_opts(CLI::Option const* option) const override
    {
        return option->get_type_size() == 0 ? "" : " " + option->get_type_name();
    }
};

void describe(CLI::App& app, settings& s)
{
    app.formatter(std::make_shared<plain_help>());
    app.footer(details);
    app.add_option("--smtp-port", s.server.smtp_port,
                   "Port for SMTP; 0, the default, takes a free one")
        ->type_name("PORT");
    app.add_option("--pop-port", s.server.pop_port,
                   "Port for POP3; 0, the default, takes a free one")
        ->type_name("PORT");
    app.add_option("--port", s.port,
                   "SMTP on this port and POP3 on the next; 0: free ones for both")
        ->type_name("PORT")
        ->check(CLI::Range(0, 65534).description(""))
        ->excludes("--smtp-port")
        ->excludes("--pop-port");
    app.add_option("--ready-file", s.ready_file,
                   "Write the two lines with the ports into this file when ready")
        ->type_name("FILE");

    app.add_option("--user", s.users,
                   "Who may log in; may be repeated. Default: user\n(with the password: password)")
        ->type_name("NAME")
        ->allow_extra_args(false);
    app.add_option("--password", s.passwords, "The password of each --user, in the same order")
        ->type_name("TEXT")
        ->allow_extra_args(false);
    app.add_option("--auth", s.smtp_auth,
                   "What SMTP offers: a list of cram-md5, login, plain, or none")
        ->type_name("LIST")
        ->delimiter(',')
        ->allow_extra_args(false)
        ->check(CLI::IsMember({"cram-md5", "login", "plain", "none"}, CLI::ignore_case)
                    .description(""));
    app.add_flag("--require-auth", s.server.smtp_login_required,
                 "Take mail only from clients that have logged in");
    app.add_option("--pop-auth", s.pop_auth, "What POP3 takes: a list of user, apop")
        ->type_name("LIST")
        ->delimiter(',')
        ->allow_extra_args(false)
        ->check(CLI::IsMember({"user", "apop"}, CLI::ignore_case).description(""));

    app.add_option("--maildir", s.server.maildir,
                   "Keep mails in this Maildir, made if missing, not in memory")
        ->type_name("DIR");
    app.add_flag("--show", s.show, "Print each conversation as it happens, secrets included");
    app.add_option("--show-lines", s.server.shown_mail_lines,
                   "With --show, print only so many lines of each mail")
        ->type_name("N")
        ->check(CLI::Range(1, most).description(""));
    app.add_flag("--envelope", s.envelope, "Print sender and recipients of each mail");

    app.add_option("--reject-recipient", s.server.rejected_recipients,
                   "Refuse this address with 550; may be repeated")
        ->type_name("ADDRESS")
        ->allow_extra_args(false);
    app.add_option("--fault", s.faults, "Misbehave, see below; may be repeated")
        ->type_name("STEP=ACTION")
        ->allow_extra_args(false);
    app.add_option("--fault-count", s.fault_count,
                   "Each fault so many times, then no more; default: every time")
        ->type_name("N")
        ->check(CLI::Range(1, most).description(""));

    app.add_option("--seconds", s.seconds, "End after this time")
        ->type_name("N")
        ->check(CLI::Range(0.0, 1e6).description(""));
    app.add_option("--mails", s.mails, "End after so many mails")
        ->type_name("N")
        ->check(CLI::Range(1, most).description(""));
}

bool contains(std::vector<std::string> const& list, std::string_view word)
{
    return std::find(list.begin(), list.end(), word) != list.end();
}

// What the options mean together. Throws std::invalid_argument.
void complete(settings& s)
{
    if (s.port) {
        s.server.smtp_port = static_cast<std::uint16_t>(*s.port);
        s.server.pop_port  = static_cast<std::uint16_t>(*s.port == 0 ? 0 : *s.port + 1);
    }
    if (s.users.size() != s.passwords.size()) {
        throw std::invalid_argument("every --user needs a --password");
    }
    if (!s.users.empty()) {
        s.server.users.clear();
    }
    for (std::size_t i = 0; i < s.users.size(); ++i) {
        s.server.users.push_back({s.users[i], s.passwords[i]});
    }
    s.server.smtp_mechanisms.clear();
    if (contains(s.smtp_auth, "none")) {
        if (s.smtp_auth.size() > 1 || s.server.smtp_login_required) {
            throw std::invalid_argument(
                "--auth none goes with no other mechanism and not with --require-auth");
        }
    } else {
        for (std::string const& mechanism : s.smtp_auth) {
            s.server.smtp_mechanisms.push_back(upper(mechanism));
        }
    }
    s.server.pop_user = contains(s.pop_auth, "user");
    s.server.pop_apop = contains(s.pop_auth, "apop");
    for (std::string const& text : s.faults) {
        try {
            s.server.faults.push_back(parse_fault(text));
        } catch (std::invalid_argument const& e) {
            throw std::invalid_argument("--fault " + text + ": " + e.what());
        }
        s.server.faults.back().times = s.fault_count;
    }
}

// Whoever reads our output may have gone; then nobody needs us any more.
std::atomic<bool> output_gone{false};

void print(std::string const& line)
{
    if (std::fputs((line + "\n").c_str(), stdout) < 0 || std::fflush(stdout) != 0) {
        output_gone = true;
        waker().wake();
    }
}

std::string envelope_of(mail const& m)
{
    std::string line = "mail from:<" + visible(m.sender) + ">";
    for (std::string const& recipient : m.recipients) {
        line += " to:<" + visible(recipient) + ">";
    }
    if (!m.user.empty()) {
        line += " user:" + visible(m.user);
    }
    return line + " bytes:" + std::to_string(m.text.size());
}

// Under its own name only once it is complete.
void write_ready_file(std::string const& path, std::string const& text)
{
    std::string const unready = path + ".tmp";
    std::ofstream     out(unready, std::ios::binary);
    out << text;
    out.close();
    if (!out || std::rename(unready.c_str(), path.c_str()) != 0) {
        throw std::runtime_error("cannot write " + path);
    }
}

// Waits for what ends the program: a signal, the time, the number of mails, or nobody who reads
// the output. True when sessions may still say goodbye.
bool wait_for_end(settings const& s, std::atomic<unsigned> const& mails)
{
    using clock    = std::chrono::steady_clock;
    auto const now = clock::now();
    auto const deadline =
        now + std::chrono::milliseconds(static_cast<long long>(s.seconds.value_or(0) * 1000));
    while (!signalled && !output_gone) {
        if (s.mails && mails >= *s.mails) {
            return true;
        }
        auto wait = longest_wait;
        if (s.seconds) {
            auto const left = std::chrono::ceil<std::chrono::milliseconds>(deadline - clock::now());
            if (left.count() <= 0) {
                return false;
            }
            wait = std::min(wait, left);
        }
        waker().wait(wait);
    }
    return false;
}

void run(settings s)
{
    std::atomic<unsigned> mails{0};
    // Held until the lines with the ports are out.
    std::mutex                   output;
    std::unique_lock<std::mutex> starting(output);
    auto const                   print_in_turn = [&](std::string const& line) {
        std::lock_guard<std::mutex> hold(output);
        print(line);
    };
    if (s.show) {
        s.server.on_line = [&](transcript_line const& line) {
            print_in_turn("[" + std::to_string(line.session) + " " + name_of(line.which) + "] " +
                          line.text);
        };
    }
    s.server.on_mail = [&](mail const& m) {
        if (s.envelope) {
            print_in_turn(envelope_of(m));
        }
        ++mails;
        waker().wake();
    };

    server            mail_server(s.server);
    std::string const ports = "smtp 127.0.0.1:" + std::to_string(mail_server.smtp_port()) +
                              "\npop3 127.0.0.1:" + std::to_string(mail_server.pop_port());
    print(ports);
    starting.unlock();
    if (!s.ready_file.empty()) {
        write_ready_file(s.ready_file, ports + "\n");
    }

    bool const farewell = wait_for_end(s, mails);
    mail_server.finish(farewell ? farewell_grace : std::chrono::milliseconds(0));
}

// The exit status.
int parse_and_run(int argc, char** argv)
{
    CLI::App app("A mail server for a desk without one: SMTP and POP3 on 127.0.0.1.",
                 "zelieml-loopback");
    settings s;
    describe(app, s);
    try {
        app.parse(argc, argv);
        complete(s);
    } catch (CLI::ParseError const& e) {
        return app.exit(e) == 0 ? 0 : wrong_usage;
    } catch (std::invalid_argument const& e) {
        std::fprintf(stderr, "%s\nRun with --help for more information.\n", e.what());
        return wrong_usage;
    }
    // Made before the handlers can need it.
    waker();
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGTERM, end_by_signal);
    std::signal(SIGINT, end_by_signal);
    run(s);
    return 0;
}

}  // namespace

int main(int argc, char** argv)
{
    try {
        return parse_and_run(argc, argv);
    } catch (std::exception const& e) {
        std::fprintf(stderr, "zelieml-loopback: %s\n", e.what());
        return 1;
    }
}
