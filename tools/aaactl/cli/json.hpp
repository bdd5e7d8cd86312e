// SPDX-License-Identifier: Apache-2.0
//
// JSON documents: values that commands build, print and read. Only json.cc
// includes the JSON library, whose headers take longer to compile than most
// commands.

#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace aaactl {

// A null, a truth value, a number, a string, an array or an object, whose members keep their order.
class Json {
  public:
    struct Member;

    Json(std::nullptr_t = nullptr);
    Json(bool value);
    Json(int32_t value);
    Json(int64_t value);
    Json(uint32_t value);
    Json(uint64_t value);
    Json(double value);
    Json(const char *text);
    Json(std::string text);
    Json(std::string_view text);
    Json(std::initializer_list<Member> members);  // an object
    template <typename T>
    Json(const std::vector<T> &values) : Json(array()) {
        for (const T &value : values) {
            push_back(value);
        }
    }
    Json(const Json &other);
    Json(Json &&other) noexcept;
    Json &operator=(const Json &other);
    Json &operator=(Json &&other) noexcept;
    ~Json();

    static Json array(std::vector<Json> elements = {});
    static Json object();
    // Failure(bad_input) says where the text is malformed or nested too deeply, without quoting it.
    static Json parse(std::string_view text);
    // In one line, or indented by so many blanks a level. Malformed UTF-8 is replaced; characters
    // that a reader would not see are \u escapes.
    std::string dump(int indent = -1) const;

    bool is_null() const;
    bool is_string() const;
    bool is_natural() const;  // an integer of at least 0
    bool is_integer() const;
    bool is_array() const;
    bool is_object() const;

    // The value, which must be of that type.
    const std::string &text() const;
    uint64_t natural() const;
    const std::vector<Json> &elements() const;
    const std::vector<Member> &members() const;

    // Appends and returns the element. A null becomes an array.
    Json &push_back(Json value);

    bool contains(std::string_view name) const;  // false for what is not an object
    // The member, which is appended if there is none. A null becomes an object.
    Json &operator[](std::string_view name);
    // The member, or null.
    const Json &operator[](std::string_view name) const;
    void erase(std::string_view name);
    // Sets every member of another object.
    void update(const Json &other);

    bool operator==(const Json &other) const;

  private:
    friend struct JsonPrinter;
    const Json *find(std::string_view name) const;  // null if there is none

    // Integers of at least 0 are uint64_t.
    std::variant<std::monostate, bool, int64_t, uint64_t, double, std::string, std::vector<Json>,
                 std::vector<Member>>
        value_;
};

struct Json::Member {
    std::string name;
    Json value;

    bool operator==(const Member &other) const = default;
};

}  // namespace aaactl
