// SPDX-License-Identifier: Apache-2.0
//
// aaad, the AAA service.

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

#include "base/log.hpp"
#include "main/check.hpp"
#include "main/daemon.hpp"
#include "main/drop_queue.hpp"
#include "main/options.hpp"

namespace {

// The host's logging decides once where lines go, when the first one is written, and that may be
// a line of the library's own thread, which runs before main(). So the program starts again. If
// it cannot, it goes on, and what was decided holds.
void log_to_standard_error(char **argv) {
    if (getenv("AAA_LOG") == nullptr && setenv("AAA_LOG", "stderr", 0) == 0) {
        execv("/proc/self/exe", argv);
    }
}

__attribute__((no_sanitize("address", "thread", "undefined"))) sigset_t signals_of_the_loop() {
    sigset_t set;
    sigemptyset(&set);
    for (const int number : {SIGTERM, SIGINT, SIGHUP}) {
        sigaddset(&set, number);
    }
    return set;
}

// Not strcmp(), which sanitizers replace and which is not ready before main().
__attribute__((no_sanitize("address", "thread", "undefined"))) bool is_check(const char *word) {
    const char *wanted = "--check";
    for (; *word != '\0' && *word == *wanted; ++word, ++wanted) {
    }
    return *word == *wanted;
}

// Before main(), and before the libraries are loaded: one of them starts a thread then, which blocks signals
// itself when it runs. Until then a signal would end the process there, on a busy machine after the
// service has said that it is ready.
__attribute__((no_sanitize("address", "thread", "undefined"))) void begin(int, char **argv, char **) {
    const sigset_t set = signals_of_the_loop();
    sigprocmask(SIG_BLOCK, &set, nullptr);
    for (char **word = argv; *word != nullptr; ++word) {
        if (is_check(*word)) {
            service::expect_check();
        }
    }
}
__attribute__((section(".preinit_array"), used)) void (*const g_before_all)(int, char **, char **) = begin;

// For what ends by itself, so that it can be interrupted.
void take_signals_as_usual() {
    const sigset_t set = signals_of_the_loop();
    pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
}

}  // namespace

int main(int argc, char **argv) {
    int status = 0;
    const auto options = service::read_options(argc, argv, status);
    if (!options) {
        return status;
    }
    if (options->foreground || options->check) {
        log_to_standard_error(argv);
    }
    service::log_debug(options->debug);
    if (options->check || !options->drop_queue.empty()) {
        take_signals_as_usual();
    }
    if (options->check) {
        return service::check_configuration({options->config, options->socket, options->force});
    }
    if (!options->drop_queue.empty()) {
        umask(0077);
        return service::drop_queue({options->config, options->socket, options->force}, options->drop_queue);
    }
    signal(SIGPIPE, SIG_IGN);
    umask(0077);
    service::Daemon daemon(*options);
    return daemon.run();
}
