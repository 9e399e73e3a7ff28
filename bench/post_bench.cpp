// post_bench.cpp - one message end to end: eml_post_sync beside a bare client
//
//     post_bench PORT ROUNDS          both, turn by turn, and how they compare
//     post_bench PORT ROUNDS library  eml_post_sync only, for counting instructions
//
// PORT is that of a mail server on 127.0.0.1 that takes everything.

#include <stdexcept>

#include "bench/bare_client.h"
#include "bench/mail.h"
#include "bench/work_dir.h"

namespace
{

void post(work_dir const& dir)
{
    if (send_mail(dir.path()) != 0) {
        throw std::runtime_error("eml_post_sync failed");
    }
}

void post_bare(int port)
{
    static char const text[] =
        "Date: Sat, 21 Nov 2026 10:00:00 -0000\r\nFrom: printer@office.test\r\n"
        "To: anna@office.test\r\nSubject: =?UTF-8?B?UHJpbnRlciA3OiB0cmF5IDIgaXMgZW1wdHk=?=\r\n"
        "Reply-To: helpdesk@office.test\r\nMime-Version: 1.0\r\n"
        "Content-Type: text/plain; charset=\"UTF-8\"\r\nContent-Transfer-Encoding: base64\r\n\r\n"
        "UHJpbnRlciA3IG9uIHRoZSB0aGlyZCBmbG9vciBzYXlzOg0KdHJheSAyIGlzIGVtcHR5LCBwbGVh\r\n"
        "c2UgcmVmaWxsLg0K\r\n.\r\n";
    if (bare_client_send(port, "helo [127.0.0.1]\r\n", "mail from: <helpdesk@office.test>\r\n",
                         "rcpt to: <anna@office.test>\r\n", text) != 0) {
        throw std::runtime_error("the bare client failed");
    }
}

int compare(work_dir const& dir, int port, int rounds)
{
    std::vector<double> library;
    std::vector<double> bare;
    for (int i = 0; i < rounds; ++i) {
        library.push_back(microseconds([&] { post(dir); }));
        bare.push_back(microseconds([&] { post_bare(port); }));
    }
    figures const ours  = summarise(library);
    figures const least = summarise(bare);
    print("eml_post_sync", ours);
    print("bare client", least);
    std::printf("eml_post_sync takes %.2f times the bare client (at most 1.60)\n",
                ours.median / least.median);
    return ours.median <= 1.6 * least.median ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv)
try {
    if (argc < 3) {
        std::fprintf(stderr, "use: post_bench PORT ROUNDS [library]\n");
        return 2;
    }
    work_dir const dir;
    int const      rounds = std::max(1, std::atoi(argv[2]));
    write_settings(dir.path(), argv[1]);
    if (argc > 3) {
        for (int i = 0; i < rounds; ++i) {
            post(dir);
        }
        return 0;
    }
    return compare(dir, std::atoi(argv[1]), rounds);
} catch (std::exception const& error) {
    std::fprintf(stderr, "post_bench: %s\n", error.what());
    return 1;
}
