// check.cpp - zelieml check: why mails do not get through, step by step

#include <cstddef>
#include <cstdio>
#include <cstring>
#include <exception>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <sys/stat.h>
#include <sysexits.h>
#include <vector>

#include "tools/zelieml/advice.h"
#include "tools/zelieml/attempt.h"
#include "tools/zelieml/command.h"
#include "tools/zelieml/failure.h"
#include "tools/zelieml/locale_text.h"
#include "tools/zelieml/message.h"
#include "tools/zelieml/output.h"
#include "tools/zelieml/setting_findings.h"
#include "tools/zelieml/settings_file.h"
#include "zelieml_ext.h"

namespace zelieml::program
{

namespace
{

// One line of the report.
struct reported_step {
    std::string       name;
    std::string       server;  // "host:port"; empty where none has to do with it
    eml_probe_outcome outcome;
    int               number;
    eml_cause         cause;
    double            seconds;
    std::string       reply;   // without the line end after its last line
    std::string       reason;  // or the remark
    std::string       advice;  // of a step that failed
};

std::string without_line_end(std::string text)
{
    text.resize(text.find_last_not_of("\r\n") + 1);
    return text;
}

std::string last_line(std::string const& reply)
{
    return reply.substr(reply.find_last_of("\r\n") + 1);
}

char const* name_of_outcome(eml_probe_outcome outcome)
{
    return outcome == eml_probe_ok ? "ok" : outcome == eml_probe_failed ? "failed" : "remark";
}

json to_json(reported_step const& step)
{
    return {{"name", step.name},
            {"server", step.server},
            {"outcome", name_of_outcome(step.outcome)},
            {"number", step.number},
            {"cause", name_of(step.cause)},
            {"seconds", step.seconds},
            {"reply", step.reply},
            {"reason", step.reason}};
}

bool is_settings(eml_probe_step const& step)
{
    return std::strcmp(step.name, "settings") == 0;
}

// A step for people: what became of it, how long it took, the server's line; then why it failed, in
// plain words, or the remark.
void print_step(reported_step const& step)
{
    constexpr int width_of_name = 12;
    char          head[64];
    std::snprintf(head, sizeof head, "%-*s %-6s %7.2f s", width_of_name, step.name.c_str(),
                  step.outcome == eml_probe_failed ? "FAILED" : name_of_outcome(step.outcome),
                  step.seconds);
    // Whose name it is that was looked up goes for all steps until the next look-up.
    bool const        begins_server = step.name == "look-up" || step.name == "pop look-up";
    std::string const said          = begins_server ? step.server : last_line(step.reply);
    print_line(head + (said.empty() ? "" : "  " + to_terminal(said)));
    std::string const more = step.outcome == eml_probe_failed ? in_words(step.cause) : step.reason;
    if (!more.empty()) {
        print_line(std::string(width_of_name + 1, ' ') + to_terminal(more));
    }
}

reported_step step_of(attempt const& made)
{
    bool const good = made.cause == eml_cause_none;
    return {
        made.step,   "",          good ? eml_probe_ok : eml_probe_failed,
        made.number, made.cause,  made.seconds,
        made.reply,  made.reason, made.mend.empty() ? advice(made.cause, made.step) : made.mend};
}

// A remark for who runs this program: what a login test of the library does is left out.
std::string without_login_test(std::string remark)
{
    std::string const needs = ", which test_smtp_auth needs, but mails do not";
    std::size_t const at    = remark.find(needs);
    if (at != remark.npos) {
        remark.replace(at, needs.size(), ", which mails do not need");
    }
    return remark.substr(0, remark.find(", but test_smtp_auth "));
}

// Whether there are settings that cannot be read.
bool are_unreadable(std::string const& workdir)
{
    try {
        read_settings(workdir);
    } catch (failure const&) {
        struct stat is = {};
        return ::lstat(settings_path(workdir).c_str(), &is) == 0;
    }
    return false;
}

// A step of the probe.
reported_step step_of(eml_probe_step const& step, std::string const& workdir)
{
    bool const unreadable =
        step.outcome == eml_probe_failed && is_settings(step) && are_unreadable(workdir);
    return {step.name,
            step.server,
            step.outcome,
            step.number,
            step.cause,
            step.seconds,
            without_line_end(step.reply),
            without_login_test(step.reason),
            advice(step.cause, unreadable ? "settings file" : step.name)};
}

// What the check has found so far; people see it as it comes.
class report
{
public:
    explicit report(bool as_json) : as_json_(as_json) {}

    void take(setting_finding const& found)
    {
        findings_.push_back(to_json(found));
        if (!as_json_) {
            print_line("zelismes.cf, " + line_of(found));
        }
    }

    void take(reported_step const& step)
    {
        if (step.outcome == eml_probe_failed) {
            fails(step, exit_status(step.cause, step.name));
        }
        steps_.push_back(to_json(step));
        if (!as_json_) {
            print_step(step);
        }
    }

    // The mail is told as a step, too.
    void take(attempt const& made)
    {
        reported_step const mail = step_of(made);
        sent_                    = to_json(made);
        if (mail.outcome == eml_probe_failed) {
            fails(mail, exit_status(made));
        }
        if (!as_json_) {
            reported_step shown = mail;
            shown.name          = "mail";
            print_step(shown);
        }
    }

    // That no mail can be made or saved, which the probe does not find out.
    void take_unsaved(attempt const& made)
    {
        fails(step_of(made), exit_status(made));
        steps_.push_back(to_json(step_of(made)));
        if (!as_json_) {
            print_step(step_of(made));
        }
    }

    // Says how all ended. Returns the exit status, or throws it.
    int ends() const
    {
        if (as_json_) {
            json all = {{"ok", !failed_},
                        {"steps", steps_},
                        {"advice", failed_ ? failed_->advice : ""},
                        {"findings", findings_}};
            if (!sent_.is_null()) {
                all["sent"] = sent_;
            }
            print_json(all);
        }
        if (failed_) {
            // Without memory there is no reason.
            std::string const why =
                failed_->reason.empty() ? in_words(failed_->cause) : failed_->reason;
            throw failure(status_, to_terminal(why + ": " + failed_->advice));
        }
        return EX_OK;
    }

    bool has_failed() const { return failed_.has_value(); }

private:
    // The first failure counts.
    void fails(reported_step const& step, int status)
    {
        if (!failed_) {
            failed_ = step;
            status_ = status;
        }
    }

    bool                         as_json_;
    json                         findings_ = json::array();
    json                         steps_    = json::array();
    json                         sent_;
    std::optional<reported_step> failed_;
    int                          status_ = EX_OK;
};

// What the callback of a probe needs.
struct probe_run {
    std::string const& workdir;
    report&            all;
    std::exception_ptr thrown;  // by it, which the library must not meet
};

void take_saving(probe_run& run)
{
    constexpr std::size_t small_mail = 1024;  // bytes
    if (auto const unsaved = not_saved(run.workdir, small_mail)) {
        run.all.take_unsaved(*unsaved);
    }
}

void take_step(eml_probe_step const* step, void* user)
{
    probe_run& run = *static_cast<probe_run*>(user);
    try {
        run.all.take(step_of(*step, run.workdir));
        if (is_settings(*step) && step->outcome != eml_probe_failed) {
            take_saving(run);
        }
    } catch (...) {
        run.thrown = run.thrown ? run.thrown : std::current_exception();
    }
}

// address  to try as sender and recipient, or null
void probe(std::string const& workdir, char const* address, report& all)
{
    probe_run run    = {workdir, all, nullptr};
    int const status = eml_probe(workdir.c_str(), address, address, take_step, &run);
    if (run.thrown) {
        std::rethrow_exception(run.thrown);
    }
    if (status != 0 && !all.has_failed()) {
        throw std::bad_alloc();
    }
}

// The first error that the message check finds.
void keep_error(eml_finding const* found, void* user)
{
    auto& text = *static_cast<std::string*>(user);
    if (found->severity == eml_severity_error && text.empty()) {
        text = found->text;
    }
}

// A mail to its sender that says what it is.
message test_mail(std::string const& address)
{
    mail_options options;
    options.from       = address;
    options.to         = {address};
    options.reply_to   = address;
    options.subject    = "Test mail";
    options.message_id = "auto";
    message     mail   = make_message(options, "This is a test mail of 'zelieml check'.\n");
    std::string wrong;
    if (eml_msg_check(mail.record(), keep_error, &wrong) < 0) {
        throw std::bad_alloc();
    }
    if (!wrong.empty()) {
        throw failure(EX_DATAERR, to_terminal("--to: " + wrong));
    }
    return mail;
}

int check(common_options const& options, std::optional<std::string> const& to)
{
    std::optional<message> mail;
    if (to) {
        mail.emplace(test_mail(*to));
    }
    report all(options.json);
    for (setting_finding const& found : find_in_settings(options.workdir, eml_severity_warning)) {
        all.take(found);
    }
    probe(options.workdir, mail ? mail->text(eml_msg_get_to).c_str() : nullptr, all);
    if (mail && !all.has_failed()) {
        all.take(send_now(options.workdir, *mail));
    }
    return all.ends();
}

void print_failure(failure const& fault)
{
    report all(true);
    all.take_unsaved(not_attempted(fault));
    all.ends();
}

}  // namespace

void add_check(command_line& line)
{
    auto const to      = std::make_shared<std::optional<std::string>>();
    CLI::App&  command = line.add(line.app(), "check", "Find out why mails do not get through",
                                  "  zelieml check -w DIR\n"
                                   "  zelieml check -w DIR --to anna@office.test\n"
                                   "\n"
                                   "--to also asks the server for ADDRESS, as sender and as "
                                   "recipient. Without it no mail is sent.",
                                  [&line, to] { return check(line.options(), *to); });
    line.add_workdir(command);
    command
        .add_option("--to", *to, "Also try this address, and if all is well SEND a test mail there")
        ->type_name("ADDRESS");
    line.add_json(command, print_failure);
}

}  // namespace zelieml::program
