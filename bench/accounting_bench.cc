// SPDX-License-Identifier: Apache-2.0
//
// Accounting records on disk: the time from a request to its answer, which is given when
// the record is on disk, and records a second. Records have 100 to 600 bytes, equally
// distributed, in 1,000 sessions, for one group that takes each at once. Each row is a new
// journal in $AAA_BENCH_DIR, or the working directory: it has to be on the disk that is to
// be measured.
//
//   AccountingSync           pwrite() and fdatasync() of 400 bytes, what the others are
//                            compared with
//   AccountingInFlight/N     N requests in flight; the next one follows an answer
//   AccountingSlowDisk/N     the same, with a disk whose fdatasync() takes 10 ms more
//
// p50_us and p99_us are of single requests.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "accounting/accounting.hpp"

namespace {

using namespace accounting;

constexpr int kRecords = 2000;
constexpr unsigned kShortest = 100, kLongest = 600, kSessions = 1000;
constexpr useconds_t kSlow = 10'000;

class Scratch {
  public:
    Scratch() {
        const char *directory = std::getenv("AAA_BENCH_DIR");
        path_ = (directory != nullptr ? std::string(directory) : std::filesystem::current_path().string()) +
                "/accounting-bench.XXXXXX";
        if (mkdtemp(path_.data()) == nullptr) {
            std::perror(path_.c_str());
            std::_Exit(1);
        }
    }
    ~Scratch() { std::filesystem::remove_all(path_); }
    const std::string &path() const { return path_; }

  private:
    std::string path_;
};

class SlowFiles : public Files {
  public:
    explicit SlowFiles(useconds_t more) : more_(more) {}
    int sync_data(int file) override {
        if (more_ != 0) {
            usleep(more_);
        }
        return Files::sync_data(file);
    }

  private:
    useconds_t more_;
};

class Takes : public Sender {
  public:
    void send(RecordPointer, std::uint32_t, Done done) override { done(Outcome::kDelivered, ""); }
};

// Requests that follow one another, some at the same time.
class Load {
  public:
    Load(const std::string &directory, useconds_t more) : files_(more) {
        Settings settings;
        settings.journal.disk.directory = directory;
        Events events;
        events.log = [](const std::string &line) { std::fprintf(stderr, "%s\n", line.c_str()); };
        SessionCalls calls;
        calls.is_alive = [](const Record &) { return true; };
        accounting_ = std::make_unique<Accounting>(loop_, settings, events, calls, files_);
        std::string error;
        if (!accounting_->open(error)) {
            std::fprintf(stderr, "accounting_bench: %s\n", error.c_str());
            std::_Exit(1);
        }
        accounting_->set_sender("billing", std::make_shared<Takes>());
    }
    void run(int records, int in_flight) {
        left_ = records;
        answers_ = 0;
        for (int i = 0; i < in_flight; ++i) {
            next();
        }
        while (answers_ < records) {
            loop_.run_once(INT64_MAX);
        }
    }
    std::vector<double> microseconds;

  private:
    void next() {
        if (left_-- <= 0) {
            return;
        }
        Record record;
        record.kind = Kind::kInterim;
        record.session = "session " + std::to_string(random_() % kSessions);
        record.destinations = {"billing"};
        record.payload.assign(kShortest + random_() % (kLongest - kShortest + 1), 'x');
        const net::Time begin = net::Loop::clock();
        accounting_->record(std::move(record), [this, begin](Result result) {
            if (result != Result::kOk) {
                std::fprintf(stderr, "accounting_bench: %s\n", describe(result));
                std::_Exit(1);
            }
            microseconds.push_back(static_cast<double>(net::Loop::clock() - begin) / 1000);
            ++answers_;
            next();
        });
    }

    net::Loop loop_;
    SlowFiles files_;
    std::unique_ptr<Accounting> accounting_;
    std::mt19937 random_{1};
    int left_ = 0, answers_ = 0;
};

void report(benchmark::State &state, std::vector<double> &times) {
    std::sort(times.begin(), times.end());
    state.counters["p50_us"] = times[times.size() / 2];
    state.counters["p99_us"] = times[times.size() * 99 / 100];
    state.SetItemsProcessed(static_cast<std::int64_t>(times.size()));
}

void AccountingSync(benchmark::State &state) {
    const Scratch scratch;
    const net::Descriptor file(open((scratch.path() + "/file").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    const std::string bytes(400, 'x');
    std::vector<double> times;
    off_t at = 0;
    for (auto _ : state) {
        const net::Time begin = net::Loop::clock();
        if (pwrite(file.get(), bytes.data(), bytes.size(), at) < 0 || fdatasync(file.get()) != 0) {
            state.SkipWithError("cannot write");
            return;
        }
        at += static_cast<off_t>(bytes.size());
        times.push_back(static_cast<double>(net::Loop::clock() - begin) / 1000);
    }
    report(state, times);
}
BENCHMARK(AccountingSync)->Iterations(kRecords)->UseRealTime();

void measure(benchmark::State &state, useconds_t more) {
    const Scratch scratch;
    Load load(scratch.path(), more);
    const int in_flight = static_cast<int>(state.range(0));
    load.run(in_flight, in_flight);  // the first segment, and the buffers
    load.microseconds.clear();
    const int records = more == 0 ? kRecords * std::min(in_flight, 32) : 20 * in_flight;
    for (auto _ : state) {
        load.run(records, in_flight);
    }
    report(state, load.microseconds);
}

void AccountingInFlight(benchmark::State &state) {
    measure(state, 0);
}
BENCHMARK(AccountingInFlight)->Arg(1)->Arg(32)->Arg(256)->Iterations(1)->UseRealTime();

void AccountingSlowDisk(benchmark::State &state) {
    measure(state, kSlow);
}
BENCHMARK(AccountingSlowDisk)->Arg(1)->Arg(32)->Arg(256)->Iterations(1)->UseRealTime();

}  // namespace
