// SPDX-License-Identifier: Apache-2.0
//
// Series, and their text.
#include "metrics/registry.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace metrics {

namespace {

[[noreturn]] void misused(const std::string &name, const char *what) {
    std::fprintf(stderr, "metrics: %s: %s\n", name.c_str(), what);
    std::abort();
}

// [a-zA-Z_:][a-zA-Z0-9_:]*, for labels without the colon.
bool is_name(std::string_view name, bool colon) {
    const auto fits = [colon](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
               (colon && c == ':');
    };
    return !name.empty() && (name[0] < '0' || name[0] > '9') && std::all_of(name.begin(), name.end(), fits);
}

bool is_label(std::string_view name) {
    return is_name(name, false) && !name.starts_with("__") && name != "le";
}

// Text in a line: help, and in quotes the value of a label.
std::string escaped(std::string_view text, bool quotes) {
    std::string out;
    for (const char c : text) {
        if (c == '\\' || (quotes && c == '"')) {
            out += '\\';
            out += c;
        } else if (c == '\n') {
            out += "\\n";
        } else {
            out += c;
        }
    }
    return out;
}

// The shortest text that is read as the same number.
std::string number(double value) {
    if (std::isnan(value)) {
        return "NaN";
    }
    if (std::isinf(value)) {
        return value > 0 ? "+Inf" : "-Inf";
    }
    std::array<char, 40> text;
    return {text.data(), std::to_chars(text.data(), text.data() + text.size(), value).ptr};
}

std::string label_text(const Labels &labels) {
    std::string out;
    for (const auto &[name, value] : labels) {
        out += (out.empty() ? "{" : ",") + name + "=\"" + escaped(value, true) + "\"";
    }
    return out.empty() ? out : out + "}";
}

void line(std::string &out, const std::string &name, const Labels &labels, const std::string &value) {
    out += name + label_text(labels) + " " + value + "\n";
}

const char *const kTypeNames[] = {"counter", "gauge", "histogram"};

}  // namespace

Histogram::Histogram(std::vector<double> bounds) : bounds_(std::move(bounds)) {
    std::sort(bounds_.begin(), bounds_.end());
    counts_.resize(bounds_.size() + 1);
}

void Histogram::observe(double value) {
    const auto bound = std::lower_bound(bounds_.begin(), bounds_.end(), value);
    ++counts_[static_cast<std::size_t>(bound - bounds_.begin())];
    sum_ += value;
}

Registry::Series &Registry::series(const std::string &name, const std::string &help, Type type,
                                   Labels labels) {
    if (!is_name(name, true)) {
        misused(name, "not a name of a metric");
    }
    Labels names = labels;
    for (auto &[label, value] : names) {
        if (!is_label(label)) {
            misused(name, "not a name of a label");
        }
        value.clear();
    }
    Family &family = families_.try_emplace(name, Family{type, help, names, {}}).first->second;
    if (family.type != type || family.names != names) {
        misused(name, "registered before with another type or other labels");
    }
    if (!family.series.contains(labels) && family.series.size() >= kMostSeries) {
        for (auto &[label, value] : labels) {
            value = "other";
        }
    }
    Series &series = family.series[labels];
    series.labels = std::move(labels);
    return series;
}

Counter &Registry::counter(const std::string &name, const std::string &help, const Labels &labels) {
    Series &found = series(name, help, Type::kCounter, labels);
    if (found.counter == nullptr) {
        found.counter = std::make_unique<Counter>();
    }
    return *found.counter;
}

Gauge &Registry::gauge(const std::string &name, const std::string &help, const Labels &labels) {
    Series &found = series(name, help, Type::kGauge, labels);
    if (found.gauge == nullptr) {
        found.gauge = std::make_unique<Gauge>();
    }
    return *found.gauge;
}

Histogram &Registry::histogram(const std::string &name, const std::string &help,
                               const std::vector<double> &bounds, const Labels &labels) {
    Series &found = series(name, help, Type::kHistogram, labels);
    if (found.histogram == nullptr) {
        found.histogram = std::make_unique<Histogram>(bounds);
    }
    return *found.histogram;
}

void Registry::remove(const std::string &name, const std::function<bool(const Labels &)> &is_gone) {
    const auto family = families_.find(name);
    if (family == families_.end()) {
        return;
    }
    std::erase_if(family->second.series, [&](const auto &entry) { return is_gone(entry.second.labels); });
    if (family->second.series.empty()) {
        families_.erase(family);
    }
}

void Registry::write(std::string &out, const std::string &name, const Series &series) {
    if (series.counter != nullptr) {
        line(out, name, series.labels, std::to_string(series.counter->value()));
    } else if (series.gauge != nullptr) {
        line(out, name, series.labels, number(series.gauge->value()));
    } else {
        const Histogram &histogram = *series.histogram;
        std::uint64_t count = 0;
        for (std::size_t i = 0; i < histogram.counts().size(); ++i) {
            count += histogram.counts()[i];
            Labels labels = series.labels;
            labels.emplace_back("le", i < histogram.bounds().size() ? number(histogram.bounds()[i]) : "+Inf");
            line(out, name + "_bucket", labels, std::to_string(count));
        }
        line(out, name + "_sum", series.labels, number(histogram.sum()));
        line(out, name + "_count", series.labels, std::to_string(count));
    }
}

std::string Registry::text() const {
    for (const std::function<void()> &call : before_text_) {
        call();
    }
    std::string out;
    for (const auto &[name, family] : families_) {
        out += "# HELP " + name + " " + escaped(family.help, false) + "\n";
        out += "# TYPE " + name + " " + kTypeNames[static_cast<std::size_t>(family.type)] + "\n";
        for (const auto &[labels, series] : family.series) {
            write(out, name, series);
        }
    }
    return out;
}

}  // namespace metrics
