// SPDX-License-Identifier: Apache-2.0
//
// Calls every typed getter on a list of unknown origin. Each must return the value that
// is stored under its attribute, as read_pairs() finds it. All bytes that the result
// covers are read.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "aaa/accessors.h"
#include "aaa/checked.h"
#include "aaa/names.h"
#include "aaa/result_codes.h"
#include "fuzz_input.hpp"
#include "support/avlist_model.hpp"

namespace fuzz {

class ListGetters {
  public:
    explicit ListGetters(avlist *list) : list_(list), pairs_(aaatest::read_pairs(list)) {}

    void check() const {
        check_texts();
        check_numbers();
        check_numbers_with_code();
        check_blocks();
        check_address();
        check_methods();
        check_inbound(256, 16, 0, aaa_util_avlist_inbound_chap_data_get);
        check_inbound(1815, 49, 2, aaa_util_avlist_inbound_mschap_data_get);
        check_outbound(14, 0, aaa_util_avlist_outbound_chap_data_get);
        check_outbound(15, 2, aaa_util_avlist_outbound_mschap_data_get);
        check_public_key();
    }

  private:
    using Block = const std::string *;  // null when there is no such pair

    [[nodiscard]] Block stored(uint32_t type, uint32_t instance = 0) const {
        for (const aaatest::ModelPair &pair : pairs_) {
            if (pair.type == type && instance-- == 0) {
                return &pair.value;
            }
        }
        return nullptr;
    }

    // Missing bytes of a short value count as zero; bytes after the fourth are ignored.
    static uint32_t number(Block block, uint32_t absent = 0) {
        uint32_t value = 0;
        if (block != nullptr) {
            std::memcpy(&value, block->data(), std::min(block->size(), sizeof value));
        }
        return block != nullptr ? value : absent;
    }

    static bool same(Block block, const void *bytes, std::size_t length) {
        return block == nullptr ? bytes == nullptr
                                : bytes != nullptr && length == block->size() &&
                                      std::memcmp(bytes, block->data(), length) == 0;
    }
    // For a getter that returns no length, all stored bytes may be read.
    static bool same(Block block, const void *bytes) {
        return same(block, bytes, block != nullptr ? block->size() : 0);
    }

    void check_texts() const {
        constexpr struct {
            uint32_t type;
            char *(*get)(const avlist *);
        } kGetters[] = {{36, aaa_util_avlist_cmd_get},
                        {257, aaa_util_avlist_username_get},
                        {20, aaa_util_avlist_tty_get},
                        {61, aaa_util_avlist_tty_name_get},
                        {72, aaa_util_avlist_cfg_commitid_get},
                        {73, aaa_util_avlist_apl_sessid_get},
                        {74, aaa_util_avlist_apl_msgid_get},
                        {75, aaa_util_avlist_rpc_name_get},
                        {76, aaa_util_avlist_rpc_xpath1_get},
                        {77, aaa_util_avlist_rpc_xpath2_get},
                        {78, aaa_util_avlist_rpc_xpath3_get},
                        {79, aaa_util_avlist_rpc_xpath4_get},
                        {70, aaa_util_avlist_commit_start_time_get},
                        {71, aaa_util_avlist_commit_stop_time_get}};
        for (const auto &[type, get] : kGetters) {
            REQUIRE(same(stored(type), get(list_)));
        }
        for (uint32_t instance = 0; instance < 3; ++instance) {
            REQUIRE(same(stored(274, instance), aaa_util_avlist_reply_msg_get(list_, instance)));
        }
    }

    void check_numbers() const {
        constexpr struct {
            uint32_t type;
            uint32_t (*get)(const avlist *);
            uint32_t absent = 0;
        } kGetters[] = {{18, aaa_util_avlist_current_method_get},
                        {10, aaa_util_avlist_priv_get},
                        {2, aaa_util_avlist_status_get},
                        {2, aaa_get_status},
                        {39, aaa_util_avlist_authen_method_get},
                        {69, aaa_util_avlist_curr_method_val_get},
                        {43, aaa_util_avlist_authen_option_get, AAA_AO_NOTSET},
                        {262, aaa_util_avlist_svc_get},
                        {62, aaa_util_avlist_user_flag_get},
                        {22, aaa_util_avlist_ifh_get},
                        {3, aaa_util_msgtype_get}};
        for (const auto &[type, get, absent] : kGetters) {
            REQUIRE(get(list_) == number(stored(type), absent));
        }
        REQUIRE(aaa_util_avlist_last_used_server_ip_get(list_) == number(stored(1071)));
    }

    void check_numbers_with_code() const {
        constexpr uint32_t kBefore = 0xdead;
        constexpr struct {
            uint32_t type;
            cerrno (*get)(const avlist *, uint32_t *);
            uint32_t absent;
        } kGetters[] = {{27, aaa_util_avlist_seqnum_get, kBefore},
                        {26, aaa_util_avlist_sessionid_get, 0},
                        {46, aaa_util_avlist_acct_sessid_get, 0},
                        {284, aaa_util_avlist_idletime_get, kBefore}};
        for (const auto &[type, get, absent] : kGetters) {
            uint32_t value = kBefore;
            REQUIRE(get(list_, &value) == code(stored(type)));
            REQUIRE(value == number(stored(type), absent));
        }
    }

    static cerrno code(Block block) { return block != nullptr ? AAA_OK : AAA_ERR_AVPAIR_NOT_FOUND; }

    void check_blocks() const {
        uint32_t length = 0;
        void *value = nullptr;
        REQUIRE(aaa_util_avlist_data_get(&value, &length, list_) == code(stored(4)));
        REQUIRE(same(stored(4), value, length));
        const char *text = aaa_util_avlist_password_get(list_, &length);
        REQUIRE(same(stored(258), text, length) && (text != nullptr || length == 0));
        text = aaa_util_avlist_remaddr_get(list_, &length);
        REQUIRE(same(stored(37), text, length) && (text != nullptr || length == 0));
        value = aaa_util_avlist_chap_response_get(&length, list_);
        REQUIRE(same(stored(16), value, length));
        REQUIRE(same(stored(13), aaa_util_avlist_ctx_get(list_)));
        REQUIRE(same(stored(25), aaa_util_avlist_src_get(list_)));
    }

    // The rest of the record is zero.
    void check_address() const {
        std::string expected = stored(42) != nullptr ? *stored(42) : "";
        expected.resize(sizeof(aaa_ip_addr_t));
        aaa_ip_addr_t address;
        std::memset(&address, 0x5a, sizeof address);
        REQUIRE(aaa_util_avlist_directed_addr_get(&address, list_) == &address);
        REQUIRE(std::memcmp(&address, expected.data(), sizeof address) == 0);
    }

    void check_methods() const {
        const Block block = stored(17);
        uint32_t count = 0;
        std::vector<uint32_t> methods((block != nullptr ? block->size() : 0) / 4);
        REQUIRE(same(block, aaa_util_avlist_methodlist_get(list_)));
        cerrno expected = code(block);
        if (!methods.empty()) {
            expected = AAA_ERR_BUFFER_TOO_SMALL;
        }
        REQUIRE(aaa_util_avlist_methodlist_copy(list_, nullptr, 0, &count) == expected);
        if (block == nullptr) {
            return;
        }
        REQUIRE(count == methods.size());
        REQUIRE(aaa_util_avlist_methodlist_copy(list_, methods.data(), count, &count) == AAA_OK);
        std::vector<uint32_t> plain(methods.size() + 1);
        REQUIRE(aaa_util_avlist_methodlist_get_all(plain.data(), &count, list_) == 1);
        REQUIRE(count == methods.size() && std::memcmp(plain.data(), block->data(), block->size()) == 0);
        REQUIRE(std::equal(methods.begin(), methods.end(), plain.begin()));
    }

    using ChapGetter = cerrno (*)(aaa_chap_data_t *, const avlist *);

    void check_inbound(uint32_t type, uint32_t response, uint32_t least, ChapGetter get) const {
        const Block block = stored(type);
        aaa_chap_data_t chap{};
        if (block == nullptr || block->size() < 1 + response + least) {
            REQUIRE(get(&chap, list_) == AAA_ERR_INVALID_CLIENT_DATA && chap.data == nullptr);
            return;
        }
        REQUIRE(get(&chap, list_) == AAA_OK && chap.id == static_cast<uint8_t>(block->front()));
        const std::string answer = block->substr(1, response);
        const std::string challenge = block->substr(1 + response);
        REQUIRE(same(&answer, chap.response, chap.response_len));
        REQUIRE(same(&challenge, chap.data, chap.data_len));
    }

    void check_outbound(uint32_t type, uint32_t least, ChapGetter get) const {
        const Block block = stored(type);
        aaa_chap_data_t chap{};
        if (block == nullptr || block->size() < 1 + least) {
            const cerrno expected = block == nullptr ? AAA_ERR_AVPAIR_NOT_FOUND : AAA_ERR_INVALID_CLIENT_DATA;
            REQUIRE(get(&chap, list_) == expected && chap.data == nullptr);
            return;
        }
        REQUIRE(get(&chap, list_) == AAA_OK && chap.id == static_cast<uint8_t>(block->front()));
        const std::string data = block->substr(1);
        REQUIRE(same(&data, chap.data, chap.data_len));
    }

    // A field of an array: the stored bytes, or zeros when the value is absent or too long.
    template <typename Field>
    [[nodiscard]] uint32_t check_field(uint32_t type, const Field &field) const {
        const Block block = stored(type);
        const bool fits = block != nullptr && block->size() <= sizeof field;
        const std::string expected = fits ? *block : std::string(sizeof field, '\0');
        REQUIRE(std::memcmp(field, expected.data(), expected.size()) == 0);
        return fits ? static_cast<uint32_t>(block->size() / AAA_RSA_NAME_LEN) : 0;
    }

    void check_public_key() const {
        static aaa_rsa_params_t rsa;
        std::memset(&rsa, 0x5a, sizeof rsa);
        REQUIRE(aaa_util_avlist_rsa_params_get(list_, &rsa) == AAA_OK);
        REQUIRE(same(stored(257), rsa.username));
        REQUIRE(same(stored(56), rsa.signature, rsa.signature_len));
        REQUIRE(same(stored(57), rsa.indata, rsa.indata_len));
        REQUIRE(same(stored(59), rsa.session_id, rsa.session_id_len));
        REQUIRE(rsa.pubkey_type == number(stored(65)) && rsa.username_fields == number(stored(67)));
        REQUIRE(rsa.trustpoint_count == check_field(66, rsa.trustpoint_names));
        REQUIRE(rsa.openssh_trustpoint_count == check_field(80, rsa.openssh_trustpoint_names));
        static_cast<void>(check_field(85, rsa.openssh_host_trustpoint_name));
        static_cast<void>(check_field(86, rsa.hiba_authorization_role));
        static_cast<void>(check_field(88, rsa.sign_algname));
        REQUIRE(rsa.hiba_authorization_enable == static_cast<uint8_t>(number(stored(89))));
    }

    avlist *const list_;
    const std::vector<aaatest::ModelPair> pairs_;
};

}  // namespace fuzz
