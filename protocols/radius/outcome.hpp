// SPDX-License-Identifier: Apache-2.0
//
// What has become of a question.
#pragma once

#include <string>

#include "net/loop.hpp"
#include "radius/answer.hpp"

namespace radius {

struct Outcome {
    enum class Kind {
        kAnswer,   // the server has answered
        kSilent,   // it has not, in time
        kRefused,  // it cannot be reached, and the network says so
        kError,    // the question could not be sent: a fault on this side
    };

    Kind kind = Kind::kError;
    Answer answer;             // of kAnswer
    std::string text;          // of the others: what is wrong, for the administrator
    int tries = 0;             // how often it was sent
    bool is_overload = false;  // of kError: too much is under way
    net::Time time = 0;        // from when it was first sent to the outcome; 0 when it was not
};

}  // namespace radius
