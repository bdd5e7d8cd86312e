// SPDX-License-Identifier: Apache-2.0
//
// The table of settings, and their values as words.

#include "running_config/settings.hpp"

#include <algorithm>
#include <charconv>

#include "cli/suggestion.hpp"
#include "database/secret_values.hpp"

namespace aaactl {
namespace {

using Kind = SettingKind;

// The limits are those that the service keeps to.
constexpr SettingForm kForms[] = {
    {"key", "key", Kind::key},
    {"timeout", "timeout", Kind::milliseconds, 10, 60000},
    {"tries", "tries", Kind::number, 1, 10},
    {"dead-time", "dead-time", Kind::seconds, 0, 86400},
    {"transport", "transport", Kind::transport},
    {"server-name", "server-name", Kind::text},
    {"ca-file", "ca-file", Kind::text},
    {"certificate-file", "certificate-file", Kind::text},
    {"key-file", "key-file", Kind::text},
    {"crl-file", "crl-file", Kind::text},
    {"source", "source", Kind::text},
    {"source-interface", "source-interface", Kind::text},
    {"vrf", "vrf", Kind::text},
    {"port", "default-port", Kind::port, 1, 65535},  // "port" is that of one server
    {"legacy", "legacy", Kind::flag, 0, 1},
    {"status-server", "status-server", Kind::flag, 0, 1},
    {"nas-identifier", "nas-identifier", Kind::text},
    {"vendor-map", "vendor-map", Kind::text},
    {"single-connect", "single-connect", Kind::flag, 0, 1},
    {"pap", "pap", Kind::flag, 0, 1},
};

Failure malformed(const std::string &why) {
    return {ExitCode::bad_input, why};
}

bool is_number(Kind kind) {
    return kind != Kind::text && kind != Kind::transport && kind != Kind::key;
}

std::vector<std::string> transports(const Protocol &protocol) {
    return {protocol.is_radius() ? "udp" : "tcp", "tls"};
}

bool is_text(const Item &item) {
    return item.type == SYSDB_TYPE_STRING && !item.bytes.empty() &&
           item.bytes.find('\0') == item.bytes.size() - 1;
}

std::string range_text(const SettingForm &form) {
    const char *unit = form.kind == Kind::milliseconds ? "ms" : form.kind == Kind::seconds ? "s" : "";
    return std::to_string(form.least) + unit + " to " + std::to_string(form.most) + unit;
}

struct Unit {
    std::string_view name;
    uint64_t factor;
};
constexpr Unit kMilliseconds[] = {{"ms", 1}, {"s", 1000}, {"min", 60000}};
constexpr Unit kSeconds[] = {{"s", 1}, {"min", 60}, {"h", 3600}};

// Without a unit, "timeout 5" is five seconds on some devices and five milliseconds on others.
uint64_t factor_of(const SettingForm &form, std::string_view number, std::string_view unit) {
    const bool short_time = form.kind == Kind::milliseconds;
    for (const Unit &known : short_time ? kMilliseconds : kSeconds) {
        if (unit == known.name) {
            return known.factor;
        }
    }
    const std::string digits(number.substr(0, 9));
    throw malformed(std::string(form.word) + " needs a unit: " +
                    (short_time ? digits + "ms or " + digits + "s" : digits + "s or " + digits + "min"));
}

uint32_t read_number(const SettingForm &form, const std::string &word) {
    uint64_t number = 0;
    const char *end = word.data() + word.size();
    const auto [stop, error] = std::from_chars(word.data(), end, number);
    const bool timed = form.kind == Kind::milliseconds || form.kind == Kind::seconds;
    if (error != std::errc() || (!timed && stop != end)) {
        throw malformed(std::string(form.word) + ": \"" + escaped(word) + "\" is not a number; use " +
                        range_text(form));
    }
    const std::string_view digits(word.data(), static_cast<size_t>(stop - word.data()));
    const uint64_t factor = timed ? factor_of(form, digits, {stop, static_cast<size_t>(end - stop)}) : 1;
    if (number > form.most || number * factor > form.most || number * factor < form.least) {
        throw malformed(std::string(form.word) + ": " + escaped(word) + " is out of range; use " +
                        range_text(form));
    }
    return static_cast<uint32_t>(number * factor);
}

std::string number_text(const SettingForm &form, uint32_t number) {
    switch (form.kind) {
        case Kind::milliseconds:
            return number % 1000 == 0 ? std::to_string(number / 1000) + "s" : std::to_string(number) + "ms";
        case Kind::seconds:
            return std::to_string(number) + "s";
        case Kind::flag:
            return number != 0 ? "on" : "off";
        default:
            return std::to_string(number);
    }
}

SettingValue read_key(const SettingForm &form, WordReader &words) {
    constexpr char kForm[] =
        "write \"key 7\" and a sealed key, which \"aaactl key seal\" prints, or \"key 0\" and the clear key";
    const bool sealed = words.take_if("7");
    const bool clear = !sealed && words.take_if("0");
    if ((!sealed && !clear) || words.at_end()) {
        throw malformed(kForm);
    }
    const std::string &text = words.take("the key");
    if (text.find('\0') != std::string::npos || (clear && text.empty())) {
        throw malformed("the key is empty or has a NUL byte");
    }
    if (sealed && !looks_sealed(text)) {
        throw malformed(std::string("what follows \"key 7\" is not a sealed key; ") + kForm);
    }
    // A part of a clear key with blanks must not be quoted as a misspelt setting.
    const Word *next = words.peek();
    const auto is_known = [](const Word &word) {
        const auto &known = setting_words();
        return !word.quoted && (word.text == "no" || word.text == "index" ||
                                std::find(known.begin(), known.end(), word.text) != known.end());
    };
    if (next != nullptr && !is_known(*next)) {
        throw malformed(
            "the word after the key is not a setting; a key with blanks is put between quotation marks");
    }
    return {&form, false, text_item(text), clear};
}

}  // namespace

const SettingForm *setting_named(std::string_view name) {
    const auto found = std::find_if(std::begin(kForms), std::end(kForms),
                                    [&](const SettingForm &form) { return name == form.name; });
    return found != std::end(kForms) ? found : nullptr;
}

const SettingForm *setting_of_word(std::string_view word) {
    const auto found = std::find_if(std::begin(kForms), std::end(kForms),
                                    [&](const SettingForm &form) { return word == form.word; });
    return found != std::end(kForms) ? found : nullptr;
}

const std::vector<std::string> &setting_words() {
    static const std::vector<std::string> words = [] {
        std::vector<std::string> all;
        for (const SettingForm &form : kForms) {
            all.emplace_back(form.word);
        }
        return all;
    }();
    return words;
}

std::optional<SettingValue> setting_value(const Protocol &protocol, const SettingForm &form,
                                          const Item &item) {
    bool expressible = false;
    if (is_number(form.kind)) {
        expressible = item.type == SYSDB_TYPE_U32 && item.bytes.size() == sizeof(uint32_t) &&
                      number_of(item) >= form.least && number_of(item) <= form.most;
    } else if (is_text(item)) {
        const std::vector<std::string> known = transports(protocol);
        expressible = form.kind == Kind::text || (form.kind == Kind::key && looks_sealed(text_of(item))) ||
                      (form.kind == Kind::transport &&
                       std::find(known.begin(), known.end(), text_of(item)) != known.end());
    }
    return expressible ? std::optional(SettingValue{&form, false, item, false}) : std::nullopt;
}

std::string setting_text(const SettingValue &value) {
    const std::string word = value.form->word;
    if (value.removed) {
        return "no " + word;
    }
    if (is_number(value.form->kind)) {
        return word + " " + number_text(*value.form, number_of(value.item));
    }
    const std::string kind = value.form->kind != Kind::key ? "" : value.clear ? "0 " : "7 ";
    return word + " " + kind + word_text(text_of(value.item));
}

SettingValue read_setting(const Protocol &protocol, WordReader &words) {
    // What other systems write, with other units: only the number of repetitions is the same everywhere.
    if (words.take_if("retransmit")) {
        const SettingForm &tries = *setting_named("tries");
        SettingForm repeats = tries;
        repeats.word = "retransmit";
        repeats.least = 0;
        repeats.most = tries.most - 1;
        return {&tries, false, number_item(read_number(repeats, words.take("the number")) + 1), false};
    }
    const SettingForm &form = *setting_of_word(words.take_keyword("a setting", setting_words()));
    const std::string value = std::string("the value of ") + form.word;
    switch (form.kind) {
        case Kind::key:
            return read_key(form, words);
        case Kind::flag:
            return {&form, false, number_item(words.take_keyword(value, {"on", "off"}) == "on" ? 1 : 0),
                    false};
        case Kind::transport:
            return {&form, false, text_item(words.take_keyword(value, transports(protocol))), false};
        case Kind::text: {
            const std::string &text = words.take(value);
            if (text.find('\0') != std::string::npos) {
                throw malformed(std::string(form.word) + " has a NUL byte");
            }
            return {&form, false, text_item(text), false};
        }
        default:
            return {&form, false, number_item(read_number(form, words.take(value))), false};
    }
}

SettingValue read_removed_setting(WordReader &words) {
    return {setting_of_word(words.take_keyword("a setting", setting_words())), true, {}, false};
}

}  // namespace aaactl
