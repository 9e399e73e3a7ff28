// fetchmail.h - fetch mails from a POP3 server (RFC 1939), and delete them there
//
// Every mail that is fetched is deleted on the server, whether it is kept here or not.
//
// All functions return 0 for success and -1 for failure unless they say otherwise. A session that
// fails between greeting and QUIT is closed at once, and the server then deletes nothing. How long
// a call takes depends on the server, see pop.h. Any thread, but only one at a time for one server
// record.

#ifndef ZELIEML_LIBRECEIVE_FETCHMAIL_H
#define ZELIEML_LIBRECEIVE_FETCHMAIL_H

#include <cstdint>
#include <string>
#include <vector>

#include "libaccess/libaccess.h"
#include "libsendw/pop.h"

namespace zelieml
{

// How the sender and subject lines of a mail begin (RFC 5322).
constexpr char key_from[]    = "From: ";
constexpr char key_subject[] = "Subject: ";

// How a server has to greet.
enum class pop_greeting : char {
    any,
    of_pop3  // to a server that does not, nothing is said
};

// fetchmail_get_one_mail - fetch and delete the first mail of a mailbox, in a session of its own
//
// server         the record
// fetched        receives 1 when a mail was fetched; 0 when the mailbox is empty or the mail has
//                more than 2000 lines
// remaining      receives the number of mails left after this one
// from, subject  receive the first line that contains "From: " and "Subject: ", anywhere in the
//                mail; empty when there is none
// reply          receives the server's last line, also on failure
// mail           receives the lines of the mail as far as they were read, without its status line;
//                null when they are not wanted. Unchanged when the mailbox is empty.
// greeting       that the server has to give
//
// Fails when the session cannot be started, the server greets otherwise, the login or STAT is
// refused, the mail cannot be fetched, or QUIT is not answered. A refused DELE is not a failure. On
// failure fetched and remaining are undefined, and the mail is still on the server unless only the
// reply to QUIT is missing.
int fetchmail_get_one_mail(_s_mailserver const& server, std::int32_t& fetched,
                           std::int32_t& remaining, std::string& from, std::string& subject,
                           std::string& reply, std::vector<std::string>* mail = nullptr,
                           pop_greeting greeting = pop_greeting::any);

// delete_keyword - what follows the first occurrence of key; the whole string when there is none
std::string delete_keyword(std::string const& text, char const* key);

// fetchmail_get_mails - fetch and delete all mails of a mailbox in one session
//
// server           the record
// froms, subjects  the lines of each mail are appended, as for fetchmail_get_one_mail
// reply            receives the server's last line, also on failure
//
// Fails like fetchmail_get_one_mail, and also when a mail has more than 2000 lines, since the
// unread rest would be taken for the next reply; then nothing is deleted. No other unit calls it:
// deliberate, see docs/ODDITIES.md.
int fetchmail_get_mails(_s_mailserver const& server, std::vector<std::string>& froms,
                        std::vector<std::string>& subjects, std::string& reply);

// The steps of fetchmail_get_one_mail and fetchmail_get_mails.

// is_apop - whether to log in with APOP: the authentication type is exactly "apop"
//
// server  the record; its authentication type is not null
bool is_apop(_s_mailserver const& server);

// fetch_mails - fetch mails 1 to count of an open mailbox; froms and subjects as above
int fetch_mails(_s_pop* session, int count, std::vector<std::string>& froms,
                std::vector<std::string>& subjects);

// delete_mails - mark mails 1 to count as deleted
//
// Returns 0, also when the server refuses one of them: the others are tried all the same.
int delete_mails(_s_pop* session, int count);

// find_item - the first line that contains key anywhere; an empty string when there is none
std::string find_item(std::vector<std::string> const& lines, char const* key);

}  // namespace zelieml

#endif
