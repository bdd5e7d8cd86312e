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

using Form = SettingForm;

Failure malformed(const std::string &why) {
    return {ExitCode::bad_input, why};
}

std::vector<std::string> transports(const Protocol &protocol) {
    return {protocol.is_radius() ? "udp" : "tcp", "tls"};
}

bool is_text(const Item &item) {
    return item.type == SYSDB_TYPE_STRING && !item.bytes.empty() &&
           item.bytes.find('\0') == item.bytes.size() - 1;
}

std::string range_text(const Setting &form) {
    const char *unit = form.form == Form::milliseconds ? "ms" : form.form == Form::seconds ? "s" : "";
    return std::to_string(form.least) + unit + " to " + std::to_string(form.most) + unit;
}

struct Unit {
    std::string_view name;
    uint64_t factor;
};
constexpr Unit kMilliseconds[] = {{"ms", 1}, {"s", 1000}, {"min", 60000}};
constexpr Unit kSeconds[] = {{"s", 1}, {"min", 60}, {"h", 3600}};

// Without a unit, "timeout 5" is five seconds on some devices and five milliseconds on others.
uint64_t factor_of(const Setting &form, std::string_view number, std::string_view unit) {
    const bool short_time = form.form == Form::milliseconds;
    for (const Unit &known : short_time ? kMilliseconds : kSeconds) {
        if (unit == known.name) {
            return known.factor;
        }
    }
    const std::string digits(number.substr(0, 9));
    throw malformed(std::string(form.word) + " needs a unit: " +
                    (short_time ? digits + "ms or " + digits + "s" : digits + "s or " + digits + "min"));
}

uint32_t read_number(const Setting &form, const std::string &word) {
    uint64_t number = 0;
    const char *end = word.data() + word.size();
    const auto [stop, error] = std::from_chars(word.data(), end, number);
    const bool timed = form.form == Form::milliseconds || form.form == Form::seconds;
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

std::string number_text(const Setting &form, uint32_t number) {
    switch (form.form) {
        case Form::milliseconds:
            return number % 1000 == 0 ? std::to_string(number / 1000) + "s" : std::to_string(number) + "ms";
        case Form::seconds:
            return std::to_string(number) + "s";
        case Form::flag:
            return number != 0 ? "on" : "off";
        default:
            return std::to_string(number);
    }
}

SettingValue read_key(const Setting &form, WordReader &words) {
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

SettingValue read_value(const Setting &form, const Protocol &protocol, WordReader &words) {
    const std::string value = std::string("the value of ") + form.word;
    switch (form.form) {
        case Form::sealed_key:
            return read_key(form, words);
        case Form::flag:
            return {&form, false, number_item(words.take_keyword(value, {"on", "off"}) == "on" ? 1 : 0),
                    false};
        case Form::transport:
            return {&form, false, text_item(words.take_keyword(value, transports(protocol))), false};
        case Form::text:
        case Form::file:
        case Form::address:
            return {&form, false, text_item(words.take(value)), false};
        default:
            return {&form, false, number_item(read_number(form, words.take(value))), false};
    }
}

}  // namespace

const Setting *setting_of_word(std::string_view word) {
    const auto all = settings();
    const auto found =
        std::find_if(all.begin(), all.end(), [&](const Setting &form) { return word == form.word; });
    return found != all.end() ? &*found : nullptr;
}

const std::vector<std::string> &setting_words() {
    static const std::vector<std::string> words = [] {
        std::vector<std::string> all;
        for (const Setting &form : settings()) {
            all.emplace_back(form.word);
        }
        return all;
    }();
    return words;
}

std::optional<SettingValue> setting_value(const Protocol &protocol, const Setting &form, const Item &item) {
    const bool whole = form.is_number() ? item.bytes.size() == sizeof(uint32_t) : is_text(item);
    return whole && value_fault(form, protocol.word, item).empty()
               ? std::optional(SettingValue{&form, false, item, false})
               : std::nullopt;
}

std::string setting_text(const SettingValue &value) {
    const std::string word = value.form->word;
    if (value.removed) {
        return "no " + word;
    }
    if (value.form->is_number()) {
        return word + " " + number_text(*value.form, number_of(value.item));
    }
    const std::string kind = value.form->form != Form::sealed_key ? "" : value.clear ? "0 " : "7 ";
    return word + " " + kind + word_text(text_of(value.item));
}

SettingValue read_setting(const Protocol &protocol, WordReader &words) {
    // What other systems write, with other units: only the number of repetitions is the same everywhere.
    if (words.take_if("retransmit")) {
        const Setting &tries = *setting_named("tries");
        Setting repeats = tries;
        repeats.word = "retransmit";
        repeats.least = 0;
        repeats.most = tries.most - 1;
        return {&tries, false, number_item(read_number(repeats, words.take("the number")) + 1), false};
    }
    const Setting &form = *setting_of_word(words.take_keyword("a setting", setting_words()));
    SettingValue value = read_value(form, protocol, words);
    const std::string fault = value.clear ? "" : value_fault(form, protocol.word, value.item);
    if (!fault.empty()) {
        throw malformed(fault.starts_with(form.name) ? fault : std::string(form.word) + ": " + fault);
    }
    return value;
}

SettingValue read_removed_setting(WordReader &words) {
    return {setting_of_word(words.take_keyword("a setting", setting_words())), true, {}, false};
}

}  // namespace aaactl
