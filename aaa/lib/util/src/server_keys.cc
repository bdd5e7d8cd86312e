// SPDX-License-Identifier: Apache-2.0
//
// Server keys: shape check and two trimming rules. The clear text of an
// encrypted key exists only inside a ClearText guard, which wipes it.

#include "aaa/server_keys.h"

#include <cctype>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "aaa/result_codes.h"
#include "internal/memory.hpp"
#include "internal/printable_bytes.hpp"
#include "platform/cipher.h"
#include "platform/logging.h"

namespace {

constexpr int kReversible = 7;  // the encrypted form that can be decrypted

// Vertical tab and form feed are part of a key, not white space.
constexpr bool is_blank(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

bool is_digit(char c) {
    return std::isdigit(static_cast<unsigned char>(c)) != 0;
}
bool is_hex(char c) {
    return std::isxdigit(static_cast<unsigned char>(std::toupper(static_cast<unsigned char>(c)))) != 0;
}

// A decrypted key, wiped and freed at the end of its scope.
class ClearText {
  public:
    explicit ClearText(const char *encrypted) : text_(pw_decrypt(encrypted, kReversible)) {
        length_ = text_ != nullptr ? std::strlen(text_) : 0;
    }
    ClearText(const ClearText &) = delete;
    ClearText &operator=(const ClearText &) = delete;
    ~ClearText() {
        aaautil::wipe(text_, length_);
        std::free(text_);
    }
    [[nodiscard]] char *get() const { return text_; }

  private:
    char *text_;
    size_t length_;  // as decrypted: trimming does not shorten what is wiped
};

bool has_key_shape(std::string_view text) {
    if (text.size() < 4 || text.size() % 2 != 0 || !is_digit(text[0]) || !is_digit(text[1])) {
        return false;
    }
    for (const char c : text.substr(2)) {
        if (!is_hex(c)) {
            return false;
        }
    }
    return true;
}

void log_no_memory(const char *action) {
    kel_errmsg(kel_msg_rec_aaa_lib_util_error_no_mem_getfn(), 3, action);
}

char *copy_or_log(const char *text, const char *action) {
    char *copy = strdup(text);
    if (copy == nullptr) {
        log_no_memory(action);
    }
    return copy;
}

// Cuts trailing white space in place and warns; true when something was cut.
bool cut_trailing_blanks(char *text) {
    size_t length = std::strlen(text);
    if (length == 0 || !is_blank(text[length - 1])) {
        return false;
    }
    while (length > 0 && is_blank(text[length - 1])) {
        length--;
    }
    text[length] = '\0';
    kel_errmsg(kel_msg_rec_aaa_whitespace_truncated_in_server_key_getfn(), 4);
    return true;
}

constexpr char kTrimming[] = "trimming white space in server key";

char *truncate_clear_key(char *key) {
    cut_trailing_blanks(key);
    return *key != '\0' ? copy_or_log(key, kTrimming) : nullptr;
}

char *encrypt_again(const char *clear) {
    const aaautil::malloc_ptr<char> encrypted(pw_encrypt(clear, kReversible));
    if (encrypted == nullptr) {
        log_no_memory("Re-encrypt server key after finish trimming white space");
        return nullptr;
    }
    return copy_or_log(encrypted.get(), kTrimming);
}

char *truncate_encrypted_key(const char *key) {
    const ClearText clear(key);
    if (clear.get() == nullptr) {
        // Reported as a lack of memory for every reason: operators know the text.
        log_no_memory("Decrypt encrypted server key");
        return nullptr;
    }
    const bool cut = cut_trailing_blanks(clear.get());
    if (*clear.get() == '\0') {
        return nullptr;
    }
    return cut ? encrypt_again(clear.get()) : copy_or_log(key, kTrimming);
}

// How many bytes the configuration parser's rule steps back from the given
// position, 0 to stop. Each step looks at one fixed byte for one fixed
// character; bytes before the key match nothing.
size_t parser_rule_step(const char *key, size_t at) {
    constexpr char kExpected[] = {' ', '\t', '\r', '\n'};
    for (size_t back = 1; back <= sizeof kExpected && back <= at; back++) {
        if (key[at - back] == kExpected[back - 1]) {
            return back;
        }
    }
    return 0;
}

}  // namespace

extern "C" {

cerrno validate_encrypted_password(char *text) {
    if (text == nullptr) {
        return AAA_ERR_INVALID_ARG;
    }
    if (!has_key_shape(text)) {
        return AAA_ERR_BAD_ENCRYPTED_KEY;
    }
    const ClearText clear(text);
    return clear.get() != nullptr && aaautil::all_printable(clear.get()) ? AAA_OK : AAA_ERR_BAD_ENCRYPTED_KEY;
}

char *aaa_util_truncate_whitespace_in_server_key(char *key, int encrypted) {
    if (key == nullptr) {
        return nullptr;
    }
    return encrypted != 0 ? truncate_encrypted_key(key) : truncate_clear_key(key);
}

cerrno aaa_util_trim_server_key(char *key, char **out) {
    if (key == nullptr || out == nullptr) {
        return AAA_ERR_INVALID_ARG;
    }
    const size_t length = std::strlen(key);
    if (length > 0 && is_blank(key[length - 1])) {
        size_t at = length;
        for (size_t step = parser_rule_step(key, at); step != 0; step = parser_rule_step(key, at)) {
            at -= step;
        }
        // Three characters before the stop are cut too: kept, stored keys depend on it.
        key[at > 3 ? at - 3 : 0] = '\0';
    }
    *out = nullptr;
    if (*key != '\0') {
        *out = strdup(key);
        if (*out == nullptr) {
            return AAA_ERR_NOMEM;
        }
    }
    return AAA_OK;
}

}  // extern "C"
