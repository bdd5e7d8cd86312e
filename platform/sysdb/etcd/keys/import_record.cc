// SPDX-License-Identifier: Apache-2.0

#include "keys/import_record.hpp"

#include <sys/random.h>
#include <unistd.h>

#include <ctime>

#include <nlohmann/json.hpp>

namespace sysdb_etcd {
namespace {

using Json = nlohmann::json;

constexpr std::size_t kLongest = 64;

std::string text_in(const Json &json, const char *name) {
    const auto found = json.find(name);
    return found != json.end() && found->is_string() ? found->get<std::string>().substr(0, kLongest) : "";
}

}  // namespace

std::string text_of(const ImportRecord &record) {
    return Json{{"node", record.node},
                {"machine", record.machine},
                {"attempt", record.attempt},
                {"time", record.time},
                {"complete", record.complete}}
        .dump(-1, ' ', true, Json::error_handler_t::replace);
}

bool parse_import_record(std::string_view text, ImportRecord &record) {
    const Json json = Json::parse(text, nullptr, false);
    if (!json.is_object()) {
        return false;
    }
    record.node = text_in(json, "node");
    record.machine = text_in(json, "machine");
    record.attempt = text_in(json, "attempt");
    const auto time = json.find("time");
    record.time = time != json.end() && time->is_number_unsigned() ? time->get<std::int64_t>() : 0;
    const auto complete = json.find("complete");
    record.complete = complete != json.end() && complete->is_boolean() && complete->get<bool>();
    return !record.node.empty();
}

std::string random_name() {
    std::uint64_t number = 0;
    if (getrandom(&number, sizeof number, 0) != static_cast<ssize_t>(sizeof number)) {
        number = static_cast<std::uint64_t>(std::time(nullptr)) << 22U ^ static_cast<std::uint64_t>(getpid());
    }
    return std::to_string(number);
}

}  // namespace sysdb_etcd
