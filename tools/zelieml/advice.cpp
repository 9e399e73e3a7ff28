// advice.cpp - a failure in plain words, and what to do about it

#include "tools/zelieml/advice.h"

namespace zelieml::program
{

namespace
{

constexpr eml_cause any_cause = eml_cause_none;

struct row {
    eml_cause   cause;
    char const* step;  // empty: any
    char const* advice;
};

constexpr char authorities[] =
    "tls_ca_file has to be a file of certificates in PEM that this user may read. Without it, "
    "those that the system trusts have to be there: Debian's are in the package ca-certificates";

// The first row that fits counts.
constexpr row rows[] = {
    {any_cause, "quit",
     "at this step the server has taken the mail: do not send it again. Such mails count as failed, "
     "and the engine sends them again: the server's administrator has to see to it that it answers "
     "QUIT with 221"},

    {eml_cause_memory, "", "end other programs, and try again"},

    {eml_cause_file, "",
     "make room on the disk, and let this user write to the work directory and read its files"},

    {eml_cause_message, "sender", "use a shorter address"},
    {eml_cause_message, "recipient", "use a plain, shorter address: user@host"},
    {eml_cause_message, "", "send a shorter mail, to somebody"},

    {eml_cause_settings, "login",
     "smtp_account or smtp_passwd is missing or too long: set it with 'zelieml settings set'"},
    {eml_cause_settings, "pop login",
     "the POP3 server does not offer what pop_auth_type asks for, or the account is too long: "
     "'zelieml settings set pop_auth_type pop' logs in with account and password"},
    {eml_cause_settings, "settings file",
     "the settings file has to be a regular file that this user may read: 'zelieml settings check' "
     "says what is wrong with it"},
    {eml_cause_settings, "tls", authorities},
    {eml_cause_settings, "pop tls", authorities},
    {eml_cause_settings, "",
     "set it with 'zelieml settings set'. Is this the right work directory, and may this user read "
     "its settings? 'zelieml settings check' finds all that is wrong with the file"},

    {eml_cause_unreachable, "look-up",
     "is smtp_server spelled right? If it is, this machine cannot look up names: see to its name "
     "server, or set smtp_server to an IPv4 address"},
    {eml_cause_unreachable, "pop look-up",
     "is pop_server spelled right? If it is, this machine cannot look up names: see to its name "
     "server, or set pop_server to an IPv4 address"},
    {eml_cause_unreachable, "pop connect",
     "if the connection is refused, no server listens there: compare pop_server and pop_port with "
     "what its administrator says (110 as a rule). If it is reset, a firewall or the server ends "
     "it. If there is no answer, a firewall is in between, or the server is off"},
    {eml_cause_unreachable, "",
     "if the connection is refused, no server listens there: compare smtp_server and smtp_port "
     "with what its administrator says. If it is reset, a firewall or the server ends it. If there "
     "is no answer, a firewall is in between, or the server is off. Many networks close port 25: ask for another one, such as 587"},

    {eml_cause_tls, "pop tls",
     "nothing but CAPA and STLS was said in clear. If the certificate is for another host, set "
     "pop_server to a name that it is for; if its authority is your own, set tls_ca_file. With "
     "pop_tls = tls the port is usually 995, with starttls 110. If the plug-in is missing, install "
     "it (libzelieml-tls1)"},
    {eml_cause_tls, "",
     "nothing but EHLO and STARTTLS was said in clear. If the certificate is for another host, set "
     "smtp_server to a name that it is for; if its authority is your own, set tls_ca_file. With "
     "smtp_tls = tls the port is usually 465, with starttls 587. If the plug-in is missing, "
     "install it (libzelieml-tls1)"},

    {eml_cause_lost, "tls",
     "does the server speak TLS so on this port? smtp_tls = tls is for port 465, starttls for 587 "
     "and 25. A firewall may also look into the conversation and end it"},
    {eml_cause_lost, "pop tls",
     "does the server speak TLS so on this port? pop_tls = tls is for port 995, starttls for 110. "
     "A firewall may also look into the conversation and end it"},
    {eml_cause_lost, "greeting",
     "is this an SMTP server, and without TLS? One on port 465 waits for TLS: 'zelieml settings "
     "set smtp_tls tls'. A server may also keep out machines that it does not know: ask its "
     "administrator"},
    {eml_cause_lost, "pop greeting",
     "is this a POP3 server, and without TLS? One on port 995 waits for TLS: 'zelieml settings "
     "set pop_tls tls'. A server may also keep out machines that it does not know: ask its "
     "administrator"},
    {eml_cause_lost, "text",
     "the server may have taken the mail: look before you send it again. Its log says why it did "
     "not answer"},
    {eml_cause_lost, "",
     "try again. If it happens again, the server is overloaded, or a firewall looks into the "
     "conversation and ends it: the server's log, at this time, says more"},

    {eml_cause_refused_now, "pop login",
     "another program may be reading the mailbox, or the server limits how often one may log in: "
     "try again in some minutes"},
    {eml_cause_refused_now, "recipient",
     "the mailbox is full, or the server puts off senders that it does not know: try again in half "
     "an hour"},
    {eml_cause_refused_now, "",
     "the server is busy, or puts off machines that it does not know: try again in half an hour. "
     "If it still refuses, ask its administrator"},

    {eml_cause_refused, "greeting",
     "the server does not serve this machine: its administrator has to allow its address"},
    {eml_cause_refused, "helo",
     "the server does not like this machine's name or address: its administrator knows why"},
    {eml_cause_refused, "ehlo",
     "the server offers no login: 'zelieml settings set smtp_auth no' does without, if the server "
     "takes mails from this machine so"},
    {eml_cause_refused, "login",
     "compare smtp_account with what the server's administrator says, and set the password anew: "
     "'zelieml settings set smtp_passwd' asks for it. If both are right, the server wants another "
     "smtp_auth_type, or logins only inside TLS (smtp_tls)"},
    {eml_cause_refused, "pop login",
     "compare pop_account with what the server's administrator says, and set the password anew: "
     "'zelieml settings set pop_passwd' asks for it"},
    {eml_cause_refused, "sender",
     "the server takes no mails from this address: use one that belongs to it. If it wants a "
     "login, set smtp_auth to yes, and smtp_account and smtp_passwd"},
    {eml_cause_refused, "recipient",
     "nobody gets a mail with a recipient that is refused. Is the address right? If the reply "
     "speaks of relaying or of a login, set smtp_auth to yes, and smtp_account and smtp_passwd"},
    {eml_cause_refused, "",
     "do as the reply says. If it says too little, the server's administrator knows more"},

    {eml_cause_protocol, "login",
     "the server answers the login with what it must not: try another smtp_auth_type, such as "
     "plain or login"},
    {eml_cause_protocol, "greeting",
     "this is no SMTP server: compare smtp_server and smtp_port with what its administrator says. "
     "POP3 servers have port 110, SMTP servers 25 or 587"},
    {eml_cause_protocol, "pop greeting",
     "this is no POP3 server: compare pop_server and pop_port with what its administrator says. "
     "POP3 servers have port 110, SMTP servers 25 or 587"},
    {eml_cause_protocol, "",
     "is this a mail server, and of the right kind? Compare the names and ports in the settings "
     "with what its administrator says"},
};

}  // namespace

char const* in_words(eml_cause cause)
{
    switch (cause) {
    case eml_cause_memory:
        return "there is not enough memory";
    case eml_cause_file:
        return "the mail could not be saved or read";
    case eml_cause_message:
        return "the mail cannot be sent as it is";
    case eml_cause_settings:
        return "a setting is missing or wrong";
    case eml_cause_unreachable:
        return "the server was not found, or not reached";
    case eml_cause_lost:
        return "the server did not answer, or ended the connection";
    case eml_cause_refused_now:
        return "the server refused for now";
    case eml_cause_refused:
        return "the server refused for good";
    case eml_cause_protocol:
        return "the server answered what it must not";
    case eml_cause_tls:
        return "TLS is asked for, and cannot be had";
    case eml_cause_none:
    case eml_cause_32_bits:
        break;
    }
    return "it failed";  // for a cause of a newer library
}

char const* advice(eml_cause cause, std::string const& step)
{
    for (row const& each : rows) {
        if ((each.cause == cause || each.cause == any_cause) &&
            (*each.step == '\0' || step == each.step)) {
            return each.advice;
        }
    }
    return "try again";
}

}  // namespace zelieml::program
