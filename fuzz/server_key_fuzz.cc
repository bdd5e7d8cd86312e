// SPDX-License-Identifier: Apache-2.0
//
// The library's checks of keys, the host's cipher, and the file of master keys. The
// input is an operation (1 byte) and
//
//   0   a text of unknown origin, treated as a sealed key
//   1   position (2 bytes), character (1 byte), clear text: it is sealed, opened
//       again, and refused after one character of the sealed form is changed
//   2   a clear key, whose trailing white space is removed
//   3   a clear key, trimmed by the configuration parser's rule
//   4   a file of master keys
//
// Master keys of the generations 01 and 42 are fixed, so that sealed keys can
// be among the seeds.

#include <cctype>
#include <cstring>
#include <memory>
#include <set>
#include <sstream>
#include <string>

#include "aaa/result_codes.h"
#include "aaa/server_keys.h"
#include "fuzz_input.hpp"
#include "host_process.hpp"
#include "platform/cipher.h"
#include "platform/control.h"

namespace {

constexpr std::size_t kMostClear = 4096;
constexpr int kReversible = 7;

using Text = std::unique_ptr<char, void (*)(void *)>;

Text owned(char *text) {
    return {text, std::free};
}

Text opened(const std::string &sealed) {
    return owned(pw_decrypt(sealed.c_str(), kReversible));
}

// A block of the text and its NUL, and no byte more.
std::unique_ptr<char[]> block(const std::string &text) {
    auto copy = std::make_unique<char[]>(text.size() + 1);
    text.copy(copy.get(), text.size());
    copy[text.size()] = '\0';
    return copy;
}

bool all(const std::string &text, int (*is_class)(int)) {
    for (const char c : text) {
        if (is_class(static_cast<unsigned char>(c)) == 0) {
            return false;
        }
    }
    return true;
}

std::string without_trailing_blanks(std::string text) {
    text.erase(text.find_last_not_of(" \t\r\n") + 1);
    return text;
}

std::string lower(std::string text) {
    for (char &c : text) {
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    return text;
}

bool has_shape(const std::string &text) {
    return text.size() >= 4 && text.size() % 2 == 0 && all(text.substr(0, 2), std::isdigit) &&
           all(text.substr(2), std::isxdigit);
}

void check_validate(const std::string &text, const Text &clear) {
    const auto given = block(text);
    const cerrno rc = validate_encrypted_password(given.get());
    REQUIRE(given.get() == text);
    const bool valid = has_shape(text) && clear != nullptr && all(clear.get(), std::isprint);
    REQUIRE(rc == (valid ? AAA_OK : AAA_ERR_BAD_ENCRYPTED_KEY));
    REQUIRE(clear == nullptr || has_shape(text));
}

void check_truncate_sealed(const std::string &text, const Text &clear) {
    const auto given = block(text);
    const Text result = owned(aaa_util_truncate_whitespace_in_server_key(given.get(), 1));
    REQUIRE(given.get() == text);
    const std::string kept = clear != nullptr ? without_trailing_blanks(clear.get()) : "";
    REQUIRE((result != nullptr) == !kept.empty());
    if (result == nullptr) {
        return;
    }
    if (kept == clear.get()) {
        REQUIRE(result.get() == text);
    } else {
        const Text trimmed = opened(result.get());
        REQUIRE(trimmed != nullptr && trimmed.get() == kept);
    }
}

void open_unknown(fuzz::Input input) {
    const std::string text = input.rest_as_text();
    const Text clear = opened(text);
    check_validate(text, clear);
    check_truncate_sealed(text, clear);
    REQUIRE(owned(pw_decrypt(text.c_str(), 5)) == nullptr);
}

void seal_and_change(fuzz::Input input) {
    const std::size_t place = input.number(2);
    const char character = static_cast<char>(input.byte());
    const std::string clear = input.rest_as_text();
    const Text sealed = owned(pw_encrypt(clear.c_str(), kReversible));
    REQUIRE((sealed != nullptr) == (clear.size() <= kMostClear));
    if (sealed == nullptr) {
        return;
    }
    std::string text = sealed.get();
    const Text again = opened(text);
    REQUIRE(again != nullptr && again.get() == clear);
    check_validate(text, again);
    check_truncate_sealed(text, again);
    text[place % text.size()] = character;
    text = text.c_str();
    const Text changed = opened(text);
    // The case of hexadecimal digits does not matter.
    REQUIRE((changed != nullptr) == (lower(text) == lower(sealed.get())));
}

void truncate_clear(fuzz::Input input) {
    const std::string key = input.rest_as_text();
    const std::string expected = without_trailing_blanks(key);
    const auto given = block(key);
    const Text result = owned(aaa_util_truncate_whitespace_in_server_key(given.get(), 0));
    REQUIRE(given.get() == expected);
    REQUIRE((result != nullptr) == !expected.empty());
    REQUIRE(result == nullptr || result.get() == expected);
}

// Number of characters that the parser's rule leaves: a second implementation of its description.
std::size_t kept_by_parser(const std::string &key) {
    if (key.empty() || std::strchr(" \t\r\n", key.back()) == nullptr) {
        return key.size();
    }
    std::size_t at = key.size();
    for (;;) {
        if (at >= 1 && key[at - 1] == ' ') {
            at -= 1;
        } else if (at >= 2 && key[at - 2] == '\t') {
            at -= 2;
        } else if (at >= 3 && key[at - 3] == '\r') {
            at -= 3;
        } else if (at >= 4 && key[at - 4] == '\n') {
            at -= 4;
        } else {
            return at > 3 ? at - 3 : 0;
        }
    }
}

void trim_clear(fuzz::Input input) {
    const std::string key = input.rest_as_text();
    const std::string expected = key.substr(0, kept_by_parser(key));
    const auto given = block(key);
    char *out = given.get();
    REQUIRE(aaa_util_trim_server_key(given.get(), &out) == AAA_OK);
    const Text copy = owned(out);
    REQUIRE(given.get() == expected);
    REQUIRE((copy != nullptr) == !expected.empty());
    REQUIRE(copy == nullptr || copy.get() == expected);
}

// ---- files of master keys ---------------------------------------------------------

// Whether a line is a key of a new generation.
bool takes_key(const std::string &line, std::set<std::string> &generations) {
    return line.size() >= 67 && all(line.substr(0, 2), std::isdigit) && line[2] == ' ' &&
           all(line.substr(3, 64), std::isxdigit) && (line.size() == 67 || line[67] == ' ') &&
           generations.insert(line.substr(0, 2)).second;
}

// Number of keys in a file, 0 for one that must be refused.
std::size_t keys_in(const std::string &bytes) {
    std::istringstream lines(std::string(bytes.c_str()));
    std::string line;
    std::set<std::string> generations;
    if (bytes.size() > 16384 || !std::getline(lines, line) || line != "aaa-master-keys 1") {
        return 0;
    }
    while (std::getline(lines, line)) {
        if (!line.empty() && line[0] != '#' && !takes_key(line, generations)) {
            return 0;
        }
    }
    return generations.size();
}

void check_rotation(const std::string &file, std::size_t keys, const std::string &sealed) {
    uint32_t generation = 100;
    if (aaa_platform_master_keys_rotate(file.c_str(), &generation) == 0) {
        uint32_t count = 0;
        REQUIRE(aaa_platform_master_keys_list(file.c_str(), nullptr, 0, &count) == 0);
        REQUIRE(count == keys + 1 && generation < 100);
        const Text clear = opened(sealed);
        REQUIRE(clear != nullptr && std::strcmp(clear.get(), "secret") == 0);
    }
}

// Only the platform computes the checksum of a file that has one.
bool may_be_damaged(const std::string &bytes) {
    return bytes.find("\n#check ") != std::string::npos;
}

void read_master_keys(fuzz::Input input) {
    const std::string bytes = input.rest();
    const std::string file = fuzz::HostProcess::instance().path("other.keys");
    fuzz::HostProcess::write(file, bytes);
    std::size_t keys = keys_in(bytes);
    uint32_t count = 0;
    if (may_be_damaged(bytes) && aaa_platform_master_keys_list(file.c_str(), nullptr, 0, &count) != 0) {
        keys = 0;
    }
    REQUIRE((aaa_platform_master_keys_list(file.c_str(), nullptr, 0, &count) == 0) == (keys != 0));
    REQUIRE(count == keys);
    const std::string usual = aaa_platform_master_keys_path();
    setenv("AAA_MASTER_KEYS", file.c_str(), 1);
    const Text sealed = owned(pw_encrypt("secret", kReversible));
    REQUIRE((sealed != nullptr) == (keys != 0));
    if (sealed != nullptr) {
        const Text clear = opened(sealed.get());
        REQUIRE(clear != nullptr && std::strcmp(clear.get(), "secret") == 0);
        check_rotation(file, keys, sealed.get());
    }
    setenv("AAA_MASTER_KEYS", usual.c_str(), 1);
}

void prepare() {
    const auto &process = fuzz::HostProcess::instance();
    std::string text = "aaa-master-keys 1\n01 ";
    for (int i = 0; i < 16; ++i) {
        text += "0011";
    }
    text += "\n42 ";
    for (int i = 0; i < 16; ++i) {
        text += "4242";
    }
    fuzz::HostProcess::write(process.path("master.keys"), text + "\n");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    static const bool prepared = (prepare(), true);
    static_cast<void>(prepared);
    fuzz::Input input(data, size);
    switch (input.byte() % 5) {
        case 0:
            open_unknown(input);
            break;
        case 1:
            seal_and_change(input);
            break;
        case 2:
            truncate_clear(input);
            break;
        case 3:
            trim_clear(input);
            break;
        default:
            read_master_keys(input);
            break;
    }
    return 0;
}
