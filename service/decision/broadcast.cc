// SPDX-License-Identifier: Apache-2.0
//
// Accounting records for all methods of a list.

#include <utility>

#include "aaa/result_codes.h"
#include "decision/decision.hpp"

namespace service {

bool Decision::is_askable(std::size_t place) const {
    const Method &method = list_.methods[place];
    return method.group != nullptr && !method.group->servers.empty();
}

// The methods that get a broadcast record by one question at the method of a place; empty when
// they are asked together with an earlier one.
std::vector<std::size_t> Decision::asked_together(std::size_t place) {
    const auto shared_backend = [this](std::size_t at) -> const Backend * {
        question_.method = list_.methods[at];
        const Backend *backend = is_askable(at) ? deciders_.backends.find(question_.method) : nullptr;
        return backend != nullptr && backend->takes_for_several(question_) ? backend : nullptr;
    };
    std::vector<std::size_t> together = {place};
    const Backend *backend = shared_backend(place);
    for (std::size_t other = 0; backend != nullptr && other < list_.methods.size(); ++other) {
        if (other != place && shared_backend(other) == backend) {
            if (other < place) {
                return {};
            }
            together.push_back(other);
        }
    }
    return together;
}

void Decision::ask_all() {
    std::vector<std::vector<std::size_t>> questions;
    for (std::size_t place = 0; place < list_.methods.size(); ++place) {
        if (auto together = asked_together(place); !together.empty()) {
            questions.push_back(std::move(together));
        }
    }
    open_ = questions.size();
    for (const std::vector<std::size_t> &places : questions) {
        question_.also.clear();
        for (std::size_t i = 1; i < places.size(); ++i) {
            question_.also.push_back(list_.methods[places[i]]);
            trace(Step::kMethod, question_.also.back().text(), "with " + list_.methods[places[0]].text());
        }
        ask(places[0], nullptr);
    }
}

// A broadcast record is kept when one method keeps it; all are waited for.
void Decision::take_one_of_all(const Asked &asked, const Outcome &outcome) {
    kept_ += outcome.kind == Outcome::Kind::kPass ? asked.methods : 0;
    if (--open_ > 0) {
        return;
    }
    if (kept_ == 0) {
        fail_without_method("no method of the list " + path_ + " keeps the record", AAA_ERR_ACCT_SERVICE);
        return;
    }
    Answer answer;
    answer.status = AAA_STAT_PASS;
    answer.reason = std::to_string(kept_) + " of " + std::to_string(list_.methods.size()) + " methods";
    log_answer(answer);
    finish(std::move(answer));
}

}  // namespace service
