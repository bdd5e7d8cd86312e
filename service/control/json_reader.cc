// SPDX-License-Identifier: Apache-2.0
//
// A recursive descent without recursion: no value holds another one.

#include <algorithm>
#include <utility>

#include "control/json.hpp"
#include "control/utf8.hpp"

namespace service {

namespace {

constexpr std::size_t kMostMembers = 32;

class Reader {
  public:
    Reader(std::string_view text, std::string &error) : all_(text), rest_(text), error_(error) {}

    std::optional<std::vector<JsonMember>> object();

  private:
    bool fail(const char *why) {
        if (error_.empty()) {
            error_ = std::string(why) + " at byte " + std::to_string(all_.size() - rest_.size() + 1);
        }
        return false;
    }
    void skip_blanks() { rest_.remove_prefix(std::min(rest_.find_first_not_of(" \t\r\n"), rest_.size())); }
    bool take(std::string_view word) {
        if (!rest_.starts_with(word)) {
            return false;
        }
        rest_.remove_prefix(word.size());
        return true;
    }
    bool text(std::string &out);
    bool escape(std::string &out);
    bool code_unit(unsigned &out);
    bool number(std::uint64_t &out);
    bool value(JsonScalar &out);
    bool member(std::vector<JsonMember> &members);

    std::string_view all_, rest_;
    std::string &error_;
};

void append_utf8(std::string &out, unsigned point) {
    if (point < 0x80) {
        out += static_cast<char>(point);
        return;
    }
    if (point < 0x800) {
        out += static_cast<char>(0xc0 | point >> 6);
    } else {
        if (point < 0x10000) {
            out += static_cast<char>(0xe0 | point >> 12);
        } else {
            out += static_cast<char>(0xf0 | point >> 18);
            out += static_cast<char>(0x80 | (point >> 12 & 0x3f));
        }
        out += static_cast<char>(0x80 | (point >> 6 & 0x3f));
    }
    out += static_cast<char>(0x80 | (point & 0x3f));
}

bool Reader::code_unit(unsigned &out) {
    out = 0;
    if (rest_.size() < 4) {
        return fail("an escape is cut");
    }
    for (const char c : rest_.substr(0, 4)) {
        const unsigned digit = c >= '0' && c <= '9'   ? static_cast<unsigned>(c - '0')
                               : c >= 'a' && c <= 'f' ? static_cast<unsigned>(c - 'a' + 10)
                               : c >= 'A' && c <= 'F' ? static_cast<unsigned>(c - 'A' + 10)
                                                      : 16;
        if (digit > 15) {
            return fail("an escape has no four hexadecimal digits");
        }
        out = out * 16 + digit;
    }
    rest_.remove_prefix(4);
    return true;
}

bool Reader::escape(std::string &out) {
    constexpr std::string_view kLetters = "\"\\/bfnrt";
    constexpr std::string_view kMeant = "\"\\/\b\f\n\r\t";
    if (rest_.empty()) {
        return fail("an escape is cut");
    }
    const char letter = rest_.front();
    if (const std::size_t at = kLetters.find(letter); at != std::string_view::npos) {
        rest_.remove_prefix(1);
        out += kMeant[at];
        return true;
    }
    unsigned point = 0;
    if (!take("u")) {
        return fail("there is no such escape");
    }
    if (!code_unit(point)) {
        return false;
    }
    if (point >= 0xd800 && point < 0xdc00) {
        unsigned low = 0;
        if (!take("\\u") || !code_unit(low) || low < 0xdc00 || low >= 0xe000) {
            return fail("half of a surrogate pair is missing");
        }
        point = 0x10000 + ((point - 0xd800) << 10) + (low - 0xdc00);
    } else if (point >= 0xdc00 && point < 0xe000) {
        return fail("half of a surrogate pair is missing");
    }
    append_utf8(out, point);
    return true;
}

bool Reader::text(std::string &out) {
    out.clear();
    while (!rest_.empty()) {
        if (take("\"")) {
            return true;
        }
        if (take("\\")) {
            if (!escape(out)) {
                return false;
            }
            continue;
        }
        const std::size_t length = utf8_length(rest_);
        if (length == 0) {
            return fail("a text is not UTF-8");
        }
        if (static_cast<unsigned char>(rest_.front()) < 0x20) {
            return fail("a text has a control character");
        }
        out += rest_.substr(0, length);
        rest_.remove_prefix(length);
    }
    return fail("a text has no end");
}

bool Reader::number(std::uint64_t &out) {
    const std::size_t digits = std::min(rest_.find_first_not_of("0123456789"), rest_.size());
    constexpr std::size_t kMostDigits = 18;
    if (digits == 0 || digits > kMostDigits || (digits > 1 && rest_.front() == '0')) {
        return fail("no natural number of at most 18 digits");
    }
    out = 0;
    for (const char c : rest_.substr(0, digits)) {
        out = out * 10 + static_cast<std::uint64_t>(c - '0');
    }
    rest_.remove_prefix(digits);
    return true;
}

bool Reader::value(JsonScalar &out) {
    if (take("true")) {
        out = true;
        return true;
    }
    if (take("false")) {
        out = false;
        return true;
    }
    if (take("\"")) {
        return text(out.emplace<std::string>());
    }
    if (!rest_.empty() && rest_.front() >= '0' && rest_.front() <= '9') {
        return number(out.emplace<std::uint64_t>());
    }
    return fail("a value is no text, natural number, true or false");
}

bool Reader::member(std::vector<JsonMember> &members) {
    JsonMember next;
    skip_blanks();
    if (!take("\"") || !text(next.name)) {
        return fail("the name of a member is missing");
    }
    const auto is_it = [&](const JsonMember &each) { return each.name == next.name; };
    if (members.size() == kMostMembers || std::any_of(members.begin(), members.end(), is_it)) {
        return fail("a member is there twice, or there are more than 32");
    }
    skip_blanks();
    if (!take(":")) {
        return fail("a colon is missing");
    }
    skip_blanks();
    if (!value(next.value)) {
        return false;
    }
    members.push_back(std::move(next));
    return true;
}

std::optional<std::vector<JsonMember>> Reader::object() {
    std::vector<JsonMember> members;
    skip_blanks();
    if (!take("{")) {
        fail("a JSON object is missing");
        return std::nullopt;
    }
    skip_blanks();
    for (bool is_first = true; !take("}"); is_first = false) {
        if (!is_first && !take(",")) {
            fail("a comma or the end of the object is missing");
            return std::nullopt;
        }
        if (!member(members)) {
            return std::nullopt;
        }
        skip_blanks();
    }
    skip_blanks();
    if (!rest_.empty()) {
        fail("something follows the object");
        return std::nullopt;
    }
    return members;
}

}  // namespace

std::optional<std::vector<JsonMember>> read_flat_object(std::string_view text, std::string &error) {
    error.clear();
    return Reader(text, error).object();
}

}  // namespace service
