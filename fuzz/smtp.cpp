// smtp.cpp - sending a message file: SMTP with all logins, and POP before SMTP
//
// The input is a settings file, a message file, and what the servers say. Everything is compared with
// a model. There is no plug-in for TLS: a send that may be meant to have TLS is refused.

#include <set>

#include "fuzz/support/fuzz.h"
#include "fuzz/support/mail_text.h"
#include "fuzz/support/scarce_memory.h"
#include "fuzz/support/scratch.h"
#include "libsendw/libsendw.h"
#include "libsendw/pop.h"
#include "libtimew/libtimew.h"
#include "tests/libsendw/send_model.h"

using namespace zelieml;
using fuzz::begins_with;
using fuzz::require;

namespace
{

// check_commands - HELO or EHLO, a login, MAIL, RCPT, DATA, in this order
//
// Returns how many of the strings these are.
std::size_t check_commands(test::sent_strings const& sent)
{
    std::string const     hello = std::string(" ") + test::greeting_name + "\r\n";
    std::size_t           i     = 0;
    std::set<std::string> recipients;
    if (i < sent.size()) {
        bool const extended = sent[i] == "ehlo" + hello;
        require(extended || sent[i] == "helo" + hello, "a client greets first");
        ++i;
        while (extended && i < sent.size() && !begins_with(sent[i], "mail from: <")) {
            require(sent[i].find(' ') == std::string::npos || begins_with(sent[i], "AUTH "),
                    "after EHLO comes a login");
            ++i;
        }
    }
    if (i < sent.size()) {
        require(begins_with(sent[i], "mail from: <"), "the sender comes before all else");
        ++i;
    }
    while (i < sent.size() && begins_with(sent[i], "rcpt to: <")) {
        require(recipients.insert(sent[i]).second, "a recipient is named once");
        ++i;
    }
    if (i < sent.size()) {
        require(!recipients.empty() && sent[i] == "data\r\n", "DATA follows the recipients");
        ++i;
    }
    for (std::size_t command = 0; command < i; ++command) {
        fuzz::require_command_line(sent[command]);
    }
    return i;
}

// check_smtp - the commands, then the text and its end mark, then QUIT
//
// An ISO-2022-JP body for which there is no memory to convert it keeps its dots.
//
// Returns whether the client has sent QUIT.
bool check_smtp(test::sent_strings const& sent, fuzz::memory_result memory)
{
    std::string text;
    bool        ended = false;
    bool        quit  = false;
    for (std::size_t i = check_commands(sent); i < sent.size(); ++i) {
        if (ended) {
            require(sent[i] == "quit\r\n" && !quit, "only QUIT follows a mail");
            quit = true;
        } else if (sent[i] == fuzz::end_of_mail) {
            ended = true;
        } else {
            text += sent[i];
        }
    }
    require(memory != fuzz::memory_result::sufficed || fuzz::ends_only_at_its_end(text),
            "no text ends a mail early");
    return quit;
}

// check_pop - USER and PASS or APOP, then QUIT
void check_pop(test::sent_strings const& sent)
{
    bool const apop = begins_with(sent[0], "apop ");
    for (std::size_t i = 0; i < sent.size(); ++i) {
        if (!apop && i == 1) {
            // What was stored as a password may decrypt to anything.
            require(begins_with(sent[i], "pass "), "PASS follows USER");
            continue;
        }
        fuzz::require_command_line(sent[i]);
        require(i == 0 || sent[i] == "quit\r\n", "QUIT follows the login");
    }
    require(sent.size() <= (apop ? 2U : 3U), "nothing follows QUIT");
}

// check_order - what holds also when memory ran out
//
// Returns whether the client has sent QUIT.
bool check_order(std::vector<test::sent_strings> const& sent, fuzz::memory_result memory)
{
    require(sent.size() <= 2, "there are at most two connections");
    bool const pop = !sent.empty() && !sent[0].empty() &&
                     (begins_with(sent[0][0], "user ") || begins_with(sent[0][0], "apop "));
    if (pop) {
        check_pop(sent[0]);
    }
    bool const smtp = sent.size() == (pop ? 2 : 1);
    return smtp && check_smtp(sent.back(), memory);
}

std::set<int> const results = {
    send_ok,           send_other_failure,     send_no_server,       send_not_connected,
    send_helo_refused, send_not_authenticated, send_message_refused, send_quit_refused,
    pop_start_failed,  pop_user_refused,       pop_pass_refused,     pop_apop_refused};

}  // namespace

int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    fuzz::no_descriptor_left const guard;
    fuzz::input                    input(data, size);
    fuzz::scratch_file const       settings("zelismes.cf");
    fuzz::scratch_file const       file("mail.sme");
    test::send_room                room;
    room.settings = input.field();
    room.message  = input.field();
    room.servers  = test::played_servers(input.rest());
    room.date     = itimew().get_format_date();
    settings.write(*room.settings);
    file.write(*room.message);

    test::fake_mail_servers const servers(room.servers);
    test::send_outcome            outcome;
    outcome.reply                    = "unchanged";
    fuzz::memory_result const memory = fuzz::with_memory(input.memory(), [&] {
        outcome.result = isendw().send(file.path(), settings.path(), outcome.reply);
    });
    require(results.count(outcome.result) == 1, "a result is one of those that exist");
    outcome.record = servers.record();

    bool const quit = check_order(outcome.record.sent, memory);
    if (memory == fuzz::memory_result::sufficed) {
        // A server that hangs up is not sent QUIT.
        require(quit ? outcome.result == send_ok || outcome.result == send_quit_refused
                     : outcome.result != send_ok,
                "a mail that was taken ends with QUIT, and no other");
        require(outcome == test::model_send(room, "unchanged"),
                "a send ends as the model says, having sent what it says");
    }
    return 0;
}
