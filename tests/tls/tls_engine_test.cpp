// Engines that are stopped in the middle of TLS.

#include <atomic>
#include <gtest/gtest.h>

#include "tests/support/case_name.h"
#include "tests/support/dialogues.h"
#include "tests/support/fake_plugin_folder.h"
#include "tests/support/scripted_server.h"
#include "tests/support/wait_until.h"
#include "tests/support/workplace.h"
#include "tests/tls/authority.h"
#include "tests/tls/tls_front.h"

namespace zelieml::test
{

namespace
{

notification_root const root;

constexpr auto a_minute = std::chrono::minutes(1);  // longer than anybody waits for threads

authority const& ca()
{
    static authority const one;
    return one;
}

std::string const one_mail = helo + mail_from("") + rcpt_to("anna@b.test") + text_sent +
                             "C: quit\nS: 221 bye\nS: (closes)\n";

// Where the server keeps the engine waiting until it has been told to stop, and how the attempt
// ends after that.
struct place {
    char const* name;
    char const* mode;
    bool        stalls;
    char const* at;  // what the client has said last
    eml_send_e  code;
};

place const places[] = {
    {"the greeting before TLS", "starttls", true, "", eml_send_error_connection},
    {"the handshake", "tls", true, "", eml_send_error_connection},
    {"the greeting inside", "tls", false, "", eml_send_ok},
    {"a reply inside", "tls", false, "mail from: ", eml_send_ok},
    {"the text", "tls", false, "Subject: ", eml_send_ok},
    {"the goodbye", "tls", false, "quit", eml_send_ok},
};

void PrintTo(place const& c, std::ostream* out)
{
    *out << c.name;
}

}  // namespace

class StopInTls : public testing::TestWithParam<place>
{
};
INSTANTIATE_TEST_SUITE_P(Table, StopInTls, testing::ValuesIn(places), case_name<place>);

TEST_P(StopInTls, EndsWithTheAttemptAndLeavesNothing)
{
    set_plugin_folder(ZELIEML_TEST_PLUGIN_FOLDER);
    temp_dir const    dir;
    std::string const ca_file = dir.file("ca.pem");
    std::atomic<bool> there{false};
    std::atomic<bool> goes_on{false};
    bool const        arrives = GetParam().code == eml_send_ok;
    scripted_server   mail(arrives ? one_mail : nobody_comes);
    tls_manners       manners;
    manners.in_front_of = mail.port();
    manners.stalls      = GetParam().stalls;
    manners.hears       = [&](std::string const& said) {
        if (said.find(GetParam().at) != said.npos) {
            there = true;
            wait_until([&] { return goes_on.load(); }, a_minute);
        }
    };
    write_file(ca_file, ca().certificate());
    tls_front server(ca().issue(), manners);
    workplace work(server.port(), std::string("smtp_tls = ") + GetParam().mode +
                                      "\r\ntls_ca_file = " + ca_file + "\r\n");
    std::thread([] {}).join();  // with the first one sanitizers start one of their own
    int const threads     = running_threads();
    int const descriptors = open_descriptors();
    {
        running_engine engine(work);
        // More than the buffers on the way hold.
        void* const msg = new_mail("a report", std::string(4'000'000, 'x'));
        EXPECT_EQ(eml_post_with_stocksymbol(work.path(), "symbol", msg), 0);
        eml_msg_destroy(msg);
        EXPECT_TRUE(wait_until([&] { return there.load(); }));
        waiter stopping([&] { engine.stop(); });
        EXPECT_TRUE(stopping.gets_blocked());
        EXPECT_EQ(engine.results.count(), 0U) << "the attempt is still being made";
        goes_on = true;
        stopping.join();
        EXPECT_EQ(engine.results.codes(), std::vector<eml_send_e>{GetParam().code});
    }
    EXPECT_TRUE(server.wait());
    EXPECT_TRUE(wait_for_running_threads(threads));
    EXPECT_TRUE(wait_until([&] { return open_descriptors() == descriptors; }));
    EXPECT_EQ(server.clients(), 1) << "no other attempt is begun";
    EXPECT_EQ(mail.heard(), mail.expected()) << mail.problem();
    EXPECT_EQ(work.messages().size(), arrives ? 0U : 1U);
    EXPECT_EQ(root.sockets(), strings());
}

}  // namespace zelieml::test
