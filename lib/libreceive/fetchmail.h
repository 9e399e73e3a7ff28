// fetchmail.h - fetch mails from a POP3 server (RFC 1939), and delete them there
//
// Every mail that is fetched is deleted on the server, whatever becomes of it here.
//
// All functions return 0 for success and -1 for failure unless they say otherwise. A session that
// fails between its greeting and its QUIT is closed at once: the server then deletes nothing. How
// long a call takes is up to the server: see pop.h. Any thread; a server record belongs to one of
// them while a call uses it.

#ifndef ZELIEML_LIBRECEIVE_FETCHMAIL_H
#define ZELIEML_LIBRECEIVE_FETCHMAIL_H

#include <cstdint>
#include <string>
#include <vector>

#include "libaccess/libaccess.h"
#include "libsendw/pop.h"

namespace zelieml
{

// What the sender line and the subject line of a mail begin with (RFC 5322), as they are searched.
constexpr char key_from[]    = "From: ";
constexpr char key_subject[] = "Subject: ";

// What one session saw of the mailbox: what it takes to notice that it never gets smaller.
struct mailbox_state {
    int  count        = 0;      // mails, as STAT says
    int  size         = 0;      // bytes, as STAT says
    bool dele_refused = false;  // a DELE of this session
};

// fetchmail_get_one_mail - fetch and delete the first mail of a mailbox, in a session of its own
//
// server         the record
// fetched        receives 1 when from and subject are those of a mail, else 0: the mailbox is
//                empty, or the mail has more lines than are taken
// remaining      receives the number of mails that are left after this one
// from, subject  receive the first line that contains "From: " and "Subject: ", anywhere in the
//                mail; empty when there is none
// reply          receives the server's last line, also on failure
// mailbox        receives what the session saw of it
//
// Fails when there is no session, the login or STAT is refused, the mail cannot be fetched, or
// QUIT is not answered. A refused DELE is no failure. On failure fetched and remaining are not to
// be relied on, and the mail is still on the server unless only the answer to QUIT is missing.
int fetchmail_get_one_mail(_s_mailserver const& server, std::int32_t& fetched,
                           std::int32_t& remaining, std::string& from, std::string& subject,
                           std::string& reply, mailbox_state& mailbox);

// delete_keyword - what follows the first occurrence of key; the whole text when there is none
std::string delete_keyword(std::string const& text, char const* key);

// fetchmail_get_mails - fetch and delete all mails of a mailbox in one session; no other unit calls
// it, deliberately, see docs/ODDITIES.md
//
// server          the record
// froms, subjects the lines of each mail are appended, as for fetchmail_get_one_mail
// reply           receives the server's last line, also on failure
//
// Fails like fetchmail_get_one_mail, and when a mail has more lines than are taken, since what is
// unread of it would be taken for the next answer. Nothing is deleted then.
int fetchmail_get_mails(_s_mailserver const& server, std::vector<std::string>& froms,
                        std::vector<std::string>& subjects, std::string& reply);

// The steps of fetchmail_get_one_mail and fetchmail_get_mails.

// is_apop - whether to log in by APOP: the authentication type is "apop", exactly
//
// server  the record; it has an authentication type
bool is_apop(_s_mailserver const& server);

// fetch_mails - the mails 1 to count of an open mailbox; froms and subjects as above
int fetch_mails(_s_pop* session, int count, std::vector<std::string>& froms,
                std::vector<std::string>& subjects);

// delete_mails - mark the mails 1 to count as deleted
//
// refused  receives whether the server refused one of them, or was lost; the others are tried
//
// Returns 0.
int delete_mails(_s_pop* session, int count, bool& refused);

// find_item - the first line that contains key anywhere; an empty text when there is none
std::string find_item(std::vector<std::string> const& lines, char const* key);

}  // namespace zelieml

#endif
