// SPDX-License-Identifier: Apache-2.0
//
// Figures of the service: counters, gauges and histograms, as text in the exposition
// format of Prometheus, version 0.0.4. One thread at a time uses a registry and what it
// returns.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace metrics {

using Labels = std::vector<std::pair<std::string, std::string>>;

// Only rises, until the service ends. By convention its name ends in _total.
class Counter {
  public:
    void add(std::uint64_t count = 1) { value_ += count; }
    // For a figure that is counted elsewhere.
    void set(std::uint64_t value) { value_ = value; }
    std::uint64_t value() const { return value_; }

  private:
    std::uint64_t value_ = 0;
};

class Gauge {
  public:
    void set(double value) { value_ = value; }
    double value() const { return value_; }

  private:
    double value_ = 0;
};

class Histogram {
  public:
    // The upper bounds of the buckets; they are sorted here.
    explicit Histogram(std::vector<double> bounds);
    void observe(double value);

    const std::vector<double> &bounds() const { return bounds_; }
    // Values up to a bound, the last one without a bound. Not cumulative.
    const std::vector<std::uint64_t> &counts() const { return counts_; }
    double sum() const { return sum_; }

  private:
    std::vector<double> bounds_;
    std::vector<std::uint64_t> counts_;
    double sum_ = 0;
};

// Series of one name that differ in their labels. More would be a mistake, or the work of
// a user whose input became a label: further ones share one series, whose labels all have
// the value "other".
inline constexpr std::size_t kMostSeries = 1000;

class Registry {
  public:
    // The series with these labels, made by the first call; it lives as long as the registry,
    // or until it is removed. The name must be one of the format, always have the same type,
    // and the same labels in the same order; anything else is an error of the caller that ends
    // the process.
    Counter &counter(const std::string &name, const std::string &help, const Labels &labels = {});
    Gauge &gauge(const std::string &name, const std::string &help, const Labels &labels = {});
    Histogram &histogram(const std::string &name, const std::string &help, const std::vector<double> &bounds,
                         const Labels &labels = {});

    // Removes the series of a name for which the function is true, and ends the references to
    // them: of what is no longer there.
    void remove(const std::string &name, const std::function<bool(const Labels &)> &is_gone);

    // Called before each text(), to set gauges to figures that are kept elsewhere.
    void before_text(std::function<void()> call) { before_text_.push_back(std::move(call)); }

    std::string text() const;

  private:
    enum class Type { kCounter, kGauge, kHistogram };
    struct Series {
        Labels labels;
        std::unique_ptr<Counter> counter;
        std::unique_ptr<Gauge> gauge;
        std::unique_ptr<Histogram> histogram;
    };
    struct Family {
        Type type;
        std::string help;
        Labels names;  // of the labels, with empty values
        std::map<Labels, Series> series;
    };

    Series &series(const std::string &name, const std::string &help, Type type, Labels labels);
    static void write(std::string &out, const std::string &name, const Series &series);

    std::map<std::string, Family> families_;
    std::vector<std::function<void()>> before_text_;
};

}  // namespace metrics
