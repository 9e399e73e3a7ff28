// What is said before TLS, reply by reply.

#include "plugins/tls/clear_talk.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "plugins/tls/failure.h"
#include "tests/support/case_name.h"
#include "tests/tls/written_server.h"

namespace zelieml::test
{

namespace
{

struct talk_case {
    char const* name;
    std::string says;
    std::string result;  // the greeting for the session, or the reason
    eml_cause   cause = eml_cause_none;
    std::string heard = "ehlo me\r\nstarttls\r\n";
};

void PrintTo(talk_case const& c, std::ostream* out)
{
    *out << c.name;
}

class SmtpInClear : public testing::TestWithParam<talk_case>
{
};
class PopInClear : public testing::TestWithParam<talk_case>
{
};

template <class Ask>
void expect_talk(talk_case const& c, Ask&& ask)
{
    written_server server(c.says);
    std::string    result;
    eml_cause      cause = eml_cause_none;
    try {
        result = ask(server);
    } catch (tls::failure const& failed) {
        result = failed.why;
        cause  = failed.cause;
    }
    EXPECT_EQ(result, c.result);
    EXPECT_EQ(cause, c.cause);
    EXPECT_EQ(server.heard, c.heard);
}

std::string const greeting = "220 mail.test\r\n";
std::string const offer    = "250-mail.test\r\n250-SIZE 5\r\n250 STARTTLS\r\n";
std::string const go       = "220 go on\r\n";
std::string const nothing;
std::string const only_ehlo          = "ehlo me\r\n";
std::string const longest            = "220-" + std::string(8173, 'x') + "\r\n";
char const        no_reply_to_ehlo[] = "the server answered EHLO with what is no reply";

std::string many(char const* line, int count)
{
    std::string all;
    for (int i = 0; i < count; ++i) {
        all += line;
    }
    return all;
}

talk_case const smtp_cases[] = {
    {"TLS begins", greeting + offer + go, "220 mail.test\r\n"},
    {"a greeting of two lines", "220-mail.test\r\n220 ready\r\n" + offer + go,
     "220-mail.test\r\n220 ready\r\n"},
    {"lines that end in LF alone", "220 mail.test\n250-mail.test\n250 STARTTLS\n220 go\n",
     "220 mail.test\r\n"},
    {"a greeting that is a code alone", "220\r\n" + offer + go, "220 \r\n"},
    {"an offer in small letters, with a parameter",
     greeting + "250-mail.test\r\n250 starttls now\r\n" + go, "220 mail.test\r\n"},
    {"a greeting that is a refusal", "554 not you\r\n",
     "the server refused the connection: 554 not you", eml_cause_refused, nothing},
    {"a greeting that is a refusal for now", "421 later\r\n",
     "the server refused the connection: 421 later", eml_cause_refused_now, nothing},
    {"a greeting of POP3", "+OK ready\r\n", "the server greets with what is no reply",
     eml_cause_protocol, nothing},
    {"a NUL in the greeting", std::string("220 ma\0il\r\n", 11),
     "the server greets with what is no reply", eml_cause_protocol, nothing},
    {"a CR in the greeting, which hides a reply", "220 mail\r250 ok\r\n",
     "the server greets with what is no reply", eml_cause_protocol, nothing},
    {"two codes in the greeting", "220-mail.test\r\n250 ok\r\n",
     "the server greets with what is no reply", eml_cause_protocol, nothing},
    {"a greeting that never ends", many("220-mail.test\r\n", 101),
     "the server greets with what is no reply", eml_cause_protocol, nothing},
    {"a greeting as long as it may be", longest + "220 ready\r\n" + offer + go,
     longest + "220 ready\r\n"},
    {"a greeting that is longer", longest + "220 ready.\r\n" + offer + go,
     "the server greets with what is no reply", eml_cause_protocol, nothing},
    {"an offer that is longer", greeting + "250-" + std::string(8192, 'x') + "\r\n250 STARTTLS\r\n",
     no_reply_to_ehlo, eml_cause_protocol, only_ehlo},
    {"EHLO refused", greeting + "502 what\r\n", "the server refused EHLO: 502 what",
     eml_cause_refused, only_ehlo},
    {"no offer", greeting + "250-mail.test\r\n250 SIZE 5\r\n", "the server does not offer STARTTLS",
     eml_cause_tls, only_ehlo},
    {"a host of that name is no offer", greeting + "250 STARTTLS\r\n",
     "the server does not offer STARTTLS", eml_cause_tls, only_ehlo},
    {"a longer word is no offer", greeting + "250-mail.test\r\n250 STARTTLSX\r\n",
     "the server does not offer STARTTLS", eml_cause_tls, only_ehlo},
    {"an empty line for EHLO", greeting + "\r\n", no_reply_to_ehlo, eml_cause_protocol, only_ehlo},
    {"letters for a code", greeting + "2x0 ok\r\n", no_reply_to_ehlo, eml_cause_protocol,
     only_ehlo},
    {"no blank behind the code", greeting + "250:ok\r\n", no_reply_to_ehlo, eml_cause_protocol,
     only_ehlo},
    {"STARTTLS refused for now", greeting + offer + "454 no TLS today\r\n",
     "the server refused STARTTLS: 454 no TLS today", eml_cause_refused_now},
    {"STARTTLS refused", greeting + offer + "554 never\r\n",
     "the server refused STARTTLS: 554 never", eml_cause_refused},
    {"250 to STARTTLS", greeting + offer + "250 220 ok\r\n",
     "the server refused STARTTLS: 250 220 ok", eml_cause_protocol},
    {"a reply injected behind that to STARTTLS", greeting + offer + go + "250 AUTH PLAIN\r\n",
     "the server said something in clear behind its answer to STARTTLS", eml_cause_protocol},
    {"a byte injected behind it", greeting + offer + go + "2",
     "the server said something in clear behind its answer to STARTTLS", eml_cause_protocol},
    {"the connection lost after EHLO", greeting, "no more after EHLO", eml_cause_lost, only_ehlo},
};

TEST_P(SmtpInClear, SaysNoMoreThanItMust)
{
    expect_talk(GetParam(), [](tls::clear_channel& server) { return ask_smtp(server, "me"); });
}
INSTANTIATE_TEST_SUITE_P(Table, SmtpInClear, testing::ValuesIn(smtp_cases), case_name<talk_case>);

std::string const both      = "capa\r\nstls\r\n";
std::string const only_capa = "capa\r\n";
std::string const pop_offer = "+OK list\r\nUSER\r\nSTLS\r\n.\r\n";

talk_case const pop_cases[] = {
    {"TLS begins", "+OK ready <1@x>\r\n" + pop_offer + "+OK go\r\n", "+OK ready <1@x>\r\n",
     eml_cause_none, both},
    {"replies in small letters", "+ok ready\r\n+ok list\r\nSTLS\r\n.\r\n+ok go\r\n",
     "+ok ready\r\n", eml_cause_none, both},
    {"a greeting that is a refusal", "-ERR [SYS/TEMP] later\r\n",
     "the server refused the connection: -ERR [SYS/TEMP] later", eml_cause_refused_now, nothing},
    {"a greeting of SMTP", greeting, "the server refused the connection: 220 mail.test",
     eml_cause_protocol, nothing},
    {"CAPA refused", "+OK\r\n-ERR what\r\n", "the server refused CAPA: -ERR what",
     eml_cause_refused, only_capa},
    {"no offer", "+OK\r\n+OK list\r\nUSER\r\n.\r\n", "the server does not offer STLS",
     eml_cause_tls, only_capa},
    {"a list that never ends", "+OK\r\n+OK\r\n" + many("USER\r\n", 101),
     "the server answered CAPA with what is no reply", eml_cause_protocol, only_capa},
    {"STLS refused", "+OK\r\n" + pop_offer + "-ERR no\r\n", "the server refused STLS: -ERR no",
     eml_cause_refused, both},
    {"a reply injected behind that to STLS", "+OK\r\n" + pop_offer + "+OK\r\n+OK logged in\r\n",
     "the server said something in clear behind its answer to STLS", eml_cause_protocol, both},
};

TEST_P(PopInClear, SaysNoMoreThanItMust)
{
    expect_talk(GetParam(), [](tls::clear_channel& server) { return ask_pop(server); });
}
INSTANTIATE_TEST_SUITE_P(Table, PopInClear, testing::ValuesIn(pop_cases), case_name<talk_case>);

}  // namespace

}  // namespace zelieml::test
