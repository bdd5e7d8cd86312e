// SPDX-License-Identifier: Apache-2.0

#include "store/record.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <functional>
#include <limits>
#include <map>
#include <string_view>
#include <type_traits>

namespace history {

namespace {

constexpr char kForm[] = "1";
// What numbers are taken: every sum and product of some of them fits 64 bits.
constexpr std::int64_t kMostSeconds = std::int64_t{1} << 40;
constexpr std::int64_t kMostMilliseconds = std::int64_t{1} << 50;
constexpr std::int64_t kMostBytes = std::int64_t{1} << 50;
constexpr std::int64_t kMostMinutes = std::int64_t{1} << 20;
constexpr std::array kKinds{"commit", "outside", "load", "edit", "rollback", "revert"};
constexpr std::array kEndings{"", "waiting", "confirmed", "reverted"};

std::string escaped(std::string_view text) {
    constexpr char kDigits[] = "0123456789abcdef";
    std::string out;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '\\') {
            out += "\\\\";
        } else if (c == '\n') {
            out += "\\n";
        } else if (c == '\t') {
            out += "\\t";
        } else if (byte < ' ' || byte == 0x7f) {
            out += {'\\', 'x', kDigits[byte >> 4], kDigits[byte & 15]};
        } else {
            out.push_back(c);
        }
    }
    return out;
}

std::string unescaped(std::string_view text) {
    std::string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\\' || i + 1 == text.size()) {
            out.push_back(text[i]);
            continue;
        }
        const char c = text[++i];
        unsigned byte = 0;
        if (c == 'x' && i + 2 < text.size() &&
            std::from_chars(text.data() + i + 1, text.data() + i + 3, byte, 16).ec == std::errc()) {
            out.push_back(static_cast<char>(byte));
            i += 2;
        } else {
            out.push_back(c == 'n' ? '\n' : c == 't' ? '\t' : c);
        }
    }
    return out;
}

class Writer {
  public:
    // Empty texts and zeros are what a reader assumes.
    void text(const char *name, const std::string &value) {
        if (!value.empty()) {
            out_ += std::string(name) + " " + escaped(value) + "\n";
        }
    }
    void number(const char *name, std::int64_t value) {
        if (value != 0) {
            text(name, std::to_string(value));
        }
    }
    std::string take() { return std::move(out_); }

  private:
    std::string out_ = std::string("form ") + kForm + "\n";
};

class Reader {
  public:
    explicit Reader(std::string_view text) {
        while (!text.empty()) {
            const std::string_view line = text.substr(0, text.find('\n'));
            text.remove_prefix(std::min(line.size() + 1, text.size()));
            const std::size_t blank = line.find(' ');
            if (blank != std::string_view::npos) {
                values_[std::string(line.substr(0, blank))] = unescaped(line.substr(blank + 1));
            }
        }
        good_ = text_of("form") == kForm;
    }

    bool good() const { return good_; }

    void text(const char *name, std::string &value) const { value = text_of(name); }
    template <typename Number>
    void number(const char *name, Number &value, std::int64_t most = std::numeric_limits<Number>::max()) {
        const std::string found = text_of(name);
        if (found.empty()) {
            return;
        }
        std::int64_t read = 0;
        const auto [stop, error] = std::from_chars(found.data(), found.data() + found.size(), read);
        const std::int64_t least = std::is_signed_v<Number> ? -most : 0;
        good_ = good_ && error == std::errc() && stop == found.data() + found.size() && read >= least &&
                read <= most;
        value = good_ ? static_cast<Number>(read) : Number{};
    }
    template <typename Enum, std::size_t N>
    void word(const char *name, const std::array<const char *, N> &words, Enum &value) {
        const auto found = std::find(words.begin(), words.end(), text_of(name));
        good_ = good_ && found != words.end();
        value = good_ ? static_cast<Enum>(found - words.begin()) : Enum{};
    }

  private:
    std::string text_of(const char *name) const {
        const auto found = values_.find(name);
        return found != values_.end() ? found->second : "";
    }

    std::map<std::string, std::string> values_;
    bool good_ = false;
};

}  // namespace

const char *word_of(Kind kind) {
    return kKinds[static_cast<std::size_t>(kind)];
}

const char *word_of(Ending ending) {
    return kEndings[static_cast<std::size_t>(ending)];
}

std::string text_of(const Commit &commit) {
    Writer out;
    out.number("number", commit.number);
    out.number("time", commit.time);
    out.text("kind", word_of(commit.kind));
    out.text("label", commit.label);
    out.text("message", commit.message);
    out.number("uid", commit.author.uid);
    out.text("user", commit.author.user);
    out.text("login", commit.author.login);
    out.text("from", commit.author.from);
    out.text("terminal", commit.author.terminal);
    out.number("target", commit.target);
    out.number("minutes", commit.minutes);
    out.text("ending", word_of(commit.ending));
    out.text("ended-by", commit.ended_by);
    out.number("ended", commit.ended);
    out.number("items", static_cast<std::int64_t>(commit.items));
    out.number("left-out", static_cast<std::int64_t>(commit.left_out));
    out.number("plain-bytes", static_cast<std::int64_t>(commit.plain_bytes));
    out.number("bytes", static_cast<std::int64_t>(commit.bytes));
    out.number("parts", commit.parts);
    return out.take();
}

std::optional<Commit> commit_from(const std::string &text) {
    Reader in(text);
    Commit commit;
    in.number("number", commit.number);
    in.number("time", commit.time, kMostSeconds);
    in.word("kind", kKinds, commit.kind);
    in.text("label", commit.label);
    in.text("message", commit.message);
    in.number("uid", commit.author.uid);
    in.text("user", commit.author.user);
    in.text("login", commit.author.login);
    in.text("from", commit.author.from);
    in.text("terminal", commit.author.terminal);
    in.number("target", commit.target);
    in.number("minutes", commit.minutes, kMostMinutes);
    in.word("ending", kEndings, commit.ending);
    in.text("ended-by", commit.ended_by);
    in.number("ended", commit.ended, kMostSeconds);
    in.number("items", commit.items, kMostBytes);
    in.number("left-out", commit.left_out, kMostBytes);
    in.number("plain-bytes", commit.plain_bytes, kMostBytes);
    in.number("bytes", commit.bytes, kMostBytes);
    in.number("parts", commit.parts);
    return in.good() && commit.number != 0 ? std::optional(commit) : std::nullopt;
}

std::string text_of(const Head &head) {
    Writer out;
    out.number("last", head.last);
    if (head.waiting) {
        out.number("waiting", head.waiting->commit);
        out.number("base", head.waiting->base);
        out.number("minutes", head.waiting->deadline.minutes);
        out.text("machine", head.waiting->deadline.machine);
        out.text("boot", head.waiting->deadline.boot);
        out.number("since-boot", head.waiting->deadline.since_boot);
        out.number("wall", head.waiting->deadline.wall);
    }
    return out.take();
}

std::optional<Head> head_from(const std::string &text) {
    Reader in(text);
    Head head;
    Waiting waiting;
    in.number("last", head.last);
    in.number("waiting", waiting.commit);
    in.number("base", waiting.base);
    in.number("minutes", waiting.deadline.minutes, kMostMinutes);
    in.text("machine", waiting.deadline.machine);
    in.text("boot", waiting.deadline.boot);
    in.number("since-boot", waiting.deadline.since_boot, kMostMilliseconds);
    in.number("wall", waiting.deadline.wall, kMostSeconds);
    if (waiting.commit != 0) {
        head.waiting = waiting;
    }
    return in.good() ? std::optional(head) : std::nullopt;
}

}  // namespace history
