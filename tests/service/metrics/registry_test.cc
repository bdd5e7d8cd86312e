// SPDX-License-Identifier: Apache-2.0

#include "metrics/registry.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace metrics {
namespace {

TEST(Registry, WritesThisText) {
    Registry registry;
    registry.counter("b_total", "Second.").add(18'446'744'073'709'551'615U);
    registry.counter("a_total", "First.", {{"x", "1"}, {"y", "2"}}).add();
    registry.counter("a_total", "First.", {{"x", "1"}, {"y", "2"}}).add(2);
    registry.counter("a_total", "First.", {{"x", "0"}, {"y", "2"}});
    Gauge &gauge = registry.gauge("c", "Third.");
    gauge.set(-0.1);
    EXPECT_EQ(registry.text(),
              "# HELP a_total First.\n# TYPE a_total counter\n"
              "a_total{x=\"0\",y=\"2\"} 0\na_total{x=\"1\",y=\"2\"} 3\n"
              "# HELP b_total Second.\n# TYPE b_total counter\nb_total 18446744073709551615\n"
              "# HELP c Third.\n# TYPE c gauge\nc -0.1\n");
}

TEST(Registry, WritesAHistogramCumulatively) {
    Registry registry;
    Histogram &histogram = registry.histogram("h", "Help.", {2.5, 1, 10}, {{"l", "v"}});
    for (const double value : {0.5, 1.0, 2.0, 2.5, 11.0, 1000.0}) {
        histogram.observe(value);
    }
    EXPECT_EQ(registry.text(),
              "# HELP h Help.\n# TYPE h histogram\n"
              "h_bucket{l=\"v\",le=\"1\"} 2\nh_bucket{l=\"v\",le=\"2.5\"} 4\nh_bucket{l=\"v\",le=\"10\"} 4\n"
              "h_bucket{l=\"v\",le=\"+Inf\"} 6\nh_sum{l=\"v\"} 1017\nh_count{l=\"v\"} 6\n");
}

TEST(Registry, EscapesTexts) {
    Registry registry;
    registry.counter("a_total", "One \\ \"two\"\nthree", {{"l", "\\ \"\n end"}});
    EXPECT_EQ(registry.text(),
              "# HELP a_total One \\\\ \"two\"\\nthree\n# TYPE a_total counter\n"
              "a_total{l=\"\\\\ \\\"\\n end\"} 0\n");
}

TEST(Registry, WritesNumbersThatAreReadAsTheSame) {
    Registry registry;
    Gauge &gauge = registry.gauge("g", "G.");
    const auto text = [&](double value) {
        gauge.set(value);
        const std::string all = registry.text();
        return all.substr(all.rfind(' ') + 1, all.size() - all.rfind(' ') - 2);
    };
    EXPECT_EQ(text(0), "0");
    EXPECT_EQ(text(123456789), "123456789");
    EXPECT_EQ(text(std::numeric_limits<double>::infinity()), "+Inf");
    EXPECT_EQ(text(-std::numeric_limits<double>::infinity()), "-Inf");
    EXPECT_EQ(text(std::nan("")), "NaN");
    for (const double value : {0.1, 1.0 / 3, 1e300, 5e-324, 9007199254740993.0}) {
        EXPECT_EQ(std::strtod(text(value).c_str(), nullptr), value);
    }
}

TEST(Registry, LimitsTheSeriesOfAName) {
    Registry registry;
    for (std::size_t i = 0; i < 3 * kMostSeries; ++i) {
        registry.counter("a_total", "A.", {{"user", std::to_string(i)}}).add();
    }
    const std::string text = registry.text();
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), static_cast<std::ptrdiff_t>(kMostSeries + 1 + 2));
    EXPECT_NE(text.find("a_total{user=\"other\"} 2000\n"), std::string::npos);
}

TEST(Registry, ForgetsWhatIsRemoved) {
    Registry registry;
    registry.counter("requests_total", "Requests.", {{"server", "one"}}).set(7);
    registry.counter("requests_total", "Requests.", {{"server", "two"}}).add();
    registry.remove("requests_total", [](const Labels &labels) { return labels[0].second == "two"; });
    registry.remove("unknown", [](const Labels &) { return true; });
    EXPECT_NE(registry.text().find("requests_total{server=\"one\"} 7\n"), std::string::npos);
    EXPECT_EQ(registry.text().find("two"), std::string::npos);
    registry.remove("requests_total", [](const Labels &) { return true; });
    EXPECT_EQ(registry.text(), "") << "without series there is no help either";
    EXPECT_EQ(registry.counter("requests_total", "Requests.", {{"server", "two"}}).value(), 0U);
}

TEST(Registry, AsksForFiguresBeforeItsText) {
    Registry registry;
    Gauge &gauge = registry.gauge("g", "G.");
    int calls = 0;
    registry.before_text([&] { gauge.set(++calls); });
    EXPECT_NE(registry.text().find("g 1\n"), std::string::npos);
    EXPECT_NE(registry.text().find("g 2\n"), std::string::npos);
}

TEST(RegistryDeathTest, EndsTheProcessWhenItIsMisused) {
    Registry registry;
    registry.counter("a_total", "A.", {{"l", ""}});
    EXPECT_DEATH(registry.gauge("a_total", "A.", {{"l", ""}}), "a_total: registered before");
    EXPECT_DEATH(registry.counter("a_total", "A."), "registered before");
    EXPECT_DEATH(registry.counter("a-b", "A."), "not a name of a metric");
    EXPECT_DEATH(registry.counter("", "A."), "not a name of a metric");
    EXPECT_DEATH(registry.counter("1a", "A."), "not a name of a metric");
    for (const char *label : {"", "a:b", "__a", "le", "1", "a b"}) {
        EXPECT_DEATH(registry.counter("b_total", "A.", {{label, ""}}), "not a name of a label") << label;
    }
}

}  // namespace
}  // namespace metrics
