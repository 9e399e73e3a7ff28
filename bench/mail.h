// mail.h - the mail that the benchmarks post, and the settings it is sent with

#ifndef ZELIEML_BENCH_MAIL_H
#define ZELIEML_BENCH_MAIL_H

#include <string>

#include "zelieml.h"

// login  with CRAM-MD5, as "user" with the password "password"
inline void write_settings(std::string const& workdir, std::string const& port, bool login = false)
{
    std::string const    conf   = workdir + "/zelismes.cf";
    unsigned char        word[] = "password";
    unsigned char* const stored = eml_encrypt_passwd(word);
    eml_cf_set_string("smtp_server", "127.0.0.1", conf.c_str());
    eml_cf_set_string("smtp_port", port.c_str(), conf.c_str());
    eml_cf_set_string("smtp_auth", login ? "yes" : "no", conf.c_str());
    eml_cf_set_string("smtp_auth_type", "cram-md5", conf.c_str());
    eml_cf_set_string("smtp_account", "user", conf.c_str());
    eml_cf_set_string("smtp_passwd", reinterpret_cast<char const*>(stored), conf.c_str());
    eml_cf_set_string("pop_before_smtp", "no", conf.c_str());
    eml_cf_set_string("subject_use_encoding", "yes", conf.c_str());
    eml_encrypt_free_passwd(stored);
}

inline char const usual_recipient[] = "anna@office.test";
inline char const usual_body[] =
    "Printer 7 on the third floor says:\ntray 2 is empty, please refill.\n";

// So many bytes of a status mail's text, the usual one for 0.
inline std::string text_of(std::size_t bytes)
{
    if (bytes == 0) {
        return usual_body;
    }
    std::string text;
    text.reserve(bytes + sizeof usual_body);
    while (text.size() < bytes) {
        text += usual_body;
    }
    text.resize(bytes);
    return text;
}

// A message record, to be freed with eml_msg_destroy.
inline void* make_mail(std::string const& body = usual_body,
                       std::string const& to   = usual_recipient)
{
    void* msg = nullptr;
    eml_msg_create(&msg);
    eml_msg_set_from(msg, "printer@office.test");
    eml_msg_set_to(msg, to.c_str());
    eml_msg_set_replyto(msg, "helpdesk@office.test");
    eml_msg_set_subject(msg, "Printer 7: tray 2 is empty");
    eml_msg_set_body(msg, body.c_str());
    return msg;
}

// Posts a mail and waits for its delivery. Returns 0 or -1.
inline int post_and_wait(std::string const& workdir, void* msg)
{
    void*     result = nullptr;
    int const status = eml_post_sync(workdir.c_str(), msg, &result);
    eml_cb_delete(result);
    return status;
}

// The same with a record of its own.
inline int send_mail(std::string const& workdir, std::string const& body = usual_body)
{
    void* const msg    = make_mail(body);
    int const   status = post_and_wait(workdir, msg);
    eml_msg_destroy(msg);
    return status;
}

#endif
