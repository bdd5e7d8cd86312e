// SPDX-License-Identifier: Apache-2.0
//
// Files and settings of the host platform. The input is an operation (1 byte) and
//
//   0   kind (1 byte), then a file of method lists by line
//   1   buffer size (1 byte), then login records: variations (1 byte), a
//       record's address (16 bytes) and up to 256 bytes of host name
//   2   buffer size (1 byte), then a time zone
//   3   names of debug areas
//   4   name of a terminal
//
// The process gets a controlling terminal, so that it has a line. Results are compared
// with a second reading of each form.

#include <arpa/inet.h>
#include <fnmatch.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <utmp.h>

#include <cctype>
#include <csignal>
#include <cstring>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "aaa/credentials.h"
#include "aaa/types.h"
#include "fuzz_input.hpp"
#include "host_process.hpp"
#include "platform/control.h"
#include "platform/node.h"
#include "platform/terminal.h"

namespace {

constexpr std::size_t kLargestFile = 16384;
constexpr cerrno kBadConfig = 0xa2571600u;
constexpr char kFill = '\x5a';

std::string g_line;  // of this process, without "/dev/"

// ---- the process's terminal ---------------------------------------------------------

// A leader of a process group cannot begin a session; its child can, and this
// process then ends as the child did.
void begin_session() {
    if (setsid() >= 0) {
        return;
    }
    const pid_t child = fork();
    REQUIRE(child >= 0);
    if (child != 0) {
        int status = 0;
        REQUIRE(waitpid(child, &status, 0) == child);
        _exit(WIFEXITED(status) ? WEXITSTATUS(status) : 1);
    }
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    REQUIRE(setsid() >= 0);
}

void take_terminal() {
    begin_session();
    int master = -1;
    int slave = -1;
    char name[64] = "";
    REQUIRE(openpty(&master, &slave, name, nullptr, nullptr) == 0);
    REQUIRE(ioctl(slave, TIOCSCTTY, 0) == 0);
    signal(SIGHUP, SIG_IGN);  // when the two ends are closed at exit
    g_line = std::string(name).substr(5);
}

// ---- method lists by line -------------------------------------------------------------

std::vector<std::string> words_of(const std::string &line) {
    const std::string text = line.substr(0, line.find_first_of(std::string("#\0", 2)));
    std::vector<std::string> words;
    std::size_t at = text.find_first_not_of(" \t\r");
    while (at != std::string::npos && words.size() < 8) {
        const std::size_t end = text.find_first_of(" \t\r", at);
        words.push_back(text.substr(at, end - at));
        at = text.find_first_not_of(" \t\r", end);
    }
    return words;
}

bool is_list_name(const std::string &name) {
    for (const char c : name) {
        if (std::isgraph(static_cast<unsigned char>(c)) == 0) {
            return false;
        }
    }
    return name.size() <= 254;
}

// The list that the first matching row names, or nothing.
std::string expected_list(const std::string &bytes, uint32_t kind) {
    static const std::string kKinds[] = {"authentication", "authorization", "accounting", "*"};
    std::istringstream lines(bytes);
    for (std::string line; std::getline(lines, line);) {
        const std::vector<std::string> words = words_of(line);
        if (words.size() != 3 || !is_list_name(words[2]) ||
            (words[1] != kKinds[kind] && words[1] != kKinds[3])) {
            continue;
        }
        if (fnmatch(words[0].c_str(), g_line.c_str(), 0) == 0 ||
            fnmatch(words[0].c_str(), ("/dev/" + g_line).c_str(), 0) == 0) {
            return words[2];
        }
    }
    return "";
}

void read_lines(fuzz::Input input) {
    const uint32_t kind = input.byte() % 3;
    const std::string bytes = input.rest();
    fuzz::HostProcess::write(fuzz::HostProcess::instance().path("lines.conf"), bytes);
    char *name = nullptr;
    const cerrno rc = find_method_for_line(kind, &name);
    const std::unique_ptr<char, void (*)(void *)> owner(name, std::free);
    REQUIRE(rc == (bytes.size() > kLargestFile ? kBadConfig : 0));
    const std::string expected = rc == 0 ? expected_list(bytes, kind) : "";
    REQUIRE((name != nullptr) == !expected.empty());
    REQUIRE(name == nullptr || name == expected);
}

// ---- login records ------------------------------------------------------------------

std::string written(int family, const void *address) {
    char text[INET6_ADDRSTRLEN];
    return inet_ntop(family, address, text, sizeof text) != nullptr ? text : "";
}

std::string written_v6(const in6_addr &address) {
    return IN6_IS_ADDR_V4MAPPED(&address) ? written(AF_INET, &address.s6_addr[12])
                                          : written(AF_INET6, &address);
}

std::string address_in(const utmp &entry) {
    const int32_t(&words)[4] = entry.ut_addr_v6;
    if (words[1] == 0 && words[2] == 0 && words[3] == 0) {
        return words[0] != 0 ? written(AF_INET, &words[0]) : "";
    }
    in6_addr address;
    std::memcpy(&address, words, sizeof address);
    return written_v6(address);
}

std::string host_in(const utmp &entry) {
    std::string host(entry.ut_host, strnlen(entry.ut_host, sizeof entry.ut_host));
    host.erase(std::min(host.find('%'), host.size()));
    in_addr v4;
    in6_addr v6;
    if (host.size() >= INET6_ADDRSTRLEN) {
        return "";
    }
    if (inet_pton(AF_INET, host.c_str(), &v4) == 1) {
        return written(AF_INET, &v4);
    }
    return inet_pton(AF_INET6, host.c_str(), &v6) == 1 ? written_v6(v6) : "";
}

// Makes a record. Returns whether it holds the address of this line's user.
bool make_entry(fuzz::Input &input, utmp &entry) {
    constexpr pid_t kNoProcess = 0x7ffffff0;  // larger than process numbers get
    const uint8_t mode = input.byte();
    entry = {};
    entry.ut_type = (mode & 1) != 0 ? DEAD_PROCESS : USER_PROCESS;
    const std::string line = (mode & 2) != 0 ? g_line + "0" : g_line;
    std::memcpy(entry.ut_line, line.c_str(), line.size());
    entry.ut_pid = (mode & 4) != 0 ? kNoProcess : (mode & 8) != 0 ? 0 : getpid();
    const std::string address = input.text((mode & 16) != 0 ? 4 : 16);
    std::memcpy(entry.ut_addr_v6, address.data(), address.size());
    const std::string host = input.text((mode & 32) != 0 ? input.number(2) % (sizeof entry.ut_host + 1) : 0);
    std::memcpy(entry.ut_host, host.data(), host.size());
    return (mode & 7) == 0;
}

void read_logins(fuzz::Input input) {
    const uint32_t room = input.byte();
    std::string bytes;
    std::vector<utmp> logins;
    while (input.size() > 20 && bytes.size() < 64 * sizeof(utmp)) {
        utmp entry;
        if (make_entry(input, entry)) {
            logins.push_back(entry);
        }
        bytes.append(reinterpret_cast<const char *>(&entry), sizeof entry);
    }
    fuzz::HostProcess::write(fuzz::HostProcess::instance().path("utmp"), bytes + input.rest());
    std::vector<char> buffer(room, kFill);
    const cerrno rc = aaa_util_find_line_remote_addr(room != 0 ? buffer.data() : nullptr, room);
    std::string expected;
    if (!logins.empty()) {
        expected = address_in(logins.back());
        if (expected.empty() || expected.size() >= room) {
            expected = host_in(logins.back());
        }
    }
    if (room == 0 || expected.empty() || expected.size() >= room) {
        REQUIRE(rc != 0 && (room == 0 || buffer[0] == '\0'));
        return;
    }
    REQUIRE(rc == 0 && expected == buffer.data());
}

// ---- settings -------------------------------------------------------------------------

void read_zone(fuzz::Input input) {
    const uint32_t room = input.byte();
    const std::string zone = input.rest_as_text();
    setenv("TZ", zone.c_str(), 1);
    std::vector<char> buffer(room, kFill);
    const cerrno rc = conf_get_timezone_string(room != 0 ? buffer.data() : nullptr, room);
    REQUIRE(room != 0 || rc != 0);
    if (room != 0) {
        const std::size_t length = strnlen(buffer.data(), room);
        REQUIRE(length < room && (rc == 0) == (length != 0));
        for (std::size_t i = 0; i < length; ++i) {
            REQUIRE(std::isalnum(static_cast<unsigned char>(buffer[i])) != 0 ||
                    std::strchr("/_-+", buffer[i]) != nullptr);
        }
    }
    unsetenv("TZ");
}

// The flags that any words give must equal those of the same flags as numbers.
void read_areas(fuzz::Input input) {
    const std::string areas = input.rest_as_text();
    aaa_platform_debug_set_areas(areas.c_str());
    const uint32_t mask = aaa_platform_debug_mask();
    REQUIRE(mask < 1u << AAA_PLATFORM_DEBUG_FLAGS);
    aaa_platform_debug_set_areas(nullptr);
    REQUIRE(aaa_platform_debug_mask() == 0);
    std::string numbers;
    for (uint32_t flag = 0; flag < AAA_PLATFORM_DEBUG_FLAGS; ++flag) {
        if ((mask >> flag & 1) != 0) {
            numbers += std::to_string(flag) + ",";
        }
    }
    REQUIRE(aaa_platform_debug_set_areas(numbers.c_str()) == 0);
    REQUIRE(aaa_platform_debug_mask() == mask);
    aaa_platform_debug_set_areas(nullptr);
}

// The device's name and the name in a list must give the same kind.
void read_terminal_name(fuzz::Input input) {
    std::string name = input.rest_as_text();
    tty_details_t details;
    std::memset(&details, kFill, sizeof details);
    const int32_t rc = tty_details_from_device_file(0, name.c_str(), &details);
    REQUIRE(rc == 0 || rc == ENODEV);
    aaa_usercred_t cred{};
    cred.tty_mnemonic = name.data();
    const cerrno code = aaa_util_check_linetype(&cred);
    REQUIRE(code != 0 || (rc == 0 && cred.line_category == details.kind));
    REQUIRE(memchr(cred.line_detail, 0, sizeof cred.line_detail) != nullptr);
    REQUIRE(memchr(cred.line_detail2, 0, sizeof cred.line_detail2) != nullptr);
}

void prepare() {
    take_terminal();
    fuzz::HostProcess::instance();
    unsetenv("SSH_CONNECTION");
    unsetenv("SSH_CLIENT");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    static const bool prepared = (prepare(), true);
    static_cast<void>(prepared);
    fuzz::Input input(data, size);
    switch (input.byte() % 5) {
        case 0:
            read_lines(input);
            break;
        case 1:
            read_logins(input);
            break;
        case 2:
            read_zone(input);
            break;
        case 3:
            read_areas(input);
            break;
        default:
            read_terminal_name(input);
            break;
    }
    return 0;
}
