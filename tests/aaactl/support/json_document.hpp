// SPDX-License-Identifier: Apache-2.0
//
// JSON that aaactl printed, read with a library's parser and not with aaactl's own
// functions. Only json_document.cc includes the library, whose headers would take
// most of the time to compile each test.

#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <ostream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace aaactl_test {

// A value of a document. It keeps the whole document alive; copies share it.
class JsonDocument {
  public:
    // Malformed text gives a value that is not valid(); so does what is missing in another value.
    static JsonDocument parse(std::string_view text);

    bool valid() const;
    bool is_null() const;
    bool is_object() const;
    bool is_structured() const;  // an object or an array

    // Members keep their order.
    JsonDocument operator[](std::string_view name) const;
    JsonDocument operator[](const char *name) const { return (*this)[std::string_view(name)]; }
    JsonDocument operator[](std::size_t index) const;
    JsonDocument operator[](int index) const { return (*this)[static_cast<std::size_t>(index)]; }
    JsonDocument back() const;
    bool contains(std::string_view name) const;
    std::size_t size() const;
    bool empty() const { return size() == 0; }
    // Elements with the name of the member, or an empty name in an array.
    std::vector<std::pair<std::string, JsonDocument>> items() const;

    // Fail the test, and return an empty or false value, when the value is of another type.
    std::string text() const;
    bool truth() const;
    std::uint64_t number() const;  // of an integer of at least 0

    std::string dump(int indent = -1) const;

    bool operator==(const JsonDocument &other) const;
    bool operator==(std::nullptr_t) const { return is_null(); }
    bool operator==(std::string_view text) const;
    bool operator==(const char *text) const { return *this == std::string_view(text); }
    template <std::integral T>
    bool operator==(T value) const {
        if constexpr (std::same_as<T, bool>) {
            return equals(value);
        } else if constexpr (std::signed_integral<T>) {
            return equals(static_cast<std::int64_t>(value));
        } else {
            return equals(static_cast<std::uint64_t>(value));
        }
    }

    class Iterator {
      public:
        Iterator(const JsonDocument &document, std::size_t index) : document_(&document), index_(index) {}
        JsonDocument operator*() const { return document_->at(index_); }
        Iterator &operator++() {
            ++index_;
            return *this;
        }
        bool operator!=(const Iterator &other) const { return index_ != other.index_; }

      private:
        const JsonDocument *document_;
        std::size_t index_;
    };
    Iterator begin() const { return {*this, 0}; }
    Iterator end() const { return {*this, size()}; }

  private:
    struct Value;
    explicit JsonDocument(std::shared_ptr<const Value> value) : value_(std::move(value)) {}
    JsonDocument at(std::size_t index) const;  // a member's value or an element
    bool equals(bool value) const;
    bool equals(std::int64_t value) const;
    bool equals(std::uint64_t value) const;

    std::shared_ptr<const Value> value_;  // null when it is missing
};

inline std::ostream &operator<<(std::ostream &out, const JsonDocument &document) {
    return out << document.dump();
}

}  // namespace aaactl_test
