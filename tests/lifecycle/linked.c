/* SPDX-License-Identifier: Apache-2.0 */
/*
 * A program that is linked with the library ends in a given way. The library
 * must neither unload nor prevent the end.
 *
 *     linked <way>          once the connections are up
 *     linked <way> at-once  while the worker may still be starting
 */
#include <pthread.h>
#include <signal.h>
#include <sys/wait.h>

#include "aaa/aaautil.h"
#include "programs.h"

static void *exit_from_thread(void *arg) {
    (void)arg;
    exit(0);
}

static int in_thread(void) {
    pthread_t thread;
    REQUIRE(pthread_create(&thread, NULL, exit_from_thread, NULL) == 0);
    pause();
    return 1;
}

/* The first thread ends, the process goes on until another one exits. */
static int main_thread_first(void) {
    pthread_t thread;
    REQUIRE(pthread_create(&thread, NULL, exit_from_thread, NULL) == 0);
    pthread_exit(NULL);
}

/* The child has no worker: it must neither wait for one nor need it. */
static int forked_child(int child_returns) {
    const pid_t child = fork();
    REQUIRE(child != -1);
    if (child == 0) {
        if (child_returns) {
            return 0;
        }
        exit(0);
    }
    int status = 0;
    REQUIRE(waitpid(child, &status, 0) == child);
    REQUIRE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    return 0;
}

/* Uses the library, as a client would. */
static void use(void) {
    avlist *list = NULL;
    REQUIRE(aaa_avpair_create_list("linked", &list) == AAA_OK);
    REQUIRE(aaa_avpair_add(257, 0, "user", 0, 5, list) == AAA_OK);
    aaa_avpair_free_list(list);
}

int main(int argc, char **argv) {
    REQUIRE(argc >= 2);
    set_time_limit(argv[1]);
    if (argc < 3) {
        wait_connected(&aaa_sgmap_sysdb_connid);
        wait_connected(&aaa_cfg_sysdb_connid);
    }
    use();
    const char *const way = argv[1];
    if (strcmp(way, "return") == 0) {
        return 0;
    }
    if (strcmp(way, "exit") == 0) {
        exit(0);
    }
    if (strcmp(way, "exit-in-thread") == 0) {
        return in_thread();
    }
    if (strcmp(way, "main-thread-first") == 0) {
        return main_thread_first();
    }
    if (strcmp(way, "fork-exit") == 0) {
        return forked_child(0);
    }
    if (strcmp(way, "fork-return") == 0) {
        return forked_child(1);
    }
    if (strcmp(way, "quick-exit") == 0) {
        quick_exit(0);
    }
    if (strcmp(way, "_exit") == 0) {
        _exit(0);
    }
    if (strcmp(way, "abort") == 0) {
        abort();
    }
    REQUIRE(0 && "a way that is known");
    return 1;
}
