// SPDX-License-Identifier: Apache-2.0
//
// The life of a list of ten attributes, with the C interface and with the C++ interface:
// made, packed, unpacked with checks, walked, five values read. callgrind counts the
// instructions of each; see check_cost.
//
//     round_trip c|cpp ITERATIONS

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "aaa/aaautil.hpp"

namespace {

constexpr std::uint32_t kNumber = 7;

[[gnu::noinline]] std::uint64_t round_trip_c() {
    std::uint64_t sum = 0;
    avlist *sent = nullptr;
    cerrno rc = aaa_avpair_create_list("round trip", &sent);
    rc |= aaa_avpair_add(AAA_SERVICE_TYPE_ATTR, 0, &kNumber, 0, 4, sent);
    rc |= aaa_avpair_add(AAA_AUTHEN_OPTION_ATTR, 0, &kNumber, 0, 4, sent);
    rc |= aaa_avpair_add(AAA_METHODLIST_ATTR, 0, "default", 0, 8, sent);
    rc |= aaa_avpair_add(AAA_USERNAME_ATTR, 0, "alice", 0, 6, sent);
    rc |= aaa_avpair_add(AAA_AUTHEN_METHOD_ATTR, 0, &kNumber, 0, 4, sent);
    rc |= aaa_avpair_add(AAA_TTYNAME_ATTR, 0, "/dev/vty0", 0, 10, sent);
    rc |= aaa_avpair_add(AAA_REMOTE_ADDR_ATTR, 0, "192.0.2.10", 0, 11, sent);
    rc |= aaa_avpair_add(AAA_PASSWORD_ATTR, 0, "wonderland", 0, 11, sent);
    rc |= aaa_avpair_add(AAA_USER_DB_FLAG_ATTR, 0, &kNumber, 0, 4, sent);
    rc |= aaa_avpair_add(AAA_TYPE_ATTR, 0, &kNumber, 0, 4, sent);
    char packed[512];
    std::uint32_t length = sizeof packed;
    rc |= aaa_avpair_pack_msg_to_buf(sent, packed, &length);
    aaa_avpair_free_list(sent);
    avlist *received = nullptr;
    rc |= aaa_avpair_create_list(nullptr, &received);
    rc |= aaa_avpair_unpack_msg_checked(received, packed, length);
    if (rc != AAA_OK) {
        std::abort();
    }
    aaa_avpair_iterator_t it{};
    avpair_t *pair = nullptr;
    for (rc = aaa_avpair_iterator_init(&it, received, &pair); rc == AAA_OK;
         rc = aaa_avpair_iterator_get_next(&it, &pair)) {
        sum += pair->av_type + pair->av_len;
    }
    for (const std::uint32_t type : {AAA_USERNAME_ATTR, AAA_PASSWORD_ATTR, AAA_REMOTE_ADDR_ATTR}) {
        void *value = nullptr;
        std::uint32_t bytes = 0;
        if (aaa_avpair_find_type(type, nullptr, &value, &bytes, 0, received) != AAA_OK) {
            std::abort();
        }
        const void *const end = std::memchr(value, '\0', bytes);
        sum +=
            end != nullptr
                ? static_cast<std::size_t>(static_cast<const char *>(end) - static_cast<const char *>(value))
                : bytes;
    }
    for (const std::uint32_t type : {AAA_TYPE_ATTR, AAA_SERVICE_TYPE_ATTR}) {
        void *value = nullptr;
        std::uint32_t bytes = 0, number = 0;
        if (aaa_avpair_find_type(type, nullptr, &value, &bytes, 0, received) != AAA_OK || bytes != 4) {
            std::abort();
        }
        std::memcpy(&number, value, sizeof number);
        sum += number;
    }
    aaa_avpair_free_list(received);
    return sum;
}

[[gnu::noinline]] std::uint64_t round_trip_cpp() {
    std::uint64_t sum = 0;
    std::byte packed[512];
    std::size_t length = 0;
    {
        aaa::list sent = *aaa::list::create("round trip");
        bool fine = sent.add(AAA_SERVICE_TYPE_ATTR, kNumber).has_value();
        fine = sent.add(AAA_AUTHEN_OPTION_ATTR, kNumber) && fine;
        fine = sent.add(AAA_METHODLIST_ATTR, "default") && fine;
        fine = sent.add<AAA_USERNAME_ATTR>("alice") && fine;
        fine = sent.add(AAA_AUTHEN_METHOD_ATTR, kNumber) && fine;
        fine = sent.add<AAA_TTYNAME_ATTR>("/dev/vty0") && fine;
        fine = sent.add<AAA_REMOTE_ADDR_ATTR>("192.0.2.10") && fine;
        fine = sent.add<AAA_PASSWORD_ATTR>("wonderland") && fine;
        fine = sent.add(AAA_USER_DB_FLAG_ATTR, kNumber) && fine;
        fine = sent.add(AAA_TYPE_ATTR, kNumber) && fine;
        const auto size = sent.pack_into(packed);
        if (!fine || !size) {
            std::abort();
        }
        length = *size;
    }
    const auto received = aaa::list::unpack(std::span(packed).first(length));
    if (!received) {
        std::abort();
    }
    for (const aaa::attribute pair : *received) {
        sum += pair.type() + pair.value().size();
    }
    for (const std::uint32_t type : {AAA_USERNAME_ATTR, AAA_PASSWORD_ATTR, AAA_REMOTE_ADDR_ATTR}) {
        const auto text = received->get<std::string_view>(type);
        if (!text) {
            std::abort();
        }
        sum += text->size();
    }
    for (const std::uint32_t type : {AAA_TYPE_ATTR, AAA_SERVICE_TYPE_ATTR}) {
        const auto number = received->get<std::uint32_t>(type);
        if (!number) {
            std::abort();
        }
        sum += *number;
    }
    return sum;
}

}  // namespace

int main(int argc, char **argv) {
    if (argc != 3) {
        return 2;
    }
    const bool cpp = std::strcmp(argv[1], "cpp") == 0;
    if (round_trip_c() != round_trip_cpp()) {
        return 1;
    }
    std::uint64_t sum = 0;
    for (long i = std::strtol(argv[2], nullptr, 10); i > 0; --i) {
        sum += cpp ? round_trip_cpp() : round_trip_c();
    }
    return sum != 0 ? 0 : 1;
}
