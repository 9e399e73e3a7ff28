/*
 * plugin_test.c - a host that loads the library, runs an engine, and unloads it again
 *
 *     plugin_test LIBRARY
 */

#define _XOPEN_SOURCE 700

#include <dlfcn.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/support/check.h"

static void find(void* library, char const* name, void* function)
{
    void* found = dlsym(library, name);

    CHECK(found != NULL);
    memcpy(function, &found, sizeof found);
}

static void use(char const* path, char const* workdir)
{
    int (*start)(char const* workdir, void** eml);
    int (*stop)(void* eml);
    int (*post)(char const* workdir, void* msg);
    int (*create)(void** msg);
    int (*destroy)(void* msg);
    void* eml     = NULL;
    void* msg     = NULL;
    void* library = dlopen(path, RTLD_NOW | RTLD_LOCAL);

    if (library == NULL) {
        fprintf(stderr, "%s\n", dlerror());
        ++failures;
        return;
    }
    find(library, "eml_start", &start);
    find(library, "eml_stop", &stop);
    find(library, "eml_post", &post);
    find(library, "eml_msg_create", &create);
    find(library, "eml_msg_destroy", &destroy);
    CHECK(start(workdir, &eml) == 0);
    CHECK(create(&msg) == 0);
    CHECK(post(workdir, msg) == 0);
    CHECK(destroy(msg) == 0);
    CHECK(stop(eml) == 0);
    CHECK(dlclose(library) == 0);
}

/* What the library had to say about forks must have gone with it. */
static void fork_without_it(void)
{
    int         status = -1;
    const pid_t child  = fork();

    if (child == 0) {
        _exit(0);
    }
    CHECK(waitpid(child, &status, 0) == child);
    CHECK(WIFEXITED(status) && WEXITSTATUS(status) == 0);
}

int main(int argc, char** argv)
{
    char dir[1024];
    char work[1100];
    char tmp[1100];
    char command[1100];
    int  round;

    snprintf(dir, sizeof dir, "%s/zelieml-test-XXXXXX",
             getenv("TMPDIR") != NULL ? getenv("TMPDIR") : "/tmp");
    if (argc != 2 || mkdtemp(dir) == NULL) {
        return 2;
    }
    snprintf(work, sizeof work, "%s/work", dir);
    snprintf(tmp, sizeof tmp, "%s/tmp", dir);
    CHECK(mkdir(work, 0777) == 0);
    CHECK(mkdir(tmp, 0777) == 0);
    CHECK(setenv("ZELIEML_NOTIFICATION_ROOT", dir, 1) == 0);

    for (round = 0; round < 20 && failures == 0; ++round) {
        use(argv[1], work);
        fork_without_it();
    }

    snprintf(command, sizeof command, "rm -r %s", dir);
    CHECK(system(command) == 0);
    return failures == 0 ? 0 : 1;
}
