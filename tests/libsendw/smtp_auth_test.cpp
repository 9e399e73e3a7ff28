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

smtp_act by_ehlo(std::string const& auth_type)
{
    return [auth_type](_s_smtp* session) { return smtp_ehlo(session, auth_type, "joe", "secret"); };
}

// The server refuses the mechanism that the client chooses: there is no second one.
command_case choice(char const* name, char const* auth_type, std::string const& offer,
                    std::string const& chosen)
{
    bool const plain = chosen.rfind("AUTH PLAIN", 0) == 0;
    return command_case(name)
        .calls(by_ehlo(auth_type))
        .plays("C: ehlo {host}\n" + offer + "\n" + refused_at(chosen, "504 not that one"))
        .fails("504 not that one\r\n", plain ? refused("error:not 235") : strings{"error:not 334"});
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
    command_case("ehlo and a login")
        .calls(by_ehlo("auto"))
        .plays(R"(
        C: ehlo {host}
        S: 250-mail.test
        S: 250 AUTH PLAIN
        C: AUTH PLAIN {base64:\0joe\0secret}
        S: 235 welcome
     )")
        .keeps("235 welcome\r\n"),
    command_case("ehlo accepted by a code in the words of the last line")
        .calls(by_ehlo("auto"))
        .plays(R"(
        C: ehlo {host}
        S: 550 extension 250 unknown
        C: AUTH PLAIN {base64:\0joe\0secret}
        S: 235 welcome
     )")
        .keeps("235 welcome\r\n"),
    command_case("ehlo refused")
        .calls(by_ehlo("auto"))
        .plays(refused_at("ehlo {host}", "502 helo, please"))
        .fails("502 helo, please\r\n", {"error:not 250"}),
    command_case("ehlo refused in the last line")
        .calls(by_ehlo("auto"))
        .plays(R"(
        C: ehlo {host}
        S: 250-AUTH PLAIN
        S: 421 too busy
        C: (closes)
     )")
        .fails("250-AUTH PLAIN\r\n421 too busy\r\n", {"error:not 250"}),
    command_case("ehlo unanswered")
        .calls(by_ehlo("auto"))
        .plays(lost_at("ehlo {host}"))
        .fails("", {"error:read_multiline_reply"}),
    command_case("ehlo half answered")
        .calls(by_ehlo("auto"))
        .plays(R"(
        C: ehlo {host}
        S: 250-mail.test
        S: 250
        S: (resets)
     )")
        .fails("250-mail.test\r\n250\r\n", {"error:read_multiline_reply"}),
};

INSTANTIATE_TEST_SUITE_P(Ehlo, SmtpAuth, testing::ValuesIn(ehlo_cases), case_name<command_case>);

smtp_act by_ehlo2(char const* auth_switch)
{
    return [auth_switch](_s_smtp* session) {
        return smtp_ehlo2(session, "auto", "joe", "secret", auth_switch);
    };
}

command_case const ehlo2_cases[] = {
    command_case("on with a server that offers authentication")
        .calls(by_ehlo2("on"))
        .plays(R"(
        C: ehlo {host}
        S: 250 AUTH LOGIN
        C: AUTH LOGIN
        S64: 334 User:
        C64: joe
        S64: 334 Password:
        C64: secret
        S: 235 welcome
     )")
        .keeps("235 welcome\r\n"),
    command_case("on with a server that offers authentication and refuses it")
        .calls(by_ehlo2("on"))
        .plays(R"(
        C: ehlo {host}
        S: 250 AUTH PLAIN
        C: AUTH PLAIN {base64:\0joe\0secret}
        S: 535 who?
        C: (closes)
     )")
        .fails("535 who?\r\n", refused("error:not 235")),
    command_case("on with a server that offers none")
        .calls(by_ehlo2("on"))
        .plays(refused_at("ehlo {host}", "250 mail.test"))
        .fails("250 mail.test\r\n", {"error:smtp incorrect"}),
    command_case("off with a server that offers none")
        .calls(by_ehlo2("off"))
        .plays(refused_at("ehlo {host}", "250 mail.test"))
        .keeps("250 mail.test\r\n"),
    command_case("off with a server that offers authentication")
        .calls(by_ehlo2("off"))
        .plays(refused_at("ehlo {host}", "250 AUTH LOGIN"))
        .fails("250 AUTH LOGIN\r\n", {"error:smtp incorrect"}),
    command_case("a switch that is neither, with an offer")
        .calls(by_ehlo2("ON"))
        .plays(refused_at("ehlo {host}", "250 AUTH LOGIN"))
        .fails("250 AUTH LOGIN\r\n", {"error:smtp incorrect"}),
    command_case("a switch that is neither, without an offer")
        .calls(by_ehlo2(""))
        .plays(refused_at("ehlo {host}", "250 mail.test"))
        .fails("250 mail.test\r\n", {"error:smtp incorrect"}),
    command_case("a refusal goes before the switch")
        .calls(by_ehlo2("off"))
        .plays(refused_at("ehlo {host}", "502 helo, please"))
        .fails("502 helo, please\r\n", {"error:not 250"}),
    command_case("no answer")
        .calls(by_ehlo2("off"))
        .plays(lost_at("ehlo {host}"))
        .fails("", {"error:read_multiline_reply"}),
};

INSTANTIATE_TEST_SUITE_P(Ehlo2, SmtpAuth, testing::ValuesIn(ehlo2_cases), case_name<command_case>);

// ---- CRAM-MD5

smtp_act by_cram_md5(std::string const& user, std::string const& password)
{
    return [=](_s_smtp* session) { return auth_cram_md5(session, user.c_str(), password.c_str()); };
}

command_case const cram_md5_cases[] = {
    command_case("the example of RFC 2195")
        .calls(by_cram_md5("tim", "tanstaaftanstaaf"))
        .plays(R"(
        C: AUTH CRAM-MD5
        S: 334 PDE4OTYuNjk3MTcwOTUyQHBvc3RvZmZpY2UucmVzdG9uLm1jaS5uZXQ+
        C: dGltIGI5MTNhNjAyYzdlZGE3YTQ5NWI0ZTZlNzMzNGQzODkw
        S: 235 welcome
     )")
        .keeps("235 welcome\r\n"),
    command_case("test case 2 of RFC 2202")
        .calls(by_cram_md5("joe", "Jefe"))
        .plays(R"(
        C: AUTH CRAM-MD5
        S64: 334 what do ya want for nothing?
        C64: joe 750c783e6ab0b503eaa86e310a5db738
        S: 235 welcome
     )")
        .keeps("235 welcome\r\n"),
    command_case("test case 6 of RFC 2202, a password longer than a block")
        .calls(by_cram_md5("joe", std::string(80, '\xAA')))
        .plays(R"(
        C: AUTH CRAM-MD5
        S64: 334 Test Using Larger Than Block-Size Key - Hash Key First
        C64: joe 6b1ab7fe4bd7bf8f0b62e6ce61b9d0cd
        S: 235 welcome
     )")
        .keeps("235 welcome\r\n"),
    command_case("no password and no challenge")
        .calls(by_cram_md5("joe", ""))
        .plays(R"(
        C: AUTH CRAM-MD5
        S- 334 \r\n
        C64: joe 74e6f7298a9c2d168935f58c001bad88
        S: 235 welcome
     )")
        .keeps("235 welcome\r\n"),
    command_case("a challenge too short to mean anything")
        .calls(by_cram_md5("joe", ""))
        .plays(R"(
        C: AUTH CRAM-MD5
        S: 334 a
        C64: joe 74e6f7298a9c2d168935f58c001bad88
        S: 235 welcome
     )")
        .keeps("235 welcome\r\n"),
    command_case("a challenge counts up to its first NUL")
        .calls(by_cram_md5("joe", "secret"))
        .plays(R"(
        C: AUTH CRAM-MD5
        S64: 334 ab\0cd
        C64: joe 0fe26d789d153d69755c401a91a97235
        S: 235 welcome
     )")
        .keeps("235 welcome\r\n"),
    command_case("the challenge stands in the last line")
        .calls(by_cram_md5("joe", "Jefe"))
        .plays(R"(
        C: AUTH CRAM-MD5
        S: 334-AAAA
        S64: 334 what do ya want for nothing?
        C64: joe 750c783e6ab0b503eaa86e310a5db738
        S: 235-welcome
        S: 235 back
     )")
        .keeps("235-welcome\r\n235 back\r\n"),
    command_case("a user name with a blank and a percent sign")
        .calls(by_cram_md5("joe %s ^", "Jefe"))
        .plays(R"(
        C: AUTH CRAM-MD5
        S64: 334 what do ya want for nothing?
        C64: joe %s ^ 750c783e6ab0b503eaa86e310a5db738
        S: 235 welcome
     )")
        .keeps("235 welcome\r\n"),
    command_case("cram-md5 not known")
        .calls(by_cram_md5("joe", "secret"))
        .plays(refused_at("AUTH CRAM-MD5", "504 what?"))
        .fails("504 what?\r\n", {"error:not 334"}),
    command_case("cram-md5 accepted without a challenge")
        .calls(by_cram_md5("joe", "secret"))
        .plays(refused_at("AUTH CRAM-MD5", "235 welcome"))
        .fails("235 welcome\r\n", {"error:not 334"}),
    command_case("cram-md5 unanswered")
        .calls(by_cram_md5("joe", "secret"))
        .plays(lost_at("AUTH CRAM-MD5"))
        .fails("", {"error:read_multiline_reply"}),
    command_case("a challenge with a character outside the alphabet")
        .calls(by_cram_md5("joe", "secret"))
        .plays(refused_at("AUTH CRAM-MD5", "334 AAAA!AAA"))
        .fails("334 AAAA!AAA\r\n", {"error:base64_decode"}),
    command_case("a challenge in clear text")
        .calls(by_cram_md5("joe", "secret"))
        .plays(refused_at("AUTH CRAM-MD5", "334 <1896.697170952@postoffice.reston.mci.net>"))
        .fails("334 <1896.697170952@postoffice.reston.mci.net>\r\n", {"error:base64_decode"}),
    command_case("a challenge with a word before it")
        .calls(by_cram_md5("joe", "secret"))
        .plays(refused_at("AUTH CRAM-MD5", "334 challenge AAAA"))
        .fails("334 challenge AAAA\r\n", {"error:base64_decode"}),
    command_case("a challenge whose last group is not complete")
        .calls(by_cram_md5("joe", "secret"))
        .plays(refused_at("AUTH CRAM-MD5", "334 AAAAAA"))
        .fails("334 AAAAAA\r\n", {"error:base64_decode"}),
    command_case("the digest refused")
        .calls(by_cram_md5("tim", "tanstaaftanstaaf"))
        .plays(R"(
        C: AUTH CRAM-MD5
        S: 334 PDE4OTYuNjk3MTcwOTUyQHBvc3RvZmZpY2UucmVzdG9uLm1jaS5uZXQ+
        C: dGltIGI5MTNhNjAyYzdlZGE3YTQ5NWI0ZTZlNzMzNGQzODkw
        S: 535 wrong
        C: (closes)
     )")
        .fails("535 wrong\r\n", refused("error:not 235")),
    command_case("the digest unanswered")
        .calls(by_cram_md5("tim", "tanstaaftanstaaf"))
        .plays(R"(
        C: AUTH CRAM-MD5
        S: 334 PDE4OTYuNjk3MTcwOTUyQHBvc3RvZmZpY2UucmVzdG9uLm1jaS5uZXQ+
        C: (any)
        S: (resets)
     )")
        .fails("", lost("error:not 235")),
    command_case("a user name that makes the longest line")
        .calls(by_cram_md5(std::string(732, 'u'), "Jefe"))
        .plays(R"(
        C: AUTH CRAM-MD5
        S64: 334 what do ya want for nothing?
        C64: )" +
               std::string(732, 'u') + R"( 750c783e6ab0b503eaa86e310a5db738
        S: 235 welcome
     )")
        .keeps("235 welcome\r\n"),
    command_case("a user name that makes too long a line is not sent")
        .calls(by_cram_md5(std::string(733, 'u'), "Jefe"))
        .plays(refused_at("AUTH CRAM-MD5", "334 AAAA"))
        .fails("334 AAAA\r\n", {"error:not 235"}),
};

INSTANTIATE_TEST_SUITE_P(CramMd5, SmtpAuth, testing::ValuesIn(cram_md5_cases),
                         case_name<command_case>);

// ---- LOGIN

smtp_act by_login(std::string const& user, std::string const& password)
{
    return [=](_s_smtp* session) { return auth_login(session, user.c_str(), password.c_str()); };
}

char const* const login_data = "error:auth_login_data %s for %s";

// The conversation up to the server's answer to the user, and to the password.
std::string const to_user     = "C: AUTH LOGIN\nS64: 334 User:\nC64: joe\n";
std::string const to_password = to_user + "S64: 334 Password:\nC64: secret\n";

command_case const login_cases[] = {
    command_case("login")
        .calls(by_login("joe", "secret"))
        .plays(R"(
        C: AUTH LOGIN
        S: 334 VXNlcm5hbWU6
        C: am9l
        S: 334 UGFzc3dvcmQ6
        C: c2VjcmV0
        S: 235 welcome
     )")
        .keeps("235 welcome\r\n"),
    command_case("login with prompts that nobody reads")
        .calls(by_login("joe", "secret"))
        .plays(R"(
        C: AUTH LOGIN
        S: 334 !%s
        C64: joe
        S: 550-password, then user
        S: 550 334
        C64: secret
        S: 550 235
     )")
        .keeps("550 235\r\n"),
    command_case("login without a name and without a password")
        .calls(by_login("", ""))
        .plays(R"(
        C: AUTH LOGIN
        S64: 334 User:
        C:
        S64: 334 Password:
        C:
        S: 235 welcome
     )")
        .keeps("235 welcome\r\n"),
    command_case("login with characters that are special elsewhere")
        .calls(by_login("j^e %s\xFF", "^^ \r\n"))
        .plays(R"(
        C: AUTH LOGIN
        S64: 334 User:
        C64: j^e %s\xFF
        S64: 334 Password:
        C64: ^^ \r\n
        S: 235 welcome
     )")
        .keeps("235 welcome\r\n"),
    command_case("login not known")
        .calls(by_login("joe", "secret"))
        .plays(refused_at("AUTH LOGIN", "504 what?"))
        .fails("504 what?\r\n", {"error:not 334"}),
    command_case("login unanswered")
        .calls(by_login("joe", "secret"))
        .plays(lost_at("AUTH LOGIN"))
        .fails("", {"error:read_multiline_reply"}),
    command_case("the user refused")
        .calls(by_login("joe", "secret"))
        .plays(to_user + "S: 535 who?\n" + hangs_up)
        .fails("535 who?\r\n", refused(login_data)),
    command_case("the user welcomed too early")
        .calls(by_login("joe", "secret"))
        .plays(to_user + "S: 235 welcome\n" + hangs_up)
        .fails("235 welcome\r\n", refused(login_data)),
    command_case("the user unanswered")
        .calls(by_login("joe", "secret"))
        .plays(to_user + "S: (closes)\n")
        .fails("", lost(login_data)),
    command_case("the password refused")
        .calls(by_login("joe", "secret"))
        .plays(to_password + "S: 535 wrong\n" + hangs_up)
        .fails("535 wrong\r\n", refused(login_data)),
    command_case("the password unanswered")
        .calls(by_login("joe", "secret"))
        .plays(to_password + "S: (resets)\n")
        .fails("", lost(login_data)),
    command_case("the longest user name")
        .calls(by_login(std::string(765, 'u'), "secret"))
        .plays(R"(
        C: AUTH LOGIN
        S64: 334 User:
        C64: )" +
               std::string(765, 'u') + R"(
        S: 535 who?
        C: (closes)
     )")
        .fails("535 who?\r\n", refused(login_data)),
    command_case("a user name that makes too long a line is not sent")
        .calls(by_login(std::string(766, 'u'), "secret"))
        .plays(refused_at("AUTH LOGIN", "334 go on"))
        .fails("334 go on\r\n", {login_data}),
};

INSTANTIATE_TEST_SUITE_P(Login, SmtpAuth, testing::ValuesIn(login_cases), case_name<command_case>);

// ---- PLAIN

smtp_act by_plain(std::string const& user, std::string const& password)
{
    return [=](_s_smtp* session) { return auth_plain(session, user.c_str(), password.c_str()); };
}

command_case const plain_cases[] = {
    command_case("plain")
        .calls(by_plain("u", "p"))
        .plays(answered("AUTH PLAIN AHUAcA==", "235 welcome"))
        .keeps("235 welcome\r\n"),
    command_case("the example of RFC 4616")
        .calls(by_plain("tim", "tanstaaftanstaaf"))
        .plays(answered("AUTH PLAIN AHRpbQB0YW5zdGFhZnRhbnN0YWFm", "235 welcome"))
        .keeps("235 welcome\r\n"),
    command_case("plain without a name and without a password")
        .calls(by_plain("", ""))
        .plays(answered("AUTH PLAIN AAA=", "235 welcome"))
        .keeps("235 welcome\r\n"),
    command_case("a caret in the user name is sent as a NUL")
        .calls(by_plain("j^e", "secret"))
        .plays(answered("AUTH PLAIN {base64:\\0j\\0e\\0secret}", "235 welcome"))
        .keeps("235 welcome\r\n"),
    command_case("carets in the password are sent as NULs")
        .calls(by_plain("joe", "^sec^ret^"))
        .plays(answered("AUTH PLAIN {base64:\\0joe\\0\\0sec\\0ret\\0}", "235 welcome"))
        .keeps("235 welcome\r\n"),
    command_case("a percent sign and bytes of any kind")
        .calls(by_plain("j%s", "\xFF\xFE%n"))
        .plays(answered("AUTH PLAIN {base64:\\0j%s\\0\\xFF\\xFE%n}", "235 welcome"))
        .keeps("235 welcome\r\n"),
    command_case("plain accepted in words")
        .calls(by_plain("u", "p"))
        .plays(R"(
        C: AUTH PLAIN AHUAcA==
        S: 535-no
        S: 535 no, code 235
     )")
        .keeps("535-no\r\n535 no, code 235\r\n"),
    command_case("plain refused")
        .calls(by_plain("u", "p"))
        .plays(refused_at("AUTH PLAIN AHUAcA==", "535 wrong"))
        .fails("535 wrong\r\n", refused("error:not 235")),
    command_case("plain answered by a prompt")
        .calls(by_plain("u", "p"))
        .plays(R"(
        C: AUTH PLAIN AHUAcA==
        S- 334 \r\n
        C: (closes)
     )")
        .fails("334 \r\n", refused("error:not 235")),
    command_case("plain unanswered")
        .calls(by_plain("u", "p"))
        .plays(lost_at("AUTH PLAIN AHUAcA=="))
        .fails("", lost("error:not 235")),
    command_case("credentials that make the longest line")
        .calls(by_plain(std::string(377, 'u'), std::string(377, 'p')))
        .plays(R"(
        C: AUTH PLAIN {base64:\0)" +
               std::string(377, 'u') + "\\0" + std::string(377, 'p') + R"(}
        S: 235 welcome
     )")
        .keeps("235 welcome\r\n"),
    command_case("credentials that make too long a line are not sent")
        .calls(by_plain(std::string(377, 'u'), std::string(378, 'p')))
        .plays("C: (closes)")
        .fails(greeting_reply, {"error:not 235"}),
};

INSTANTIATE_TEST_SUITE_P(Plain, SmtpAuth, testing::ValuesIn(plain_cases), case_name<command_case>);

// ---- traces, silence, memory

struct login_run : named_case {
    using named_case::named_case;

    login_run& calls(smtp_act const& its_act)
    {
        act = its_act;
        return *this;
    }
    // All replies of a good login, in one go.
    login_run& hears(std::string const& its_replies)
    {
        replies = its_replies;
        return *this;
    }
    // The traces of a login on its way in and out.
    login_run& marks(char const* its_start, char const* its_end)
    {
        start = its_start;
        end   = its_end;
        return *this;
    }
    // The trace of a first line that is refused, or cannot be written.
    login_run& fails(char const* trace)
    {
        failure = trace;
        return *this;
    }

    smtp_act    act;
    std::string replies;
    std::string start;
    std::string end;
    std::string failure;
};

login_run const login_runs[] = {
    login_run("cram-md5")
        .calls(by_cram_md5("joe", "secret"))
        .hears("334 AAAA\r\n235 ok\r\n")
        .marks("auth_cram_md5 in", "auth_cram_md5 out")
        .fails("error:not 334"),
    login_run("login")
        .calls(by_login("joe", "secret"))
        .hears("334 a\r\n334 b\r\n235 ok\r\n")
        .marks("auth_login in", "auth_login out")
        .fails("error:not 334"),
    login_run("plain")
        .calls(by_plain("joe", "secret"))
        .hears("235 ok\r\n")
        .marks("auth_plain in", "auth_plain out")
        .fails("error:not 235"),
};

TEST_F(SmtpAuthentication, TracesWhereItGoesInAndOut)
{
    for (login_run const& run : login_runs) {
        hand_held_session held;
        held.pair.say(run.replies);
        clear_traces();
        ASSERT_EQ(run.act(&held.session), 0) << run.name;
        EXPECT_EQ(traces_above_sockets(), (strings{run.start, run.end})) << run.name;
    }
}

TEST_F(SmtpAuthentication, HasNoWayOutWhenItFails)
{
    for (login_run const& run : login_runs) {
        hand_held_session held;
        held.pair.say("504 no\r\n");
        clear_traces();
        ASSERT_EQ(run.act(&held.session), -1) << run.name;
        strings const all = traces_above_sockets();
        EXPECT_EQ(all.front(), run.start) << run.name;
        EXPECT_EQ(all.back(), run.failure) << run.name;
    }
}

TEST_F(SmtpAuthentication, TracesWhatCannotBeWritten)
{
    for (login_run const& run : login_runs) {
        hand_held_session held;
        ::shutdown(held.pair.client(), SHUT_WR);
        clear_traces();
        EXPECT_EQ(run.act(&held.session), -1) << run.name;
        EXPECT_EQ(trouble_traces(), strings{run.failure}) << run.name;
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
        {"ehlo", by_ehlo("auto"), "", {"error:read_multiline_reply"}},
        {"ehlo, half answered", by_ehlo("auto"), "250-a\r\n250", {"error:read_multiline_reply"}},
        {"auth after ehlo", by_ehlo("auto"), "250 ok\r\n", lost("error:not 235")},
        {"ehlo of a test", by_ehlo2("off"), "", {"error:read_multiline_reply"}},
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
        EXPECT_EQ(by_ehlo("plain")(&held.session), fits ? 0 : -1);
        EXPECT_EQ(trouble_traces(), fits ? strings{} : strings{"error:read_multiline_reply"});
        ::shutdown(held.pair.client(), SHUT_WR);
        std::string const heard = held.pair.heard_to_the_end();
        EXPECT_EQ(heard.substr(0, heard.find('\n') + 1),
                  fits ? "ehlo " + std::string(length, 'h') + "\r\n" : "");
    }
}

}  // namespace

}  // namespace zelieml::test
