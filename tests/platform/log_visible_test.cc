// SPDX-License-Identifier: Apache-2.0
//
// Log lines cannot be forged. A real program logs under a name, with a record and with a
// text of an attacker's choice, to a log service that this test plays.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "aaa/result_codes.h"
#include "journal_fields.hpp"
#include "log_socket.hpp"
#include "platform/logging.h"
#include "support/temp_dir.hpp"

namespace {

constexpr char kForgedLine[] = "x\n<83>su[1]: root logged in";
constexpr char kForgedField[] = "x\nPRIORITY=0\nMESSAGE=forged";

// What the program logs; the environment carries it.
struct Words {
    std::string name = "login";
    std::string facility = "AAA";
    std::string mnemonic = "M";
    std::string text = "text";
};

int log_the_words() {
    const std::string facility = getenv("AAA_TEST_FACILITY");
    const std::string mnemonic = getenv("AAA_TEST_MNEMONIC");
    kel_msg_rec_t record{};
    record.format = "%s";
    record.facility = facility.c_str();
    record.category = facility.c_str();
    record.mnemonic = mnemonic.c_str();
    kel_errmsg(&record, 3, getenv("AAA_TEST_TEXT"));
    return 0;
}

void log_to(const std::string &sink, const std::string &socket, const std::string &error_output,
            const Words &words) {
    const pid_t pid = fork();
    if (pid == 0) {
        setenv("AAA_LOG", sink.c_str(), 1);
        setenv("AAA_SYSLOG_SOCKET", socket.c_str(), 1);
        setenv("AAA_JOURNAL_SOCKET", socket.c_str(), 1);
        setenv("AAA_TEST_FACILITY", words.facility.c_str(), 1);
        setenv("AAA_TEST_MNEMONIC", words.mnemonic.c_str(), 1);
        setenv("AAA_TEST_TEXT", words.text.c_str(), 1);
        dup2(open(error_output.c_str(), O_WRONLY | O_CREAT, 0600), STDERR_FILENO);
        execl("/proc/self/exe", words.name.c_str(), static_cast<char *>(nullptr));
        _exit(127);
    }
    int status = -1;
    waitpid(pid, &status, 0);
    EXPECT_EQ(0, status);
}

std::string syslog_line(const Words &words) {
    LogSocket log;
    log_to("syslog", log.path(), "/dev/null", words);
    const auto all = log.take();
    const std::string line = all.size() == 1 ? all[0] : std::to_string(all.size()) + " messages";
    // Without the process id.
    const size_t id = line.find('[');
    return line.substr(0, id + 1) + line.substr(std::min(line.size(), line.find("]: ")));
}

std::string text_in_syslog(const std::string &text) {
    Words words;
    words.text = text;
    const std::string line = syslog_line(words);
    const std::string prefix = "<83>login[]: %AAA-AAA-3-M : ";
    EXPECT_EQ(prefix, line.substr(0, prefix.size()));
    return line.substr(std::min(line.size(), prefix.size()));
}

JournalFields fields_of(const Words &words) {
    LogSocket log;
    log_to("journal", log.path(), "/dev/null", words);
    const auto all = log.take();
    EXPECT_EQ(1u, all.size());
    return all.empty() ? JournalFields{} : journal_fields(all[0]);
}

std::string error_output(const Words &words) {
    const TempDir dir;
    log_to("stderr", "", dir.path("err"), words);
    return dir.read("err");
}

}  // namespace

// ---- fields ----------------------------------------------------------------------

TEST(LogLine, OfAProgramWhoseNameHoldsLineFeeds) {
    Words words;
    words.name = kForgedLine;
    EXPECT_EQ("<83>x\\n<83>su\\x5b1\\x5d\\x3a\\x20root\\x20logged\\x20in[]: %AAA-AAA-3-M : text",
              syslog_line(words));
}

// The part before the colon is the name that a reader of the log believes.
TEST(LogLine, OfAProgramWhoseNameLooksLikeTheBeginningOfALine) {
    Words words;
    words.name = "sshd[1]: Accepted password";
    EXPECT_EQ("<83>sshd\\x5b1\\x5d\\x3a\\x20Accepted\\x20password[]: %AAA-AAA-3-M : text",
              syslog_line(words));
    words.name = "/usr/bin/../login";
    EXPECT_EQ("<83>login[]: %AAA-AAA-3-M : text", syslog_line(words));
    words.name = "";
    EXPECT_EQ("<83>-[]: %AAA-AAA-3-M : text", syslog_line(words));
}

TEST(LogLine, OfARecordWhoseWordsHoldLineFeeds) {
    Words words;
    words.facility = "A\nB\x9b";
    words.mnemonic = "M\x1b[2J";
    const std::string text = "%A\\nB\\x9b-A\\nB\\x9b-3-M\\x1b[2J : text";
    EXPECT_EQ("<83>login[]: " + text, syslog_line(words));
    EXPECT_EQ(text + "\n", error_output(words));
}

TEST(JournalFields, CannotBeAddedByAName) {
    Words words;
    words.name = kForgedField;
    words.mnemonic = kForgedField;
    words.text = kForgedField;
    const std::string escaped = "x\\nPRIORITY=0\\nMESSAGE=forged";
    const JournalFields fields = fields_of(words);
    ASSERT_EQ(6u, fields.size());
    EXPECT_EQ((JournalFields::value_type{"PRIORITY", "3"}), fields[0]);
    EXPECT_EQ((JournalFields::value_type{"SYSLOG_FACILITY", "10"}), fields[1]);
    EXPECT_EQ((JournalFields::value_type{"SYSLOG_IDENTIFIER", escaped}), fields[2]);
    EXPECT_EQ("SYSLOG_PID", fields[3].first);
    EXPECT_EQ((JournalFields::value_type{"AAA_MNEMONIC", escaped}), fields[4]);
    EXPECT_EQ((JournalFields::value_type{"MESSAGE", "%AAA-AAA-3-" + escaped + " : " + escaped}), fields[5]);
}

// ---- characters ------------------------------------------------------------------

TEST(LogText, ShowsControlCharacters) {
    EXPECT_EQ("a\\nb\\x0dc\\x1b[2Jd\\x7fe\tf", text_in_syslog("a\nb\rc\x1b[2Jd\x7f"
                                                              "e\tf"));
}

// A terminal takes U+009B for the beginning of a control sequence.
TEST(LogText, ShowsTheSecondSetOfControlCharacters) {
    for (unsigned c = 0x80; c <= 0x9f; ++c) {
        char escape[16];
        std::snprintf(escape, sizeof escape, "\\u{%x}", c);
        const std::string bytes = {'\xc2', static_cast<char>(c)};
        EXPECT_EQ("<" + std::string(escape) + ">", text_in_syslog("<" + bytes + ">"));
        std::snprintf(escape, sizeof escape, "\\x%02x", c);
        EXPECT_EQ("<" + std::string(escape) + ">", text_in_syslog("<" + bytes.substr(1) + ">"));
    }
}

TEST(LogText, ShowsSeparatorsOfLinesAndControlsOfTheDirection) {
    EXPECT_EQ("\\u{2028}\\u{2029}", text_in_syslog("\u2028\u2029"));
    EXPECT_EQ("\\u{61c}\\u{200e}\\u{200f}", text_in_syslog("\u061c\u200e\u200f"));
    EXPECT_EQ("\\u{202a}\\u{202b}\\u{202c}\\u{202d}\\u{202e}",
              text_in_syslog("\u202a\u202b\u202c\u202d\u202e"));
    EXPECT_EQ("\\u{2066}\\u{2067}\\u{2068}\\u{2069}", text_in_syslog("\u2066\u2067\u2068\u2069"));
}

TEST(LogText, ShowsInvisibleCharacters) {
    EXPECT_EQ("\\u{ad}\\u{180e}\\u{200b}\\u{2060}\\u{feff}\\u{fff9}\\u{fffb}\\u{e0041}",
              text_in_syslog("\u00ad\u180e\u200b\u2060\ufeff\ufff9\ufffb\U000e0041"));
}

TEST(LogText, ShowsBytesThatAreNoCharacters) {
    EXPECT_EQ("\\x80\\xff\\xc3", text_in_syslog("\x80\xff\xc3"));
    EXPECT_EQ("\\xc3(", text_in_syslog("\xc3("));
    EXPECT_EQ("\\xc0\\x8a \\xc1\\xbf", text_in_syslog("\xc0\x8a \xc1\xbf"));
    EXPECT_EQ("\\xe0\\x80\\x8a \\xf0\\x80\\x80\\x8a", text_in_syslog("\xe0\x80\x8a \xf0\x80\x80\x8a"));
    EXPECT_EQ("\\xed\\xa0\\x80", text_in_syslog("\xed\xa0\x80"));
    EXPECT_EQ("\\xf4\\x90\\x80\\x80 \\xf5", text_in_syslog("\xf4\x90\x80\x80 \xf5"));
    EXPECT_EQ("\\xe2\\x82", text_in_syslog("\xe2\x82"));
}

TEST(LogText, KeepsTheCharactersOfAllLanguages) {
    for (const char *text : {"caf\u00e9", "\u00a0\u00ff", "\u0416\u05d0\u0627\u0939\u4e2d\u3042\uac00",
                             "\u200a\u2010\u2027\u202f\u205f", "\U0001f511", "\U0010fffd"}) {
        EXPECT_EQ(text, text_in_syslog(text));
    }
}

TEST(LogText, IsCutBetweenCharacters) {
    std::string text(2040, 'a');
    for (int i = 0; i < 10; ++i) {
        text += "\u4e2d";
    }
    EXPECT_EQ(std::string(2040, 'a') + "\u4e2d...", text_in_syslog(text));
}

TEST(LogText, SaysThatItWasCutWhenItsEscapesDoNotFit) {
    const std::string line = text_in_syslog(std::string(2000, '\x9b'));
    EXPECT_EQ("\\x9b...", line.substr(line.size() - 7));
    EXPECT_EQ(std::string::npos, line.find("\\x9\\"));
}

int main(int argc, char **argv) {
    if (getenv("AAA_TEST_TEXT") != nullptr) {
        return log_the_words();
    }
    unsetenv("JOURNAL_STREAM");
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
