// SPDX-License-Identifier: Apache-2.0

#include "service/steps.hpp"

#include <pwd.h>

#include <algorithm>
#include <cstdio>

#include "service/control_client.hpp"

namespace aaactl {
namespace {

Style style_of(const std::string &outcome) {
    return outcome.empty() || outcome == "passed over" ? Style::plain
           : outcome == "pass" || outcome == "passes"  ? Style::good
           : outcome == "refused" || outcome == "refuses" || outcome == "error" || outcome == "not allowed"
               ? Style::bad
               : Style::warning;
}

std::string user_name(uint64_t uid) {
    const passwd *found = getpwuid(static_cast<uid_t>(uid));
    return found != nullptr ? escaped(found->pw_name) : std::to_string(uid);
}

// "authentication of alice, service login, from 192.0.2.10 on vty0, for client 4711 of user root"
std::string request_text(const Json &event) {
    const auto part = [&](const char *before, const char *name, const char *after = "") {
        const std::string text = text_of(event, name);
        return text.empty() ? "" : before + escaped(text) + after;
    };
    const std::string user = text_of(event, "user");
    const std::string list = text_of(event, "list");
    return escaped(text_of(event, "function")) + " of " + (user.empty() ? "no user yet" : escaped(user)) +
           part(", service ", "service") + (list == "default" ? "" : part(", list ", "list")) +
           part(", command \"", "command", "\"") + part(", from ", "remote") + part(", on ", "terminal") +
           ", for client " + std::to_string(number_of(event, "client_pid")) + " of user " +
           user_name(number_of(event, "client_uid"));
}

std::string milliseconds(uint64_t microseconds) {
    char text[32];
    std::snprintf(text, sizeof text, "%.1f ms", static_cast<double>(microseconds) / 1000);
    return text;
}

std::string step_text(const Output &out, const Json &event) {
    const std::string step = text_of(event, "step");
    if (step == "request") {
        return request_text(event);
    }
    const std::string outcome = text_of(event, "outcome");
    const std::string detail = text_of(event, "detail");
    const std::string next = text_of(event, "next");
    const std::string told = text_of(event, "text");
    const uint64_t tries = number_of(event, "tries");
    std::string text = escaped(text_of(event, "subject"));
    text += outcome.empty() ? "" : ": " + out.styled(style_of(outcome), escaped(outcome));
    text += event.contains("us") ? " after " + milliseconds(number_of(event, "us")) : "";
    text += tries == 0 ? "" : " in " + std::to_string(tries) + (tries == 1 ? " try" : " tries");
    text += detail.empty() ? "" : ": " + escaped(detail);
    text += next.empty() ? "" : "; the next is " + escaped(next);
    text += told.empty() ? "" : "; the user is told \"" + escaped(told) + "\"";
    return text;
}

}  // namespace

void StepPrinter::print(const Json &event) {
    const std::string id = text_of(event, "id");
    const uint64_t time = number_of(event, "time");
    const std::string date = date_of(time);
    if (!last_id_.empty() && id != last_id_) {
        out_.line("");
    }
    if (date != last_date_) {
        out_.line(out_.styled(Style::dim, date));
    }
    last_id_ = id;
    last_date_ = date;
    std::string step = escaped(text_of(event, "step"));
    step.resize(std::max<size_t>(step.size(), 7), ' ');
    out_.line(out_.styled(Style::dim, time_of_day(time)) + " [" + escaped(id) + "] " +
              out_.styled(Style::strong, step) + "  " + step_text(out_, event));
}

}  // namespace aaactl
