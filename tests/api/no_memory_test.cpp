// no_memory_test.cpp - without memory every export fails as it says, and throws nothing
//
// Each call is made again and again, with memory for one request more each time, until that is
// enough. In one round of tests all later requests fail, in the other a single one does.

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <gtest/gtest.h>
#include <limits>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <vector>

#include "tests/api/quiet_descriptors.h"
#include "tests/api/string_fields.h"
#include "tests/support/failing_new.h"
#include "tests/support/files.h"
#include "tests/support/mail_server.h"
#include "tests/support/scripted_server.h"
#include "zelieml_ext.h"

using zelieml::test::descriptors_without_an_engine;
using zelieml::test::failing_new;
using zelieml::test::mail_server;
using zelieml::test::scripted_server;
using zelieml::test::temp_dir;

using strings = std::vector<std::string>;

namespace
{

// Longer than any string keeps without asking for memory.
char const long_string[]  = "a text of forty-four bytes, and so allocated";
char const other_string[] = "another text that is as long as the first is";

int do_nothing(void*, void*)
{
    return 0;
}

class NoMemory : public ::testing::TestWithParam<int>
{
protected:
    NoMemory()
    {
        EXPECT_EQ(eml_msg_create(&msg_), 0);
        // Notifications of the test's own.
        EXPECT_EQ(::mkdir(dir_.file("run").c_str(), 0777), 0);
        EXPECT_EQ(::mkdir(dir_.file("tmp").c_str(), 0777), 0);
        EXPECT_EQ(::setenv("ZELIEML_NOTIFICATION_ROOT", dir_.path().c_str(), 1), 0);
    }
    ~NoMemory() override { eml_msg_destroy(msg_); }

    // Makes the work directory, with settings for a server on this machine.
    void settings(std::string const& more) const
    {
        ::mkdir(workdir_.c_str(), 0777);
        zelieml::test::write_file(workdir_ + "/zelismes.cf", "smtp_server = 127.0.0.1\r\n" + more);
    }

    // call      true when it returned what it returns for success
    // failed    after a call that did not: whether it returned its failure value and left behind
    //           what it says
    // Returns the number of calls that were refused memory.
    int until_it_succeeds(std::function<bool()> const& call, std::function<void()> const& failed)
    {
        for (int good = 0; good < 10000; ++good) {
            bool succeeded = false;
            bool thrown    = false;
            try {
                failing_new const limit(good, GetParam());
                succeeded = call();
            } catch (...) {
                thrown = true;
            }
            EXPECT_FALSE(thrown) << "at request " << good;
            if (!failing_new::refused()) {
                EXPECT_TRUE(succeeded);
                return good;
            }
            EXPECT_FALSE(succeeded) << "at request " << good;
            failed();
            if (HasFailure()) {
                break;
            }
        }
        ADD_FAILURE() << "the call never succeeds";
        return 0;
    }

    // The work directory's message files.
    strings messages() const
    {
        strings names = zelieml::test::list_directory(workdir_);
        names.erase(std::remove(names.begin(), names.end(), "zelismes.cf"), names.end());
        return names;
    }

    // The sockets of engines, on a system that has such.
    strings sockets() const
    {
        strings found;
        for (std::string const& top : {dir_.file("run"), dir_.file("tmp")}) {
            for (std::string const& place : zelieml::test::list_directory(top)) {
                for (std::string const& name : zelieml::test::list_directory(top + "/" + place)) {
                    found.push_back(name);
                }
            }
        }
        return found;
    }

    void*             msg_ = nullptr;
    temp_dir const    dir_;
    std::string const workdir_ = dir_.file("work");
};

}  // namespace

INSTANTIATE_TEST_SUITE_P(Requests, NoMemory, ::testing::Values(1, std::numeric_limits<int>::max()),
                         [](auto const& row) { return row.param == 1 ? "OneFails" : "AllFail"; });

TEST_P(NoMemory, ForARecord)
{
    void* msg    = nullptr;
    int   result = 0;
    EXPECT_GT(until_it_succeeds([&] { return (result = eml_msg_create(&msg)) == 0; },
                                [&] { EXPECT_EQ(result, -1); }),
              0);
    EXPECT_EQ(eml_msg_destroy(msg), 0);
}

TEST_P(NoMemory, ForAStringOfARecord)
{
    for (string_field const& field : string_fields) {
        SCOPED_TRACE(field.name);
        EXPECT_EQ(field.set(msg_, "short"), 0);
        int  result = 0;
        char text[64];
        if (GetParam() == 1 && field.set == eml_msg_set_body) {
            // A body that there is no memory to convert is stored as it is.
            failing_new const limit(0, 1);
            EXPECT_EQ(field.set(msg_, long_string), 0);
            EXPECT_TRUE(failing_new::refused());
        } else {
            EXPECT_GT(
                until_it_succeeds([&] { return (result = field.set(msg_, long_string)) == 0; },
                                  [&] {
                                      EXPECT_EQ(result, -1);
                                      EXPECT_EQ(field.get(msg_, text, sizeof text), 0);
                                      EXPECT_STREQ(text, "short") << "the record is as it was";
                                  }),
                0);
        }
        // Reading needs none.
        failing_new const none(0);
        EXPECT_EQ(field.get(msg_, text, sizeof text), 0);
        EXPECT_STREQ(text, long_string);
    }
}

TEST_P(NoMemory, IsNoFailureForTheEncoding)
{
    char              text[64];
    failing_new const none(0);
    EXPECT_EQ(eml_msg_set_encoding(msg_, eml_encoding_iso2022jp), 0);
    EXPECT_EQ(eml_msg_get_encoding(msg_, text, sizeof text), 0);
    EXPECT_STREQ(text, "ISO-2022-JP");
}

TEST_P(NoMemory, ForSavingAndLoadingAMessage)
{
    std::string const path   = dir_.file("a message file with a name of some length.sme");
    int               result = 0;
    EXPECT_EQ(eml_msg_set_subject(msg_, long_string), 0);
    EXPECT_EQ(eml_msg_set_body(msg_, other_string), 0);
    // Saving does not ask operator new, or it fails; either way nothing is thrown.
    until_it_succeeds([&] { return (result = eml_msg_save(msg_, path.c_str())) == 0; },
                      [&] { EXPECT_EQ(result, -1); });

    // Room for the body is asked for at once; without it, the body grows as it is read.
    void*      loaded = nullptr;
    char       text[64];
    bool       whole   = true;
    auto const load_it = [&] {
        loaded = nullptr;
        result = eml_msg_load(&loaded, path.c_str());
        if (result != 0 || !failing_new::refused()) {
            return result == 0;
        }
        whole = whole && eml_msg_get_body(loaded, text, sizeof text) == 0 &&
                std::strcmp(text, other_string) == 0;
        eml_msg_destroy(loaded);
        loaded = nullptr;
        result = -1;
        return false;
    };
    EXPECT_GT(until_it_succeeds(load_it,
                                [&] {
                                    EXPECT_EQ(result, -1);
                                    eml_msg_destroy(loaded);
                                }),
              1);
    EXPECT_TRUE(whole) << "loaded without some memory, and not whole";
    EXPECT_EQ(eml_msg_get_body(loaded, text, sizeof text), 0);
    EXPECT_STREQ(text, other_string);
    eml_msg_destroy(loaded);
}

TEST_P(NoMemory, ForSettings)
{
    std::string const path   = dir_.file("zelismes.cf");
    int               result = 0;
    EXPECT_EQ(eml_cf_set_string("key", other_string, path.c_str()), 0);
    std::string const before = zelieml::test::read_file(path);
    EXPECT_GT(
        until_it_succeeds(
            [&] { return (result = eml_cf_set_string("key", long_string, path.c_str())) == 0; },
            [&] {
                EXPECT_EQ(result, -1);
                EXPECT_EQ(zelieml::test::read_file(path), before);
            }),
        0);

    char         text[64];
    unsigned int length = 0;
    EXPECT_GT(until_it_succeeds(
                  [&] {
                      length = sizeof text;
                      result = eml_cf_get_string("key", text, &length, path.c_str());
                      return result == 0;
                  },
                  [&] { EXPECT_EQ(result, -1); }),
              0);
    EXPECT_STREQ(text, long_string);
}

TEST_P(NoMemory, ForPasswordsAndHashes)
{
    std::string    password = long_string;
    auto* const    clear    = reinterpret_cast<unsigned char*>(password.data());
    unsigned char* stored   = nullptr;
    EXPECT_GT(until_it_succeeds([&] { return (stored = eml_encrypt_passwd(clear)) != nullptr; },
                                [&] { EXPECT_EQ(stored, nullptr); }),
              0);
    unsigned char* again = nullptr;
    EXPECT_GT(until_it_succeeds([&] { return (again = eml_decrypt_passwd(stored)) != nullptr; },
                                [&] { EXPECT_EQ(again, nullptr); }),
              0);
    EXPECT_STREQ(reinterpret_cast<char*>(again), long_string);
    {
        failing_new const none(0);
        eml_encrypt_free_passwd(stored);
        eml_decrypt_free_passwd(again);
    }
    // Hashing does not ask operator new, or it fails; either way nothing is thrown.
    unsigned char* hash = nullptr;
    until_it_succeeds([&] { return (hash = eml_hash_hexstr(long_string)) != nullptr; },
                      [&] { EXPECT_EQ(hash, nullptr); });
    failing_new const none(0);
    eml_hash_free_hexstr(hash);
}

TEST_P(NoMemory, ForACopyOfAResultRecord)
{
    scripted_server server(std::string("S: 220 ready\nC: (any)\nS: 501 ") + long_string + "\n");
    settings("smtp_port = " + std::to_string(server.port()) + "\r\n");
    void* record = nullptr;
    EXPECT_EQ(eml_post_sync(workdir_.c_str(), msg_, &record), -1);

    void* const untouched = &server;
    void*       copy      = untouched;
    int         result    = 0;
    EXPECT_GT(until_it_succeeds([&] { return (result = eml_cb_duplicate(record, &copy)) == 0; },
                                [&] {
                                    EXPECT_EQ(result, -1);
                                    EXPECT_EQ(copy, untouched);
                                }),
              1);
    char       text[64];
    char       reason[EML_REASON_SIZE];
    eml_send_e code    = eml_send_ok;
    int        number  = 0;
    int        attempt = 0;
    double     seconds = -1;
    {
        failing_new const none(0);  // reading needs none
        EXPECT_STREQ(eml_version(), EML_VERSION);
        EXPECT_EQ(eml_cb_get_code(copy, &code), 0);
        EXPECT_EQ(eml_cb_get_number(copy, &number), 0);
        EXPECT_EQ(eml_cb_get_attempt(copy, &attempt), 0);
        EXPECT_EQ(eml_cb_get_seconds(copy, &seconds), 0);
        EXPECT_EQ(eml_cb_get_message(copy, text, sizeof text), 0);
        EXPECT_EQ(eml_cb_get_reason(copy, reason, sizeof reason), 0);
        EXPECT_EQ(eml_cb_get_file(copy, reason, sizeof reason), 0);
        EXPECT_EQ(eml_cb_delete(copy), 0);
    }
    EXPECT_EQ(code, eml_send_error_connection);
    EXPECT_EQ(number, 1003);
    EXPECT_EQ(attempt, 1);
    EXPECT_GE(seconds, 0);
    EXPECT_EQ(text, std::string("501 ") + long_string + "\r\n");
    eml_cb_delete(record);
}

// Some requests are for what is not necessary, and a post can succeed without it. Sent or not, with
// a record or without memory for one: the message file is gone.
TEST_P(NoMemory, ForASynchronousPost)
{
    int const descriptors = zelieml::test::open_descriptors();
    auto      server      = std::make_unique<mail_server>();
    settings("smtp_port = " + std::to_string(server->smtp_port()) + "\r\n");
    eml_msg_set_to(msg_, "anna@b.test");
    eml_msg_set_subject(msg_, long_string);
    eml_msg_set_body(msg_, other_string);

    std::size_t sent   = 0;
    int         good   = 0;
    int         untold = 0;  // failures without a reason
    for (bool refused = true; refused && !HasFailure(); ++good) {
        SCOPED_TRACE(good);
        void* record = nullptr;
        int   result = 1;
        try {
            failing_new const limit(good, GetParam());
            result = eml_post_sync(workdir_.c_str(), msg_, &record);
        } catch (...) {
            ADD_FAILURE() << "something was thrown";
        }
        refused = failing_new::refused();
        EXPECT_TRUE(result == 0 || (refused && result == -1)) << result;
        sent += result == 0 ? 1 : 0;
        eml_send_e code                    = eml_send_ok;
        int        number                  = -1;
        char       reason[EML_REASON_SIZE] = "";
        if (eml_cb_get_code(record, &code) == 0) {
            EXPECT_EQ(code == eml_send_ok, result == 0);
            EXPECT_EQ(eml_cb_get_number(record, &number), 0);
            EXPECT_EQ(number == 0, result == 0);
            eml_cause cause = eml_cause_32_bits;
            EXPECT_EQ(eml_cb_get_cause(record, &cause), 0);
            EXPECT_EQ(cause == eml_cause_none, result == 0);
            EXPECT_EQ(eml_cb_get_reason(record, reason, sizeof reason), 0);
            EXPECT_TRUE(result != 0 || *reason == '\0') << reason;
            untold += result != 0 && *reason == '\0' ? 1 : 0;
        }
        EXPECT_EQ(eml_cb_delete(record), 0);
        EXPECT_EQ(zelieml::test::list_directory(workdir_), strings{"zelismes.cf"});
    }
    EXPECT_GT(good, 20) << "a post asks for memory more often than that";
    EXPECT_TRUE(untold == 0 || GetParam() != 1) << "where one request fails, there is a reason";
    EXPECT_GE(server->mails().size(), sent) << "what counts as sent has arrived";

    server.reset();
    EXPECT_EQ(zelieml::test::open_descriptors(), descriptors);
}

TEST_P(NoMemory, ForAPreview)
{
    settings("");
    std::string const list = "anna@b.test, " + std::string(40, 'x') + "@b.test";
    eml_msg_set_to(msg_, list.c_str());
    eml_msg_set_body(msg_, other_string);
    int        calls  = 0;
    int        result = 0;
    auto const count  = [](eml_preview const* preview, void* user) {
        EXPECT_EQ(preview->recipient_count, 2);
        ++*static_cast<int*>(user);
    };
    // Lack of memory can cost subject and body.
    int good = 0;
    for (bool refused = true; refused && !HasFailure(); ++good) {
        SCOPED_TRACE(good);
        calls = 0;
        try {
            failing_new const limit(good, GetParam());
            result = eml_msg_preview(workdir_.c_str(), msg_, count, &calls);
        } catch (...) {
            ADD_FAILURE() << "something was thrown";
        }
        refused = failing_new::refused();
        EXPECT_TRUE(result == 0 || (refused && result == -1)) << result;
        EXPECT_EQ(calls, result == 0 ? 1 : 0);
    }
    EXPECT_GT(good, 5) << "a preview asks for memory more often than that";
}

TEST_P(NoMemory, ForServerRecordsAndLists)
{
    void* server = nullptr;
    void* list   = nullptr;
    int   result = 0;
    EXPECT_GT(until_it_succeeds([&] { return (result = server_info_create(&server)) == 0; },
                                [&] { EXPECT_EQ(result, -1); }),
              0);
    EXPECT_GT(until_it_succeeds([&] { return (result = eml_receive_msg_create(&list)) == 0; },
                                [&] { EXPECT_EQ(result, -1); }),
              0);
    // Until it succeeds there is no connection, and so no login in clear. What was wrong before is
    // not what is wrong now.
    EXPECT_EQ(server_info_set_tls(server, "Yes", "Yes", nullptr), 0);
    std::string const ca_file =
        "/a/path/that/is/longer/than/a/string/without/memory/of/its/own.pem";
    EXPECT_GT(until_it_succeeds(
                  [&] {
                      return (result =
                                  server_info_set_tls(server, "tls", "tls", ca_file.c_str())) == 0;
                  },
                  [&] {
                      EXPECT_EQ(result, -1);
                      char reason[EML_REASON_SIZE];
                      server_info_set_smtp(server, "127.0.0.1", "u", "p", "on", 1);
                      test_smtp_auth_sized(server, "off", nullptr, 0, reason, sizeof reason);
                      EXPECT_STREQ(reason,
                                   "TLS: there was no memory for the choice of the server record");
                  }),
              0);
    failing_new const none(0);
    EXPECT_EQ(server_info_set_pop(server, "h", "u", "p", "pop", 110, 0), 0);
    EXPECT_EQ(server_info_set_smtp(server, "h", "u", "p", "on", 25), 0);
    EXPECT_EQ(eml_receive_msg_count(list), 0);
    EXPECT_EQ(eml_receive_msg_destroy(list), 0);
    EXPECT_EQ(server_info_destroy(server), 0);
}

TEST_P(NoMemory, ForLoginTests)
{
    int const                    descriptors = zelieml::test::open_descriptors();
    zelieml::mailserver::options options;
    options.users = {{"an account with a name of some length", long_string}};
    auto  host    = std::make_unique<mail_server>(options);
    void* server  = nullptr;
    EXPECT_EQ(server_info_create(&server), 0);
    char const* const user = options.users[0].user.c_str();
    server_info_set_pop(server, "127.0.0.1", user, long_string, "apop", host->pop_port(), 0);
    server_info_set_smtp(server, "127.0.0.1", user, long_string, "on", host->smtp_port());

    eml_send_e code         = eml_send_ok;
    char       message[100] = "";
    EXPECT_GT(until_it_succeeds(
                  [&] {
                      message[0] = '?';
                      return (code = test_pop_auth(server, message)) == eml_send_ok;
                  },
                  [&] {
                      EXPECT_NE(code, eml_send_ok);
                      EXPECT_NE(message[0], '?') << "the buffer always gets a string";
                  }),
              3);
    EXPECT_GT(until_it_succeeds(
                  [&] { return (code = test_smtp_auth(server, "on", nullptr)) == eml_send_ok; },
                  [&] { EXPECT_NE(code, eml_send_ok); }),
              3);
    char                              reason[EML_REASON_SIZE];
    std::function<eml_send_e()> const sized[] = {
        [&] { return test_pop_auth_sized(server, message, sizeof message, reason, sizeof reason); },
        [&] {
            return test_smtp_auth_sized(server, "on", message, sizeof message, reason,
                                        sizeof reason);
        },
    };
    for (auto const& test : sized) {
        EXPECT_GT(until_it_succeeds(
                      [&] {
                          message[0] = '?';
                          return (code = test()) == eml_send_ok;
                      },
                      [&] {
                          EXPECT_NE(code, eml_send_ok);
                          EXPECT_NE(message[0], '?') << "the buffer always gets a string";
                          EXPECT_STRNE(reason, "") << "a reason needs no memory";
                      }),
                  3);
        EXPECT_STREQ(reason, "");
    }
    EXPECT_EQ(server_info_destroy(server), 0);
    host.reset();
    EXPECT_EQ(zelieml::test::open_descriptors(), descriptors);
}

TEST_P(NoMemory, ForReceiving)
{
    int const                    descriptors = zelieml::test::open_descriptors();
    zelieml::mailserver::options options;
    options.users = {{"tim", "tanstaaf"}};
    auto  host    = std::make_unique<mail_server>(options);
    void* server  = nullptr;
    void* list    = nullptr;
    EXPECT_EQ(server_info_create(&server), 0);
    EXPECT_EQ(eml_receive_msg_create(&list), 0);
    server_info_set_pop(server, "127.0.0.1", "tim", "tanstaaf", "pop", host->pop_port(), 0);

    auto const fill = [&] {
        while (host->mailbox().size() < 2) {
            host->put(
                std::string("From: =?ISO-8859-1?Q?a_name_of_more_than_a_few_bytes?= <a@a.test>"
                            "\r\nSubject: ") +
                other_string + "\r\nMessage-Id: " + long_string + "\r\nDate: " + long_string +
                "\r\n\r\ntext\r\n");
        }
    };
    fill();
    int result = 0;
    EXPECT_GT(until_it_succeeds(
                  [&] {
                      result = eml_receive_mails(server, list, "b.test, a.test");
                      return result == 0;
                  },
                  [&] {
                      EXPECT_EQ(result, -1);
                      EXPECT_EQ(eml_receive_msg_count(list), 0) << "an empty list";
                      fill();
                  }),
              5);
    EXPECT_EQ(eml_receive_msg_count(list), 2);
    char text[100];
    EXPECT_GT(until_it_succeeds(
                  [&] { return (result = eml_receive_msg_get_subject(list, 1, text, 100)) == 0; },
                  [&] { EXPECT_EQ(result, -1); }),
              0);
    EXPECT_STREQ(text, other_string);

    // The same with a reason, and the fields of the header.
    char reply[100];
    char reason[100];
    fill();
    EXPECT_GT(until_it_succeeds(
                  [&] {
                      reply[0] = reason[0] = '?';
                      result = eml_receive_mails_sized(server, list, "a.test", reply, sizeof reply,
                                                       reason, sizeof reason);
                      return result == 0;
                  },
                  [&] {
                      EXPECT_EQ(result, -1);
                      EXPECT_EQ(eml_receive_msg_count(list), 0) << "an empty list";
                      EXPECT_NE(reply[0], '?');
                      EXPECT_NE(reason[0], '?') << "the buffers always get strings";
                      fill();
                  }),
              5);
    EXPECT_STREQ(reason, "");
    // The same with a result record, if there is memory for one.
    fill();
    EXPECT_GT(until_it_succeeds(
                  [&] {
                      void* record    = nullptr;
                      result          = eml_receive_mails_result(server, list, "a.test", &record);
                      eml_cause cause = eml_cause_32_bits;
                      if (record != nullptr) {
                          EXPECT_EQ(eml_cb_get_cause(record, &cause), 0);
                          EXPECT_EQ(cause == eml_cause_none, result == 0);
                      }
                      eml_cb_delete(record);
                      return result == 0 && record != nullptr;
                  },
                  [&] { fill(); }),
              5);
    // What was fetched is kept, but for the mail that there was no memory for.
    fill();
    EXPECT_GT(until_it_succeeds(
                  [&] {
                      void* record = nullptr;
                      result       = eml_receive_mails_result(server, list, nullptr, &record);
                      eml_cb_delete(record);
                      return result == 0 && record != nullptr;
                  },
                  [&] {
                      int const left = static_cast<int>(host->mailbox().size());
                      int const kept = eml_receive_msg_count(list);
                      EXPECT_GE(kept + 1, 2 - left);
                      char line[1000];
                      for (int i = 0; i < kept; ++i) {
                          EXPECT_EQ(eml_receive_msg_get_subject(list, i, line, sizeof line), 0);
                          EXPECT_EQ(eml_receive_msg_get_date(list, i, line, sizeof line), 0);
                          EXPECT_STREQ(line, long_string);
                      }
                      fill();
                  }),
              5);
    struct {
        int (*get)(void*, int, char*, int);
        char const* text;
    } const fields[] = {
        {eml_receive_msg_get_sender_utf8, "a name of more than a few bytes <a@a.test>"},
        {eml_receive_msg_get_subject_utf8, other_string},
        {eml_receive_msg_get_messageid, long_string},
        {eml_receive_msg_get_date, long_string},
    };
    for (auto const& field : fields) {
        std::strcpy(text, "kept");
        EXPECT_GT(until_it_succeeds([&] { return (result = field.get(list, 1, text, 100)) == 0; },
                                    [&] {
                                        EXPECT_EQ(result, -1);
                                        EXPECT_STREQ(text, "kept");
                                    }),
                  0);
        EXPECT_STREQ(text, field.text);
    }
    eml_receive_msg_destroy(list);
    server_info_destroy(server);
    host.reset();
    EXPECT_EQ(zelieml::test::open_descriptors(), descriptors);
}

TEST_P(NoMemory, ForStartingAnEngine)
{
    settings("");
    int const descriptors = descriptors_without_an_engine(workdir_);
    int       untouched   = 0;
    void*     eml         = nullptr;
    int       result      = 0;
    EXPECT_GT(until_it_succeeds(
                  [&] {
                      eml    = &untouched;
                      result = eml_start(workdir_.c_str(), &eml);
                      return result == 0;
                  },
                  [&] {
                      EXPECT_EQ(result, -1);
                      EXPECT_EQ(eml, &untouched);
                      EXPECT_EQ(zelieml::test::open_descriptors(), descriptors);
                      EXPECT_EQ(sockets(), strings());
                  }),
              3);
    {
        failing_new const none(0);
        EXPECT_EQ(eml_stop(eml), 0) << "stopping needs none";
    }
    EXPECT_EQ(eml_start(workdir_.c_str(), &eml), 0);
    {
        failing_new const none(0);
        EXPECT_EQ(eml_stop_multi(&eml), 0);
    }
    EXPECT_EQ(eml, nullptr);
    EXPECT_EQ(zelieml::test::open_descriptors(), descriptors);
    EXPECT_EQ(sockets(), strings());
}

TEST_P(NoMemory, ForCallbacks)
{
    settings("");
    void* eml    = nullptr;
    int   result = 0;
    EXPECT_EQ(eml_start(workdir_.c_str(), &eml), 0);
    EXPECT_GT(
        until_it_succeeds([&] { return (result = eml_set_callback(eml, do_nothing, msg_)) == 0; },
                          [&] { EXPECT_EQ(result, -1); }),
        0);
    EXPECT_GT(until_it_succeeds([&] { return (result = eml_reset_callback(eml, do_nothing)) == 0; },
                                [&] { EXPECT_EQ(result, -1); }),
              0);
    EXPECT_EQ(eml_stop(eml), 0);
}

TEST_P(NoMemory, ForAFileToQueue)
{
    settings("");
    void* eml    = nullptr;
    int   result = 0;
    EXPECT_EQ(eml_start(workdir_.c_str(), &eml), 0);
    std::string const file = dir_.file("a message file that is not there.sme");
    EXPECT_GT(
        until_it_succeeds([&] { return (result = eml_queue_message_file(eml, file.c_str())) == 0; },
                          [&] { EXPECT_EQ(result, -1); }),
        0);
    EXPECT_EQ(eml_stop(eml), 0);
}

// A post that cannot be announced without memory is saved, and so it succeeds.
TEST_P(NoMemory, ForAPostToAnEngine)
{
    settings("");
    EXPECT_EQ(eml_msg_set_subject(msg_, long_string), 0);
    int const descriptors = descriptors_without_an_engine(workdir_);
    void*     eml         = nullptr;
    EXPECT_EQ(eml_start(workdir_.c_str(), &eml), 0);
    std::string const file = dir_.file("a message file with a name of some length.sme");
    struct row {
        char const*          name;
        std::function<int()> post;
        bool                 makes_a_file;
    } const rows[] = {
        {"eml_post", [&] { return eml_post(workdir_.c_str(), msg_); }, true},
        {"eml_post_sys", [&] { return eml_post_sys(eml, msg_); }, true},
        {"eml_post_message_file", [&] { return eml_post_message_file(file.c_str()); }, false},
    };
    for (row const& r : rows) {
        SCOPED_TRACE(r.name);
        bool refused = true;
        int  good    = 0;
        for (; refused && !HasFailure(); ++good) {
            SCOPED_TRACE(good);
            std::size_t const before = messages().size();
            int               result = 1;
            try {
                failing_new const limit(good, GetParam());
                result = r.post();
            } catch (...) {
                ADD_FAILURE() << "something was thrown";
            }
            refused = failing_new::refused();
            EXPECT_TRUE(result == 0 || (refused && result == -1)) << result;
            EXPECT_EQ(messages().size(), before + (result == 0 && r.makes_a_file ? 1 : 0));
        }
        EXPECT_GT(good, 3) << "a post asks for memory more often than that";
    }
    EXPECT_EQ(eml_stop(eml), 0);
    EXPECT_EQ(zelieml::test::open_descriptors(), descriptors);
}
