/*
 * checks_test.c - the checks of zelieml_ext.h, called from C in the shared library
 */

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "tests/support/check.h"
#include "zelieml_ext.h"

/* What the callback of a check was told. */
struct told {
    int          calls;
    eml_severity severity;
    int          line;
    char         field[32];
    char         text[200];
};

static void keep(eml_finding const* finding, void* user)
{
    struct told* told = (struct told*)user;

    CHECK(finding->struct_size == sizeof(eml_finding));
    CHECK(strlen(finding->text) < sizeof told->text);
    ++told->calls;
    told->severity = finding->severity;
    told->line     = finding->line;
    strcpy(told->field, finding->field);
    strcpy(told->text, finding->text);
}

static void check_messages(void)
{
    struct told told = {0, eml_severity_none, 0, "", ""};
    void*       msg  = NULL;

    CHECK(eml_msg_create(&msg) == 0);
    CHECK(eml_msg_set_from(msg, "printer7@office.test") == 0);
    CHECK(eml_msg_set_to(msg, "anna@office.test, ben@office.test") == 0);
    CHECK(eml_msg_set_replyto(msg, "help@office.test") == 0);
    CHECK(eml_msg_set_messageid(msg, "<42@printer7.office.test>") == 0);
    CHECK(eml_msg_set_body(msg, "tray 2\n") == 0);
    CHECK(eml_msg_check(msg, keep, &told) == eml_severity_none);
    CHECK(told.calls == 0);

    CHECK(eml_msg_set_body(msg, "tray 2\nto: anna@office.test\n") == 0);
    CHECK(eml_msg_check(msg, keep, &told) == eml_severity_error);
    CHECK(told.calls == 1);
    CHECK(told.severity == eml_severity_error);
    CHECK(told.line == 2);
    CHECK(strcmp(told.field, "body") == 0);
    CHECK(strcmp(told.text, "it begins with \"to: \", is taken as that header and is missing from "
                            "the body: indent it") == 0);

    CHECK(eml_msg_check(NULL, keep, &told) == -1);
    CHECK(eml_msg_check(msg, NULL, &told) == -1);
    CHECK(told.calls == 1);
    eml_msg_destroy(msg);
}

static void check_settings(void)
{
    struct told told   = {0, eml_severity_none, 0, "", ""};
    char        path[] = "/tmp/zelieml-checks-XXXXXX";
    int         fd     = mkstemp(path);
    CHECK(fd >= 0);
    CHECK(close(fd) == 0);

    CHECK(eml_cf_set_string("smtp_server", "192.0.2.1", path) == 0);
    CHECK(eml_cf_set_string("smtp_port", "25", path) == 0);
    CHECK(eml_settings_check(path, keep, &told) == eml_severity_none);
    CHECK(told.calls == 0);

    CHECK(eml_cf_set_string("smtp_auth", "Yes", path) == 0);
    CHECK(eml_settings_check(path, keep, &told) == eml_severity_error);
    CHECK(told.calls == 1);
    CHECK(told.line == 3);
    CHECK(strcmp(told.field, "smtp_auth") == 0);
    CHECK(strcmp(told.text, "it counts as no: write yes or no, in small letters") == 0);

    CHECK(eml_settings_check(NULL, keep, &told) == -1);
    CHECK(eml_settings_check(path, NULL, &told) == -1);
    CHECK(told.calls == 1);
    CHECK(remove(path) == 0);
    CHECK(eml_settings_check(path, keep, &told) == eml_severity_error);
    CHECK(told.calls == 2);
}

int main(void)
{
    check_messages();
    check_settings();
    return failures == 0 ? 0 : 1;
}
