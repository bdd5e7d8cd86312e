// SPDX-License-Identifier: Apache-2.0
//
// Parts to text, and back line by line.

#include "message/message_text.hpp"

#include <algorithm>
#include <cstdio>

#include "dictionary/attributes.hpp"
#include "message/message_draft.hpp"
#include "message/message_meanings.hpp"
#include "message/message_value.hpp"

namespace aaactl {
namespace {

std::string hexadecimal(uint64_t value) {
    char text[24];
    std::snprintf(text, sizeof text, "0x%llx", static_cast<unsigned long long>(value));
    return text;
}

// Flags, words whose bits matter, and addresses are hexadecimal.
bool better_in_hexadecimal(std::string_view name) {
    return name == "param" || name == "magic" || name == "list";
}

std::string field_text(const Record &record, const Field &field) {
    if (field.is_number()) {
        const uint64_t value = load_number(field, record.bytes);
        return better_in_hexadecimal(field.name) ? hexadecimal(value) : std::to_string(value);
    }
    const std::string_view bytes = record.field_bytes(field);
    const size_t end = std::min(bytes.find('\0'), bytes.size());
    const bool text = field.form == FieldForm::text && end < bytes.size() &&
                      bytes.find_first_not_of('\0', end) == std::string_view::npos;
    return text ? quoted(bytes.substr(0, end)) : bytes_text(bytes);
}

std::string field_meaning(const Record &record, const Field &field, uint32_t type) {
    return field.meaning != nullptr ? field.meaning(load_number(field, record.bytes), type) : "";
}

std::string type_text(uint32_t type) {
    const std::string name = attribute_name(type);
    return type == AAA_ATTR_MAX ? "deleted" : name.empty() ? std::to_string(type) : name;
}

std::string joined(const std::vector<std::string> &words) {
    std::string text;
    for (const std::string &word : words) {
        text += (text.empty() ? "" : ", ") + word;
    }
    return text;
}

// A meaning may contain bytes of the message; a line break would end the comment.
std::string comment(const std::string &meaning) {
    return meaning.empty() ? "" : "  # " + escaped(meaning);
}

Shown shown_padding(const Pair &pair, bool show_secrets) {
    return is_secret(pair.type) ? shown_leftover(pair.padding, show_secrets)
                                : Shown{bytes_text(pair.padding), false};
}

bool is_blank(const std::string &bytes) {
    return bytes.find_first_not_of('\0') == std::string::npos;
}

// ---- Exchange form, written -----------------------------------------------------

void add_fields(std::string &text, const Record &record, uint32_t type) {
    for (const Field &field : record.layout->fields) {
        text += std::string(field.name) + " = " + field_text(record, field) +
                comment(field_meaning(record, field, type)) + "\n";
    }
}

void add_pair(std::string &text, const Pair &pair, service::TextMask &mask, bool show_secrets) {
    const Shown value = shown_value(pair, mask, show_secrets);
    text += "pair " + type_text(pair.type) + " " + (value.masked ? std::string(kMask) : value.text);
    text += pair.tag != 0 ? " tag=" + std::to_string(pair.tag) : "";
    text += pair.flags != 0 ? " flags=" + hexadecimal(pair.flags) : "";
    text += is_blank(pair.padding) ? "" : " padding=" + shown_padding(pair, show_secrets).text;
    const bool hidden = is_secret(pair.type) && !show_secrets;
    text += comment(value.masked && !hidden ? value.text : hidden ? "" : meaning_of_value(pair)) + "\n";
}

void add_part(std::string &text, const Message &message, const Part &part, bool show_secrets) {
    if (const auto *record = std::get_if<Record>(&part.content)) {
        text += std::string("record ") + record->layout->name + "\n";
        add_fields(text, *record, message.type());
    } else if (const auto *list = std::get_if<List>(&part.content)) {
        text += "list\n";
        add_fields(text, list->header, message.type());
        service::TextMask mask;
        for (const Pair &pair : list->pairs) {
            add_pair(text, pair, mask, show_secrets);
        }
    } else {
        const auto &bytes = std::get<Bytes>(part.content);
        const std::string shown =
            bytes.leftover ? shown_leftover(bytes.bytes, show_secrets).text : bytes_text(bytes.bytes);
        text += "bytes " + bytes.name + " " + shown + "\n";
    }
}

// ---- Exchange form, read --------------------------------------------------------

// The end of the word that begins at `at`.
size_t end_of_word(std::string_view line, size_t at) {
    bool text = false;
    for (; at < line.size(); ++at) {
        const char c = line[at];
        if (text && c == '\\' && at + 1 < line.size()) {
            ++at;
        } else if (c == '"') {
            text = !text;
        } else if (!text && (c == ' ' || c == '\t' || c == '\r')) {
            break;
        }
    }
    return at;
}

// The words of a line; a quoted text is one, with its blanks and '#'.
std::vector<std::string_view> words_of(std::string_view line) {
    std::vector<std::string_view> words;
    for (size_t at = 0;
         (at = line.find_first_not_of(" \t\r", at)) != std::string_view::npos && line[at] != '#';) {
        const size_t begin = at;
        at = end_of_word(line, at);
        words.push_back(line.substr(begin, at - begin));
    }
    return words;
}

using Words = std::vector<std::string_view>;

void read_field(Draft &draft, const Words &words) {
    if (words.size() != 3) {
        throw Refused{"a field has the form NAME = VALUE"};
    }
    const Field &field = draft.field(words[0]);
    if (field.is_number()) {
        draft.number(field, number_in(words[2], UINT64_MAX));
    } else {
        draft.content(field, bytes_of(words[2]));
    }
}

uint32_t type_in(std::string_view word) {
    if (word == "deleted") {
        return AAA_ATTR_MAX;
    }
    const auto type = attribute_type(word);
    if (!type) {
        throw Refused{"no attribute is called '" + escaped(word) + "'" + meant_attribute(word)};
    }
    return *type;
}

// A word that is no option is not shown: it may be what is left of a password that was quoted wrongly.
void read_option(Pair &pair, std::string_view word, size_t place) {
    if (word.starts_with("tag=")) {
        pair.tag = static_cast<uint32_t>(number_in(word.substr(4), UINT32_MAX));
    } else if (word.starts_with("flags=")) {
        pair.flags = static_cast<uint32_t>(number_in(word.substr(6), UINT32_MAX));
    } else if (word.starts_with("padding=")) {
        pair.padding = bytes_of(word.substr(8));
    } else {
        throw Refused{"word " + std::to_string(place) + " is none of tag=, flags= and padding="};
    }
}

void read_pair(Draft &draft, const Words &words) {
    if (words.size() < 3) {
        throw Refused{"a pair has the form: pair ATTRIBUTE VALUE [tag=N] [flags=N] [padding=BYTES]"};
    }
    Pair pair;
    pair.type = type_in(words[1]);
    pair.value = value_of(words[2], pair.type);
    for (size_t i = 3; i < words.size(); ++i) {
        read_option(pair, words[i], i + 1);
    }
    draft.pair(std::move(pair));
}

void require_words(const Words &words, size_t count, const char *form) {
    if (words.size() != count) {
        throw Refused{std::string("expected: ") + form};
    }
}

void read_line(Draft &draft, const Words &words) {
    const std::string_view first = words.front();
    if (words.size() > 1 && words[1] == "=") {
        read_field(draft, words);
    } else if (first == "pair") {
        read_pair(draft, words);
    } else if (first == "list") {
        require_words(words, 1, "list");
        draft.list();
    } else if (first == "kind") {
        require_words(words, 2, "kind KIND");
        draft.kind(words[1]);
    } else if (first == "record") {
        require_words(words, 2, "record NAME");
        draft.record(words[1]);
    } else if (first == "bytes") {
        require_words(words, 3, "bytes NAME VALUE");
        draft.bytes(words[1], bytes_of(words[2]));
    } else {
        throw Refused{"'" + escaped(first) +
                      "' cannot begin a line; use kind, record, list, pair, bytes or NAME = VALUE"};
    }
}

// ---- For people -----------------------------------------------------------------

void print_record(Output &out, const Record &record, size_t offset, uint32_t type) {
    std::vector<std::vector<std::string>> rows;
    for (const Field &field : record.layout->fields) {
        rows.push_back({"  " + std::to_string(offset + field.offset), field.name, field_text(record, field),
                        out.styled(Style::dim, escaped(field_meaning(record, field, type)))});
    }
    out.line(out.styled(Style::strong, std::string(record.layout->name) + ", " +
                                           std::to_string(record.bytes.size()) + " bytes at " +
                                           std::to_string(offset)));
    out.table({}, rows);
}

std::vector<std::string> pair_row(const Output &out, const Pair &pair, service::TextMask &mask) {
    const std::string name = attribute_name(pair.type);
    const Shown shown = shown_value(pair, mask, out.show_secrets());
    std::string value = shown.text;
    value += is_blank(pair.padding) ? "" : " padding=" + shown_padding(pair, out.show_secrets()).text;
    const std::string meaning = shown.masked ? "" : escaped(meaning_of_value(pair));
    value += meaning.empty() ? "" : "  " + out.styled(Style::dim, meaning);
    return {"  " + std::to_string(pair.offset),
            std::to_string(pair.type),
            pair.deleted() ? out.styled(Style::dim, "(deleted)")
            : name.empty() ? out.styled(Style::warning, "(unknown)")
                           : name,
            std::to_string(pair.tag),
            pair.flags == 0 ? "0" : hexadecimal(pair.flags) + " " + joined(flag_names(pair.flags)),
            std::to_string(pair.value.size()),
            value};
}

void print_bytes(Output &out, const Bytes &bytes, size_t offset) {
    const std::string shown =
        bytes.leftover ? shown_leftover(bytes.bytes, out.show_secrets()).text : bytes_text(bytes.bytes);
    out.line(out.styled(Style::strong, bytes.name + ", " + std::to_string(bytes.bytes.size()) + " bytes at " +
                                           std::to_string(offset)));
    out.line("  " + shown);
    const bool text =
        !bytes.leftover && !is_blank(bytes.bytes) && escaped(bytes.bytes).find("\\x") == std::string::npos;
    if (text) {
        out.line("  " + out.styled(Style::dim, quoted(bytes.bytes)));
    }
}

}  // namespace

std::string to_text(const Message &message, bool show_secrets) {
    std::string text = "kind " + message.kind + "\n";
    for (const Part &part : message.parts) {
        add_part(text, message, part, show_secrets);
    }
    return text;
}

Message from_text(std::string_view text) {
    Draft draft;
    for (size_t number = 1; !text.empty(); ++number) {
        const size_t end = std::min(text.find('\n'), text.size());
        const Words words = words_of(text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
        try {
            if (!words.empty()) {
                read_line(draft, words);
            }
        } catch (const Refused &refused) {
            throw Failure(ExitCode::bad_input, "line " + std::to_string(number) + ": " + refused.why);
        }
    }
    return draft.finish();
}

void print_list(Output &out, const List &list, size_t offset) {
    print_record(out, list.header, offset, UINT32_MAX);
    std::vector<std::vector<std::string>> rows;
    service::TextMask mask;
    std::transform(list.pairs.begin(), list.pairs.end(), std::back_inserter(rows),
                   [&](const Pair &pair) { return pair_row(out, pair, mask); });
    if (!rows.empty()) {
        out.table({"  OFFSET", "TYPE", "ATTRIBUTE", "TAG", "FLAGS", "LENGTH", "VALUE"}, rows);
    }
}

void print_message(Output &out, const Message &message) {
    out.line("kind " + message.kind);
    for (const Part &part : message.parts) {
        if (const auto *record = std::get_if<Record>(&part.content)) {
            print_record(out, *record, part.offset, message.type());
        } else if (const auto *list = std::get_if<List>(&part.content)) {
            print_list(out, *list, part.offset);
        } else {
            print_bytes(out, std::get<Bytes>(part.content), part.offset);
        }
    }
}

}  // namespace aaactl
