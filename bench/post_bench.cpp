// post_bench.cpp - one message end to end: eml_post_sync beside a bare client
//
//     post_bench PORT ROUNDS CASE          by turns, and how they compare
//     post_bench PORT ROUNDS CASE library  the library only, with a new record each time, for
//                                          counting; prints the kilobytes of memory at the peak
//
// CASE  plain, login (CRAM-MD5) or large (a body of 20 MB)
// PORT  that of a mail server on 127.0.0.1 that takes everything; its user is "user" with the
//       password "password".
//
// The bare client runs twice: once as it is, and once with the file work that a sender with a queue
// cannot do without. The record is filled before, as the client's text is composed before: what is
// timed is eml_post_sync.

#include <map>
#include <stdexcept>

#include "bench/bare_client.h"
#include "bench/mail.h"
#include "bench/memory.h"
#include "bench/work_dir.h"

namespace
{

struct limits {
    double bare;   // at most so many times the bare client
    double files;  // and so many times the one with files
};

struct bench_case {
    bool        login;
    std::size_t body;  // bytes; 0: the usual mail
    limits      at_most;
};

std::map<std::string, bench_case> const cases = {
    {"plain", {false, 0, {1.8, 1.25}}},
    {"login", {true, 0, {1.8, 1.3}}},
    {"large", {false, 20'000'000, {1.8, 1.3}}},
};

// What is posted, on both sides.
class contents
{
public:
    explicit contents(bench_case const& of) : body_(text_of(of.body))
    {
        text_ = "Date: Sat, 21 Nov 2026 10:00:00 -0000\r\nFrom: printer@office.test\r\n"
                "To: anna@office.test\r\nSubject: =?UTF-8?B?UHJpbnRlciA3OiB0cmF5IDIgaXMgZW1wdHk=?="
                "\r\nReply-To: helpdesk@office.test\r\nMime-Version: 1.0\r\n"
                "Content-Type: text/plain; charset=\"UTF-8\"\r\n"
                "Content-Transfer-Encoding: base64\r\n\r\n";
        for (std::size_t left = body_.size(); left > 0;) {
            std::size_t const line = std::min<std::size_t>(left, 57);
            text_.append((line + 2) / 3 * 4, 'U').append("\r\n");
            left -= line;
        }
        text_ += "\r\n.\r\n";
        record_ = "encoding: UTF-8\nfrom: printer@office.test\nto: anna@office.test\n"
                  "subject: Printer 7: tray 2 is empty\nreplyto: helpdesk@office.test\n" +
                  body_;
        bare_ = {of.login ? "ehlo [127.0.0.1]\r\n" : "helo [127.0.0.1]\r\n",
                 "mail from: <helpdesk@office.test>\r\n",
                 "rcpt to: <anna@office.test>\r\n",
                 text_.data(),
                 text_.size(),
                 of.login ? "user" : nullptr,
                 of.login ? "password" : nullptr};
    }
    contents(contents const&)            = delete;
    contents& operator=(contents const&) = delete;

    bare_mail const&   bare() const { return bare_; }
    std::string const& body() const { return body_; }
    std::string const& record() const { return record_; }

private:
    std::string body_;
    std::string text_;
    std::string record_;
    bare_mail   bare_ = {};
};

class runner
{
public:
    runner(int port, bench_case const& of) : port_(port), mail_(of)
    {
        write_settings(dir_.path(), std::to_string(port), of.login);
    }
    ~runner() { eml_msg_destroy(msg_); }
    runner(runner const&)            = delete;
    runner& operator=(runner const&) = delete;

    void fill() const { check(eml_msg_set_body(msg_, mail_.body().c_str()), "eml_msg_set_body"); }
    void post() const { check(post_and_wait(dir_.path(), msg_), "eml_post_sync"); }
    // With a record of its own.
    void send() const { check(send_mail(dir_.path(), mail_.body()), "sending"); }

    void bare() const { check(bare_client_send(port_, &mail_.bare()), "the bare client"); }

    void bare_with_files() const
    {
        bare_files const files = {settings_.c_str(), message_.c_str(), mail_.record().data(),
                                  mail_.record().size()};
        check(bare_client_post(port_, &mail_.bare(), &files), "the bare client with files");
    }

private:
    static void check(int status, char const* what)
    {
        if (status != 0) {
            throw std::runtime_error(what + std::string(" failed"));
        }
    }

    int const         port_;
    contents const    mail_;
    void* const       msg_ = make_mail();
    work_dir const    dir_;
    std::string const settings_ = dir_.path() + "/zelismes.cf";
    std::string const message_  = dir_.path() + "/20261121100000-00000001-1000.sme";
};

int compare(runner const& run, int rounds, limits at_most)
{
    std::vector<double> filling;
    std::vector<double> library;
    std::vector<double> bare;
    std::vector<double> with_files;
    for (int i = 0; i < rounds; ++i) {
        filling.push_back(microseconds([&] { run.fill(); }));
        library.push_back(microseconds([&] { run.post(); }));
        bare.push_back(microseconds([&] { run.bare(); }));
        with_files.push_back(microseconds([&] { run.bare_with_files(); }));
    }
    figures const ours  = summarise(library);
    figures const least = summarise(bare);
    figures const files = summarise(with_files);
    print("eml_msg_set_body", summarise(filling));
    print("eml_post_sync", ours);
    print("bare client", least);
    print("bare client with files", files);
    double const to_least = ours.median / least.median;
    double const to_files = ours.median / files.median;
    std::printf("eml_post_sync takes %.2f times the bare client (at most %.2f), %.2f times the one "
                "with files (at most %.2f)\n",
                to_least, at_most.bare, to_files, at_most.files);
    return to_least <= at_most.bare && to_files <= at_most.files ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv)
try {
    auto const of = argc < 4 ? cases.end() : cases.find(argv[3]);
    if (of == cases.end()) {
        std::fprintf(stderr, "use: post_bench PORT ROUNDS plain|login|large [library]\n");
        return 2;
    }
    int const    rounds = std::max(1, std::atoi(argv[2]));
    runner const run(std::atoi(argv[1]), of->second);
    if (argc == 4) {
        return compare(run, rounds, of->second.at_most);
    }
    for (int i = 0; i < rounds; ++i) {
        run.send();
    }
    std::printf("%ld\n", kilobytes("VmHWM:"));
    return 0;
} catch (std::exception const& error) {
    std::fprintf(stderr, "post_bench: %s\n", error.what());
    return 1;
}
