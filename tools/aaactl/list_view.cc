// SPDX-License-Identifier: Apache-2.0

#include "list_view.hpp"

#include <cstring>
#include <functional>
#include <nlohmann/json.hpp>

#include "aaa/dictionary.h"
#include "aaa/result_codes.h"

namespace aaactl {
namespace {

struct Attribute {
    uint32_t type;
    std::string name; // of the type, or its number
    uint32_t format;
    std::string bytes;
};

std::string name_of(uint32_t type) {
    const char *name = type > 0 && type < AAA_ATTR_MAX ? aaa_attribute_pname(static_cast<int32_t>(type)) : nullptr;
    return name != nullptr ? name : std::to_string(type);
}

bool is_secret_name(const std::string &name) {
    for (const char *word : {"PASSW", "PASSWD", "_PW", "_PWD", "SECRET", "KEY", "CHAP", "RESP"}) {
        if (name.find(word) != std::string::npos) {
            return true;
        }
    }
    return false;
}

void each_attribute(const avlist *list, const std::function<void(const Attribute &)> &visit) {
    avpair_t *pair = nullptr;
    aaa_avpair_iterator_t it{};
    if (list == nullptr) {
        return;
    }
    for (cerrno rc = aaa_avpair_iterator_init(&it, list, &pair); rc == AAA_OK; rc = aaa_avpair_iterator_get_next(&it, &pair)) {
        const auto *value = reinterpret_cast<const char *>(pair + 1);
        visit({pair->av_type, name_of(pair->av_type), aaa_attribute_format(static_cast<int32_t>(pair->av_type)),
               std::string(value, pair->av_len)});
    }
}

bool is_number(const Attribute &attribute) {
    return attribute.format == AAA_FORMAT_INTEGER && attribute.bytes.size() == sizeof(uint32_t);
}

uint32_t number_of_bytes(const std::string &bytes) {
    uint32_t number = 0;
    std::memcpy(&number, bytes.data(), sizeof number);
    return number;
}

std::string text_without_nul(const std::string &bytes) {
    return bytes.ends_with('\0') ? bytes.substr(0, bytes.size() - 1) : bytes;
}

std::string shown(const Output &out, const Attribute &attribute) {
    if (is_secret_name(attribute.name) && !out.show_secrets()) {
        return out.secret(attribute.bytes);
    }
    if (is_number(attribute)) {
        return std::to_string(number_of_bytes(attribute.bytes));
    }
    return attribute.format == AAA_FORMAT_STRING ? '"' + escaped(text_without_nul(attribute.bytes)) + '"' : hex(attribute.bytes);
}

} // namespace

Json attributes_json(const Output &out, const avlist *list) {
    Json all = Json::array();
    each_attribute(list, [&](const Attribute &attribute) {
        Json one = {{"type", attribute.type}, {"attribute", attribute.name}};
        if (is_secret_name(attribute.name) && !out.show_secrets()) {
            one["masked"] = true;
        } else if (is_number(attribute)) {
            one["number"] = number_of_bytes(attribute.bytes);
        } else if (attribute.format == AAA_FORMAT_STRING) {
            one["text"] = escaped(text_without_nul(attribute.bytes));
        } else {
            one["hex"] = hex(attribute.bytes);
        }
        all.push_back(std::move(one));
    });
    return all;
}

void print_attributes(Output &out, const avlist *list) {
    std::vector<std::vector<std::string>> rows;
    each_attribute(list, [&](const Attribute &attribute) { rows.push_back({"  " + attribute.name, shown(out, attribute)}); });
    out.table({}, rows);
}

} // namespace aaactl
