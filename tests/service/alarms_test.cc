// SPDX-License-Identifier: Apache-2.0

#include "config/alarms.hpp"

#include <gtest/gtest.h>

#include <string>

namespace {

using service::Alarms;

std::string text_of(const Alarms &alarms) {
    std::string all;
    for (const service::Alarm &alarm : alarms.all()) {
        EXPECT_GT(alarm.since_s, 1600000000);
        all += alarm.word + "=" + alarm.text + ";";
    }
    return all;
}

TEST(Alarms, LastUntilTheirTextIsEmpty) {
    Alarms alarms;
    EXPECT_EQ(text_of(alarms), "");
    alarms.set("keys", "");
    alarms.set("database", "away");
    alarms.set("keys", "closed");
    EXPECT_EQ(text_of(alarms), "database=away;keys=closed;");
    const auto since = alarms.all()[0].since_s;
    alarms.set("database", "still away");
    EXPECT_EQ(text_of(alarms), "database=still away;keys=closed;");
    EXPECT_EQ(alarms.all()[0].since_s, since) << "it began when it was raised first";
    alarms.set("database", "");
    EXPECT_EQ(text_of(alarms), "keys=closed;");
}

}  // namespace
