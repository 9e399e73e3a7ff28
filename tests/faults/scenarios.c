/* scenarios.c - see scenarios.h */

#define _GNU_SOURCE

#include "tests/faults/scenarios.h"

#include <dirent.h>
#include <stdio.h>
#include <string.h>

#include <zelieml_ext.h>

#include "tests/faults/calls.h"

enum {
    half_an_hour_s = 1800,
    two_looks_s    = 2 * half_an_hour_s + 700 /* and one of the passes for second attempts */
};

/* Addressed to a mailbox of its own, so that the server's mails can be told apart. */
static int new_message(void** msg, char const* to)
{
    *msg = NULL;
    if (eml_msg_create(msg) != 0) {
        return -1;
    }
    return eml_msg_set_from(*msg, "printer7@office.test") == 0 &&
                   eml_msg_set_replyto(*msg, "helpdesk@office.test") == 0 &&
                   eml_msg_set_to(*msg, to) == 0 &&
                   eml_msg_set_subject(*msg, "a subject longer than any string keeps in itself") ==
                       0 &&
                   eml_msg_set_body(*msg, "Tray 2 is empty.\nThis is the second line.\n.\n") == 0
               ? 0
               : -1;
}

static int note_result(void* result, void* user)
{
    struct outcome* const outcome = user;
    eml_send_e            code    = eml_send_error_other;
    if (outcome->report_count < max_reports && eml_cb_get_code(result, &code) == 0) {
        outcome->reports[outcome->report_count++] = (int)code;
    }
    return 0;
}

static int has_message_files(char const* directory)
{
    int                  found = 0;
    DIR* const           open  = opendir(directory);
    struct dirent const* entry = NULL;
    while (open != NULL && (entry = readdir(open)) != NULL) {
        found = found || strstr(entry->d_name, ".sme") != NULL;
    }
    if (open != NULL) {
        closedir(open);
    }
    return found;
}

/* Until all messages are settled: second attempts, and files that no notification has named. */
static void wait_for_second_attempts(struct scene const* scene)
{
    for (int looks = 0; looks < 2 && has_message_files(scene->work); ++looks) {
        skip_seconds(two_looks_s);
    }
}

void live_as_engine(struct scene const* scene, struct outcome* outcome)
{
    char const* const recipients[] = {"one@office.test", "two@office.test"};
    void*             eml          = NULL;
    outcome->started               = eml_start(scene->work, &eml);
    if (outcome->started != 0) {
        return;
    }
    if (eml_set_callback(eml, note_result, outcome) != 0) {
        outcome->report_count = -1; /* nothing is reported */
    }
    pass_seconds(0);
    for (int i = 0; i < 2; ++i) {
        void* msg = NULL;
        if (new_message(&msg, recipients[i]) == 0) {
            outcome->result[i] = i == 0 ? eml_post(scene->work, msg) : eml_post_sys(eml, msg);
        }
        eml_msg_destroy(msg);
        pass_seconds(0);
    }
    pass_seconds(2);
    wait_for_second_attempts(scene);
    eml_reset_callback(eml, note_result);
    eml_stop(eml);
}

void look_for_files(struct scene const* scene, struct outcome* outcome)
{
    char  path[240];
    void* eml        = NULL;
    void* msg        = NULL;
    outcome->started = eml_start(scene->work, &eml);
    if (outcome->started != 0) {
        return;
    }
    if (eml_set_callback(eml, note_result, outcome) != 0) {
        outcome->report_count = -1;
    }
    snprintf(path, sizeof path, "%s/found.sme", scene->work);
    if (new_message(&msg, "one@office.test") == 0) {
        outcome->result[0] = eml_msg_save(msg, path);
    }
    eml_msg_destroy(msg);
    skip_seconds(half_an_hour_s - 1);
    pass_seconds(2);
    wait_for_second_attempts(scene);
    eml_stop_multi(&eml);
}

static void move_files(char const* from, char const* to)
{
    DIR* const           open  = opendir(from);
    struct dirent const* entry = NULL;
    while (open != NULL && (entry = readdir(open)) != NULL) {
        char old_path[480];
        char new_path[480];
        snprintf(old_path, sizeof old_path, "%s/%s", from, entry->d_name);
        snprintf(new_path, sizeof new_path, "%s/%s", to, entry->d_name);
        if (entry->d_name[0] != '.') {
            rename(old_path, new_path);
        }
    }
    if (open != NULL) {
        closedir(open);
    }
}

void take_files_over(struct scene const* scene, struct outcome* outcome)
{
    void* eml        = NULL;
    outcome->started = eml_start(scene->work, &eml);
    if (outcome->started != 0) {
        return;
    }
    eml_set_callback(eml, note_result, outcome);
    move_files(scene->aside, scene->work);
    wait_for_second_attempts(scene);
    eml_stop(eml);
}

/* body  null: a short one */
static void send_body(struct scene const* scene, struct outcome* outcome, char const* body)
{
    void*      msg    = NULL;
    void*      result = NULL;
    eml_send_e code   = eml_send_ok;
    if (new_message(&msg, "one@office.test") == 0 &&
        (body == NULL || eml_msg_set_body(msg, body) == 0)) {
        outcome->result[0]  = eml_post_sync(scene->work, msg, &result);
        outcome->has_record = result != NULL;
        if (eml_cb_get_code(result, &code) == 0) {
            outcome->code = (int)code;
        }
    }
    eml_cb_delete(result);
    eml_msg_destroy(msg);
}

void send_and_wait(struct scene const* scene, struct outcome* outcome)
{
    send_body(scene, outcome, NULL);
}

void send_long_and_wait(struct scene const* scene, struct outcome* outcome)
{
    static char const line[] = "Tray 2 is empty.\n";
    static char       body[200000];
    size_t            i;
    for (i = 0; i + 1 < sizeof body; ++i) {
        body[i] = line[i % (sizeof line - 1)];
    }
    send_body(scene, outcome, body);
}

static int new_server(void** server, struct scene const* scene)
{
    *server = NULL;
    return server_info_create(server) == 0 &&
                   server_info_set_pop(*server, "127.0.0.1", "user", "password", "apop",
                                       scene->pop_port, 0) == 0 &&
                   server_info_set_smtp(*server, "localhost", "user", "password", "on",
                                        scene->smtp_port) == 0
               ? 0
               : -1;
}

void try_pop_login(struct scene const* scene, struct outcome* outcome)
{
    void* server = NULL;
    if (new_server(&server, scene) == 0) {
        outcome->code = (int)test_pop_auth(server, NULL);
    }
    server_info_destroy(server);
}

void try_smtp_login(struct scene const* scene, struct outcome* outcome)
{
    void* server = NULL;
    char  message[1024];
    if (new_server(&server, scene) == 0) {
        outcome->code = (int)test_smtp_auth(server, "on", message);
    }
    server_info_destroy(server);
}

void receive_two_mails(struct scene const* scene, struct outcome* outcome)
{
    void* server = NULL;
    void* list   = NULL;
    char  from[256];
    if (new_server(&server, scene) == 0 && eml_receive_msg_create(&list) == 0) {
        outcome->result[0] = eml_receive_mails(server, list, "office.test");
        outcome->mails     = eml_receive_msg_count(list);
        for (int i = 0; i < outcome->mails; ++i) {
            if (eml_receive_msg_get_from(list, i, from, sizeof from) == 0) {
                ++outcome->senders[strstr(from, "one@") != NULL ? 0 : 1];
            }
        }
        if (outcome->mails > 0) {
            outcome->result[1] =
                eml_receive_msg_get_subject_utf8(list, 0, outcome->value, sizeof outcome->value);
        }
    }
    eml_receive_msg_destroy(list);
    server_info_destroy(server);
}

void change_settings(struct scene const* scene, struct outcome* outcome)
{
    char         port[16] = "";
    unsigned int size     = sizeof outcome->value;
    outcome->result[0]    = eml_cf_set_string("smtp_account", "a new account", scene->settings);
    outcome->result[1] = eml_cf_get_string("smtp_account", outcome->value, &size, scene->settings);
    size               = sizeof port;
    eml_cf_get_string("smtp_port", port, &size, scene->settings);
}

void post_to_nobody(struct scene const* scene, struct outcome* outcome)
{
    void* msg = NULL;
    if (new_message(&msg, "one@office.test") == 0) {
        outcome->result[0] = eml_post_with_stocksymbol(scene->work, "nobody", msg);
        outcome->result[1] = eml_post_message_file_with_stocksymbol(scene->settings, "nobody");
    }
    eml_msg_destroy(msg);
}

void save_and_load(struct scene const* scene, struct outcome* outcome)
{
    char  path[240];
    void* msg    = NULL;
    void* loaded = NULL;
    snprintf(path, sizeof path, "%s/saved.sme", scene->work);
    if (new_message(&msg, "one@office.test") == 0) {
        outcome->result[0] = eml_msg_save(msg, path);
    }
    eml_msg_destroy(msg);
    outcome->result[1] = eml_msg_load(&loaded, path);
    if (outcome->result[1] == 0) {
        eml_msg_get_to(loaded, outcome->value, sizeof outcome->value);
    }
    eml_msg_destroy(loaded);
}

void keep_a_password(struct scene const* scene, struct outcome* outcome)
{
    (void)scene;
    unsigned char  password[] = "a password longer than any string keeps in itself";
    unsigned char* stored     = eml_encrypt_passwd(password);
    unsigned char* clear      = stored != NULL ? eml_decrypt_passwd(stored) : NULL;
    unsigned char* hash       = eml_hash_hexstr("text");
    outcome->result[0]        = stored != NULL ? 0 : -1;
    outcome->result[1]        = clear != NULL ? 0 : -1;
    if (clear != NULL) {
        snprintf(outcome->value, sizeof outcome->value, "%s", (char const*)clear);
    }
    eml_hash_free_hexstr(hash);
    eml_decrypt_free_passwd(clear);
    eml_encrypt_free_passwd(stored);
}
