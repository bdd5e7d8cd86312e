/* SPDX-License-Identifier: Apache-2.0 */
/*
 * A program that loads and unloads the library, or a module that needs it.
 * It is linked with neither the library nor the platform.
 *
 *     loading <case> [rounds]
 */
#include <dlfcn.h>
#include <malloc.h>
#include <pthread.h>
#include <sys/wait.h>

#include "programs.h"

static void *load(const char *path) {
    void *const handle = dlopen(path, RTLD_NOW | RTLD_LOCAL);
    if (handle == NULL) {
        fprintf(stderr, "%s\n", dlerror());
    }
    REQUIRE(handle != NULL);
    return handle;
}

static void unload(void *handle) {
    REQUIRE(dlclose(handle) == 0);
}

static const uint64_t *shared_handle(void *library, const char *name) {
    const uint64_t *const handle = dlsym(library, name);
    REQUIRE(handle != NULL);
    return handle;
}

static void *load_connected(void) {
    void *const library = load(AAAUTIL_LIBRARY);
    wait_connected(shared_handle(library, "aaa_sgmap_sysdb_connid"));
    wait_connected(shared_handle(library, "aaa_cfg_sysdb_connid"));
    return library;
}

static void require_gone(void) {
    REQUIRE(dlopen(AAAUTIL_LIBRARY, RTLD_NOLOAD | RTLD_LAZY) == NULL);
}

/* ---- Resources that must not grow with the number of rounds ---- */

struct usage {
    unsigned threads, descriptors;
    size_t heap;
};

/* The program's threads before anything is loaded. */
static unsigned own_threads;

/* The platform may still have a thread that is about to end. */
static struct usage measure(void) {
    while (entries("/proc/self/task") > own_threads) {
        yield_a_little();
    }
    const struct mallinfo2 info = mallinfo2();
    const struct usage usage = {entries("/proc/self/task"), entries("/proc/self/fd"), info.uordblks};
    return usage;
}

static void run_rounds(unsigned rounds, void (*round)(void)) {
    const unsigned warm_up = 40;
    struct usage before = {0, 0, 0};
    for (unsigned i = 0; i < warm_up + rounds; ++i) {
        if (i == warm_up) {
            before = measure();
        }
        round();
        require_gone();
    }
    const struct usage after = measure();
    fprintf(stderr, "%u rounds: descriptors %u -> %u, heap %zu -> %zu bytes\n", rounds, before.descriptors,
            after.descriptors, before.heap, after.heap);
    REQUIRE(after.threads <= before.threads);
    REQUIRE(after.descriptors <= before.descriptors);
    REQUIRE(after.heap <= before.heap + 64u * 1024u);
}

/* ---- Rounds ---- */

static void at_once(void) {
    unload(load(AAAUTIL_LIBRARY));
}

static void connected(void) {
    unload(load_connected());
}

static void *at_once_body(void *arg) {
    (void)arg;
    at_once();
    return NULL;
}

static void in_a_thread(void) {
    pthread_t thread;
    REQUIRE(pthread_create(&thread, NULL, at_once_body, NULL) == 0);
    REQUIRE(pthread_join(thread, NULL) == 0);
}

static void *unload_body(void *library) {
    unload(library);
    return NULL;
}

/* Loaded by one thread, unloaded by another. */
static void handed_over(void) {
    void *const library = load(AAAUTIL_LIBRARY);
    pthread_t thread;
    REQUIRE(pthread_create(&thread, NULL, unload_body, library) == 0);
    REQUIRE(pthread_join(thread, NULL) == 0);
}

/* Two threads load and unload at the same time; the last dlclose unloads the library. */
static void both_at_once(void) {
    pthread_t threads[2];
    for (int i = 0; i < 2; ++i) {
        REQUIRE(pthread_create(&threads[i], NULL, at_once_body, NULL) == 0);
    }
    for (int i = 0; i < 2; ++i) {
        REQUIRE(pthread_join(threads[i], NULL) == 0);
    }
}

/* One start and end of a session of an authentication stack. */
static void session(void) {
    void *const module = load(LIFECYCLE_MODULE);
    int (*const module_session)(void) = (int (*)(void))(uintptr_t)dlsym(module, "module_session");
    REQUIRE(module_session != NULL);
    REQUIRE(module_session() == 0);
    unload(module);
}

/* ---- Ends of the process with the library loaded ---- */

static void *library_at_exit;

static void unload_at_exit(void) {
    if (library_at_exit != NULL) {
        unload(library_at_exit);
        require_gone();
    }
}

static void *exit_body(void *arg) {
    (void)arg;
    exit(0);
}

/* The program's finaliser runs while the loader ends the process. dlclose then
 * unmaps nothing: the library stays mapped until the process ends. */
static int unload_in_finaliser;
__attribute__((destructor)) static void finaliser(void) {
    if (unload_in_finaliser) {
        unload(library_at_exit);
    }
}

static int exit_in_thread(void) {
    load_connected();
    pthread_t thread;
    REQUIRE(pthread_create(&thread, NULL, exit_body, NULL) == 0);
    pause();
    return 1;
}

static int wait_for_child(pid_t child) {
    int status = 0;
    REQUIRE(waitpid(child, &status, 0) == child);
    REQUIRE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    return 0;
}

/* The child inherits the library without its worker, and unloads or exits. */
static int fork_loaded(void *library, int child_unloads) {
    const pid_t child = fork();
    REQUIRE(child != -1);
    if (child == 0) {
        set_time_limit("the child");
        if (child_unloads) {
            unload(library);
            require_gone();
        }
        exit(0);
    }
    wait_for_child(child);
    /* The parent's worker is still running and is joined. */
    unload(library);
    require_gone();
    return 0;
}

/* Forks while the worker makes its connections. */
static void fork_at_once(void) {
    fork_loaded(load(AAAUTIL_LIBRARY), 1);
}

/* The child unloads the inherited library and loads it again. */
static int fork_reload(void) {
    void *const library = load_connected();
    const pid_t child = fork();
    REQUIRE(child != -1);
    if (child == 0) {
        set_time_limit("the child");
        unload(library);
        require_gone();
        unload(load_connected());
        require_gone();
        exit(0);
    }
    wait_for_child(child);
    unload(library);
    return 0;
}

/* ---- A variable that disables the hooks, set after the load ---- */

static int worker_is_there(void) {
    DIR *const dir = opendir("/proc/self/task");
    int found = 0;
    REQUIRE(dir != NULL);
    for (const struct dirent *entry; (entry = readdir(dir)) != NULL;) {
        char path[300], name[16] = "";
        snprintf(path, sizeof path, "/proc/self/task/%s/comm", entry->d_name);
        FILE *const file = fopen(path, "re");
        if (file != NULL) {
            found |= fgets(name, sizeof name, file) != NULL && strcmp(name, "aaa_util_th\n") == 0;
            fclose(file);
        }
    }
    closedir(dir);
    return found;
}

/* A worker that goes on would execute code that is not mapped any more. */
static int disabled_later(void) {
    for (int i = 0; i < 20; ++i) {
        void *const library = load_connected();
        REQUIRE(worker_is_there());
        REQUIRE(setenv("NO_DLLMAIN", "1", 1) == 0);
        unload(library);
        require_gone();
        while (worker_is_there()) { /* the kernel may still list a thread that was joined */
            yield_a_little();
        }
        REQUIRE(unsetenv("NO_DLLMAIN") == 0);
    }
    return 0;
}

static int disabled_later_and_exit(void) {
    load_connected();
    REQUIRE(setenv("NO_DLLMAIN", "1", 1) == 0);
    return 0;
}

/* The unload of a library whose load was disabled. */
static int enabled_later(void) {
    REQUIRE(setenv("NO_DLLMAIN", "1", 1) == 0);
    void *const library = load(AAAUTIL_LIBRARY);
    REQUIRE(!worker_is_there());
    REQUIRE(unsetenv("NO_DLLMAIN") == 0);
    unload(library);
    require_gone();
    return 0;
}

/* ---- A database that appears after the load ---- */

/* The provider is created at $AAA_SYSDB_PROVIDER after the load. */
static int database_comes_later(void) {
    const char *const path = getenv("AAA_SYSDB_PROVIDER");
    REQUIRE(path != NULL && access(path, F_OK) != 0);
    void *const library = load(AAAUTIL_LIBRARY);
    const uint64_t *const mapping = shared_handle(library, "aaa_sgmap_sysdb_connid");
    const uint64_t *const configuration = shared_handle(library, "aaa_cfg_sysdb_connid");
    REQUIRE(__atomic_load_n(mapping, __ATOMIC_ACQUIRE) == 0);
    REQUIRE(__atomic_load_n(configuration, __ATOMIC_ACQUIRE) == 0);
    REQUIRE(symlink(LIFECYCLE_PROVIDER, path) == 0);
    wait_connected(mapping);
    wait_connected(configuration);
    unload(library);
    require_gone();
    return 0;
}

/* ---- */

struct rounds {
    const char *name;
    void (*round)(void);
};

static const struct rounds all_rounds[] = {
    {"at-once", at_once},           {"connected", connected},       {"in-a-thread", in_a_thread},
    {"handed-over", handed_over},   {"both-at-once", both_at_once}, {"sessions", session},
    {"fork-at-once", fork_at_once},
};

static int run_end(const char *name) {
    if (strcmp(name, "return-loaded") == 0) {
        load_connected();
        return 0;
    }
    if (strcmp(name, "return-at-once") == 0) {
        load(AAAUTIL_LIBRARY);
        return 0;
    }
    if (strcmp(name, "exit-in-thread") == 0) {
        return exit_in_thread();
    }
    if (strcmp(name, "handler-before-load") == 0) {
        REQUIRE(atexit(unload_at_exit) == 0);
        library_at_exit = load_connected();
        return 0;
    }
    if (strcmp(name, "handler-after-load") == 0) {
        library_at_exit = load_connected();
        REQUIRE(atexit(unload_at_exit) == 0);
        return 0;
    }
    if (strcmp(name, "finaliser") == 0) {
        unload_in_finaliser = 1;
        library_at_exit = load_connected();
        return 0;
    }
    if (strcmp(name, "fork-unload") == 0) {
        return fork_loaded(load_connected(), 1);
    }
    if (strcmp(name, "fork-exit") == 0) {
        return fork_loaded(load_connected(), 0);
    }
    if (strcmp(name, "fork-reload") == 0) {
        return fork_reload();
    }
    if (strcmp(name, "disabled-later") == 0) {
        return disabled_later();
    }
    if (strcmp(name, "disabled-later-and-exit") == 0) {
        return disabled_later_and_exit();
    }
    if (strcmp(name, "enabled-later") == 0) {
        return enabled_later();
    }
    if (strcmp(name, "database-later") == 0) {
        return database_comes_later();
    }
    REQUIRE(0 && "a case that is known");
    return 1;
}

int main(int argc, char **argv) {
    REQUIRE(argc >= 2);
    set_time_limit(argv[1]);
    own_threads = entries("/proc/self/task");
#if defined(__SANITIZE_THREAD__)
    ++own_threads; /* the sanitizer starts a thread together with the program's first one */
#endif
    for (size_t i = 0; i < sizeof all_rounds / sizeof all_rounds[0]; ++i) {
        if (strcmp(argv[1], all_rounds[i].name) == 0) {
            REQUIRE(argc >= 3);
            run_rounds((unsigned)strtoul(argv[2], NULL, 10), all_rounds[i].round);
            return 0;
        }
    }
    return run_end(argv[1]);
}
