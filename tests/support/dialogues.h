// dialogues.h - the parts of conversations that many tests share
//
// Pieces of transcripts (scripted_server.h) that are put together with +. Each ends with a line
// end, so that a test's own lines can follow:
//
//     local_server server(helo + mail_from() + refused_at("rcpt to: <x@b.test>", "550 unknown"));

#ifndef ZELIEML_TESTS_SUPPORT_DIALOGUES_H
#define ZELIEML_TESTS_SUPPORT_DIALOGUES_H

#include <string>
#include <vector>

namespace zelieml::test
{

// ---- any protocol, as a client of scripted_server

// The transcript of a server that must see no client.
inline std::string const nobody_comes = "";

// The client ends the connection.
inline std::string const hangs_up = "C: (closes)\n";

// A command and its reply, each of one line.
inline std::string answered(std::string const& command, std::string const& reply)
{
    return "C: " + command + "\nS: " + reply + "\n";
}

// A command whose reply makes the client hang up.
inline std::string refused_at(std::string const& command, std::string const& reply)
{
    return answered(command, reply) + hangs_up;
}

// A command that the server answers by closing.
inline std::string lost_at(std::string const& command)
{
    return answered(command, "(closes)");
}

// ---- SMTP, as the library speaks it

// The server greets, and the client, by HELO or by EHLO to a server with one extension.
inline std::string const greeted = "S: 220 mail.test ready\n";
inline std::string const helo    = greeted + answered("helo {host}", "250 mail.test");

inline std::string ehlo(std::string const& extension)
{
    return greeted + answered("ehlo {host}", "250-mail.test\nS: 250 " + extension);
}

// The steps of a mail, accepted.
inline std::string mail_from(std::string const& address = "reply@a.test")
{
    return answered("mail from: <" + address + ">", "250 sender ok");
}

inline std::string rcpt_to(std::string const& address = "x@b.test")
{
    return answered("rcpt to: <" + address + ">", "250 recipient ok");
}

inline std::string const text_sent = answered("data", "354 go on") + "C: (data)\nS: 250 queued\n";
inline std::string const goodbye   = refused_at("quit", "221 bye");

// A mail to one recipient, and the end of the session.
inline std::string const delivery = mail_from() + rcpt_to() + text_sent + goodbye;

// ---- POP3, as the library speaks it

inline std::string const pop_greeted = "S: +OK ready\n";

// The greeting, USER and PASS, accepted.
inline std::string pop_login(std::string const& user     = "anna",
                             std::string const& password = "secret")
{
    return pop_greeted + answered("user " + user, "+OK") + answered("pass " + password, "+OK");
}

inline std::string const pop_goodbye = answered("quit", "+OK bye");

// ---- tools/mailserver, as its clients speak (scripted_client.h); good replies in any words

// The greeting and HELO.
inline std::string const smtp_opened = "S: 220 {any}\nC: HELO c\nS: 250 {any}\n";
// The greeting, EHLO and six lines of reply.
inline std::string const esmtp_opened = "S: 220 {any}\nC: EHLO c\n"
                                        "S: 250-{any}\nS: 250-{any}\nS: 250-{any}\n"
                                        "S: 250-{any}\nS: 250-{any}\nS: 250 {any}\n";

// A mail from a@a.test, up to the line before its text.
inline std::string mail_begun(std::vector<std::string> const& recipients = {"b@b.test"})
{
    std::string all = answered("MAIL FROM:<a@a.test>", "250 {any}");
    for (std::string const& recipient : recipients) {
        all += answered("RCPT TO:<" + recipient + ">", "250 {any}");
    }
    return all + answered("DATA", "354 {any}");
}

inline std::string const smtp_closed = "C: QUIT\nS: 221 {any}\n";

// The greeting, and USER and PASS in one write.
inline std::string pop_opened(std::string const& user     = "user",
                              std::string const& password = "password")
{
    return "S: +OK {any}\nC- USER " + user + "\\r\\nPASS " + password +
           "\\r\\n\n"
           "S: +OK {any}\nS: +OK {any}\n";
}

}  // namespace zelieml::test

#endif
