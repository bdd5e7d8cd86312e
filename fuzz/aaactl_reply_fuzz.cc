// SPDX-License-Identifier: Apache-2.0
//
// aaactl's login and acct with replies of an untrusted server. The input is the request
// (1 byte: its kind, in packets or not, whether the reply's first words are corrected)
// and the reply. An accepted reply and its result are compared with a second reading of
// the form, and its text must contain no control byte. Every other reply must throw a
// Failure, and no other exception.

#include <sys/socket.h>

#include <cstddef>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "aaa/checked.h"
#include "aaa/messages.h"
#include "aaa/names.h"
#include "aaa/result_codes.h"
#include "aaa/transport.h"
#include "client/client.hpp"
#include "fuzz_input.hpp"
#include "host_process.hpp"

namespace {

using aaactl::Exchange;
using aaactl::ExitCode;
using aaactl::Failure;
using aaactl::Reply;
using aaactl::Step;

struct Question {
    uint32_t type;
    bool session;
};

uint32_t word_at(const std::string &bytes, std::size_t at) {
    uint32_t value = 0;
    std::memcpy(&value, bytes.data() + at, sizeof value);
    return value;
}

// ---- the form, read a second time -----------------------------------------------

struct Expected {
    cerrno result = AAA_OK;
    std::size_t list_at = 0;
};

constexpr std::size_t kStatusAt = offsetof(aaa_reply_hdr_t, status);
constexpr std::size_t kStatusEnd = offsetof(aaa_reply_hdr_t, second);

std::optional<Expected> read_classic(const std::string &bytes, uint32_t type) {
    if (bytes.size() >= kStatusEnd) {
        return Expected{__builtin_bswap32(word_at(bytes, kStatusAt)), kStatusEnd};
    }
    return bytes.size() == kStatusAt && type == AAA_REQ_ACCT ? std::optional(Expected{AAA_OK, kStatusAt})
                                                             : std::nullopt;
}

bool is_packet(const std::string &bytes) {
    return bytes.size() >= sizeof(aaa_sess_hdr_t) && word_at(bytes, 0) == 16 &&
           bytes.compare(offsetof(aaa_sess_hdr_t, magic), 2, "NA") == 0 &&
           word_at(bytes, offsetof(aaa_sess_hdr_t, version)) == 2;
}

bool is_list(const std::string &bytes) {
    avlist *list = nullptr;
    REQUIRE(aaa_avpair_create_list(nullptr, &list) == AAA_OK);
    const cerrno rc = aaa_avpair_unpack_msg_checked(list, bytes.data(), bytes.size());
    aaa_avpair_free_list(list);
    return rc == AAA_OK;
}

std::optional<Expected> read_form(const std::string &bytes, const Question &question) {
    std::optional<Expected> form;
    if (bytes.size() >= AAA_TRANSPORT_FIELDS && word_at(bytes, 0) == AAA_TRANSPORT_MAGIC &&
        word_at(bytes, 4) == bytes.size()) {
        form = read_classic(bytes, question.type);
    } else if (question.session && is_packet(bytes) &&
               word_at(bytes, offsetof(aaa_sess_hdr_t, type)) == question.type &&
               bytes.size() >= AAA_SESS_RSP_SIZE_STATUS) {
        form = Expected{word_at(bytes, offsetof(aaa_sess_response_t, u.word[1])), AAA_SESS_RSP_SIZE_STATUS};
    }
    const bool usable = form && (form->list_at == bytes.size() || is_list(bytes.substr(form->list_at)));
    return usable ? form : std::nullopt;
}

// ---- an exchange ------------------------------------------------------------------

// Corrects the first words, so that most inputs pass the first check.
void put_right(std::string &bytes, const Question &question) {
    const auto put = [&](std::size_t at, uint32_t value) {
        bytes.replace(at, sizeof value, reinterpret_cast<const char *>(&value), sizeof value);
    };
    if (bytes.size() < AAA_TRANSPORT_FIELDS) {
        return;
    }
    if (!question.session || bytes.size() < sizeof(aaa_sess_hdr_t)) {
        put(0, AAA_TRANSPORT_MAGIC);
        put(4, static_cast<uint32_t>(bytes.size()));
        return;
    }
    put(0, 16);
    put(offsetof(aaa_sess_hdr_t, type), question.type);
    bytes.replace(offsetof(aaa_sess_hdr_t, magic), 2, "NA");
    put(offsetof(aaa_sess_hdr_t, version), 2);
}

using Transport = std::unique_ptr<aaa_transport_t, aaactl::FreeTransport>;

Transport make_transport() {
    aaa_transport_t *made = nullptr;
    REQUIRE(aaa_transport_create(&made) == AAA_OK);
    return Transport(made);
}

Transport listen_at(const std::string &path) {
    Transport listener = make_transport();
    REQUIRE(aaa_transport_listen(listener.get(), path.c_str()) == AAA_OK);
    return listener;
}

// Sends the reply before the client sends its request, so that one thread is enough.
Reply ask(const std::string &bytes, const Question &question) {
    static const std::string path = fuzz::HostProcess::instance().path("server");
    static const Transport listener = listen_at(path);
    Exchange exchange(path, 0, question.session);
    const Transport connection = make_transport();
    REQUIRE(aaa_transport_accept(listener.get(), connection.get(), AAA_TRANSPORT_NEVER) == AAA_OK);
    const int fd = aaa_transport_descriptor(connection.get());
    if (bytes.empty()) {
        REQUIRE(shutdown(fd, SHUT_WR) == 0);
    } else {
        REQUIRE(send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size()));
    }
    return exchange.ask(question.type, [](aaactl::Composition &c) {
        return aaa_util_msg_ping_compose(&c.record, &c.iov, &c.count, c.session);
    });
}

// Rejects control characters, also those that UTF-8 encodes in two bytes.
void require_printable(const std::string &text) {
    unsigned char before = 0;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        REQUIRE(byte >= ' ' && byte != 0x7f && (before != 0xc2 || byte >= 0xa0));
        before = byte;
    }
}

void show(Reply reply, uint32_t type) {
    Step step;
    step.request = "request";
    step.subject = "somebody";
    step.reply = std::move(reply);
    const aaactl::Output out{aaactl::OutputOptions{}};
    if (type == AAA_REQ_ACCT) {
        aaactl::judge_record(step);
    } else {
        aaactl::judge(step, type);
    }
    REQUIRE(step.has_status || step.verdict == aaactl::Verdict::failed || type == AAA_REQ_ACCT);
    require_printable(aaactl::step_json(out, step).dump());
    require_printable(aaactl::outcome(step));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    constexpr uint32_t kRequests[] = {AAA_REQ_AUTHEN, AAA_REQ_AUTHOR, AAA_REQ_ACCT};
    fuzz::Input input(data, size);
    const uint8_t choice = input.byte();
    const Question question{kRequests[choice % 4 % 3], (choice & 4) != 0};
    std::string bytes = input.rest();
    if ((choice & 8) != 0) {
        put_right(bytes, question);
    }
    const std::optional<Expected> expected = read_form(bytes, question);
    bool taken = false;
    try {
        Reply reply = ask(bytes, question);
        taken = true;
        REQUIRE(expected && reply.result == expected->result);
        REQUIRE((reply.list.native() != nullptr) == (expected->list_at < bytes.size()));
        REQUIRE(reply.list.native() == nullptr || aaa_avpair_list_is_sane(reply.list.native()) == 1);
        show(std::move(reply), question.type);
    } catch (const Failure &failure) {
        REQUIRE(taken || !expected);
        REQUIRE(failure.code() == (bytes.empty() ? ExitCode::unavailable : ExitCode::bad_input));
        require_printable(failure.what());
    }
    return 0;
}
