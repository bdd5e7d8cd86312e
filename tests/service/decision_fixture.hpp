// SPDX-License-Identifier: Apache-2.0
//
// A decision with methods that the test plays.
#pragma once

#include <gtest/gtest.h>

#include <deque>
#include <regex>
#include <string>
#include <utility>
#include <vector>

#include "decision/decision.hpp"

namespace decision_test {

using namespace service;
using Kind = Outcome::Kind;

// A method whose outcomes are played back, one for each question. Without one it is silent.
class Played : public Backend {
  public:
    Played(net::Loop &loop, bool remote) : loop_(loop), remote_(remote) {}

    std::unique_ptr<Attempt> authenticate(const Question &question, std::shared_ptr<Dialogue> dialogue,
                                          Done done) override {
        dialogues.push_back(std::move(dialogue));
        return play(question, std::move(done));
    }
    std::unique_ptr<Attempt> authorize(const Question &question, Done done) override {
        return play(question, std::move(done));
    }
    std::unique_ptr<Attempt> account(const Question &question, Done done) override {
        return play(question, std::move(done));
    }
    bool is_remote() const override { return remote_; }

    // Refuses all that were met with silence.
    void refuse_all() {
        for (Done &done : std::exchange(silent_, {})) {
            loop_.post([done = std::move(done)] { done(Outcome::fail("")); });
        }
    }

    std::deque<Outcome> outcomes;
    std::vector<Question> asked;
    std::vector<std::shared_ptr<Dialogue>> dialogues;
    int cancelled = 0;

  private:
    struct Silence : Attempt {
        explicit Silence(int &count) : cancelled(count) {}
        ~Silence() override { ++cancelled; }
        int &cancelled;
    };

    std::unique_ptr<Attempt> play(const Question &question, Done done) {
        asked.push_back(question);
        if (outcomes.empty()) {
            silent_.push_back(std::move(done));
            return std::make_unique<Silence>(cancelled);
        }
        Outcome outcome = std::move(outcomes.front());
        outcomes.pop_front();
        return answer_soon(loop_, std::move(outcome), std::move(done));
    }

    net::Loop &loop_;
    bool remote_;
    std::vector<Done> silent_;
};

class DecisionTest : public testing::Test {
  protected:
    DecisionTest() {
        backends_.add(AAA_METHOD_LOCAL, local_);
        backends_.add(AAA_METHOD_ENABLE, second_);
        backends_.add(Protocol::kRadius, servers_);
        auto settings = std::make_shared<Settings>();
        settings->lockout.failures = 2;
        snapshot_->settings = settings;
        Group group;
        group.name = "corp";
        group.servers.resize(1);
        group_ = std::make_shared<const Group>(group);
    }

    void list(std::vector<std::uint32_t> methods, bool broadcast = false) {
        snapshot_ = std::make_shared<Snapshot>(*snapshot_);  // a snapshot is never changed
        for (const char *path :
             {"authentication/login/default", "authorization/exec/default", "accounting/exec/default"}) {
            MethodList &made = snapshot_->lists[path];
            made.methods.clear();
            made.broadcast = broadcast;
            for (const std::uint32_t number : methods) {
                made.methods.push_back({number, number == AAA_METHOD_SERVER_GROUP ? "corp" : "",
                                        number == AAA_METHOD_SERVER_GROUP ? group_ : nullptr});
            }
        }
    }

    Question question(Function function = Function::kAuthentication,
                      net::Time patience = 3600 * net::kSecond) {
        Question made;
        made.id = 7;
        made.function = function;
        made.service = function == Function::kAuthentication ? AAA_SVC_LOGIN : AAA_SVC_EXEC;
        made.user = "alice";
        made.password = Secret("wonderland");
        made.source = "192.0.2.1";
        made.for_others = true;
        made.snapshot = snapshot_;
        made.deadline = net::Loop::clock() + patience;
        return made;
    }

    Answer decide(Question asked, std::shared_ptr<PendingLogin> pending = nullptr) {
        std::optional<Answer> answer;
        Decision decision(deciders_, std::move(asked), std::move(pending), [&](Answer given) {
            EXPECT_FALSE(answer.has_value()) << "a second answer";
            answer = std::move(given);
        });
        EXPECT_FALSE(answer.has_value()) << "an answer before the constructor returned";
        while (!answer) {
            loop_.run_once(INT64_MAX);
        }
        return *answer;
    }

    std::string trace_text() {
        std::string all;
        trace_.visit(0, [&](const TraceEvent &event) {
            const std::string text = event_text(event);
            all += std::string(step_name(event.step)) + " " + event.subject + (text.empty() ? "" : ": ") +
                   std::regex_replace(text, std::regex("after [0-9.]+ ms"), "after a time") + "\n";
        });
        return all;
    }

    net::Loop loop_;
    Workers workers_{loop_, 1};
    std::shared_ptr<Played> local_ = std::make_shared<Played>(loop_, false);
    std::shared_ptr<Played> second_ = std::make_shared<Played>(loop_, false);
    std::shared_ptr<Played> servers_ = std::make_shared<Played>(loop_, true);
    Backends backends_;
    Lockout lockout_;
    Trace trace_;
    Turns turns_{loop_, lockout_};
    Deciders deciders_{loop_, workers_, backends_, lockout_, trace_, turns_};
    std::shared_ptr<Snapshot> snapshot_ = std::make_shared<Snapshot>();
    std::shared_ptr<const Group> group_;
};

}  // namespace decision_test
