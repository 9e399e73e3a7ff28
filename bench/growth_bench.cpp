// growth_bench.cpp - what one piece of work costs, and how much memory at its peak
//
//     growth_bench WHAT N SMTP-PORT POP-PORT
//     growth_bench post WORKDIR N
//
// WHAT  what there are N of: recipients, body, line, short or japanese (bytes of a body of usual
//       lines, of one line, of lines with one letter, in ISO-2022-JP), queue (waiting mails), start
//       (files that an engine finds at its start), posters (processes), mailbox (mails), read or
//       write (lines of the settings file that is read or written)
//
// Prints the microseconds of the work and by how many kilobytes memory grew for it at its peak. The
// ports are those of the sink.

#include <fstream>
#include <map>
#include <numeric>
#include <unistd.h>

#include "bench/engine.h"
#include "bench/mail.h"
#include "bench/memory.h"
#include "bench/work_dir.h"

namespace
{

constexpr int posts_each = 30;

struct cost {
    double microseconds;
    long   kilobytes;
};

template <class Body>
cost cost_of(Body const& run)
{
    std::ofstream("/proc/self/clear_refs") << "5";  // the peak is counted from here
    long const   before = kilobytes("VmRSS:");
    double const took   = microseconds(run);
    return {took, kilobytes("VmHWM:") - before};
}

struct place {
    work_dir    dir;
    std::string work = dir.path() + "/work";
    std::string pop_port;
    std::string self;

    void check(bool good, char const* what) const
    {
        if (!good) {
            throw std::runtime_error(std::string(what) + " failed");
        }
    }
};

// Sending a record that is there.
cost sending(place const& at, std::string const& body, std::string const& to = usual_recipient,
             eml_encoding encoding = eml_encoding_utf8)
{
    void* const msg = make_mail(body, to);
    eml_msg_set_encoding(msg, encoding);
    cost const took = cost_of([&] { at.check(post_and_wait(at.work, msg) == 0, "sending"); });
    eml_msg_destroy(msg);
    return took;
}

// As many whole lines as make up so many bytes, one at least.
std::string repeated(std::string const& line, int bytes)
{
    std::string text;
    text.reserve(static_cast<std::size_t>(bytes) + line.size());
    do {
        text += line;
    } while (text.size() + line.size() <= static_cast<std::size_t>(bytes));
    return text;
}

cost recipients(place const& at, int count)
{
    std::string to;
    for (int i = 0; i < count; ++i) {
        to += (i == 0 ? "" : ",") + ("user" + std::to_string(i)) + "@office.test";
    }
    return sending(at, usual_body, to);
}

cost body(place const& at, int bytes)
{
    return sending(at, text_of(static_cast<std::size_t>(bytes)));
}

cost one_line(place const& at, int bytes)
{
    return sending(at, std::string(static_cast<std::size_t>(bytes), 'x'));
}

cost short_lines(place const& at, int bytes)
{
    return sending(at, repeated("x\n", bytes));
}

cost japanese(place const& at, int bytes)
{
    return sending(at, repeated("\x1b$BMQ;f$,$J$/$J$j$^$7$?!#\x1b(B\n", bytes), usual_recipient,
                   eml_encoding_iso2022jp);
}

// A mail's time while so many wait.
cost queue(place const& at, int waiting)
{
    engine      running(at.work, "bench growth");
    void* const msg  = make_mail();
    cost        took = cost_of([&] {
        for (int i = 0; i < waiting; ++i) {
            at.check(eml_post_with_stocksymbol(at.work.c_str(), "bench growth", msg) == 0,
                            "posting");
        }
        running.seen.wait_for(static_cast<std::size_t>(waiting));
    });
    eml_msg_destroy(msg);
    at.check(running.seen.failed == 0, "sending");
    auto const   each = running.seen.microseconds_each();
    double const sum  = std::accumulate(each.begin(), each.end(), 0.0);
    took.microseconds = sum / static_cast<double>(each.size()) * waiting;
    return took;
}

cost start(place const& at, int files)
{
    void* const msg = make_mail();
    for (int i = 0; i < files; ++i) {
        std::string const name = at.work + "/" + std::to_string(i) + ".sme";
        at.check(eml_msg_save(msg, name.c_str()) == 0, "saving");
    }
    eml_msg_destroy(msg);
    void*      eml  = nullptr;
    cost const took = cost_of([&] { at.check(eml_start(at.work.c_str(), &eml) == 0, "starting"); });
    eml_stop(eml);
    return took;
}

cost posters(place const& at, int processes)
{
    engine             running(at.work, "bench growth");
    std::string const  command = at.self + " post '" + at.work + "'";
    std::vector<FILE*> pipes;
    cost const         took = cost_of([&] {
        for (int i = 0; i < processes; ++i) {
            pipes.push_back(::popen(command.c_str(), "r"));
        }
        for (FILE* const pipe : pipes) {
            at.check(pipe != nullptr && ::pclose(pipe) == 0, "a posting process");
        }
    });
    running.seen.wait_for(static_cast<std::size_t>(processes) * posts_each);
    return took;
}

cost mailbox(place const& at, int mails)
{
    void* server = nullptr;
    void* list   = nullptr;
    at.check(server_info_create(&server) == 0 && eml_receive_msg_create(&list) == 0 &&
                 server_info_set_pop(server, "127.0.0.1", "user", "password", "pop",
                                     std::stoi(at.pop_port), 0) == 0,
             "preparing");
    cost const took =
        cost_of([&] { at.check(eml_receive_mails(server, list, nullptr) == 0, "receiving"); });
    at.check(eml_receive_msg_count(list) == mails, "receiving all");
    eml_receive_msg_destroy(list);
    server_info_destroy(server);
    return took;
}

std::string write_lines(place const& at, int lines)
{
    std::string const path = at.work + "/zelismes.cf";
    std::ofstream     file(path);
    for (int i = 1; i < lines; ++i) {
        file << "key" << i << " = a value\r\n";
    }
    file << "smtp_server = mail.office.test\r\n";
    return path;
}

cost read_setting(place const& at, int lines)
{
    std::string const path      = write_lines(at, lines);
    char              value[32] = "";
    unsigned          length    = sizeof value;
    return cost_of([&] {
        at.check(eml_cf_get_string("smtp_server", value, &length, path.c_str()) == 0, "reading");
    });
}

cost write_setting(place const& at, int lines)
{
    std::string const path = write_lines(at, lines);
    return cost_of([&] {
        at.check(eml_cf_set_string("smtp_server", "other.office.test", path.c_str()) == 0,
                 "writing");
    });
}

}  // namespace

int main(int argc, char** argv)
try {
    std::map<std::string, cost (*)(place const&, int)> const all = {
        {"recipients", recipients}, {"body", body},          {"line", one_line},
        {"short", short_lines},     {"japanese", japanese},  {"queue", queue},
        {"start", start},           {"posters", posters},    {"mailbox", mailbox},
        {"read", read_setting},     {"write", write_setting}};

    if (argc == 3 && std::string(argv[1]) == "post") {
        void* const msg = make_mail();
        for (int i = 0; i < posts_each; ++i) {
            if (eml_post_with_stocksymbol(argv[2], "bench growth", msg) != 0) {
                return 1;
            }
        }
        eml_msg_destroy(msg);
        return 0;
    }
    auto const work = argc != 5 ? all.end() : all.find(argv[1]);
    if (work == all.end()) {
        std::fprintf(stderr, "use: growth_bench WHAT N SMTP-PORT POP-PORT\n");
        return 2;
    }
    place at;
    at.pop_port = argv[4];
    at.self     = argv[0];
    std::filesystem::create_directory(at.work);
    std::filesystem::create_directory(at.dir.path() + "/tmp");
    ::setenv("ZELIEML_NOTIFICATION_ROOT", at.dir.path().c_str(), 1);
    write_settings(at.work, argv[3]);
    cost const all_of_it = work->second(at, std::atoi(argv[2]));
    std::printf("%.1f %ld\n", all_of_it.microseconds, all_of_it.kilobytes);
    return 0;
} catch (std::exception const& error) {
    std::fprintf(stderr, "growth_bench: %s\n", error.what());
    return 1;
}
