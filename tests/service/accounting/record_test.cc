// SPDX-License-Identifier: Apache-2.0

#include "records/record.hpp"

#include <gtest/gtest.h>

#include "service/accounting/support.hpp"

namespace accounting {
namespace {

TEST(Record, HasThisForm) {
    Record record = sample("ab", Kind::kStop, {"g", "hh"}, "xyz");
    const std::string expected = std::string("\x02\x02\x02\x00", 4) + std::string("\x67\x12\x00\x00", 4) +
                                 std::string("\x63\0\0\0\0\0\0\0", 8) + std::string("\x01\x02\x03", 3) +
                                 std::string(13, '\0') + std::string("\x00\x00\x2a\x36\xfe\x9c\x97\x17", 8) +
                                 std::string("\x00\xf2\x05\x2a\x01\x00\x00\x00", 8) + "ab\x01g\x02hhxyz";
    EXPECT_EQ(body_of(record), expected);
    EXPECT_EQ(body_size(record), expected.size());
}

TEST(Record, IsReadAsItWasWritten) {
    const Record written =
        sample("session", Kind::kInterim, {"a", std::string(64, 'b')}, std::string(600, '\0'));
    Record read;
    read.sequence = 17;
    ASSERT_TRUE(decode_body(body_of(written), read));
    EXPECT_EQ(read.sequence, 17U);
    EXPECT_EQ(read.kind, written.kind);
    EXPECT_EQ(read.process, written.process);
    EXPECT_EQ(read.arrival.boot, written.arrival.boot);
    EXPECT_EQ(read.arrival.wall, written.arrival.wall);
    EXPECT_EQ(read.arrival.uptime, written.arrival.uptime);
    EXPECT_EQ(read.session, written.session);
    EXPECT_EQ(read.destinations, written.destinations);
    EXPECT_EQ(read.payload, written.payload);
}

TEST(Record, IsNotReadFromAPart) {
    const std::string body = body_of(sample("session", Kind::kStart, {"a", "bc"}, ""));
    Record read = sample("before");
    for (std::size_t size = 0; size < body.size(); ++size) {
        EXPECT_FALSE(decode_body(body.substr(0, size), read)) << size;
    }
    EXPECT_EQ(read.session, "before");
    EXPECT_TRUE(decode_body(body, read));
}

TEST(Record, IsNotReadWithAFalseField) {
    const std::string body = body_of(sample("session", Kind::kStart, {"a", "bc"}, ""));
    Record read;
    const auto with = [&](std::size_t at, char value) {
        std::string changed = body;
        changed[at] = value;
        return changed;
    };
    EXPECT_FALSE(decode_body(with(0, 0), read));  // kind
    EXPECT_FALSE(decode_body(with(0, 5), read));
    EXPECT_FALSE(decode_body(with(1, 0), read));  // no destination
    EXPECT_FALSE(decode_body(with(1, 3), read));  // one that is not there
    EXPECT_FALSE(decode_body(with(1, '\xff'), read));
    EXPECT_FALSE(decode_body(with(2, 0), read));                   // no session
    EXPECT_FALSE(decode_body(with(3, 4), read));                   // a session of 1031 bytes
    EXPECT_FALSE(decode_body(with(kBodyHead + 7, 0), read));       // a destination without a name
    EXPECT_FALSE(decode_body(with(kBodyHead + 7, '\x41'), read));  // with a name of 65 bytes
    EXPECT_FALSE(decode_body(with(kBodyHead + 8, '\n'), read));
}

TEST(Record, OfTheLargestSizeIsKept) {
    std::vector<std::string> destinations;
    for (std::size_t i = 0; i < kMaxDestinations; ++i) {
        destinations.push_back(std::string(kMaxDestinationName - 1, 'd') + static_cast<char>('a' + i));
    }
    Record record =
        sample(std::string(kMaxSession, 's'), Kind::kStart, destinations, std::string(kMaxPayload, 'p'));
    EXPECT_EQ(fault_of(record), "");
    EXPECT_EQ(body_size(record), kMaxBody);
    Record read;
    EXPECT_TRUE(decode_body(body_of(record), read));
    EXPECT_TRUE(same(record, read));
}

TEST(Record, FaultsAreNamed) {
    const auto fault = [](auto change) {
        Record record = sample();
        change(record);
        return fault_of(record);
    };
    EXPECT_NE(fault([](Record &r) { r.kind = Kind{9}; }), "");
    EXPECT_NE(fault([](Record &r) { r.session.clear(); }), "");
    EXPECT_EQ(fault([](Record &r) {
                  r.session.clear();
                  r.kind = Kind::kEvent;
              }),
              "");
    EXPECT_NE(fault([](Record &r) { r.session.assign(kMaxSession + 1, 's'); }), "");
    EXPECT_NE(fault([](Record &r) { r.payload.assign(kMaxPayload + 1, 's'); }), "");
    EXPECT_NE(fault([](Record &r) { r.destinations.clear(); }), "");
    EXPECT_NE(fault([](Record &r) { r.destinations.assign(kMaxDestinations + 1, "x"); }), "");
    EXPECT_NE(fault([](Record &r) { r.destinations = {""}; }), "");
    EXPECT_NE(fault([](Record &r) { r.destinations = {std::string(kMaxDestinationName + 1, 'd')}; }), "");
    EXPECT_NE(fault([](Record &r) { r.destinations = {"a\nb"}; }), "");
    EXPECT_NE(fault([](Record &r) { r.destinations = {"a", "b", "a"}; }), "");
}

}  // namespace
}  // namespace accounting
