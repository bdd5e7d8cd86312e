// SPDX-License-Identifier: Apache-2.0

#include "config/alarms.hpp"

#include <algorithm>
#include <ctime>

namespace service {

void Alarms::set(const std::string &word, const std::string &text) {
    const std::lock_guard lock(mutex_);
    const auto found =
        std::find_if(alarms_.begin(), alarms_.end(), [&](const Alarm &alarm) { return alarm.word == word; });
    if (text.empty()) {
        if (found != alarms_.end()) {
            alarms_.erase(found);
        }
    } else if (found != alarms_.end()) {
        found->text = text;
    } else {
        alarms_.push_back({word, static_cast<std::int64_t>(std::time(nullptr)), text});
    }
}

std::vector<Alarm> Alarms::all() const {
    const std::lock_guard lock(mutex_);
    return alarms_;
}

}  // namespace service
