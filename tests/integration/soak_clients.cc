// SPDX-License-Identifier: Apache-2.0
#include "soak_clients.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <memory>
#include <utility>

#include "aaa/aaautil.h"
#include "aaa/transport.h"

extern "C" {
#include "attributes.h"
}

namespace soak {

namespace {

uint32_t below(Random &random, std::size_t count) {
    return static_cast<uint32_t>(random() % count);
}

template <typename T, std::size_t N>
const T &one_of(Random &random, const T (&choices)[N]) {
    return choices[below(random, N)];
}

// ---- Requests as bytes: several threads compose at a time, so nothing is shared -------

void append(Bytes &bytes, const void *from, std::size_t count) {
    const auto *const p = static_cast<const unsigned char *>(from);
    bytes.insert(bytes.end(), p, p + count);
}

void set_length(Bytes &message) {
    const uint32_t fields[2] = {AAA_TRANSPORT_MAGIC, static_cast<uint32_t>(message.size())};
    std::memcpy(message.data(), fields, sizeof fields);
}

// The outputs of a compose routine, and the message as the transport sends it.
struct Composed {
    aaa_sess_request_t record{};
    iov_t *iov = nullptr;
    uint32_t count = 0;
    char buffer[4096];

    Bytes elements() {
        Bytes bytes;
        for (uint32_t i = 0; i < count; ++i) {
            append(bytes, iov[i].base, iov[i].len);
        }
        std::free(iov);
        set_length(bytes);
        return bytes;
    }
    Bytes packet() {
        Bytes bytes;
        append(bytes, &record, sizeof record);
        auto *const list = reinterpret_cast<avlist *>(static_cast<uintptr_t>(record.hdr.list));
        if (list != nullptr) {
            uint32_t len = sizeof buffer;
            EXPECT_EQ(aaa_avpair_pack_msg_to_buf(list, buffer, &len), AAA_OK);
            aaa_avpair_free_list(list);
            append(bytes, buffer, len);
        }
        return bytes;
    }
};

struct Person {
    std::string name;
    std::string password;

    // Users and passwords as in the server's file.
    bool known() const { return name == "alice" || name == "bob"; }
    bool password_is_right() const {
        return (name == "alice" && password == "wonderland") ||
               (name == "bob" && password == "looking-glass");
    }
    uint32_t level() const { return name == "alice" ? 15 : 1; }
    bool may(const std::string &command) const {
        return name == "alice" ? command.starts_with("show ") || command.starts_with("ping ")
                               : name == "bob" && command == "show version";
    }
};

Person random_person(Random &random) {
    static const Person everybody[] = {
        {"alice", "wonderland"},   {"alice", "wonderland"}, {"alice", "rabbit"},
        {"bob", "looking-glass"},  {"bob", "wonderland"},   {"bob", ""},
        {"mallory", "wonderland"},
    };
    return one_of(random, everybody);
}

// The user's texts, writable as the library requires.
struct Credential {
    explicit Credential(const Person &person) : name(person.name), password(person.password) {
        cred.username = name.data();
        cred.password = password.data();
        cred.ttyname = tty;
        cred.remote_addr = address;
        cred.tty_mnemonic = tty;
        cred.authen_method = AAA_METHOD_LOCAL;
    }
    std::string name;
    std::string password;
    char tty[8] = "vty0";
    char address[16] = "192.0.2.10";
    aaa_usercred_t cred{};
};

Bytes sent(Composed &composed, const Request &request, cerrno rc) {
    EXPECT_EQ(rc, AAA_OK);
    return request.session ? composed.packet() : composed.elements();
}

void make_authentication(Request &request, const Person &person) {
    Composed c;
    Credential user(person);
    request.type = AAA_REQ_AUTHEN;
    request.bytes = sent(c, request,
                         aaa_util_msg_authen_compose(&c.record, AAA_AO_ASCII_LOGIN, AAA_SVC_LOGIN, "default",
                                                     0, &user.cred, nullptr, nullptr, &c.iov, &c.count,
                                                     c.buffer, sizeof c.buffer, nullptr, request.session));
    if (!person.known()) {
        request.expected = {.status = AAA_STAT_GETUSER, .message = "User is not known here"};
    } else if (!person.password_is_right()) {
        request.expected = {.status = AAA_STAT_FAIL, .message = "Password is wrong"};
    } else {
        request.expected = {.status = AAA_STAT_PASS, .level = person.level(), .message = "Welcome"};
    }
}

void make_authorization(Request &request, const Person &person, std::string command) {
    Composed c;
    Credential user(person);
    aaa_svc_attrs_t attrs{};
    const bool allowed = person.may(command);
    attrs.cmd = command.data();
    request.type = AAA_REQ_AUTHOR;
    request.bytes = sent(c, request,
                         aaa_util_msg_author_compose(&c.record, AAA_AO_ASCII_LOGIN, AAA_SVC_CMD, "default", 0,
                                                     &user.cred, &attrs, &c.iov, &c.count, c.buffer,
                                                     sizeof c.buffer, nullptr, request.session));
    if (!person.known()) {
        request.expected = {.status = AAA_STAT_FAIL, .message = "No such user, or no command"};
    } else if (!allowed) {
        request.expected = {.status = AAA_STAT_FAIL, .message = "Command is not allowed"};
    } else {
        request.expected = {.status = AAA_STAT_PASS, .level = person.level()};
    }
}

void make_accounting(Request &request, const Person &person, uint32_t id, uint32_t option) {
    Composed c;
    Credential user(person);
    aaa_svc_attrs_t attrs{};
    request.type = AAA_REQ_ACCT;
    request.bytes = sent(
        c, request,
        aaa_util_msg_acct_compose(&c.record, option, AAA_SVC_EXEC, "default", 0, &user.cred, &attrs, id,
                                  &c.iov, &c.count, c.buffer, sizeof c.buffer, nullptr, request.session));
    request.expected.kind = Expected::Kind::status_only;
}

// ---- Answers -------------------------------------------------------------------------

std::string text_of(const avlist *list, uint32_t type) {
    char text[256];
    uint32_t len = 0;
    if (aaa_util_avlist_value_copy(list, type, 0, text, sizeof text, &len) != AAA_OK || len == 0) {
        return "";
    }
    return {text, len - 1};
}

void expect_verdict(const aaa_transport_msg_t &message, const aaa_transport_head_t &head,
                    const Expected &expected) {
    avlist *list = nullptr;
    ASSERT_EQ(aaa_transport_unpack(&message, head.list_at, &list), AAA_OK);
    EXPECT_EQ(attribute_number(list, AAA_STATUS_ATTR), expected.status);
    EXPECT_EQ(attribute_number(list, AAA_PRIV_LVL_ATTR), expected.level);
    EXPECT_EQ(text_of(list, AAA_REPLYMSG_ATTR), expected.message);
    aaa_avpair_free_list(list);
}

// ---- Misbehaviour --------------------------------------------------------------------

Bytes garbage(Random &random) {
    Bytes message(1 + below(random, 600));
    std::generate(message.begin(), message.end(), [&] { return static_cast<unsigned char>(random()); });
    if (message.size() >= offsetof(aaa_req_hdr_t, param) && below(random, 2) == 0) {
        const uint32_t type = below(random, 30);
        std::memcpy(message.data() + offsetof(aaa_req_hdr_t, type), &type, sizeof type);
        set_length(message);
    }
    return message;
}

// Session id of misbehaving clients, whose accounting records are not checked.
constexpr uint32_t kUncheckedSession = 0x40000000;

Bytes half(Random &random) {
    Bytes message = make_request(random, kUncheckedSession).bytes;
    const bool classic = message.size() >= 8 && message[0] != 16;
    message.resize(1 + below(random, message.size() - 1));
    if (classic && message.size() >= 8 && below(random, 2) == 0) {
        set_length(message);  // half a message whose length field fits
    }
    return message;
}

Bytes lie(Random &random) {
    Bytes message = make_request(random, kUncheckedSession).bytes;
    static constexpr unsigned char with[] = {0x00, 0x7f, 0xff};
    const uint32_t at = below(random, message.size() / 4) * 4;
    std::fill_n(message.begin() + at, 4, one_of(random, with));
    return message;
}

void expect_some_answer(const std::string &path, const Bytes &message) {
    const Connection connection(path);
    EXPECT_TRUE(connection.send(message));
    EXPECT_FALSE(connection.receive().empty()) << "no answer to " << message.size() << " bytes";
}

void attach_descriptors(const Connection &connection, const Bytes &message) {
    alignas(cmsghdr) std::array<unsigned char, CMSG_SPACE(3 * sizeof(int))> control{};
    iovec element = {const_cast<unsigned char *>(message.data()), message.size()};
    msghdr header{};
    header.msg_iov = &element;
    header.msg_iovlen = 1;
    header.msg_control = control.data();
    header.msg_controllen = control.size();
    cmsghdr *const attached = CMSG_FIRSTHDR(&header);
    attached->cmsg_level = SOL_SOCKET;
    attached->cmsg_type = SCM_RIGHTS;
    attached->cmsg_len = CMSG_LEN(3 * sizeof(int));
    const int files[3] = {0, 1, 2};
    std::memcpy(CMSG_DATA(attached), files, sizeof files);
    EXPECT_EQ(sendmsg(connection.fd(), &header, MSG_NOSIGNAL), static_cast<ssize_t>(message.size()));
}

// The server drops a client that does not read its answers; then the loop ends.
void send_without_reading(const std::string &path) {
    const Connection connection(path);
    const Request ping = make_ping();
    unsigned sends = 0;
    while (connection.send(ping.bytes)) {
        ASSERT_LT(++sends, 1000000u) << "the server never drops a client that does not read";
    }
}

void expect_hang_up_on_nothing(const std::string &path) {
    const Connection connection(path);
    EXPECT_TRUE(connection.send({}));
    EXPECT_TRUE(connection.receive().empty());
}

}  // namespace

// ---- Connections -----------------------------------------------------------------------

// The soak sends and receives bytes past the transport, on a blocking socket.
Connection::Connection(const std::string &path) : transport_(transport_test::connect_to(path)) {
    EXPECT_EQ(fcntl(fd(), F_SETFL, fcntl(fd(), F_GETFL) & ~O_NONBLOCK), 0);
}

bool Connection::send(const Bytes &message) const {
    const ssize_t sent = ::send(fd(), message.data(), message.size(), MSG_NOSIGNAL);
    EXPECT_TRUE(sent >= 0 || errno == EPIPE || errno == ECONNRESET) << std::strerror(errno);
    return sent == static_cast<ssize_t>(message.size());
}

Bytes Connection::receive() const {
    Bytes message(AAA_TRANSPORT_MAX);
    const ssize_t got = recv(fd(), message.data(), message.size(), 0);
    message.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
    return message;
}

// ---- Requests --------------------------------------------------------------------------

Request make_ping() {
    Request request;
    Composed c;
    request.type = AAA_REQ_PING;
    request.bytes = sent(c, request, aaa_util_msg_ping_compose(&c.record, &c.iov, &c.count, 0));
    request.expected.kind = Expected::Kind::status_only;
    return request;
}

Request make_login(Random &random) {
    Request request;
    request.session = below(random, 2) != 0;
    make_authentication(request, {"alice", "wonderland"});
    return request;
}

Request make_request(Random &random, uint32_t accounting_id) {
    static const char *const commands[] = {"show version", "show running-config", "ping 192.0.2.1", "reload"};
    static constexpr uint32_t options[] = {AAA_ACCT_START_OPT, AAA_ACCT_STOP_OPT};
    Request request;
    request.session = below(random, 2) != 0;
    const Person person = random_person(random);
    switch (below(random, 3)) {
        case 0:
            make_authentication(request, person);
            break;
        case 1:
            make_authorization(request, person, one_of(random, commands));
            break;
        default:
            make_accounting(request, person, accounting_id, one_of(random, options));
            break;
    }
    return request;
}

void expect_answered(const Connection &connection, const Request &request) {
    SCOPED_TRACE(testing::Message() << "request type " << request.type
                                    << (request.session ? ", session" : ""));
    ASSERT_TRUE(connection.send(request.bytes)) << "the server closed the connection";
    const Bytes answer = connection.receive();
    ASSERT_FALSE(answer.empty()) << "the server closed the connection without an answer";
    const auto message = std::make_unique<aaa_transport_msg_t>();
    message->len = answer.size();
    std::copy(answer.begin(), answer.end(), message->u.bytes);
    aaa_transport_head_t head;
    ASSERT_EQ(aaa_transport_read_reply(message.get(), request.type, &head), AAA_OK);
    ASSERT_EQ(head.kind, request.session ? AAA_TRANSPORT_SESSION : AAA_TRANSPORT_CLASSIC);
    ASSERT_EQ(head.result, AAA_OK);
    if (request.expected.kind == Expected::Kind::status_only) {
        EXPECT_EQ(head.list_at, 0u);
    } else {
        expect_verdict(*message, head, request.expected);
    }
}

// ---- Misbehaving clients -------------------------------------------------------------------

void Parking::take(Connection connection) {
    const std::lock_guard guard(lock_);
    parked_.push_back(std::move(connection));
    if (parked_.size() > room_) {
        parked_.pop_front();
    }
}

void Parking::clear() {
    const std::lock_guard guard(lock_);
    parked_.clear();
}

void misbehave(Mischief what, const std::string &path, Random &random, Parking &parking) {
    SCOPED_TRACE(testing::Message() << "mischief " << static_cast<int>(what));
    switch (what) {
        case Mischief::garbage:
            return expect_some_answer(path, garbage(random));
        case Mischief::half:
            return expect_some_answer(path, half(random));
        case Mischief::lie:
            return expect_some_answer(path, lie(random));
        case Mischief::long_message:
            return expect_some_answer(path, Bytes(AAA_TRANSPORT_MAX + 1 + below(random, 4096), 'x'));
        case Mischief::no_message:
            return expect_hang_up_on_nothing(path);
        case Mischief::descriptors: {
            const Connection connection(path);
            attach_descriptors(connection, make_ping().bytes);
            EXPECT_FALSE(connection.receive().empty());
            return expect_answered(connection, make_login(random));
        }
        case Mischief::hang_up: {
            const Connection connection(path);
            return;
        }
        case Mischief::no_patience: {
            const Connection connection(path);
            EXPECT_TRUE(connection.send(make_request(random, kUncheckedSession).bytes));
            return;
        }
        case Mischief::half_way: {
            const Connection connection(path);
            expect_answered(connection, make_login(random));
            EXPECT_TRUE(connection.send(half(random)));
            return;
        }
        case Mischief::deaf:
            return send_without_reading(path);
        case Mischief::silent:
        case Mischief::count:
            break;
    }
    parking.take(Connection(path));
}

}  // namespace soak
