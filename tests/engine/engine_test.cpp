// engine_test.cpp - engines of one process, by the real clock, as a host program sees them

#include <csignal>
#include <cstdlib>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/support/program.h"
#include "tests/support/skip.h"
#include "tests/support/workplace.h"
#include "zelieml_ext.h"

namespace zelieml::test
{

namespace
{

notification_root const root;

closed_port const nobody;

// A server that refuses every recipient.
mailserver::options refusing()
{
    mailserver::options options;
    options.faults = {
        {"rcpt", mailserver::fault::action::refuse, 0, "550 5.1.1 no such user here"}};
    return options;
}

result const refused = {eml_send_error_other, "550 5.1.1 no such user here\r\n"};

int nothing_to_do(void*, void*)
{
    return 0;
}

}  // namespace

TEST(Engine, SendsAPostedMailAndReportsItWithinSeconds)
{
    mail_server    server;
    workplace      work(server.smtp_port());
    running_engine engine(work);
    int const      ms = ms_of([&] {
        EXPECT_EQ(post_mail(work.path(), "symbol", "paper"), 0);
        EXPECT_TRUE(engine.results.wait_for(1));
    });
    EXPECT_LT(ms, 3000);
    EXPECT_EQ(engine.results.all(), std::vector<result>{sent});

    ASSERT_EQ(server.mails().size(), 1u);
    mailserver::mail const mail = server.mails()[0];
    EXPECT_EQ(mail.sender, "");
    EXPECT_EQ(mail.recipients, strings{"anna@b.test"});
    EXPECT_EQ(subjects_of({mail}), strings{"paper"});
    EXPECT_NE(mail.text.find("VGhlIHRyYXkgaXMgZW1wdHkuDQo"), std::string::npos) << mail.text;
    EXPECT_TRUE(wait_until([&] { return work.messages().empty(); }));
}

TEST(Engine, SendsWhatOnePosterPostsInItsOrder)
{
    mail_server    server;
    workplace      work(server.smtp_port());
    running_engine engine(work);
    strings const  mails = numbered("mail", 40);
    for (std::string const& mail : mails) {
        EXPECT_EQ(post_mail(work.path(), "symbol", mail), 0);
    }
    EXPECT_TRUE(engine.results.wait_for(mails.size()));
    EXPECT_EQ(subjects_of(server.mails()), mails);
}

// Four engines, each with a server and an end of its own.
TEST(Engine, ReportsItsResultsToNobodyElse)
{
    mail_server         good;
    mailserver::options locked;
    locked.smtp_login_required = true;
    locked.smtp_mechanisms     = {"PLAIN"};
    mail_server login(locked);
    mail_server bad(refusing());

    workplace places[] = {
        workplace(good.smtp_port()), workplace(bad.smtp_port()), workplace(nobody.number()),
        workplace(login.smtp_port(), "smtp_auth = yes\r\nsmtp_auth_type = plain\r\nsmtp_account = "
                                     "user\r\nsmtp_passwd = wrong\r\npasswd_raw = yes\r\n")};
    running_engine engines[] = {running_engine(places[0], "a"), running_engine(places[1], "b"),
                                running_engine(places[2], "c"), running_engine(places[3], "d")};
    result const   wanted[]  = {sent,
                                refused,
                                {eml_send_error_connection, ""},
                                {eml_send_error_auth, "535 5.7.8 user name or password wrong\r\n"}};

    for (int i = 0; i < 4; ++i) {
        for (int mails = 0; mails <= i; ++mails) {
            EXPECT_EQ(post_mail(places[i].path(), std::string(1, static_cast<char>('a' + i)), "x"),
                      0);
        }
    }
    for (std::size_t i = 0; i < 4; ++i) {
        SCOPED_TRACE(i);
        EXPECT_TRUE(engines[i].results.wait_for(i + 1));
        EXPECT_EQ(engines[i].results.all(), std::vector<result>(i + 1, wanted[i]));
        EXPECT_TRUE(wait_until([&] { return places[i].messages().size() == (i == 0 ? 0 : i + 1); }))
            << "a failed mail waits for its second attempt";
    }
}

TEST(Engine, TellsSymbolsApartByAllTheirBytes)
{
    mail_server       server;
    workplace         work(server.smtp_port());
    workplace         other(server.smtp_port());
    std::string const symbol(254, 's');
    running_engine    engine(work, symbol);
    running_engine    neighbour(other, symbol.substr(1));

    EXPECT_EQ(post_mail(work.path(), symbol, "for the engine"), 0);
    EXPECT_EQ(post_mail(other.path(), symbol.substr(1), "for the neighbour"), 0);
    EXPECT_EQ(post_mail(work.path(), "S" + symbol.substr(1), "for nobody"), 0);
    // What went astray would come before these.
    EXPECT_EQ(post_mail(work.path(), symbol, "the end"), 0);
    EXPECT_EQ(post_mail(other.path(), symbol.substr(1), "the end"), 0);
    EXPECT_TRUE(engine.results.wait_for(2));
    EXPECT_TRUE(neighbour.results.wait_for(2));
    EXPECT_EQ(sorted(subjects_of(server.mails())),
              (strings{"for the engine", "for the neighbour", "the end", "the end"}));
    EXPECT_TRUE(wait_until([&] { return work.messages().size() == 1; })) << "that for nobody";
}

TEST(Engine, HasADefaultSymbol)
{
    mail_server server;
    workplace   work(server.smtp_port());
    result_list results;
    void*       eml = nullptr;
    ASSERT_EQ(eml_start(work.path(), &eml), 0);
    EXPECT_EQ(eml_set_callback(eml, result_list::note, &results), 0);

    void* const mail = new_mail("1");
    EXPECT_EQ(eml_post(work.path(), mail), 0);
    EXPECT_EQ(eml_msg_set_subject(mail, "2"), 0);
    EXPECT_EQ(eml_post_sys(eml, mail), 0);
    EXPECT_EQ(eml_msg_set_subject(mail, "3"), 0);
    EXPECT_EQ(eml_post_with_stocksymbol(work.path(), "zelieml_stocksymbol", mail), 0);
    EXPECT_EQ(eml_msg_set_subject(mail, "4"), 0);
    EXPECT_EQ(eml_msg_save(mail, work.file("saved").c_str()), 0);
    EXPECT_EQ(eml_post_message_file(work.file("saved").c_str()), 0);
    EXPECT_EQ(eml_msg_destroy(mail), 0);

    EXPECT_TRUE(results.wait_for(4));
    EXPECT_EQ(subjects_of(server.mails()), (strings{"1", "2", "3", "4"}));
    EXPECT_EQ(eml_stop(eml), 0);
}

TEST(Engine, SendsAnyMessageFileThatItIsToldOf)
{
    mail_server       server;
    workplace         work(server.smtp_port());
    running_engine    engine(work);
    temp_dir          elsewhere;
    std::string const path = elsewhere.file("any name");
    void* const       mail = new_mail("from elsewhere");
    EXPECT_EQ(eml_msg_save(mail, path.c_str()), 0);
    eml_msg_destroy(mail);

    EXPECT_EQ(eml_post_message_file_with_stocksymbol(path.c_str(), "symbol"), 0);
    EXPECT_TRUE(engine.results.wait_for(1));
    EXPECT_EQ(engine.results.all(), std::vector<result>{sent});
    EXPECT_EQ(subjects_of(server.mails()), strings{"from elsewhere"});
    EXPECT_TRUE(wait_until([&] { return list_directory(elsewhere.path()).empty(); }));
}

TEST(Engine, SendsAMessageFileThatItIsGiven)
{
    mail_server       server;
    workplace         work(server.smtp_port());
    result_list       results;
    void*             eml = nullptr;
    temp_dir          elsewhere;
    std::string const path = elsewhere.file("any name");
    void* const       mail = new_mail("given");
    EXPECT_EQ(eml_msg_save(mail, path.c_str()), 0);
    eml_msg_destroy(mail);
    ASSERT_EQ(eml_start(work.path(), &eml), 0);
    EXPECT_EQ(eml_set_callback(eml, result_list::note, &results), 0);

    EXPECT_EQ(eml_queue_message_file(eml, path.c_str()), 0);
    EXPECT_TRUE(results.wait_for(1));
    EXPECT_EQ(results.all(), std::vector<result>{sent});
    EXPECT_EQ(subjects_of(server.mails()), strings{"given"});
    EXPECT_TRUE(wait_until([&] { return list_directory(elsewhere.path()).empty(); }));

    pid_t const child = ::fork();
    if (child == 0) {
        ::_exit(eml_queue_message_file(eml, path.c_str()) == -1 ? 0 : 1);
    }
    int status = -1;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0) << "a child has no engine";
    EXPECT_EQ(eml_stop(eml), 0);
}

TEST(Engine, ReportsAFileThatIsNotThereAsAFailedAttempt)
{
    mail_server    server;
    workplace      work(server.smtp_port());
    running_engine engine(work);
    EXPECT_EQ(eml_post_message_file_with_stocksymbol(work.file("none.sme").c_str(), "symbol"), 0);
    EXPECT_TRUE(engine.results.wait_for(1));
    // The file is opened when the server has been greeted.
    result const not_there = {eml_send_error_other, "250 localhost\r\n"};
    EXPECT_EQ(engine.results.all(), std::vector<result>{not_there});
    EXPECT_EQ(server.mails().size(), 0u);
}

// To open a pipe waits for its writer: an engine that did would never stop either.
TEST(Engine, ReportsAPipeAsAFailedAttemptAndStops)
{
    mail_server       server;
    workplace         work(server.smtp_port());
    running_engine    engine(work);
    std::string const path = work.file("pipe.sme");
    ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
    EXPECT_EQ(eml_post_message_file_with_stocksymbol(path.c_str(), "symbol"), 0);
    EXPECT_TRUE(engine.results.wait_for(1));
    result const no_message = {eml_send_error_other, "250 localhost\r\n"};
    EXPECT_EQ(engine.results.all(), std::vector<result>{no_message});
    EXPECT_LT(ms_of([&] { engine.stop(); }), 3000);
    EXPECT_EQ(work.messages(), strings{"pipe.sme"});
}

TEST(Engine, DropsAPathOf400Bytes)
{
    mail_server       server;
    workplace         work(server.smtp_port());
    running_engine    engine(work);
    temp_dir          elsewhere;
    std::string const directory = elsewhere.file(std::string(200, 'd'));
    ASSERT_EQ(::mkdir(directory.c_str(), 0777), 0);
    std::string const fits    = directory + "/" + std::string(398 - directory.size(), 'f');
    std::string const is_long = fits + "f";
    ASSERT_EQ(fits.size(), 399u);
    for (std::string const& path : {is_long, fits}) {
        void* const mail = new_mail(std::to_string(path.size()));
        EXPECT_EQ(eml_msg_save(mail, path.c_str()), 0);
        eml_msg_destroy(mail);
        EXPECT_EQ(eml_post_message_file_with_stocksymbol(path.c_str(), "symbol"), 0);
    }
    EXPECT_TRUE(engine.results.wait_for(1)) << "that of the second, which would come after";
    engine.stop();
    EXPECT_EQ(engine.results.all(), std::vector<result>{sent});
    EXPECT_EQ(subjects_of(server.mails()), strings{"399"});
    EXPECT_TRUE(file_exists(is_long));
    EXPECT_FALSE(file_exists(fits));
}

TEST(Engine, RefusesToAnnounceAFileToNoSymbol)
{
    EXPECT_EQ(eml_post_message_file_with_stocksymbol("/w/a.sme", ""), -1);
    EXPECT_EQ(eml_post_message_file_with_stocksymbol("/w/a.sme", nullptr), -1);
    EXPECT_EQ(eml_post_message_file_with_stocksymbol(nullptr, "symbol"), -1);
    EXPECT_EQ(eml_post_message_file(nullptr), -1);
}

TEST(Engine, IsNotNeededForPosting)
{
    workplace work(nobody.number());
    EXPECT_EQ(post_mail(work.path(), "nobody", "kept"), 0);
    EXPECT_EQ(post_mail(work.path(), "", "kept too"), 0) << "saved, though it cannot be announced";
    ASSERT_EQ(work.messages().size(), 2u);

    void*             loaded = nullptr;
    std::string const path   = work.file(work.messages()[0]);
    char              text[64];
    EXPECT_EQ(eml_msg_load(&loaded, path.c_str()), 0);
    EXPECT_EQ(eml_msg_get_subject(loaded, text, sizeof text), 0);
    EXPECT_STREQ(text, "kept");
    eml_msg_destroy(loaded);
}

TEST(Engine, PostingFailsWhereNothingCanBeWritten)
{
    temp_dir dir;
    write_file(dir.file("file"), "");
    std::string const long_path = dir.file(std::string(240, 'd'));
    struct row {
        char const* reason;
        std::string workdir;
    } const rows[] = {
        {"there is no such directory", dir.file("none")},
        {"the way leads through a file", dir.file("file/work")},
        {"it is a file", dir.file("file")},
        {"the name of the message file does not fit 255 bytes", long_path},
    };
    ::mkdir(long_path.c_str(), 0777);
    for (row const& r : rows) {
        SCOPED_TRACE(r.reason);
        EXPECT_EQ(post_mail(r.workdir, "symbol", "x"), -1);
    }
    EXPECT_EQ(read_file(dir.file("file")), "");
    EXPECT_EQ(list_directory(long_path), strings());
}

TEST(Engine, DeletesWhatLayInItsWorkDirectoryBefore)
{
    mail_server server;
    workplace   work(server.smtp_port());
    EXPECT_EQ(post_mail(work.path(), "symbol", "before the first start"), 0);
    write_file(work.file("a.sme.tmp"), "x");
    write_file(work.file("y.txt"), "x");
    {
        running_engine engine(work);
        EXPECT_EQ(work.messages(), strings{"y.txt"}) << "when the start has returned";
        EXPECT_EQ(post_mail(work.path(), "symbol", "sent"), 0);
        EXPECT_TRUE(engine.results.wait_for(1));
    }
    EXPECT_EQ(post_mail(work.path(), "symbol", "while it was stopped"), 0);
    EXPECT_EQ(work.messages().size(), 2u);
    {
        running_engine engine(work);
        EXPECT_EQ(work.messages(), strings{"y.txt"});
        EXPECT_EQ(post_mail(work.path(), "symbol", "sent again"), 0);
        EXPECT_TRUE(engine.results.wait_for(1));
        EXPECT_EQ(engine.results.all(), std::vector<result>{sent});
    }
    EXPECT_EQ(subjects_of(server.mails()), (strings{"sent", "sent again"}));
}

TEST(Engine, ThatCannotStartLeavesNothing)
{
    workplace         work(nobody.number());
    std::string const symbol(255, 's');
    std::string const directory(256, 'd');
    struct row {
        char const* reason;
        char const* workdir;
        char const* symbol;
    } const rows[] = {
        {"an empty symbol addresses nobody", work.path(), ""},
        {"a symbol of 255 bytes does not fit", work.path(), symbol.c_str()},
        {"a work directory of 256 bytes does not fit", directory.c_str(), "symbol"},
        {"no symbol", work.path(), nullptr},
        {"no work directory", nullptr, "symbol"},
    };
    int const descriptors = open_descriptors();
    int       untouched   = 0;
    for (row const& r : rows) {
        SCOPED_TRACE(r.reason);
        void* eml = &untouched;
        EXPECT_EQ(eml_start_with_stocksymbol(r.workdir, r.symbol, &eml), -1);
        EXPECT_EQ(eml, &untouched);
    }
    EXPECT_EQ(eml_start_with_stocksymbol(work.path(), "symbol", nullptr), -1);
    EXPECT_EQ(eml_start(work.path(), nullptr), -1);
    EXPECT_EQ(open_descriptors(), descriptors);
    EXPECT_EQ(root.sockets(), strings());
}

TEST(Engine, DoesNotStartWhereNotificationsHaveNoPlace)
{
    SKIP_UNLESS(has_backend("linux"), "only on Linux do notifications need a directory");
    workplace work(nobody.number());
    temp_dir  empty;
    int const descriptors = open_descriptors();
    ::setenv("ZELIEML_NOTIFICATION_ROOT", empty.file("missing").c_str(), 1);
    int   untouched = 0;
    void* eml       = &untouched;
    EXPECT_EQ(eml_start_with_stocksymbol(work.path(), "symbol", &eml), -1);
    EXPECT_EQ(eml, &untouched);
    EXPECT_EQ(post_mail(work.path(), "symbol", "kept"), 0) << "posting goes on";
    EXPECT_EQ(work.messages().size(), 1u);
    ::setenv("ZELIEML_NOTIFICATION_ROOT", root.dir.path().c_str(), 1);
    EXPECT_EQ(open_descriptors(), descriptors);
}

TEST(Engine, StopsOnlyWhenThereIsOne)
{
    void* none = nullptr;
    EXPECT_EQ(eml_stop(nullptr), -1);
    EXPECT_EQ(eml_stop_multi(&none), 0);
    EXPECT_EQ(none, nullptr);
    EXPECT_EQ(eml_stop_multi(nullptr), 0);
    EXPECT_EQ(eml_set_callback(nullptr, nothing_to_do, nullptr), -1);
    EXPECT_EQ(eml_reset_callback(nullptr, nothing_to_do), -1);
    EXPECT_EQ(eml_post_sys(nullptr, nullptr), -1);
}

TEST(Engine, CallsEachCallbackOnceInTheOrderOfRegistration)
{
    struct call_list {
        static int first(void*, void* user) { return call(user, "first"); }
        static int second(void*, void* user) { return call(user, "second"); }
        static int third(void*, void* user) { return call(user, "third"); }
        static int call(void* user, char const* name)
        {
            static_cast<strings*>(user)->push_back(name);
            return -1;
        }
    };
    mail_server    server;
    workplace      work(server.smtp_port());
    strings        calls;
    strings        other;
    running_engine engine(work);
    EXPECT_EQ(eml_reset_callback(engine.handle(), result_list::note), 0);
    for (auto* proc : {call_list::first, call_list::second, call_list::third}) {
        EXPECT_EQ(eml_set_callback(engine.handle(), proc, &calls), 0);
    }
    EXPECT_EQ(eml_set_callback(engine.handle(), call_list::first, &other), 0);
    EXPECT_EQ(eml_reset_callback(engine.handle(), call_list::second), 0);
    EXPECT_EQ(eml_reset_callback(engine.handle(), call_list::second), 0);
    EXPECT_EQ(eml_set_callback(engine.handle(), result_list::note, &engine.results), 0);
    EXPECT_EQ(post_mail(work.path(), "symbol", "x"), 0);
    EXPECT_TRUE(engine.results.wait_for(1));
    engine.stop();
    EXPECT_EQ(calls, (strings{"first", "third"}));
    EXPECT_EQ(other, strings());
}

TEST(Engine, ReachesServersItWasNotStartedWith)
{
    mail_server       first;
    mail_server       second;
    workplace         work(first.smtp_port());
    std::string const settings = work.file("zelismes.cf");
    running_engine    engine(work);
    EXPECT_EQ(post_mail(work.path(), "symbol", "1"), 0);
    EXPECT_TRUE(engine.results.wait_for(1));
    EXPECT_EQ(eml_cf_set_string("smtp_port", std::to_string(second.smtp_port()).c_str(),
                                settings.c_str()),
              0);
    EXPECT_EQ(post_mail(work.path(), "symbol", "2"), 0);
    EXPECT_TRUE(engine.results.wait_for(2));
    EXPECT_EQ(subjects_of(first.mails()), strings{"1"});
    EXPECT_EQ(subjects_of(second.mails()), strings{"2"});
}

TEST(Engine, HandsOutRecordsThatCanBeKept)
{
    struct keeper {
        static int keep(void* record, void* user)
        {
            return eml_cb_duplicate(record, static_cast<void**>(user));
        }
    };
    mail_server    server(refusing());
    workplace      work(server.smtp_port());
    running_engine engine(work);
    void*          copy = nullptr;
    EXPECT_EQ(eml_set_callback(engine.handle(), keeper::keep, &copy), 0);
    EXPECT_EQ(post_mail(work.path(), "symbol", "x"), 0);
    EXPECT_TRUE(engine.results.wait_for(1));
    engine.stop();

    result_list kept;
    EXPECT_EQ(result_list::note(copy, &kept), 0);
    EXPECT_EQ(kept.all(), std::vector<result>{refused});
    EXPECT_EQ(eml_cb_delete(copy), 0);
}

TEST(Engine, LeavesSignalsToItsHost)
{
    sigset_t mine;
    sigset_t before;
    ::sigemptyset(&mine);
    ::sigaddset(&mine, SIGUSR1);
    ::sigaddset(&mine, SIGALRM);
    ASSERT_EQ(::pthread_sigmask(SIG_BLOCK, &mine, &before), 0);
    {
        // A thread that did not block it would take it, and the process would end.
        workplace      work(nobody.number());
        running_engine engine(work);
        EXPECT_EQ(post_mail(work.path(), "symbol", "x"), 0);
        EXPECT_EQ(::kill(::getpid(), SIGUSR1), 0);
        EXPECT_TRUE(engine.results.wait_for(1));
    }
    int number = 0;
    ::alarm(5);
    EXPECT_EQ(::sigwait(&mine, &number), 0);
    ::alarm(0);
    EXPECT_EQ(number, SIGUSR1) << "it waits for the host";
    ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

TEST(Engine, HandsNoDescriptorsToOtherPrograms)
{
    auto const descriptors_of_others = [] {
        program other({"/bin/sh", "-c", "echo /dev/fd/*"});  // ls looks at each
        EXPECT_EQ(other.wait(), 0);
        return other.out();
    };
    std::string const before = descriptors_of_others();
    EXPECT_NE(before.find("/dev/fd/1"), std::string::npos) << before;
    workplace      work(nobody.number());
    running_engine engine(work);
    EXPECT_EQ(descriptors_of_others(), before);
}

}  // namespace zelieml::test
