// SPDX-License-Identifier: Apache-2.0
#include "soak_clients.hpp"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <utility>

#include "aaa/aaautil.h"

extern "C" {
#include "transport.h"
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

// ---- What goes out: several threads compose at a time, so nothing is shared ----------

void append(Bytes &bytes, const void *from, std::size_t count) {
    const auto *const p = static_cast<const unsigned char *>(from);
    bytes.insert(bytes.end(), p, p + count);
}

void set_length(Bytes &message) {
    const uint32_t fields[2] = {TRANSPORT_MAGIC, static_cast<uint32_t>(message.size())};
    std::memcpy(message.data(), fields, sizeof fields);
}

// Where a compose routine writes; then the message as the transport sends it.
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

Person somebody(Random &random) {
    static const Person everybody[] = {
        {"alice", "wonderland"},   {"alice", "wonderland"}, {"alice", "rabbit"},
        {"bob", "looking-glass"},  {"bob", "wonderland"},   {"bob", ""},
        {"mallory", "wonderland"},
    };
    return one_of(random, everybody);
}

// The user's texts, writable as the library wants them.
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

// ---- What comes back -----------------------------------------------------------------

// Where the list begins, and the status before it.
struct Opened {
    std::size_t list_at = 0;
    uint32_t status = ~0u;
};

Opened open_packet(const Bytes &answer, uint32_t type) {
    const std::size_t size = transport_response_size(type);
    aaa_sess_response_t packet{};
    if (answer.size() < size) {
        return {};
    }
    std::memcpy(&packet, answer.data(), size);
    EXPECT_EQ(packet.hdr.type, type);
    return {size, packet.u.word[1]};
}

Opened open_elements(const Bytes &answer, uint32_t type) {
    uint32_t status = 0;
    if (type == AAA_REQ_ACCT || type == AAA_REQ_PING) {
        return {20, status};  // only the transport's fields
    }
    if (answer.size() < 24) {
        return {};
    }
    std::memcpy(&status, answer.data() + 20, sizeof status);
    return {24, __builtin_bswap32(status)};
}

std::string text_of(const avlist *list, uint32_t type) {
    char text[256];
    uint32_t len = 0;
    if (aaa_util_avlist_value_copy(list, type, 0, text, sizeof text, &len) != AAA_OK || len == 0) {
        return "";
    }
    return {text, len - 1};
}

void expect_verdict(const transport_msg_t &message, const Opened &opened, const Expected &expected) {
    cerrno rc = AAA_OK;
    avlist *const list = transport_unpack(&message, opened.list_at, &rc);
    ASSERT_EQ(rc, AAA_OK);
    EXPECT_EQ(transport_number(list, AAA_STATUS_ATTR), expected.status);
    EXPECT_EQ(transport_number(list, AAA_PRIV_LVL_ATTR), expected.level);
    EXPECT_EQ(text_of(list, AAA_REPLYMSG_ATTR), expected.message);
    aaa_avpair_free_list(list);
}

// ---- Mischief ------------------------------------------------------------------------

Bytes garbage(Random &random) {
    Bytes message(1 + below(random, 600));
    std::generate(message.begin(), message.end(), [&] { return static_cast<unsigned char>(random()); });
    if (message.size() >= 32 && below(random, 2) == 0) {
        const uint32_t type = below(random, 30);
        std::memcpy(message.data() + 20, &type, sizeof type);
        set_length(message);
    }
    return message;
}

// Accounting records of clients like these are not looked for.
constexpr uint32_t kNobodysSession = 0x40000000;

Bytes half(Random &random) {
    Bytes message = make_request(random, kNobodysSession).bytes;
    const bool classic = message.size() >= 8 && message[0] != 16;
    message.resize(1 + below(random, message.size() - 1));
    if (classic && message.size() >= 8 && below(random, 2) == 0) {
        set_length(message);  // half a message that claims to be whole
    }
    return message;
}

Bytes lie(Random &random) {
    Bytes message = make_request(random, kNobodysSession).bytes;
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

// The server gives up a client that does not take its answers, which ends this.
void send_without_reading(const std::string &path) {
    const Connection connection(path);
    const Request ping = make_ping();
    unsigned sends = 0;
    while (connection.send(ping.bytes)) {
        ASSERT_LT(++sends, 1000000u) << "the server holds any number of answers";
    }
}

void expect_hang_up_on_nothing(const std::string &path) {
    const Connection connection(path);
    EXPECT_TRUE(connection.send({}));
    EXPECT_TRUE(connection.receive().empty());
}

}  // namespace

// ---- Connections -----------------------------------------------------------------------

Connection::Connection(const std::string &path) : fd_(transport_connect(path.c_str())) {
    EXPECT_GE(fd_, 0) << std::strerror(errno);
}

Connection::~Connection() {
    if (fd_ >= 0) {
        close(fd_);
    }
}

int Connection::release() {
    return std::exchange(fd_, -1);
}

bool Connection::send(const Bytes &message) const {
    const ssize_t sent = ::send(fd_, message.data(), message.size(), MSG_NOSIGNAL);
    EXPECT_TRUE(sent >= 0 || errno == EPIPE || errno == ECONNRESET) << std::strerror(errno);
    return sent == static_cast<ssize_t>(message.size());
}

Bytes Connection::receive() const {
    Bytes message(TRANSPORT_MAX);
    const ssize_t got = recv(fd_, message.data(), message.size(), 0);
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
    const Person person = somebody(random);
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
    ASSERT_TRUE(connection.send(request.bytes)) << "the server has hung up";
    const Bytes answer = connection.receive();
    ASSERT_FALSE(answer.empty()) << "the server has hung up instead of answering";
    transport_msg_t message;
    message.len = answer.size();
    std::copy(answer.begin(), answer.end(), message.u.bytes);
    ASSERT_EQ(transport_kind(&message), request.session ? TRANSPORT_SESSION : TRANSPORT_CLASSIC);
    const Opened opened =
        request.session ? open_packet(answer, request.type) : open_elements(answer, request.type);
    ASSERT_EQ(opened.status, AAA_OK);
    if (request.expected.kind == Expected::Kind::status_only) {
        EXPECT_EQ(answer.size(), opened.list_at);
    } else {
        expect_verdict(message, opened, request.expected);
    }
}

// ---- The others --------------------------------------------------------------------------

void Parking::take(int fd) {
    const std::lock_guard guard(lock_);
    fds_.push_back(fd);
    if (fds_.size() > room_) {
        close(fds_.front());
        fds_.pop_front();
    }
}

void Parking::clear() {
    const std::lock_guard guard(lock_);
    for (const int fd : fds_) {
        close(fd);
    }
    fds_.clear();
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
            return expect_some_answer(path, Bytes(TRANSPORT_MAX + 1 + below(random, 4096), 'x'));
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
            EXPECT_TRUE(connection.send(make_request(random, kNobodysSession).bytes));
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
    Connection connection(path);
    parking.take(connection.release());
}

}  // namespace soak
