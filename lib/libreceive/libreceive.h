// libreceive.h - empty a POP3 mailbox and keep sender and subject of each mail
//
// Code outside this unit holds the list of received mails as a void* handle. Its strings are header
// lines exactly as the server sent them, without line ends: encoded words stay encoded, addresses
// are not parsed.
//
// Threads: any, but only one at a time for one list.

#ifndef ZELIEML_LIBRECEIVE_LIBRECEIVE_H
#define ZELIEML_LIBRECEIVE_LIBRECEIVE_H

#include <cstdint>
#include <string>
#include <vector>

#include "libaccess/libaccess.h"
#include "libreceive/fetchmail.h"

namespace zelieml
{

// Entry i of both lists belongs to one mail; it is empty when the mail had no such line.
struct _s_receive_msg {
    std::int32_t             count = 0;
    std::vector<std::string> from;     // "From: ..."
    std::vector<std::string> subject;  // "Subject: ..."
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

// receive_mails - fetch all mails of a mailbox and delete them on the server
//
// server   the server record; only its POP3 half is used
// list     receives the mails, in mailbox order; emptied first
// domains  allowed sender domains, see analyze.h; null or empty: all. Mails of other senders are
//          deleted on the server too, and lost.
//
// Holds one session per mail, until the mailbox is empty. A mail of more than 2000 lines is
// deleted and left out.
//
// Returns 0. Returns -1 when server or list is null or any session fails; the list is then empty,
// and the mails of earlier sessions are lost. Also fails after 1000 sessions in a row without
// progress: each brought the same mail as the one before, as far as it was read, and STAT gave no
// smaller number than ever since that mail first came. What the server says to DELE does not count.
int receive_mails(void* server, void* list, char const* domains);

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

// The steps of receive_mails.

// receive_msg_init - empty a list
void receive_msg_init(_s_receive_msg& list);

// process_one_mail - one session: append what it fetched
//
// server           the record
// remaining        receives the number of mails that are left
// froms, subjects  one line each is appended when a mail was fetched
// mail             as for fetchmail_get_one_mail
//
// Returns 0, or -1 when the session failed.
int process_one_mail(_s_mailserver const& server, std::int32_t& remaining,
                     std::vector<std::string>& froms, std::vector<std::string>& subjects,
                     std::vector<std::string>* mail = nullptr);

// copy_in_to_out - append the lines of in to out
void copy_in_to_out(std::vector<std::string> const& in, std::vector<std::string>& out);

}  // namespace zelieml

#endif
