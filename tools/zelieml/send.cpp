// send.cpp - zelieml send and zelieml post: a mail now, or through the engine

#include <chrono>
#include <cstdio>
#include <exception>
#include <memory>
#include <new>
#include <sstream>
#include <string>
#include <sysexits.h>
#include <vector>

#include "tools/zelieml/attempt.h"
#include "tools/zelieml/command.h"
#include "tools/zelieml/failure.h"
#include "tools/zelieml/locale_text.h"
#include "tools/zelieml/message.h"
#include "tools/zelieml/output.h"
#include "zelieml_ext.h"

namespace zelieml::program
{

namespace
{

struct send_options {
    mail_options mail;
    bool         check   = false;
    bool         dry_run = false;
    std::string  symbol  = "zelieml_stocksymbol";  // of post
};

// The mail as it would go, for people: the envelope, and the text line by line, readable.
void print_preview(eml_preview const& mail, std::string const& charset)
{
    print_line(to_terminal("MAIL FROM:<" + std::string(mail.sender) + ">"));
    for (int i = 0; i < mail.recipient_count; ++i) {
        print_line(to_terminal("RCPT TO:<" + std::string(mail.recipients[i]) + ">"));
    }
    print_line("");
    std::istringstream text(from_charset({mail.text, mail.text_size}, charset));
    for (std::string line; std::getline(text, line);) {
        if (!line.empty() && line.back() == '\r') {
            line.pop_back();
        }
        print_line(to_terminal(line));
    }
}

void print_preview_json(eml_preview const& mail)
{
    json recipients = json::array();
    for (int i = 0; i < mail.recipient_count; ++i) {
        recipients.push_back(mail.recipients[i]);
    }
    print_json({{"sender", mail.sender},
                {"recipients", recipients},
                {"text", std::string(mail.text, mail.text_size)}});
}

// What the callback of a preview needs.
struct preview_run {
    bool               as_json;
    std::string        charset;  // of the mail
    std::exception_ptr thrown;   // by it, which the library must not meet
};

void show_preview(eml_preview const* mail, void* user)
{
    preview_run& run = *static_cast<preview_run*>(user);
    try {
        run.as_json ? print_preview_json(*mail) : print_preview(*mail, run.charset);
    } catch (...) {
        run.thrown = std::current_exception();
    }
}

void preview(message const& mail, common_options const& common)
{
    preview_run run    = {common.json, mail.text(eml_msg_get_encoding), nullptr};
    int const   status = eml_msg_preview(common.workdir.c_str(), mail.record(), show_preview, &run);
    if (run.thrown) {
        std::rethrow_exception(run.thrown);
    }
    if (status != 0) {
        throw std::bad_alloc();
    }
}

// done  what a mail was that was not refused: "sent"
int report(attempt const& made, std::string const& done, common_options const& common)
{
    int const status = exit_status(made);
    try {
        if (common.json) {
            print_json(to_json(made));
        }
    } catch (failure const& unprinted) {
        if (status == EX_OK) {
            throw failure(unprinted.status(), "the mail was " + done +
                                                  ", do not send it again, but " +
                                                  unprinted.what());
        }
    }
    if (status != EX_OK) {
        throw failure(status, to_terminal(why(made) + ": " + remedy(made)));
    }
    return status;
}

// At least the bytes of the file that the library makes of a mail.
std::size_t size_of(message const& mail)
{
    std::size_t bytes = 1024;  // for the keys
    for (auto const getter : {eml_msg_get_from, eml_msg_get_to, eml_msg_get_cc, eml_msg_get_subject,
                              eml_msg_get_replyto, eml_msg_get_messageid, eml_msg_get_body}) {
        bytes += mail.text(getter).size();
    }
    return bytes;
}

// Hands the mail to the engine; the result is that of an attempt that did not come to sending.
attempt post(std::string const& workdir, std::string const& symbol, message const& mail)
{
    using clock      = std::chrono::steady_clock;
    auto const begin = clock::now();
    if (eml_post_with_stocksymbol(workdir.c_str(), symbol.c_str(), mail.record()) != 0) {
        return not_attempted(eml_cause_file, "the message cannot be saved in " + workdir);
    }
    attempt made;
    made.seconds = std::chrono::duration<double>(clock::now() - begin).count();
    return made;
}

int refuse(std::vector<std::string> const& faults, bool as_json)
{
    std::string reason;
    for (std::string const& fault : faults) {
        std::fprintf(stderr, "zelieml: %s\n", to_terminal(fault).c_str());
        reason += (reason.empty() ? "" : "; ") + fault;
    }
    if (as_json) {
        print_json(to_json(not_attempted(eml_cause_message, reason)));
    }
    return EX_DATAERR;
}

// Does with the mail that was asked for what a command does with one, or shows it.
template <class Deliver>
int run(command_line const& line, send_options const& asked, char const* done, Deliver&& deliver)
{
    common_options const& common = line.options();
    message const         mail   = make_message(asked.mail);
    eml_severity const    least  = asked.check ? eml_severity_note : eml_severity_error;
    if (auto const faults = faults_of(mail, asked.mail, least); !faults.empty()) {
        return refuse(faults, common.json);
    }
    if (asked.dry_run) {
        preview(mail, common);
        return EX_OK;
    }
    auto const unsaved = not_saved(common.workdir, size_of(mail));
    return report(unsaved ? *unsaved : deliver(mail), done, common);
}

void add_options(command_line& line, CLI::App& command, send_options& options)
{
    line.add_workdir(command);
    add_mail_options(command, options.mail);
    command.add_flag("--check", options.check,
                     "Refuse all that the message check finds, not only errors");
    command.add_flag("--dry-run", options.dry_run, "Show the mail as it would go, and end");
    line.add_json(command, [](failure const& fault) { print_json(to_json(not_attempted(fault))); });
}

}  // namespace

void add_send(command_line& line)
{
    auto const options = std::make_shared<send_options>();
    CLI::App&  command = line.add(
         line.app(), "send", "Send a mail now",
         "  echo 'Tray 2 is empty.' | zelieml send -w DIR --from p7@office.test \\\n"
          "      --to anna@office.test --subject 'Printer 7'\n"
          "  zelieml send -w DIR --from 'Printer 7 <p7@office.test>' --to anna@office.test \\\n"
          "      --to ben@office.test --message-id auto --dry-run notice.txt",
         [&line, options] {
            return run(line, *options, "sent",
                        [&](message const& mail) { return send_now(line.options().workdir, mail); });
        });
    add_options(line, command, *options);
}

void add_post(command_line& line)
{
    auto const options = std::make_shared<send_options>();
    CLI::App&  command =
        line.add(line.app(), "post", "Hand a mail to the engine, which sends it and tries again",
                 "  echo 'Tray 2 is empty.' | zelieml post -w DIR --from p7@office.test \\\n"
                 "      --to anna@office.test --subject 'Printer 7'",
                 [&line, options] {
                     return run(line, *options, "posted", [&](message const& mail) {
                         return post(line.options().workdir, options->symbol, mail);
                     });
                 });
    add_options(line, command, *options);
    command
        .add_option("--symbol", options->symbol,
                    "The stock symbol of an engine to be notified; the service needs none")
        ->type_name("SYMBOL")
        ->capture_default_str();
}

}  // namespace zelieml::program
