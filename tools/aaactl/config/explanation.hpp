// SPDX-License-Identifier: Apache-2.0
//
// How a request for a service is answered: the method list that it uses, its
// steps and their faults.

#pragma once

#include <span>
#include <string>
#include <vector>

#include "config/findings.hpp"
#include "config/list_choice.hpp"
#include "config/lookup.hpp"
#include "config/method_lists.hpp"
#include "config/server_keys.hpp"

namespace aaactl {

struct ExplainOptions {
    std::string function;
    std::string service;
    std::string list;
    std::string line;
};

struct Explanation {
    struct Step {
        Method method;
        std::vector<Server> servers;
        std::vector<ServerKey> keys;  // of the servers
        bool works = false;           // it can answer
    };

    ServiceWord service;
    ListChoice choice;
    std::string line;
    MethodList list;
    bool configured = false;  // else the library supplies it
    ClientView client;
    cerrno suits = AAA_OK;  // the library's verdict on the list for the service
    std::vector<Step> steps;
    std::vector<std::string> others;  // lists of the same service
    Findings findings;

    bool exists() const { return configured || client.rc == AAA_OK; }
    // Whether a request gets as far as the first step.
    bool is_tried() const {
        return client.rc == AAA_OK && suits == AAA_OK && (steps.empty() || !client.methods.empty());
    }
    // The steps that a request can reach: none of a list that is not tried, none after one that always
    // answers.
    std::span<const Step> reached() const;
    const std::string &function() const { return list.function; }
};

// ---- in words, as explain prints them

// "server group corp", "local", ...
std::string step_word(const Explanation::Step &step);
// What the method asks: "radius, number 1001", "the users of this router", ...
std::string step_meaning(const Explanation &e, const Explanation::Step &step);
// aaad puts the records of groups on disk, and answers the client before a server does.
bool is_kept_on_disk(const Explanation &e, const Explanation::Step &step);
// What happens when it refuses, and when step i of the reached ones does not answer.
std::string on_refusal(const Explanation &e, const Explanation::Step &step);
std::string on_silence(const Explanation &e, size_t i);

// Failure(usage) for a function, service or list that cannot exist.
Explanation make_explanation(Database &database, const ExplainOptions &options);

}  // namespace aaactl
