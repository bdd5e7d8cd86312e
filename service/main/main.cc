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

void block_signals() {
    sigset_t set;
    sigemptyset(&set);
    for (const int number : {SIGTERM, SIGINT, SIGHUP}) {
        sigaddset(&set, number);
    }
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
    signal(SIGPIPE, SIG_IGN);
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
    if (options->check) {
        return service::check_configuration({options->config, options->socket, options->force});
    }
    if (!options->drop_queue.empty()) {
        umask(0077);
        return service::drop_queue({options->config, options->socket, options->force}, options->drop_queue);
    }
    block_signals();
    umask(0077);
    service::Daemon daemon(*options);
    return daemon.run();
}
