// SPDX-License-Identifier: Apache-2.0

#include "accounting/sessions.hpp"

#include <gtest/gtest.h>

#include "service/accounting/support.hpp"

namespace accounting {
namespace {

class SessionsTest : public testing::Test {
  protected:
    void start() {
        calls.is_alive = [this](const Record &record) { return !ended_processes.contains(record.session); };
        calls.interim = [this](const RecordPointer &opened) { interims.push_back(opened->session); };
        calls.ended = [this](const RecordPointer &opened) {
            ended.push_back(opened->session);
            if (close_ended) {
                apply(opened->session, Kind::kStop);
            }
        };
        sessions = std::make_unique<Sessions>(loop, settings, calls);
    }
    void apply(const std::string &session, Kind kind) {
        Record record = sample(session, kind);
        record.sequence = ++sequence;
        sessions->apply(std::make_shared<const Record>(record));
    }
    std::vector<std::string> open() const {
        std::vector<std::string> names;
        for (const RecordPointer &record : sessions->list()) {
            names.push_back(record->session);
        }
        return names;
    }

    net::Loop loop;
    SessionSettings settings;
    SessionCalls calls;
    std::unique_ptr<Sessions> sessions;
    std::uint64_t sequence = 0;
    std::set<std::string> ended_processes;
    std::vector<std::string> interims, ended;
    bool close_ended = true;
};

using Names = std::vector<std::string>;

TEST_F(SessionsTest, AreOpenFromStartToStop) {
    start();
    apply("a", Kind::kStart);
    apply("b", Kind::kStart);
    apply("a", Kind::kInterim);
    apply("c", Kind::kInterim);
    apply("d", Kind::kStop);
    apply("e", Kind::kEvent);
    EXPECT_EQ(open(), (Names{"a", "b"}));
    apply("a", Kind::kStop);
    EXPECT_EQ(open(), Names{"b"});
    // A session whose process died, and a new one of the same name.
    apply("b", Kind::kStart);
    EXPECT_EQ(open(), Names{"b"});
    EXPECT_EQ(sessions->list()[0]->sequence, sequence);
}

TEST_F(SessionsTest, AreLimited) {
    settings.most = 2;
    start();
    for (const char *name : {"a", "b", "c"}) {
        apply(name, Kind::kStart);
    }
    EXPECT_EQ(open(), (Names{"a", "b"}));
    EXPECT_EQ(sessions->overflowed(), 1U);
    apply("c", Kind::kStop);
    apply("a", Kind::kStop);
    apply("d", Kind::kStart);
    EXPECT_EQ(open(), (Names{"b", "d"}));
}

TEST_F(SessionsTest, AreLimitedInBytes) {
    settings.most_bytes = 3 * body_size(sample("a")) + 1;
    start();
    for (const char *name : {"a", "b", "c", "d"}) {
        apply(name, Kind::kStart);
    }
    EXPECT_EQ(open(), (Names{"a", "b", "c"}));
    apply("a", Kind::kStop);
    apply("e", Kind::kStart);
    EXPECT_EQ(open(), (Names{"b", "c", "e"}));
}

TEST_F(SessionsTest, WhoseProcessEndedAreReportedUntilTheyAreClosed) {
    settings.check_every = net::kMillisecond;
    close_ended = false;
    start();
    for (const char *name : {"a", "b", "c"}) {
        apply(name, Kind::kStart);
    }
    ended_processes = {"b"};
    sessions->start();
    run_until(loop, [&] { return ended.size() == 3; });
    EXPECT_EQ(ended, (Names{"b", "b", "b"}));
    close_ended = true;
    run_until(loop, [&] { return sessions->count() == 2; });
    ended_processes = {"a", "b", "c"};
    run_until(loop, [&] { return sessions->count() == 0; });
}

TEST_F(SessionsTest, OfManyProcessesAreAllLookedAt) {
    settings.check_every = net::kMillisecond;
    start();
    for (int i = 0; i < 1000; ++i) {
        apply("s" + std::to_string(i), Kind::kStart);
        ended_processes.insert("s" + std::to_string(i));
    }
    sessions->start();
    run_until(loop, [&] { return sessions->count() == 0; });
    EXPECT_EQ(ended.size(), 1000U);
}

TEST_F(SessionsTest, GetInterimRecords) {
    settings.interim_every = net::kMillisecond;
    start();
    apply("before", Kind::kStart);
    sessions->start();
    apply("after", Kind::kStart);
    const auto count = [&](const char *name) { return std::count(interims.begin(), interims.end(), name); };
    run_until(loop, [&] { return count("before") >= 3 && count("after") >= 3; });
    apply("before", Kind::kStop);
    const auto until_now = count("before");
    const auto more = count("after") + 3;
    run_until(loop, [&] { return count("after") >= more; });
    EXPECT_EQ(count("before"), until_now);
}

TEST_F(SessionsTest, GetNoInterimRecordsWithoutAnInterval) {
    settings.check_every = net::kMillisecond;
    start();
    apply("a", Kind::kStart);
    sessions->start();
    apply("b", Kind::kStart);
    ended_processes = {"b"};
    run_until(loop, [&] { return sessions->count() == 1; });
    EXPECT_TRUE(interims.empty());
}

// A callback may close the session it is called for, and others.
TEST_F(SessionsTest, MayGetAnotherInterval) {
    start();
    apply("a", Kind::kStart);
    sessions->start();
    sessions->set_interim(net::kMillisecond);
    run_until(loop, [&] { return interims.size() >= 2; });
    sessions->set_interim(0);
    const std::size_t before = interims.size();
    loop.run_once(loop.now() + 20 * net::kMillisecond);
    EXPECT_EQ(interims.size(), before);
}

TEST_F(SessionsTest, AreFoundByName) {
    start();
    apply("a", Kind::kStart);
    ASSERT_NE(sessions->find("a"), nullptr);
    EXPECT_EQ(sessions->find("a")->sequence, sequence);
    EXPECT_EQ(sessions->find("b"), nullptr);
    apply("a", Kind::kStop);
    EXPECT_EQ(sessions->find("a"), nullptr);
}

// After a restart of the machine all processes have ended, and no one else will say so.
TEST_F(SessionsTest, AreLookedAtFirstWhenTheServiceStarts) {
    settings.check_every = 3600 * net::kSecond;
    start();
    apply("a", Kind::kStart);
    ended_processes = {"a"};
    sessions->start();
    run_until(loop, [&] { return !ended.empty(); });
    EXPECT_EQ(ended, Names{"a"});
}

TEST_F(SessionsTest, MayBeClosedByTheirInterimRecord) {
    settings.interim_every = net::kMillisecond;
    start();
    calls.interim = [this](const RecordPointer &) {
        apply("a", Kind::kStop);
        apply("b", Kind::kStop);
    };
    sessions = std::make_unique<Sessions>(loop, settings, calls);
    apply("a", Kind::kStart);
    apply("b", Kind::kStart);
    sessions->start();
    run_until(loop, [&] { return sessions->count() == 0; });
}

}  // namespace
}  // namespace accounting
