// pop.cpp - POP3 and receiving
//
// The input is a byte, its bits the login and the function, the allowed domains, and what the
// servers say.

#include <algorithm>
#include <vector>

#include "fuzz/support/fuzz.h"
#include "fuzz/support/mail_text.h"
#include "fuzz/support/scarce_memory.h"
#include "libreceive/fetchmail.h"
#include "libreceive/libreceive.h"
#include "tests/support/fake_mail_server.h"

using namespace zelieml;
using fuzz::begins_with;
using fuzz::require;

namespace
{

// The login, then STAT, RETR, DELE and QUIT.
void check_session(test::sent_strings const& sent, bool apop, bool one_mail)
{
    std::vector<char const*> steps = {"stat\r\n", "retr ", "dele ", "quit\r\n"};
    if (apop) {
        steps.insert(steps.begin(), "apop anna ");
    } else {
        steps.insert(steps.begin(), {"user anna\r\n", "pass secret\r\n"});
    }
    std::size_t const stat = apop ? 1 : 2;
    std::size_t       step = 0;
    for (std::size_t i = 0; i < sent.size(); ++i) {
        fuzz::require_command_line(sent[i]);
        if (i <= stat) {
            step = i;
        } else {
            while (step < steps.size() && !begins_with(sent[i], steps[step])) {
                ++step;
            }
        }
        require(step < steps.size() && begins_with(sent[i], steps[step]),
                "a session's commands come in their order");
    }
    for (char const* const once : {"retr ", "dele "}) {
        auto const count = std::count_if(sent.begin(), sent.end(), [&](std::string const& line) {
            return begins_with(line, once);
        });
        require(!one_mail || count <= 1, "a session fetches one mail");
    }
}

void check_line(void* list, int index, int (*get)(void*, int, char*, int), std::string const& line,
                char const* key)
{
    require(line.empty() || line.find(key) != std::string::npos, "a line has its key");
    std::string const wanted = delete_keyword(line, key);
    std::string       buffer(line.size() + 1, '#');
    int const         size = static_cast<int>(buffer.size());
    require(get(list, index, &buffer[0], size) == 0 && wanted == buffer.c_str(),
            "a line fits a buffer of its size");
    buffer.assign(buffer.size(), '#');
    require(get(list, index, &buffer[0], size - 1) == -1 &&
                buffer == std::string(buffer.size(), '#'),
            "a buffer that is too short is left alone");
}

void check_list(_s_receive_msg& list)
{
    auto const count = static_cast<std::size_t>(receive_msg_count(&list));
    require(list.from.size() == count && list.subject.size() == count &&
                list.header.size() == count,
            "every mail has a sender, a subject and a header");
    for (std::size_t i = 0; i < count; ++i) {
        int const index = static_cast<int>(i);
        check_line(&list, index, receive_msg_get_from, list.from[i], key_from);
        check_line(&list, index, receive_msg_get_subject, list.subject[i], key_subject);
    }
    char one = '#';
    require(receive_msg_get_from(&list, static_cast<int>(count), &one, 1) == -1 && one == '#',
            "there is no mail after the last one");
}

void receive(_s_mailserver& server, std::string const& domains, fuzz::memory_choice choice)
{
    _s_receive_msg list;
    list.count   = 1;
    list.from    = {"From: before"};
    list.subject = {"Subject: before"};
    list.header  = {"\n\n\n\n"};
    int result   = -1;
    fuzz::with_memory(choice, [&] { result = receive_mails(&server, &list, domains.c_str()); });
    require(result == 0 || (result == -1 && list.count == 0), "a failure leaves the list empty");
    check_list(list);
}

void fetch_all(_s_mailserver const& server, fuzz::memory_choice choice)
{
    std::vector<std::string> from, subject;
    std::string              reply;
    int                      result = -1;
    auto const               memory = fuzz::with_memory(
                      choice, [&] { result = fetchmail_get_mails(server, from, subject, reply); });
    require(result == 0 || result == -1, "fetching fails or does not");
    require(from.size() == subject.size() || memory == fuzz::memory_result::threw,
            "every mail has a sender and a subject");
}

}  // namespace

int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    fuzz::no_descriptor_left const guard;
    fuzz::input                    input(data, size);
    unsigned char const            choice   = input.byte();
    bool const                     apop     = choice % 2 == 1;
    bool const                     one_mail = choice / 2 % 2 == 0;
    std::string const              domains  = input.c_string();

    _s_mailserver server;
    set_pop(&server, test::server_name, "anna", "secret", apop ? "apop" : "pop", 110, 0);
    test::fake_mail_servers const servers(test::played_servers(input.rest()));
    if (one_mail) {
        receive(server, domains, input.memory());
    } else {
        fetch_all(server, input.memory());
    }
    for (test::sent_strings const& sent : servers.record().sent) {
        check_session(sent, apop, one_mail);
    }
    return 0;
}
