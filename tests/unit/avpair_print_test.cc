// SPDX-License-Identifier: Apache-2.0
//
// Lists as text, and dumps of bytes. How one pair is rendered is tested with
// the dictionary; here the text around it is.

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <fstream>
#include <limits>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "aaa/avpair.h"
#include "aaa/dictionary.h"
#include "aaa/result_codes.h"
#include "support/assertion_report.hpp"
#include "support/avlist_model.hpp"
#include "testkit/fake_platform.hpp"

namespace {

using namespace aaatest;
using namespace std::string_literals;
using Lines = std::vector<std::string>;

void add(avlist *list, uint32_t type, std::string_view value, uint32_t flags = 0) {
    ASSERT_EQ(aaa_avpair_add(type, flags, value.data(), 0, static_cast<uint32_t>(value.size()), list),
              AAA_OK);
}

std::string le32(uint32_t v) {
    return {reinterpret_cast<const char *>(&v), sizeof v};
}

// ---- Text vectors -----------------------------------------------------------------------

// A text in quotes at the head of a line, which is taken off the line.
std::string quoted_text(std::istream &line) {
    std::string text;
    char c = 0;
    line >> std::ws;
    EXPECT_EQ(line.get(), '"');
    while (line.get(c) && c != '"') {
        if (c != '\\') {
            text += c;
            continue;
        }
        line.get(c);
        if (c == 'x') {
            const std::string digits{static_cast<char>(line.get()), static_cast<char>(line.get())};
            text += static_cast<char>(std::stoul(digits, nullptr, 16));
        } else {
            text += c == 'n' ? '\n' : c == '0' ? '\0' : c;
        }
    }
    EXPECT_EQ(c, '"');
    return text;
}

bool next_is_quoted(std::istream &line) {
    line >> std::ws;
    return line.peek() == '"';
}

uint32_t number(std::istream &line) {
    std::string word;
    line >> word;
    return static_cast<uint32_t>(std::stoul(word, nullptr, 0));
}

class Case {
  public:
    // Takes one line of the file; true when it was the last of a case.
    bool take(const std::string &text) {
        std::istringstream line(text);
        std::string keyword;
        line >> keyword;
        if (keyword == "case") {
            std::getline(line >> std::ws, title);
        } else if (keyword == "list") {
            begin(line);
        } else if (keyword == "pair") {
            const uint32_t type = number(line);
            const uint32_t flags = number(line);
            add(list_.get(), type, next_is_quoted(line) ? quoted_text(line) : le32(number(line)), flags);
        } else if (keyword == "delete") {
            EXPECT_EQ(aaa_avpair_delete_by_type_instance(number(line), 0, list_.get(), nullptr), AAA_OK);
        } else if (keyword == "text") {
            expected = quoted_text(line);
            return true;
        } else {
            ADD_FAILURE() << "not understood: " << text;
        }
        return false;
    }

    // What the library writes; that it stays in the room is checked too.
    [[nodiscard]] std::string print() const {
        constexpr std::size_t kAfter = 64;
        std::vector<char> room(size_ + kAfter, '\xee');
        EXPECT_EQ(
            aaa_util_print_avlist(room.data(), size_, prefix_ ? prefix_->c_str() : nullptr, list_.get()),
            room.data());
        EXPECT_EQ(std::string(room.begin() + size_, room.end()), std::string(kAfter, '\xee'));
        EXPECT_LT(strnlen(room.data(), size_), size_);
        return room.data();
    }

    std::string title;
    std::string expected;

  private:
    void begin(std::istream &line) {
        list_ = make_list(quoted_text(line).c_str());
        if (next_is_quoted(line)) {
            prefix_ = quoted_text(line);
        } else {
            prefix_.reset();
            line.ignore(2);
        }
        size_ = number(line);
    }

    ListPtr list_;
    std::optional<std::string> prefix_;
    uint32_t size_ = 0;
};

TEST(AvpairPrint, WritesTheTextVectors) {
    std::ifstream file(AAA_SOURCE_DIR "/tests/vectors/avlist_print.txt");
    Case current;
    int cases = 0;
    for (std::string line; std::getline(file, line);) {
        if (!line.empty() && line[0] != '#' && current.take(line)) {
            EXPECT_EQ(current.print(), current.expected) << current.title;
            cases++;
        }
    }
    EXPECT_EQ(cases, 14);
}

// ---- aaa_util_print_avlist --------------------------------------------------------------

TEST(AvpairPrint, LeavesTheRoomAloneWithoutAListOrRoom) {
    const ListPtr list = make_list("n");
    char room[4] = "abc";
    EXPECT_EQ(aaa_util_print_avlist(nullptr, 4, "p", list.get()), nullptr);
    EXPECT_EQ(aaa_util_print_avlist(room, 4, "p", nullptr), room);
    EXPECT_EQ(aaa_util_print_avlist(room, 0, "p", list.get()), room);
    EXPECT_STREQ(room, "abc");
}

TEST(AvpairPrint, StaysInsideAnyRoom) {
    const ListPtr list = make_list("login");
    for (int i = 0; i < 4; i++) {
        add(list.get(), AAA_USERNAME_ATTR, "alice\0"s);
        add(list.get(), AAA_PRIV_LVL_ATTR, le32(15));
    }
    char whole[2000];
    const std::string text = aaa_util_print_avlist(whole, sizeof whole, "p", list.get());
    for (uint32_t size = 1; size <= text.size() + 2; size++) {
        std::vector<char> room(size, '\xee');  // the sanitizer watches its end
        aaa_util_print_avlist(room.data(), size, "p", list.get());
        const std::size_t written = strnlen(room.data(), size);
        ASSERT_LT(written, size);
        ASSERT_EQ(std::string(room.data(), written), text.substr(0, size - 1)) << size;
    }
}

TEST(AvpairPrint, TakesARoomOfAnySize) {
    const ListPtr list = make_list("login");
    add(list.get(), AAA_PRIV_LVL_ATTR, le32(15));
    char room[200];
    aaa_util_print_avlist(room, std::numeric_limits<uint32_t>::max(), "p", list.get());
    EXPECT_STREQ(room, "[p] avpair list 'login' count 1\n\n    AAA_PRIV_LVL_ATTR (10/4) * 15\n");
}

// The count of an unpacked list has the byte order of the message. Kept.
TEST(AvpairPrint, ShowsTheCountAsItIsStored) {
    const ListPtr list = make_list("n");
    add(list.get(), AAA_PRIV_LVL_ATTR, le32(1));
    list->av_cnt = 256;
    char room[200];
    aaa_util_print_avlist(room, sizeof room, nullptr, list.get());
    EXPECT_STREQ(room, "[] avpair list 'n' count 256\n\n    AAA_PRIV_LVL_ATTR (10/4) * 1\n");
}

// ---- Printing line by line --------------------------------------------------------------

std::vector<std::pair<uint32_t, std::string>> printed;

int note(uint32_t flag, const char *line) {
    printed.emplace_back(flag, line);
    return -1;  // ignored
}

class LinePrinter : public testing::Test {
  protected:
    void SetUp() override { printed.clear(); }
};

using AvpairPrintList = LinePrinter;
using DumpPacket = LinePrinter;
using Printed = std::vector<std::pair<uint32_t, std::string>>;

TEST_F(AvpairPrintList, HandsOutTheNameAndEveryPair) {
    const ListPtr list = make_list("login");
    add(list.get(), AAA_USERNAME_ATTR, "alice\0"s);
    add(list.get(), AAA_CMD_ATTR, "gone");
    add(list.get(), AAA_PASSWORD_ATTR, "secret\0"s, 8);
    ASSERT_EQ(aaa_avpair_delete_by_type_instance(AAA_CMD_ATTR, 0, list.get(), nullptr), AAA_OK);
    aaa_avpair_print_list(list.get(), 77, note);
    EXPECT_EQ(printed, (Printed{{77, "login"},
                                {77, "    AAA_USERNAME_ATTR (257/6) * alice (length 6)\n"},
                                {77, "    AAA_PASSWORD_ATTR (258/7) [out] * *\n"}}));
}

TEST_F(AvpairPrintList, HandsOutTheNameOfAnEmptyList) {
    aaa_avpair_print_list(make_list().get(), 8, note);
    EXPECT_EQ(printed, (Printed{{8, ""}}));
}

TEST_F(AvpairPrintList, CutsATextAt1023Characters) {
    const ListPtr list = make_list();
    add(list.get(), AAA_CMD_ATTR, std::string(3000, 'c'));
    aaa_avpair_print_list(list.get(), 8, note);
    ASSERT_EQ(printed.size(), 2u);
    const std::string start = "    AAA_CMD_ATTR (36/3000) * ";
    EXPECT_EQ(printed[1].second, start + std::string(1023 - start.size(), 'c'));
}

TEST_F(AvpairPrintList, PrintsNothingWithoutAListOrPrinter) {
    aaa_avpair_print_list(nullptr, 8, note);
    aaa_avpair_print_list(make_list("n").get(), 8, nullptr);
    EXPECT_TRUE(printed.empty());
}

// ---- dump_buffer ------------------------------------------------------------------------

const unsigned char *bytes(const char *text) {
    return reinterpret_cast<const unsigned char *>(text);
}

Lines dump(const char *name, const unsigned char *buf, int len, int ascii = 0, uint32_t flag = 3) {
    fake::enable_tracing(flag);
    fake::clear_journal();
    dump_buffer(flag, name, buf, len, ascii);
    EXPECT_EQ(fake::traces_of(flag).size(), fake::traces().size());
    return fake::traces_of(flag);
}

TEST(DumpBuffer, BreaksLinesAfterNineBytes) {
    EXPECT_EQ(dump("ten", bytes("0123456789"), 10),
              (Lines{"Dumping buffer for ten .....", " 30 31 32 33 34 35 36 37 38", " 39"}));
    EXPECT_EQ(dump("eight", bytes("01234567"), 8),
              (Lines{"Dumping buffer for eight .....", " 30 31 32 33 34 35 36 37"}));
}

// Any number is a flag, also 32 and above, for which a word of flags has no bit.
TEST(DumpBuffer, LooksAtItsFlagOnly) {
    constexpr std::array kFlags{0u, 1u, 7u, 8u, 15u, 16u, 24u, 31u, 32u, 33u, 40u, 63u};
    for (const uint32_t on : kFlags) {
        fake::disable_all_tracing();
        fake::enable_tracing(on);
        for (const uint32_t flag : kFlags) {
            fake::clear_journal();
            dump_buffer(flag, "b", bytes("x"), 1, 0);
            EXPECT_EQ(fake::traces_of(flag).size(), flag == on ? 2u : 0u) << flag << " while " << on;
        }
    }
    fake::disable_all_tracing();
}

// A full last line is followed by an empty one. Kept.
TEST(DumpBuffer, EndsAMultipleOfNineWithAnEmptyLine) {
    EXPECT_EQ(dump("nine", bytes("012345678"), 9),
              (Lines{"Dumping buffer for nine .....", " 30 31 32 33 34 35 36 37 38", ""}));
    EXPECT_EQ(dump("18", bytes("012345678012345678"), 18).size(), 4u);
}

TEST(DumpBuffer, ShowsBytesWithoutLeadingZeros) {
    EXPECT_EQ(dump("b", bytes("\x00\x01\x0f\x10\xab\xff"), 6)[1], " 0 1 F 10 AB FF");
}

TEST(DumpBuffer, ShowsPrintableBytesAsCharactersWhenAsked) {
    EXPECT_EQ(dump("b", bytes("Az ~\x1f\x7f\x80\xe9\n"), 9, 1)[1], " A z   ~ 1F 7F 80 E9 A");
    EXPECT_EQ(dump("b", bytes("A"), 1, -1)[1], " A");
    EXPECT_EQ(dump("b", bytes("A"), 1, 0)[1], " 41");
}

TEST(DumpBuffer, ShowsEveryByteValue) {
    std::string all;
    std::string hex;
    for (int i = 0; i < 256; i++) {
        all += static_cast<char>(i);
        char text[8];
        std::snprintf(text, sizeof text, " %X", static_cast<unsigned>(i));
        hex += text;
    }
    Lines lines = dump("all", bytes(all.data()), 256);
    lines.erase(lines.begin());
    std::string joined;
    for (const std::string &line : lines) {
        joined += line;
    }
    EXPECT_EQ(joined, hex);
}

TEST(DumpBuffer, TracesAnEmptyLineWithoutBytes) {
    EXPECT_EQ(dump("none", bytes("x"), 0), (Lines{"Dumping buffer for none .....", ""}));
    EXPECT_EQ(dump("none", bytes("x"), -5), (Lines{"Dumping buffer for none .....", ""}));
    EXPECT_EQ(dump("none", nullptr, 100), (Lines{"Dumping buffer for none .....", ""}));
}

TEST(DumpBuffer, TakesNoName) {
    EXPECT_EQ(dump(nullptr, bytes("A"), 1)[0], "Dumping buffer for (null) .....");
}

TEST(DumpBuffer, GoesByTheFlag) {
    fake::enable_tracing(4);
    dump_buffer(5, "off", bytes("A"), 1, 0);
    EXPECT_TRUE(fake::traces().empty());
    dump_buffer(4, "on", bytes("A"), 1, 0);
    EXPECT_EQ(fake::traces_of(4), (Lines{"Dumping buffer for on .....", " 41"}));
}

// ---- dump_iovs --------------------------------------------------------------------------

TEST(DumpIovs, NumbersTheElements) {
    fake::enable_tracing(10);
    char first[] = "AB";
    char second[] = "C";
    const iov_t iov[] = {{first, 2}, {second, 1}, {nullptr, 9}};
    dump_iovs("message", iov, 3);
    EXPECT_EQ(fake::traces_of(10), (Lines{"Dumping buffer for message (IOV 0) .....", " 41 42",
                                          "Dumping buffer for message (IOV 1) .....", " 43",
                                          "Dumping buffer for message (IOV 2) .....", ""}));
}

TEST(DumpIovs, CutsTheLabelAt127Characters) {
    fake::enable_tracing(10);
    char byte[] = "A";
    const iov_t iov[] = {{byte, 1}};
    const std::string heading = "Dumping buffer for ";
    dump_iovs(std::string(119, 'n').c_str(), iov, 1);
    EXPECT_EQ(fake::traces_of(10)[0], heading + std::string(119, 'n') + " (IOV 0) .....");
    fake::clear_journal();
    dump_iovs(std::string(120, 'n').c_str(), iov, 1);
    EXPECT_EQ(fake::traces_of(10)[0], heading + std::string(120, 'n') + " (IOV 0" + " .....");
    fake::clear_journal();
    dump_iovs(std::string(500, 'n').c_str(), iov, 1);
    EXPECT_EQ(fake::traces_of(10)[0], heading + std::string(127, 'n') + " .....");
}

TEST(DumpIovs, ShowsNothingWithoutElementsOrFlag) {
    char byte[] = "A";
    const iov_t iov[] = {{byte, 1}};
    dump_iovs("off", iov, 1);
    EXPECT_TRUE(fake::traces().empty());
    fake::enable_tracing(10);
    dump_iovs("none", iov, 0);
    dump_iovs("none", iov, -1);
    dump_iovs("none", nullptr, 1);
    EXPECT_TRUE(fake::traces().empty());
    dump_iovs(nullptr, iov, 1);
    EXPECT_EQ(fake::traces_of(10)[0], "Dumping buffer for (null) (IOV 0) .....");
}

// ---- aaa_dump_pkt_buffer ----------------------------------------------------------------

TEST_F(DumpPacket, NeverShowsTheBytesAfterTheLastFullLine) {
    aaa_dump_pkt_buffer("packet", 5, bytes("0123456789"), 10, note);
    EXPECT_EQ(printed, (Printed{{5, "packet"}, {5, "   30 31 32 33 34 35 36 37 38"}}));
    printed.clear();
    aaa_dump_pkt_buffer("packet", 5, bytes("01234567"), 8, note);
    EXPECT_EQ(printed, (Printed{{5, "packet"}}));
    printed.clear();
    aaa_dump_pkt_buffer("packet", 5,
                        bytes("\x00\x01\x0f\x10\xab\xff"
                              "abcdefghijklmn"),
                        20, note);
    EXPECT_EQ(
        printed,
        (Printed{{5, "packet"}, {5, "   00 01 0F 10 AB FF 61 62 63"}, {5, "   64 65 66 67 68 69 6A 6B 6C"}}));
}

TEST_F(DumpPacket, DoesNotAskTheFlag) {
    aaa_dump_pkt_buffer("packet", 9, bytes("012345678"), 9, note);
    EXPECT_EQ(printed.size(), 2u);
    EXPECT_EQ(fake::count("aaa_debugging"), 0u);
    EXPECT_TRUE(fake::traces().empty());
}

TEST_F(DumpPacket, TakesNoBytesNoLabelAndNoPrinter) {
    aaa_dump_pkt_buffer("packet", 5, nullptr, 100, note);
    aaa_dump_pkt_buffer("packet", 5, bytes("A"), 0, note);
    aaa_dump_pkt_buffer("packet", 5, bytes("A"), -9, note);
    aaa_dump_pkt_buffer(nullptr, 5, bytes("A"), 1, note);
    aaa_dump_pkt_buffer("packet", 5, bytes("A"), 1, nullptr);
    EXPECT_EQ(printed, (Printed{{5, "packet"}, {5, "packet"}, {5, "packet"}, {5, "(null)"}}));
}

// ---- Broken invariants ------------------------------------------------------------------

TEST(AvpairPrintDeathTest, StopsOnACountThatContradictsTheBuffers) {
    avlist broken{};
    broken.av_cnt = 1;
    char room[100];
    EXPECT_ASSERTION(aaa_util_print_avlist(room, sizeof room, "p", &broken), kAvpairHeader,
                     "list->avpair_first_buf != NULL");
    EXPECT_ASSERTION(aaa_avpair_print_list(&broken, 8, note), kAvpairHeader,
                     "list->avpair_first_buf != NULL");
}

}  // namespace
