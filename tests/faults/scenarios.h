/*
 * scenarios.h - what is done with the library while its calls fail, in C as a user's program
 *
 * A scenario uses the interface only, and stores what it was told.
 */

#ifndef ZELIEML_TESTS_FAULTS_SCENARIOS_H
#define ZELIEML_TESTS_FAULTS_SCENARIOS_H

#ifdef __cplusplus
extern "C" {
#endif

enum {
    max_reports = 16,
    not_called  = 99 /* stands for a result until there is one */
};

/* Where a scenario takes place. */
struct scene {
    char work[200];     /* the work directory */
    char settings[220]; /* its settings file */
    char aside[200];    /* a directory for files that appear later */
    int  smtp_port;
    int  pop_port;
};

/* What a scenario was told. */
struct outcome {
    int  finished;
    int  started;              /* by eml_start */
    int  result[2];            /* of the calls that the scenario is about: two posts, or one call */
    int  code;                 /* of the result record, or of a login test */
    int  has_record;           /* of eml_post_sync */
    int  reports[max_reports]; /* codes given to the callback */
    int  report_count;
    int  mails;       /* received */
    int  senders[2];  /* how often each sender was among them */
    char value[64];   /* of a setting */
    int  descriptors; /* more than before */
    int  threads;     /* more than before */
};

typedef void scenario_body(struct scene const* scene, struct outcome* outcome);

scenario_body live_as_engine;     /* start, two posts, both attempts if need be, stop */
scenario_body look_for_files;     /* a start that deletes a file, and the scan that finds one */
scenario_body take_files_over;    /* a start, and the scan that finds the files of scene->aside */
scenario_body send_and_wait;      /* eml_post_sync */
scenario_body send_long_and_wait; /* the same with a body that is sent from its file */
scenario_body try_pop_login;      /* test_pop_auth */
scenario_body try_smtp_login;     /* test_smtp_auth after a POP3 login */
scenario_body receive_two_mails;  /* eml_receive_mails */
scenario_body change_settings;    /* result: of setting and of getting */
scenario_body post_to_nobody;     /* result: of eml_post and of eml_post_message_file */
scenario_body save_and_load;      /* result: of eml_msg_save and of eml_msg_load */
scenario_body keep_a_password;    /* result: of encrypting and of decrypting */

#ifdef __cplusplus
}
#endif

#endif
