// SPDX-License-Identifier: Apache-2.0
//
// Kinds of lines, method lists by line, remote addresses.

#include "platform/terminal.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utmp.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "aaa/lines.h"
#include "log_socket.hpp"
#include "open_files.hpp"
#include "platform/control.h"
#include "temp_dir.hpp"
#include "terminal_process.hpp"

namespace {

constexpr cerrno kNoTerminal = 0x22570e00u;
constexpr cerrno kInvalidArg = 0xa2571000u;
constexpr cerrno kUnknownLine = 0xa2571200u;
constexpr cerrno kNoAddress = 0xa2571400u;
constexpr cerrno kBadConfig = 0xa2571600u;

// Kind of a device, or -1.
int kind_of(const char *device) {
    tty_details_t details;
    std::memset(&details, 0x5a, sizeof details);
    if (tty_details_from_device_file(0, device, &details) != 0) {
        return -1;
    }
    for (const uint8_t byte : details.rest) {
        EXPECT_EQ(0, byte);
    }
    return static_cast<int>(details.kind);
}

std::string own_device() {
    char name[64];
    return ttyname_r(0, name, sizeof name) == 0 ? name : "/dev/none";
}

std::string hex(cerrno code) {
    char text[16];
    std::snprintf(text, sizeof text, "%08x", code);
    return text;
}

}  // namespace

// ---- kinds -----------------------------------------------------------------------

TEST(LineKind, IsToldByTheName) {
    const struct {
        const char *device;
        int kind;
    } expected[] = {
        {"/dev/console", AAA_LINE_CONSOLE},
        {"/dev/con0", AAA_LINE_CONSOLE},
        {"/dev/con0_RP0", AAA_LINE_CONSOLE},
        {"/dev/tty1", AAA_LINE_TTY2},
        {"/dev/tty63", AAA_LINE_TTY2},
        {"/dev/tty", AAA_LINE_TTY1},
        {"/dev/hvc0", AAA_LINE_TTY1},
        {"/dev/aux", AAA_LINE_AUX},
        {"/dev/aux0", AAA_LINE_AUX},
        {"/dev/ttyS0", AAA_LINE_AUX},
        {"/dev/ttyS12", AAA_LINE_AUX},
        {"/dev/ttyUSB0", AAA_LINE_AUX},
        {"/dev/ttyACM1", AAA_LINE_AUX},
        {"/dev/ttyAMA0", AAA_LINE_AUX},
        {"/dev/pts/0", AAA_LINE_VTY},
        {"/dev/pts/1234", AAA_LINE_VTY},
        {"/dev/vty1", AAA_LINE_VTY},
        {"pts/3", AAA_LINE_VTY},
        {"vty1", AAA_LINE_VTY},
        {"ttyS1", AAA_LINE_AUX},
        {"dev-vty1", AAA_LINE_VTY},
    };
    for (const auto &row : expected) {
        EXPECT_EQ(row.kind, kind_of(row.device)) << row.device;
    }
}

TEST(LineKind, OfOtherDevicesIsUnknown) {
    for (const char *device :
         {"/dev/null", "/dev/sda", "/dev/pts", "/dev/pts/", "/dev/pts/ptmx", "/dev/ttyprintk",
          "/dev/consoles", "/dev/vty", "/dev/ttyS", "", "/", "/nonexistent", "/dev/con", "/dev/auxiliary"}) {
        EXPECT_EQ(-1, kind_of(device)) << device;
    }
}

TEST(LineKind, FollowsALinkToADevice) {
    const TempDir dir;
    const std::string link = dir.path("usb-maker-serial");
    ASSERT_EQ(0, symlink("/dev/console", link.c_str()));
    if (access("/dev/console", F_OK) == 0) {
        EXPECT_EQ(AAA_LINE_CONSOLE, kind_of(link.c_str()));
    }
    ASSERT_EQ(0, unlink(link.c_str()));
    ASSERT_EQ(0, symlink("/dev/null", link.c_str()));
    EXPECT_EQ(-1, kind_of(link.c_str()));
}

TEST(LineKind, OfARealTerminalIsVty) {
    TerminalProcess child([] { return std::to_string(kind_of(own_device().c_str())); });
    EXPECT_EQ("4", child.report());
}

TEST(LineKind, RefusesNullsAndKeepsErrno) {
    tty_details_t details;
    EXPECT_NE(0, tty_details_from_device_file(0, nullptr, &details));
    EXPECT_NE(0, tty_details_from_device_file(0, "/dev/tty1", nullptr));
    errno = EINTR;
    tty_details_from_device_file(0, "/nonexistent", &details);
    EXPECT_EQ(EINTR, errno);
}

TEST(CheckLinetype, FillsCategoryAndDetails) {
    const struct {
        const char *mnemonic;
        uint32_t category;
        const char *detail;
        const char *detail2;
    } expected[] = {
        {"vty3", AAA_LINE_VTY, "vty", "vty3"},
        {"/dev/pts/3", AAA_LINE_VTY, "vty", "pts/3"},
        {"con0_RP0", AAA_LINE_CONSOLE, "console", "con0_RP0"},
        {"aux0", AAA_LINE_AUX, "aux", "aux0"},
        {"tty2", AAA_LINE_TTY2, "tty", "tty2"},
    };
    for (const auto &row : expected) {
        aaa_usercred_t cred{};
        std::string mnemonic = row.mnemonic;
        cred.tty_mnemonic = mnemonic.data();
        EXPECT_EQ(0u, aaa_util_check_linetype(&cred));
        EXPECT_EQ(row.category, cred.line_category) << row.mnemonic;
        EXPECT_STREQ(row.detail, cred.line_detail);
        EXPECT_STREQ(row.detail2, cred.line_detail2);
    }
}

// Category 0 is the console, which an unknown line must not pass for.
TEST(CheckLinetype, MarksAnUnknownLine) {
    aaa_usercred_t cred{};
    std::string mnemonic(100, 'z');
    cred.tty_mnemonic = mnemonic.data();
    EXPECT_EQ(kUnknownLine, aaa_util_check_linetype(&cred));
    EXPECT_EQ(0xffffffffu, cred.line_category);
    EXPECT_STREQ("unknown", cred.line_detail);
    EXPECT_EQ(std::string(31, 'z'), cred.line_detail2);
    EXPECT_EQ(0u, cred.authen_method);
    cred.tty_mnemonic = nullptr;
    EXPECT_EQ(kUnknownLine, aaa_util_check_linetype(&cred));
    EXPECT_STREQ("", cred.line_detail2);
    EXPECT_EQ(kInvalidArg, aaa_util_check_linetype(nullptr));
}

// ---- method lists by line ----------------------------------------------------------

namespace {

struct MethodForLine : testing::Test {
    TempDir dir;
    void SetUp() override { g_log->take(); }

    // "<code> <list or (null)>" for a login on a pseudo-terminal.
    static std::string lookup(uint32_t kind) {
        char unset[] = "unset";
        char *list = unset;
        const cerrno rc = find_method_for_line(kind, &list);
        std::string result = hex(rc) + " " + (list == nullptr ? "(null)" : list);
        if (list != unset) {
            free(list);
        }
        const char *const rules = getenv("AAA_LINES_CONF");
        if (rules != nullptr && is_open(rules)) {
            result += ", and the rules are still open";
        }
        return result;
    }
    static std::string on_terminal(const std::string &path, uint32_t kind) {
        TerminalProcess child([&] {
            setenv("AAA_LINES_CONF", path.c_str(), 1);
            return lookup(kind);
        });
        return child.report();
    }
    std::string with(const std::string &text, uint32_t kind = 0, mode_t mode = 0644) const {
        return on_terminal(dir.write("lines.conf", text, mode), kind);
    }
    [[nodiscard]] std::string log_of(int line, const std::string &what) const {
        return "%AAA-PLATFORM-4-BAD_FILE : " + dir.path("lines.conf") + ":" + std::to_string(line) + ": " +
               what + "; the line is not used";
    }
};

constexpr char kNone[] = "00000000 (null)";

}  // namespace

TEST_F(MethodForLine, TakesTheFirstRowThatMatches) {
    const char *text =
        "# comment\n"
        "\n"
        "console   *               console-users\n"
        "pts/*     authentication  vty-login # of people\n"
        "pts/*     *               vty-other\n"
        "*         *               rest\n";
    EXPECT_EQ("00000000 vty-login", with(text, 0));
    EXPECT_EQ("00000000 vty-other", with(text, 1));
    EXPECT_EQ("00000000 vty-other", with(text, 2));
}

TEST_F(MethodForLine, DistinguishesTheKinds) {
    const char *text = "pts/* authentication a\npts/* authorization b\npts/* accounting c\n";
    EXPECT_EQ("00000000 a", with(text, 0));
    EXPECT_EQ("00000000 b", with(text, 1));
    EXPECT_EQ("00000000 c", with(text, 2));
}

TEST_F(MethodForLine, MatchesTheDeviceNameToo) {
    EXPECT_EQ("00000000 a", with("/dev/pts/* * a\n"));
    EXPECT_EQ("00000000 b", with("/dev/tty* * a\n[p]ts/[0-9]* * b"));
}

TEST_F(MethodForLine, NamesNoListWithoutARow) {
    EXPECT_EQ(kNone, with("console * a\n"));
    EXPECT_EQ(kNone, with(""));
    EXPECT_EQ(kNone, on_terminal(dir.path("absent"), 0));
    EXPECT_EQ(kNone, on_terminal(dir.path("no/such/directory"), 0));
    EXPECT_TRUE(g_log->take().empty());
}

TEST_F(MethodForLine, NeedsAControllingTerminal) {
    const std::string path = dir.write("lines.conf", "* * a\n");
    TerminalProcess child(
        [&] {
            setenv("AAA_LINES_CONF", path.c_str(), 1);
            return lookup(0);
        },
        false);
    EXPECT_EQ(hex(kNoTerminal) + " (null)", child.report());
}

TEST_F(MethodForLine, SkipsAndReportsBadRows) {
    const std::string long_name(255, 'a');
    EXPECT_EQ("00000000 good", with("pts/*\n"
                                    "pts/* authentication\n"
                                    "pts/* authentcation a\n"
                                    "pts/* * a b\n"
                                    "pts/* * " +
                                    long_name +
                                    "\n"
                                    "pts/* * good\n"));
    const auto log = g_log->take();
    ASSERT_EQ(5u, log.size());
    const std::string words = "expected a line pattern, a kind and a method list";
    EXPECT_EQ(log_of(1, words), log[0]);
    EXPECT_EQ(log_of(2, words), log[1]);
    EXPECT_EQ(log_of(3, "the kind is none of authentication, authorization, accounting, *"), log[2]);
    EXPECT_EQ(log_of(4, words), log[3]);
    EXPECT_EQ(log_of(5, "the method list's name has more than 254 or unprintable characters"), log[4]);
}

TEST_F(MethodForLine, TakesTheLongestName) {
    const std::string name(254, 'a');
    EXPECT_EQ("00000000 " + name, with("* * " + name + "\n"));
    EXPECT_EQ(kNone, with("* * caf\xc3\xa9\n"));
}

TEST_F(MethodForLine, ReportsOnlyAFewBadRows) {
    std::string text;
    for (int i = 0; i < 100; ++i) {
        text += "bad\n";
    }
    EXPECT_EQ("00000000 good", with(text + "* * good\n"));
    EXPECT_EQ(5u, g_log->take().size());
}

// Whoever can write the file chooses how users are checked; and a file that
// cannot be used must not quietly turn into the default list.
TEST_F(MethodForLine, RefusesAFileThatOthersCanWrite) {
    for (const mode_t mode : {0664u, 0646u, 0666u}) {
        EXPECT_EQ(hex(kBadConfig) + " (null)", with("* * a\n", 0, mode)) << mode;
        EXPECT_EQ("%AAA-PLATFORM-3-BAD_FILE : " + dir.path("lines.conf") +
                      ": others than its owner (root or this user) may write it; correct owner and mode; the "
                      "file is "
                      "not used",
                  g_log->take_one());
    }
    if (geteuid() == 0) {
        const std::string path = dir.write("lines.conf", "* * a\n", 0644);
        ASSERT_EQ(0, chown(path.c_str(), 65534, 65534));
        EXPECT_EQ(hex(kBadConfig) + " (null)", on_terminal(path, 0));
        g_log->take();
    }
}

TEST_F(MethodForLine, RefusesWhatIsNoFile) {
    ASSERT_EQ(0, mkdir(dir.path("directory").c_str(), 0755));
    ASSERT_EQ(0, mkfifo(dir.path("fifo").c_str(), 0644));
    for (const char *name : {"directory", "fifo"}) {
        EXPECT_EQ(hex(kBadConfig) + " (null)", on_terminal(dir.path(name), 0)) << name;
        EXPECT_EQ("%AAA-PLATFORM-3-BAD_FILE : " + dir.path(name) +
                      ": it is not a regular file; the file is not used",
                  g_log->take_one());
    }
    EXPECT_EQ(hex(kBadConfig) + " (null)", with(std::string(20000, '#')));
    EXPECT_EQ("%AAA-PLATFORM-3-BAD_FILE : " + dir.path("lines.conf") +
                  ": it is larger than 16 KiB; the file is not used",
              g_log->take_one());
}

TEST_F(MethodForLine, ReadsAFileOfTheLargestSize) {
    const std::string row = "\n* * a\n";
    EXPECT_EQ("00000000 a", with(std::string(16384 - row.size(), '#') + row));
}

TEST_F(MethodForLine, RefusesBadArguments) {
    char *list = nullptr;
    EXPECT_EQ(kInvalidArg, find_method_for_line(3, &list));
    EXPECT_EQ(kInvalidArg, find_method_for_line(0, nullptr));
}

// ---- the rows as tools see them

namespace {

struct Rules {
    std::string rows;      // "NUMBER:KIND:PATTERN:LIST:DEFECT;" each
    std::string decision;  // list of the first that applies
    uint32_t kind = 0;
    std::string line;

    static int32_t visit(const aaa_platform_line_rule_t *rule, void *context) {
        auto *self = static_cast<Rules *>(context);
        const auto text = [](const char *part) { return std::string(part != nullptr ? part : "-"); };
        self->rows += std::to_string(rule->number) + ":" + std::to_string(rule->kind) + ":" +
                      text(rule->pattern) + ":" + text(rule->list_name) + ":" +
                      (rule->defect != nullptr ? "defect" : "") + ";";
        if (self->decision.empty() &&
            aaa_platform_line_rule_applies(rule, self->kind, self->line.c_str()) != 0) {
            self->decision = rule->list_name;
        }
        return 0;
    }
};

}  // namespace

// Whoever explains the choice of a list must not say otherwise than who chooses.
TEST_F(MethodForLine, TheRowsDecideAsTheLookupDoes) {
    const std::string text =
        "console * a\nwrong\npts/* sometimes b\n\npts/* authorization c\n/dev/pts/* authentication d\n* * "
        "e\n";
    const ScopedEnv env("AAA_LINES_CONF", dir.write("lines.conf", text, 0644));
    EXPECT_EQ(dir.path("lines.conf"), aaa_platform_line_rules_path());
    for (uint32_t kind = 0; kind < 3; ++kind) {
        TerminalProcess child([&] { return lookup(kind); });
        for (const std::string &prefix : {std::string(), std::string("/dev/")}) {
            Rules rules;
            rules.kind = kind;
            rules.line = prefix + child.line();
            EXPECT_EQ(0u, aaa_platform_line_rules(Rules::visit, &rules));
            EXPECT_EQ(
                "1:3:console:a:;2:3:wrong:-:defect;3:3:pts/*:b:defect;5:1:pts/*:c:;6:0:/dev/pts/"
                "*:d:;7:3:*:e:;",
                rules.rows);
            EXPECT_EQ(std::string(kind == 0 ? "d" : kind == 1 ? "c" : "e"), rules.decision);
            if (prefix.empty()) {
                EXPECT_EQ("00000000 " + rules.decision, child.report());
            }
        }
    }
    g_log->take();
}

TEST_F(MethodForLine, TheRowsOfAnUnusableFileAreNotShown) {
    Rules rules;
    {
        const ScopedEnv env("AAA_LINES_CONF", dir.path("absent"));
        EXPECT_EQ(0u, aaa_platform_line_rules(Rules::visit, &rules));
    }
    const ScopedEnv env("AAA_LINES_CONF", dir.write("lines.conf", "* * a\n", 0666));
    EXPECT_EQ(kBadConfig, aaa_platform_line_rules(Rules::visit, &rules));
    EXPECT_EQ("", rules.rows);
    EXPECT_EQ(0xa2580200u, aaa_platform_line_rules(nullptr, nullptr));
    aaa_platform_line_rule_t rule{1, 3, "*", "a", nullptr};
    EXPECT_EQ(1, aaa_platform_line_rule_applies(&rule, 2, "any"));
    EXPECT_EQ(0, aaa_platform_line_rule_applies(&rule, 3, "any"));
    EXPECT_EQ(0, aaa_platform_line_rule_applies(&rule, 0, std::string(64, 'x').c_str()));
    EXPECT_EQ(0, aaa_platform_line_rule_applies(&rule, 0, nullptr));
    EXPECT_EQ(0, aaa_platform_line_rule_applies(nullptr, 0, "any"));
    rule.defect = "wrong";
    EXPECT_EQ(0, aaa_platform_line_rule_applies(&rule, 0, "any"));
    g_log->take();
}

// ---- remote address ----------------------------------------------------------------

namespace {

utmp entry_of(const std::string &line, pid_t pid, const char *address = nullptr, const char *host = "",
              short type = USER_PROCESS) {
    utmp entry{};
    entry.ut_type = type;
    entry.ut_pid = pid;
    std::memcpy(entry.ut_line, line.data(), std::min(line.size(), sizeof entry.ut_line));
    std::memcpy(entry.ut_host, host, std::min(std::strlen(host), sizeof entry.ut_host));
    if (address != nullptr && inet_pton(AF_INET, address, entry.ut_addr_v6) != 1) {
        EXPECT_EQ(1, inet_pton(AF_INET6, address, entry.ut_addr_v6));
    }
    return entry;
}

struct RemoteAddress : testing::Test {
    TempDir dir;

    static std::string find(uint32_t size = 46) {
        char buffer[64];
        std::memset(buffer, 'x', sizeof buffer);
        const cerrno rc = aaa_util_find_line_remote_addr(buffer, size);
        EXPECT_EQ('x', buffer[size]);
        return rc == 0 ? buffer : rc == kNoAddress && *buffer == '\0' ? "none" : hex(rc);
    }

    using Entries = std::function<std::vector<utmp>(const std::string &line)>;

    // Address of a login whose record file and environment are given.
    std::string on_terminal(const Entries &entries, const std::vector<std::string> &settings = {}) const {
        const std::string path = dir.path("utmp");
        TerminalProcess child([&] {
            const std::vector<utmp> rows = entries(own_device().substr(std::strlen("/dev/")));
            std::ofstream(path, std::ios::binary)
                .write(reinterpret_cast<const char *>(rows.data()),
                       static_cast<std::streamsize>(rows.size() * sizeof(utmp)));
            setenv("AAA_UTMP", path.c_str(), 1);
            unsetenv("SSH_CONNECTION");
            unsetenv("SSH_CLIENT");
            for (const std::string &setting : settings) {
                putenv(strdup(setting.c_str()));
            }
            return find();
        });
        return child.report();
    }
};

const pid_t kAlive = getpid();

}  // namespace

TEST_F(RemoteAddress, ComesFromTheLoginRecord) {
    EXPECT_EQ(
        "192.0.2.7", on_terminal([](const std::string &line) {
            return std::vector{entry_of("tty1", kAlive, "198.51.100.1"), entry_of(line, kAlive, "192.0.2.7")};
        }));
    EXPECT_EQ("2001:db8::7", on_terminal([](const std::string &line) {
                  return std::vector{entry_of(line, kAlive, "2001:db8::7")};
              }));
}

TEST_F(RemoteAddress, IsWrittenAsIPv4WhenItWasMapped) {
    EXPECT_EQ("192.0.2.7", on_terminal([](const std::string &line) {
                  return std::vector{entry_of(line, kAlive, "::ffff:192.0.2.7")};
              }));
}

TEST_F(RemoteAddress, ComesFromTheHostFieldWhenThatIsNumeric) {
    EXPECT_EQ("192.0.2.9", on_terminal([](const std::string &line) {
                  return std::vector{entry_of(line, kAlive, nullptr, "192.0.2.9")};
              }));
    EXPECT_EQ("fe80::1", on_terminal([](const std::string &line) {
                  return std::vector{entry_of(line, kAlive, nullptr, "fe80::1%eth0")};
              }));
    EXPECT_EQ("none", on_terminal([](const std::string &line) {
                  return std::vector{entry_of(line, kAlive, nullptr, "host.example.net")};
              }));
}

TEST_F(RemoteAddress, TakesTheLastRecordOfTheLine) {
    EXPECT_EQ(
        "192.0.2.2", on_terminal([](const std::string &line) {
            return std::vector{entry_of(line, kAlive, "192.0.2.1"), entry_of(line, kAlive, "192.0.2.2")};
        }));
}

TEST_F(RemoteAddress, IgnoresRecordsOfEndedLogins) {
    EXPECT_EQ("none", on_terminal([](const std::string &line) {
                  return std::vector{entry_of(line, kAlive, "192.0.2.1", "", DEAD_PROCESS),
                                     entry_of(line, 0x3fffffff, "192.0.2.2"),
                                     entry_of(line + "0", kAlive, "192.0.2.3")};
              }));
}

TEST_F(RemoteAddress, SurvivesACutRecordFile) {
    const std::string path = dir.write("cut", std::string(100, '\xff'));
    TerminalProcess child([&] {
        setenv("AAA_UTMP", path.c_str(), 1);
        unsetenv("SSH_CONNECTION");
        unsetenv("SSH_CLIENT");
        return find();
    });
    EXPECT_EQ("none", child.report());
}

TEST_F(RemoteAddress, ComesFromTheEnvironmentOtherwise) {
    const auto no_record = [](const std::string &) { return std::vector<utmp>{}; };
    EXPECT_EQ("203.0.113.5", on_terminal(no_record, {"SSH_CONNECTION=203.0.113.5 50000 192.0.2.1 22"}));
    EXPECT_EQ("203.0.113.6", on_terminal(no_record, {"SSH_CLIENT=203.0.113.6 50000 22"}));
    EXPECT_EQ("2001:db8::5", on_terminal(no_record, {"SSH_CONNECTION=2001:db8::5 50000 2001:db8::1 22"}));
    EXPECT_EQ("fe80::5", on_terminal(no_record, {"SSH_CONNECTION=fe80::5%eth0 50000 fe80::1%eth0 22"}));
    EXPECT_EQ("203.0.113.6",
              on_terminal(no_record, {"SSH_CONNECTION=junk 1 2 3", "SSH_CLIENT=203.0.113.6 1 2"}));
    EXPECT_EQ("none", on_terminal(no_record));
}

TEST_F(RemoteAddress, PrefersTheLoginRecordToTheUsersEnvironment) {
    EXPECT_EQ(
        "192.0.2.7",
        on_terminal([](const std::string &line) { return std::vector{entry_of(line, kAlive, "192.0.2.7")}; },
                    {"SSH_CONNECTION=203.0.113.5 50000 192.0.2.1 22"}));
}

TEST_F(RemoteAddress, TakesOnlyNumericAddresses) {
    const auto no_record = [](const std::string &) { return std::vector<utmp>{}; };
    for (const char *value :
         {"", " 203.0.113.5", "203.0.113", "203.0.113.5x 1 2 3", "localhost 1 2 3", "1;2 3",
          "::ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff 1 2 3", "%eth0 1 2 3"}) {
        EXPECT_EQ("none", on_terminal(no_record, {std::string("SSH_CONNECTION=") + value})) << value;
    }
    EXPECT_EQ("none", on_terminal(no_record, {"SSH_CONNECTION=" + std::string(5000, '1')}));
}

TEST_F(RemoteAddress, WorksWithoutATerminal) {
    TerminalProcess child(
        [] {
            setenv("SSH_CONNECTION", "203.0.113.5 50000 192.0.2.1 22", 1);
            return find();
        },
        false);
    EXPECT_EQ("203.0.113.5", child.report());
}

TEST_F(RemoteAddress, KeepsToTheBuffer) {
    TerminalProcess child(
        [] {
            setenv("SSH_CONNECTION", "2001:db8:1111:2222:3333:4444:5555:6666 1 :: 2", 1);
            return find(38) + " " + find(39) + " " + find(1);
        },
        false);
    EXPECT_EQ("none 2001:db8:1111:2222:3333:4444:5555:6666 none", child.report());
    char c = 'x';
    EXPECT_EQ(kInvalidArg, aaa_util_find_line_remote_addr(nullptr, 46));
    EXPECT_EQ(kInvalidArg, aaa_util_find_line_remote_addr(&c, 0));
    EXPECT_EQ('x', c);
}

int main(int argc, char **argv) {
    return run_with_captured_log(argc, argv);
}
