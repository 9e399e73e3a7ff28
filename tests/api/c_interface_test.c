/*
 * c_interface_test.c - every exported function called from C, in the shared library
 *
 * Works in a directory of its own; its servers are child processes.
 */

#define _XOPEN_SOURCE 700

#include "zelieml.h"
#include "zelieml_ext.h"

#include <arpa/inet.h>
#include <dirent.h>
#include <netinet/in.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/api/string_fields.h"
#include "tests/support/check.h"

#define CHECK_STRING(came, wanted)                                                                 \
    check(strcmp((came), (wanted)) == 0, #came " is " wanted, __LINE__)

/* ------------------------------------------------------------------ messages */

static void test_string_fields(void)
{
    size_t const count = sizeof string_fields / sizeof string_fields[0];
    void*        msg   = NULL;
    char         buf[64];
    size_t       i;

    CHECK(eml_msg_create(NULL) == -1);
    CHECK(eml_msg_create(&msg) == 0);
    CHECK(msg != NULL);
    for (i = 0; i < count; ++i) {
        struct string_field const* const field = &string_fields[i];
        int const                        size  = (int)strlen(field->name) + 1;

        CHECK(field->get(msg, buf, 1) == 0);
        CHECK_STRING(buf, "");
        CHECK(field->set(msg, field->name) == 0);
        CHECK(field->set(msg, NULL) == -1);
        CHECK(field->set(NULL, "x") == -1);

        strcpy(buf, "kept");
        CHECK(field->get(msg, buf, size - 1) == -1);
        CHECK(field->get(msg, buf, 0) == -1);
        CHECK(field->get(msg, buf, -1) == -1);
        CHECK(field->get(NULL, buf, (int)sizeof buf) == -1);
        CHECK(field->get(msg, NULL, (int)sizeof buf) == -1);
        CHECK_STRING(buf, "kept");
        CHECK(field->get(msg, buf, size) == 0);
        CHECK(strcmp(buf, field->name) == 0);
    }
    CHECK(eml_msg_set_body(msg, "a\nb\rc") == 0);
    CHECK(eml_msg_get_body(msg, buf, (int)sizeof buf) == 0);
    CHECK_STRING(buf, "a\r\nb\r\nc");
    CHECK(eml_msg_destroy(msg) == 0);
    CHECK(eml_msg_destroy(NULL) == 0);
}

static void test_encoding(void)
{
    void* msg = NULL;
    char  buf[64];

    CHECK(eml_msg_create(&msg) == 0);
    CHECK(eml_msg_get_encoding(msg, buf, (int)sizeof buf) == 0);
    CHECK_STRING(buf, "UTF-8");
    CHECK(eml_msg_set_encoding(msg, eml_encoding_iso2022jp) == 0);
    CHECK(eml_msg_get_encoding(msg, buf, 12) == 0);
    CHECK_STRING(buf, "ISO-2022-JP");
    CHECK(eml_msg_get_encoding(msg, buf, 11) == -1);
    CHECK(eml_msg_set_encoding(msg, (eml_encoding)7) == 0);
    CHECK(eml_msg_set_encoding(msg, (eml_encoding)0x80000000U) == 0);
    CHECK(eml_msg_get_encoding(msg, buf, (int)sizeof buf) == 0);
    CHECK_STRING(buf, "UTF-8");
    CHECK(eml_msg_set_encoding(NULL, eml_encoding_utf8) == -1);
    CHECK(eml_msg_get_encoding(NULL, buf, (int)sizeof buf) == -1);
    CHECK(eml_msg_destroy(msg) == 0);
}

static void test_message_file(char const* path)
{
    void* msg    = NULL;
    void* loaded = NULL;
    char  buf[64];

    CHECK(eml_msg_create(&msg) == 0);
    CHECK(eml_msg_set_subject(msg, "paper") == 0);
    CHECK(eml_msg_set_body(msg, "one\ntwo") == 0);
    CHECK(eml_msg_save(msg, path) == 0);
    CHECK(eml_msg_save(NULL, path) == -1);
    CHECK(eml_msg_save(msg, NULL) == -1);
    CHECK(eml_msg_destroy(msg) == 0);

    CHECK(eml_msg_load(&loaded, path) == 0);
    CHECK(eml_msg_get_subject(loaded, buf, (int)sizeof buf) == 0);
    CHECK_STRING(buf, "paper");
    CHECK(eml_msg_get_body(loaded, buf, (int)sizeof buf) == 0);
    CHECK_STRING(buf, "one\r\ntwo");
    CHECK(eml_msg_destroy(loaded) == 0);

    /* A record is made even when the file cannot be read. */
    CHECK(remove(path) == 0);
    loaded = NULL;
    CHECK(eml_msg_load(&loaded, path) == -1);
    CHECK(loaded != NULL);
    CHECK(eml_msg_destroy(loaded) == 0);
    loaded = NULL;
    CHECK(eml_msg_load(&loaded, NULL) == -1);
    CHECK(eml_msg_destroy(loaded) == 0);
    CHECK(eml_msg_load(NULL, path) == -1);
}

static void test_keys(void)
{
    CHECK_STRING(KeyFrom, "from: ");
    CHECK_STRING(KeyTo, "to: ");
    CHECK_STRING(KeyCc, "cc: ");
    CHECK_STRING(KeySubject, "subject: ");
    CHECK_STRING(KeyReplyTo, "replyto: ");
    CHECK_STRING(KeyEncoding, "encoding: ");
    CHECK_STRING(KeyMessageID, "messageid: ");
    CHECK_STRING(ValCharLf, "\n");
    CHECK_STRING(ValCharCrLf, "\r\n");
}

/* ------------------------------------------------------- settings and passwords */

static void test_settings(char const* path)
{
    char         val[32];
    unsigned int length = sizeof val;

    CHECK(eml_cf_get_string("smtp_server", val, &length, path) == -1);
    CHECK(length == 0);
    CHECK(eml_cf_set_string("smtp_server", "mail.test", path) == 0);
    CHECK(eml_cf_set_string("smtp_port", "25", path) == 0);
    CHECK(eml_cf_set_string("smtp_port", "2525", path) == 0);
    length = sizeof val;
    CHECK(eml_cf_get_string("smtp_server", val, &length, path) == 0);
    CHECK_STRING(val, "mail.test");
    CHECK(length == 9);
    length = 6; /* four characters need two bytes more */
    CHECK(eml_cf_get_string("smtp_port", val, &length, path) == 0);
    CHECK_STRING(val, "2525");
    length = 5;
    CHECK(eml_cf_get_string("smtp_port", val, &length, path) == -1);

    length = sizeof val;
    CHECK(eml_cf_get_string(NULL, val, &length, path) == -1);
    CHECK(eml_cf_get_string("smtp_port", NULL, &length, path) == -1);
    CHECK(eml_cf_get_string("smtp_port", val, NULL, path) == -1);
    CHECK(eml_cf_get_string("smtp_port", val, &length, NULL) == -1);
    CHECK(eml_cf_set_string(NULL, "x", path) == -1);
    CHECK(eml_cf_set_string("x", NULL, path) == -1);
    CHECK(eml_cf_set_string("x", "x", NULL) == -1);
}

static void test_passwords(void)
{
    unsigned char  clear[] = "secret";
    unsigned char  empty[] = "";
    unsigned char  odd[]   = "ABC";
    unsigned char* stored  = eml_encrypt_passwd(clear);
    unsigned char* again   = NULL;

    CHECK(stored != NULL);
    if (stored != NULL) {
        CHECK(strlen((char*)stored) == 12);
        CHECK(strspn((char*)stored, "0123456789ABCDEF") == 12);
        again = eml_decrypt_passwd(stored);
        CHECK(again != NULL && strcmp((char*)again, "secret") == 0);
    }
    eml_decrypt_free_passwd(again);
    eml_encrypt_free_passwd(stored);

    CHECK(eml_encrypt_passwd(NULL) == NULL);
    CHECK(eml_encrypt_passwd(empty) == NULL);
    CHECK(eml_decrypt_passwd(NULL) == NULL);
    CHECK(eml_decrypt_passwd(odd) == NULL);
    eml_encrypt_free_passwd(NULL);
    eml_decrypt_free_passwd(NULL);
}

static void test_hash(void)
{
    /* RFC 1321, A.5 */
    unsigned char* hash  = eml_hash_hexstr("message digest");
    unsigned char* empty = eml_hash_hexstr("");

    CHECK(hash != NULL && strcmp((char*)hash, "F96B697D7CB7938D525A2F31AAF161D0") == 0);
    CHECK(empty != NULL && strcmp((char*)empty, "D41D8CD98F00B204E9800998ECF8427E") == 0);
    CHECK(eml_hash_hexstr(NULL) == NULL);
    eml_hash_free_hexstr(hash);
    eml_hash_free_hexstr(empty);
    eml_hash_free_hexstr(NULL);
}

/* -------------------------------------------------------------------- posting */

/* A server that takes one mail and knows no more than that; ends with 0 when it had a subject. */
static int take_one_mail(int listener)
{
    int   client      = accept(listener, NULL, NULL);
    FILE* in          = fdopen(client, "r");
    int   in_text     = 0;
    int   had_subject = 0;
    char  line[1024];

    if (in == NULL) {
        return 1;
    }
    dprintf(client, "220 ready\r\n");
    while (fgets(line, (int)sizeof line, in) != NULL) {
        if (in_text) {
            had_subject |= strcmp(line, "Subject: paper\r\n") == 0;
            if (strcmp(line, ".\r\n") == 0) {
                in_text = 0;
                dprintf(client, "250 taken\r\n");
            }
        } else if (strcmp(line, "data\r\n") == 0) {
            in_text = 1;
            dprintf(client, "354 go on\r\n");
        } else {
            dprintf(client, strcmp(line, "quit\r\n") == 0 ? "221 bye\r\n" : "250 ok\r\n");
        }
    }
    fclose(in);
    return had_subject ? 0 : 1;
}

/* A mailbox with one mail, for two sessions: the first only logs in. Ends with 0 when the mail was
 * deleted. */
static int keep_one_mail(int listener)
{
    int deleted = 0;
    int session;

    for (session = 1; session <= 2; ++session) {
        int const client = accept(listener, NULL, NULL);
        FILE*     in     = fdopen(client, "r");
        char      line[1024];

        if (in == NULL) {
            return 1;
        }
        dprintf(client, "+OK ready\r\n");
        while (fgets(line, (int)sizeof line, in) != NULL) {
            deleted |= session == 2 && strcmp(line, "dele 1\r\n") == 0;
            if (strcmp(line, "retr 1\r\n") == 0) {
                dprintf(client, "+OK\r\nFrom: anna@a.test\r\nSubject: paper\r\n.\r\n");
            } else if (strcmp(line, "stat\r\n") == 0) {
                dprintf(client, "+OK 1 40\r\n");
            } else {
                dprintf(client, "+OK\r\n");
            }
            if (strcmp(line, "quit\r\n") == 0) {
                break;
            }
        }
        fclose(in);
    }
    return deleted ? 0 : 1;
}

/* Starts a server and tells its port. */
static pid_t start_server(int (*serve)(int listener), int* port)
{
    int const          listener = socket(AF_INET, SOCK_STREAM, 0);
    struct sockaddr_in here;
    socklen_t          length = sizeof here;
    pid_t              server;

    memset(&here, 0, sizeof here);
    here.sin_family      = AF_INET;
    here.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    CHECK(bind(listener, (struct sockaddr*)&here, length) == 0);
    CHECK(listen(listener, 1) == 0);
    CHECK(getsockname(listener, (struct sockaddr*)&here, &length) == 0);
    *port = (int)ntohs(here.sin_port);

    server = fork();
    if (server == 0) {
        alarm(60);
        _exit(serve(listener));
    }
    close(listener);
    return server;
}

static void* new_message(void)
{
    void* msg = NULL;
    CHECK(eml_msg_create(&msg) == 0);
    CHECK(eml_msg_set_to(msg, "anna@b.test") == 0);
    CHECK(eml_msg_set_subject(msg, "paper") == 0);
    CHECK(eml_msg_set_body(msg, "The tray is empty.") == 0);
    return msg;
}

static void test_post(char const* workdir, char const* conf)
{
    void*       msg    = new_message();
    void*       result = NULL;
    eml_send_e  code   = eml_send_error_auth;
    int         status = -1;
    char        text[64];
    int         number = 0;
    char        port[16];
    pid_t const server = start_server(take_one_mail, &number);

    snprintf(port, sizeof port, "%d", number);
    CHECK(eml_cf_set_string("smtp_server", "127.0.0.1", conf) == 0);
    CHECK(eml_cf_set_string("smtp_port", port, conf) == 0);
    CHECK(eml_cf_set_string("subject_use_encoding", "no", conf) == 0);

    CHECK(eml_post_sync(workdir, msg, &result) == 0);
    CHECK(eml_msg_destroy(msg) == 0);
    CHECK(waitpid(server, &status, 0) == server);
    CHECK(WIFEXITED(status) && WEXITSTATUS(status) == 0);

    CHECK(eml_cb_get_code(result, &code) == 0);
    CHECK(code == eml_send_ok);
    CHECK(eml_cb_get_message(result, text, (int)sizeof text) == 0);
    CHECK_STRING(text, "221 bye\r\n");
    CHECK(eml_cb_delete(result) == 0);
}

static void test_failed_post(char const* workdir)
{
    void*      msg    = new_message();
    void*      result = NULL;
    void*      copy   = NULL;
    eml_send_e code   = eml_send_ok;
    char       text[8];

    /* No settings there: no server. */
    CHECK(eml_post_sync(workdir, msg, &result) == -1);
    CHECK(eml_cb_duplicate(result, &copy) == 0);
    CHECK(eml_cb_delete(result) == 0);
    CHECK(eml_cb_get_code(copy, &code) == 0);
    CHECK(code == eml_send_error_connection);
    strcpy(text, "kept");
    CHECK(eml_cb_get_message(copy, text, 0) == -1);
    CHECK(eml_cb_get_message(copy, NULL, 8) == -1);
    CHECK(eml_cb_get_message(NULL, text, 8) == -1);
    CHECK_STRING(text, "kept");
    CHECK(eml_cb_get_message(copy, text, 1) == 0);
    CHECK_STRING(text, "");

    CHECK(eml_cb_get_code(NULL, &code) == -1);
    CHECK(eml_cb_get_code(copy, NULL) == -1);
    CHECK(eml_cb_duplicate(NULL, &result) == -1);
    CHECK(eml_cb_duplicate(copy, NULL) == -1);
    CHECK(eml_cb_delete(copy) == 0);
    CHECK(eml_cb_delete(NULL) == 0);

    /* Nulls: a record says why, unless there is no place for it. */
    result = NULL;
    CHECK(eml_post_sync(NULL, msg, &result) == -1);
    CHECK(eml_cb_get_code(result, &code) == 0);
    CHECK(code == eml_send_error_other);
    CHECK(eml_cb_delete(result) == 0);
    result = NULL;
    CHECK(eml_post_sync(workdir, NULL, &result) == -1);
    CHECK(eml_cb_get_code(result, &code) == 0);
    CHECK(eml_cb_delete(result) == 0);
    CHECK(eml_post_sync(workdir, msg, NULL) == -1);
    CHECK(eml_msg_destroy(msg) == 0);
}

/* ------------------------------------------- server records, tests, receiving */

static void test_servers(void)
{
    void*       server  = NULL;
    void*       list    = NULL;
    int         port    = 0;
    pid_t const mailbox = start_server(keep_one_mail, &port);
    int         status  = -1;
    char        text[1024];
    char        small[17] = "kept";

    CHECK(server_info_create(NULL) == -1);
    CHECK(server_info_create(&server) == 0);
    CHECK(server_info_set_pop(NULL, "127.0.0.1", "anna", "secret", "pop", port, 0) == -1);
    CHECK(server_info_set_pop(server, "127.0.0.1", "anna", "secret", "pop", port, 0) == 0);

    CHECK(test_pop_auth(NULL, NULL) == eml_send_error_other);
    CHECK(test_pop_auth(server, text) == eml_send_ok);
    CHECK_STRING(text, "+OK\r\n");

    CHECK(eml_receive_msg_create(NULL) == -1);
    CHECK(eml_receive_msg_create(&list) == 0);
    CHECK(eml_receive_msg_count(NULL) == 0);
    CHECK(eml_receive_msg_count(list) == 0);
    CHECK(eml_receive_mails(NULL, list, NULL) == -1);
    CHECK(eml_receive_mails(server, NULL, NULL) == -1);
    CHECK(eml_receive_mails(server, list, "b.test, a.test") == 0);
    CHECK(waitpid(mailbox, &status, 0) == mailbox);
    CHECK(WIFEXITED(status) && WEXITSTATUS(status) == 0);

    CHECK(eml_receive_msg_count(list) == 1);
    CHECK(eml_receive_msg_get_from(list, 0, small, 17) == -1);
    CHECK_STRING(small, "kept");
    CHECK(eml_receive_msg_get_subject(list, 0, small, 15) == 0);
    CHECK_STRING(small, "paper");
    CHECK(eml_receive_msg_get_from(list, 0, text, 18) == 0);
    CHECK_STRING(text, "anna@a.test");
    CHECK(eml_receive_msg_get_from(list, 1, text, (int)sizeof text) == -1);
    CHECK(eml_receive_msg_get_from(NULL, 0, text, (int)sizeof text) == -1);
    CHECK(eml_receive_msg_get_subject(list, -1, text, (int)sizeof text) == -1);
    CHECK(eml_receive_msg_get_subject(list, 0, NULL, 100) == -1);
    CHECK(eml_receive_msg_get_sender_utf8(list, 0, text, (int)sizeof text) == 0);
    CHECK_STRING(text, "anna@a.test");
    CHECK(eml_receive_msg_get_subject_utf8(list, 0, text, (int)sizeof text) == 0);
    CHECK_STRING(text, "paper");
    CHECK(eml_receive_msg_get_messageid(list, 0, text, 1) == 0);
    CHECK_STRING(text, "");
    CHECK(eml_receive_msg_get_date(list, 0, text, 0) == -1);
    CHECK(eml_receive_msg_get_date(list, 0, text, 1) == 0);

    /* The server is gone. */
    CHECK(test_pop_auth(server, NULL) == eml_send_error_connection);
    CHECK(eml_receive_mails(server, list, "") == -1);
    CHECK(eml_receive_mails_sized(server, list, "", text, (int)sizeof text, small, 17) == -1);
    CHECK_STRING(text, "");
    CHECK(eml_receive_msg_count(list) == 0);
    CHECK(eml_receive_msg_destroy(list) == 0);
    CHECK(eml_receive_msg_destroy(NULL) == 0);
    CHECK(server_info_destroy(server) == 0);
    CHECK(server_info_destroy(NULL) == 0);
}

static void test_smtp_server(void)
{
    void*       server = NULL;
    int         port   = 0;
    pid_t const smtp   = start_server(take_one_mail, &port);
    char        text[1024];

    CHECK(server_info_create(&server) == 0);
    CHECK(server_info_set_smtp(NULL, "127.0.0.1", "", "", "off", port) == -1);
    CHECK(server_info_set_smtp(server, "127.0.0.1", "", "", "off", port) == 0);
    CHECK(test_smtp_auth(NULL, "off", text) == eml_send_error_other);
    CHECK(test_smtp_auth(server, NULL, text) == eml_send_error_other);
    CHECK_STRING(text, "");
    CHECK(server_info_set_tls(NULL, "tls", NULL, NULL) == -1);
    CHECK(server_info_set_tls(server, "Yes", "no", NULL) == 0);
    CHECK(test_smtp_auth(server, "off", text) == eml_send_error_connection);
    CHECK(server_info_set_tls(server, NULL, NULL, NULL) == 0);
    CHECK(test_smtp_auth(server, "off", text) == eml_send_ok);
    CHECK_STRING(text, "221 bye\r\n");
    CHECK(waitpid(smtp, NULL, 0) == smtp);
    CHECK(test_smtp_auth(server, "off", NULL) == eml_send_error_connection);
    CHECK(server_info_destroy(server) == 0);
}

/* ----------------------------------------------------------------- the engine */

static int do_nothing(void* result, void* user)
{
    (void)result;
    (void)user;
    return 0;
}

/* The message files of a directory. */
static int count_messages(char const* workdir)
{
    DIR*           directory = opendir(workdir);
    struct dirent* entry;
    int            count = 0;

    if (directory == NULL) {
        return -1;
    }
    while ((entry = readdir(directory)) != NULL) {
        count += strstr(entry->d_name, ".sme") != NULL ? 1 : 0;
    }
    closedir(directory);
    return count;
}

static void test_engine(char const* workdir)
{
    void* msg   = new_message();
    void* eml   = NULL;
    void* other = NULL;

    CHECK(eml_start(workdir, &eml) == 0);
    CHECK(eml != NULL);
    CHECK(eml_start_with_stocksymbol(workdir, "another", &other) == 0);
    CHECK(eml_set_callback(eml, do_nothing, msg) == 0);
    CHECK(eml_set_callback(eml, do_nothing, NULL) == 0);
    CHECK(eml_reset_callback(eml, do_nothing) == 0);
    CHECK(eml_reset_callback(eml, do_nothing) == 0);
    CHECK(eml_post_sys(eml, msg) == 0);
    CHECK(eml_stop(eml) == 0);
    CHECK(eml_stop_multi(&other) == 0);
    CHECK(other == NULL);
    CHECK(eml_stop_multi(&other) == 0);
    CHECK(eml_msg_destroy(msg) == 0);

    /* Nulls, and names that address nobody. */
    eml = &other;
    CHECK(eml_start(NULL, &eml) == -1);
    CHECK(eml_start(workdir, NULL) == -1);
    CHECK(eml_start_with_stocksymbol(NULL, "symbol", &eml) == -1);
    CHECK(eml_start_with_stocksymbol(workdir, NULL, &eml) == -1);
    CHECK(eml_start_with_stocksymbol(workdir, "", &eml) == -1);
    CHECK(eml_start_with_stocksymbol(workdir, "symbol", NULL) == -1);
    CHECK(eml == &other);
    CHECK(eml_stop(NULL) == -1);
    CHECK(eml_stop_multi(NULL) == 0);
    CHECK(eml_set_callback(NULL, do_nothing, NULL) == -1);
    CHECK(eml_reset_callback(NULL, do_nothing) == -1);
    CHECK(eml_start(workdir, &eml) == 0);
    CHECK(eml_set_callback(eml, NULL, NULL) == -1);
    CHECK(eml_reset_callback(eml, NULL) == -1);
    CHECK(eml_post_sys(eml, NULL) == -1);
    CHECK(eml_queue_message_file(eml, NULL) == -1);
    CHECK(eml_queue_message_file(NULL, "/a.sme") == -1);
    CHECK(eml_stop(eml) == 0);
}

static void test_post_to_nobody(char const* workdir, char const* nowhere, char const* path)
{
    void* msg = new_message();
    void* eml = NULL;

    CHECK(count_messages(workdir) == 0);
    CHECK(eml_post(workdir, msg) == 0);
    CHECK(eml_post_with_stocksymbol(workdir, "nobody", msg) == 0);
    CHECK(count_messages(workdir) == 2);
    CHECK(eml_post_message_file(path) == 0);
    CHECK(eml_post_message_file_with_stocksymbol(path, "nobody") == 0);

    CHECK(eml_post(nowhere, msg) == -1);
    CHECK(eml_post(NULL, msg) == -1);
    CHECK(eml_post(workdir, NULL) == -1);
    CHECK(eml_post_with_stocksymbol(nowhere, "nobody", msg) == -1);
    CHECK(eml_post_with_stocksymbol(NULL, "nobody", msg) == -1);
    CHECK(eml_post_with_stocksymbol(workdir, NULL, msg) == -1);
    CHECK(eml_post_with_stocksymbol(workdir, "nobody", NULL) == -1);
    CHECK(eml_post_sys(NULL, msg) == -1);
    CHECK(eml_post_message_file(NULL) == -1);
    CHECK(eml_post_message_file_with_stocksymbol(NULL, "nobody") == -1);
    CHECK(eml_post_message_file_with_stocksymbol(path, NULL) == -1);
    CHECK(eml_post_message_file_with_stocksymbol(path, "") == -1);
    CHECK(count_messages(workdir) == 2);
    CHECK(eml_msg_destroy(msg) == 0);

    /* The next engine throws away what lies there. */
    CHECK(eml_start(workdir, &eml) == 0);
    CHECK(count_messages(workdir) == 0);
    CHECK(eml_stop(eml) == 0);
}

/* ----------------------------------------------------------------------- main */

/* Notifications of the test's own: others may run on this machine. */
static void set_notification_root(char const* dir, char const* run, char const* tmp)
{
    CHECK(mkdir(run, 0777) == 0);
    CHECK(mkdir(tmp, 0777) == 0);
    CHECK(setenv("ZELIEML_NOTIFICATION_ROOT", dir, 1) == 0);
}

static void remove_notification_root(char const* run, char const* tmp)
{
    char own[1200];

    if (geteuid() == 0) {
        snprintf(own, sizeof own, "%s/zelieml-root", run);
    } else {
        snprintf(own, sizeof own, "%s/.zelieml-%lu", tmp, (unsigned long)geteuid());
    }
    rmdir(own); /* empty, if the system has needed it */
    CHECK(rmdir(run) == 0);
    CHECK(rmdir(tmp) == 0);
}

/* ------------------------------------------------------------------ versions */

static void test_version(void)
{
    int const project[] = {PROJECT_NUMBERS};

    CHECK(strcmp(eml_version(), PROJECT_VERSION) == 0);
    CHECK(strcmp(EML_VERSION, PROJECT_VERSION) == 0);
    CHECK(EML_VERSION_MAJOR == project[0]);
    CHECK(EML_VERSION_MINOR == project[1]);
    CHECK(EML_VERSION_PATCH == project[2]);
    CHECK(eml_version() == eml_version());
}

int main(void)
{
    char  dir[1024];
    char  work[1100];
    char  path[1100];
    char  conf[1200];
    char  run[1100];
    char  root[1100];
    char* tmp = getenv("TMPDIR");

    snprintf(dir, sizeof dir, "%s/zelieml-test-XXXXXX", tmp != NULL ? tmp : "/tmp");
    if (mkdtemp(dir) == NULL) {
        perror(dir);
        return 1;
    }
    snprintf(work, sizeof work, "%s/work", dir);
    snprintf(path, sizeof path, "%s/message.sme", dir);
    snprintf(conf, sizeof conf, "%s/zelismes.cf", work);
    snprintf(run, sizeof run, "%s/run", dir);
    snprintf(root, sizeof root, "%s/tmp", dir);
    CHECK(mkdir(work, 0777) == 0);
    set_notification_root(dir, run, root);

    test_version();
    test_string_fields();
    test_encoding();
    test_message_file(path);
    test_keys();
    test_passwords();
    test_hash();
    test_failed_post(work);
    test_settings(conf);
    test_post(work, conf);
    test_servers();
    test_smtp_server();
    test_engine(work);
    test_post_to_nobody(work, path, path);

    /* Nothing but the settings file is left behind. */
    CHECK(remove(conf) == 0);
    CHECK(rmdir(work) == 0);
    remove_notification_root(run, root);
    CHECK(rmdir(dir) == 0);
    return failures == 0 ? 0 : 1;
}
