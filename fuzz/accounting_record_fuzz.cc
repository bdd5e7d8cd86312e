// SPDX-License-Identifier: Apache-2.0
//
// The content of an accounting record as the journal keeps it. The input is a place (2 bytes)
// and the bytes of the record.
//
// Bytes that are read as a record are written again as they were, so two records never have the
// same bytes and nothing in them is ignored. No shorter or longer bytes are the same record: a
// file that was cut does not give a record with less in it.

#include "fuzz_input.hpp"
#include "groups/record.hpp"

namespace {

using service::AccountingRecord;

void check_fields(const AccountingRecord &record, std::size_t size) {
    REQUIRE(record.kind >= AccountingRecord::Kind::kStart && record.kind <= AccountingRecord::Kind::kInterim);
    REQUIRE(record.end <= AccountingRecord::End::kMachineRestarted);
    std::size_t held = record.user.size() + record.terminal.size() + record.remote.size() +
                       record.command.value_or("").size();
    for (const std::string &value : record.classes) {
        held += value.size();
    }
    REQUIRE(held < size);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    fuzz::Input input(data, size);
    const std::size_t place = static_cast<std::size_t>(input.number(2));
    const std::string bytes = input.rest();
    const auto record = service::unpack_record(bytes);
    if (!record) {
        return 0;
    }
    check_fields(*record, bytes.size());
    REQUIRE(service::pack_record(*record) == bytes);
    REQUIRE(!service::unpack_record(std::string_view(bytes).substr(0, place % bytes.size())));
    REQUIRE(!service::unpack_record(bytes + static_cast<char>(place)));
    return 0;
}
