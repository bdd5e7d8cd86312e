// SPDX-License-Identifier: Apache-2.0
//
// aaactl's login and acct with replies of an untrusted server. The input is the request
// (1 byte: its kind, in packets or not, whether the reply's first words are corrected)
// and the reply. An accepted reply and its result are compared with a second reading of
// the form, and its text must contain no control byte. Every other reply must throw a
// Failure, and no other exception.

#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <utility>

#include "aaa/checked.h"
#include "aaa/messages.h"
#include "aaa/names.h"
#include "aaa/result_codes.h"
#include "client/client.hpp"
#include "fuzz_input.hpp"
#include "host_process.hpp"

extern "C" {
#include "examples/transport.h"
}

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

std::optional<Expected> read_classic(const std::string &bytes, uint32_t type) {
    if (bytes.size() >= 24) {
        return Expected{__builtin_bswap32(word_at(bytes, 20)), 24};
    }
    return bytes.size() == 20 && type == AAA_REQ_ACCT ? std::optional(Expected{AAA_OK, 20}) : std::nullopt;
}

bool is_packet(const std::string &bytes) {
    return bytes.size() >= 72 && word_at(bytes, 0) == 16 && bytes.compare(36, 2, "NA") == 0 &&
           word_at(bytes, 52) == 2;
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
    if (bytes.size() >= 20 && word_at(bytes, 0) == TRANSPORT_MAGIC && word_at(bytes, 4) == bytes.size()) {
        form = read_classic(bytes, question.type);
    } else if (question.session && is_packet(bytes) && word_at(bytes, 8) == question.type &&
               bytes.size() >= 88) {
        form = Expected{word_at(bytes, 76), 88};
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
    if (bytes.size() < 20) {
        return;
    }
    if (!question.session || bytes.size() < 72) {
        put(0, TRANSPORT_MAGIC);
        put(4, static_cast<uint32_t>(bytes.size()));
        return;
    }
    put(0, 16);
    put(8, question.type);
    bytes.replace(36, 2, "NA");
    put(52, 2);
}

// Sends the reply before the client sends its request, so that one thread is enough.
Reply ask(const std::string &bytes, const Question &question) {
    static const std::string path = fuzz::HostProcess::instance().path("server");
    static const int listener = transport_listen(path.c_str());
    REQUIRE(listener >= 0);
    Exchange exchange(path, 0, question.session);
    const int fd = accept(listener, nullptr, nullptr);
    REQUIRE(fd >= 0);
    const std::unique_ptr<const int, void (*)(const int *)> closer(&fd,
                                                                   [](const int *open) { close(*open); });
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
        REQUIRE((reply.list != nullptr) == (expected->list_at < bytes.size()));
        REQUIRE(reply.list == nullptr || aaa_avpair_list_is_sane(reply.list.get()) == 1);
        show(std::move(reply), question.type);
    } catch (const Failure &failure) {
        REQUIRE(taken || !expected);
        REQUIRE(failure.code() == (bytes.empty() ? ExitCode::unavailable : ExitCode::bad_input));
        require_printable(failure.what());
    }
    return 0;
}
