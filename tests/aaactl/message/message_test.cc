// SPDX-License-Identifier: Apache-2.0
//
// Messages to text and JSON and back: encode restores what decode shows, for every
// well-formed message.

#include "message/message.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <random>

#include "aaa/checked.h"
#include "aaa/messages.h"
#include "aaa/names.h"
#include "aaa/result_codes.h"
#include "message/hex_input.hpp"
#include "message/message_json.hpp"
#include "message/message_text.hpp"

namespace {

using namespace aaactl;

std::string contents(const std::filesystem::path &file) {
    std::ifstream in(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

// Decoded, described, encoded: the same bytes, in both forms.
void expect_round_trip(const std::string &bytes, const std::string &kind) {
    const Message message = read_message(bytes, kind);
    ASSERT_FALSE(message.fault) << message.fault->what << " at " << message.fault->offset;
    EXPECT_EQ(hex(write_message(message)), hex(bytes));
    const std::string text = to_text(message, true);
    Message again = from_text(text);
    EXPECT_EQ(hex(write_message(again)), hex(bytes)) << text;
    EXPECT_EQ(to_text(again, true), text);
    const Json document = to_json(message, true);
    again = from_json(Json::parse(document.dump()));
    EXPECT_EQ(hex(write_message(again)), hex(bytes)) << document.dump(2);
    EXPECT_EQ(to_json(again, true), document);
}

cerrno library_verdict(const std::string &bytes) {
    avlist *list = nullptr;
    EXPECT_EQ(aaa_avpair_create_list(nullptr, &list), AAA_OK);
    const cerrno rc = aaa_avpair_unpack_msg_checked(list, bytes.data(), bytes.size());
    aaa_avpair_free_list(list);
    return rc;
}

// ---- Generated lists --------------------------------------------------------------

class Lists {
  public:
    explicit Lists(unsigned seed) : random_(seed) {}

    // A well-formed packed list in which every permitted oddity occurs sometimes.
    std::string next() {
        const unsigned pairs = below(12);
        std::string body;
        for (unsigned i = 0; i < pairs; ++i) {
            const bool deleted = i + 1 < pairs && below(5) == 0;
            append_pair(body, deleted ? AAA_ATTR_MAX : type());
        }
        std::string head = be32(static_cast<uint32_t>(56 + body.size()));
        head += byte();
        head += byte();
        const unsigned count = pairs == 0 ? 0 : 1 + below(65535);
        head += static_cast<char>(count >> 8);
        head += static_cast<char>(count & 0xff);
        head += below(4) == 0 ? bytes(16) : std::string(16, '\0');
        head += name() + (below(4) == 0 ? byte() : '\0');
        return head + body + (below(8) == 0 ? bytes(1 + below(9)) : "");
    }

  private:
    unsigned below(unsigned limit) { return std::uniform_int_distribution<unsigned>(0, limit - 1)(random_); }
    char byte() { return static_cast<char>(below(256)); }
    std::string bytes(size_t n) {
        std::string result(n, '\0');
        std::generate(result.begin(), result.end(), [&] { return byte(); });
        return result;
    }
    static std::string be32(uint32_t value) {
        return {static_cast<char>(value >> 24), static_cast<char>(value >> 16 & 0xff),
                static_cast<char>(value >> 8 & 0xff), static_cast<char>(value & 0xff)};
    }
    uint32_t type() {
        const uint32_t chosen[] = {0,   3,    17,   23,          257,         258,        264,
                                   809, 2069, 2071, 0xffffffffu, below(2070), below(2070)};
        return chosen[below(std::size(chosen))];
    }
    std::string name() {
        std::string text = below(3) == 0 ? bytes(below(31)) : "list " + std::to_string(below(1000));
        if (below(4) == 0) {
            text = text.substr(0, 10) + '\0' + bytes(8);
        }
        text.resize(31, '\0');
        text.back() = '\0';
        return text;
    }
    std::string value() {
        switch (below(6)) {
            case 0:
                return "";
            case 1:
                return bytes(4);
            case 2:
                return "text \\ \"quoted\" # 'x'\n\xc3\xbc";
            case 3:
                return std::string("alice\0", 6);
            case 4:
                return bytes(8);
            default:
                return bytes(below(40));
        }
    }
    void append_pair(std::string &body, uint32_t type) {
        const std::string bytes_of_value = value();
        body += be32(type) + be32(below(3) == 0 ? below(1u << 31) : 0) +
                be32(static_cast<uint32_t>(bytes_of_value.size())) +
                be32(below(2) == 0 ? below(1u << 31) : 0);
        body += bytes_of_value;
        const size_t pad = (4 - body.size() % 4) % 4;
        body += below(3) == 0 ? bytes(pad) : std::string(pad, '\0');
    }

    std::mt19937 random_;
};

TEST(Message, GeneratedListsSurviveTheRoundTrip) {
    Lists lists(20240229);
    for (int i = 0; i < 1500 && !HasFailure(); ++i) {
        const std::string bytes = lists.next();
        ASSERT_EQ(library_verdict(bytes), AAA_OK);
        expect_round_trip(bytes, "list");
    }
}

// Seeds of other fuzzers are programs, not lists; one that happens to be a list is tested.
TEST(Message, SeedsSurviveTheRoundTripOrAreRefusedAsTheLibraryDoes) {
    int well_formed = 0;
    for (const auto &entry : std::filesystem::recursive_directory_iterator(AAA_SOURCE_DIR "/fuzz/corpus")) {
        if (!entry.is_regular_file()) {
            continue;
        }
        SCOPED_TRACE(entry.path());
        const std::string bytes = contents(entry.path());
        const Message message = read_message(bytes, "list");
        const cerrno expected = library_verdict(bytes);
        EXPECT_EQ(message.fault ? message.fault->rc : cerrno{AAA_OK}, expected);
        if (expected == AAA_OK) {
            ++well_formed;
            expect_round_trip(bytes, "list");
        }
    }
    EXPECT_GE(well_formed, 14);
}

// Every byte of the example changed to every value that may matter: the reader and
// the library agree on what is well-formed, and a well-formed message survives.
TEST(Message, AgreesWithTheLibraryOnChangedBytes) {
    Lists lists(7);
    int refused = 0;
    for (int i = 0; i < 40; ++i) {
        std::string bytes = lists.next();
        for (size_t at = 0; at < bytes.size(); ++at) {
            const char was = bytes[at];
            for (const char changed : {'\0', '\1', '\4', '\x7f', '\xff'}) {
                bytes[at] = changed;
                const Message message = read_message(bytes, "list");
                const cerrno expected = library_verdict(bytes);
                ASSERT_EQ(message.fault ? message.fault->rc : cerrno{AAA_OK}, expected)
                    << hex(bytes) << " at " << at;
                refused += expected != AAA_OK ? 1 : 0;
            }
            bytes[at] = was;
        }
    }
    EXPECT_GT(refused, 100);
}

}  // namespace
