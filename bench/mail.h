// mail.h - the mail that the benchmarks post, and the settings it is sent with

#ifndef ZELIEML_BENCH_MAIL_H
#define ZELIEML_BENCH_MAIL_H

#include <string>

#include "zelieml.h"

inline void write_settings(std::string const& workdir, std::string const& port)
{
    std::string const conf = workdir + "/zelismes.cf";
    eml_cf_set_string("smtp_server", "127.0.0.1", conf.c_str());
    eml_cf_set_string("smtp_port", port.c_str(), conf.c_str());
    eml_cf_set_string("smtp_auth", "no", conf.c_str());
    eml_cf_set_string("pop_before_smtp", "no", conf.c_str());
    eml_cf_set_string("subject_use_encoding", "yes", conf.c_str());
}

// A message record, to be freed with eml_msg_destroy.
inline void* make_mail()
{
    void* msg = nullptr;
    eml_msg_create(&msg);
    eml_msg_set_from(msg, "printer@office.test");
    eml_msg_set_to(msg, "anna@office.test");
    eml_msg_set_replyto(msg, "helpdesk@office.test");
    eml_msg_set_subject(msg, "Printer 7: tray 2 is empty");
    eml_msg_set_body(msg, "Printer 7 on the third floor says:\ntray 2 is empty, please refill.\n");
    return msg;
}

// Posts one mail and waits for its delivery. Returns 0 or -1.
inline int send_mail(std::string const& workdir)
{
    void*     msg    = make_mail();
    void*     result = nullptr;
    int const status = eml_post_sync(workdir.c_str(), msg, &result);
    eml_cb_delete(result);
    eml_msg_destroy(msg);
    return status;
}

#endif
