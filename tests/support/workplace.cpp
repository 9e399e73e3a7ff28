#include "tests/support/workplace.h"

#include <algorithm>
#include <cstdlib>
#include <gtest/gtest.h>
#include <iterator>
#include <ostream>
#include <sys/stat.h>

#include "tests/support/skip.h"
#include "tests/support/wait_until.h"

namespace zelieml::test
{

notification_root::notification_root()
{
    ::mkdir(dir.file("run").c_str(), 0777);
    ::mkdir(dir.file("tmp").c_str(), 0777);
    ::setenv("ZELIEML_NOTIFICATION_ROOT", dir.path().c_str(), 1);
}

strings notification_root::sockets() const
{
    strings found;
    for (std::string const& top : {dir.file("run"), dir.file("tmp")}) {
        for (std::string const& place : list_directory(top)) {
            for (std::string const& name : list_directory(top + "/" + place)) {
                found.push_back(top + "/" + place + "/" + name);
            }
        }
    }
    return found;
}

std::string settings_for(std::uint16_t smtp_port)
{
    return "smtp_server = 127.0.0.1\r\nsmtp_port = " + std::to_string(smtp_port) + "\r\n";
}

strings messages_in(std::string const& workdir)
{
    strings names = list_directory(workdir);
    names.erase(std::remove(names.begin(), names.end(), "zelismes.cf"), names.end());
    return names;
}

workplace::workplace(std::uint16_t smtp_port, std::string const& more_settings)
    : path_(dir_.file("work"))
{
    ::mkdir(path(), 0777);
    write_file(file("zelismes.cf"),
               settings_for(smtp_port) + "subject_use_encoding = no\r\n" + more_settings);
}

void* new_mail(std::string const& subject, std::string const& body)
{
    void* msg = nullptr;
    EXPECT_EQ(eml_msg_create(&msg), 0);
    EXPECT_EQ(eml_msg_set_from(msg, "tim@a.test"), 0);
    EXPECT_EQ(eml_msg_set_to(msg, "anna@b.test"), 0);
    EXPECT_EQ(eml_msg_set_subject(msg, subject.c_str()), 0);
    EXPECT_EQ(eml_msg_set_body(msg, body.c_str()), 0);
    return msg;
}

int post_mail(std::string const& workdir, std::string const& symbol, std::string const& subject)
{
    void* const msg    = new_mail(subject);
    int const   status = eml_post_with_stocksymbol(workdir.c_str(), symbol.c_str(), msg);
    eml_msg_destroy(msg);
    return status;
}

strings subjects_of(std::vector<mailserver::mail> const& mails)
{
    std::string const label = "\r\nSubject: ";
    strings           subjects;
    for (mailserver::mail const& mail : mails) {
        std::size_t const begin = mail.text.find(label) + label.size();
        subjects.push_back(mail.text.substr(begin, mail.text.find("\r\n", begin) - begin));
    }
    return subjects;
}

std::string subject_of_file(std::string const& path)
{
    char  text[64] = "";
    void* msg      = nullptr;
    if (eml_msg_load(&msg, path.c_str()) == 0) {
        eml_msg_get_subject(msg, text, sizeof text);
    }
    eml_msg_destroy(msg);
    return text;
}

strings sorted(strings texts)
{
    std::sort(texts.begin(), texts.end());
    return texts;
}

strings numbered(std::string const& name, int count)
{
    strings names;
    for (int i = 0; i < count; ++i) {
        names.push_back(name + "." + std::to_string(i));
    }
    return names;
}

strings beginning_with(std::string const& start, strings const& texts)
{
    strings found;
    std::copy_if(texts.begin(), texts.end(), std::back_inserter(found),
                 [&](std::string const& text) { return text.rfind(start, 0) == 0; });
    return found;
}

bool operator==(result const& a, result const& b)
{
    return a.code == b.code && a.text == b.text;
}

void PrintTo(result const& r, std::ostream* out)
{
    *out << r.code << " " << r.text;
}

int result_list::note(void* record, void* user)
{
    char       text[65536] = "(no text)";
    eml_send_e code        = eml_send_32_bits;
    eml_cb_get_code(record, &code);
    eml_cb_get_message(record, text, sizeof text);

    auto* const           list = static_cast<result_list*>(user);
    std::function<void()> now;
    {
        std::lock_guard<std::mutex> const hold(list->guard_);
        now = list->action;  // the list may be gone once a test has seen the result
        list->results_.push_back({code, text});
        list->caller_ = this_thread();
        list->changed_.notify_all();
    }
    if (now) {
        now();
    }
    return 0;
}

std::vector<result> result_list::all() const
{
    std::lock_guard<std::mutex> const hold(guard_);
    return results_;
}

std::vector<eml_send_e> result_list::codes() const
{
    std::vector<eml_send_e> codes;
    for (result const& r : all()) {
        codes.push_back(r.code);
    }
    return codes;
}

std::size_t result_list::count() const
{
    std::lock_guard<std::mutex> const hold(guard_);
    return results_.size();
}

thread_id result_list::caller() const
{
    std::lock_guard<std::mutex> const hold(guard_);
    return caller_;
}

bool result_list::wait_for(std::size_t count, std::chrono::milliseconds limit)
{
    std::unique_lock<std::mutex> hold(guard_);
    return changed_.wait_for(hold, limit, [&] { return results_.size() >= count; });
}

running_engine::running_engine(workplace const& work, std::string const& symbol)
{
    EXPECT_EQ(eml_start_with_stocksymbol(work.path(), symbol.c_str(), &eml_), 0);
    EXPECT_EQ(eml_set_callback(eml_, result_list::note, &results), 0);
}

void running_engine::stop()
{
    if (eml_ != nullptr) {
        EXPECT_EQ(eml_stop(eml_), 0);
        eml_ = nullptr;
    }
}

void wait_for_registration()
{
    constexpr int enough_ms = 100;
    if (!has_backend("linux")) {
        wait_ms(enough_ms);
    }
}

}  // namespace zelieml::test
