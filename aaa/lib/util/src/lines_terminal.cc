// SPDX-License-Identifier: Apache-2.0
//
// The name of the terminal on standard input, from the tty program.
//
// The program is found through PATH: kept, scripts replace it. The caller of a
// set-user-ID program could so choose the device that the program opens, and which
// program runs with its rights. There the file is fixed, no shell is involved, the
// environment is not the caller's, and tty runs with the caller's rights.

#include <fcntl.h>
#include <spawn.h>
#include <sys/auxv.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "internal/terminal_name.hpp"

namespace aaautil {
namespace {

// Drops the last character of a line, whatever it is.
void drop_last(char *line) noexcept {
    const size_t length = std::strlen(line);
    if (length != 0) {
        line[length - 1] = '\0';
    }
}

bool start_tty(int output, pid_t *child) noexcept {
    char file[] = "/usr/bin/tty";
    char path[] = "PATH=/usr/bin:/bin";
    char locale[] = "LC_ALL=C";
    char *const arguments[] = {file, nullptr};
    char *const environment[] = {path, locale, nullptr};
    posix_spawn_file_actions_t actions{};
    posix_spawnattr_t attributes{};
    const bool started = posix_spawn_file_actions_init(&actions) == 0 &&
                         posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO) == 0 &&
                         posix_spawnattr_init(&attributes) == 0 &&
                         posix_spawnattr_setflags(&attributes, POSIX_SPAWN_RESETIDS) == 0 &&
                         posix_spawn(child, file, &actions, &attributes, arguments, environment) == 0;
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    return started;
}

// Reads one line; false when there is nothing to read. Not by a stream, whose buffer
// would need memory.
bool take_line(int output, char (&name)[kTerminalNameSize]) noexcept {
    size_t length = 0;
    while (length < sizeof name - 1 && TEMP_FAILURE_RETRY(read(output, name + length, 1)) == 1 &&
           name[length++] != '\n') {
    }
    name[length] = '\0';
    return length != 0;
}

bool ask_fixed_tty(char (&name)[kTerminalNameSize]) noexcept {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        return false;
    }
    pid_t child = -1;
    const bool started = start_tty(ends[1], &child);
    close(ends[1]);  // the end of the output is the end of tty
    const bool got = started && take_line(ends[0], name);
    close(ends[0]);
    if (started) {
        TEMP_FAILURE_RETRY(waitpid(child, nullptr, 0));
    }
    return got;
}

bool ask_tty_in_path(char (&name)[kTerminalNameSize]) noexcept {
    FILE *output = popen("tty", "r");
    if (output == nullptr) {
        return false;
    }
    const bool got = std::fgets(name, sizeof name, output) != nullptr;
    pclose(output);
    return got;
}

}  // namespace

bool read_terminal_name(char (&name)[kTerminalNameSize]) noexcept {
    const bool got = getauxval(AT_SECURE) != 0 ? ask_fixed_tty(name) : ask_tty_in_path(name);
    if (got) {
        drop_last(name);
    }
    return got;
}

}  // namespace aaautil
