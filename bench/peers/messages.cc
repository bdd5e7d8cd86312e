// SPDX-License-Identifier: Apache-2.0

#include "messages.hpp"

#include <algorithm>
#include <array>
#include <cstring>
#include <iterator>
#include <random>
#include <string>
#include <utility>

namespace peers {

namespace {

constexpr std::size_t kShortMessage = 10;
constexpr uint32_t kLongestText = 64;
constexpr std::array<uint32_t, 4> kNumbers{7, 1, 0xC0000201, 4096};

Field field_of(const Attribute &a) {
    Field field{a.type, a.len, nullptr, 0, radius_number(a.type)};
    if (is_number(a.type)) {
        std::memcpy(&field.number, a.value, sizeof field.number);
    } else {
        field.text = static_cast<const char *>(a.value);
    }
    return field;
}

Message message_of(std::vector<Attribute> attributes) {
    Message message;
    message.attributes = std::move(attributes);
    for (const Attribute &a : message.attributes) {
        message.fields.push_back(field_of(a));
        message.pair_bytes += bench::plain_extent(a.len);
    }
    return message;
}

Attribute varied_attribute(uint32_t type, std::mt19937 &random) {
    static const std::string text = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-_.@:/";
    if (is_number(type)) {
        return {type, 4, &kNumbers[random() % kNumbers.size()]};
    }
    const auto len = static_cast<uint32_t>(1 + random() % kLongestText);
    return {type, len, text.data() + random() % (text.size() - len)};
}

bool is_wanted(uint32_t type) {
    return std::find(kWanted.begin(), kWanted.end(), type) != kWanted.end();
}

// Ten of the sixteen types; attributes beyond ten are drawn from the types that
// are not looked up. The order is random.
std::vector<uint32_t> varied_types(std::size_t count, std::mt19937 &random) {
    std::vector<uint32_t> types(std::begin(kTypes), std::end(kTypes));
    std::shuffle(types.begin(), types.end(), random);
    types.resize(kShortMessage);
    while (types.size() < count) {
        const uint32_t type = kTypes[random() % std::size(kTypes)];
        if (!is_wanted(type)) {
            types.push_back(type);
        }
    }
    std::shuffle(types.begin(), types.end(), random);
    return types;
}

std::vector<Message> varied(std::size_t messages, std::size_t attributes) {
    std::mt19937 random(12345);
    std::vector<Message> result;
    while (result.size() < messages) {
        std::vector<Attribute> made;
        for (const uint32_t type : varied_types(attributes, random)) {
            made.push_back(varied_attribute(type, random));
        }
        result.push_back(message_of(std::move(made)));
    }
    return result;
}

}  // namespace

const bench::Workload &login() {
    static const bench::Workload work(kShortMessage);
    return work;
}

const std::vector<MessageSet> &message_sets() {
    static const std::vector<MessageSet> made{
        {"login",
         "the ten attributes of a login, one message again and again: 5 numbers and 5 texts of 6 to 11 "
         "bytes; "
         "the five types looked up are at places 4, 8, 10, 1 and 7",
         {message_of(login().attributes)},
         true},
        {"varied",
         "1024 messages in turn, each of 10 different types out of 16, in random order: 8 of the 16 are "
         "numbers, "
         "the others texts of 1 to 64 bytes, every length equally likely; each of the five types looked up "
         "is "
         "absent from 3 messages of 8, otherwise at any place",
         varied(1024, kShortMessage), true},
        {"varied_100",
         "128 messages in turn, each of 100 attributes: ten as in varied, and 90 of the types that are not "
         "looked "
         "up, so types repeat; random order",
         varied(128, 100), false},
    };
    return made;
}

}  // namespace peers
