// EHLO, the choice of a mechanism, and the three exchanges.

#include "libsendw/smtp.h"

#include <algorithm>
#include <sys/socket.h>

#include "tests/libsendw/smtp_cases.h"

namespace zelieml::test
{

namespace
{

class SmtpAuth : public smtp_command
{
};

TEST_P(SmtpAuth, EndsAsTheTranscriptSays)
{
    play();
}

class SmtpAuthentication : public on_a_clean_machine
{
};

// ---- which line offers authentication

TEST_F(SmtpAuthentication, IsOfferedByTheFirstLineThatSaysAUTH)
{
    struct {
        strings     lines;
        char const* found;
        char const* reason;
    } const cases[] = {
        {{"250-mail.test\r\n", "250-AUTH LOGIN PLAIN\r\n", "250 HELP\r\n"},
         "250-AUTH LOGIN PLAIN\r\n",
         "one line"},
        {{"250-AUTH=LOGIN\r\n", "250 AUTH PLAIN\r\n"}, "250-AUTH=LOGIN\r\n", "the first of two"},
        {{"250 AUTH PLAIN\r\n"}, "250 AUTH PLAIN\r\n", "the last line"},
        {{"250-XAUTHX\r\n", "250 AUTH PLAIN\r\n"}, "250-XAUTHX\r\n", "within a word"},
        {{"250-auth LOGIN\r\n", "250 Auth PLAIN\r\n"}, "", "upper case only"},
        {{"250-mail.test\r\n", "250 HELP\r\n"}, "", "no line"},
        {{}, "", "no lines at all"},
    };
    for (auto const& c : cases) {
        strings lines = c.lines;
        EXPECT_EQ(find_auth_reponse(lines), c.found) << c.reason;
        EXPECT_EQ(lines, c.lines) << c.reason;
    }
}

// ---- the choice of a mechanism

smtp_act ehlo(std::string const& auth_type)
{
    return [auth_type](_s_smtp* session) { return smtp_ehlo(session, auth_type, "joe", "secret"); };
}

// The server refuses the mechanism that the client chooses: there is no second one.
command_case choice(char const* name, char const* auth_type, std::string const& offer,
                    std::string const& chosen)
{
    bool const plain = chosen.rfind("AUTH PLAIN", 0) == 0;
    return {name,
            "C: ehlo {host}\n" + offer + "\nC: " + chosen + "\nS: 504 not that one\nC: (closes)",
            ehlo(auth_type),
            -1,
            "504 not that one\r\n",
            plain ? refused("error:not 235") : strings{"error:not 334"}};
}

char const* const cram_md5 = "AUTH CRAM-MD5";
char const* const login    = "AUTH LOGIN";
char const* const plain    = "AUTH PLAIN {base64:\\0joe\\0secret}";

command_case const choices[] = {
    choice("auto prefers cram-md5 at the end of the line", "auto",
           "S: 250-mail.test\nS: 250-AUTH LOGIN PLAIN CRAM-MD5\nS: 250 HELP", cram_md5),
    choice("auto prefers cram-md5 at the start of the line", "auto",
           "S: 250 AUTH CRAM-MD5 LOGIN PLAIN", cram_md5),
    choice("auto prefers login to plain", "auto", "S: 250-AUTH PLAIN LOGIN\nS: 250 HELP", login),
    choice("auto takes plain when that is all", "auto", "S: 250 AUTH PLAIN", plain),
    choice("auto takes plain when the server has nothing it knows", "auto",
           "S: 250 AUTH DIGEST-MD5 GSSAPI", plain),
    choice("auto takes plain when the server offers nothing", "auto", "S: 250 mail.test", plain),
    choice("auto reads an offer in the old form", "auto", "S: 250 AUTH=LOGIN", login),
    choice("auto reads the first of two offers only", "auto",
           "S: 250-AUTH=LOGIN\nS: 250 AUTH CRAM-MD5", login),
    choice("auto reads the host name when that says AUTH", "auto",
           "S: 250-AUTH.mail.test\nS: 250 AUTH LOGIN", plain),
    choice("auto reads no lower case", "auto", "S: 250 AUTH cram-md5 login", plain),
    choice("auto may stand within another word", "automatic", "S: 250 AUTH LOGIN", login),
    choice("auto goes before a mechanism that is named too", "auto cram-md5", "S: 250 AUTH LOGIN",
           login),
    choice("auto in upper case is none", "AUTO", "S: 250 AUTH CRAM-MD5", plain),

    choice("a setting of cram-md5", "cram-md5", "S: 250 AUTH CRAM-MD5 LOGIN", cram_md5),
    choice("a setting of cram-md5 that the server does not offer", "cram-md5",
           "S: 250 AUTH LOGIN PLAIN", cram_md5),
    choice("a setting of cram-md5 to a server without authentication", "cram-md5",
           "S: 250 mail.test", cram_md5),
    choice("a setting of login that the server does not offer", "login", "S: 250 AUTH CRAM-MD5",
           login),
    choice("a setting of both prefers cram-md5", "login or cram-md5", "S: 250 AUTH LOGIN",
           cram_md5),
    choice("a setting of plain", "plain", "S: 250 AUTH CRAM-MD5 LOGIN", plain),
    choice("a setting of nothing", "", "S: 250 AUTH CRAM-MD5 LOGIN", plain),
    choice("a setting of something else", "digest-md5", "S: 250 AUTH DIGEST-MD5", plain),
    choice("a setting of cram-md5 in upper case", "CRAM-MD5", "S: 250 AUTH CRAM-MD5", plain),
    choice("a setting of login in upper case", "LOGIN", "S: 250 AUTH LOGIN", plain),
};

INSTANTIATE_TEST_SUITE_P(Choice, SmtpAuth, testing::ValuesIn(choices), case_name<command_case>);

// ---- ehlo

command_case const ehlo_cases[] = {
    {"ehlo and a login",
     R"(
        C: ehlo {host}
        S: 250-mail.test
        S: 250 AUTH PLAIN
        C: AUTH PLAIN {base64:\0joe\0secret}
        S: 235 welcome
     )",
     ehlo("auto"), 0, "235 welcome\r\n"},
    {"ehlo accepted by a code in the words of the last line",
     R"(
        C: ehlo {host}
        S: 550 extension 250 unknown
        C: AUTH PLAIN {base64:\0joe\0secret}
        S: 235 welcome
     )",
     ehlo("auto"), 0, "235 welcome\r\n"},
    {"ehlo refused",
     R"(
        C: ehlo {host}
        S: 502 helo, please
        C: (closes)
     )",
     ehlo("auto"),
     -1,
     "502 helo, please\r\n",
     {"error:not 250"}},
    {"ehlo refused in the last line",
     R"(
        C: ehlo {host}
        S: 250-AUTH PLAIN
        S: 421 too busy
        C: (closes)
     )",
     ehlo("auto"),
     -1,
     "250-AUTH PLAIN\r\n421 too busy\r\n",
     {"error:not 250"}},
    {"ehlo unanswered",
     R"(
        C: ehlo {host}
        S: (closes)
     )",
     ehlo("auto"),
     -1,
     "",
     {"error:read_multiline_reply"}},
    {"ehlo half answered",
     R"(
        C: ehlo {host}
        S: 250-mail.test
        S: 250
        S: (resets)
     )",
     ehlo("auto"),
     -1,
     "250-mail.test\r\n250\r\n",
     {"error:read_multiline_reply"}},
};

INSTANTIATE_TEST_SUITE_P(Ehlo, SmtpAuth, testing::ValuesIn(ehlo_cases), case_name<command_case>);

smtp_act ehlo2(char const* auth_switch)
{
    return [auth_switch](_s_smtp* session) {
        return smtp_ehlo2(session, "auto", "joe", "secret", auth_switch);
    };
}

command_case const ehlo2_cases[] = {
    {"on with a server that offers authentication",
     R"(
        C: ehlo {host}
        S: 250 AUTH LOGIN
        C: AUTH LOGIN
        S64: 334 User:
        C64: joe
        S64: 334 Password:
        C64: secret
        S: 235 welcome
     )",
     ehlo2("on"), 0, "235 welcome\r\n"},
    {"on with a server that offers authentication and refuses it",
     R"(
        C: ehlo {host}
        S: 250 AUTH PLAIN
        C: AUTH PLAIN {base64:\0joe\0secret}
        S: 535 who?
        C: (closes)
     )",
     ehlo2("on"), -1, "535 who?\r\n", refused("error:not 235")},
    {"on with a server that offers none",
     R"(
        C: ehlo {host}
        S: 250 mail.test
        C: (closes)
     )",
     ehlo2("on"),
     -1,
     "250 mail.test\r\n",
     {"error:smtp incorrect"}},
    {"off with a server that offers none",
     R"(
        C: ehlo {host}
        S: 250 mail.test
        C: (closes)
     )",
     ehlo2("off"), 0, "250 mail.test\r\n"},
    {"off with a server that offers authentication",
     R"(
        C: ehlo {host}
        S: 250 AUTH LOGIN
        C: (closes)
     )",
     ehlo2("off"),
     -1,
     "250 AUTH LOGIN\r\n",
     {"error:smtp incorrect"}},
    {"a switch that is neither, with an offer",
     R"(
        C: ehlo {host}
        S: 250 AUTH LOGIN
        C: (closes)
     )",
     ehlo2("ON"),
     -1,
     "250 AUTH LOGIN\r\n",
     {"error:smtp incorrect"}},
    {"a switch that is neither, without an offer",
     R"(
        C: ehlo {host}
        S: 250 mail.test
        C: (closes)
     )",
     ehlo2(""),
     -1,
     "250 mail.test\r\n",
     {"error:smtp incorrect"}},
    {"a refusal goes before the switch",
     R"(
        C: ehlo {host}
        S: 502 helo, please
        C: (closes)
     )",
     ehlo2("off"),
     -1,
     "502 helo, please\r\n",
     {"error:not 250"}},
    {"no answer",
     R"(
        C: ehlo {host}
        S: (closes)
     )",
     ehlo2("off"),
     -1,
     "",
     {"error:read_multiline_reply"}},
};

INSTANTIATE_TEST_SUITE_P(Ehlo2, SmtpAuth, testing::ValuesIn(ehlo2_cases), case_name<command_case>);

// ---- CRAM-MD5

smtp_act by_cram_md5(std::string const& user, std::string const& password)
{
    return [=](_s_smtp* session) { return auth_cram_md5(session, user.c_str(), password.c_str()); };
}

command_case const cram_md5_cases[] = {
    {"the example of RFC 2195",
     R"(
        C: AUTH CRAM-MD5
        S: 334 PDE4OTYuNjk3MTcwOTUyQHBvc3RvZmZpY2UucmVzdG9uLm1jaS5uZXQ+
        C: dGltIGI5MTNhNjAyYzdlZGE3YTQ5NWI0ZTZlNzMzNGQzODkw
        S: 235 welcome
     )",
     by_cram_md5("tim", "tanstaaftanstaaf"), 0, "235 welcome\r\n"},
    {"test case 2 of RFC 2202",
     R"(
        C: AUTH CRAM-MD5
        S64: 334 what do ya want for nothing?
        C64: joe 750c783e6ab0b503eaa86e310a5db738
        S: 235 welcome
     )",
     by_cram_md5("joe", "Jefe"), 0, "235 welcome\r\n"},
    {"test case 6 of RFC 2202, a password longer than a block",
     R"(
        C: AUTH CRAM-MD5
        S64: 334 Test Using Larger Than Block-Size Key - Hash Key First
        C64: joe 6b1ab7fe4bd7bf8f0b62e6ce61b9d0cd
        S: 235 welcome
     )",
     by_cram_md5("joe", std::string(80, '\xAA')), 0, "235 welcome\r\n"},
    {"no password and no challenge",
     R"(
        C: AUTH CRAM-MD5
        S- 334 \r\n
        C64: joe 74e6f7298a9c2d168935f58c001bad88
        S: 235 welcome
     )",
     by_cram_md5("joe", ""), 0, "235 welcome\r\n"},
    {"a challenge too short to mean anything",
     R"(
        C: AUTH CRAM-MD5
        S: 334 a
        C64: joe 74e6f7298a9c2d168935f58c001bad88
        S: 235 welcome
     )",
     by_cram_md5("joe", ""), 0, "235 welcome\r\n"},
    {"a challenge counts up to its first NUL",
     R"(
        C: AUTH CRAM-MD5
        S64: 334 ab\0cd
        C64: joe 0fe26d789d153d69755c401a91a97235
        S: 235 welcome
     )",
     by_cram_md5("joe", "secret"), 0, "235 welcome\r\n"},
    {"the challenge stands in the last line",
     R"(
        C: AUTH CRAM-MD5
        S: 334-AAAA
        S64: 334 what do ya want for nothing?
        C64: joe 750c783e6ab0b503eaa86e310a5db738
        S: 235-welcome
        S: 235 back
     )",
     by_cram_md5("joe", "Jefe"), 0, "235-welcome\r\n235 back\r\n"},
    {"a user name with a blank and a percent sign",
     R"(
        C: AUTH CRAM-MD5
        S64: 334 what do ya want for nothing?
        C64: joe %s ^ 750c783e6ab0b503eaa86e310a5db738
        S: 235 welcome
     )",
     by_cram_md5("joe %s ^", "Jefe"), 0, "235 welcome\r\n"},
    {"cram-md5 not known",
     R"(
        C: AUTH CRAM-MD5
        S: 504 what?
        C: (closes)
     )",
     by_cram_md5("joe", "secret"),
     -1,
     "504 what?\r\n",
     {"error:not 334"}},
    {"cram-md5 accepted without a challenge",
     R"(
        C: AUTH CRAM-MD5
        S: 235 welcome
        C: (closes)
     )",
     by_cram_md5("joe", "secret"),
     -1,
     "235 welcome\r\n",
     {"error:not 334"}},
    {"cram-md5 unanswered",
     R"(
        C: AUTH CRAM-MD5
        S: (closes)
     )",
     by_cram_md5("joe", "secret"),
     -1,
     "",
     {"error:read_multiline_reply"}},
    {"a challenge with a character outside the alphabet",
     R"(
        C: AUTH CRAM-MD5
        S: 334 AAAA!AAA
        C: (closes)
     )",
     by_cram_md5("joe", "secret"),
     -1,
     "334 AAAA!AAA\r\n",
     {"error:base64_decode"}},
    {"a challenge in clear text",
     R"(
        C: AUTH CRAM-MD5
        S: 334 <1896.697170952@postoffice.reston.mci.net>
        C: (closes)
     )",
     by_cram_md5("joe", "secret"),
     -1,
     "334 <1896.697170952@postoffice.reston.mci.net>\r\n",
     {"error:base64_decode"}},
    {"a challenge with a word before it",
     R"(
        C: AUTH CRAM-MD5
        S: 334 challenge AAAA
        C: (closes)
     )",
     by_cram_md5("joe", "secret"),
     -1,
     "334 challenge AAAA\r\n",
     {"error:base64_decode"}},
    {"a challenge whose last group is not complete",
     R"(
        C: AUTH CRAM-MD5
        S: 334 AAAAAA
        C: (closes)
     )",
     by_cram_md5("joe", "secret"),
     -1,
     "334 AAAAAA\r\n",
     {"error:base64_decode"}},
    {"the digest refused",
     R"(
        C: AUTH CRAM-MD5
        S: 334 PDE4OTYuNjk3MTcwOTUyQHBvc3RvZmZpY2UucmVzdG9uLm1jaS5uZXQ+
        C: dGltIGI5MTNhNjAyYzdlZGE3YTQ5NWI0ZTZlNzMzNGQzODkw
        S: 535 wrong
        C: (closes)
     )",
     by_cram_md5("tim", "tanstaaftanstaaf"), -1, "535 wrong\r\n", refused("error:not 235")},
    {"the digest unanswered",
     R"(
        C: AUTH CRAM-MD5
        S: 334 PDE4OTYuNjk3MTcwOTUyQHBvc3RvZmZpY2UucmVzdG9uLm1jaS5uZXQ+
        C: (any)
        S: (resets)
     )",
     by_cram_md5("tim", "tanstaaftanstaaf"), -1, "", lost("error:not 235")},
    {"a user name that makes the longest line",
     R"(
        C: AUTH CRAM-MD5
        S64: 334 what do ya want for nothing?
        C64: )" +
         std::string(732, 'u') + R"( 750c783e6ab0b503eaa86e310a5db738
        S: 235 welcome
     )",
     by_cram_md5(std::string(732, 'u'), "Jefe"), 0, "235 welcome\r\n"},
    {"a user name that makes too long a line is not sent",
     R"(
        C: AUTH CRAM-MD5
        S: 334 AAAA
        C: (closes)
     )",
     by_cram_md5(std::string(733, 'u'), "Jefe"),
     -1,
     "334 AAAA\r\n",
     {"error:not 235"}},
};

INSTANTIATE_TEST_SUITE_P(CramMd5, SmtpAuth, testing::ValuesIn(cram_md5_cases),
                         case_name<command_case>);

// ---- LOGIN

smtp_act by_login(std::string const& user, std::string const& password)
{
    return [=](_s_smtp* session) { return auth_login(session, user.c_str(), password.c_str()); };
}

char const* const login_data = "error:auth_login_data %s for %s";

command_case const login_cases[] = {
    {"login",
     R"(
        C: AUTH LOGIN
        S: 334 VXNlcm5hbWU6
        C: am9l
        S: 334 UGFzc3dvcmQ6
        C: c2VjcmV0
        S: 235 welcome
     )",
     by_login("joe", "secret"), 0, "235 welcome\r\n"},
    {"login with prompts that nobody reads",
     R"(
        C: AUTH LOGIN
        S: 334 !%s
        C64: joe
        S: 550-password, then user
        S: 550 334
        C64: secret
        S: 550 235
     )",
     by_login("joe", "secret"), 0, "550 235\r\n"},
    {"login without a name and without a password",
     R"(
        C: AUTH LOGIN
        S64: 334 User:
        C:
        S64: 334 Password:
        C:
        S: 235 welcome
     )",
     by_login("", ""), 0, "235 welcome\r\n"},
    {"login with characters that are special elsewhere",
     R"(
        C: AUTH LOGIN
        S64: 334 User:
        C64: j^e %s\xFF
        S64: 334 Password:
        C64: ^^ \r\n
        S: 235 welcome
     )",
     by_login("j^e %s\xFF", "^^ \r\n"), 0, "235 welcome\r\n"},
    {"login not known",
     R"(
        C: AUTH LOGIN
        S: 504 what?
        C: (closes)
     )",
     by_login("joe", "secret"),
     -1,
     "504 what?\r\n",
     {"error:not 334"}},
    {"login unanswered",
     R"(
        C: AUTH LOGIN
        S: (closes)
     )",
     by_login("joe", "secret"),
     -1,
     "",
     {"error:read_multiline_reply"}},
    {"the user refused",
     R"(
        C: AUTH LOGIN
        S64: 334 User:
        C64: joe
        S: 535 who?
        C: (closes)
     )",
     by_login("joe", "secret"), -1, "535 who?\r\n", refused(login_data)},
    {"the user welcomed too early",
     R"(
        C: AUTH LOGIN
        S64: 334 User:
        C64: joe
        S: 235 welcome
        C: (closes)
     )",
     by_login("joe", "secret"), -1, "235 welcome\r\n", refused(login_data)},
    {"the user unanswered",
     R"(
        C: AUTH LOGIN
        S64: 334 User:
        C64: joe
        S: (closes)
     )",
     by_login("joe", "secret"), -1, "", lost(login_data)},
    {"the password refused",
     R"(
        C: AUTH LOGIN
        S64: 334 User:
        C64: joe
        S64: 334 Password:
        C64: secret
        S: 535 wrong
        C: (closes)
     )",
     by_login("joe", "secret"), -1, "535 wrong\r\n", refused(login_data)},
    {"the password unanswered",
     R"(
        C: AUTH LOGIN
        S64: 334 User:
        C64: joe
        S64: 334 Password:
        C64: secret
        S: (resets)
     )",
     by_login("joe", "secret"), -1, "", lost(login_data)},
    {"the longest user name",
     R"(
        C: AUTH LOGIN
        S64: 334 User:
        C64: )" +
         std::string(765, 'u') + R"(
        S: 535 who?
        C: (closes)
     )",
     by_login(std::string(765, 'u'), "secret"), -1, "535 who?\r\n", refused(login_data)},
    {"a user name that makes too long a line is not sent",
     R"(
        C: AUTH LOGIN
        S: 334 go on
        C: (closes)
     )",
     by_login(std::string(766, 'u'), "secret"),
     -1,
     "334 go on\r\n",
     {login_data}},
};

INSTANTIATE_TEST_SUITE_P(Login, SmtpAuth, testing::ValuesIn(login_cases), case_name<command_case>);

// ---- PLAIN

smtp_act by_plain(std::string const& user, std::string const& password)
{
    return [=](_s_smtp* session) { return auth_plain(session, user.c_str(), password.c_str()); };
}

command_case const plain_cases[] = {
    {"plain",
     R"(
        C: AUTH PLAIN AHUAcA==
        S: 235 welcome
     )",
     by_plain("u", "p"), 0, "235 welcome\r\n"},
    {"the example of RFC 4616",
     R"(
        C: AUTH PLAIN AHRpbQB0YW5zdGFhZnRhbnN0YWFm
        S: 235 welcome
     )",
     by_plain("tim", "tanstaaftanstaaf"), 0, "235 welcome\r\n"},
    {"plain without a name and without a password",
     R"(
        C: AUTH PLAIN AAA=
        S: 235 welcome
     )",
     by_plain("", ""), 0, "235 welcome\r\n"},
    {"a caret in the user name is sent as a NUL",
     R"(
        C: AUTH PLAIN {base64:\0j\0e\0secret}
        S: 235 welcome
     )",
     by_plain("j^e", "secret"), 0, "235 welcome\r\n"},
    {"carets in the password are sent as NULs",
     R"(
        C: AUTH PLAIN {base64:\0joe\0\0sec\0ret\0}
        S: 235 welcome
     )",
     by_plain("joe", "^sec^ret^"), 0, "235 welcome\r\n"},
    {"a percent sign and bytes of any kind",
     R"(
        C: AUTH PLAIN {base64:\0j%s\0\xFF\xFE%n}
        S: 235 welcome
     )",
     by_plain("j%s", "\xFF\xFE%n"), 0, "235 welcome\r\n"},
    {"plain accepted in words",
     R"(
        C: AUTH PLAIN AHUAcA==
        S: 535-no
        S: 535 no, code 235
     )",
     by_plain("u", "p"), 0, "535-no\r\n535 no, code 235\r\n"},
    {"plain refused",
     R"(
        C: AUTH PLAIN AHUAcA==
        S: 535 wrong
        C: (closes)
     )",
     by_plain("u", "p"), -1, "535 wrong\r\n", refused("error:not 235")},
    {"plain answered by a prompt",
     R"(
        C: AUTH PLAIN AHUAcA==
        S- 334 \r\n
        C: (closes)
     )",
     by_plain("u", "p"), -1, "334 \r\n", refused("error:not 235")},
    {"plain unanswered",
     R"(
        C: AUTH PLAIN AHUAcA==
        S: (closes)
     )",
     by_plain("u", "p"), -1, "", lost("error:not 235")},
    {"credentials that make the longest line",
     R"(
        C: AUTH PLAIN {base64:\0)" +
         std::string(377, 'u') + "\\0" + std::string(377, 'p') + R"(}
        S: 235 welcome
     )",
     by_plain(std::string(377, 'u'), std::string(377, 'p')), 0, "235 welcome\r\n"},
    {"credentials that make too long a line are not sent",
     "C: (closes)",
     by_plain(std::string(377, 'u'), std::string(378, 'p')),
     -1,
     greeting_reply,
     {"error:not 235"}},
};

INSTANTIATE_TEST_SUITE_P(Plain, SmtpAuth, testing::ValuesIn(plain_cases), case_name<command_case>);

// ---- traces, silence, memory

// The replies to all that a login says, in one go.
struct login_run {
    char const* name;
    smtp_act    act;
    char const* replies;
    strings     marks;      // traces that tell the way through
    char const* unwritten;  // trace of a first line that cannot be written
};

login_run const login_runs[] = {
    {"cram-md5",
     by_cram_md5("joe", "secret"),
     "334 AAAA\r\n235 ok\r\n",
     {"auth_cram_md5 in", "auth_cram_md5 out"},
     "error:not 334"},
    {"login",
     by_login("joe", "secret"),
     "334 a\r\n334 b\r\n235 ok\r\n",
     {"auth_login in", "auth_login out"},
     "error:not 334"},
    {"plain",
     by_plain("joe", "secret"),
     "235 ok\r\n",
     {"auth_plain in", "auth_plain out"},
     "error:not 235"},
};

TEST_F(SmtpAuthentication, TracesWhereItGoesInAndOut)
{
    for (login_run const& run : login_runs) {
        hand_held_session held;
        held.pair.say(run.replies);
        clear_traces();
        ASSERT_EQ(run.act(&held.session), 0) << run.name;
        strings const all = traces();
        EXPECT_EQ(all.front(), run.marks[0]) << run.name;
        EXPECT_EQ(all.back(), run.marks[1]) << run.name;
        EXPECT_EQ(trouble_traces(), strings{}) << run.name;
    }
}

TEST_F(SmtpAuthentication, HasNoWayOutWhenItFails)
{
    for (login_run const& run : login_runs) {
        hand_held_session held;
        held.pair.say("504 no\r\n");
        clear_traces();
        ASSERT_EQ(run.act(&held.session), -1) << run.name;
        strings const all = traces();
        EXPECT_EQ(all.front(), run.marks[0]) << run.name;
        EXPECT_EQ(std::count(all.begin(), all.end(), run.marks[1]), 0) << run.name;
    }
}

TEST_F(SmtpAuthentication, TracesWhatCannotBeWritten)
{
    for (login_run const& run : login_runs) {
        hand_held_session held;
        ::shutdown(held.pair.client(), SHUT_WR);
        clear_traces();
        EXPECT_EQ(run.act(&held.session), -1) << run.name;
        EXPECT_EQ(traces().front(), run.marks[0]) << run.name;
        EXPECT_EQ(trouble_traces(), strings{run.unwritten}) << run.name;
        EXPECT_EQ(waits().readable_waits, std::vector<int>{}) << run.name << ": reads nothing";
    }
}

TEST_F(SmtpAuthentication, GivesUpOnASilentServerAfter3001Waits)
{
    struct {
        char const* name;
        smtp_act    act;
        char const* said;
        strings     trouble;
    } const cases[] = {
        {"ehlo", ehlo("auto"), "", {"error:read_multiline_reply"}},
        {"ehlo, half answered", ehlo("auto"), "250-a\r\n250", {"error:read_multiline_reply"}},
        {"auth after ehlo", ehlo("auto"), "250 ok\r\n", lost("error:not 235")},
        {"ehlo of a test", ehlo2("off"), "", {"error:read_multiline_reply"}},
        {"cram-md5", by_cram_md5("joe", "secret"), "", {"error:read_multiline_reply"}},
        {"the digest", by_cram_md5("joe", "secret"), "334 AAAA\r\n", lost("error:not 235")},
        {"login", by_login("joe", "secret"), "", {"error:read_multiline_reply"}},
        {"the user", by_login("joe", "secret"), "334 a\r\n", lost(login_data)},
        {"the password", by_login("joe", "secret"), "334 a\r\n334 b\r\n", lost(login_data)},
        {"plain", by_plain("joe", "secret"), "", lost("error:not 235")},
    };
    for (auto const& c : cases) {
        hand_held_session held;
        held.pair.say(c.said);
        reset_waits(false);
        clear_traces();
        EXPECT_EQ(c.act(&held.session), -1) << c.name;
        EXPECT_EQ(trouble_traces(), c.trouble) << c.name;
        EXPECT_EQ(waits().readable_waits, std::vector<int>(3001, 5000)) << c.name;
    }
}

TEST_F(SmtpAuthentication, FailsInOrderWhenMemoryRunsOut)
{
    struct {
        login_run const& run;
        strings          failures;  // the last traces that tell what there was no memory for
    } const cases[] = {
        {login_runs[0], {"error:base64_decode", "error:hmac_md5", "error:base64_encode"}},
        {login_runs[1], {"error:base64_encode"}},
        {login_runs[2], {"error:base64_encode"}},
    };
    for (auto const& c : cases) {
        strings failures;
        int     result = -1;
        int     good   = 0;
        for (; result != 0 && good < 100; ++good) {
            hand_held_session held;
            held.pair.say(c.run.replies);
            clear_traces();
            fail_heap_after(good);
            result = c.run.act(&held.session);
            fail_heap_after(-1);
            if (result != 0) {
                ASSERT_FALSE(trouble_traces().empty()) << c.run.name << " after " << good;
                failures.push_back(trouble_traces().back());
            }
        }
        EXPECT_EQ(result, 0) << c.run.name;
        failures.erase(std::unique(failures.begin(), failures.end()), failures.end());
        EXPECT_EQ(failures, c.failures) << c.run.name;
    }
}

TEST_F(SmtpAuthentication, GreetsWithAHostNameOnlyWhenItFitsTheLine)
{
    for (std::size_t const length : {1016U, 1017U}) {
        clear_hosts();
        set_host_name(std::string(length, 'h'));
        hand_held_session held;
        held.pair.say("250 ok\r\n235 ok\r\n");
        clear_traces();
        bool const fits = length == 1016;
        EXPECT_EQ(ehlo("plain")(&held.session), fits ? 0 : -1);
        EXPECT_EQ(trouble_traces(), fits ? strings{} : strings{"error:read_multiline_reply"});
        ::shutdown(held.pair.client(), SHUT_WR);
        std::string const heard = held.pair.heard_to_the_end();
        EXPECT_EQ(heard.substr(0, heard.find('\n') + 1),
                  fits ? "ehlo " + std::string(length, 'h') + "\r\n" : "");
    }
}

}  // namespace

}  // namespace zelieml::test
