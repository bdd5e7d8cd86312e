// SPDX-License-Identifier: Apache-2.0

#include "control/follower.hpp"

#include <gtest/gtest.h>

#include <cstring>

namespace service {
namespace {

constexpr std::int64_t kSecond = 1000000000;

class FollowerTest : public testing::Test {
  protected:
    void add(const std::string &user, LoginId id, std::int64_t at = 0, std::int32_t pid = 0) {
        TraceEvent event{0, at, id, Step::kMethod, user, "local", ""};
        if (pid != 0) {
            event.step = Step::kRequest;
            TraceRequest request;
            request.client_pid = pid;
            event.request = std::make_shared<TraceRequest>(request);
        }
        trace_.add(std::move(event));
    }
    static ControlRequest kept() {
        ControlRequest request;
        request.kind = ControlRequest::Kind::kTrace;
        request.live = false;
        return request;
    }
    // The numbers of the steps, "lost N" and "end".
    static std::string summary(const std::string &lines) {
        std::string all;
        for (std::size_t at = 0; at < lines.size(); at = lines.find('\n', at) + 1) {
            const std::string line = lines.substr(at, lines.find('\n', at) - at);
            const auto after = [&](const char *word) {
                const std::size_t from = line.find(word) + std::strlen(word);
                return line.substr(from, line.find_first_of(",}", from) - from);
            };
            all += all.empty() ? "" : " ";
            all += line.find("\"end\"") != std::string::npos    ? "end"
                   : line.find("\"lost\"") != std::string::npos ? "lost " + after("\"count\":")
                                                                : after("\"number\":");
        }
        return all;
    }
    std::string all_of(const ControlRequest &request, std::int32_t pid = 7, std::int64_t now = 0) {
        TraceFollower follower(trace_, request, pid, now);
        std::string out;
        follower.append_to(out, 1000000);
        EXPECT_TRUE(follower.has_ended());
        return summary(out);
    }

    Trace trace_{5};
};

TEST_F(FollowerTest, ShowsWhatIsKept) {
    EXPECT_EQ(all_of(kept()), "end");
    for (LoginId id = 1; id <= 7; ++id) {
        add(id % 2 == 0 ? "bob" : "ann", id, static_cast<std::int64_t>(id) * kSecond);
    }
    EXPECT_EQ(all_of(kept()), "3 4 5 6 7 end");
    ControlRequest request = kept();
    request.after = 0;
    EXPECT_EQ(all_of(request), "3 4 5 6 7 end") << "nothing is missed that was not asked for";
    request.after = 1;
    EXPECT_EQ(all_of(request), "lost 1 3 4 5 6 7 end");
    request.after = 5;
    EXPECT_EQ(all_of(request), "6 7 end");
    request.after = UINT64_MAX - 1;
    EXPECT_EQ(all_of(request), "end");
    request = kept();
    request.user = "ann";
    EXPECT_EQ(all_of(request), "3 5 7 end");
    request.id = 5;
    EXPECT_EQ(all_of(request), "5 end");
    request = kept();
    request.seconds = 2;
    EXPECT_EQ(all_of(request, 7, 7 * kSecond), "5 6 7 end");
    request.seconds = UINT64_MAX;
    EXPECT_EQ(all_of(request, 7, 7 * kSecond), "3 4 5 6 7 end");
}

TEST_F(FollowerTest, ShowsTheRequestsOfOneProcess) {
    add("ann", 1, 0, 7);
    add("ann", 1);
    add("bob", 2, 0, 8);
    add("bob", 2);
    add("ann", 1);
    ControlRequest request = kept();
    request.mine = true;
    EXPECT_EQ(all_of(request), "1 2 5 end");
    EXPECT_EQ(all_of(request, 8), "3 4 end");
    EXPECT_EQ(all_of(request, 0), "end") << "a process that the service cannot see";
}

TEST_F(FollowerTest, ASlowReaderIsToldWhatItHasMissed) {
    ControlRequest request = kept();
    request.live = true;
    TraceFollower follower(trace_, request, 7, 0);
    std::string out;
    add("ann", 1);
    add("ann", 2);
    follower.append_to(out, 1);
    EXPECT_EQ(summary(out), "1") << "no more than there is room for";
    for (LoginId id = 3; id <= 10; ++id) {
        add("ann", id);
    }
    follower.append_to(out, 1000000);
    EXPECT_EQ(summary(out), "1 lost 4 6 7 8 9 10");
    EXPECT_FALSE(follower.has_ended());
    out.clear();
    follower.append_to(out, 1000000);
    EXPECT_EQ(out, "");
}

TEST_F(FollowerTest, NamesThatAreNoUtf8AreFoundAsTheyAreShown) {
    add("a\xff", 1);
    ControlRequest request = kept();
    request.user = "a\xef\xbf\xbd";
    EXPECT_EQ(all_of(request), "1 end");
}

// Servers repeat the name in what they say.
TEST_F(FollowerTest, TextsDoNotHaveNamesThatAreNotShown) {
    trace_.names().use([](const std::string &name) { return name == "ann"; });
    TraceEvent event{0, 0, 1, Step::kAnswer, "geheim", "FAIL", "the server says: Geheim is unknown"};
    event.text = "no user geheim";
    TraceRequest asked;
    asked.command = "show user geheim";
    event.request = std::make_shared<TraceRequest>(asked);
    trace_.add(std::move(event));
    const auto lines_of = [&](const ControlRequest &request) {
        TraceFollower follower(trace_, request, 7, 0);
        std::string out;
        follower.append_to(out, 1000000);
        return out;
    };
    const std::string lines = lines_of(kept());
    EXPECT_EQ(lines.find("geheim"), std::string::npos) << lines;
    EXPECT_EQ(lines.find("Geheim"), std::string::npos) << lines;
    EXPECT_NE(lines.find("no user (unknown name)"), std::string::npos) << lines;
    ControlRequest own = kept();
    own.user = "geheim";
    EXPECT_NE(lines_of(own).find("no user geheim"), std::string::npos) << "who asks for a name knows it";
}

}  // namespace
}  // namespace service
