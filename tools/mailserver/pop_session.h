// pop_session.h - the server's side of fetching mail
//
// POP3 as in RFC 1939, with CAPA of RFC 2449. All users see the one mailbox, and it is not locked:
// each session keeps to the mails that it met when it logged in.

#ifndef ZELIEML_TOOLS_MAILSERVER_POP_SESSION_H
#define ZELIEML_TOOLS_MAILSERVER_POP_SESSION_H

#include <string>
#include <vector>

#include "tools/mailserver/session.h"

namespace zelieml::mailserver
{

// The text as RETR sends it: every line with CR LF, a dot before every line that begins with one,
// the final line ".". At most so many lines after the first empty one.
std::string pop_lines(std::string_view text, std::size_t max_body_lines);

class pop_session final : public session
{
public:
    pop_session(service& shared, stream& peer, unsigned number)
        : session(shared, peer, number, protocol::pop)
    {
    }

private:
    struct command;
    struct listed_mail {
        mail_store::entry entry;
        bool              deleted;
    };

    void             greet() override;
    void             obey(std::string const& verb, std::string_view argument) override;
    std::string_view plain_refusal() const override { return "-ERR refused on request"; }
    std::string_view line_too_long() const override { return "-ERR line too long"; }
    std::string_view idle_for_too_long() const override { return "-ERR idle for too long"; }

    void capa(std::string_view argument);
    void user(std::string_view argument);
    void pass(std::string_view argument);
    void apop(std::string_view argument);
    void stat(std::string_view argument);
    void list(std::string_view argument);
    void uidl(std::string_view argument);
    void retr(std::string_view argument);
    void top(std::string_view argument);
    void dele(std::string_view argument);
    void rset(std::string_view argument);
    void noop(std::string_view argument);
    void quit(std::string_view argument);

    void log_in_if(bool proved);

    // The mail of that number, if there is one that is not deleted; if not, that is answered.
    listed_mail* find(std::string_view number);
    // Answers LIST or UIDL: a line made by the function for one mail or for each.
    template <class Describe>
    void        answer_listing(std::string_view argument, Describe describe);
    void        send_mail(std::string_view number, std::size_t max_body_lines);
    std::string summary() const;  // "count bytes" of what is not deleted

    std::string              stamp_;  // of the banner
    std::string              name_;   // that USER gave
    bool                     logged_in_ = false;
    std::vector<listed_mail> mails_;
};

}  // namespace zelieml::mailserver

#endif
