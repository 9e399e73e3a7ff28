// smtp_session.h - the server's side of a mail transfer
//
// SMTP as in RFC 5321, authentication as in RFC 4954. More forgiving than the RFC where clients
// are known to differ: blanks after "MAIL FROM:" and "RCPT TO:", lines that end with LF alone.

#ifndef ZELIEML_TOOLS_MAILSERVER_SMTP_SESSION_H
#define ZELIEML_TOOLS_MAILSERVER_SMTP_SESSION_H

#include "tools/mailserver/session.h"

namespace zelieml::mailserver
{

class smtp_session final : public session
{
public:
    smtp_session(service& shared, stream& peer, unsigned number)
        : session(shared, peer, number, protocol::smtp)
    {
    }

private:
    struct command;

    void             greet() override;
    void             obey(std::string const& verb, std::string_view argument) override;
    std::string_view plain_refusal() const override { return "550 5.0.0 refused on request"; }
    std::string_view line_too_long() const override { return "500 5.5.2 line too long"; }
    std::string_view idle_for_too_long() const override { return "421 4.4.2 idle for too long"; }

    void helo(std::string_view argument);
    void ehlo(std::string_view argument);
    void auth(std::string_view argument);
    void mail_from(std::string_view argument);
    void rcpt_to(std::string_view argument);
    void data(std::string_view argument);
    void rset(std::string_view argument);
    void noop(std::string_view argument);
    void vrfy(std::string_view argument);
    void help(std::string_view argument);
    void quit(std::string_view argument);

    void auth_cram_md5();
    void auth_login(std::optional<std::string> const& initial_response);
    void auth_plain(std::optional<std::string> const& initial_response);

    // Sends 334 with the text in Base64 and gives the client's decoded answer; nothing when there
    // is none, which is then dealt with.
    std::optional<std::string> ask(std::string_view text);
    void                       finish_auth(std::optional<std::string> const& user);

    bool        offers(std::string_view mechanism) const;
    std::string offered_mechanisms() const;
    void        begin_session(std::string_view client);

    std::string client_;            // as it greeted; empty: not yet
    bool        extended_ = false;  // it said EHLO
    std::string user_;              // who has logged in
    bool        has_sender_ = false;
    mail        mail_;
};

}  // namespace zelieml::mailserver

#endif
