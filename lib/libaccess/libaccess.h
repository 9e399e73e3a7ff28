// libaccess.h - server records, and a test login to the servers they name
//
// A server record holds what is needed to reach an SMTP and a POP3 server. It stores the caller's
// pointers, not copies: every text has to stay alive and unchanged until the last test, or the
// last receiving, with the record is over. Code outside this unit and libreceive holds it as a
// void* handle.
//
// Threads: any, but a record belongs to one of them while a call uses it.

#ifndef ZELIEML_LIBACCESS_LIBACCESS_H
#define ZELIEML_LIBACCESS_LIBACCESS_H

#include <cstdint>
#include <string>

#include "zelieml.h"

namespace zelieml
{

struct _s_mailserver {
    char const*  smtp_host       = nullptr;
    std::int32_t smtp_port       = 0;
    char const*  smtp_auth       = nullptr;  // "on" or "off", see smtp_ehlo2
    char const*  smtp_user       = nullptr;
    char const*  smtp_password   = nullptr;  // clear text
    char const*  pop_before_smtp = nullptr;  // "on": log in to POP3 before SMTP
    std::int32_t pop_wait        = 0;        // milliseconds after that login
    char const*  pop_host        = nullptr;
    std::int32_t pop_port        = 0;
    char const*  pop_user        = nullptr;
    char const*  pop_password    = nullptr;  // clear text
    char const*  pop_auth_type   = nullptr;  // "pop", "apop"; see pop_access and is_apop
};

// server_create - make a server record
//
// server  receives the handle; give it back with server_destroy
//
// Returns 0, or -1 when server is null. Lack of memory is thrown as std::bad_alloc.
int server_create(void** server);

// server_destroy - free a server record, not its texts. Null is accepted. Returns 0.
int server_destroy(void* server);

// set_pop - store the POP3 half of a record
//
// server                     the record
// host, user, password       kept as pointers; the password in clear text
// auth_type                  "pop" or "apop", kept as a pointer
// port                       port number
// wait_ms                    milliseconds to wait after the login that precedes SMTP
//
// Returns 0, or -1 for a null record. A null text makes the tests fail, not this call.
int set_pop(void* server, char const* host, char const* user, char const* password,
            char const* auth_type, int port, int wait_ms);

// set_smtp - store the SMTP half of a record
//
// server                the record
// host, user, password  kept as pointers; the password in clear text
// auth                  "on" or "off", kept as a pointer
// port                  port number
//
// Returns 0, or -1 for a null record. A null text makes the tests fail, not this call.
int set_smtp(void* server, char const* host, char const* user, char const* password,
             char const* auth, int port);

// pop_access - log in to the POP3 server of a record, and out again
//
// server    the record
// use_wait  wait as long as the record says after a good login
// reply     receives the server's last line
//
// Logs in by USER and PASS when the authentication type is "pop", exactly, and by APOP when it is
// anything else.
//
// Returns what pop_before_smtp returns, and send_other_failure when there is no record or it names
// no authentication type.
int pop_access(_s_mailserver const* server, bool use_wait, std::string& reply);

// access_receive - pop_access without the wait
int access_receive(_s_mailserver const* server, std::string& reply);

// access_send - greet the SMTP server of a record, log in where the record says so, and quit
//
// server           the record; stores pop_before_smtp
// pop_before_smtp  "on", exactly: log in to the POP3 server first, and wait. When that fails, the
//                  SMTP server is not contacted. The text has to live as long as the record's.
// reply            receives the server's last reply, all its lines with their CR LF
//
// Returns 0; what pop_access returned; or a send_result: send_not_connected,
// send_not_authenticated (EHLO or the login refused, or the authentication switch does not agree
// with the server; without QUIT), send_quit_refused, send_not_ended, and send_other_failure when
// an argument is null.
int access_send(_s_mailserver* server, char const* pop_before_smtp, std::string& reply);

// test_pop_auth - access_receive, with its result as the library's callers see it
//
// server   the record
// message  receives the server's last line and its NUL, however long it is; may be null
eml_send_e test_pop_auth(void* server, char* message);

// test_smtp_auth - access_send, with its result as the library's callers see it
//
// server           the record
// pop_before_smtp  see access_send
// message          receives the server's last reply and its NUL, however long it is; may be null
eml_send_e test_smtp_auth(void* server, char const* pop_before_smtp, char* message);

}  // namespace zelieml

#endif
