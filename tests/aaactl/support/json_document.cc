// SPDX-License-Identifier: Apache-2.0
//
// JsonDocument in terms of the JSON library.

#include "aaactl/support/json_document.hpp"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

namespace aaactl_test {

using Json = nlohmann::ordered_json;

struct JsonDocument::Value {
    std::shared_ptr<const Json> document;
    const Json *json;

    static std::shared_ptr<const Value> of(std::shared_ptr<const Json> document, const Json *json) {
        return std::make_shared<const Value>(Value{std::move(document), json});
    }
};

JsonDocument JsonDocument::parse(std::string_view text) {
    auto document = std::make_shared<const Json>(Json::parse(text, nullptr, false));
    const Json *json = document.get();
    return JsonDocument(json->is_discarded() ? nullptr : Value::of(std::move(document), json));
}

bool JsonDocument::valid() const {
    return value_ != nullptr;
}

bool JsonDocument::is_null() const {
    return valid() && value_->json->is_null();
}

bool JsonDocument::is_object() const {
    return valid() && value_->json->is_object();
}

bool JsonDocument::is_structured() const {
    return valid() && value_->json->is_structured();
}

JsonDocument JsonDocument::operator[](std::string_view name) const {
    if (!contains(name)) {
        return JsonDocument(nullptr);
    }
    return JsonDocument(Value::of(value_->document, &(*value_->json)[std::string(name)]));
}

JsonDocument JsonDocument::operator[](std::size_t index) const {
    const bool exists = valid() && value_->json->is_array() && index < size();
    return JsonDocument(exists ? Value::of(value_->document, &(*value_->json)[index]) : nullptr);
}

JsonDocument JsonDocument::back() const {
    return empty() ? JsonDocument(nullptr) : at(size() - 1);
}

JsonDocument JsonDocument::at(std::size_t index) const {
    const auto place = std::next(value_->json->begin(), static_cast<std::ptrdiff_t>(index));
    return JsonDocument(Value::of(value_->document, &*place));
}

bool JsonDocument::contains(std::string_view name) const {
    return is_object() && value_->json->contains(std::string(name));
}

std::size_t JsonDocument::size() const {
    return is_structured() ? value_->json->size() : 0;
}

std::vector<std::pair<std::string, JsonDocument>> JsonDocument::items() const {
    std::vector<std::pair<std::string, JsonDocument>> all;
    if (is_structured()) {
        for (const auto &item : value_->json->items()) {
            all.emplace_back(is_object() ? item.key() : "",
                             JsonDocument(Value::of(value_->document, &item.value())));
        }
    }
    return all;
}

std::string JsonDocument::text() const {
    const bool is_text = valid() && value_->json->is_string();
    EXPECT_TRUE(is_text) << "not a string: " << dump();
    return is_text ? value_->json->get<std::string>() : "";
}

bool JsonDocument::truth() const {
    const bool is_truth = valid() && value_->json->is_boolean();
    EXPECT_TRUE(is_truth) << "not true or false: " << dump();
    return is_truth && value_->json->get<bool>();
}

std::uint64_t JsonDocument::number() const {
    const bool is_number = valid() && value_->json->is_number_unsigned();
    EXPECT_TRUE(is_number) << "not an integer of at least 0: " << dump();
    return is_number ? value_->json->get<std::uint64_t>() : 0;
}

std::string JsonDocument::dump(int indent) const {
    return valid() ? value_->json->dump(indent) : "(missing)";
}

bool JsonDocument::operator==(const JsonDocument &other) const {
    return valid() && other.valid() && *value_->json == *other.value_->json;
}

bool JsonDocument::operator==(std::string_view text) const {
    return valid() && *value_->json == text;
}

bool JsonDocument::equals(bool value) const {
    return valid() && *value_->json == value;
}

bool JsonDocument::equals(std::int64_t value) const {
    return valid() && value_->json->is_number_integer() && *value_->json == value;
}

bool JsonDocument::equals(std::uint64_t value) const {
    return valid() && value_->json->is_number_integer() && *value_->json == value;
}

}  // namespace aaactl_test
