// probe.cpp - a send without a mail, step by step

#include "libsendw/probe.h"

#include <chrono>
#include <cstdint>
#include <cstring>
#include <string>
#include <unistd.h>

#include "libsendw/libsendw.h"
#include "libsendw/pop.h"
#include "libsendw/send_settings.h"
#include "libsendw/smtp.h"
#include "libsendw/sock.h"
#include "platform/sleep.h"
#include "support/attempt_note.h"
#include "support/c_boundary.h"
#include "support/format.h"
#include "support/number.h"
#include "support/step_names.h"

namespace zelieml
{

namespace
{

using probe_proc = void (*)(eml_probe_step const*, void*);

// Room for a host and its port, and for a reason after a few words.
using step_text = char[reason_capacity + 100];
static_assert(setting_size <= reason_capacity);

// Reports the steps.
class reporter
{
public:
    reporter(probe_proc proc, void* user) : proc_(proc), user_(user) {}

    // From now on the steps are those of this server.
    void talks_to(server_addr const& server, int port)
    {
        format_text(server_, "%s:%d", server.host, static_cast<std::uint16_t>(port));
    }

    // From now on the replies are those of this session, which stays until its reply is kept.
    template <class Session>
    void listens_to(Session const& session)
    {
        reply_ = &session.reply;
        book_  = &session.book;
    }

    // Keeps the reply for the end of the step.
    void keeps_reply()
    {
        kept_  = reply();
        reply_ = nullptr;
    }

    void begins(char const* name);

    // ends - report a step of a send
    //
    // status  0 when it went well
    // number  what the send returns when not
    // remark  what is to be said when it went well
    //
    // Returns whether another step may follow, as ends_extra does.
    bool ends(int status, int number, char const* remark = "");

    // ends_extra - report a step that no send has: one that fails is a remark too
    bool ends_extra(int status, char const* when_failed, char const* remark = "");

    bool failed() const { return failed_; }

    // Whether this is a child that the proc has forked.
    bool in_child() const { return ::getpid() != process_; }

private:
    bool tell(eml_probe_outcome outcome, int number, char const* reason,
              eml_cause cause = eml_cause_none);

    std::string reply() const { return reply_ ? without_secrets(*book_, *reply_) : kept_; }

    probe_proc const   proc_;
    void* const        user_;
    pid_t const        process_ = ::getpid();
    bool               failed_  = false;
    char const*        name_    = "";
    std::string const* reply_   = nullptr;
    step_book const*   book_    = nullptr;
    std::string        kept_;
    step_text          server_ = {};
    noting_attempt     note_;
};

void reporter::begins(char const* name)
{
    name_ = name;
    kept_.clear();
    note_->forget();
    note_->begin = std::chrono::steady_clock::now();
}

bool reporter::ends(int status, int number, char const* remark)
{
    if (status == 0) {
        return tell(*remark == '\0' ? eml_probe_ok : eml_probe_remark, 0, remark);
    }
    failed_ = true;
    tell(eml_probe_failed, number, note_->reason, note_->cause);
    return false;
}

bool reporter::ends_extra(int status, char const* when_failed, char const* remark)
{
    if (status == 0) {
        return ends(0, 0, remark);
    }
    step_text text;
    format_text(text, "%s: %s", when_failed, note_->reason);
    ends(0, 0, text);
    return false;
}

bool reporter::tell(eml_probe_outcome outcome, int number, char const* reason, eml_cause cause)
{
    double const         seconds = note_->seconds();
    std::string const    said    = reply();
    eml_probe_step const told    = {sizeof told, outcome,      number, name_, server_,
                                    seconds,     said.c_str(), reason, cause};
    contained([&] { proc_(&told, user_); });
    return !in_child();
}

char const* name_of(auth_mechanism mechanism)
{
    constexpr char const* names[] = {"CRAM-MD5", "LOGIN", "PLAIN"};
    return names[static_cast<int>(mechanism)];
}

// Where test_smtp_auth with "on" judges differently than a mail that logs in.
char const* login_remark(std::string const& type, std::string const& offer, step_text& out)
{
    if (offer.empty()) {
        return "the server offers no AUTH: mails try to log in all the same, but test_smtp_auth "
               "fails";
    }
    auth_mechanism const of_mail = choose_mechanism(type, offer);
    auth_mechanism const of_test = choose_mechanism("auto", offer);
    if (of_mail == of_test) {
        return "";
    }
    format_text(out, "smtp_auth_type makes mails log in with %s, but test_smtp_auth uses %s",
                name_of(of_mail), name_of(of_test));
    return out;
}

// A send without a mail. The functions return whether another step may follow.
class probing
{
public:
    probing(reporter& report, char const* sender, char const* recipient)
        : report_(report), sender_(sender), recipient_(recipient)
    {
    }

    bool look_at_settings(char const* conf_fullpath)
    {
        report_.begins(step_name::settings);
        int const number = read(read_send_settings(conf_fullpath));
        return report_.ends(number, number);
    }

    bool pop_before_smtp();
    bool smtp_session();

private:
    int  read(conf_settings const& conf);
    bool pop_session();
    bool converse(_s_smtp* session);
    bool log_in(_s_smtp* session);
    bool try_envelope(_s_smtp* session);
    bool look_at_offer(_s_smtp* session);

    // What a session knows of its connection.
    struct link {
        int&                        socket;
        bool&                       connected;
        pid_t&                      tunneled;
        std::optional<std::string>* own_name;
    };

    bool connects(server_addr const& server, connect_steps const& steps, int number,
                  tls_choice const& tls, tunnel_protocol protocol, link const& of);

    // Begins a step of the SMTP session. A command that cannot be sent has no reply.
    void begins(char const* name, _s_smtp* session)
    {
        session->reply.clear();
        report_.begins(name);
    }

    reporter&         report_;
    char const* const sender_;
    char const* const recipient_;
    server_addr       pop_server_  = {};
    userinfo          pop_account_ = {};
    server_addr       server_      = {};
    userinfo          account_     = {};
    std::string       auth_type_;
    tls_choice        pop_tls_;
    tls_choice        tls_;
    int               wait_ms_   = 0;
    bool              pop_first_ = false;
    bool              apop_      = false;
    bool              logs_in_   = false;
};

// Reads what a send needs. Returns send_ok, or what the send returns when something is missing.
int probing::read(conf_settings const& conf)
{
    pop_first_ = is_pop_before_smtp(conf);
    if (pop_first_) {
        if (get_pop_server_addr(pop_server_, conf) != 0 ||
            get_pop_userinfo(pop_account_, conf) != 0) {
            return send_other_failure;
        }
        apop_    = is_apop(conf);
        wait_ms_ = get_waittime(conf);
        pop_tls_ = get_pop_tls(conf);
        if (pop_tls_.mode == tls_mode::unclear) {
            tunnel_note_unclear(pop_tls_);
            return pop_start_failed;
        }
    }
    if (get_smtp_server_addr(server_, conf) != 0) {
        return send_no_server;
    }
    tls_ = get_smtp_tls(conf);
    if (tls_.mode == tls_mode::unclear) {
        tunnel_note_unclear(tls_);
        return send_not_connected;
    }
    logs_in_ = is_auth(conf);
    if (logs_in_) {
        if (get_smtp_userinfo(account_, conf) != 0) {
            return send_not_authenticated;
        }
        auth_type_ = get_smtp_auth_type(conf);
    }
    return send_ok;
}

// The steps to a server before its greeting.
bool probing::connects(server_addr const& server, connect_steps const& steps, int number,
                       tls_choice const& tls, tunnel_protocol protocol, link const& of)
{
    int const port = text_to_int(server.port);
    report_.talks_to(server, port);
    report_.begins(steps.look_up);
    unsigned long address = sock_no_address;
    if (!report_.ends(sock_find_host(server.host, address, steps), number)) {
        return false;
    }
    report_.begins(steps.connect);
    int status   = sock_connect_found(server.host, address, port, of.socket, steps);
    of.connected = status == 0;
    if (!report_.ends(status, number) || tls.mode == tls_mode::none) {
        return status == 0 && !report_.in_child();
    }
    report_.begins(steps.tls);
    of.connected = false;  // the socket is handed over
    status       = tunnel_start_tls(of.socket, server.host, tls, protocol, steps, of.own_name);
    of.connected = status == 0;
    of.tunneled  = status == 0 ? ::getpid() : 0;
    return report_.ends(status, number);
}

bool probing::pop_before_smtp()
{
    if (!pop_first_) {
        return true;
    }
    if (!pop_session()) {
        return false;
    }
    report_.begins(step_name::pop_wait);
    platform::sleep_microseconds(std::int64_t{wait_ms_} * 1000);
    return report_.ends(0, 0);
}

bool probing::pop_session()
{
    pop_holder    held(new _s_pop());
    _s_pop* const session = held.get();
    if (!connects(pop_server_, pop_connecting, pop_start_failed, pop_tls_, tunnel_protocol::pop,
                  {session->socket, session->connected, session->tunneled, nullptr})) {
        return false;
    }
    report_.listens_to(*session);
    report_.begins(step_name::pop_greeting);
    int const greets = pop_read_greeting(session) == 0 ? pop_check_greeting(session) : -1;
    if (!report_.ends(greets, pop_start_failed)) {
        return false;
    }
    report_.begins(step_name::pop_login);
    int const  number = pop_log_in(session, pop_account_.user, pop_account_.password, apop_);
    bool const quits  = report_.ends(number, number);
    if (report_.in_child()) {
        return false;  // the connection is the parent's
    }
    report_.begins(step_name::pop_quit);
    session->reply.clear();
    int const status = quits ? pop_quit(session) : -1;
    report_.keeps_reply();
    pop_end_session(held.release());
    return quits && report_.ends(status, pop_quit_failed);
}

bool probing::smtp_session()
{
    smtp_holder    held(new _s_smtp());
    _s_smtp* const session = held.get();
    if (!connects(
            server_, smtp_connecting, send_not_connected, tls_, tunnel_protocol::smtp,
            {session->socket, session->connected, session->tunneled, own_name_of(*session)})) {
        return false;
    }
    report_.listens_to(*session);
    report_.begins(step_name::greeting);
    if (!report_.ends(smtp_read_greeting(session), send_not_connected)) {
        return false;
    }
    bool const quits = converse(session);
    if (report_.in_child()) {
        return false;  // the connection is the parent's
    }
    begins(step_name::quit, session);
    int const status = quits ? smtp_quit(session) : -1;
    report_.keeps_reply();
    smtp_end_session(held.release());
    return quits && report_.ends(status, send_quit_refused);
}

// What comes between greeting and QUIT.
bool probing::converse(_s_smtp* session)
{
    if (logs_in_) {
        return log_in(session) && try_envelope(session);
    }
    begins(step_name::helo, session);
    return report_.ends(smtp_helo(session), send_helo_refused) && try_envelope(session) &&
           look_at_offer(session);
}

bool probing::log_in(_s_smtp* session)
{
    begins(step_name::ehlo, session);
    std::string offer;
    step_text   text;
    int const   status = ehlo(session, offer);
    if (!report_.ends(status, send_not_authenticated, login_remark(auth_type_, offer, text))) {
        return false;
    }
    begins(step_name::login, session);
    return report_.ends(auth(session, auth_type_, account_.user, account_.password, offer),
                        send_not_authenticated);
}

bool probing::try_envelope(_s_smtp* session)
{
    if (recipient_ == nullptr) {
        return true;
    }
    begins(step_name::sender, session);
    if (!report_.ends(smtp_mailfrom(session, sender_), send_message_refused)) {
        return false;
    }
    begins(step_name::recipient, session);
    if (!report_.ends(smtp_rcptto(session, {recipient_}), send_message_refused)) {
        return false;
    }
    begins(step_name::reset, session);
    return report_.ends_extra(smtp_reset(session), "RSET failed, which no mail sends");
}

bool probing::look_at_offer(_s_smtp* session)
{
    begins(step_name::offer, session);
    std::string offer;
    int const   status = ehlo(session, offer);
    return report_.ends_extra(status, "EHLO failed, which test_smtp_auth needs, but mails do not",
                              offer.empty()
                                  ? ""
                                  : "the server offers AUTH: mails get through without a login, "
                                    "but test_smtp_auth fails with \"off\"");
}

bool has_line_break(char const* text)
{
    return text != nullptr && std::strpbrk(text, "\r\n") != nullptr;
}

}  // namespace

int probe(char const* conf_fullpath, char const* sender, char const* recipient, probe_proc proc,
          void* user)
{
    if (proc == nullptr || (recipient != nullptr && sender == nullptr) || has_line_break(sender) ||
        has_line_break(recipient)) {
        return -1;
    }
    reporter report(proc, user);
    probing  send(report, sender, recipient);
    if (send.look_at_settings(conf_fullpath) && send.pop_before_smtp()) {
        send.smtp_session();
    }
    return report.failed() || report.in_child() ? -1 : 0;
}

}  // namespace zelieml
