// SPDX-License-Identifier: Apache-2.0

#include "base/avlist.hpp"

#include <cstring>

#include "aaa/checked.h"
#include "aaa/result_codes.h"

namespace service {

std::optional<std::string> text_in(const avlist *list, std::uint32_t type) {
    constexpr std::uint32_t kLongest = 16384;
    std::uint32_t length = 0;
    if (list == nullptr ||
        aaa_util_avlist_value_copy(list, type, 0, nullptr, 0, &length) == AAA_ERR_AVPAIR_NOT_FOUND ||
        length > kLongest) {
        return std::nullopt;
    }
    std::string text(length, '\0');
    if (aaa_util_avlist_value_copy(list, type, 0, text.data(), text.size(), &length) != AAA_OK) {
        return std::nullopt;
    }
    // The stored length counts the NUL. A value with more bytes after it is not a text: one
    // reader would see another user name than the next.
    const std::size_t end = std::strlen(text.c_str());
    if (end + 1 < length) {
        explicit_bzero(text.data(), text.size());
        return std::nullopt;
    }
    text.resize(end);
    return text;
}

std::optional<Secret> secret_in(const avlist *list, std::uint32_t type) {
    auto text = text_in(list, type);
    if (!text) {
        return std::nullopt;
    }
    Secret secret{*text};
    explicit_bzero(text->data(), text->size());
    return secret;
}

std::optional<std::uint32_t> number_in(const avlist *list, std::uint32_t type) {
    std::uint32_t number = 0;
    std::uint32_t length = 0;
    if (list == nullptr ||
        aaa_util_avlist_value_copy(list, type, 0, &number, sizeof number, &length) != AAA_OK ||
        length != sizeof number) {
        return std::nullopt;
    }
    return number;
}

}  // namespace service
