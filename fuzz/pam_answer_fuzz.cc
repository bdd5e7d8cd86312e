// SPDX-License-Identifier: Apache-2.0
//
// What the login module makes of an answer of the service. The input is a byte, whose
// lowest bit asks for correct first words, and the answer. Texts for the user have to be
// such that showing them again changes nothing, and the status has to be one that the
// module knows.

#include <cstring>
#include <memory>
#include <string>

#include "aaa/checked.h"
#include "fuzz_input.hpp"

extern "C" {
#include "client.h"
#include "visible.h"
}

namespace {

bool is_known(uint32_t status) {
    switch (status) {
        case AAA_STAT_PASS:
        case AAA_STAT_FAIL:
        case AAA_STAT_BYPASS:
        case AAA_STAT_ERROR:
        case AAA_STAT_NOT_REQUIRED:
        case AAA_STAT_GETUSER:
        case AAA_STAT_GETPASS:
        case AAA_STAT_GETDATA:
        case AAA_STAT_ABORT:
            return true;
        default:
            return false;
    }
}

void check_text(const char *text) {
    char again[CLIENT_TEXT];
    REQUIRE(std::memchr(text, '\0', CLIENT_TEXT) != nullptr);
    visible_copy(again, sizeof again, text, std::strlen(text), 1);
    REQUIRE(std::strcmp(text, again) == 0);
    const auto *byte = reinterpret_cast<const unsigned char *>(text);
    while (*byte != 0) {
        REQUIRE((*byte >= ' ' && *byte != 0x7f) || *byte == '\n' || *byte == '\t');
        unsigned following = *byte < 0x80 ? 0 : *byte < 0xe0 ? 1 : *byte < 0xf0 ? 2 : 3;
        REQUIRE(following == 0 || (*byte >= 0xc2 && *byte <= 0xf4));
        REQUIRE(*byte != 0xc2 || byte[1] >= 0xa0);  // the controls beyond ASCII
        for (++byte; following > 0; --following, ++byte) {
            REQUIRE((*byte & 0xc0) == 0x80);
        }
    }
}

void check_state(const avlist *state) {
    uint32_t length = 0;
    REQUIRE(aaa_avpair_list_is_sane(state) == 1);
    REQUIRE(aaa_util_avlist_value_copy(state, AAA_RADIUS_STATE_ATTR, 0, nullptr, 0, &length) != AAA_OK ||
            length == 0);
    REQUIRE(aaa_util_avlist_value_copy(state, AAA_RADIUS_STATE_ATTR, 1, nullptr, 0, &length) ==
            AAA_ERR_AVPAIR_NOT_FOUND);
}

// With the first words that the transport of the sender writes.
void correct(aaa_transport_msg_t &msg) {
    const uint32_t words[2] = {AAA_TRANSPORT_MAGIC, static_cast<uint32_t>(msg.len)};
    if (msg.len >= sizeof words) {
        std::memcpy(msg.u.bytes, words, sizeof words);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    static const auto msg = std::make_unique<aaa_transport_msg_t>();
    fuzz::Input input(data, size);
    const bool corrected = (input.byte() & 1) != 0;
    const std::string bytes = input.text(AAA_TRANSPORT_MAX);
    std::memcpy(msg->u.bytes, bytes.data(), bytes.size());
    msg->len = bytes.size();
    if (corrected) {
        correct(*msg);
    }
    aaa_transport_head_t head;
    avlist *list = nullptr;
    if (aaa_transport_read_reply(msg.get(), AAA_REQ_AUTHEN, &head) != AAA_OK || head.list_at == 0 ||
        aaa_transport_unpack(msg.get(), head.list_at, &list) != AAA_OK) {
        return 0;
    }
    client_answer_t answer{};
    client_answer_read(&answer, list);
    aaa_avpair_free_list(list);
    REQUIRE(is_known(answer.status));
    check_text(answer.message);
    check_text(answer.prompt);
    if (answer.state != nullptr) {
        check_state(answer.state);
    }
    client_answer_clear(&answer);
    REQUIRE(answer.status == AAA_STAT_ERROR && answer.state == nullptr && answer.message[0] == '\0');
    return 0;
}
