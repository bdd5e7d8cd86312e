// SPDX-License-Identifier: Apache-2.0
//
// A message as a capture shows it. Whatever the bytes are: what is not changed is the same, and of
// a list that the library reads, the library reads what is shown, without a value of a secret attribute.
// A packet of RADIUS that is shown has no name to be masked, and is one whose lengths fit.

#include <cstring>
#include <optional>
#include <string>

#include "aaa/checked.h"
#include "aaa/dictionary.h"
#include "aaa/result_codes.h"
#include "base/avlist.hpp"
#include "capture/mask.hpp"
#include "capture/radius_mask.hpp"
#include "fuzz_input.hpp"
#include "radius/packet.hpp"

namespace {

bool knows(const std::string &name) {
    return name == "alice";
}

service::AvList list_in(const std::string &bytes, std::size_t at) {
    avlist *list = nullptr;
    REQUIRE(aaa_avpair_create_list(nullptr, &list) == AAA_OK);
    service::AvList owner(list);
    const bool is_read = aaa_avpair_unpack_msg_checked(list, bytes.data() + at, bytes.size() - at) == AAA_OK;
    return is_read ? std::move(owner) : nullptr;
}

void check_values(const avlist *list) {
    for (const std::uint32_t type : {std::uint32_t{AAA_PASSWORD_ATTR}, std::uint32_t{AAA_DATA_ATTR}}) {
        char value[9] = "";
        std::uint32_t length = 0;
        const cerrno rc = aaa_util_avlist_value_copy(list, type, 0, value, sizeof value, &length);
        REQUIRE(rc == AAA_ERR_AVPAIR_NOT_FOUND || length == 0 ||
                (length == 8 && std::memcmp(value, "********", 8) == 0));
    }
}

void check_radius(const std::string &bytes) {
    const service::Masked once = service::masked_radius(bytes, {knows});
    static_cast<void>(service::masked_radius(bytes, {knows, "geheim"}));
    REQUIRE(once.is_changed || once.bytes == bytes);
    if (!once.is_changed) {
        return;
    }
    const std::size_t length = static_cast<std::size_t>(static_cast<unsigned char>(once.bytes[2])) << 8 |
                               static_cast<unsigned char>(once.bytes[3]);
    REQUIRE(length >= radius::kHeadSize && length <= once.bytes.size());
    const std::string_view attributes =
        std::string_view(once.bytes).substr(radius::kHeadSize, length - radius::kHeadSize);
    REQUIRE(radius::Attributes::are_whole(attributes));
    for (const radius::Attribute attribute : radius::Attributes(attributes)) {
        REQUIRE(attribute.type != radius::Type::kUserName || knows(std::string(attribute.value)) ||
                attribute.value == service::kMask);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz::Input input(data, size);
    const std::uint8_t how = input.byte();
    const bool is_readable = how % 8 != 0;
    const auto type = how < 128 ? std::nullopt : std::optional<std::uint32_t>(how >> 3 & 31);
    const std::size_t at = input.byte();
    const std::string bytes = input.text(input.size());
    check_radius(bytes);
    const service::Masked once = service::masked({bytes, at, is_readable, type}, {knows, "geheim"});
    REQUIRE(once.is_changed || once.bytes == bytes);
    if (!is_readable || at > bytes.size()) {
        REQUIRE(once.bytes.size() == bytes.size());
        return 0;
    }
    if (at != 0 && list_in(bytes, at) != nullptr) {
        const service::AvList shown = list_in(once.bytes, at);
        REQUIRE(shown != nullptr);
        check_values(shown.get());
    }
    return 0;
}
