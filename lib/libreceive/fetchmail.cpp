// fetchmail.cpp - fetch mails from a POP3 server (RFC 1939), and delete them there

#include "libreceive/fetchmail.h"

#include <cstring>
#include <utility>

#include "liblog/trace.h"
#include "support/attempt_note.h"
#include "support/step_names.h"

namespace zelieml
{

namespace
{

// The trace of a refused login.
char const* refused_step(int login)
{
    switch (login) {
    case pop_apop_refused:
        return "error: pop_apop";
    case pop_user_refused:
        return "error: pop_user";
    default:
        return "error: pop_passwd";
    }
}

int start(_s_mailserver const& server, pop_greeting greeting, pop_holder& session)
{
    if (pop_start_session(server.pop_host, server.pop_port, session.out(), &server.pop_tls) == 0 &&
        (greeting == pop_greeting::any || pop_check_greeting(session.get()) == 0)) {
        return 0;
    }
    trace_msg("error: pop_start_session");
    note_result(pop_start_failed);
    return -1;
}

// Logs in and asks for the number of the mails.
int open_mailbox(_s_pop* session, _s_mailserver const& server, int& count)
{
    int const login = pop_log_in(session, server.pop_user, server.pop_password, is_apop(server));
    if (login != pop_ok) {
        trace_msg(refused_step(login));
        note_result(login);
        return -1;
    }
    int size = 0;
    if (pop_stat(session, &count, &size) != 0) {
        trace_msg("error: pop_stat");
        return -1;
    }
    trace_msg("main num = %d size = %d");
    return 0;
}

// Sends QUIT, upon which the server deletes, and ends the connection.
int close_mailbox(pop_holder& session, std::string& reply)
{
    int const quit = pop_quit(session.get());
    if (quit != 0) {
        trace_msg("error: pop_quit");
    }
    reply = session->reply;
    if (pop_end_session(session.release()) != 0) {
        trace_msg("error:smtp_end_session");  // the text of SMTP, deliberately
        return -1;
    }
    return quit;
}

// with_mailbox without a note of its own.
template <class Work>
int hold_session(_s_mailserver const& server, pop_greeting greeting, std::string& reply,
                 Work&& work)
{
    if (server.pop_auth_type == nullptr) {
        note_failure(eml_cause_settings, step_name::settings,
                     "the server record has no POP3 server");
        return -1;
    }
    pop_holder session;
    int        count = 0;
    if (start(server, greeting, session) != 0 || open_mailbox(session.get(), server, count) != 0 ||
        work(session.get(), count) != 0) {
        if (session.get() != nullptr) {
            reply = session->reply;
        }
        return -1;
    }
    return close_mailbox(session, reply);
}

// One session: start, login, work with the number of the mails, end. What was lost on the way is no
// failure when it ends well, since a server that was slow has answered then.
template <class Work>
int with_mailbox(_s_mailserver const& server, pop_greeting greeting, std::string& reply,
                 Work&& work)
{
    noting_attempt const noted;
    int const            result = hold_session(server, greeting, reply, work);
    if (result != 0) {
        noted.pass_on();
    }
    return result;
}

int delete_fetched(_s_pop* session, int count)
{
    if (delete_mails(session, count) != 0) {
        trace_msg("error: delete_mails");
        return -1;
    }
    return 0;
}

int fetch_one(_s_pop* session, int count, std::int32_t& fetched, std::int32_t& remaining,
              std::string& from, std::string& subject, std::vector<std::string>* mail)
{
    fetched   = 0;
    remaining = 0;
    if (count <= 0) {
        return 0;
    }
    remaining = count;
    std::vector<std::string> lines;
    bool                     over = false;
    if (pop_retr_alllines(session, 1, lines, over) != 0) {
        trace_msg("error:pop_retr_alllines");
        return -1;
    }
    if (!over) {
        from = find_item(lines, key_from);
        trace_msg("from %s");
        subject = find_item(lines, key_subject);
        trace_msg("subject %s");
        fetched = 1;
    }
    if (mail != nullptr) {
        lines.erase(lines.begin());
        *mail = std::move(lines);
    }
    --remaining;
    return delete_fetched(session, 1);
}

}  // namespace

bool is_apop(_s_mailserver const& server)
{
    // Anything but "apop" means USER and PASS here, whereas a login test asks for "pop":
    // deliberate, see docs/ODDITIES.md.
    return std::strcmp(server.pop_auth_type, "apop") == 0;
}

int fetchmail_get_one_mail(_s_mailserver const& server, std::int32_t& fetched,
                           std::int32_t& remaining, std::string& from, std::string& subject,
                           std::string& reply, std::vector<std::string>* mail,
                           pop_greeting greeting)
{
    trace_msg("fetchmail_get_one_mail in");
    int const result = with_mailbox(server, greeting, reply, [&](_s_pop* session, int count) {
        return fetch_one(session, count, fetched, remaining, from, subject, mail);
    });
    trace_msg("fetchmail_get_one_mail out %d");
    return result;
}

int fetchmail_get_mails(_s_mailserver const& server, std::vector<std::string>& froms,
                        std::vector<std::string>& subjects, std::string& reply)
{
    trace_msg("fetchmail_get_mails in");
    int const result =
        with_mailbox(server, pop_greeting::any, reply, [&](_s_pop* session, int count) {
            if (fetch_mails(session, count, froms, subjects) != 0) {
                trace_msg("error: fetch_mails");
                return -1;
            }
            return delete_fetched(session, count);
        });
    trace_msg("fetchmail_get_mails out %d");
    return result;
}

int fetch_mails(_s_pop* session, int count, std::vector<std::string>& froms,
                std::vector<std::string>& subjects)
{
    for (int index = 1; index <= count; ++index) {
        std::vector<std::string> lines;
        bool                     over = false;
        if (pop_retr_alllines(session, index, lines, over) != 0 || over) {
            trace_msg("error:pop_retr_alllines index = %d");
            return -1;
        }
        froms.push_back(find_item(lines, key_from));
        trace_msg("push_back from %s");
        subjects.push_back(find_item(lines, key_subject));
        trace_msg("push_back subject %s");
    }
    return 0;
}

int delete_mails(_s_pop* session, int count)
{
    for (int number = 1; number <= count; ++number) {
        noting_attempt const aside;  // a refused mail is no failure of the session
        if (pop_dele(session, number) != 0) {
            trace_msg("error:pop_dele %s");
        }
        if (aside->cause == eml_cause_lost) {
            aside.pass_on();
        }
    }
    return 0;
}

std::string find_item(std::vector<std::string> const& lines, char const* key)
{
    // Anywhere in a line, also of the status and the body: deliberate, see docs/ODDITIES.md.
    for (std::string const& line : lines) {
        if (line.find(key) != std::string::npos) {
            return line;
        }
    }
    return {};
}

std::string delete_keyword(std::string const& text, char const* key)
{
    std::size_t const start = text.find(key);
    if (start == std::string::npos) {
        trace_msg("error: no keyword");
        return text;
    }
    return text.substr(start + std::strlen(key));
}

}  // namespace zelieml
