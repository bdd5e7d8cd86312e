// SPDX-License-Identifier: Apache-2.0

#include "journal/journal_backend.hpp"

#include <utility>

#include "journal/recorder.hpp"

namespace service {

std::unique_ptr<Attempt> JournalBackend::authenticate(const Question &question,
                                                      std::shared_ptr<Dialogue> dialogue, Done done) {
    return groups_of(question).authenticate(question, std::move(dialogue), std::move(done));
}

std::unique_ptr<Attempt> JournalBackend::authorize(const Question &question, Done done) {
    return groups_of(question).authorize(question, std::move(done));
}

std::unique_ptr<Attempt> JournalBackend::account(const Question &question, Done done) {
    return recorder_.keeps(question) ? recorder_.account(question, std::move(done))
                                     : groups_of(question).account(question, std::move(done));
}

bool JournalBackend::takes_for_several(const Question &question) const {
    return recorder_.keeps(question);
}

}  // namespace service
