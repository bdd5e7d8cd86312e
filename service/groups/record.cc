// SPDX-License-Identifier: Apache-2.0
//
// As bytes: version (1), kind (1), end (1), id (8), then numbers of 4 bytes, little-endian, and
// texts with a length of 4 bytes before them. What may be absent has a byte before it, 0 or 1.

#include "groups/record.hpp"

#include <utility>

#include "aaa/dictionary.h"
#include "aaa/names.h"

namespace service {

namespace {

constexpr char kVersion = 1;

class Writer {
  public:
    void byte(std::uint8_t value) { bytes_ += static_cast<char>(value); }
    void number(std::uint32_t value) {
        for (int shift = 0; shift < 32; shift += 8) {
            byte(static_cast<std::uint8_t>(value >> shift));
        }
    }
    void wide(std::uint64_t value) {
        number(static_cast<std::uint32_t>(value));
        number(static_cast<std::uint32_t>(value >> 32));
    }
    void text(std::string_view value) {
        number(static_cast<std::uint32_t>(value.size()));
        bytes_ += value;
    }
    void maybe(const std::optional<std::uint32_t> &value) {
        byte(value ? 1 : 0);
        number(value.value_or(0));
    }
    std::string take() { return std::move(bytes_); }

  private:
    std::string bytes_;
};

class Reader {
  public:
    explicit Reader(std::string_view bytes) : rest_(bytes) {}
    std::uint8_t byte() {
        const std::string_view one = take(1);
        return one.empty() ? 0 : static_cast<std::uint8_t>(one[0]);
    }
    std::uint32_t number() {
        std::uint32_t value = 0;
        for (int shift = 0; shift < 32; shift += 8) {
            value |= static_cast<std::uint32_t>(byte()) << shift;
        }
        return value;
    }
    std::uint64_t wide() {
        const std::uint32_t low = number();
        return low | static_cast<std::uint64_t>(number()) << 32;
    }
    std::string text() { return std::string(take(number())); }
    std::optional<std::uint32_t> maybe() {
        const std::uint8_t is_there = byte();
        const std::uint32_t value = number();
        ok_ = ok_ && is_there <= 1 && (is_there == 1 || value == 0);
        return is_there == 1 ? std::optional(value) : std::nullopt;
    }
    bool ok() const { return ok_; }
    bool at_end() const { return rest_.empty(); }
    void fail() { ok_ = false; }

  private:
    std::string_view take(std::size_t size) {
        if (size > rest_.size()) {
            ok_ = false;
            rest_ = {};
            return {};
        }
        const std::string_view taken = rest_.substr(0, size);
        rest_.remove_prefix(size);
        return taken;
    }

    std::string_view rest_;
    bool ok_ = true;
};

}  // namespace

std::optional<AccountingRecord> record_of(const Question &question, Logins &logins, net::Time now,
                                          std::time_t wall) {
    AccountingRecord record;
    record.id = question.id;
    record.session = question.session;
    record.time = static_cast<std::uint32_t>(wall);
    record.service = question.service;
    record.method = question.authenticated_by;
    record.privilege = question.privilege;
    record.user = question.user;
    record.terminal = question.terminal;
    record.remote = question.remote;
    record.command = question.command;
    const Session *session = nullptr;
    switch (question.record) {
        case AAA_MT_ACCT_START:
            session = &logins.open(question, now, wall);
            break;
        case AAA_MT_ACCT_UPDATE:
            record.kind = AccountingRecord::Kind::kInterim;
            session = logins.session(question.session, question.user);
            break;
        case AAA_MT_ACCT_STOP:
            record.kind = AccountingRecord::Kind::kStop;
            session = logins.session(question.session, question.user);
            logins.end(question.session, question.user);
            break;
        default:
            return std::nullopt;
    }
    const avlist *list = question.attributes.get();
    record.elapsed = list != nullptr ? number_in(list, AAA_ELAPSTIME_ATTR) : std::nullopt;
    if (session != nullptr) {
        record.start = static_cast<std::uint32_t>(session->start);
        record.classes = session->classes;
        if (!record.elapsed && record.kind != AccountingRecord::Kind::kStart) {
            record.elapsed = static_cast<std::uint32_t>((now - session->started) / net::kSecond);
        }
    }
    return record;
}

std::string pack_record(const AccountingRecord &record) {
    Writer out;
    out.byte(kVersion);
    out.byte(static_cast<std::uint8_t>(record.kind));
    out.byte(static_cast<std::uint8_t>(record.end));
    out.wide(record.id);
    for (const std::uint32_t number :
         {record.session, record.time, record.start, record.service, record.method}) {
        out.number(number);
    }
    out.maybe(record.privilege);
    out.maybe(record.elapsed);
    for (const std::string *text : {&record.user, &record.terminal, &record.remote}) {
        out.text(*text);
    }
    out.byte(record.command ? 1 : 0);
    out.text(record.command.value_or(""));
    out.number(static_cast<std::uint32_t>(record.classes.size()));
    for (const std::string &value : record.classes) {
        out.text(value);
    }
    return out.take();
}

std::optional<AccountingRecord> unpack_record(std::string_view bytes) {
    Reader in(bytes);
    AccountingRecord record;
    if (in.byte() != kVersion) {
        return std::nullopt;
    }
    record.kind = static_cast<AccountingRecord::Kind>(in.byte());
    record.end = static_cast<AccountingRecord::End>(in.byte());
    record.id = in.wide();
    for (std::uint32_t *number :
         {&record.session, &record.time, &record.start, &record.service, &record.method}) {
        *number = in.number();
    }
    record.privilege = in.maybe();
    record.elapsed = in.maybe();
    for (std::string *text : {&record.user, &record.terminal, &record.remote}) {
        *text = in.text();
    }
    const std::uint8_t has_command = in.byte();
    std::string command = in.text();
    if (has_command > 1 || (has_command == 0 && !command.empty())) {
        in.fail();
    } else if (has_command == 1) {
        record.command = std::move(command);
    }
    for (std::uint32_t left = in.number(); left > 0 && in.ok(); --left) {
        record.classes.push_back(in.text());
    }
    const bool is_known = record.kind >= AccountingRecord::Kind::kStart &&
                          record.kind <= AccountingRecord::Kind::kInterim &&
                          record.end <= AccountingRecord::End::kMachineRestarted;
    return in.ok() && in.at_end() && is_known ? std::optional(std::move(record)) : std::nullopt;
}

}  // namespace service
