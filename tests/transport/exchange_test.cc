// SPDX-License-Identifier: Apache-2.0
//
// Sending and receiving: what goes over the socket, peers that do not answer,
// do not read, send wrong lengths or disconnect, and signals during a call.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sched.h>
#include <signal.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "aaa/aaautil.h"
#include "aaa/transport.h"
#include "support/transport.hpp"

namespace {

using transport_test::accept_from;
using transport_test::connect_to;
using transport_test::descriptor;
using transport_test::kShort;
using transport_test::listen_at;
using transport_test::make_transport;
using transport_test::send_raw;
using transport_test::SocketTest;
using transport_test::Transport;

// Both ends of a connection.
class Exchange : public SocketTest {
  protected:
    void SetUp() override {
        client_ = connect_to(path_);
        server_ = accept_from(listener_);
    }

    cerrno send(const std::string &bytes, int64_t deadline = AAA_TRANSPORT_NOW) {
        std::string writable = bytes;
        const iov_t element = {writable.data(), writable.size()};
        return aaa_transport_send(client_.get(), &element, 1, deadline);
    }
    cerrno receive(const Transport &from, int64_t deadline = AAA_TRANSPORT_NOW) {
        return aaa_transport_receive(from.get(), message_.get(), deadline);
    }
    std::string received() const {
        return {reinterpret_cast<const char *>(message_->u.bytes), message_->len};
    }
    uint32_t word(size_t offset) const {
        uint32_t value = 0;
        std::memcpy(&value, message_->u.bytes + offset, sizeof value);
        return value;
    }
    int error(const Transport &of) const { return aaa_transport_errno(of.get()); }

    Transport listener_ = listen_at(path_);
    Transport client_;
    Transport server_;
    std::unique_ptr<aaa_transport_msg_t> message_ = std::make_unique<aaa_transport_msg_t>();
};

std::string header_and(const std::string &rest) {
    return std::string(AAA_TRANSPORT_FIELDS, 'h') + rest;
}

// A session packet with a list that holds a text of the given length.
struct Packet {
    explicit Packet(size_t length) {
        avlist *list = nullptr;
        EXPECT_EQ(aaa_avpair_create_list("packet", &list), AAA_OK);
        const std::string text(length, 't');
        EXPECT_EQ(aaa_util_avpair_add_attr(list, AAA_REPLYMSG_ATTR, text.c_str(),
                                           static_cast<uint32_t>(length) + 1, 0),
                  AAA_OK);
        EXPECT_EQ(aaa_session_fill_request(&record, list, AAA_REQ_AUTHEN, 1, 2), AAA_OK);
    }
    aaa_sess_request_t record{};
};

// ---- what goes over the socket ----------------------------------------------------------

TEST_F(Exchange, AClassicMessageIsItsElementsUnderTheTransportsFields) {
    unsigned char header[40];
    std::fill(std::begin(header), std::end(header), 0xEE);
    char body[] = "body", tail[] = "tail";
    const iov_t elements[] = {{header, sizeof header}, {body, 4}, {nullptr, 0}, {tail, 4}};
    for (uint32_t number = 1; number <= 3; number++) {
        ASSERT_EQ(aaa_transport_send(client_.get(), elements, 4, AAA_TRANSPORT_NOW), AAA_OK);
        ASSERT_EQ(receive(server_), AAA_OK);
        EXPECT_EQ(message_->len, 48u);
        const uint32_t fields[] = {AAA_TRANSPORT_MAGIC, 48, number, static_cast<uint32_t>(getpid()), 0};
        for (size_t i = 0; i < std::size(fields); i++) {
            EXPECT_EQ(word(i * 4), fields[i]) << i;
        }
        EXPECT_EQ(received().substr(20), std::string(20, '\xEE') + "bodytail");
    }
    EXPECT_EQ(std::count(std::begin(header), std::end(header), 0xEE), 40)
        << "the caller's record was written";
}

TEST_F(Exchange, EachConnectionCountsItsMessagesFromOne) {
    ASSERT_EQ(send(header_and("")), AAA_OK);
    ASSERT_EQ(send(header_and("")), AAA_OK);
    ASSERT_EQ(aaa_transport_connect(client_.get(), path_.c_str(), AAA_TRANSPORT_ANY_USER, AAA_TRANSPORT_NOW),
              AAA_OK);
    const Transport again = accept_from(listener_);
    ASSERT_EQ(send(header_and("")), AAA_OK);
    ASSERT_EQ(receive(again), AAA_OK);
    EXPECT_EQ(word(8), 1u);
}

TEST_F(Exchange, APacketIsFollowedByItsListAndTellsNoAddress) {
    Packet packet(10);
    ASSERT_NE(packet.record.hdr.list, 0u);
    ASSERT_EQ(
        aaa_transport_send_packet(client_.get(), &packet.record, sizeof packet.record, AAA_TRANSPORT_NOW),
        AAA_OK);
    EXPECT_EQ(packet.record.hdr.list, 0u) << "a second call would free the list again";
    ASSERT_EQ(receive(server_), AAA_OK);
    EXPECT_EQ(aaa_transport_kind_of(message_.get()), AAA_TRANSPORT_SESSION);
    const std::string field = received().substr(offsetof(aaa_sess_hdr_t, list), sizeof(uint64_t));
    EXPECT_EQ(field, std::string(8, '\0'));
    aaa_transport_head_t head;
    ASSERT_EQ(aaa_transport_read_request(message_.get(), &head), AAA_OK);
    EXPECT_EQ(head.list_at, sizeof packet.record);
    avlist *list = nullptr;
    ASSERT_EQ(aaa_transport_unpack(message_.get(), head.list_at, &list), AAA_OK);
    uint32_t len = 0;
    char text[16];
    EXPECT_EQ(aaa_util_avlist_value_copy(list, AAA_REPLYMSG_ATTR, 0, text, sizeof text, &len), AAA_OK);
    EXPECT_STREQ(text, "tttttttttt");
    aaa_avpair_free_list(list);
}

TEST_F(Exchange, APacketWithoutAListGoesAlone) {
    aaa_sess_request_t packet{};
    ASSERT_EQ(aaa_session_fill_request(&packet, nullptr, AAA_REQ_PING, 0, 0), AAA_OK);
    ASSERT_EQ(aaa_transport_send_packet(client_.get(), &packet, sizeof packet, AAA_TRANSPORT_NOW), AAA_OK);
    ASSERT_EQ(receive(server_), AAA_OK);
    EXPECT_EQ(message_->len, sizeof packet);
}

TEST_F(Exchange, WhatCannotBeAMessageIsRefused) {
    char bytes[64] = "";
    const iov_t good = {bytes, sizeof bytes}, brief = {bytes, AAA_TRANSPORT_FIELDS - 1}, none = {nullptr, 64};
    const std::vector<iov_t> many(AAA_TRANSPORT_MAX_ELEMENTS + 1, good);
    aaa_transport_t *const client = client_.get();
    EXPECT_EQ(aaa_transport_send(nullptr, &good, 1, 0), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(aaa_transport_send(client, nullptr, 1, 0), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(aaa_transport_send(client, &good, 0, 0), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(aaa_transport_send(client, &brief, 1, 0), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(aaa_transport_send(client, &none, 1, 0), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(aaa_transport_send(client, many.data(), AAA_TRANSPORT_MAX_ELEMENTS + 1, 0),
              AAA_ERR_INVALID_ARG);
    EXPECT_EQ(aaa_transport_ask(client, &good, 1, nullptr, 0), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(aaa_transport_receive(nullptr, message_.get(), 0), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(aaa_transport_receive(client, nullptr, 0), AAA_ERR_INVALID_ARG);
    Packet packet(1);
    EXPECT_EQ(aaa_transport_send_packet(nullptr, &packet.record, sizeof packet.record, 0),
              AAA_ERR_INVALID_ARG);
    EXPECT_EQ(aaa_transport_send_packet(client, nullptr, sizeof packet.record, 0), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(aaa_transport_send_packet(client, &packet.record, sizeof(aaa_sess_hdr_t) - 1, 0),
              AAA_ERR_INVALID_ARG);
    EXPECT_EQ(aaa_transport_ask_packet(client, &packet.record, sizeof packet.record, nullptr, 0),
              AAA_ERR_INVALID_ARG);
    ASSERT_NE(packet.record.hdr.list, 0u) << "the packet keeps its list";
    EXPECT_EQ(aaa_transport_send(client, many.data(), AAA_TRANSPORT_MAX_ELEMENTS, 0), AAA_OK);
    EXPECT_EQ(aaa_transport_send_packet(client, &packet.record, sizeof packet.record, 0), AAA_OK);
    ASSERT_EQ(receive(server_), AAA_OK);
    EXPECT_EQ(message_->len, 64u * AAA_TRANSPORT_MAX_ELEMENTS) << "a refused message was sent";
}

TEST_F(Exchange, AHandleWithoutAConnectionSaysSo) {
    const Transport idle = make_transport();
    char bytes[64] = "";
    const iov_t element = {bytes, sizeof bytes};
    Packet packet(1);
    EXPECT_EQ(aaa_transport_send(idle.get(), &element, 1, 0), AAA_ERR_NOT_CONNECTED);
    EXPECT_EQ(error(idle), ENOTCONN);
    EXPECT_EQ(receive(idle), AAA_ERR_NOT_CONNECTED);
    EXPECT_EQ(aaa_transport_send_packet(idle.get(), &packet.record, sizeof packet.record, 0),
              AAA_ERR_NOT_CONNECTED);
    EXPECT_EQ(packet.record.hdr.list, 0u) << "the list is freed on failure too";
}

// ---- sizes ----------------------------------------------------------------------------------

TEST_F(Exchange, TheLongestMessagePassesAndALongerOneIsNotSent) {
    const std::string longest = header_and(std::string(AAA_TRANSPORT_MAX - AAA_TRANSPORT_FIELDS, 'x'));
    ASSERT_EQ(send(longest), AAA_OK);
    ASSERT_EQ(receive(server_), AAA_OK);
    EXPECT_EQ(message_->len, AAA_TRANSPORT_MAX);
    EXPECT_EQ(aaa_transport_kind_of(message_.get()), AAA_TRANSPORT_CLASSIC);
    EXPECT_EQ(send(longest + "x"), AAA_ERR_INVALID_MSG_SIZE);
    EXPECT_EQ(error(client_), EMSGSIZE);
    char bytes[64] = "";
    const iov_t lie[] = {{bytes, sizeof bytes}, {bytes, UINT64_MAX}};
    EXPECT_EQ(aaa_transport_send(client_.get(), lie, 2, 0), AAA_ERR_INVALID_MSG_SIZE);
    EXPECT_EQ(receive(server_), AAA_ERR_TIMEOUT);
}

TEST_F(Exchange, AListThatDoesNotFitIsNotSent) {
    Packet packet(AAA_TRANSPORT_MAX - sizeof packet.record);
    EXPECT_EQ(
        aaa_transport_send_packet(client_.get(), &packet.record, sizeof packet.record, AAA_TRANSPORT_NOW),
        AAA_ERR_INVALID_MSG_SIZE);
    EXPECT_EQ(error(client_), EMSGSIZE);
    std::vector<unsigned char> huge(AAA_TRANSPORT_MAX + 1);
    EXPECT_EQ(aaa_transport_send_packet(client_.get(), huge.data(), huge.size(), AAA_TRANSPORT_NOW),
              AAA_ERR_INVALID_MSG_SIZE);
    EXPECT_EQ(receive(server_), AAA_ERR_TIMEOUT);
}

TEST_F(Exchange, ASocketWithLessRoomThanTheMessageSaysSo) {
    const int small = 1;
    ASSERT_EQ(setsockopt(descriptor(client_), SOL_SOCKET, SO_SNDBUF, &small, sizeof small), 0);
    EXPECT_EQ(send(header_and(std::string(60000, 'x')), AAA_TRANSPORT_NEVER), AAA_ERR_INVALID_MSG_SIZE);
    EXPECT_EQ(error(client_), EMSGSIZE);
    EXPECT_EQ(send(header_and("small enough")), AAA_OK);
}

TEST_F(Exchange, AMessageThatIsTooLongLeavesNoByteAndTheNextOneIsWhole) {
    const std::string secret(AAA_TRANSPORT_MAX + 1, 's');
    ASSERT_TRUE(send_raw(server_, secret));
    ASSERT_TRUE(send_raw(server_, "next"));
    EXPECT_EQ(receive(client_), AAA_ERR_INVALID_MSG_SIZE);
    EXPECT_EQ(error(client_), EMSGSIZE);
    EXPECT_EQ(message_->len, 0u);
    EXPECT_EQ(std::count(std::begin(message_->u.bytes), std::end(message_->u.bytes), 's'), 0);
    EXPECT_EQ(receive(client_), AAA_OK);
    EXPECT_EQ(received(), "next");
}

TEST_F(Exchange, RandomSizesArriveAsTheyWereSent) {
    std::mt19937 random(20261122);
    for (int round = 0; round < 500; round++) {
        const size_t size = 1 + random() % (AAA_TRANSPORT_MAX + 5000);
        std::string bytes(size, '\0');
        std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<char>(random()); });
        ASSERT_TRUE(send_raw(server_, bytes));
        const cerrno rc = receive(client_);
        EXPECT_EQ(rc, size <= AAA_TRANSPORT_MAX ? AAA_OK : AAA_ERR_INVALID_MSG_SIZE) << size;
        EXPECT_EQ(received(), rc == AAA_OK ? bytes : "");
    }
}

// ---- peers that do not answer, do not read, or disconnect ---------------------------------------

TEST_F(Exchange, APeerThatNeverAnswersIsGivenUp) {
    for (const int64_t deadline : {AAA_TRANSPORT_NOW, int64_t{1}, aaa_transport_deadline(kShort)}) {
        EXPECT_EQ(receive(client_, deadline), AAA_ERR_TIMEOUT);
        EXPECT_EQ(error(client_), ETIMEDOUT);
    }
    ASSERT_TRUE(send_raw(server_, "late"));
    EXPECT_EQ(receive(client_, AAA_TRANSPORT_NOW), AAA_OK)
        << "a waiting message is received after the deadline too";
    EXPECT_EQ(error(client_), 0);
}

TEST_F(Exchange, APeerThatNeverReadsIsGivenUp) {
    const std::string message = header_and(std::string(30000, 'x'));
    size_t sent = 0;
    while (send(message) == AAA_OK) {
        ASSERT_LT(++sent, 100000u) << "the socket never fills up";
    }
    EXPECT_GT(sent, 0u);
    EXPECT_EQ(send(message, aaa_transport_deadline(kShort)), AAA_ERR_TIMEOUT);
    EXPECT_EQ(error(client_), ETIMEDOUT);
    for (size_t i = 0; i < sent; i++) {
        ASSERT_EQ(receive(server_), AAA_OK);
        EXPECT_EQ(message_->len, message.size()) << "part of a message was sent";
    }
    EXPECT_EQ(receive(server_), AAA_ERR_TIMEOUT);
    EXPECT_EQ(send(message), AAA_OK) << "the socket has room again";
}

TEST_F(Exchange, ASlowPeerIsWaitedFor) {
    const std::string message = header_and(std::string(30000, 'x'));
    std::atomic<bool> full{false};
    std::thread reader([&] {
        const auto taken = std::make_unique<aaa_transport_msg_t>();
        while (!full) {
            std::this_thread::yield();
        }
        while (aaa_transport_receive(server_.get(), taken.get(), AAA_TRANSPORT_NEVER) == AAA_OK) {
        }
    });
    while (send(message) == AAA_OK) {
    }
    full = true;
    EXPECT_EQ(send(message, AAA_TRANSPORT_NEVER), AAA_OK);
    aaa_transport_close(client_.get());
    reader.join();
}

TEST_F(Exchange, AServerThatStopsBetweenConnectAndSend) {
    const Transport waiting = connect_to(path_);  // in the queue, not accepted
    listener_.reset();
    char bytes[64] = "";
    const iov_t element = {bytes, sizeof bytes};
    EXPECT_EQ(aaa_transport_ask(waiting.get(), &element, 1, message_.get(), AAA_TRANSPORT_NEVER),
              AAA_ERR_NOT_CONNECTED);
    EXPECT_TRUE(error(waiting) == EPIPE || error(waiting) == ECONNRESET) << error(waiting);
    server_.reset();
    EXPECT_EQ(send(header_and("")), AAA_ERR_NOT_CONNECTED);
    EXPECT_EQ(error(client_), EPIPE);
    EXPECT_EQ(receive(client_, AAA_TRANSPORT_NEVER), AAA_ERR_NOT_CONNECTED);
    EXPECT_EQ(error(client_), EPIPE);
}

// Without MSG_NOSIGNAL, sending on a broken connection would end a process whose SIGPIPE is the default.
TEST_F(Exchange, NoSignalIsRaisedAndNoDispositionChanged) {
    struct sigaction before {};
    ASSERT_EQ(sigaction(SIGPIPE, nullptr, &before), 0);
    signal(SIGPIPE, SIG_DFL);
    server_.reset();
    EXPECT_EQ(send(header_and("")), AAA_ERR_NOT_CONNECTED);
    Packet packet(1);
    EXPECT_EQ(
        aaa_transport_send_packet(client_.get(), &packet.record, sizeof packet.record, AAA_TRANSPORT_NOW),
        AAA_ERR_NOT_CONNECTED);
    struct sigaction after {};
    ASSERT_EQ(sigaction(SIGPIPE, &before, &after), 0);
    EXPECT_EQ(after.sa_handler, SIG_DFL);
    sigset_t blocked;
    ASSERT_EQ(pthread_sigmask(SIG_BLOCK, nullptr, &blocked), 0);
    EXPECT_EQ(sigismember(&blocked, SIGPIPE), 0);
}

// The server answered the first request and closed with the second unread. The system reports the
// broken connection before the answer.
TEST_F(Exchange, AnAnswerIsReceivedAlthoughTheConnectionBroke) {
    ASSERT_EQ(send(header_and("first")), AAA_OK);
    ASSERT_EQ(receive(server_), AAA_OK);
    ASSERT_EQ(send(header_and("second")), AAA_OK);
    ASSERT_TRUE(send_raw(server_, "answer"));
    server_.reset();
    EXPECT_EQ(receive(client_, AAA_TRANSPORT_NEVER), AAA_OK);
    EXPECT_EQ(received(), "answer");
    EXPECT_EQ(error(client_), 0);
    EXPECT_EQ(receive(client_, AAA_TRANSPORT_NEVER), AAA_ERR_NOT_CONNECTED);
}

TEST_F(Exchange, ABrokenConnectionWithoutAnAnswerSaysSo) {
    ASSERT_EQ(send(header_and("unread")), AAA_OK);
    server_.reset();
    EXPECT_EQ(receive(client_, AAA_TRANSPORT_NEVER), AAA_ERR_NOT_CONNECTED);
    EXPECT_EQ(error(client_), ECONNRESET);
}

TEST_F(Exchange, AnEmptyMessageCountsAsTheEnd) {
    ASSERT_TRUE(send_raw(server_, ""));
    EXPECT_EQ(receive(client_, AAA_TRANSPORT_NEVER), AAA_ERR_NOT_CONNECTED);
}

TEST_F(Exchange, AClosedDescriptorIsAnErrorNotAWait) {
    ASSERT_EQ(close(descriptor(client_)), 0);  // as by a program that closes all descriptors it did not open
    EXPECT_EQ(receive(client_, AAA_TRANSPORT_NEVER), AAA_ERR_RECEIVE_RESPONSE);
    EXPECT_EQ(error(client_), EBADF);
    EXPECT_EQ(send(header_and(""), AAA_TRANSPORT_NEVER), AAA_ERR_LWM_SEND);
    EXPECT_EQ(error(client_), EBADF);
}

size_t open_descriptors() {
    const std::filesystem::directory_iterator open_files("/proc/self/fd");
    return static_cast<size_t>(std::distance(begin(open_files), end(open_files)));
}

TEST_F(Exchange, AttachedDescriptorsAreNotTaken) {
    const size_t before = open_descriptors();
    alignas(cmsghdr) unsigned char control[CMSG_SPACE(sizeof(int))] = {};
    char byte = 'x';
    iovec element = {&byte, 1};
    msghdr header{};
    header.msg_iov = &element;
    header.msg_iovlen = 1;
    header.msg_control = control;
    header.msg_controllen = sizeof control;
    cmsghdr *const attached = CMSG_FIRSTHDR(&header);
    attached->cmsg_level = SOL_SOCKET;
    attached->cmsg_type = SCM_RIGHTS;
    attached->cmsg_len = CMSG_LEN(sizeof(int));
    const int file = descriptor(listener_);
    std::memcpy(CMSG_DATA(attached), &file, sizeof file);
    ASSERT_EQ(sendmsg(descriptor(server_), &header, 0), 1);
    EXPECT_EQ(receive(client_), AAA_OK);
    EXPECT_EQ(received(), "x");
    EXPECT_EQ(open_descriptors(), before);
}

// ---- requests and answers ----------------------------------------------------------------------

TEST_F(Exchange, ARequestGetsItsAnswer) {
    std::thread answering([&] {
        const auto request = std::make_unique<aaa_transport_msg_t>();
        for (int i = 0; i < 2; i++) {
            EXPECT_EQ(aaa_transport_receive(server_.get(), request.get(), AAA_TRANSPORT_NEVER), AAA_OK);
            EXPECT_TRUE(send_raw(server_, i == 0 ? "first" : "second"));
        }
    });
    char bytes[64] = "";
    const iov_t element = {bytes, sizeof bytes};
    EXPECT_EQ(aaa_transport_ask(client_.get(), &element, 1, message_.get(), AAA_TRANSPORT_NEVER), AAA_OK);
    EXPECT_EQ(received(), "first");
    Packet packet(5);
    EXPECT_EQ(aaa_transport_ask_packet(client_.get(), &packet.record, sizeof packet.record, message_.get(),
                                       AAA_TRANSPORT_NEVER),
              AAA_OK);
    EXPECT_EQ(received(), "second");
    answering.join();
}

// A server that does not know how long its client waits tries methods whose answers no one reads.
TEST_F(Exchange, ARequestSaysHowLongItsSenderWaits) {
    char bytes[64] = "";
    const iov_t element = {bytes, sizeof bytes};
    const auto patience = [&](int64_t deadline) {
        EXPECT_EQ(aaa_transport_ask(client_.get(), &element, 1, message_.get(), deadline), AAA_ERR_TIMEOUT);
        EXPECT_EQ(receive(server_), AAA_OK);
        client_ = connect_to(path_);
        server_ = accept_from(listener_);
        return aaa_transport_patience_of(message_.get());
    };
    EXPECT_EQ(patience(AAA_TRANSPORT_NOW), 1u) << "a deadline that has passed is not the lack of one";
    const uint32_t some = patience(aaa_transport_deadline(kShort));
    EXPECT_GE(some, 1u);
    EXPECT_LE(some, kShort);
    std::thread answering([&] {
        const auto request = std::make_unique<aaa_transport_msg_t>();
        for (int i = 0; i < 2; i++) {
            EXPECT_EQ(aaa_transport_receive(server_.get(), request.get(), AAA_TRANSPORT_NEVER), AAA_OK);
            const std::string said = std::to_string(aaa_transport_patience_of(request.get()));
            EXPECT_TRUE(send_raw(server_, said));
        }
    });
    EXPECT_EQ(aaa_transport_ask(client_.get(), &element, 1, message_.get(), AAA_TRANSPORT_NEVER), AAA_OK);
    EXPECT_EQ(received(), "0") << "no limit";
    const int64_t far = aaa_transport_deadline(0) + INT64_C(100) * 24 * 3600 * 1000000000;
    EXPECT_EQ(aaa_transport_ask(client_.get(), &element, 1, message_.get(), far), AAA_OK);
    EXPECT_EQ(received(), std::to_string(UINT32_MAX)) << "more milliseconds than the field holds";
    answering.join();
}

// A late answer would be taken for the answer to the next user's request.
TEST_F(Exchange, AConnectionWhoseAnswerDidNotComeIsClosed) {
    char bytes[64] = "";
    const iov_t element = {bytes, sizeof bytes};
    EXPECT_EQ(aaa_transport_ask(client_.get(), &element, 1, message_.get(), aaa_transport_deadline(kShort)),
              AAA_ERR_TIMEOUT);
    EXPECT_EQ(error(client_), ETIMEDOUT);
    EXPECT_EQ(descriptor(client_), -1);
    send_raw(server_, "PASS");
    EXPECT_EQ(aaa_transport_ask(client_.get(), &element, 1, message_.get(), AAA_TRANSPORT_NEVER),
              AAA_ERR_NOT_CONNECTED);
    client_ = connect_to(path_);
    Packet packet(5);
    EXPECT_EQ(aaa_transport_ask_packet(client_.get(), &packet.record, sizeof packet.record, message_.get(),
                                       AAA_TRANSPORT_NOW),
              AAA_ERR_TIMEOUT);
    EXPECT_EQ(descriptor(client_), -1);
}

TEST_F(Exchange, ARequestThatWasNotSentLeavesTheConnection) {
    const std::string message = header_and(std::string(AAA_TRANSPORT_MAX, 'x'));
    std::string writable = message;
    const iov_t element = {writable.data(), writable.size()};
    EXPECT_EQ(aaa_transport_ask(client_.get(), &element, 1, message_.get(), AAA_TRANSPORT_NEVER),
              AAA_ERR_INVALID_MSG_SIZE);
    EXPECT_GE(descriptor(client_), 0);
}

// ---- signals ------------------------------------------------------------------------------------

std::atomic<int> signals_handled{0};

void count_signal(int) {
    ++signals_handled;
}

constexpr int kYieldsBetweenSignals = 1000;

// Repeatedly interrupts the thread that created it, until it is stopped.
class Interruptions {
  public:
    Interruptions() {
        signals_handled = 0;
        struct sigaction action {};
        action.sa_handler = count_signal;  // without SA_RESTART: system calls end with EINTR
        EXPECT_EQ(sigaction(SIGUSR1, &action, &before_), 0);
        thread_ = std::thread([this, target = pthread_self()] {
            while (!stop_) {
                const int before = signals_handled;
                pthread_kill(target, SIGUSR1);
                // The thread sanitizer holds back a signal that arrives just before a
                // system call, until the call returns. Another signal interrupts the call.
                for (int i = 0; i < kYieldsBetweenSignals && !stop_ && signals_handled == before; ++i) {
                    sched_yield();
                }
            }
        });
    }
    ~Interruptions() {
        stop_ = true;
        thread_.join();
        sigaction(SIGUSR1, &before_, nullptr);
    }
    Interruptions(const Interruptions &) = delete;
    Interruptions &operator=(const Interruptions &) = delete;

    static void wait_for(int count) {
        while (signals_handled < count) {
            sched_yield();
        }
    }

  private:
    struct sigaction before_ {};
    std::atomic<bool> stop_{false};
    std::thread thread_;
};

constexpr int kMany = 50;

TEST_F(Exchange, SignalsNeitherEndNorExtendTheWaitForAnAnswer) {
    const Interruptions interruptions;
    EXPECT_EQ(receive(client_, aaa_transport_deadline(kShort)), AAA_ERR_TIMEOUT);
    std::thread late([&] {
        Interruptions::wait_for(signals_handled + kMany);
        EXPECT_TRUE(send_raw(server_, "answer"));
    });
    EXPECT_EQ(receive(client_, AAA_TRANSPORT_NEVER), AAA_OK);
    EXPECT_EQ(received(), "answer");
    late.join();
}

TEST_F(Exchange, SignalsNeitherEndNorExtendTheWaitForAServer) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    dir_.path("raw").copy(address.sun_path, sizeof address.sun_path - 1);
    const int raw = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    ASSERT_EQ(bind(raw, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
    ASSERT_EQ(listen(raw, 0), 0);
    const Transport first = connect_to(dir_.path("raw"));
    const Interruptions interruptions;
    EXPECT_EQ(aaa_transport_connect(client_.get(), address.sun_path, AAA_TRANSPORT_ANY_USER,
                                    aaa_transport_deadline(kShort)),
              AAA_ERR_TIMEOUT);
    int taken = -1;
    std::thread late([&] {
        Interruptions::wait_for(signals_handled + kMany);
        taken = accept4(raw, nullptr, nullptr, SOCK_CLOEXEC);
    });
    EXPECT_EQ(
        aaa_transport_connect(client_.get(), address.sun_path, AAA_TRANSPORT_ANY_USER, AAA_TRANSPORT_NEVER),
        AAA_OK);
    late.join();
    close(taken);
    close(raw);
}

TEST_F(Exchange, SignalsDoNotEndTheWaitForAClientOrForRoom) {
    const Interruptions interruptions;
    Transport newcomer;
    std::thread late([&] {
        Interruptions::wait_for(signals_handled + kMany);
        newcomer = connect_to(path_);
    });
    const Transport taken = accept_from(listener_);
    late.join();
    EXPECT_NE(taken, nullptr);

    const std::string message = header_and(std::string(30000, 'x'));
    while (send(message) == AAA_OK) {
    }
    std::thread reader([&] {
        const auto unread = std::make_unique<aaa_transport_msg_t>();
        Interruptions::wait_for(signals_handled + kMany);
        while (aaa_transport_receive(server_.get(), unread.get(), AAA_TRANSPORT_NOW) == AAA_OK) {
        }
    });
    EXPECT_EQ(send(message, AAA_TRANSPORT_NEVER), AAA_OK);
    reader.join();
}

}  // namespace
