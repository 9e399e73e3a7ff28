// libaccess.h - server records, and test logins to the servers they name
//
// A server record holds what is needed to reach an SMTP and a POP3 server. But for TLS it stores
// the caller's pointers, not copies: every string must stay valid and unchanged until the last test
// login or receiving with the record is over. Code outside this unit and libreceive holds it as a
// void* handle.
//
// Threads: any, but only one at a time for one record.

#ifndef ZELIEML_LIBACCESS_LIBACCESS_H
#define ZELIEML_LIBACCESS_LIBACCESS_H

#include <cstdint>
#include <string>

#include "libsendw/tunnel.h"
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
    tls_choice   smtp_tls        = {};
    tls_choice   pop_tls         = {};
};

// server_create - make a server record
//
// server  receives the handle, which the caller frees with server_destroy
//
// Returns 0, or -1 when server is null. Lack of memory is thrown as std::bad_alloc.
int server_create(void** server);

// server_destroy - free a server record, but not its strings. Null is accepted. Returns 0.
int server_destroy(void* server);

// set_pop - store the POP3 half of a record
//
// server                     the record
// host, user, password       kept as pointers; the password in clear text
// auth_type                  "pop" or "apop", kept as a pointer
// port                       port number
// wait_ms                    milliseconds to wait after a login that precedes SMTP
//
// Returns 0, or -1 for a null record. A null string makes the test logins fail, not this call.
int set_pop(void* server, char const* host, char const* user, char const* password,
            char const* auth_type, int port, int wait_ms);

// set_smtp - store the SMTP half of a record
//
// server                the record
// host, user, password  kept as pointers; the password in clear text
// auth                  "on" or "off", kept as a pointer
// port                  port number
//
// Returns 0, or -1 for a null record. A null string makes the test logins fail, not this call.
int set_smtp(void* server, char const* host, char const* user, char const* password,
             char const* auth, int port);

// set_tls - store the TLS that a record asks for
//
// server             the record
// smtp_tls, pop_tls  "starttls" or "tls", copied; "no" or null for none. With anything else there
//                    is no connection.
// ca_file            the full path of a file in PEM, copied; null for the authorities that the
//                    system trusts
//
// Returns 0, or -1 for a null record. Lack of memory is thrown as std::bad_alloc: there is no
// connection then until the next call.
int set_tls(void* server, char const* smtp_tls, char const* pop_tls, char const* ca_file);

// pop_access - log in to the POP3 server of a record and quit
//
// server    the record
// use_wait  wait for the record's wait_ms after a successful login
// reply     receives the server's last line
//
// Logs in with USER and PASS when the authentication type is exactly "pop", otherwise with APOP.
//
// Returns what pop_before_smtp returns, or send_other_failure when the record or its authentication
// type is null.
int pop_access(_s_mailserver const* server, bool use_wait, std::string& reply);

// access_receive - pop_access without the wait
int access_receive(_s_mailserver const* server, std::string& reply);

// access_send - greet the SMTP server of a record, log in if the record says so, and quit
//
// server           the record; it stores pop_before_smtp
// pop_before_smtp  exactly "on": log in to the POP3 server first, and wait. When that fails, the
//                  SMTP server is not contacted. The pointer is stored like the record's others.
// reply            receives the server's last reply, all its lines with their CR LF
//
// Returns 0, what pop_access returned, or a send_result: send_not_connected; send_not_authenticated
// (EHLO or the login was refused, or the authentication switch disagrees with the server; no QUIT
// is sent); send_quit_refused; send_not_ended; send_other_failure when an argument is null.
int access_send(_s_mailserver* server, char const* pop_before_smtp, std::string& reply);

// test_pop_auth - access_receive, its result as a code
//
// server   the record
// message  receives the server's last line and its NUL, whatever their length; may be null
eml_send_e test_pop_auth(void* server, char* message);

// test_smtp_auth - access_send, its result as a code
//
// server           the record
// pop_before_smtp  see access_send
// message          receives the server's last reply and its NUL, whatever their length; may be null
eml_send_e test_smtp_auth(void* server, char const* pop_before_smtp, char* message);

// test_pop_auth_sized, test_smtp_auth_sized - the same, with buffers of known size
//
// reply, reply_size    receive as much of the server's last line or reply as fits, see copy_cut
// reason, reason_size  receive as much of the reason as fits, or an empty string
eml_send_e test_pop_auth_sized(void* server, char* reply, int reply_size, char* reason,
                               int reason_size);
eml_send_e test_smtp_auth_sized(void* server, char const* pop_before_smtp, char* reply,
                                int reply_size, char* reason, int reason_size);

}  // namespace zelieml

#endif
