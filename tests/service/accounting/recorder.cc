// SPDX-License-Identifier: Apache-2.0
//
// A process that records and delivers, and that the test kills.
//
//   accounting_recorder DIRECTORY SEED CALLS
//
// It prints "r PAYLOAD" when a record was answered with kOk and "d PAYLOAD" when it has
// been delivered, each with one write(). It ends itself with SIGKILL in the CALLS-th call
// on a file, in half of the cases after a part of it; 0: never. Payloads are "RUN SESSION
// NUMBER", where the number rises within each session.

#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <random>

#include "accounting/accounting.hpp"

using namespace accounting;

namespace {

class KilledFiles : public Files {
  public:
    KilledFiles(unsigned calls, bool half) : left_(calls), half_(half) {}

    net::Descriptor open(int directory, const std::string &name, int flags) override {
        count();
        return Files::open(directory, name, flags);
    }
    ssize_t write(int file, std::string_view bytes, off_t at) override {
        if (left_ == 1 && half_) {
            Files::write(file, bytes.substr(0, bytes.size() / 2), at);
        }
        count();
        return Files::write(file, bytes, at);
    }
    int sync_data(int file) override {
        count();
        return Files::sync_data(file);
    }
    int sync(int file) override {
        count();
        return Files::sync(file);
    }
    int truncate(int file, off_t size) override {
        count();
        return Files::truncate(file, size);
    }
    int rename(int directory, const std::string &from, const std::string &to) override {
        count();
        return Files::rename(directory, from, to);
    }
    int remove(int directory, const std::string &name) override {
        count();
        return Files::remove(directory, name);
    }

  private:
    void count() {
        if (left_ != 0 && --left_ == 0) {
            kill(getpid(), SIGKILL);
        }
    }
    std::atomic<unsigned> left_;
    bool half_;
};

void print(const std::string &line) {
    if (write(STDOUT_FILENO, line.data(), line.size()) != static_cast<ssize_t>(line.size())) {
        std::_Exit(3);
    }
}

class PrintingSender : public Sender {
  public:
    PrintingSender(net::Loop &loop, unsigned seed) : loop_(loop), random_(seed) {}
    void send(RecordPointer record, std::uint32_t, Done done) override {
        const Outcome outcome = random_() % 8 == 0 ? Outcome::kUnavailable : Outcome::kDelivered;
        loop_.post([record = std::move(record), done = std::move(done), outcome] {
            if (outcome == Outcome::kDelivered) {
                print("d " + record->payload.substr(0, record->payload.find('|')) + "\n");
            }
            done(outcome, "at random");
        });
    }

  private:
    net::Loop &loop_;
    std::mt19937 random_;
};

class Recorder {
  public:
    Recorder(const char *directory, unsigned seed, unsigned calls)
        : seed_(seed), random_(seed), files_(calls, seed % 2 == 0) {
        settings_.journal.disk.directory = directory;
        settings_.journal.most_bytes = kLeastBytes;
        settings_.delivery.first_wait = net::kMillisecond;
        settings_.delivery.longest_wait = net::kMillisecond;
        settings_.delivery.read_ahead = 50;
        settings_.delivery.save_after = 0;
        SessionCalls sessions;
        sessions.is_alive = [](const Record &) { return true; };
        Events events;
        events.log = [](const std::string &line) { std::fprintf(stderr, "%s\n", line.c_str()); };
        accounting_ = std::make_unique<Accounting>(loop_, settings_, events, sessions, files_);
    }
    int run() {
        std::string error;
        if (!accounting_->open(error)) {
            std::fprintf(stderr, "%s\n", error.c_str());
            return 1;
        }
        accounting_->set_sender("billing", std::make_shared<PrintingSender>(loop_, seed_));
        for (int i = 0; i < 16; ++i) {
            next();
        }
        loop_.run();
        return 0;
    }

  private:
    void next() {
        const auto session = static_cast<unsigned>(random_() % 8);
        const std::string payload =
            std::to_string(seed_) + " " + std::to_string(session) + " " + std::to_string(++numbers_[session]);
        Record record;
        record.kind = random_() % 2 == 0 ? Kind::kStart : Kind::kStop;
        record.session = "s" + std::to_string(session);
        record.destinations = {"billing"};
        record.payload = payload + "|" + std::string(random_() % 3000, 'x');
        accounting_->record(std::move(record), [this, payload](Result result) {
            if (result == Result::kOk) {
                print("r " + payload + "\n");
            }
            next();
        });
    }

    unsigned seed_;
    std::mt19937 random_;
    KilledFiles files_;
    Settings settings_;
    net::Loop loop_;
    std::unique_ptr<Accounting> accounting_;
    unsigned numbers_[8] = {};
};

}  // namespace

int main(int argc, char **argv) {
    if (argc != 4) {
        return 2;
    }
    const auto number = [&](int i) { return static_cast<unsigned>(std::strtoul(argv[i], nullptr, 10)); };
    return Recorder(argv[1], number(2), number(3)).run();
}
