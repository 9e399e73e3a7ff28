// peer.cpp - another program that uses the library, as a test of engines starts it
//
//     peer post                   for each line "WORKDIR SYMBOL NAME COUNT" of its input: posts mails
//                                 "NAME.0", "NAME.1", ..., then prints "posted"
//     peer post_large             likewise, mails of 20 KiB
//     peer outlive WORKDIR SYMBOL starts an engine and forks a child, which lives on, with all that
//                                 it has inherited, until the input ends
//     peer fork WORKDIR SYMBOL    starts an engine and forks a child, which posts, stops its copy of
//                                 the engine, and posts again; prints the results of all
//     peer fork_engine WORKDIR SYMBOL OTHER-WORKDIR OTHER-SYMBOL
//                                 starts an engine and forks a child, which starts one of its own
//     peer fork_in_callback WORKDIR SYMBOL
//                                 starts an engine whose first callback forks a child and returns in
//                                 both; prints how the child ended, and the results
//     peer leave WORKDIR SYMBOL COUNT MS
//                                 starts an engine, posts mails, and ends after so many
//                                 milliseconds without stopping the engine
//
// The exit status is the number of calls that failed.

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/support/main_thread.h"
#include "zelieml.h"

namespace
{

int failures = 0;

void expect(bool good, char const* what)
{
    if (!good) {
        std::fprintf(stderr, "%d: %s\n", static_cast<int>(::getpid()), what);
        ++failures;
    }
}

void say(std::string const& line)
{
    std::string const text = line + "\n";
    expect(::write(1, text.data(), text.size()) == static_cast<ssize_t>(text.size()), "write");
}

void* new_mail(std::string const& subject, std::string const& body)
{
    void* msg = nullptr;
    expect(eml_msg_create(&msg) == 0 && eml_msg_set_to(msg, "anna@b.test") == 0 &&
               eml_msg_set_subject(msg, subject.c_str()) == 0 &&
               eml_msg_set_body(msg, body.c_str()) == 0,
           "a message");
    return msg;
}

void post(std::string const& workdir, std::string const& symbol, std::string const& subject,
          std::string const& body = "The tray is empty.\n")
{
    void* const msg = new_mail(subject, body);
    expect(eml_post_with_stocksymbol(workdir.c_str(), symbol.c_str(), msg) == 0, "eml_post");
    eml_msg_destroy(msg);
}

void post_as_told(std::string const& body)
{
    std::string workdir;
    std::string symbol;
    std::string name;
    int         count = 0;
    while (std::cin >> workdir >> symbol >> name >> count) {
        for (int i = 0; i < count; ++i) {
            post(workdir, symbol, name + "." + std::to_string(i), body);
        }
        say("posted");
    }
}

std::atomic<int> results{0};

int print_result(void* record, void*)
{
    eml_send_e code      = eml_send_error_other;
    char       text[256] = "";
    eml_cb_get_code(record, &code);
    eml_cb_get_message(record, text, sizeof text);
    text[std::strcspn(text, "\r\n")] = '\0';
    say("result " + std::to_string(code) + " " + text);
    ++results;
    return 0;
}

void* start(char const* workdir, char const* symbol)
{
    void* eml = nullptr;
    expect(eml_start_with_stocksymbol(workdir, symbol, &eml) == 0, "eml_start");
    expect(eml_set_callback(eml, print_result, nullptr) == 0, "eml_set_callback");
    return eml;
}

void wait_for_results(int count)
{
    for (int tries = 0; results < count && tries < 2000; ++tries) {
        ::usleep(10000);
    }
    expect(results >= count, "results");
}

int status_of(pid_t child)
{
    int status = 0;
    expect(::waitpid(child, &status, 0) == child, "waitpid");
    return WIFEXITED(status) ? WEXITSTATUS(status) : 100 + WTERMSIG(status);
}

void outlive(char** names)
{
    start(names[0], names[1]);
    if (::fork() != 0) {
        say("ready");
        ::pause();
    }
    char byte = 0;
    while (::read(0, &byte, 1) == 1) {
    }
    say("child ended");
    ::_exit(0);
}

void fork_and_stop(char** names)
{
    void* const eml   = start(names[0], names[1]);
    pid_t const child = ::fork();
    void* const mail  = new_mail("child.0", "x");
    if (child == 0) {
        expect(eml_post_sys(eml, mail) == 0, "eml_post_sys in the child");
        expect(eml_stop(eml) == 0, "eml_stop in the child");
        post(names[0], names[1], "child.1");
        eml_msg_destroy(mail);
        std::exit(failures);
    }
    eml_msg_destroy(mail);
    expect(status_of(child) == 0, "the child");
    post(names[0], names[1], "parent.0");
    wait_for_results(3);
    expect(eml_stop(eml) == 0, "eml_stop");
}

void fork_and_start(char** names)
{
    void* const eml   = start(names[0], names[1]);
    pid_t const child = ::fork();
    if (child == 0) {
        void* own = start(names[2], names[3]);
        post(names[2], names[3], "to the child's");
        post(names[0], names[1], "to the parent's");
        wait_for_results(1);
        expect(eml_stop_multi(&own) == 0 && own == nullptr, "eml_stop_multi of its own");
        expect(eml_stop(eml) == 0, "eml_stop of the parent's");
        std::exit(failures);
    }
    expect(status_of(child) == 0, "the child");
    wait_for_results(1);
    expect(eml_stop(eml) == 0, "eml_stop");
}

int fork_once(void*, void*)
{
    static bool done = false;
    if (!done) {
        done              = true;
        pid_t const child = ::fork();
        if (child != 0) {
            say("child " + std::to_string(status_of(child)));
        } else {
            // Or a sanitizer misses what the stacks of the parent's threads point at.
            std::atexit([] { ::_exit(0); });
        }
    }
    return 0;
}

void fork_in_callback(char** names)
{
    void* eml = nullptr;
    expect(eml_start_with_stocksymbol(names[0], names[1], &eml) == 0, "eml_start");
    expect(eml_set_callback(eml, fork_once, nullptr) == 0, "eml_set_callback");
    expect(eml_set_callback(eml, print_result, nullptr) == 0, "eml_set_callback");
    post(names[0], names[1], "mail.0");
    post(names[0], names[1], "mail.1");
    wait_for_results(2);
    expect(eml_stop(eml) == 0, "eml_stop");
}

void leave(char** arguments)
{
    static void* const eml = start(arguments[0], arguments[1]);
    expect(eml != nullptr, "an engine");
    for (int i = 0; i < std::atoi(arguments[2]); ++i) {
        post(arguments[0], arguments[1], "mail." + std::to_string(i));
    }
    ::usleep(static_cast<useconds_t>(std::atoi(arguments[3])) * 1000);
}

struct command_line {
    int    argc;
    char** argv;
};

int run(void* argument)
{
    auto const [argc, argv] = *static_cast<command_line*>(argument);
    std::string const job   = argc > 1 ? argv[1] : "";
    if (job == "post") {
        post_as_told("The tray is empty.\n");
    } else if (job == "post_large") {
        std::string body;
        while (body.size() < std::size_t{20} << 10U) {
            body += "The tray is empty.\n";
        }
        post_as_told(body + "the last line\n");
    } else if (job == "outlive" && argc == 4) {
        outlive(argv + 2);
    } else if (job == "fork" && argc == 4) {
        fork_and_stop(argv + 2);
    } else if (job == "fork_engine" && argc == 6) {
        fork_and_start(argv + 2);
    } else if (job == "fork_in_callback" && argc == 4) {
        fork_in_callback(argv + 2);
    } else if (job == "leave" && argc == 6) {
        leave(argv + 2);
    } else {
        return 99;
    }
    return failures;
}

}  // namespace

int main(int argc, char** argv)
{
    command_line words = {argc, argv};
    return work_with_notifications(run, &words);
}
