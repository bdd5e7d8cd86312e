// SPDX-License-Identifier: Apache-2.0
//
// JSON of the control socket: a writer of one line, and a reader of flat objects. Requests
// need no more, and a reader that can nothing else has little to go wrong.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace service {

// Writes members and elements in the order of the calls. A text may hold any bytes: what is no
// UTF-8 becomes U+FFFD.
class JsonWriter {
  public:
    JsonWriter &begin(std::string_view name = {});  // an object, as a member or an element
    JsonWriter &end();
    JsonWriter &begin_array(std::string_view name);
    JsonWriter &end_array();
    JsonWriter &text(std::string_view name, std::string_view value);
    JsonWriter &number(std::string_view name, std::int64_t value);
    JsonWriter &truth(std::string_view name, bool value);

    // The document, with a line feed.
    std::string line() const { return out_ + "\n"; }

  private:
    void name(std::string_view name);
    void quoted(std::string_view value);

    std::string out_;
    bool needs_comma_ = false;
};

// The text as the writer shows it: valid UTF-8.
std::string as_utf8(std::string_view bytes);

using JsonScalar = std::variant<bool, std::uint64_t, std::string>;
struct JsonMember {
    std::string name;
    JsonScalar value;
};

// Reads an object whose members are texts, natural numbers and truth values. Without a result
// `error` says what is wrong, without quoting.
std::optional<std::vector<JsonMember>> read_flat_object(std::string_view text, std::string &error);

}  // namespace service
