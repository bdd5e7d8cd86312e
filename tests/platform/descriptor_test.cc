// SPDX-License-Identifier: Apache-2.0
//
// Programs without standard input, output and error: nothing that the platform opens
// becomes descriptor 0, 1 or 2, and no log line is written into a file.
//
// Most descriptors are open only during a call. So the operations on descriptors are
// replaced here by ones that note each use of a standard number.

#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/epoll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <utmp.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>

#include "log_socket.hpp"
#include "platform/cipher.h"
#include "platform/control.h"
#include "platform/event_manager.h"
#include "platform/logging.h"
#include "platform/node.h"
#include "platform/terminal.h"
#include "support/temp_dir.hpp"
#include "support/terminal_process.hpp"

namespace {

bool g_watching = false;
bool g_printing = false;
int g_printed = 0;
char g_misused[1024];

void note(const char *operation, int fd) {
    if (g_watching && fd >= 0 && fd <= STDERR_FILENO) {
        const std::size_t used = std::strlen(g_misused);
        std::snprintf(g_misused + used, sizeof g_misused - used, " %s(%d)", operation, fd);
    }
}

}  // namespace

extern "C" {

ssize_t read(int fd, void *data, size_t len) {
    note("read", fd);
    return syscall(SYS_read, fd, data, len);
}
ssize_t write(int fd, const void *data, size_t len) {
    note("write", fd);
    return syscall(SYS_write, fd, data, len);
}
ssize_t pwrite(int fd, const void *data, size_t len, off_t at) {
    note("pwrite", fd);
    return syscall(SYS_pwrite64, fd, data, len, at);
}
int fstat(int fd, struct stat *status) noexcept {
    note("fstat", fd);
    return fstatat(fd, "", status, AT_EMPTY_PATH);
}
ssize_t sendto(int fd, const void *data, size_t len, int flags, const struct sockaddr *to, socklen_t to_len) {
    note("sendto", fd);
    return syscall(SYS_sendto, fd, data, len, flags, to, to_len);
}
int fsync(int fd) {
    note("fsync", fd);
    return static_cast<int>(syscall(SYS_fsync, fd));
}
// Another thread of the program prints into a new file while it is standard error.
int openat(int directory, const char *name, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = va_arg(arguments, mode_t);
    va_end(arguments);
    const int fd = static_cast<int>(syscall(SYS_openat, directory, name, flags, mode));
    if (g_printing && (flags & O_ACCMODE) != O_RDONLY) {
        syscall(SYS_write, fd, "program: done\n", 14);
        ++g_printed;
    }
    return fd;
}
int epoll_ctl(int fd, int operation, int other, struct epoll_event *event) noexcept {
    note("epoll_ctl", fd);
    note("epoll_ctl of", other);
    return static_cast<int>(syscall(SYS_epoll_ctl, fd, operation, other, event));
}
int ioctl(int fd, unsigned long request, ...) noexcept {
    va_list arguments;
    va_start(arguments, request);
    void *argument = va_arg(arguments, void *);
    va_end(arguments);
    note("ioctl", fd);
    return static_cast<int>(syscall(SYS_ioctl, fd, request, argument));
}

}  // extern "C"

namespace {

// "0", "1", "2" for those that are open, and what was done with them.
std::string standard_descriptors() {
    std::string text;
    for (int fd = 0; fd <= STDERR_FILENO; ++fd) {
        text += fcntl(fd, F_GETFD) >= 0 ? " open(" + std::to_string(fd) + ")" : "";
    }
    return text + g_misused;
}

// What happens to descriptors 0 to 2 in a process with a controlling terminal that has
// closed them and then runs the operation; "" is nothing. The operation returns "", or
// what failed.
std::string without_standard_descriptors(const std::function<std::string()> &operation) {
    TerminalProcess child([&] {
        for (int fd = 0; fd <= STDERR_FILENO; ++fd) {
            close(fd);
        }
        g_watching = true;
        const std::string failed = operation();
        g_watching = false;
        return failed + standard_descriptors();
    });
    return child.report();
}

int32_t channel_not_yet(void *, void *) {
    return -1;
}

std::string use_event_manager() {
    const event_manager_t manager = event_manager_create(0, "test", 0, nullptr);
    void *connection = nullptr;
    const int32_t code = event_async_attach(
        manager, 128, [](void *) { return 0; }, nullptr);
    // The connection waits for a timer.
    if (event_conn_create(&connection, manager, channel_not_yet, nullptr, EVENT_CONN_TYPE_FD) != 0 ||
        event_conn_open(connection) != EVENT_CONN_RETRY || event_send_async(manager, code, 0) != 0) {
        return "no connection that waits";
    }
    alignas(8) char buffer[256];
    event_block_ctx_t context{};
    context.evm = manager;
    context.buffer = buffer;
    context.size = sizeof buffer;
    return event_block(&context) == 0 ? "" : "no event";
}

std::string log_a_line() {
    kel_msg_rec_t record{};
    record.format = "%s";
    kel_errmsg(&record, 3, "a line");
    return "";
}

struct Descriptors : testing::Test {
    TempDir dir;
    LogSocket log;

    std::string use_with(const std::string &sink, const std::function<std::string()> &operation) const {
        return without_standard_descriptors([&] {
            setenv("AAA_LOG", sink.c_str(), 1);
            setenv("AAA_SYSLOG_SOCKET", log.path().c_str(), 1);
            setenv("AAA_JOURNAL_SOCKET", log.path().c_str(), 1);
            return operation();
        });
    }
};

}  // namespace

TEST_F(Descriptors, OfAnEventManagerItsWakeUpAndItsTimers) {
    EXPECT_EQ("", use_with("none", use_event_manager));
}

TEST_F(Descriptors, OfTheLogSockets) {
    for (const char *sink : {"syslog", "journal"}) {
        EXPECT_EQ("", use_with(sink, log_a_line)) << sink;
        EXPECT_EQ(1u, log.take().size()) << sink;
    }
}

TEST_F(Descriptors, OfTraces) {
    EXPECT_EQ("", use_with("none", [] {
                  setenv("AAA_DEBUG_OUTPUT", "syslog", 1);
                  aaa_platform_debug_set(0, 1);
                  aaa_debug(0, "a line");
                  return std::string();
              }));
    EXPECT_EQ(1u, log.take().size());
}

TEST_F(Descriptors, OfTheConfigurationFiles) {
    const std::string node = dir.write("node.conf", "node-type line-card\n");
    const std::string lines = dir.write("lines.conf", "* 0 tty-list\n");
    EXPECT_EQ("", use_with("none", [&] {
                  setenv("AAA_NODE_CONF", node.c_str(), 1);
                  setenv("AAA_LINES_CONF", lines.c_str(), 1);
                  char zone[64];
                  char *list = nullptr;
                  const bool line_card = platform_am_i_lc() == 1;
                  conf_get_timezone_string(zone, sizeof zone);
                  const bool found = find_method_for_line(0, &list) == 0;
                  free(list);
                  return std::string(line_card ? "" : "no node type") + (found ? "" : "no method list");
              }));
}

TEST_F(Descriptors, OfMasterKeys) {
    const std::string path = dir.path("master.keys");
    EXPECT_EQ("", use_with("none", [&] {
                  setenv("AAA_MASTER_KEYS", path.c_str(), 1);
                  uint32_t generation = 0;
                  uint32_t count = 0;
                  aaa_platform_master_key_t keys[4];
                  const bool changed = aaa_platform_master_keys_create(nullptr) == 0 &&
                                       aaa_platform_master_keys_rotate(nullptr, &generation) == 0 &&
                                       aaa_platform_master_keys_retire(nullptr, 1) == 0;
                  char *sealed = pw_encrypt("secret", 7);
                  const bool sealed_it = sealed != nullptr;
                  free(sealed);
                  const bool listed =
                      aaa_platform_master_keys_list(nullptr, keys, 4, &count) == 0 && count == 1;
                  return std::string(changed ? "" : "not changed") + (sealed_it ? "" : "not sealed") +
                         (listed ? "" : "not listed");
              }));
}

TEST_F(Descriptors, OfTheTerminalAndTheLoginRecords) {
    const std::string path = dir.write("utmp", std::string(3 * sizeof(utmp), '\0'));
    EXPECT_EQ("", without_standard_descriptors([&] {
                  setenv("AAA_UTMP", path.c_str(), 1);
                  char address[46];
                  aaa_util_find_line_remote_addr(address, sizeof address);
                  g_watching = false;  // the editor asks for the size of the program's terminal
                  getline_free(getline_init());
                  return std::string();
              }));
}

// In such a program the next file that is opened is 0, then 1, then 2.
TEST_F(Descriptors, AFileThatBecomesStandardErrorForReadingGetsNoLine) {
    const std::string path = dir.write("data", "contents");
    EXPECT_EQ("", without_standard_descriptors([&] {
                  setenv("AAA_LOG", "stderr", 1);
                  g_watching = false;
                  for (int fd = -1; fd < STDERR_FILENO; fd = open(path.c_str(), O_RDONLY)) {
                  }
                  g_watching = true;
                  log_a_line();
                  g_watching = false;
                  for (int fd = 0; fd <= STDERR_FILENO; ++fd) {
                      close(fd);
                  }
                  return std::string();
              }));
    EXPECT_EQ("contents", dir.read("data"));
}

TEST_F(Descriptors, OutputOfTheProgramDoesNotGetIntoTheMasterKeys) {
    const std::string path = dir.path("master.keys");
    g_printing = true;
    EXPECT_EQ(0u, aaa_platform_master_keys_create(path.c_str()));
    g_printing = false;
    EXPECT_EQ("aaa-master-keys 1\n#check 1 ", dir.read("master.keys").substr(0, 27));
    EXPECT_EQ(3, std::ranges::count(dir.read("master.keys"), '\n'));
    EXPECT_GT(g_printed, 0);
}
