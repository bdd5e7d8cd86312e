// SPDX-License-Identifier: Apache-2.0
//
// A request of the control socket. What the service's reader takes, another reader of JSON
// understands alike, and the other way round as far as requests may go. What the service
// writes of any bytes is one line that the other reader understands.

#include <nlohmann/json.hpp>
#include <string>

#include "control/json.hpp"
#include "control/request.hpp"
#include "fuzz_input.hpp"

namespace {

using nlohmann::json;

bool equals(const service::JsonScalar &value, const json &other) {
    if (const bool *truth = std::get_if<bool>(&value)) {
        return other.is_boolean() && other.get<bool>() == *truth;
    }
    if (const auto *number = std::get_if<std::uint64_t>(&value)) {
        return other.is_number_unsigned() && other.get<std::uint64_t>() == *number;
    }
    return other.is_string() && other.get_ref<const std::string &>() == std::get<std::string>(value);
}

// An object that a request may be. `names` counts those of members, the same ones included.
bool is_flat(const json &document, std::size_t names) {
    constexpr std::uint64_t kNumbersEnd = 1000000000000000000;
    if (!document.is_object() || document.size() > 32 || document.size() != names) {
        return false;
    }
    for (const json &value : document) {
        if (!value.is_boolean() && !value.is_string() &&
            !(value.is_number_unsigned() && value.get<std::uint64_t>() < kNumbersEnd)) {
            return false;
        }
    }
    return true;
}

void read(const std::string &line) {
    std::string error;
    const auto members = service::read_flat_object(line, error);
    REQUIRE(members.has_value() == error.empty());
    std::size_t names = 0;
    const auto count = [&](int, json::parse_event_t event, const json &) {
        names += event == json::parse_event_t::key ? 1 : 0;
        return true;
    };
    const json other = json::parse(line, count, false);
    if (members) {
        REQUIRE(is_flat(other, names) && other.size() == members->size());
        for (const service::JsonMember &member : *members) {
            REQUIRE(other.contains(member.name) && equals(member.value, other[member.name]));
        }
    } else if (!line.starts_with("\xef\xbb\xbf") && line.find('\0') == std::string::npos) {
        // The other reader skips the one, and takes the other for the end.
        REQUIRE(!is_flat(other, names));
    }
}

void understand(const std::string &line) {
    std::string error;
    const auto request = service::read_control_request(line, error);
    REQUIRE(request.has_value() == error.empty());
    if (request) {
        const json other = json::parse(line);
        REQUIRE(other["request"] == service::request_word(request->kind));
        REQUIRE(request->user.has_value() == other.contains("user"));
        REQUIRE(request->live == other.value("live", true));
    }
}

void write(const std::string &bytes) {
    const std::string line = service::JsonWriter().begin().text("text", bytes).end().line();
    REQUIRE(line.find('\n') == line.size() - 1);
    const json other = json::parse(line, nullptr, false);
    REQUIRE(other.is_object() && other["text"] == service::as_utf8(bytes));
    std::string error;
    REQUIRE(service::read_flat_object(line, error).has_value());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    const std::string bytes(reinterpret_cast<const char *>(data), size);
    read(bytes);
    understand(bytes);
    write(bytes);
    return 0;
}
