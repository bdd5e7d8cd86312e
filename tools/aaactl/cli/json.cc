// SPDX-License-Identifier: Apache-2.0
//
// JSON documents in terms of nlohmann-json, which parses and prints.

#include "cli/json.hpp"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <utility>

#include "cli/hidden_characters.hpp"
#include "cli/output.hpp"

namespace aaactl {
namespace {

using Parser = nlohmann::ordered_json;

// Levels of arrays and objects in a document from outside; aaactl's own have less than ten. Functions that
// walk a document call themselves for each level.
constexpr size_t kMostLevels = 64;

// Line and byte of it, both from 1, at which valid JSON has more levels than it may have.
std::string place_of_depth(std::string_view text) {
    size_t levels = 0;
    size_t line = 1;
    size_t line_start = 0;
    bool quoted = false;
    for (size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (quoted) {
            i += c == '\\' ? 1 : 0;
            quoted = c != '"';
        } else if (c == '"') {
            quoted = true;
        } else if (c == '\n') {
            ++line;
            line_start = i + 1;
        } else if (c == ']' || c == '}') {
            --levels;
        } else if ((c == '[' || c == '{') && ++levels > kMostLevels) {
            return "line " + std::to_string(line) + ", byte " + std::to_string(i + 1 - line_start);
        }
    }
    return "end";
}

// The code point as JSON's own escapes.
std::string json_escape(uint32_t code_point) {
    const auto unit = [](uint32_t value) {
        const char bytes[] = {static_cast<char>(value >> 8), static_cast<char>(value)};
        return "\\u" + hex({bytes, sizeof bytes});
    };
    if (code_point < 0x10000) {
        return unit(code_point);
    }
    const uint32_t rest = code_point - 0x10000;
    return unit(0xd800 + (rest >> 10)) + unit(0xdc00 + (rest & 0x3ff));
}

// Printed JSON has characters beyond ASCII in strings only.
std::string with_hidden_escaped(const std::string &json) {
    std::string text;
    text.reserve(json.size());
    for (size_t i = 0; i < json.size();) {
        const CodePoint at = first_code_point(std::string_view(json).substr(i));
        const size_t length = std::max<size_t>(at.length, 1);  // the printer leaves nothing malformed
        if (at.value == 0x7f || (at.value >= 0x80 && is_hidden(at.value))) {
            text += json_escape(at.value);
        } else {
            text.append(json, i, length);
        }
        i += length;
    }
    return text;
}

// Builds a document from the parser's events.
class Builder : public nlohmann::json_sax<Parser> {
  public:
    explicit Builder(std::string_view text) : text_(text) {}
    Json take() { return std::move(root_); }

    bool null() override { return add(nullptr); }
    bool boolean(bool value) override { return add(value); }
    bool number_integer(int64_t value) override { return add(value); }
    bool number_unsigned(uint64_t value) override { return add(value); }
    bool number_float(double value, const std::string &) override { return add(value); }
    bool string(std::string &value) override { return add(std::move(value)); }
    bool binary(Parser::binary_t &) override { return false; }  // not in JSON text
    bool start_object(size_t) override { return open(Json::object()); }
    bool start_array(size_t) override { return open(Json::array()); }
    bool end_object() override { return close(); }
    bool end_array() override { return close(); }
    bool key(std::string &name) override {
        name_ = std::move(name);
        return true;
    }
    // The parser's own message quotes what it has read, which may be a secret.
    bool parse_error(size_t position, const std::string &, const Parser::exception &error) override {
        const bool too_large = dynamic_cast<const Parser::out_of_range *>(&error) != nullptr;
        throw Failure(ExitCode::bad_input, too_large ? std::string("malformed JSON: a number is too large")
                                                     : "malformed JSON at byte " + std::to_string(position));
    }

  private:
    Json &place(Json value) {
        Json &target = open_.empty()               ? root_
                       : open_.back()->is_object() ? (*open_.back())[name_]
                                                   : open_.back()->push_back(nullptr);
        return target = std::move(value);
    }
    bool add(Json value) {
        place(std::move(value));
        return true;
    }
    bool open(Json value) {
        if (open_.size() == kMostLevels) {
            throw Failure(ExitCode::bad_input, "malformed JSON at " + place_of_depth(text_) + ": more than " +
                                                   std::to_string(kMostLevels) +
                                                   " levels of arrays and objects");
        }
        open_.push_back(&place(std::move(value)));
        return true;
    }
    bool close() {
        open_.pop_back();
        return true;
    }

    std::string_view text_;
    Json root_;
    std::vector<Json *> open_;  // what is begun and not ended, outermost first
    std::string name_;          // of the member that follows
};

const Json kNull;

}  // namespace

struct JsonPrinter {
    Parser operator()(const Json &document) const { return std::visit(*this, document.value_); }
    Parser operator()(std::monostate) const { return nullptr; }
    template <typename T>
    Parser operator()(const T &value) const {
        return value;
    }
    Parser operator()(const std::vector<Json> &elements) const {
        Parser array = Parser::array();
        for (const Json &element : elements) {
            array.push_back((*this)(element));
        }
        return array;
    }
    Parser operator()(const std::vector<Json::Member> &members) const {
        Parser object = Parser::object();
        for (const Json::Member &member : members) {
            object.emplace(member.name, (*this)(member.value));
        }
        return object;
    }
};

Json::Json(std::nullptr_t) {}

Json::Json(bool value) : value_(value) {}

Json::Json(int32_t value) : Json(int64_t{value}) {}

Json::Json(int64_t value) {
    if (value < 0) {
        value_ = value;
    } else {
        value_ = static_cast<uint64_t>(value);
    }
}

Json::Json(uint32_t value) : value_(uint64_t{value}) {}

Json::Json(uint64_t value) : value_(value) {}

Json::Json(double value) : value_(value) {}

Json::Json(const char *text) : value_(std::string(text)) {}

Json::Json(std::string text) : value_(std::move(text)) {}

Json::Json(std::string_view text) : value_(std::string(text)) {}

Json::Json(std::initializer_list<Member> members) : value_(std::vector<Member>(members)) {}

Json::Json(const Json &other) = default;

Json::Json(Json &&other) noexcept : value_(std::exchange(other.value_, std::monostate())) {}

Json &Json::operator=(const Json &other) = default;

Json &Json::operator=(Json &&other) noexcept {
    std::swap(value_, other.value_);
    return *this;
}

Json::~Json() = default;

Json Json::array(std::vector<Json> elements) {
    Json made;
    made.value_ = std::move(elements);
    return made;
}

Json Json::object() {
    return std::initializer_list<Member>{};
}

Json Json::parse(std::string_view text) {
    Builder builder(text);
    Parser::sax_parse(text, &builder);
    return builder.take();
}

std::string Json::dump(int indent) const {
    return with_hidden_escaped(
        JsonPrinter()(*this).dump(indent, ' ', false, Parser::error_handler_t::replace));
}

bool Json::is_null() const {
    return std::holds_alternative<std::monostate>(value_);
}

bool Json::is_string() const {
    return std::holds_alternative<std::string>(value_);
}

bool Json::is_natural() const {
    return std::holds_alternative<uint64_t>(value_);
}

bool Json::is_integer() const {
    return is_natural() || std::holds_alternative<int64_t>(value_);
}

bool Json::is_array() const {
    return std::holds_alternative<std::vector<Json>>(value_);
}

bool Json::is_object() const {
    return std::holds_alternative<std::vector<Member>>(value_);
}

const std::string &Json::text() const {
    return std::get<std::string>(value_);
}

uint64_t Json::natural() const {
    return std::get<uint64_t>(value_);
}

const std::vector<Json> &Json::elements() const {
    return std::get<std::vector<Json>>(value_);
}

const std::vector<Json::Member> &Json::members() const {
    return std::get<std::vector<Member>>(value_);
}

Json &Json::push_back(Json value) {
    if (is_null()) {
        *this = array();
    }
    return std::get<std::vector<Json>>(value_).emplace_back(std::move(value));
}

const Json *Json::find(std::string_view name) const {
    const auto *all = std::get_if<std::vector<Member>>(&value_);
    if (all == nullptr) {
        return nullptr;
    }
    const auto found =
        std::find_if(all->begin(), all->end(), [&](const Member &member) { return member.name == name; });
    return found != all->end() ? &found->value : nullptr;
}

bool Json::contains(std::string_view name) const {
    return find(name) != nullptr;
}

Json &Json::operator[](std::string_view name) {
    if (is_null()) {
        *this = object();
    }
    auto &all = std::get<std::vector<Member>>(value_);
    const auto found =
        std::find_if(all.begin(), all.end(), [&](const Member &member) { return member.name == name; });
    return found != all.end() ? found->value : all.emplace_back(Member{std::string(name), {}}).value;
}

const Json &Json::operator[](std::string_view name) const {
    const Json *member = find(name);
    return member != nullptr ? *member : kNull;
}

void Json::erase(std::string_view name) {
    std::erase_if(std::get<std::vector<Member>>(value_),
                  [&](const Member &member) { return member.name == name; });
}

void Json::update(const Json &other) {
    for (const Member &member : other.members()) {
        (*this)[member.name] = member.value;
    }
}

bool Json::operator==(const Json &other) const {
    return value_ == other.value_;
}

}  // namespace aaactl
