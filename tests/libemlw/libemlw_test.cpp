// libemlw_test.cpp - message files get their names, and a synchronous post its result

#include "libemlw/libemlw.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "libcb/libcb.h"
#include "libmsg/libmsg.h"
#include "tests/support/case_name.h"
#include "tests/support/dialogues.h"
#include "tests/support/fake_clock.h"
#include "tests/support/fake_resolver.h"
#include "tests/support/files.h"
#include "tests/support/full_disk.h"
#include "tests/support/scripted_server.h"
#include "tests/support/trace_recorder.h"

using namespace zelieml;
using namespace zelieml::test;

namespace
{

using strings = std::vector<std::string>;

// The process id as it stands in the names of message files.
std::string process_text(int process = ::getpid())
{
    std::string const digits = std::to_string(process);
    return std::string(digits.size() < 4 ? 4 - digits.size() : 0, '0') + digits;
}

std::string new_path(std::string const& workdir)
{
    char out[fullpath_size] = "left over";
    return create_fullpath(workdir.c_str(), out) == 0 ? out : "refused";
}

}  // namespace

// --------------------------------------------------------------- names of files

class CreateFullpath : public ::testing::Test
{
protected:
    CreateFullpath()
    {
        ::setenv("TZ", "UTC0", 1);
        test::set_wall_clock(1706745599, 12345);  // 2024-01-31 23:59:59
        ::mkdir(workdir().c_str(), 0777);
        test::clear_traces();
    }

    // A second name stands beside the work directory, so that gets a directory around it.
    std::string workdir() const { return dir_.file("w"); }
    strings     in_workdir() const { return test::list_directory(workdir()); }
    strings     around_workdir() const { return test::list_directory(dir_.path()); }

    std::string const first_name  = "20240131235959-00012345-" + process_text() + ".sme";
    std::string const second_name = "w\\20250131235959-00012345-" + process_text() + ".sme";

    temp_dir const dir_;
};

TEST_F(CreateFullpath, IsMadeOfLocalTimeMicrosecondsAndProcess)
{
    struct row {
        char const* zone;
        std::time_t seconds;
        int         microseconds;
        char const* name;
    };
    row const rows[] = {
        {"UTC0", 1706745599, 12345, "20240131235959-00012345-"},
        {"UTC0", 1706745600, 0, "20240201000000-00000000-"},
        {"TST-9", 1706745599, 999999, "20240201085959-00999999-"},
        {"TST5", 1706745599, 1, "20240131185959-00000001-"},
        {"UTC0", 1798761599, 500000, "20261231235959-00500000-"},
        {"UTC0", 1709208000, 42, "20240229120000-00000042-"},
        {"UTC0", 0, 7, "19700101000000-00000007-"},
    };
    for (row const& r : rows) {
        ::setenv("TZ", r.zone, 1);
        test::set_wall_clock(r.seconds, r.microseconds);
        EXPECT_EQ(new_path(workdir()), workdir() + "/" + r.name + process_text() + ".sme");
    }
    EXPECT_EQ(test::traces(), strings());
}

TEST_F(CreateFullpath, ClaimsTheNameWithAnEmptyFile)
{
    ::mode_t const mask = ::umask(027);
    std::string    path = new_path(workdir());
    ::umask(mask);
    EXPECT_EQ(in_workdir(), strings{first_name});
    EXPECT_EQ(test::read_file(path), "");
    struct stat status = {};
    ASSERT_EQ(::stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0640U) << "0666 and the umask";
}

TEST_F(CreateFullpath, LeavesNoDescriptorOpen)
{
    int const before = test::open_descriptors();
    for (int i = 0; i < 3; ++i) {
        new_path(workdir());
    }
    EXPECT_EQ(test::open_descriptors(), before);
}

TEST_F(CreateFullpath, OfTheSameMicrosecondHasABackslashAndTheNextYear)
{
    EXPECT_EQ(new_path(workdir()), workdir() + "/" + first_name);
    EXPECT_EQ(new_path(workdir()), dir_.file(second_name));
    // The backslash is part of the name: the file lies beside the work directory.
    EXPECT_EQ(in_workdir(), strings{first_name});
    EXPECT_EQ(around_workdir(), (strings{"w", second_name}));
    EXPECT_EQ(test::traces(), strings{"warning:existing file:%s"});
}

TEST_F(CreateFullpath, AThirdOneOfTheSameMicrosecondIsRefused)
{
    new_path(workdir());
    new_path(workdir());
    test::clear_traces();
    EXPECT_EQ(new_path(workdir()), "refused");
    EXPECT_EQ(test::traces(), (strings{"warning:existing file:%s", "error:existing file:%s"}));
    EXPECT_EQ(in_workdir(), strings{first_name});
    EXPECT_EQ(around_workdir(), (strings{"w", second_name}));
}

TEST_F(CreateFullpath, ATakenNameIsWhateverExists)
{
    std::string const first = workdir() + "/" + first_name;
    struct row {
        char const*           reason;
        std::function<void()> take;
    };
    row const rows[] = {
        {"a file with content", [&] { test::write_file(first, "content"); }},
        {"a directory", [&] { ::mkdir(first.c_str(), 0777); }},
        {"a link to nothing", [&] { ASSERT_EQ(::symlink("nothing", first.c_str()), 0); }},
    };
    for (row const& r : rows) {
        r.take();
        test::clear_traces();
        EXPECT_EQ(new_path(workdir()), dir_.file(second_name)) << r.reason;
        EXPECT_EQ(test::traces(), strings{"warning:existing file:%s"}) << r.reason;
        EXPECT_EQ(in_workdir(), strings{first_name}) << r.reason;
        std::remove(dir_.file(second_name).c_str());
        std::remove(first.c_str());
    }
}

TEST_F(CreateFullpath, NeverTouchesAFileThatExists)
{
    test::write_file(workdir() + "/" + first_name, "first");
    test::write_file(dir_.file(second_name), "second");
    EXPECT_EQ(new_path(workdir()), "refused");
    EXPECT_EQ(test::read_file(workdir() + "/" + first_name), "first");
    EXPECT_EQ(test::read_file(dir_.file(second_name)), "second");
}

TEST_F(CreateFullpath, OnlyExistsMeansTaken)
{
    test::write_file(dir_.file("file"), "");
    struct row {
        std::string workdir;
        char const* reason;
    };
    row const rows[] = {
        {dir_.file("missing"), "no such directory: the save will tell"},
        {dir_.file("file"), "the work directory is a file"},
    };
    for (row const& r : rows) {
        for (int again = 0; again < 2; ++again) {
            EXPECT_EQ(new_path(r.workdir), r.workdir + "/" + first_name) << r.reason;
        }
    }
    EXPECT_EQ(around_workdir(), (strings{"file", "w"}));
    EXPECT_EQ(test::traces(), strings());
}

TEST_F(CreateFullpath, FitsItsBufferOrIsRefused)
{
    std::size_t const name_length = 1 + first_name.size();
    struct row {
        std::size_t length;  // of the path, without its NUL
        bool        fits;
    };
    row const rows[] = {{253, true}, {254, true}, {255, false}, {256, false}, {2000, false}};
    for (row const& r : rows) {
        std::size_t const before  = dir_.path().size() + 1;
        std::string const workdir = dir_.file(std::string(r.length - name_length - before, 'd'));
        bool const        made    = ::mkdir(workdir.c_str(), 0777) == 0;
        EXPECT_EQ(made, r.length < 2000) << "a name of 2000 bytes is none for a directory";

        std::string const path = new_path(workdir);

        EXPECT_EQ(path, r.fits ? workdir + "/" + first_name : "refused") << r.length;
        if (made) {
            strings const files = r.fits ? strings{first_name} : strings();
            EXPECT_EQ(test::list_directory(workdir), files) << r.length;
        }
    }
    EXPECT_EQ(test::traces(), strings());
}

TEST_F(CreateFullpath, OfManyThreadsAtOnceIsADifferentOneForEach)
{
    constexpr int            count = 8;
    strings                  paths(count);
    std::vector<std::thread> threads;
    for (std::string& path : paths) {
        threads.emplace_back([&] { path = new_path(workdir()); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    // The clock stands still, so there are two names in all, and each has one owner.
    std::sort(paths.begin(), paths.end());
    strings wanted(count, "refused");
    wanted[0] = workdir() + "/" + first_name;
    wanted[1] = dir_.file(second_name);
    EXPECT_EQ(paths, wanted);
}

TEST_F(CreateFullpath, OfTwoProcessesAtOnceIsADifferentOneForEach)
{
    std::string const here  = new_path(workdir());
    ::pid_t const     child = ::fork();
    ASSERT_NE(child, -1);
    if (child == 0) {
        std::string const wanted =
            workdir() + "/20240131235959-00012345-" + process_text() + ".sme";
        ::_exit(new_path(workdir()) == wanted ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    strings both = {first_name, "20240131235959-00012345-" + process_text(child) + ".sme"};
    std::sort(both.begin(), both.end());
    EXPECT_EQ(in_workdir(), both);
}

// -------------------------------------------------------------- synchronous posts

namespace
{

struct record_deleter {
    void operator()(void* cb) const { cb_destroy(cb); }
};
using record_holder = std::unique_ptr<void, record_deleter>;

message_holder new_message()
{
    void* msg = nullptr;
    EXPECT_EQ(msg_create(&msg), 0);
    msg_set_from(msg, "printer@a.test");
    msg_set_to(msg, "anna@b.test");
    msg_set_replyto(msg, "reply@a.test");
    msg_set_subject(msg, "paper");
    msg_set_body(msg, "The tray is empty.\n");
    return message_holder(msg);
}

// Sessions: begun, up to the mail that is taken, and to the end with two lines of goodbye.
std::string const begun = helo + mail_from();
std::string const taken = begun + rcpt_to("anna@b.test") + text_sent;
std::string const sent  = taken + refused_at("quit", "221-thanks\nS: 221 bye");

// On the same server after a login to POP3.
std::string const then_smtp = hangs_up + "C: (connects)\n";

// The settings that ask for logins.
std::string const pop  = "pop_before_smtp = yes\r\npop_account = anna\r\n"
                         "pop_passwd = secret\r\npasswd_raw = yes\r\n";
std::string const apop = pop + "pop_auth_type = apop\r\n";
std::string const auth = "smtp_auth = yes\r\nsmtp_auth_type = login\r\n"
                         "smtp_account = anna\r\nsmtp_passwd = secret\r\npasswd_raw = yes\r\n";

// A post that fails for want of a connection, without a reply.
struct failed_post : named_case {
    using named_case::named_case;

    failed_post& with(std::string const& more_settings)
    {
        settings = more_settings;
        return *this;
    }
    failed_post& meets(std::string const& server)
    {
        transcript = server;
        return *this;
    }
    failed_post& ends(eml_send_e result, std::string const& reply = "")
    {
        code = result;
        text = reply;
        return *this;
    }
    failed_post& says(std::string const& reply) { return ends(code, reply); }

    std::string settings;
    std::string transcript;
    eml_send_e  code = eml_send_error_connection;
    std::string text;
};

}  // namespace

class PostSync : public ::testing::Test
{
protected:
    PostSync()
    {
        ::setenv("TZ", "UTC0", 1);
        test::set_wall_clock(1706745599, 12345);
        test::clear_hosts();
        test::add_host("*", "192.0.2.10");  // the name of this machine
        ::mkdir(workdir().c_str(), 0777);
    }
    ~PostSync() override
    {
        server_.reset();
        EXPECT_EQ(test::open_descriptors(), descriptors_);
    }

    std::string workdir() const { return dir_.file("w"); }
    strings     in_workdir() const { return test::list_directory(workdir()); }
    strings     around_workdir() const { return test::list_directory(dir_.path()); }

    // Settings that lead SMTP, and POP3 if more asks for it, to a server with this transcript.
    void serve(std::string const& transcript, std::string const& more = "")
    {
        server_ = std::make_unique<scripted_server>(transcript);
        server_->set_host("[192.0.2.10]");
        std::string const port = std::to_string(server_->port());
        settings("smtp_server = 127.0.0.1\r\nsmtp_port = " + port +
                 "\r\npop_server = 127.0.0.1\r\npop_port = " + port + "\r\n" + more);
    }
    void settings(std::string const& text) { test::write_file(workdir() + "/zelismes.cf", text); }
    scripted_server& server() { return *server_; }

    // Posts and keeps the record.
    int post(std::string const& workdir, message_holder const& msg = new_message())
    {
        test::clear_traces();
        void*     result = &result;  // has to be overwritten
        int const status = ifactory_emlw().post_sync(workdir.c_str(), msg.get(), &result);
        record_.reset(result);
        return status;
    }
    int post() { return post(workdir()); }

    int code() const
    {
        eml_send_e code = eml_send_32_bits;
        EXPECT_EQ(cb_get_code(record_.get(), &code), 0);
        return code;
    }
    std::string text() const
    {
        char buf[4096] = "no record";
        EXPECT_EQ(cb_get_message(record_.get(), buf, sizeof buf), 0);
        return buf;
    }

    temp_dir const dir_;

private:
    int                              descriptors_ = test::open_descriptors();
    std::unique_ptr<scripted_server> server_;
    record_holder                    record_;
};

TEST_F(PostSync, HandsTheMailToTheServerAndTheLastReplyToTheCaller)
{
    serve(sent, "subject_use_encoding = no\r\n");

    EXPECT_EQ(post(), 0);

    EXPECT_EQ(code(), eml_send_ok);
    EXPECT_EQ(text(), "221-thanks\r\n221 bye\r\n");
    EXPECT_EQ(in_workdir(), strings{"zelismes.cf"}) << "the message file is gone";
    EXPECT_EQ(around_workdir(), strings{"w"});
    EXPECT_EQ(server().heard(), server().expected()) << server().problem();
    EXPECT_NE(server().data().find("Subject: paper\r\n"), std::string::npos) << server().data();
    EXPECT_NE(server().data().find("\r\n\r\nVGhlIHRyYXkgaXMgZW1wdHkuDQo="), std::string::npos);
    strings const traces = test::traces();
    EXPECT_EQ(traces.front(), "post_sync in workdir=%s");
    EXPECT_EQ(traces.back(), "post_sync out");
    EXPECT_EQ(std::count(traces.begin(), traces.end(), "ok: SEND(sync)!! %s"), 1);
}

TEST_F(PostSync, LeavesTheMessageToTheCallerWhoMayPostItAgain)
{
    auto const msg = new_message();
    for (int again = 0; again < 2; ++again) {
        serve(sent);
        EXPECT_EQ(post(workdir(), msg), 0);
        EXPECT_EQ(msg_get_body(msg.get()), "The tray is empty.\r\n");
    }
}

TEST_F(PostSync, HasARecordForEveryResultNumber)
{
    failed_post const cases[] = {
        failed_post("1001: no good greeting").meets("S: 554 no service\n"),
        failed_post("1001: greeting lost").meets("S: (closes)\n"),
        failed_post("1003: HELO refused")
            .meets(greeted + refused_at("helo {host}", "501 who"))
            .says("501 who\r\n"),
        failed_post("1004: EHLO refused")
            .with(auth)
            .meets(greeted + refused_at("ehlo {host}", "502 no"))
            .ends(eml_send_error_auth, "502 no\r\n"),
        failed_post("1004: account missing")
            .with("smtp_auth = yes\r\n")
            .meets("S: 220 hello\n")
            .ends(eml_send_error_auth, "220 hello\r\n"),
        failed_post("1005: recipient refused")
            .meets(begun + refused_at("rcpt to: <anna@b.test>", "550-no such\nS: 550 user"))
            .ends(eml_send_error_other, "550-no such\r\n550 user\r\n"),
        failed_post("1005: text refused")
            .meets(begun + rcpt_to("anna@b.test") + answered("data", "354 go on") +
                   refused_at("(data)", "552 too big"))
            .ends(eml_send_error_other, "552 too big\r\n"),
        failed_post("1006: QUIT refused")
            .meets(taken + refused_at("quit", "421 late"))
            .says("421 late\r\n"),
        failed_post("1006: lost at QUIT").meets(taken + lost_at("quit")),
        failed_post("100: the POP account is missing")
            .with("pop_before_smtp = yes\r\n")
            .ends(eml_send_error_other),
        failed_post("2002: POP greeting lost").with(pop).meets("S: (closes)\n"),
        failed_post("2004: USER refused")
            .with(pop)
            .meets(pop_greeted + refused_at("user anna", "-ERR who"))
            .ends(eml_send_error_auth, "-ERR who\r\n"),
        failed_post("2005: PASS refused")
            .with(pop)
            .meets(pop_greeted + answered("user anna", "+OK") +
                   refused_at("pass secret", "-ERR no"))
            .ends(eml_send_error_auth, "-ERR no\r\n"),
        failed_post("2006: APOP without a time stamp")
            .with(apop)
            .meets("S: +OK hello\n")
            .ends(eml_send_error_auth, "+OK hello\r\n"),
        failed_post("100: POP connection lost at QUIT")
            .with(pop)
            .meets(pop_login() + lost_at("quit"))
            .ends(eml_send_error_other),
        failed_post("1001 after POP: its last reply stays")
            .with(pop)
            .meets(pop_login() + pop_goodbye + then_smtp + "S: 554 no\n")
            .says("+OK bye\r\n"),
    };
    for (failed_post const& c : cases) {
        serve(c.transcript, c.settings);
        EXPECT_EQ(post(), -1) << c;
        EXPECT_EQ(code(), c.code) << c;
        EXPECT_EQ(text(), c.text) << c;
        EXPECT_EQ(in_workdir(), strings{"zelismes.cf"}) << c;
        EXPECT_EQ(test::traces().back(), "error:send_sync(%s)") << c;
        EXPECT_TRUE(server().ok()) << c << ": " << server().problem();
    }
}

TEST_F(PostSync, AfterAPopLoginSendsTheMail)
{
    serve(pop_login() + pop_goodbye + then_smtp + sent, pop);
    EXPECT_EQ(post(), 0);
    EXPECT_EQ(code(), eml_send_ok);
    EXPECT_EQ(text(), "221-thanks\r\n221 bye\r\n");
    EXPECT_TRUE(server().ok()) << server().problem();
}

TEST_F(PostSync, WithoutSettingsIsAConnectionErrorWithoutAText)
{
    struct row {
        char const* settings;
        char const* reason;
    };
    row const rows[] = {
        {"", "an empty file"},
        {"smtp_server = 127.0.0.1\r\n", "1000: no port"},
        {"smtp_port = 25\r\n", "1000: no server"},
    };
    EXPECT_EQ(post(), -1) << "no file at all";
    EXPECT_EQ(code(), eml_send_error_connection);
    for (row const& r : rows) {
        settings(r.settings);
        EXPECT_EQ(post(), -1) << r.reason;
        EXPECT_EQ(code(), eml_send_error_connection) << r.reason;
        EXPECT_EQ(text(), "") << r.reason;
        EXPECT_EQ(in_workdir(), strings{"zelismes.cf"}) << r.reason;
    }
}

TEST_F(PostSync, ThatCannotSaveIsAnotherErrorWithoutAText)
{
    test::write_file(dir_.file("file"), "content");
    struct row {
        std::string workdir;
        char const* reason;
    };
    row const rows[] = {
        {dir_.file("file"), "the work directory is a file"},
        {dir_.file("missing"), "there is no work directory"},
        {dir_.file("file") + "/w", "the way there leads through a file"},
    };
    for (row const& r : rows) {
        EXPECT_EQ(post(r.workdir), -1) << r.reason;
        EXPECT_EQ(code(), eml_send_error_other) << r.reason;
        EXPECT_EQ(text(), "") << r.reason;
        EXPECT_EQ(test::trouble_traces(), (strings{"error:ofstream(%s)", "error:msg_save(%s)"}))
            << r.reason;
    }
    EXPECT_EQ(around_workdir(), (strings{"file", "w"}));
    EXPECT_EQ(test::read_file(dir_.file("file")), "content");
}

TEST_F(PostSync, ThatFindsNoNameIsAnotherErrorWithoutAText)
{
    std::string const end = "0131235959-00012345-" + process_text() + ".sme";
    test::write_file(workdir() + "/2024" + end, "first");
    test::write_file(workdir() + "\\2025" + end, "second");
    EXPECT_EQ(post(), -1);
    EXPECT_EQ(code(), eml_send_error_other);
    EXPECT_EQ(text(), "");
    EXPECT_EQ(test::trouble_traces(),
              (strings{"warning:existing file:%s", "error:existing file:%s"}));
    EXPECT_EQ(test::read_file(workdir() + "/2024" + end), "first");
    EXPECT_EQ(test::read_file(workdir() + "\\2025" + end), "second");

    EXPECT_EQ(post(dir_.file(std::string(240, 'd'))), -1) << "a path too long for its buffer";
    EXPECT_EQ(code(), eml_send_error_other);
    EXPECT_EQ(test::trouble_traces(), strings());
}

TEST_F(PostSync, UnderItsSecondNameSendsAndDeletesLikeAnyOther)
{
    std::string const end = "0131235959-00012345-" + process_text() + ".sme";
    test::write_file(workdir() + "/2024" + end, "somebody else's");
    serve(sent);
    EXPECT_EQ(post(), 0);
    EXPECT_EQ(around_workdir(), strings{"w"});
    EXPECT_EQ(test::read_file(workdir() + "/2024" + end), "somebody else's");
}

TEST_F(PostSync, RefusesNull)
{
    void* result = nullptr;
    EXPECT_EQ(ifactory_emlw().post_sync(nullptr, new_message().get(), &result), -1);
    ASSERT_NE(result, nullptr);
    cb_destroy(result);
    EXPECT_EQ(post(workdir(), message_holder()), -1);
    EXPECT_EQ(code(), eml_send_error_other);
    EXPECT_EQ(text(), "");
    EXPECT_EQ(ifactory_emlw().post_sync(workdir().c_str(), new_message().get(), nullptr), -1);
    EXPECT_EQ(in_workdir(), strings());
}

// What a full disk took of the message is left behind; where it took nothing, nothing is.
TEST_F(PostSync, OnAFullDiskIsAnotherErrorWithoutAText)
{
    serve("");
    struct row {
        rlim_t      room;
        std::size_t body;
        char const* reason;
    };
    row const rows[] = {
        {0, 10, "no room, noticed when the file is closed"},
        {0, 100000, "no room, noticed while it is written"},
        {10, 10, "room for ten bytes of a short message"},
        {5000, 100000, "room for a part of a long one"},
    };
    auto const msg = new_message();
    for (row const& r : rows) {
        msg_set_body(msg.get(), std::string(r.body, 'x').c_str());
        int status = 0;
        {
            test::full_disk const full(r.room);
            status = post(workdir(), msg);
        }
        EXPECT_EQ(status, -1) << r.reason;
        EXPECT_EQ(code(), eml_send_error_other) << r.reason;
        EXPECT_EQ(text(), "") << r.reason;

        strings files = in_workdir();
        files.pop_back();  // the settings file, last in the order
        ASSERT_EQ(files.size(), r.room > 0 ? 1U : 0U) << r.reason;
        if (r.room > 0) {
            std::string const left = workdir() + "/" + files[0];
            EXPECT_EQ(test::read_file(left).size(), r.room) << r.reason;
            std::remove(left.c_str());
        }
        strings const trouble = test::trouble_traces();
        EXPECT_EQ(trouble, (strings{"error:ofstream(%s)", "error:msg_save(%s)"})) << r.reason;
    }
    EXPECT_EQ(server().connections(), 0);
}
