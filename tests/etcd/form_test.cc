// SPDX-License-Identifier: Apache-2.0
//
// Messages between a provider and its agent, and who may send them.

#include "call/form.hpp"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include "call/peer.hpp"

namespace {

using namespace sysdb_etcd;

const Request kRequest{
    Ask::kChange, 0x123456789, {{1, 3, "/cfg/a", std::string("x\0y", 3)}, {2, 0, "/cfg/b", ""}}};

TEST(EtcdForm, RequestsAreReadAsTheyWereWritten) {
    const auto bytes = pack_request(kRequest);
    ASSERT_TRUE(bytes);
    EXPECT_EQ(bytes->size(), kLengthSize + unpack_length(bytes->data()));
    Request read;
    ASSERT_TRUE(unpack_request(std::string_view(*bytes).substr(kLengthSize), read));
    EXPECT_EQ(Ask::kChange, read.ask);
    EXPECT_EQ(0x123456789u, read.until_ms);
    EXPECT_EQ(kRequest.changes, read.changes);
}

TEST(EtcdForm, RequestHasTheseBytes) {
    const auto bytes = pack_request({Ask::kChange, 0x0102030405060708, {{1, 3, "p", "v"}}});
    EXPECT_EQ(std::string("\x20\0\0\0\x01\x01\x08\x07\x06\x05\x04\x03\x02\x01\x01\0\0\0\x01\0\0\0\x03\0\0\0"
                          "\x01\0\0\0p\x01\0\0\0v",
                          36),
              *bytes);
}

TEST(EtcdForm, AnswersAreReadAsTheyWereWritten) {
    const std::string bytes = pack_answer({0x8081ae00, 7, "text"});
    Answer answer;
    ASSERT_TRUE(unpack_answer(std::string_view(bytes).substr(kLengthSize), answer));
    EXPECT_EQ(0x8081ae00u, answer.code);
    EXPECT_EQ(7u, answer.failed);
    EXPECT_EQ("text", answer.text);
    EXPECT_FALSE(unpack_answer("1234567", answer));
}

TEST(EtcdForm, MalformedRequestsAreRefused) {
    const std::string whole = pack_request(kRequest)->substr(kLengthSize);
    for (std::size_t size = 0; size < whole.size(); ++size) {
        Request read;
        EXPECT_FALSE(unpack_request(whole.substr(0, size), read)) << size;
    }
    Request read;
    EXPECT_FALSE(unpack_request(whole + "x", read));
    // Each length field lied about.
    for (const std::size_t at : {10u, 22u, 32u}) {
        for (const char lie : {'\x00', '\x7f', '\xff'}) {
            for (std::size_t byte = 0; byte < 4; ++byte) {
                std::string bytes = whole;
                if (bytes[at + byte] != lie) {
                    bytes[at + byte] = lie;
                    Request again;
                    EXPECT_FALSE(unpack_request(bytes, again)) << at << '+' << byte;
                }
            }
        }
    }
    std::string bytes = whole;
    bytes[0] = 2;  // another version
    EXPECT_FALSE(unpack_request(bytes, read));
    bytes = whole;
    bytes[1] = 3;  // another question
    EXPECT_FALSE(unpack_request(bytes, read));
}

TEST(EtcdForm, RequestsThatAreTooLongAreNotMade) {
    Request request{Ask::kChange, 0, {}};
    for (int i = 0; i < 33; ++i) {
        request.changes.push_back({1, 3, "/cfg/a", std::string(std::size_t{1} << 20, 'x')});
    }
    EXPECT_FALSE(pack_request(request));
}

TEST(EtcdPeer, IsKnownByItsSocket) {
    int ends[2];
    ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM, 0, ends));
    Peer peer;
    ASSERT_TRUE(identify_peer(ends[0], peer));
    EXPECT_EQ(getpid(), peer.pid);
    EXPECT_EQ(geteuid(), peer.user);
    EXPECT_NE(peer.groups.end(), std::find(peer.groups.begin(), peer.groups.end(), getegid()));
    close(ends[0]);
    close(ends[1]);
    EXPECT_FALSE(identify_peer(-1, peer));
}

// As the kernel decides: the first class that fits, and no other.
TEST(EtcdPeer, MayWhatTheModeSays) {
    struct stat file = {};
    file.st_uid = 10;
    file.st_gid = 20;
    const Peer root{1, 0, {0}};
    const Peer owner{1, 10, {20}};
    const Peer member{1, 11, {30, 20}};
    const Peer other{1, 12, {30}};
    file.st_mode = S_IFREG | 0660;
    EXPECT_TRUE(may_write(root, file));
    EXPECT_TRUE(may_write(owner, file));
    EXPECT_TRUE(may_write(member, file));
    EXPECT_FALSE(may_write(other, file));
    file.st_mode = S_IFREG | 0446;
    EXPECT_FALSE(may_write(owner, file));
    EXPECT_FALSE(may_write(member, file));
    EXPECT_TRUE(may_write(other, file));
    file.st_mode = S_IFDIR | 0710;
    EXPECT_TRUE(may_enter(owner, file));
    EXPECT_TRUE(may_enter(member, file));
    EXPECT_FALSE(may_enter(other, file));
}

}  // namespace
