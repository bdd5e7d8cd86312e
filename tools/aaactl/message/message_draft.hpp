// SPDX-License-Identifier: Apache-2.0
//
// A message that is assembled from a description. Fields that are not given are
// zero, except for lengths and counts, which follow from the rest. An impossible
// value is Refused at once; the caller adds its place.

#pragma once

#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "message/message.hpp"
#include "message/message_value.hpp"

namespace aaactl {

class Draft {
  public:
    void kind(std::string_view name);
    void record(std::string_view name);
    void list();
    void bytes(std::string_view name, std::string value);
    void pair(Pair pair);  // begins a list if there is none

    const Field &field(std::string_view name);  // of the record or list begun last
    void number(const Field &field, uint64_t value);
    void content(const Field &field, std::string bytes);

    // Failure when the parts do not make a well-formed message of the kind.
    Message finish();

  private:
    Record &open();
    void complete(size_t part);
    void complete_list(size_t part);
    void default_number(size_t part, Record &record, const char *field, uint64_t value);

    Message message_{"list", {}, {}};
    std::vector<std::set<std::string>> given_;  // names of fields, for each part
};

}  // namespace aaactl
