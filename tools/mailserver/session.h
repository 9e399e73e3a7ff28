// session.h - what an SMTP and a POP3 conversation have in common
//
// A session hears command lines and answers each with one write. Faults come in here, so that the
// protocols need not know of them beyond the names of their steps.

#ifndef ZELIEML_TOOLS_MAILSERVER_SESSION_H
#define ZELIEML_TOOLS_MAILSERVER_SESSION_H

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "tools/mailserver/fault.h"
#include "tools/mailserver/mail_store.h"
#include "tools/mailserver/options.h"
#include "tools/mailserver/socket.h"

namespace zelieml::mailserver
{

// What the sessions of a server share. Any thread.
struct service {
    explicit service(options o);

    void show(transcript_line const& line);

    // Puts the mail in the mailbox. Throws std::runtime_error when that fails.
    void deliver(mail const& m);

    void session_ended();

    options const                     settings;
    std::unique_ptr<mail_store> const store;
    fault_table                       faults;
    stop_signal                       stop;  // all sessions are to end
    std::mutex                        hooks;
};

class session
{
public:
    virtual ~session()                 = default;
    session(session const&)            = delete;
    session& operator=(session const&) = delete;

    // Speaks with the client until one of them ends it.
    void run();

protected:
    // number  counts the sessions, for the transcript
    session(service& shared, stream& peer, unsigned number, protocol which);

    virtual void greet() = 0;

    // Answers a command line; verb is its first word in upper case, argument all after the blank
    // that follows.
    virtual void obey(std::string const& verb, std::string_view argument) = 0;

    // Answers, without line end, for faults and for what goes wrong before a command is known.
    virtual std::string_view plain_refusal() const     = 0;
    virtual std::string_view line_too_long() const     = 0;
    virtual std::string_view idle_for_too_long() const = 0;

    // Must be called as each step begins. False when a fault took the step's place; nothing is to
    // be done or answered then.
    bool begin_step(std::string_view step);

    // Sends an answer of one line, given without its end.
    void reply(std::string_view line);

    // Sends an answer of several lines, each with its CR LF. What follows the first of them is a
    // mail when is_mail is true, and shown like one.
    void reply_lines(std::string_view lines, bool is_mail = false);

    // Hears a command line or the like, given without its end. False when the session is over.
    bool hear(std::string& line);

    // Hears a mail text up to the line ".", dots unstuffed. One that is too long is heard to its
    // end and too_long set. False when the session is over.
    bool hear_text(std::string& text, bool& too_long);

    // Ends the session from our side: no command is heard any more.
    void close();
    bool over() const { return over_; }

    service&       shared() { return shared_; }
    options const& settings() const { return shared_.settings; }

private:
    // Shows the lines of a mail, or as many of them as are wanted.
    class mail_lines
    {
    public:
        mail_lines(session& owner, char who) : owner_(owner), who_(who) {}
        void line(std::string_view text);
        // Says how many were not shown.
        void finish();

    private:
        session&    owner_;
        char        who_;
        std::size_t lines_  = 0;
        std::size_t hidden_ = 0;
    };

    void fall_silent();
    // For the transcript: who is 'S' or 'C', the text any number of lines, an incomplete one
    // included.
    void note(char who, std::string_view text);
    void note_reply(std::string_view lines, bool is_mail);
    void note_event(std::string_view event);

    service&             shared_;
    stream&              peer_;
    unsigned const       number_;
    protocol const       which_;
    std::optional<fault> fault_;  // of the step that is going on
    bool                 over_ = false;
};

}  // namespace zelieml::mailserver

#endif
