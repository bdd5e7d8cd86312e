// SPDX-License-Identifier: Apache-2.0
//
// Shared by the tests of accounting: records, files that fail, senders that are scripted.
#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "accounting/accounting.hpp"
#include "support/temp_dir.hpp"

namespace accounting {

inline Record sample(const std::string &session = "s1", Kind kind = Kind::kStart,
                     std::vector<std::string> destinations = {"billing"}, std::string payload = "payload") {
    Record record;
    record.kind = kind;
    record.process = {4711, 99};
    record.arrival = {{1, 2, 3}, 1'700'000'000'000'000'000, 5'000'000'000};
    record.session = session;
    record.destinations = std::move(destinations);
    record.payload = std::move(payload);
    return record;
}

inline std::string body_of(const Record &record) {
    std::string body;
    encode_body(record, body);
    return body;
}

inline bool same(const Record &a, const Record &b) {
    return a.sequence == b.sequence && body_of(a) == body_of(b);
}

// Files whose calls fail when they are told to. A call fails once for each time that it was
// told, or for ever.
class FailingFiles : public Files {
  public:
    enum Call { kOpen, kWrite, kRead, kSyncData, kSync, kTruncate, kRename, kRemove, kCalls };
    static constexpr int kForever = 1'000'000;

    void fail(Call call, int error, int times = kForever, std::string name = "") {
        error_[call] = error;
        name_ = std::move(name);
        times_[call] = times;
    }
    void mend() {
        for (std::atomic<int> &times : times_) {
            times = 0;
        }
    }
    // Writes end after so many bytes, with ENOSPC.
    void leave_room(std::int64_t bytes) { room_ = bytes; }

    net::Descriptor open(int directory, const std::string &name, int flags) override {
        if (name.find(name_) != std::string::npos && fails(kOpen)) {
            return {};
        }
        return Files::open(directory, name, flags);
    }
    ssize_t write(int file, std::string_view bytes, off_t at) override {
        if (fails(kWrite)) {
            return -1;
        }
        if (static_cast<std::int64_t>(bytes.size()) > room_) {
            if (room_ == 0) {
                errno = ENOSPC;
                return -1;
            }
            bytes = bytes.substr(0, static_cast<std::size_t>(room_.load()));
        }
        const ssize_t written = Files::write(file, bytes, at);
        room_ -= written;
        return written;
    }
    ssize_t read(int file, char *bytes, std::size_t size, off_t at) override {
        return fails(kRead) ? -1 : Files::read(file, bytes, size, at);
    }
    int sync_data(int file) override { return fails(kSyncData) ? -1 : Files::sync_data(file); }
    int sync(int file) override { return fails(kSync) ? -1 : Files::sync(file); }
    int truncate(int file, off_t size) override {
        return fails(kTruncate) ? -1 : Files::truncate(file, size);
    }
    int rename(int directory, const std::string &from, const std::string &to) override {
        return fails(kRename) ? -1 : Files::rename(directory, from, to);
    }
    int remove(int directory, const std::string &name) override {
        return fails(kRemove) ? -1 : Files::remove(directory, name);
    }
    int calls(Call call) const { return count_[call]; }

  private:
    bool fails(Call call) {
        ++count_[call];
        if (times_[call] <= 0) {
            return false;
        }
        if (times_[call] < kForever) {
            --times_[call];
        }
        errno = error_[call];
        return true;
    }

    std::atomic<int> error_[kCalls] = {};
    std::atomic<int> times_[kCalls] = {};
    std::atomic<int> count_[kCalls] = {};
    std::string name_;
    std::atomic<std::int64_t> room_ = INT64_MAX / 2;
};

// Log lines.
class Lines {
  public:
    Log log() {
        return [this](const std::string &line) { lines_.push_back(line); };
    }
    bool has(const std::string &text) const {
        return std::any_of(lines_.begin(), lines_.end(),
                           [&](const std::string &line) { return line.find(text) != std::string::npos; });
    }
    std::string all() const {
        std::string all;
        for (const std::string &line : lines_) {
            all += line + "\n";
        }
        return all;
    }
    std::size_t count() const { return lines_.size(); }

  private:
    std::vector<std::string> lines_;
};

inline std::vector<std::string> names_in(const std::string &directory, const std::string &prefix) {
    std::vector<std::string> names;
    for (const auto &entry : std::filesystem::directory_iterator(directory)) {
        const std::string name = entry.path().filename();
        if (name.starts_with(prefix)) {
            names.push_back(name);
        }
    }
    std::sort(names.begin(), names.end());
    return names;
}

// ctest's time limit ends what waits for ever.
inline void run_until(net::Loop &loop, const std::function<bool()> &holds) {
    while (!holds()) {
        loop.run_once(INT64_MAX);
    }
}

// Keeps what it is to send until the test answers, or answers by itself.
class ScriptedSender : public Sender {
  public:
    struct Sent {
        RecordPointer record;
        std::uint32_t delay;
        Done done;
    };

    // What is open is answered now, what is sent from now on before send() returns.
    void answer_all(std::function<Outcome(const Record &)> outcome) {
        outcome_ = std::move(outcome);
        while (!open_.empty()) {
            answer(outcome_(*open_.front().record));
        }
    }

    void send(RecordPointer record, std::uint32_t delay, Done done) override {
        log_.push_back(record);
        if (outcome_) {
            done(outcome_(*record), "scripted");
        } else {
            open_.push_back({std::move(record), delay, std::move(done)});
        }
    }
    // Answers the oldest one.
    void answer(Outcome outcome, const std::string &why = "scripted") {
        const Sent first = std::move(open_.front());
        open_.erase(open_.begin());
        first.done(outcome, why);
    }
    const std::vector<Sent> &open() const { return open_; }
    const std::vector<RecordPointer> &log() const { return log_; }
    std::vector<std::string> payloads() const {
        std::vector<std::string> payloads;
        for (const RecordPointer &record : log_) {
            payloads.push_back(record->payload);
        }
        return payloads;
    }

  private:
    std::function<Outcome(const Record &)> outcome_;
    std::vector<Sent> open_;
    std::vector<RecordPointer> log_;
};

// Accounting on a directory, which can be closed and opened again.
class Service {
  public:
    explicit Service(const std::string &directory) {
        settings.journal.disk.directory = directory;
        settings.delivery.first_wait = net::kMillisecond;
        settings.delivery.longest_wait = 4 * net::kMillisecond;
        settings.delivery.save_after = 0;
        calls.is_alive = [](const Record &) { return true; };
        calls.interim = [](const RecordPointer &) {};
        calls.ended = [](const RecordPointer &) {};
    }

    // The text of the error, empty without one.
    std::string open() {
        accounting.reset();
        Events events;
        events.log = lines.log();
        events.alarm = [this](Alarm alarm, bool raised) { alarms.emplace_back(alarm, raised); };
        accounting = std::make_unique<Accounting>(loop, settings, events, calls, files);
        std::string error;
        if (!accounting->open(error)) {
            accounting.reset();
        }
        return error;
    }
    // As when the service ends and starts again.
    void reopen() { ASSERT_EQ(open(), ""); }

    // Records and waits for the answer.
    Result record(Record record) {
        bool answered = false;
        Result result = Result::kFailed;
        accounting->record(std::move(record), [&](Result given) {
            result = given;
            answered = true;
        });
        run_until(loop, [&] { return answered; });
        return result;
    }
    std::shared_ptr<ScriptedSender> add_sender(const std::string &destination = "billing") {
        auto sender = std::make_shared<ScriptedSender>();
        accounting->set_sender(destination, sender);
        return sender;
    }
    DestinationFigures figures(const std::string &destination = "billing") {
        return accounting->figures().destinations[destination];
    }
    void run_until(const std::function<bool()> &holds) { accounting::run_until(loop, holds); }
    static void run_until(net::Loop &loop, const std::function<bool()> &holds) {
        accounting::run_until(loop, holds);
    }

    net::Loop loop;
    FailingFiles files;
    Settings settings;
    SessionCalls calls;
    Lines lines;
    std::vector<std::pair<Alarm, bool>> alarms;
    std::unique_ptr<Accounting> accounting;
};

}  // namespace accounting
