// libreceive.h - empty a POP3 mailbox and keep sender and subject of each mail
//
// Code outside this unit holds the list of received mails as a void* handle. It has two views of a
// mail: the first lines that contain "From: " and "Subject: ", exactly as the server sent them,
// without line ends; and the fields of its header, see mail_header.h.
//
// Threads: any, but only one at a time for one list.

#ifndef ZELIEML_LIBRECEIVE_LIBRECEIVE_H
#define ZELIEML_LIBRECEIVE_LIBRECEIVE_H

#include <cstdint>
#include <string>
#include <vector>

#include "libaccess/libaccess.h"
#include "libreceive/fetchmail.h"
#include "libreceive/mail_header.h"

namespace zelieml
{

// Entry i of each list belongs to one mail; a line is empty when the mail had no such line.
struct _s_receive_msg {
    std::int32_t             count = 0;
    std::vector<std::string> from;         // "From: ..."
    std::vector<std::string> subject;      // "Subject: ..."
    std::vector<std::string> header = {};  // see mail_header.h
};

// receive_msg_create - make an empty list
//
// list  receives the handle, which the caller frees with receive_msg_destroy
//
// Returns 0, or -1 when list is null. Lack of memory is thrown as std::bad_alloc.
int receive_msg_create(void** list);

// receive_msg_destroy - free a list. Null is accepted. Returns 0.
int receive_msg_destroy(void* list);

// receive_msg_count - number of mails in a list, 0 for null
int receive_msg_count(void* list);

// How a mailbox is emptied.
enum class receiving : char {
    plain,   // any greeting will do; what was fetched before a failure is dropped
    careful  // nothing is said to a server that does not greet as one of POP3; mails that were
             // fetched before a failure are kept, also one whose deletion the server has not
             // confirmed, and one that stays only once
};

// receive_mails - fetch all mails of a mailbox and delete them on the server
//
// server   the server record; only its POP3 half is used
// list     receives the mails, in mailbox order; emptied first
// domains  allowed sender domains, see analyze.h; null or empty: all. Mails of other senders are
//          deleted on the server too, and lost.
// reply    receives the server's last line of the last session; null when it is not wanted
// how      it is done
//
// Holds one session per mail, until the mailbox is empty. A mail of more than 2000 lines is
// deleted and left out.
//
// Returns 0. Returns -1 when server or list is null or any session fails; with plain, the list is then
// empty, and the mails of earlier sessions are lost. Also fails after 1000 sessions in a row without
// progress: each brought the same mail as the one before, as far as it was read, and STAT gave no
// smaller number than ever since that mail first came. What the server says to DELE does not count.
int receive_mails(void* server, void* list, char const* domains, std::string* reply = nullptr,
                  receiving how = receiving::plain);

// receive_mails_sized - receive_mails, with a note of why it failed
//
// server, list, domains  as for receive_mails
// reply                  receives the server's last line; may be null
// reason                 receives the sentence of the note; may be null
// reply_size, reason_size  bytes there; what does not fit is cut off
//
// Returns what receive_mails returns, and -1 when there is no memory.
int receive_mails_sized(void* server, void* list, char const* domains, char* reply, int reply_size,
                        char* reason, int reason_size);

// receive_mails_result - receive_mails, with a result record
//
// result  receives the record, which the caller frees with cb_destroy, or null when there is no
//         memory; null is a failure with nothing done
//
// Receives carefully. When memory runs out, the mail is missing that there was none for; with domains,
// all may be.
//
// Returns what receive_mails returns, and -1 when there is no memory.
int receive_mails_result(void* server, void* list, char const* domains, void** result);

// receive_msg_get_from, receive_msg_get_subject - copy a line without its "From: " or "Subject: "
//
// list    the list
// index   0 or more
// buffer  receives what follows the first "From: " or "Subject: " of the line, and a NUL
// length  bytes at buffer; the whole line, its prefix included, and a NUL must fit
//
// Returns 0. Returns -1, leaving the buffer unchanged, when a pointer is null, there is no such
// mail, or the line does not fit.
int receive_msg_get_from(void* list, int index, char* buffer, int length);
int receive_msg_get_subject(void* list, int index, char* buffer, int length);

// receive_msg_get_sender_utf8, _subject_utf8, _messageid, _date - copy a field of the header
//
// list, index  as above
// buffer       receives the field and a NUL: sender and subject as decoded_text has them, the others
//              as plain_text does, see encoded_words.h
// length       bytes at buffer
//
// Returns 0. Returns -1, leaving the buffer unchanged, when a pointer is null, there is no such
// mail, or the text does not fit.
int receive_msg_get_sender_utf8(void* list, int index, char* buffer, int length);
int receive_msg_get_subject_utf8(void* list, int index, char* buffer, int length);
int receive_msg_get_messageid(void* list, int index, char* buffer, int length);
int receive_msg_get_date(void* list, int index, char* buffer, int length);

// The steps of receive_mails.

// receive_msg_init - empty a list
void receive_msg_init(_s_receive_msg& list);

// process_one_mail - one session: append what it fetched
//
// server           the record
// remaining        receives the number of mails that are left
// froms, subjects  one line each is appended when a mail was fetched, also if the session fails then
// mail             as for fetchmail_get_one_mail
// last_line        receives the server's last line, also on failure; null when it is not wanted
// greeting         as for fetchmail_get_one_mail
//
// Returns 0, or -1 when the session failed.
int process_one_mail(_s_mailserver const& server, std::int32_t& remaining,
                     std::vector<std::string>& froms, std::vector<std::string>& subjects,
                     std::vector<std::string>* mail = nullptr, std::string* last_line = nullptr,
                     pop_greeting greeting = pop_greeting::any);

}  // namespace zelieml

#endif
