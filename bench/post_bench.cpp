// post_bench.cpp - one message end to end: eml_post_sync beside a bare client
//
//     post_bench PORT ROUNDS          both, turn by turn, and how they compare
//     post_bench PORT ROUNDS library  eml_post_sync only, for counting instructions
//
// PORT is that of a mail server on 127.0.0.1 that takes everything.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <unistd.h>
#include <vector>

#include "bench/bare_client.h"
#include "zelieml.h"

namespace
{

char const body[] = "Printer 7 on the third floor says:\ntray 2 is empty, please refill.\n";

struct work_dir {
    explicit work_dir(std::string const& port)
    {
        std::string pattern =
            (std::filesystem::temp_directory_path() / "zelieml-bench-XXXXXX").string();
        if (::mkdtemp(pattern.data()) == nullptr) {
            throw std::runtime_error("no temporary directory");
        }
        path                   = pattern;
        std::string const conf = path + "/zelismes.cf";
        eml_cf_set_string("smtp_server", "127.0.0.1", conf.c_str());
        eml_cf_set_string("smtp_port", port.c_str(), conf.c_str());
        eml_cf_set_string("smtp_auth", "no", conf.c_str());
        eml_cf_set_string("pop_before_smtp", "no", conf.c_str());
        eml_cf_set_string("subject_use_encoding", "yes", conf.c_str());
    }
    ~work_dir() { std::filesystem::remove_all(path); }
    std::string path;
};

void post(work_dir const& dir)
{
    void* msg    = nullptr;
    void* result = nullptr;
    eml_msg_create(&msg);
    eml_msg_set_from(msg, "printer@office.test");
    eml_msg_set_to(msg, "anna@office.test");
    eml_msg_set_replyto(msg, "helpdesk@office.test");
    eml_msg_set_subject(msg, "Printer 7: tray 2 is empty");
    eml_msg_set_body(msg, body);
    int const status = eml_post_sync(dir.path.c_str(), msg, &result);
    eml_cb_delete(result);
    eml_msg_destroy(msg);
    if (status != 0) {
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

template <class Body>
double microseconds(Body const& run)
{
    using clock      = std::chrono::steady_clock;
    auto const start = clock::now();
    run();
    return std::chrono::duration<double, std::micro>(clock::now() - start).count();
}

struct figures {
    double median;
    double p99;
    double longest;
};

figures summarise(std::vector<double> times)
{
    std::sort(times.begin(), times.end());
    return {times[times.size() / 2], times[times.size() * 99 / 100], times.back()};
}

void print(char const* name, figures const& of)
{
    std::printf("%-14s median %7.1f us   99th percentile %7.1f us   longest %7.1f us\n", name,
                of.median, of.p99, of.longest);
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
    work_dir const dir(argv[1]);
    int const      rounds = std::max(1, std::atoi(argv[2]));
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
