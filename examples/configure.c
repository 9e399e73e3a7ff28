/*
 * configure - write settings
 *
 *     configure SETTINGS-FILE key=value...
 *
 * Values of "smtp_passwd" and "pop_passwd" are stored encrypted; no "passwd_raw" is needed then.
 * Keys that are contained in others ("smtp_auth" in "smtp_auth_type") come first on the command
 * line: setting one replaces every line that contains it. A new file is readable for its owner only;
 * an existing one keeps its permissions. Exit status: 0 written, 1 not written, 2 wrong use.
 */

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <zelieml.h>

static int is_password(const char *key)
{
    return strcmp(key, "smtp_passwd") == 0 || strcmp(key, "pop_passwd") == 0;
}

static int set(const char *path, const char *key, char *value)
{
    unsigned char *stored;
    int            status;

    if (!is_password(key)) {
        return eml_cf_set_string(key, value, path);
    }
    stored = eml_encrypt_passwd((unsigned char *)value);
    status = eml_cf_set_string(key, (const char *)stored, path);
    eml_encrypt_free_passwd(stored);
    return status;
}

int main(int argc, char **argv)
{
    int i;

    if (argc < 3) {
        fprintf(stderr, "use: configure SETTINGS-FILE key=value...\n");
        return 2;
    }
    for (i = 2; i < argc; ++i) {
        char *value = strchr(argv[i], '=');
        if (value == NULL) {
            fprintf(stderr, "configure: no value: %s\n", argv[i]);
            return 2;
        }
        *value++ = '\0';
        if (set(argv[1], argv[i], value) != 0) {
            fprintf(stderr, "configure: %s could not be set in %s\n", argv[i], argv[1]);
            return 1;
        }
    }
    return 0;
}
