// SPDX-License-Identifier: Apache-2.0

#include "report/parts.hpp"

namespace aaactl {

const std::vector<Json> &array_of(const Json &document, std::string_view name) {
    static const std::vector<Json> none;
    const Json &value = document[name];
    return value.is_array() ? value.elements() : none;
}

void pair(Html &page, const char *name, const std::string &value, const char *kind) {
    page.line("dt", name).line("dd", value, {{"class", kind}});
}

std::string plural(size_t number, const std::string &noun) {
    return std::to_string(number) + " " + noun + (number == 1 ? "" : "s");
}

bool fold(Html &page, size_t number, const char *what) {
    constexpr size_t kMostUnfolded = 20;
    const bool folded = number > kMostUnfolded;
    if (folded) {
        page.line("p", std::to_string(number) + " " + what + "; open one to see more.", {{"class", "dim"}});
    }
    return folded;
}

void open_card(Html &page, bool folded, const std::string &heading, const std::string &remark,
               const std::string &trouble) {
    if (!folded) {
        page.open("section", {{"class", "card"}}).line("h3", heading);
        return;
    }
    page.open("details", {{"class", "card"}}).open("summary").line("h3", heading);
    if (!remark.empty()) {
        page.text(" " + remark);
    }
    if (!trouble.empty()) {
        page.text(", ").line("span", trouble, {{"class", "bad"}});
    }
    page.close();
}

}  // namespace aaactl
