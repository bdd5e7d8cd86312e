// SPDX-License-Identifier: Apache-2.0
//
// Words come from the library's print functions; numbers are found by searching those words.

#include "dictionary/enum_words.hpp"

#include <charconv>

#include "aaa/names.h"

namespace aaactl {
namespace {

constexpr uint32_t kLastService = AAA_SVC_MGBL_ACCT;
constexpr uint32_t kLastMethod = AAA_METHOD_SYSLOG;

// For a number without a name the library prints a text in angle brackets.
bool is_name(std::string_view text) {
    return !text.empty() && !text.starts_with('<');
}

std::string_view service_text(uint32_t service) {
    return aaa_print_service(static_cast<int32_t>(service));
}

// A whole text as a decimal number.
std::optional<uint32_t> decimal(std::string_view text) {
    uint32_t number = 0;
    const char *end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && stop == end ? std::optional(number) : std::nullopt;
}

}  // namespace

std::optional<uint32_t> service_number(std::string_view word) {
    for (uint32_t service = 1; service <= kLastService; ++service) {
        if (is_name(service_text(service)) && service_text(service) == word) {
            return service;
        }
    }
    const auto number = decimal(word);
    return number && *number >= 1 && *number <= kLastService ? number : std::nullopt;
}

std::string service_name(uint32_t service) {
    const std::string_view text = service_text(service);
    return is_name(text) ? std::string(text) : "service " + std::to_string(service);
}

const std::vector<std::string> &service_names() {
    static const std::vector<std::string> names = [] {
        std::vector<std::string> all;
        for (uint32_t service = 1; service <= kLastService; ++service) {
            if (is_name(service_text(service))) {
                all.emplace_back(service_text(service));
            }
        }
        return all;
    }();
    return names;
}

std::optional<uint32_t> function_number(std::string_view word) {
    for (uint32_t function = AAA_FUNC_AUTHEN; function <= AAA_FUNC_ACCT; ++function) {
        if (word == aaa_function_to_string(function)) {
            return function;
        }
    }
    return std::nullopt;
}

std::string method_word(uint32_t method) {
    const std::string_view text = aaa_util_print_method(method);
    return is_name(text) ? std::string(text) : "method " + std::to_string(method);
}

std::optional<uint32_t> method_number(std::string_view word) {
    for (uint32_t method = AAA_METHOD_NONE; method <= kLastMethod; ++method) {
        if (is_name(aaa_util_print_method(method)) && word == aaa_util_print_method(method)) {
            return method;
        }
    }
    return decimal(word);
}

std::optional<std::string> status_name(uint32_t status) {
    return status <= AAA_STAT_ABORT ? std::optional<std::string>(aaa_print_status(status)) : std::nullopt;
}

}  // namespace aaactl
