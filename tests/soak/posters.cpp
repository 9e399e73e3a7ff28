#include "tests/soak/posters.h"

#include <cstdio>

#include "tests/soak/server.h"
#include "tests/soak/texts.h"
#include "zelieml.h"

namespace zelieml::test
{

namespace
{

constexpr int of_each_process = 300;

std::string body_of(unsigned number)
{
    constexpr unsigned large_period = 50;
    constexpr int      large_lines  = 1000;

    std::string body = "Tray 2 is empty.\n.\n";
    for (int i = 0; number % large_period == 0 && i < large_lines; ++i) {
        body += "It is still empty.\n";
    }
    std::string end = numbered_text(text_end, number);
    return body + end.replace(end.size() - 2, 2, "\n");
}

// How many mails are on their way is counted before and after: some more than the limit is no harm.
bool wait_for_room()
{
    bool goes_on = load_goes_on();
    begin_step("waits for room in the queue");
    while (goes_on && book->in_flight >= max_in_flight) {
        ::usleep(1000);
        goes_on = book->now == stage::load || load_goes_on();
    }
    return goes_on;
}

void post_file(site const& where)
{
    unsigned const    number = enter_mail(way::main_engine, fate_of_next());
    std::string const path   = where.main.file("posted " + std::to_string(number) + ".sme");
    expect(eml_msg_save(message(number).get(), path.c_str()) == 0, "eml_msg_save");
    expect(eml_post_message_file_with_stocksymbol(path.c_str(), where.main.symbol.c_str()) == 0,
           "eml_post_message_file_with_stocksymbol");
}

// A file that no notification names: the engine finds it.
void leave_file(site const& where)
{
    unsigned const    number = enter_mail(way::main_engine, fate_of_next());
    std::string const path   = where.main.file("left " + std::to_string(number));
    expect(eml_msg_save(message(number).get(), path.c_str()) == 0, "eml_msg_save");
    expect(std::rename(path.c_str(), (path + ".sme").c_str()) == 0, "rename");
}

void send_and_wait(site const& where)
{
    unsigned const number = enter_mail(way::poster, fate::taken);
    void*          result = nullptr;
    eml_send_e     code   = eml_send_error_other;
    char           text[64];
    expect(eml_post_sync(where.main.work.c_str(), message(number).get(), &result) == 0 &&
               eml_cb_get_code(result, &code) == 0 && code == eml_send_ok &&
               eml_cb_get_message(result, text, sizeof text) == 0 &&
               text == numbered_text(reply_goodbye, number),
           "eml_post_sync");
    eml_cb_delete(result);
    settle_mail();
}

}  // namespace

message::message(unsigned number)
{
    std::string const address = numbered_text("%u@soak.test", number);
    expect(eml_msg_create(&record_) == 0 && eml_msg_set_from(record_, "soak@soak.test") == 0 &&
               eml_msg_set_replyto(record_, address.c_str()) == 0 &&
               eml_msg_set_to(record_, address.c_str()) == 0 &&
               eml_msg_set_subject(record_, "soak") == 0 &&
               // So that the server reads the body as it is.
               eml_msg_set_encoding(record_, eml_encoding_iso2022jp) == 0 &&
               eml_msg_set_body(record_, body_of(number).c_str()) == 0,
           "a message");
}

message::~message()
{
    eml_msg_destroy(record_);
}

unsigned post_to(place const& engine, way sender, fate end)
{
    unsigned const number = enter_mail(sender, end);
    expect(eml_post_with_stocksymbol(engine.work.c_str(), engine.symbol.c_str(),
                                     message(number).get()) == 0,
           "eml_post_with_stocksymbol");
    return number;
}

unsigned post_to(void* eml, way sender, fate end)
{
    unsigned const number = enter_mail(sender, end);
    expect(eml_post_sys(eml, message(number).get()) == 0, "eml_post_sys");
    return number;
}

void post_in_host(actor self, void* eml, place const& engine)
{
    acting const here(self);
    for (unsigned posted = 0; wait_for_room(); ++posted) {
        begin_step("posts");
        if (posted % 2 == 0) {
            post_to(eml, way::main_engine, fate_of_next());
        } else {
            post_to(engine, way::main_engine, fate_of_next());
        }
    }
}

void post_some(actor self, site const& where)
{
    constexpr int period     = 100;
    constexpr int file_posts = 20;  // of so many
    constexpr int sync_posts = 10;
    constexpr int files_left = 1;

    acting const here(self);
    for (int i = 0; i < of_each_process && wait_for_room(); ++i) {
        int const turn = i % period;
        begin_step("posts");
        if (turn < file_posts) {
            post_file(where);
        } else if (turn < file_posts + sync_posts) {
            begin_step("eml_post_sync");
            send_and_wait(where);
        } else if (turn < file_posts + sync_posts + files_left) {
            leave_file(where);
        } else {
            post_to(where.main, way::main_engine, fate_of_next());
        }
    }
}

}  // namespace zelieml::test
