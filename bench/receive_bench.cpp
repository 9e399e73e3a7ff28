// receive_bench.cpp - emptying a mailbox: eml_receive_mails beside a bare client
//
//     receive_bench SMTP-PORT POP-PORT MAILS        both, turn by turn, and how they compare
//     receive_bench SMTP-PORT POP-PORT MAILS fill   put mails into the mailbox, and
//     receive_bench SMTP-PORT POP-PORT MAILS empty  fetch them, for counting system calls
//
// The ports are those of one mail server on 127.0.0.1 that takes everything; its user is "user"
// with the password "password", and its mailbox is empty.

#include <stdexcept>

#include "bench/bare_client.h"
#include "bench/work_dir.h"
#include "zelieml.h"

namespace
{

// What has come is looked at and then taken, in two receives; the bare client needs one.
constexpr double limit = 1.25;

struct ports {
    int smtp;
    int pop;
};

// A status mail of 20 lines.
void fill(ports at, int mails)
{
    static std::string const text = "Date: Sat, 21 Nov 2026 10:00:00 -0000\r\n"
                                    "From: Printer 7 <printer7@office.test>\r\n"
                                    "To: anna@office.test\r\n"
                                    "Subject: Printer 7: tray 2 is empty\r\n"
                                    "Reply-To: helpdesk@office.test\r\n"
                                    "Mime-Version: 1.0\r\n"
                                    "Content-Type: text/plain; charset=\"UTF-8\"\r\n"
                                    "Content-Transfer-Encoding: 7bit\r\n"
                                    "\r\n"
                                    "Printer 7 on the third floor says:\r\n"
                                    "tray 2 is empty, please refill.\r\n"
                                    "\r\n"
                                    "tray 1    A4        80 %\r\n"
                                    "tray 2    A4         0 %\r\n"
                                    "tray 3    A3        55 %\r\n"
                                    "black     toner     41 %\r\n"
                                    "cyan      toner     63 %\r\n"
                                    "magenta   toner     60 %\r\n"
                                    "yellow    toner     58 %\r\n"
                                    "pages since the last service: 18204\r\n"
                                    ".\r\n";
    bare_mail const          mail = {"helo [127.0.0.1]\r\n",
                                     "mail from: <helpdesk@office.test>\r\n",
                                     "rcpt to: <anna@office.test>\r\n",
                                     text.data(),
                                     text.size(),
                                     nullptr,
                                     nullptr};
    for (int i = 0; i < mails; ++i) {
        if (bare_client_send(at.smtp, &mail) != 0) {
            throw std::runtime_error("the mailbox could not be filled");
        }
    }
}

// The calls that a user of the library makes.
void empty(ports at, int mails)
{
    void* server = nullptr;
    void* list   = nullptr;
    int   status = server_info_create(&server);
    if (status == 0) {
        status = server_info_set_pop(server, "127.0.0.1", "user", "password", "pop", at.pop, 0);
    }
    if (status == 0) {
        status = eml_receive_msg_create(&list);
    }
    if (status == 0) {
        status = eml_receive_mails(server, list, nullptr);
    }
    int const got = eml_receive_msg_count(list);
    eml_receive_msg_destroy(list);
    server_info_destroy(server);
    if (status != 0 || got != mails) {
        throw std::runtime_error("eml_receive_mails failed");
    }
}

void empty_bare(ports at, int mails)
{
    for (int left = mails; left > 0; --left) {
        if (bare_client_receive(at.pop, "user user\r\n", "pass password\r\n") != left) {
            throw std::runtime_error("the bare client failed");
        }
    }
}

// Mailboxes of one size. Returns whether the limit holds.
bool compare(ports at, int mails, int mailboxes)
{
    std::vector<double> library;
    std::vector<double> bare;
    for (int i = 0; i < mailboxes; ++i) {
        fill(at, mails);
        library.push_back(microseconds([&] { empty(at, mails); }) / mails);
        fill(at, mails);
        bare.push_back(microseconds([&] { empty_bare(at, mails); }) / mails);
    }
    figures const ours  = summarise(library);
    figures const least = summarise(bare);
    std::printf("a mailbox of %d, per mail:\n", mails);
    print("eml_receive_mails", ours);
    print("bare client", least);
    std::printf("eml_receive_mails takes %.2f times the bare client (at most %.2f)\n",
                ours.median / least.median, limit);
    return ours.median <= limit * least.median;
}

}  // namespace

int main(int argc, char** argv)
try {
    if (argc < 4) {
        std::fprintf(stderr, "use: receive_bench SMTP-PORT POP-PORT MAILS [fill|empty]\n");
        return 2;
    }
    ports const       at    = {std::atoi(argv[1]), std::atoi(argv[2])};
    int const         mails = std::max(1, std::atoi(argv[3]));
    std::string const job   = argc > 4 ? argv[4] : "";
    if (job == "fill") {
        fill(at, mails);
        return 0;
    }
    if (job == "empty") {
        empty(at, mails);
        return 0;
    }
    bool const one     = compare(at, 1, mails);
    bool const hundred = compare(at, 100, std::max(1, mails / 100));
    return one && hundred ? 0 : 1;
} catch (std::exception const& error) {
    std::fprintf(stderr, "receive_bench: %s\n", error.what());
    return 1;
}
