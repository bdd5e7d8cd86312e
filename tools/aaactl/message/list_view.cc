// SPDX-License-Identifier: Apache-2.0
//
// Shows a list of the library through the forms of messages.

#include "message/list_view.hpp"

#include "dictionary/attributes.hpp"
#include "message/message_json.hpp"
#include "message/message_meanings.hpp"
#include "message/message_value.hpp"

namespace aaactl {
namespace {

std::vector<Pair> pairs_of(const avlist *list) {
    return list != nullptr ? list_of(list).pairs : std::vector<Pair>{};
}

std::string name_of(const Pair &pair) {
    const std::string name = attribute_name(pair.type);
    return name.empty() ? std::to_string(pair.type) : name;
}

}  // namespace

Json attributes_json(const Output &out, const avlist *list) {
    Json all = Json::array();
    service::TextMask mask;
    for (const Pair &pair : pairs_of(list)) {
        all.push_back(pair_json(pair, mask, out.show_secrets()));
    }
    return all;
}

void print_attributes(Output &out, const avlist *list) {
    std::vector<std::vector<std::string>> rows;
    service::TextMask mask;
    for (const Pair &pair : pairs_of(list)) {
        const Shown shown = shown_value(pair, mask, out.show_secrets());
        rows.push_back({"  " + name_of(pair), shown.text, shown.masked ? "" : meaning_of_value(pair)});
    }
    out.table({}, rows);
}

}  // namespace aaactl
