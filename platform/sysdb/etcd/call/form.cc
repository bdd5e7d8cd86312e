// SPDX-License-Identifier: Apache-2.0

#include "call/form.hpp"

namespace sysdb_etcd {
namespace {

constexpr std::uint8_t kVersion = 1;
constexpr std::size_t kLeastChange = 16;  // bytes

void put(std::string &bytes, std::uint32_t number) {
    for (int shift = 0; shift < 32; shift += 8) {
        bytes += static_cast<char>(number >> shift);
    }
}

void put(std::string &bytes, std::string_view text) {
    put(bytes, static_cast<std::uint32_t>(text.size()));
    bytes += text;
}

void put_length_before(std::string &bytes) {
    std::string length;
    put(length, static_cast<std::uint32_t>(bytes.size()));
    bytes.insert(0, length);
}

class Reader {
  public:
    explicit Reader(std::string_view bytes) : bytes_(bytes) {}

    bool byte(std::uint8_t &value) {
        if (bytes_.empty()) {
            return false;
        }
        value = static_cast<std::uint8_t>(bytes_.front());
        bytes_.remove_prefix(1);
        return true;
    }
    bool number(std::uint32_t &value) {
        if (bytes_.size() < kLengthSize) {
            return false;
        }
        value = unpack_length(bytes_.data());
        bytes_.remove_prefix(kLengthSize);
        return true;
    }
    bool text(std::string &value) {
        std::uint32_t size = 0;
        if (!number(size) || size > bytes_.size()) {
            return false;
        }
        value = bytes_.substr(0, size);
        bytes_.remove_prefix(size);
        return true;
    }
    std::string_view rest() const { return bytes_; }

  private:
    std::string_view bytes_;
};

bool read_changes(Reader &reader, std::vector<ItemChange> &changes) {
    std::uint32_t count = 0;
    if (!reader.number(count) || count > reader.rest().size() / kLeastChange) {
        return false;
    }
    changes.reserve(count);
    for (std::uint32_t i = 0; i < count; ++i) {
        ItemChange &change = changes.emplace_back();
        if (!reader.number(change.operation) || !reader.number(change.datatype) ||
            !reader.text(change.path) || !reader.text(change.value)) {
            return false;
        }
    }
    return true;
}

}  // namespace

std::uint32_t unpack_length(const char *bytes) {
    std::uint32_t number = 0;
    for (int i = 3; i >= 0; --i) {
        number = number << 8 | static_cast<unsigned char>(bytes[i]);
    }
    return number;
}

std::optional<std::string> pack_request(const Request &request) {
    std::size_t size = kLengthSize;
    for (const ItemChange &change : request.changes) {
        size += kLeastChange + change.path.size() + change.value.size();
    }
    if (size > kMostRequest - kLeastChange) {
        return std::nullopt;
    }
    std::string bytes;
    bytes.reserve(size + 16);
    bytes += static_cast<char>(kVersion);
    bytes += static_cast<char>(request.ask);
    put(bytes, static_cast<std::uint32_t>(request.until_ms));
    put(bytes, static_cast<std::uint32_t>(request.until_ms >> 32));
    if (request.ask == Ask::kChange) {
        put(bytes, static_cast<std::uint32_t>(request.changes.size()));
        for (const ItemChange &change : request.changes) {
            put(bytes, change.operation);
            put(bytes, change.datatype);
            put(bytes, change.path);
            put(bytes, change.value);
        }
    }
    put_length_before(bytes);
    return bytes;
}

std::string pack_answer(const Answer &answer) {
    std::string bytes;
    put(bytes, answer.code);
    put(bytes, answer.failed);
    bytes += answer.text.substr(0, kMostReply - 2 * kLengthSize);
    put_length_before(bytes);
    return bytes;
}

bool unpack_request(std::string_view bytes, Request &request) {
    Reader reader(bytes);
    std::uint8_t version = 0;
    std::uint8_t ask = 0;
    std::uint32_t low = 0;
    std::uint32_t high = 0;
    if (!reader.byte(version) || version != kVersion || !reader.byte(ask) || !reader.number(low) ||
        !reader.number(high)) {
        return false;
    }
    request.until_ms = std::uint64_t{high} << 32 | low;
    request.ask = static_cast<Ask>(ask);
    switch (request.ask) {
        case Ask::kChange:
            return read_changes(reader, request.changes) && reader.rest().empty();
        case Ask::kStatus:
            return reader.rest().empty();
    }
    return false;
}

bool unpack_answer(std::string_view bytes, Answer &answer) {
    Reader reader(bytes);
    if (!reader.number(answer.code) || !reader.number(answer.failed)) {
        return false;
    }
    answer.text = reader.rest();
    return true;
}

}  // namespace sysdb_etcd
