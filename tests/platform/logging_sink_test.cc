// SPDX-License-Identifier: Apache-2.0
//
// Where messages go: standard error, syslog, the journal, or nowhere. A process
// chooses once, so each test runs a process of its own.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "child_process.hpp"
#include "journal_fields.hpp"
#include "log_socket.hpp"
#include "message_record.hpp"
#include "platform/control.h"
#include "platform/logging.h"

namespace {

const ChildBodies kBodies = {
    {"error",
     [] {
         const kel_msg_rec_t record = make_record("%s: %s", "DEBUG_ERROR", 3);
         kel_errmsg(&record, 3, "line one", "and more");
     }},
    {"debug",
     [] {
         const kel_msg_rec_t record = make_record("%s", "ERR_SYSDB", 7);
         kel_errmsg(&record, 7, "quiet");
     }},
    {"fields",
     [] {
         kel_msg_limit_t limit = {3600, {}};
         kel_msg_rec_t record = make_record("not used", "ANSWER", 5);
         record.limit = &limit;
         const aaa_platform_log_field_t fields[] = {{"AAA_USER", "ann\nMESSAGE=forged\x1b"},
                                                    {"AAA_STEP", nullptr},
                                                    {"_PID", "1"},
                                                    {"aaa_id", "1"},
                                                    {"A=B", "1"},
                                                    {"", "1"},
                                                    {nullptr, "1"},
                                                    {"AAA_ID_2", ""}};
         for (int i = 0; i < 3; ++i) {
             aaa_platform_log(&record, 5, fields, 8, "100 %s\nof it");
         }
         aaa_platform_log(nullptr, 5, fields, 8, "no record");
         record.limit = nullptr;
         aaa_platform_log(&record, 5, nullptr, 8, nullptr);
     }},
    {"journal-stream",
     [] {
         struct stat st {};
         fstat(STDERR_FILENO, &st);
         const std::string stream = std::to_string(st.st_dev) + ":" + std::to_string(st.st_ino);
         setenv("JOURNAL_STREAM", stream.c_str(), 1);
         const kel_msg_rec_t record = make_record("%s", "DEBUG_ERROR", 3);
         kel_errmsg(&record, 3, "to the journal");
     }},
};

const std::string kLine = "%AAA-SECURITY-3-DEBUG_ERROR : line one: and more\n";

}  // namespace

TEST(Sink, StandardErrorOnRequest) {
    const ChildResult child = run_child("error", {"AAA_LOG=stderr"});
    EXPECT_EQ(kLine, child.err);
    EXPECT_EQ("", child.out);
}

TEST(Sink, NoneOnRequest) {
    EXPECT_EQ("", run_child("error", {"AAA_LOG=none"}).err);
}

TEST(Sink, JournalGetsFields) {
    LogSocket journal;
    const ChildResult child = run_child("error", {"AAA_LOG=journal", "AAA_JOURNAL_SOCKET=" + journal.path()});
    EXPECT_EQ("", child.err);
    const auto all = journal.take();
    ASSERT_EQ(1u, all.size());
    const JournalFields fields = journal_fields(all[0]);
    ASSERT_EQ(7u, fields.size()) << all[0];
    const auto expect = [&fields](size_t i, const std::string &name, const std::string &value) {
        EXPECT_EQ((JournalFields::value_type{name, value}), fields[i]);
    };
    expect(0, "PRIORITY", "3");
    expect(1, "SYSLOG_FACILITY", "10");
    expect(2, "SYSLOG_IDENTIFIER", "child");
    EXPECT_EQ("SYSLOG_PID", fields[3].first);
    expect(4, "AAA_MNEMONIC", "DEBUG_ERROR");
    expect(5, "AAA_MSG_ID", "0x048d0001");
    expect(6, "MESSAGE", kLine.substr(0, kLine.size() - 1));
}

TEST(Sink, JournalGetsTheFieldsOfALineAndOthersOnlyItsText) {
    LogSocket journal;
    run_child("fields", {"AAA_LOG=journal", "AAA_JOURNAL_SOCKET=" + journal.path()});
    const auto all = journal.take();
    ASSERT_EQ(3u, all.size()) << "one line passes the limit";
    const JournalFields fields = journal_fields(all[0]);
    ASSERT_EQ(9u, fields.size()) << all[0];
    const auto expect = [&fields](size_t i, const std::string &name, const std::string &value) {
        EXPECT_EQ((JournalFields::value_type{name, value}), fields[i]);
    };
    expect(6, "MESSAGE", "%AAA-SECURITY-5-ANSWER : 100 %s\\nof it");
    expect(7, "AAA_USER", "ann\nMESSAGE=forged\x1b");
    expect(8, "AAA_ID_2", "");
    EXPECT_NE(std::string::npos, all[1].find("logged without its catalog record"));
    EXPECT_NE(std::string::npos, all[2].find("(no text)"));
    const std::string text = run_child("fields", {"AAA_LOG=stderr"}).err;
    EXPECT_EQ(0u, text.find("%AAA-SECURITY-5-ANSWER : 100 %s\\nof it\n")) << text;
    EXPECT_EQ(std::string::npos, text.find("forged"));
}

TEST(Sink, JournalWhenStandardErrorIsItsStream) {
    LogSocket journal;
    LogSocket syslog;
    const std::vector<std::string> sockets = {"AAA_LOG=", "AAA_JOURNAL_SOCKET=" + journal.path(),
                                              "AAA_SYSLOG_SOCKET=" + syslog.path()};
    run_child("journal-stream", sockets);
    EXPECT_EQ(1u, journal.take().size());
    EXPECT_TRUE(syslog.take().empty());
}

TEST(Sink, SyslogWhenTheJournalStreamIsAnother) {
    LogSocket journal;
    LogSocket syslog;
    run_child("error", {"AAA_LOG=", "AAA_JOURNAL_SOCKET=" + journal.path(),
                        "AAA_SYSLOG_SOCKET=" + syslog.path(), "JOURNAL_STREAM=1:1"});
    EXPECT_TRUE(journal.take().empty());
    EXPECT_EQ(1u, syslog.take().size());
}

TEST(Sink, FallsBackFromJournalToSyslogToStandardError) {
    LogSocket syslog;
    EXPECT_EQ("", run_child("error", {"AAA_LOG=journal", "AAA_JOURNAL_SOCKET=/nonexistent/socket",
                                      "AAA_SYSLOG_SOCKET=" + syslog.path()})
                      .err);
    EXPECT_EQ(1u, syslog.take().size());
    const std::vector<std::string> nowhere = {"AAA_LOG=journal", "AAA_JOURNAL_SOCKET=/nonexistent/socket",
                                              "AAA_SYSLOG_SOCKET=/nonexistent/socket"};
    EXPECT_EQ(kLine, run_child("error", nowhere).err);
    EXPECT_EQ("", run_child("debug", nowhere).err) << "a program's terminal is spared debug messages";
}

TEST(Sink, ReportsASettingThatItDoesNotKnow) {
    LogSocket syslog;
    run_child("error", {"AAA_LOG=paper", "AAA_SYSLOG_SOCKET=" + syslog.path()});
    const auto all = syslog.take_texts();
    ASSERT_EQ(2u, all.size());
    EXPECT_EQ(
        "%AAA-PLATFORM-4-BAD_SETTING : AAA_LOG is \"paper\", not stderr, syslog, journal or none; "
        "using the default log",
        all[0]);
    EXPECT_EQ(kLine, all[1] + "\n");
}

int main(int argc, char **argv) {
    if (run_child_body(kBodies)) {
        return 0;
    }
    unsetenv("JOURNAL_STREAM");
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
